#include "log/CommonLog.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <barrier>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <set>
#include <string_view>
#include <thread>

#include "support/log_run.h"

namespace {

using kova::test::log_bodies;
using kova::test::LogLine;
using kova::test::LogRun;
using kova::test::parse_log_line;
using kova::test::run_apart;
using kova::test::split_lines;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;
using testing::SizeIs;

constexpr const char* kNoDirectory = "fopen failed with error: No such file or directory (errno: 2)\n";

ELOGLEVEL mask(int32_t bits) {
    return static_cast<ELOGLEVEL>(bits);
}

void set_log_path(std::string path) {
    CCommonLog::GetInstance()->SetLogPath(path);
}

/** A line of each level, 32 included, with the level as its text. */
void write_every_level() {
    for (const int32_t level : {1, 2, 4, 8, 16, 32}) {
        CCommonLog::GetInstance()->WriteLog(mask(level), "%d", level);
    }
}

std::vector<std::string> tags(const std::string& text) {
    std::vector<std::string> found;
    for (const std::string& line : split_lines(text)) {
        const auto parsed = parse_log_line(line);
        found.push_back(parsed ? parsed->tag : "<torn>");
    }
    return found;
}

/** Seconds since 1970 that a line's stamp would be if it were UTC. */
time_t stamp_as_utc(const LogLine& line) {
    std::tm stamp{};
    strptime((line.date + line.time).c_str(), "%Y%m%d%H%M%S", &stamp);
    return timegm(&stamp);
}

/** How many write calls the process has made so far. */
long write_calls() {
    // Without streams: instrumented builds check their objects by system calls.
    std::array<char, 512> io{};
    const int file = open("/proc/self/io", O_RDONLY | O_CLOEXEC);
    const ssize_t size = read(file, io.data(), io.size() - 1);
    close(file);
    const char* const counter = size > 0 ? std::strstr(io.data(), "syscw: ") : nullptr;
    return counter != nullptr ? std::strtol(counter + std::strlen("syscw: "), nullptr, 10) : -1;
}

/** Descriptor of the process's log file. */
int log_file_descriptor() {
    for (int descriptor = 3; descriptor < 100; ++descriptor) {
        std::error_code none;
        const auto target = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), none);
        if (target.filename().string().starts_with("kova_u50_")) {
            return descriptor;
        }
    }
    return -1;
}

/** Standard output as packets while this lives: each write is seen by itself. */
class PacketConsole {
 public:
    PacketConsole() : saved_(dup(STDOUT_FILENO)) {
        if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends_.data()) != 0 || dup2(ends_[1], STDOUT_FILENO) < 0) {
            std::_Exit(4);
        }
    }

    /** Gives standard output back and prints what came, one "<...>" for each write. */
    void report() {
        dup2(saved_, STDOUT_FILENO);
        std::array<char, 16384> packet{};
        for (;;) {
            const ssize_t size = recv(ends_[0], packet.data(), packet.size(), MSG_DONTWAIT);
            if (size < 0) {
                break;
            }
            std::printf("<%.*s>", static_cast<int>(size), packet.data());
        }
    }

 private:
    std::array<int, 2> ends_{};
    int saved_;
};

TEST(CommonLog, EveryLevelButTheLastIsEnabledAtFirst) {
    const LogRun run = run_apart(write_every_level);
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("1", "2", "4", "8"));
}

TEST(CommonLog, IsEnabledTellsWhatWouldBeWritten) {
    const LogRun run = run_apart([] {
        CCommonLog* const log = CCommonLog::GetInstance();
        log->SetLogLevel(mask(LOG_WARNING | 32));
        for (const int32_t level : {1, 2, 4, 8, 16, 32}) {
            std::printf("%d", log->IsEnabled(mask(level)) ? 1 : 0);
        }
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "010001");
}

TEST(CommonLog, ErrorMaskSuppressesWarnings) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->SetLogLevel(LOG_ERROR);
        write_every_level();
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("1"));
}

