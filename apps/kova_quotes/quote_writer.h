/**
 * Writes the chosen quotes in the chosen format.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_QUOTE_WRITER_H
#define KOVA_APPS_KOVA_QUOTES_QUOTE_WRITER_H

#include <chrono>
#include <memory>

#include "KovaShfeMdApi.h"
#include "kova_quotes/options.h"
#include "kova_quotes/quote_output.h"

namespace kova::app {

/**
 * One thread. Text reaches the descriptor when the buffer is full, at the latest with the first tick that comes
 * kFlushEvery after the last such time.
 */
class QuoteWriter {
 public:
    static constexpr std::chrono::milliseconds kFlushEvery{50};

    explicit QuoteWriter(QuoteOutput& output) : output_(output) {}
    QuoteWriter(const QuoteWriter&) = delete;
    QuoteWriter& operator=(const QuoteWriter&) = delete;
    virtual ~QuoteWriter() = default;

    /** What stands above the first quote; once, when the receiver has started. */
    virtual void begin() {}

    /** `quote` is read during the call only. */
    virtual void write(const KovaShfeMdType& quote) = 0;

    /** To be called often, whether quotes come or not; `now` on the steady clock. */
    void tick(std::chrono::nanoseconds now);

    /** Writes what is left and closes the output. */
    void finish();

    [[nodiscard]] bool failed() const { return output_.failed(); }

 protected:
    QuoteOutput& output() { return output_; }

 private:
    /** What a format does with the time, and at the end. */
    virtual void on_tick(std::chrono::nanoseconds /*now*/) {}
    virtual void on_finish() {}

    QuoteOutput& output_;
    std::chrono::nanoseconds flushed_at_{};
};

/** The writer of a format; for a terminal the table is one that a person can follow. */
std::unique_ptr<QuoteWriter> make_quote_writer(Format format, QuoteOutput& output);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_QUOTE_WRITER_H
