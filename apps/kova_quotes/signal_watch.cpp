#include "kova_quotes/signal_watch.h"

#include <array>
#include <atomic>
#include <cstddef>

namespace kova::app {

namespace {

constexpr std::array<int, 2> kSignals{SIGINT, SIGTERM};

std::atomic<bool> is_seen{false};
std::array<struct sigaction, kSignals.size()> followers;

void note_and_hand_on(int number, siginfo_t* info, void* context) {
    is_seen.store(true, std::memory_order_relaxed);
    const struct sigaction& follower = followers[number == kSignals[0] ? 0 : 1];
    if ((follower.sa_flags & SA_SIGINFO) != 0) {
        follower.sa_sigaction(number, info, context);
    } else if (follower.sa_handler != SIG_DFL && follower.sa_handler != SIG_IGN) {
        follower.sa_handler(number);
    }
}

}  // namespace

SignalWatch::SignalWatch() {
    is_seen.store(false, std::memory_order_relaxed);
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], nullptr, &followers[i]);
        // Without SA_RESTART: a write that waits for its reader must notice.
        struct sigaction own {};
        own.sa_flags = SA_SIGINFO;
        own.sa_mask = followers[i].sa_mask;
        own.sa_sigaction = note_and_hand_on;
        sigaction(kSignals[i], &own, nullptr);
    }
}

SignalWatch::~SignalWatch() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) {
        sigaction(kSignals[i], &followers[i], nullptr);
    }
}

bool SignalWatch::seen() {
    return is_seen.load(std::memory_order_relaxed);
}

}  // namespace kova::app