TEST(CommonLog, FullMaskLetsEveryLevelThroughWithItsTag) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->SetLogLevel(LOG_EVERYTHING);
        write_every_level();
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("1", "2", "4", "8", "16"));
    EXPECT_THAT(tags(run.file()), ElementsAre("\033[31;1m [E]", "\033[33;1m [W]", "\033[32;1m [I]",
                                              "\033[37;1m [D]", "\033[34;1m [X]"));
}

TEST(CommonLog, UnknownLevelIsWrittenIfItsBitIsInTheMask) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->SetLogLevel(mask(32));
        write_every_level();
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("32"));
    EXPECT_THAT(tags(run.file()), ElementsAre("\033[34;1m [N]"));
}

TEST(CommonLog, SeveralLevelsAtOnceHaveTheUnknownTag) {
    const LogRun run =
        run_apart([] { CCommonLog::GetInstance()->WriteLog(mask(LOG_ERROR | LOG_INFO), "both"); });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(tags(run.file()), ElementsAre("\033[34;1m [N]"));
}

TEST(CommonLog, EmptyMaskWritesNothingAndOpensNoFile) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->SetLogLevel(mask(0));
        write_every_level();
        KOVA_LOG(LOG_ERROR, "masked");
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_ERROR, "masked");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "");
    EXPECT_THAT(run.files, IsEmpty());
}

TEST(CommonLog, MaskedLineEvaluatesNoArgument) {
    const LogRun run = run_apart([] {
        int evaluated = 0;
        KOVA_LOG(LOG_DEBUG_EX, "%d", ++evaluated);
        KOVA_LOG_AS(LOG_DEBUG_EX, "_ReadConfig", "%d", ++evaluated);
        std::printf("%d", evaluated);
        KOVA_LOG(LOG_DEBUG, "%d", ++evaluated);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console.substr(0, 1), "0");
    EXPECT_THAT(log_bodies(run.file()), ElementsAre(MatchesRegex(".*]1")));
}

TEST(CommonLog, LineHoldsEveryPartInItsPlace) {
    const LogRun run = run_apart(
        [] { LogMessage(LOG_INFO, "/home/dev/src/engine/Receive.cpp", 42, "KovaRecv", "value[%d]", 7); });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(run.file(),
                MatchesRegex("^\033\\[32;1m \\[I\\] \\[[0-9]{8}\\]\\[[0-9]{2}:[0-9]{2}:[0-9]{2}\\]\\[[0-9]+\\] "
                             "\\[Receive\\.cpp:42\\]\\[KovaRecv\\]value\\[7\\]\033\\[0m \n$"));
    EXPECT_EQ(run.console, run.file());
}

TEST(CommonLog, SourceFileWithoutDirectoryIsNamedWhole) {
    const LogRun run = run_apart([] { LogMessage(LOG_INFO, "Receive.cpp", 1, "f", "text"); });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("[Receive.cpp:1][f]text"));
}

TEST(CommonLog, LineNamesItsSourceLineAndFunction) {
    const LogRun run = run_apart([] {
        KOVA_LOG(LOG_INFO, "%d", __LINE__);
        KOVA_LOG_AS(LOG_INFO, "_TcpHandler", "%d", __LINE__);
    });
    ASSERT_TRUE(run.ended_well());
    const auto bodies = log_bodies(run.file());
    ASSERT_THAT(bodies, SizeIs(2));
    EXPECT_THAT(bodies[0], MatchesRegex("\\[common_log_test\\.cpp:[0-9]+\\]\\[operator\\(\\)\\][0-9]+"));
    EXPECT_THAT(bodies[1], MatchesRegex("\\[common_log_test\\.cpp:[0-9]+\\]\\[_TcpHandler\\][0-9]+"));
    for (const std::string& body : bodies) {
        const std::string line = body.substr(body.rfind(']') + 1);
        EXPECT_NE(body.find("common_log_test.cpp:" + line + "]"), std::string::npos) << body;
    }
}

TEST(CommonLog, StampIsLocalTime) {
    const time_t before = time(nullptr);
    const LogRun run = run_apart([] {
        setenv("TZ", "KVT-05:30", 1);
        tzset();
        KOVA_LOG(LOG_INFO, "text");
    });
    const time_t after = time(nullptr);
    ASSERT_TRUE(run.ended_well());
    const auto line = parse_log_line(split_lines(run.file()).at(0));
    ASSERT_TRUE(line.has_value());
    EXPECT_GE(stamp_as_utc(*line), before + 19800);
    EXPECT_LE(stamp_as_utc(*line), after + 19800);
}

