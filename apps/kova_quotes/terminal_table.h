/**
 * The table on a terminal, at a pace that can be read.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_TERMINAL_TABLE_H
#define KOVA_APPS_KOVA_QUOTES_TERMINAL_TABLE_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "kova_quotes/instrument_index.h"
#include "kova_quotes/quote_writer.h"
#include "kova_quotes/table_text.h"

namespace kova::app {

/**
 * Scrolls at most kRowsPerSecond rows a second, after a pause kBurst at once. What comes faster waits, each
 * instrument with its latest quote and at most kWaiting of them, so that no row is more than a second behind;
 * what waits longest gives way. Quotes that are not shown are counted, and the count is told above the next
 * header.
 */
class TerminalTable final : public QuoteWriter {
 public:
    static constexpr int kRowsPerSecond = 20;
    static constexpr int kBurst = 20;
    static constexpr std::size_t kWaiting = 20;
    static constexpr int kRowsPerHeader = 30;

    TerminalTable(QuoteOutput& output, const TableLayout& layout);

    void write(const KovaShfeMdType& quote) override;

 private:
    struct Instrument {
        KovaShfeMdType latest;
        std::optional<int32_t> shown_last;
        bool is_waiting;
    };

    void on_tick(std::chrono::nanoseconds now) override;
    void on_finish() override;

    void wait(std::uint32_t number);
    Instrument& next_waiting();
    void show_what_is_due();
    void show(Instrument& instrument);
    void show_header();
    void tell_unshown();

    TableLayout layout_;
    InstrumentIndex index_;
    std::vector<Instrument> instruments_;

    /** The waiting instruments by number, a ring. */
    std::array<std::uint32_t, kWaiting> waiting_{};
    std::size_t first_waiting_ = 0;
    std::size_t waiting_count_ = 0;

    std::chrono::nanoseconds ticked_at_{};
    double rows_due_ = kBurst;
    int rows_to_header_ = 0;
    std::uint64_t unshown_ = 0;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_TERMINAL_TABLE_H
