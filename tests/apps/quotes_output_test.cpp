#include "kova_quotes/quote_output.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <string>
#include <thread>

#include "support/stdout_capture.h"

namespace kova::app {
namespace {

struct Pipe {
    Pipe() {
        std::signal(SIGPIPE, SIG_IGN);
        std::array<int, 2> ends{};
        EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
        reader = ends[0];
        writer = ends[1];
    }
    // The writer's end belongs to the output under test.
    ~Pipe() { close_reader(); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    void close_reader() {
        if (reader != -1) {
            ::close(reader);
            reader = -1;
        }
    }

    // Everything until the writer has closed.
    [[nodiscard]] std::string read_all() const {
        std::string text;
        std::array<char, 4096> piece{};
        ssize_t size = 0;
        while ((size = ::read(reader, piece.data(), piece.size())) > 0) {
            text.append(piece.data(), static_cast<std::size_t>(size));
        }
        return text;
    }

    int reader = -1;
    int writer = -1;
};

TEST(QuoteOutput, TextWaitsInTheBufferUntilItIsFlushed) {
    Pipe pipe;
    ::fcntl(pipe.reader, F_SETFL, O_NONBLOCK);
    QuoteOutput output(pipe.writer);
    output.put("one\n");
    EXPECT_TRUE(output.has_pending());
    EXPECT_EQ(pipe.read_all(), "");
    output.flush();
    EXPECT_FALSE(output.has_pending());
    EXPECT_EQ(pipe.read_all(), "one\n");
}

TEST(QuoteOutput, WhatIsReservedAndCommittedIsWritten) {
    Pipe pipe;
    QuoteOutput output(pipe.writer);
    char* room = output.reserve(100);
    room[0] = 'a';
    room[1] = 'b';
    output.commit(room + 2);
    output.close();
    EXPECT_EQ(pipe.read_all(), "ab");
}

TEST(QuoteOutputThread, MoreThanABufferArrivesWholeAndInOrder) {
    Pipe pipe;
    std::string expected;
    for (int i = 0; i < 50000; ++i) {
        expected += std::to_string(i) + "\n";
    }
    std::string read;
    std::thread reader([&] { read = pipe.read_all(); });
    QuoteOutput output(pipe.writer);
    for (int i = 0; i < 50000; ++i) {
        output.put(std::to_string(i) + "\n");
    }
    output.close();
    reader.join();
    EXPECT_FALSE(output.failed());
    EXPECT_TRUE(read == expected);
}

TEST(QuoteOutputThread, ANonBlockingDescriptorLosesNothing) {
    Pipe pipe;
    ::fcntl(pipe.writer, F_SETFL, O_NONBLOCK);
    const std::string piece(60000, 'x');
    std::string read;
    std::thread reader([&] { read = pipe.read_all(); });
    QuoteOutput output(pipe.writer);
    for (int i = 0; i < 20; ++i) {
        output.put(piece);
        output.flush();
    }
    output.close();
    reader.join();
    EXPECT_FALSE(output.failed());
    EXPECT_EQ(read.size(), 1200000U);
}

TEST(QuoteOutput, AReaderThatHasGoneIsAFailureInWords) {
    Pipe pipe;
    pipe.close_reader();
    QuoteOutput output(pipe.writer);
    output.put("quote\n");
    EXPECT_FALSE(output.failed());
    output.flush();
    EXPECT_TRUE(output.failed());
    EXPECT_EQ(output.failure(), "the reader of the quotes has gone");
}

TEST(QuoteOutput, AFullDiskIsAFailureInWords) {
    QuoteOutput output(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    output.put("quote\n");
    output.close();
    EXPECT_TRUE(output.failed());
    EXPECT_EQ(output.failure(), "No space left on device");
}

TEST(QuoteOutput, AfterAFailureEverythingIsDiscarded) {
    QuoteOutput output(::open("/dev/full", O_WRONLY | O_CLOEXEC));
    const std::string piece(1000, 'x');
    for (int i = 0; i < 1000; ++i) {
        output.put(piece);
    }
    EXPECT_TRUE(output.failed());
    EXPECT_FALSE(output.has_pending());
}

volatile std::sig_atomic_t alarms = 0;

/** SIGALRM every millisecond while this lives; each counts. */
class Alarms {
 public:
    Alarms() {
        alarms = 0;
        struct sigaction count {};
        count.sa_handler = [](int) { alarms = alarms + 1; };
        sigaction(SIGALRM, &count, nullptr);
        ring_every(1000);
    }
    ~Alarms() { ring_every(0); }
    Alarms(const Alarms&) = delete;
    Alarms& operator=(const Alarms&) = delete;

 private:
    static void ring_every(long microseconds) {
        const timeval time{.tv_sec = 0, .tv_usec = microseconds};
        const itimerval timer{.it_interval = time, .it_value = time};
        ::setitimer(ITIMER_REAL, &timer, nullptr);
    }
};

TEST(QuoteOutput, ASignalEndsTheWaitForAReaderThatDoesNotReadIfAsked) {
    Pipe pipe;
    QuoteOutput output(pipe.writer, [] { return alarms > 3; });
    // Exactly full, so that the next write waits before its first byte.
    const std::string piece(static_cast<std::size_t>(::fcntl(pipe.writer, F_GETPIPE_SZ)), 'x');
    output.put(piece);
    output.flush();
    EXPECT_FALSE(output.failed());
    const Alarms ringing;
    output.put("x");
    output.flush();
    EXPECT_GT(alarms, 3);
    EXPECT_EQ(output.failure(), "interrupted while the reader of the quotes did not read");
}

TEST(QuoteOutputThread, ASignalInTheMiddleOfAWriteEndsTheWaitToo) {
    Pipe pipe;
    struct sigaction count {};
    count.sa_handler = [](int) { alarms = alarms + 1; };
    sigaction(SIGALRM, &count, nullptr);
    alarms = 0;
    QuoteOutput output(pipe.writer, [] { return alarms > 0; });
    const auto capacity = static_cast<std::size_t>(::fcntl(pipe.writer, F_GETPIPE_SZ));
    const auto page = static_cast<std::size_t>(::getpagesize());
    output.put(std::string(capacity - page, 'x'));
    output.flush();
    EXPECT_FALSE(output.failed());
    output.put(std::string(2 * page, 'x'));
    // A full pipe says that the write has come half way.
    std::thread interrupter([&pipe, capacity, writing = ::pthread_self()] {
        int in_pipe = 0;
        while (static_cast<std::size_t>(in_pipe) < capacity) {
            ::ioctl(pipe.reader, FIONREAD, &in_pipe);
        }
        ::pthread_kill(writing, SIGALRM);
    });
    output.flush();
    interrupter.join();
    EXPECT_EQ(alarms, 1);
    EXPECT_EQ(output.failure(), "interrupted while the reader of the quotes did not read");
}

TEST(QuoteOutput, APipeIsNoTerminal) {
    Pipe pipe;
    const QuoteOutput output(pipe.writer);
    EXPECT_FALSE(output.is_terminal());
    EXPECT_EQ(output.terminal_width(), 0U);
}

// In a child, whose descriptors are its own.
int exit_code_of(int (*body)()) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(body());
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(KeepStandardOutput, QuotesGoToStandardOutputAndDescriptorOneToStandardError) {
    std::string out;
    int exit_code = -1;
    {
        kova::test::StdoutCapture capture;
        exit_code = exit_code_of([] {
            const int log = ::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
            ::dup2(log, STDERR_FILENO);
            QuoteOutput output(keep_standard_output());
            if (::write(STDOUT_FILENO, "library\n", 8) != 8) {
                return 1;
            }
            output.put("quote\n");
            output.close();
            std::array<char, 16> logged{};
            return ::pread(log, logged.data(), logged.size(), 0) == 8 &&
                           std::string_view(logged.data(), 8) == "library\n"
                       ? 0
                       : 2;
        });
        out = capture.text();
    }
    EXPECT_EQ(exit_code, 0);
    EXPECT_EQ(out, "quote\n");
}

TEST(KeepStandardOutput, WithoutStandardOutputOrErrorItFails) {
    EXPECT_EQ(exit_code_of([] {
                  ::close(STDOUT_FILENO);
                  return keep_standard_output() == -1 ? 0 : 1;
              }),
              0);
    EXPECT_EQ(exit_code_of([] {
                  ::close(STDERR_FILENO);
                  return keep_standard_output() == -1 ? 0 : 1;
              }),
              0);
}

}  // namespace
}  // namespace kova::app