TEST(CommonLog, LineCarriesTheWritingThread) {
    const LogRun run = run_apart([] { CCommonLog::GetInstance()->WriteLog(LOG_INFO, "%lu", pthread_self()); });
    ASSERT_TRUE(run.ended_well());
    const auto line = parse_log_line(split_lines(run.file()).at(0));
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->thread, line->body);
}

TEST(CommonLog, MessageIsNeverAFormat) {
    const LogRun run = run_apart([] {
        KOVA_LOG_AS(LOG_INFO, "f", "%s", "100%s%n%d%%");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "%s", "%n%n%s");
        LogMessage(LOG_INFO, "/src/%s%n.cpp", 1, "%d%n", "text");
    });
    ASSERT_TRUE(run.ended_well());
    const auto bodies = log_bodies(run.file());
    ASSERT_THAT(bodies, SizeIs(3));
    EXPECT_THAT(bodies[0], testing::EndsWith("[f]100%s%n%d%%"));
    EXPECT_EQ(bodies[1], "%n%n%s");
    EXPECT_EQ(bodies[2], "[%s%n.cpp:1][%d%n]text");
}

TEST(CommonLog, LongestMessageComesOutWhole) {
    const std::string message(4095, 'm');
    const LogRun run = run_apart([&] { LogMessage(LOG_INFO, "a.cpp", 1, "f", "%s", message.c_str()); });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("[a.cpp:1][f]" + message));
    EXPECT_EQ(run.console, run.file());
}

TEST(CommonLog, LongerMessageIsCutAtItsEnd) {
    const LogRun run =
        run_apart([] { LogMessage(LOG_INFO, "a.cpp", 1, "f", "%s", std::string(5000, 'm').c_str()); });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("[a.cpp:1][f]" + std::string(4095, 'm')));
}

TEST(CommonLog, LineThatDoesNotFitKeepsItsEnd) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "%s", std::string(100000, 'm').c_str());
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_INFO, "%s", std::string(100000, 'm').c_str());
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "next");
    });
    ASSERT_TRUE(run.ended_well());
    const auto bodies = log_bodies(run.file());
    ASSERT_THAT(bodies, SizeIs(3));
    for (const std::string& body : {bodies[0], bodies[1]}) {
        EXPECT_GT(body.size(), 4200U);
        EXPECT_EQ(body, std::string(body.size(), 'm'));
    }
    EXPECT_EQ(bodies[2], "next");
}

TEST(CommonLog, FileIsNamedByTheFirstLineAndKeptForLaterOnes) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "first");
        for (const time_t first = time(nullptr); time(nullptr) <= first + 1;) {
        }
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "later");
    });
    ASSERT_TRUE(run.ended_well());
    ASSERT_THAT(log_bodies(run.file()), ElementsAre("first", "later"));
    const auto line = parse_log_line(split_lines(run.file()).at(0));
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(run.files.begin()->first, "kova_u50_" + line->date + "_" + line->time + ".log");
}

TEST(CommonLog, FileLiesInTheLogPath) {
    const LogRun run = run_apart([] {
        std::filesystem::create_directory("logs");
        set_log_path("logs");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "text");
    });
    ASSERT_TRUE(run.ended_well());
    ASSERT_THAT(run.files, SizeIs(1));
    EXPECT_THAT(run.files.begin()->first, MatchesRegex("logs/kova_u50_[0-9]{8}_[0-9]{6}\\.log"));
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("text"));
}

TEST(CommonLog, SecondLogPathChangesNothing) {
    const LogRun run = run_apart([] {
        std::filesystem::create_directory("first");
        std::filesystem::create_directory("second");
        set_log_path("first");
        set_log_path("second");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "text");
    });
    ASSERT_TRUE(run.ended_well());
    ASSERT_THAT(run.files, SizeIs(1));
    EXPECT_THAT(run.files.begin()->first, testing::StartsWith("first/"));
}

