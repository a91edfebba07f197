#include "signal/SignalProcess.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "support/log_run.h"
#include "support/refused_signal.h"

namespace {

using kova::test::log_bodies;
using kova::test::LogRun;
using kova::test::parse_log_line;
using kova::test::run_apart;
using kova::test::split_lines;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

constexpr int kStormSignals = 10000;
constexpr int kStormBurst = 50;

/** The body of the handler's line for a signal. */
std::string handler_line(int signal) {
    return "\\[SignalProcess\\.h:[0-9]+\\]\\[SignalHandler\\]\\[[0-9]+\\]received signal " +
           std::to_string(signal);
}

bool is_handler_line(const std::string& body) {
    return body.starts_with("[SignalProcess.h:") &&
           (body.ends_with("]received signal 2") || body.ends_with("]received signal 15"));
}

struct sigaction installed(int signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    return action;
}

/** Keeps SIGINT and SIGTERM from the calling thread for good. */
void leave_signals_to_others() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/** Sends SIGINT and SIGTERM in turn to each thread given and to the process as a whole. */
void send_storm(const std::vector<pthread_t>& threads) {
    leave_signals_to_others();
    for (std::size_t sent = 0; sent < kStormSignals; ++sent) {
        const int signal = sent % 2 == 0 ? SIGINT : SIGTERM;
        const std::size_t target = sent / 2 % (threads.size() + 1);
        if (target < threads.size()) {
            pthread_kill(threads[target], signal);
        } else {
            kill(getpid(), signal);
        }
        if (sent % kStormBurst == 0) {
            std::this_thread::yield();  // on a single core nobody else would run
        }
    }
}

/** Runs each body over and over on a thread of its own, the first on this one, while the storm lasts. */
template <typename First, typename Second>
void run_in_storm(First first, Second second) {
    std::atomic<bool> over = false;
    std::barrier together(3);
    const auto repeat = [&](auto& body) {
        together.arrive_and_wait();
        while (!over.load(std::memory_order_relaxed)) {
            body();
        }
    };
    const pthread_t self = pthread_self();
    std::thread other([&] { repeat(second); });
    std::thread sender([&] {
        together.arrive_and_wait();
        send_storm({self, other.native_handle()});
        over.store(true, std::memory_order_relaxed);
    });
    repeat(first);
    sender.join();
    other.join();
}

/** Asserts that nothing but whole lines stands in a run's file, with lines from the handler among them. */
void expect_whole_lines(const LogRun& run) {
    ASSERT_TRUE(run.ended_well()) << run.status;
    std::string all;
    for (const auto& [name, content] : run.files) {
        all += content;
    }
    int from_handler = 0;
    for (const std::string& body : log_bodies(all)) {
        if (is_handler_line(body)) {
            ++from_handler;
        } else {
            ASSERT_EQ(body, "[a.cpp:1][f]without pause");
        }
    }
    EXPECT_GT(from_handler, 0);
    EXPECT_LE(from_handler, kStormSignals);
    testing::Test::RecordProperty("lines_from_the_handler", from_handler);
}

/** Standard output that has no room: a write to it waits until somebody drains it. */
class FullConsole {
 public:
    FullConsole() {
        if (pipe(ends_.data()) != 0 || dup2(ends_[1], STDOUT_FILENO) < 0 ||
            fcntl(STDOUT_FILENO, F_SETFL, O_NONBLOCK) != 0) {
            std::_Exit(4);
        }
        while (write(STDOUT_FILENO, "x", 1) == 1) {
        }
        fcntl(STDOUT_FILENO, F_SETFL, 0);
    }

    void drain() {
        fcntl(ends_[0], F_SETFL, O_NONBLOCK);
        std::array<char, 4096> drained{};
        while (read(ends_[0], drained.data(), drained.size()) > 0) {
        }
    }

 private:
    std::array<int, 2> ends_{};
};

/** Whether a thread of this process waits in the kernel. */
bool is_asleep(pid_t thread) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
    std::string fields;
    std::getline(stat, fields);
    const std::size_t name_end = fields.rfind(')');
    return name_end != std::string::npos && fields.compare(name_end, 3, ") S") == 0;
}

