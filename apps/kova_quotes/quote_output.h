/**
 * Where the quotes go: a buffer in front of one descriptor.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_QUOTE_OUTPUT_H
#define KOVA_APPS_KOVA_QUOTES_QUOTE_OUTPUT_H

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace kova::app {

/**
 * Keeps standard output for the quotes and lets descriptor 1, which the library logs to, lead to standard
 * error.
 *
 * @return a descriptor of the caller's own; -1 with errno.
 */
int keep_standard_output();

/**
 * Collects text and writes it in large pieces. A write waits for a reader that is slower than the quotes.
 *
 * After a failure (reader gone, disk full) everything is discarded. SIGPIPE must be ignored, as the library
 * does.
 */
class QuoteOutput {
 public:
    /**
     * @param descriptor owned from now on.
     * @param give_up asked when a signal may have interrupted a waiting write: true ends the wait as a failure,
     * so that Ctrl-C works while the reader does not read.
     */
    explicit QuoteOutput(int descriptor, std::function<bool()> give_up = nullptr);
    QuoteOutput(const QuoteOutput&) = delete;
    QuoteOutput& operator=(const QuoteOutput&) = delete;
    ~QuoteOutput();

    /** Room for at least `size` bytes, at most kBufferSize; valid until the next call of anything. */
    char* reserve(std::size_t size);
    /** What was written into the room ends before `end`. */
    void commit(const char* end);

    void put(std::string_view text);

    [[nodiscard]] bool has_pending() const { return used_ > 0; }
    void flush();
    /** Flushes and closes; a full disk may show here only. */
    void close();

    [[nodiscard]] bool failed() const { return error_ != 0; }
    /** What went wrong, in words; only after a failure. */
    [[nodiscard]] std::string failure() const;

    /** 0 when it is no terminal or does not tell. */
    [[nodiscard]] std::size_t terminal_width() const;
    [[nodiscard]] bool is_terminal() const;

    static constexpr std::size_t kBufferSize = 65536;

 private:
    [[nodiscard]] bool is_to_give_up() const;
    /** Whether the write that left errno may be tried again, after waiting where that is needed. */
    bool may_go_on();

    int descriptor_;
    std::function<bool()> give_up_;
    int error_ = 0;
    std::size_t used_ = 0;
    std::vector<char> buffer_;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_QUOTE_OUTPUT_H