TEST(CommonLog, EmptyLogPathIsTakenToo) {
    const LogRun run = run_apart([] {
        std::filesystem::create_directory("second");
        set_log_path("");
        set_log_path("second");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "text");
    });
    ASSERT_TRUE(run.ended_well());
    ASSERT_THAT(run.files, SizeIs(1));
    EXPECT_THAT(run.files.begin()->first, testing::StartsWith("kova_u50_"));
}

TEST(CommonLog, LogPathAfterTheFirstLineIsNotUsed) {
    const LogRun run = run_apart([] {
        std::filesystem::create_directory("late");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "first");
        set_log_path("late");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "second");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("first", "second"));
}

TEST(CommonLog, FileIsAppendedTo) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "first");
        std::ofstream(std::filesystem::directory_iterator(".")->path(), std::ios::app) << "between\n";
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "second");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("first", "<torn>", "second"));
    EXPECT_EQ(split_lines(run.file()).at(1), "between");
}

TEST(CommonLog, MissingDirectoryIsToldOncePerLineAndNothingElseIs) {
    const LogRun run = run_apart([] {
        set_log_path("missing");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "lost");
        KOVA_LOG(LOG_ERROR, "lost");
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_ERROR, "lost");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, std::string(kNoDirectory) + kNoDirectory + kNoDirectory);
    EXPECT_THAT(run.files, IsEmpty());
}

TEST(CommonLog, MaskedLineDoesNotTryToOpenTheFile) {
    const LogRun run = run_apart([] {
        set_log_path("missing");
        CCommonLog::GetInstance()->WriteLog(LOG_DEBUG_EX, "masked");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "");
}

TEST(CommonLog, FileIsTriedAgainWithTheNextLine) {
    const LogRun run = run_apart([] {
        set_log_path("logs");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "lost");
        std::filesystem::create_directory("logs");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "kept");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("kept"));
    EXPECT_EQ(run.console, kNoDirectory + run.file());
}

TEST(CommonLog, PathTooLongForAFileFailsToOpen) {
    const LogRun run = run_apart([] {
        set_log_path(std::string(PATH_MAX, 'd'));
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "lost");
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_INFO, "lost");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console,
              "fopen failed with error: File name too long (errno: 36)\n"
              "fopen failed with error: File name too long (errno: 36)\n");
    EXPECT_THAT(run.files, IsEmpty());
}

TEST(CommonLog, EachLineIsOneWritePerDestination) {
    const LogRun run = run_apart([] {
        const std::string message(4095, 'm');
        PacketConsole console;
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "first");
        const long before = write_calls();
        LogMessage(LOG_INFO, "a.cpp", 1, "f", "%s", message.c_str());
        const long ordinary = write_calls() - before;
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_INFO, "in signal");
        const long in_signal = write_calls() - before - ordinary;
        console.report();
        std::printf("%ld %ld", ordinary, in_signal);
    });
    ASSERT_TRUE(run.ended_well());
    const auto lines = split_lines(run.file());
    ASSERT_THAT(lines, SizeIs(3));
    EXPECT_EQ(run.console, "<" + lines[0] + "\n><" + lines[1] + "\n><" + lines[2] + "\n>2 2");
}

TEST(CommonLog, OpenFailureIsOneWrite) {
    const LogRun run = run_apart([] {
        set_log_path("missing");
        PacketConsole console;
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "lost");
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_INFO, "lost");
        console.report();
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "<" + std::string(kNoDirectory) + "><" + kNoDirectory + ">");
}

TEST(CommonLog, WhatTheApplicationPrintedBeforeStandsBefore) {
    const LogRun run = run_apart([] {
        std::printf("before ");
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "text");
        std::printf("after");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "before " + run.file() + "after");
}

TEST(CommonLog, BrokenStandardOutputDoesNotKeepALineFromTheFile) {
    const LogRun run = run_apart([] {
        std::signal(SIGPIPE, SIG_IGN);
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
            std::_Exit(4);
        }
        close(ends[0]);
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "broken pipe");
        close(STDOUT_FILENO);
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "closed");
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_INFO, "closed, in signal");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("broken pipe", "closed", "closed, in signal"));
}

