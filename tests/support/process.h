/**
 * A program under test: started, watched, ended.
 *
 *     Process card = Process::start(KOVA_SIMCARD_PROGRAM, {"run", "--card", "20"});
 *     ASSERT_TRUE(eventually([&] { return card.output().starts_with("card 20 is on"); }));
 *     card.send(SIGTERM);
 *     EXPECT_EQ(card.exit_code(), 0);
 */
#ifndef KOVA_TESTS_SUPPORT_PROCESS_H
#define KOVA_TESTS_SUPPORT_PROCESS_H

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace kova::test {

/** Long enough for anything that happens at all, on a machine with other work and under a sanitizer. */
inline constexpr std::chrono::seconds kPatience{30};

/** Looks again and again whether the condition holds; false when it does not in time. */
template <typename Condition>
[[nodiscard]] bool eventually(Condition condition, std::chrono::milliseconds patience = kPatience) {
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        const timespec pause{.tv_sec = 0, .tv_nsec = 1'000'000};
        ::nanosleep(&pause, nullptr);
    }
    return true;
}

/** A running program; killed, if it still runs, when this goes. It dies with the test, however that ends. */
class Process {
 public:
    /**
     * Starts the program with these arguments, its standard output and error captured, its input empty.
     *
     * Throws std::system_error when it cannot; a program that cannot be executed exits with 127.
     */
    static Process start(const std::string& program, const std::vector<std::string>& arguments) {
        const int output = memory_file("output");
        const int error = memory_file("error");
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (const std::string& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        const pid_t parent = ::getpid();
        const pid_t child = ::fork();
        if (child == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
            if (::getppid() == parent && ::dup2(input, STDIN_FILENO) >= 0 &&
                ::dup2(output, STDOUT_FILENO) >= 0 && ::dup2(error, STDERR_FILENO) >= 0) {
                ::execv(program.c_str(), argv.data());
            }
            ::_exit(127);
        }
        if (child < 0) {
            throw std::system_error(errno, std::generic_category(), "fork");
        }
        return {child, output, error};
    }

    /** Starts the program and waits for its end. */
    static Process run(const std::string& program, const std::vector<std::string>& arguments) {
        Process process = start(program, arguments);
        static_cast<void>(process.wait());
        return process;
    }

    ~Process() {
        if (is_running()) {
            ::kill(pid_, SIGKILL);
            static_cast<void>(wait());
        }
        for (const int file : {output_, error_, handle_}) {
            if (file >= 0) {
                ::close(file);
            }
        }
    }
    Process(Process&& other) noexcept
        : pid_(std::exchange(other.pid_, -1)),
          handle_(std::exchange(other.handle_, -1)),
          output_(std::exchange(other.output_, -1)),
          error_(std::exchange(other.error_, -1)),
          status_(other.status_) {}
    Process& operator=(Process&&) = delete;

    [[nodiscard]] pid_t pid() const { return pid_; }

    /** Everything written to standard output or error so far. */
    [[nodiscard]] std::string output() const { return text_of(output_); }
    [[nodiscard]] std::string error() const { return text_of(error_); }

    void send(int signal) const {
        if (is_running()) {
            ::kill(pid_, signal);
        }
    }

    /** Waits for the end; its status as waitpid gives it, or nothing when it does not end in time. */
    std::optional<int> wait(std::chrono::milliseconds patience = kPatience) {
        pollfd end{.fd = handle_, .events = POLLIN, .revents = 0};
        if (is_running() && ::poll(&end, 1, static_cast<int>(patience.count())) == 1) {
            int status = 0;
            if (::waitpid(pid_, &status, 0) == pid_) {
                status_ = status;
            }
        }
        return status_;
    }

    /** Waits for the end; -1 when it does not end in time or is ended by a signal. */
    int exit_code(std::chrono::milliseconds patience = kPatience) {
        const std::optional<int> status = wait(patience);
        return status && WIFEXITED(*status) ? WEXITSTATUS(*status) : -1;
    }

    /** Waits for the end; the signal that ended it, or 0. */
    int ending_signal(std::chrono::milliseconds patience = kPatience) {
        const std::optional<int> status = wait(patience);
        return status && WIFSIGNALED(*status) ? WTERMSIG(*status) : 0;
    }

 private:
    Process(pid_t pid, int output, int error)
        : pid_(pid),
          handle_(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))),
          output_(output),
          error_(error) {}

    // Not yet waited for, so that its process id is still its own.
    [[nodiscard]] bool is_running() const { return pid_ > 0 && !status_; }

    static int memory_file(const char* name) {
        const int file = ::memfd_create(name, MFD_CLOEXEC);
        if (file < 0 || ::fcntl(file, F_SETFL, O_APPEND) != 0) {
            throw std::system_error(errno, std::generic_category(), "memfd_create");
        }
        return file;
    }

    static std::string text_of(int file) {
        std::string text;
        std::array<char, 4096> piece{};
        for (;;) {
            const ssize_t count = ::pread(file, piece.data(), piece.size(), static_cast<off_t>(text.size()));
            if (count <= 0) {
                return text;
            }
            text.append(piece.data(), static_cast<std::size_t>(count));
        }
    }

    pid_t pid_;
    int handle_;
    int output_;
    int error_;
    std::optional<int> status_;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_PROCESS_H
