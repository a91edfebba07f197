/**
 * What a piece of code writes to standard output, as text.
 */
#ifndef KOVA_TESTS_SUPPORT_STDOUT_CAPTURE_H
#define KOVA_TESTS_SUPPORT_STDOUT_CAPTURE_H

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace kova::test {

/**
 * Standard output goes into an unnamed file while this lives: the file descriptor itself, so that both stdio
 * and plain write(2) are caught, of every thread and child process.
 *
 * GoogleTest's own report goes there too: let the capture end before the assertions.
 */
class StdoutCapture {
 public:
    /** Throws std::system_error when standard output cannot be redirected. */
    StdoutCapture() {
        std::fflush(stdout);
        file_ = std::tmpfile();
        saved_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
        // Appending, so that processes which share the file do not write over each other.
        if (file_ == nullptr || saved_ < 0 || ::fcntl(::fileno(file_), F_SETFL, O_APPEND) != 0 ||
            ::dup2(::fileno(file_), STDOUT_FILENO) < 0) {
            throw std::system_error(errno, std::generic_category(), "redirect standard output");
        }
    }
    ~StdoutCapture() {
        std::fflush(stdout);
        ::dup2(saved_, STDOUT_FILENO);
        ::close(saved_);
        std::fclose(file_);
    }
    StdoutCapture(const StdoutCapture&) = delete;
    StdoutCapture& operator=(const StdoutCapture&) = delete;

    /** Everything written since the capture began. */
    [[nodiscard]] std::string text() const {
        std::fflush(stdout);
        std::string written;
        std::array<char, 4096> piece{};
        for (;;) {
            const ssize_t count =
                ::pread(::fileno(file_), piece.data(), piece.size(), static_cast<off_t>(written.size()));
            if (count <= 0) {
                return written;
            }
            written.append(piece.data(), static_cast<std::size_t>(count));
        }
    }

 private:
    FILE* file_ = nullptr;
    int saved_ = -1;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_STDOUT_CAPTURE_H