TEST(SignalProcess, ExitIsNotWantedAtFirst) {
    const LogRun run = run_apart([] {
        const bool before = CSignalProcess::IsExit();
        const int32_t result = CSignalProcess::InitSignal();
        std::printf("%d%d%d", before ? 1 : 0, result, CSignalProcess::IsExit() ? 1 : 0);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "000");
    EXPECT_THAT(run.files, IsEmpty());
}

TEST(SignalProcess, StopSignalsHaveTheHandlerAndSigpipeIsIgnored) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        for (const int signal : {SIGINT, SIGTERM}) {
            const struct sigaction action = installed(signal);
            const auto flags = static_cast<unsigned>(action.sa_flags);
            const bool only_siginfo =
                (flags & (SA_SIGINFO | SA_RESTART | SA_NODEFER | SA_RESETHAND)) == SA_SIGINFO;
            std::printf("%d%d%d ", action.sa_sigaction == CSignalProcess::SignalHandler ? 1 : 0,
                        only_siginfo ? 1 : 0, sigisemptyset(&action.sa_mask));
        }
        std::printf("%d", installed(SIGPIPE).sa_handler == SIG_IGN ? 1 : 0);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "111 111 1");
}

TEST(SignalProcess, SigintSetsTheFlagAndTheProcessRunsOn) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        raise(SIGINT);
        std::printf("%d", CSignalProcess::IsExit() ? 1 : 0);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre(MatchesRegex(handler_line(2))));
    EXPECT_EQ(run.console, run.file() + "1");
}

TEST(SignalProcess, SigtermSetsTheFlagAndTheProcessRunsOn) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        raise(SIGTERM);
        std::printf("%d", CSignalProcess::IsExit() ? 1 : 0);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre(MatchesRegex(handler_line(15))));
    EXPECT_EQ(run.console, run.file() + "1");
}

TEST(SignalProcess, LineIsAnErrorWithTheProcessIdInIt) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        raise(SIGINT);
        std::printf("%d", getpid());
    });
    ASSERT_TRUE(run.ended_well());
    const auto line = parse_log_line(split_lines(run.file()).at(0));
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->tag, "\033[31;1m [E]");
    const std::string process = run.console.substr(run.file().size());
    EXPECT_THAT(line->body, testing::EndsWith("[SignalHandler][" + process + "]received signal 2"));
}

TEST(SignalProcess, EverySignalIsLoggedAndTheFlagStays) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        for (const int signal : {SIGINT, SIGTERM, SIGINT}) {
            raise(signal);
        }
        CSignalProcess::InitSignal();
        std::printf("%d", CSignalProcess::IsExit() ? 1 : 0);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console.back(), '1');
    std::vector<std::string> bodies;
    for (const auto& [name, content] : run.files) {
        for (const std::string& body : log_bodies(content)) {
            bodies.push_back(body);
        }
    }
    EXPECT_THAT(bodies, ElementsAre(MatchesRegex(handler_line(2)), MatchesRegex(handler_line(15)),
                                    MatchesRegex(handler_line(2))));
}

TEST(SignalProcess, MaskedLineLeavesTheFlagSet) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        CCommonLog::GetInstance()->SetLogLevel(static_cast<ELOGLEVEL>(0));
        raise(SIGINT);
        std::printf("%d", CSignalProcess::IsExit() ? 1 : 0);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "1");
    EXPECT_THAT(run.files, IsEmpty());
}

TEST(SignalProcess, InterruptedCodeKeepsItsErrno) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        std::string missing = "missing";
        CCommonLog::GetInstance()->SetLogPath(missing);
        errno = 0;
        raise(SIGINT);
        std::printf("%d", errno);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "fopen failed with error: No such file or directory (errno: 2)\n0");
}

TEST(SignalProcess, BrokenPipeDoesNotEndTheProcess) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) {
            std::_Exit(4);
        }
        close(ends[0]);
        const ssize_t written = write(ends[1], "x", 1);
        std::printf("%d %d", static_cast<int>(written), errno == EPIPE ? 1 : 0);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "-1 1");
}