TEST(CommonLog, FullStandardOutputThatMayNotBlockLosesTheLineThere) {
    const LogRun run = run_apart([] {
        std::array<int, 2> ends{};
        if (pipe2(ends.data(), O_NONBLOCK) != 0 || dup2(ends[1], STDOUT_FILENO) < 0) {
            std::_Exit(4);
        }
        while (write(STDOUT_FILENO, "x", 1) == 1) {
        }
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "text");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("text"));
}

TEST(CommonLog, FullDiskDoesNotKeepALineFromStandardOutput) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "first");
        const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
        if (full < 0 || dup2(full, log_file_descriptor()) < 0) {
            std::_Exit(4);
        }
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "second");
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.console), ElementsAre("first", "second"));
    EXPECT_THAT(log_bodies(run.file()), ElementsAre("first"));
}

TEST(CommonLog, FileIsNotHandedToOtherPrograms) {
    const LogRun run = run_apart([] {
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "text");
        const int descriptor = log_file_descriptor();
        std::printf("%d", descriptor > 2 && fcntl(descriptor, F_GETFD) == FD_CLOEXEC ? 1 : 0);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console.back(), '1');
}

TEST(CommonLog, LineIsWrittenWhileTheProcessEnds) {
    const LogRun run = run_apart([] {
        // Runs after the destructors of everything that is built from here on.
        std::atexit([] { CCommonLog::GetInstance()->WriteLog(LOG_INFO, "last"); });
        const std::string directory(60, 'd');
        std::filesystem::create_directory(directory);
        set_log_path(directory);
    });
    ASSERT_TRUE(run.ended_well());
    ASSERT_THAT(log_bodies(run.file()), ElementsAre("last"));
    EXPECT_THAT(run.files.begin()->first, testing::StartsWith(std::string(60, 'd') + "/"));
}

TEST(CommonLog, CallerKeepsItsSignalMask) {
    const LogRun run = run_apart([] {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "text");
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_INFO, "text");
        CCommonLog::GetInstance()->SetLogLevel(LOG_INFO);
        set_log_path("logs");
        pthread_sigmask(SIG_BLOCK, nullptr, &set);
        std::printf("%d%d", sigismember(&set, SIGTERM), sigismember(&set, SIGINT));
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(run.console, testing::EndsWith("10"));
}

TEST(CommonLog, LineFromASignalKeepsTheOffsetOfTheLastOrdinaryLine) {
    const time_t before = time(nullptr);
    const LogRun run = run_apart([] {
        setenv("TZ", "KVT-05:30", 1);
        tzset();
        CCommonLog::GetInstance()->WriteLog(LOG_INFO, "ordinary");
        setenv("TZ", "KVT+02:00", 1);
        tzset();
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_WARNING, "%s[%d]", "in signal", 1);
    });
    const time_t after = time(nullptr);
    ASSERT_TRUE(run.ended_well());
    const auto lines = split_lines(run.file());
    ASSERT_THAT(lines, SizeIs(2));
    const auto line = parse_log_line(lines[1]);
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->tag, "\033[33;1m [W]");
    EXPECT_EQ(line->body, "in signal[1]");
    EXPECT_GE(stamp_as_utc(*line), before + 19800);
    EXPECT_LE(stamp_as_utc(*line), after + 19800);
    EXPECT_EQ(run.console, run.file());
}

TEST(CommonLog, LineFromASignalBeforeAnyOtherHasAFileOfTheSameName) {
    const LogRun run = run_apart([] {
        std::filesystem::create_directory("logs");
        set_log_path("logs");
        CCommonLog::GetInstance()->WriteLogInSignal(LOG_ERROR, "in signal");
        std::printf("%d", log_file_descriptor());
    });
    ASSERT_TRUE(run.ended_well());
    ASSERT_THAT(run.files, SizeIs(1));
    const auto line = parse_log_line(split_lines(run.file()).at(0));
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->body, "in signal");
    EXPECT_EQ(run.files.begin()->first, "logs/kova_u50_" + line->date + "_" + line->time + ".log");
    EXPECT_EQ(run.console, run.file() + "-1");
}

