#include "kova_quotes/terminal_table.h"

#include <fmt/format.h>

#include <algorithm>

namespace kova::app {

TerminalTable::TerminalTable(QuoteOutput& output, const TableLayout& layout)
    : QuoteWriter(output), layout_(layout) {
    instruments_.reserve(index_.max_size());
}

void TerminalTable::write(const KovaShfeMdType& quote) {
    const std::uint32_t number = index_.find_or_add(InstrumentId::of(quote));
    if (number == InstrumentIndex::kNone) {
        ++unshown_;
        return;
    }
    if (number == instruments_.size()) {
        instruments_.push_back({.latest = quote, .shown_last = std::nullopt, .is_waiting = false});
    }
    Instrument& instrument = instruments_[number];
    instrument.latest = quote;
    if (instrument.is_waiting) {
        ++unshown_;
    } else {
        wait(number);
    }
    show_what_is_due();
}

void TerminalTable::on_tick(std::chrono::nanoseconds now) {
    const std::chrono::duration<double> elapsed = now - ticked_at_;
    ticked_at_ = now;
    rows_due_ = std::min<double>(kBurst, rows_due_ + elapsed.count() * kRowsPerSecond);
    show_what_is_due();
}

void TerminalTable::on_finish() {
    rows_due_ = kWaiting;
    show_what_is_due();
    tell_unshown();
}

void TerminalTable::wait(std::uint32_t number) {
    if (waiting_count_ == kWaiting) {
        next_waiting();
        ++unshown_;
    }
    waiting_[(first_waiting_ + waiting_count_) % kWaiting] = number;
    ++waiting_count_;
    instruments_[number].is_waiting = true;
}

TerminalTable::Instrument& TerminalTable::next_waiting() {
    Instrument& instrument = instruments_[waiting_[first_waiting_]];
    first_waiting_ = (first_waiting_ + 1) % kWaiting;
    --waiting_count_;
    instrument.is_waiting = false;
    return instrument;
}

void TerminalTable::show_what_is_due() {
    while (waiting_count_ > 0 && rows_due_ >= 1) {
        rows_due_ -= 1;
        show(next_waiting());
    }
}

void TerminalTable::show(Instrument& instrument) {
    if (rows_to_header_ == 0) {
        show_header();
        rows_to_header_ = kRowsPerHeader;
    }
    --rows_to_header_;
    output().commit(
        table_row(output().reserve(kMaxTableText), instrument.latest, layout_, instrument.shown_last));
    instrument.shown_last = instrument.latest.last_px;
}

void TerminalTable::show_header() {
    tell_unshown();
    output().commit(table_header(output().reserve(kMaxTableText), layout_));
}

void TerminalTable::tell_unshown() {
    if (unshown_ > 0) {
        output().commit(fmt::format_to(output().reserve(kMaxTableText), "({} quote{} not shown)\n", unshown_,
                                       unshown_ == 1 ? "" : "s"));
        unshown_ = 0;
    }
}

}  // namespace kova::app