TEST(SignalProcess, RefusedHandlerIsLoggedAndEndsTheInstallation) {
    struct Case {
        int signal;
        const char* text;
        const char* later;  // whether SIGTERM and SIGPIPE got theirs nonetheless
    };
    for (const Case& refused : {Case{SIGINT, "Failed to install SIGINT handle!", "00"},
                                Case{SIGTERM, "Failed to install SIGTERM handle!", "00"},
                                Case{SIGPIPE, "Failed to install SIGPIPE handle!", "10"}}) {
        const LogRun run = run_apart([&] {
            std::signal(SIGPIPE, SIG_DFL);
            kova::test::refused_signal = refused.signal;
            const int32_t result = CSignalProcess::InitSignal();
            kova::test::refused_signal = 0;
            std::printf("%d %d%d", result,
                        installed(SIGTERM).sa_sigaction == CSignalProcess::SignalHandler ? 1 : 0,
                        installed(SIGPIPE).sa_handler == SIG_IGN ? 1 : 0);
        });
        ASSERT_TRUE(run.ended_well());
        EXPECT_THAT(
            log_bodies(run.file()),
            ElementsAre(testing::AllOf(testing::StartsWith("[SignalProcess.h:"),
                                       testing::EndsWith(std::string("][InitSignal]") + refused.text))));
        EXPECT_THAT(run.file(), testing::StartsWith("\033[31;1m [E]"));
        EXPECT_EQ(run.console, run.file() + "-1 " + refused.later);
    }
}

TEST(SignalProcessThreaded, FlagIsSetBeforeTheLineIsWritten) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        FullConsole console;
        std::thread receiver([] { raise(SIGINT); });
        while (!CSignalProcess::IsExit()) {
            std::this_thread::yield();
        }
        console.drain();
        receiver.join();
    });
    ASSERT_TRUE(run.ended_well()) << run.status;
    EXPECT_THAT(log_bodies(run.file()), ElementsAre(MatchesRegex(handler_line(2))));
}

TEST(SignalProcessThreaded, TheOtherSignalWaitsForTheEndOfTheLine) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "first");
        FullConsole console;
        std::atomic<pid_t> receiver_id = 0;
        std::thread receiver([&] {
            receiver_id = gettid();
            raise(SIGINT);
        });
        while (!CSignalProcess::IsExit() || !is_asleep(receiver_id)) {
            std::this_thread::yield();
        }
        // The handler of the first signal is inside its write.
        pthread_kill(receiver.native_handle(), SIGTERM);
        console.drain();
        receiver.join();
    });
    ASSERT_TRUE(run.ended_well()) << run.status;
    EXPECT_THAT(log_bodies(run.file()),
                ElementsAre("first", MatchesRegex(handler_line(2)), MatchesRegex(handler_line(15))));
}

TEST(SignalProcessThreaded, StormOverThreadsThatLogWithoutPauseTearsNoLine) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "[a.cpp:1][f]without pause");
        const auto write_line = [] { LogMessage(LOG_INFO, "a.cpp", 1, "f", "without %s", "pause"); };
        run_in_storm(write_line, write_line);
    });
    expect_whole_lines(run);
    EXPECT_EQ(run.console, run.file());
}

TEST(SignalProcessThreaded, StormWhileTheFileIsOpenedTearsNoLine) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        const auto write_line = [] { LogMessage(LOG_INFO, "a.cpp", 1, "f", "without %s", "pause"); };
        run_in_storm(write_line, write_line);
    });
    expect_whole_lines(run);
}

TEST(SignalProcessThreaded, StormOverAThreadInLocaltimeEnds) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        run_in_storm(
            [] {
                const time_t now = time(nullptr);
                std::tm local{};
                localtime_r(&now, &local);
            },
            [] { LogMessage(LOG_INFO, "a.cpp", 1, "f", "without %s", "pause"); });
    });
    expect_whole_lines(run);
}

TEST(SignalProcessThreaded, StormOverAThreadThatPrintsEnds) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        run_in_storm([] { std::printf("printed %d ", 1); },
                     [] { LogMessage(LOG_INFO, "a.cpp", 1, "f", "without %s", "pause"); });
    });
    expect_whole_lines(run);
}

TEST(SignalProcessThreaded, StormOverAThreadThatHoldsTheListOfStreamsEnds) {
    const LogRun run = run_apart([] {
        CSignalProcess::InitSignal();
        std::string path = "missing";
        CCommonLog::GetInstance()->SetLogPath(path);
        run_in_storm([] { std::fflush(nullptr); }, [] { LogMessage(LOG_INFO, "a.cpp", 1, "f", "lost"); });
    });
    ASSERT_TRUE(run.ended_well()) << run.status;
    EXPECT_THAT(split_lines(run.console),
                testing::Each("fopen failed with error: No such file or directory (errno: 2)"));
    EXPECT_THAT(run.files, IsEmpty());
}

}  // namespace
