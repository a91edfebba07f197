#include "kova_quotes/quote_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace kova::app {

int keep_standard_output() {
    const int kept = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (kept == -1) {
        return -1;
    }
    if (::dup2(STDERR_FILENO, STDOUT_FILENO) == -1) {
        const int reason = errno;
        ::close(kept);
        errno = reason;
        return -1;
    }
    return kept;
}

QuoteOutput::QuoteOutput(int descriptor, std::function<bool()> give_up)
    : descriptor_(descriptor), give_up_(std::move(give_up)), buffer_(kBufferSize) {}

QuoteOutput::~QuoteOutput() {
    close();
}

char* QuoteOutput::reserve(std::size_t size) {
    if (buffer_.size() - used_ < size) {
        flush();
    }
    return buffer_.data() + used_;
}

void QuoteOutput::commit(const char* end) {
    // A failed output keeps nothing, or the buffer would fill up.
    used_ = failed() ? 0 : static_cast<std::size_t>(end - buffer_.data());
}

void QuoteOutput::put(std::string_view text) {
    char* room = reserve(text.size());
    std::memcpy(room, text.data(), text.size());
    commit(room + text.size());
}

void QuoteOutput::flush() {
    const bool was_to_give_up = is_to_give_up();
    std::size_t written = 0;
    while (!failed() && written < used_) {
        const ssize_t result = ::write(descriptor_, buffer_.data() + written, used_ - written);
        if (result >= 0) {
            written += static_cast<std::size_t>(result);
            // A signal that interrupts a write in its middle leaves a short one behind.
            if (written < used_ && !was_to_give_up && is_to_give_up()) {
                error_ = EINTR;
            }
        } else if (!may_go_on()) {
            error_ = errno;
        }
    }
    used_ = 0;
}

void QuoteOutput::close() {
    if (descriptor_ == -1) {
        return;
    }
    flush();
    if (::close(std::exchange(descriptor_, -1)) == -1 && !failed()) {
        error_ = errno;
    }
}

std::string QuoteOutput::failure() const {
    switch (error_) {
        case EPIPE:
            return "the reader of the quotes has gone";
        case EINTR:
            return "interrupted while the reader of the quotes did not read";
        default:
            return std::strerror(error_);
    }
}

std::size_t QuoteOutput::terminal_width() const {
    winsize size{};
    return ::ioctl(descriptor_, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

bool QuoteOutput::is_terminal() const {
    return ::isatty(descriptor_) == 1;
}

bool QuoteOutput::is_to_give_up() const {
    return give_up_ && give_up_();
}

bool QuoteOutput::may_go_on() {
    if (errno == EAGAIN) {
        // Whoever opened the descriptor made it non-blocking.
        pollfd writable{.fd = descriptor_, .events = POLLOUT, .revents = 0};
        if (::poll(&writable, 1, -1) != -1) {
            return true;
        }
    }
    return errno == EINTR && !is_to_give_up();
}

}  // namespace kova::app