/** Makes lines of many lengths of a running number. */
std::string padding(int number) {
    return std::string(static_cast<std::size_t>(number % 97), 'm');
}

TEST(CommonLogThreaded, LinesOfSeveralThreadsNeverInterleave) {
    constexpr int kThreads = 4;
    constexpr int kLines = 4000;
    const LogRun run = run_apart([] {
        std::barrier together(kThreads);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([thread, &together] {
                together.arrive_and_wait();
                for (int line = 0; line < kLines; ++line) {
                    LogMessage(LOG_INFO, "a.cpp", thread, "f", "%d %s", line, padding(line).c_str());
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, run.file());
    std::array<int, kThreads> next{};
    for (const std::string& body : log_bodies(run.file())) {
        int thread = -1;
        ASSERT_EQ(std::sscanf(body.c_str(), "[a.cpp:%d]", &thread), 1) << body;
        ASSERT_TRUE(thread >= 0 && thread < kThreads) << body;
        const int line = next.at(static_cast<std::size_t>(thread))++;
        ASSERT_EQ(body,
                  "[a.cpp:" + std::to_string(thread) + "][f]" + std::to_string(line) + " " + padding(line));
    }
    EXPECT_THAT(next, testing::Each(kLines));
}

TEST(CommonLogThreaded, LinesOfTwoThreadsInOneSecondDifferInTheThreadAlone) {
    const LogRun run = run_apart([] {
        // Enough rounds for one of them to lie within one second.
        std::barrier round(2);
        const auto write = [&round] {
            for (int line = 0; line < 3; ++line) {
                round.arrive_and_wait();
                CCommonLog::GetInstance()->WriteLog(LOG_INFO, "round %d", line);
            }
        };
        std::thread other(write);
        write();
        other.join();
    });
    ASSERT_TRUE(run.ended_well());
    std::map<std::string, std::set<std::string>> threads_of;
    for (const std::string& text : split_lines(run.file())) {
        const auto line = parse_log_line(text);
        ASSERT_TRUE(line.has_value()) << text;
        threads_of[line->tag + line->date + line->time + line->body].insert(line->thread);
    }
    EXPECT_TRUE(std::any_of(threads_of.begin(), threads_of.end(),
                            [](const auto& entry) { return entry.second.size() == 2; }));
}

TEST(CommonLogThreaded, LevelAndPathMayChangeWhileOthersWrite) {
    constexpr int kLines = 500;
    const LogRun run = run_apart([] {
        std::thread writer([] {
            for (int line = 0; line < kLines; ++line) {
                KOVA_LOG(LOG_ERROR, "error %d", line);
                KOVA_LOG(LOG_DEBUG_EX, "detail %d", line);
            }
        });
        for (int change = 0; change < kLines; ++change) {
            CCommonLog::GetInstance()->SetLogLevel(change % 2 == 0 ? LOG_EVERYTHING : LOG_ERROR);
            set_log_path("");
        }
        writer.join();
    });
    ASSERT_TRUE(run.ended_well());
    int errors = 0;
    for (const std::string& body : log_bodies(run.file())) {
        ASSERT_NE(body, "<torn>");
        errors += body.find("]error ") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(errors, kLines);
}

TEST(CommonLogThreaded, FirstLinesOfSeveralThreadsShareOneFile) {
    constexpr int kThreads = 8;
    const LogRun run = run_apart([] {
        std::barrier together(kThreads);
        std::vector<std::thread> threads;
        for (int thread = 0; thread < kThreads; ++thread) {
            threads.emplace_back([&together] {
                together.arrive_and_wait();
                CCommonLog::GetInstance()->WriteLog(LOG_INFO, "first");
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        int open_files = 0;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code none;
            const std::string name = std::filesystem::read_symlink(entry.path(), none).filename().string();
            open_files += name.starts_with("kova_u50_") ? 1 : 0;
        }
        std::printf("%d", open_files);
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_THAT(log_bodies(run.file()), testing::AllOf(SizeIs(kThreads), testing::Each("first")));
    EXPECT_EQ(run.console, run.file() + "1");
}

}  // namespace
