#include "kova_quotes/signal_watch.h"

#include <gtest/gtest.h>

#include <csignal>

namespace kova::app {
namespace {

volatile std::sig_atomic_t handed_on = 0;
volatile std::sig_atomic_t value_handed_on = 0;

void library_handler(int number, siginfo_t* info, void* /*context*/) {
    handed_on = number;
    value_handed_on = info->si_value.sival_int;
}

void install(int number) {
    handed_on = 0;
    struct sigaction action {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = library_handler;
    sigaction(number, &action, nullptr);
}

TEST(SignalWatch, NotesTheSignalAndHandsItOnUnchanged) {
    for (const int number : {SIGINT, SIGTERM}) {
        install(number);
        const SignalWatch watch;
        EXPECT_FALSE(SignalWatch::seen());
        sigval value{};
        value.sival_int = 77;
        ::sigqueue(::getpid(), number, value);
        EXPECT_TRUE(SignalWatch::seen());
        EXPECT_EQ(handed_on, number);
        EXPECT_EQ(value_handed_on, 77);
    }
}

TEST(SignalWatch, PutsTheHandlersBack) {
    install(SIGINT);
    { const SignalWatch watch; }
    struct sigaction now {};
    sigaction(SIGINT, nullptr, &now);
    EXPECT_EQ(now.sa_sigaction, library_handler);
}

TEST(SignalWatch, WithoutAHandlerBehindItTheSignalIsNotedAllTheSame) {
    std::signal(SIGTERM, SIG_DFL);
    const SignalWatch watch;
    std::raise(SIGTERM);
    EXPECT_TRUE(SignalWatch::seen());
}

}  // namespace
}  // namespace kova::app
