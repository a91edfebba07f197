#include "kova_quotes/table_text.h"

#include <fmt/compile.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "kova_quotes/instrument_id.h"

namespace kova::app {

namespace {

constexpr std::string_view kRed = "\x1b[31m";
constexpr std::string_view kGreen = "\x1b[32m";
constexpr std::string_view kBold = "\x1b[1m";
constexpr std::string_view kPlain = "\x1b[0m";

struct Column {
    std::string_view title;
    std::size_t width;
    bool is_left;
};

constexpr std::array<Column, TableLayout::kAllColumns> kColumns{{{"time", 12, true},
                                                                 {"instrument", 12, true},
                                                                 {"last", 9, false},
                                                                 {"change", 7, false},
                                                                 {"bid vol", 7, false},
                                                                 {"bid", 9, false},
                                                                 {"ask", 9, false},
                                                                 {"ask vol", 7, false},
                                                                 {"volume", 9, false},
                                                                 {"open int", 9, false},
                                                                 {"change no", 10, false}}};

/** The columns that are always there. */
constexpr std::size_t kLeastColumns = 8;

/** One value of a column, on the stack. */
class Cell {
 public:
    [[nodiscard]] std::string_view text() const { return {text_.data(), size_}; }

    static Cell of_number(int64_t number) {
        Cell cell;
        cell.end_at(fmt::format_to(cell.text_.data(), FMT_COMPILE("{}"), number));
        return cell;
    }

    /** Hundredths as units with two decimals. */
    static Cell of_price(int64_t hundredths, std::string_view sign) {
        Cell cell;
        const int64_t magnitude = hundredths < 0 ? -hundredths : hundredths;
        cell.end_at(fmt::format_to(cell.text_.data(), FMT_COMPILE("{}{}.{:02}"), hundredths < 0 ? "-" : sign,
                                   magnitude / 100, magnitude % 100));
        return cell;
    }

    static Cell of_price(int32_t hundredths) { return of_price(int64_t{hundredths}, ""); }

    static Cell of_level_price(int32_t hundredths, uint32_t volume) {
        return hundredths == 0 && volume == 0 ? of_text("-") : of_price(hundredths);
    }

    static Cell of_level_volume(int32_t hundredths, uint32_t volume) {
        return hundredths == 0 && volume == 0 ? of_text("-") : of_number(volume);
    }

    static Cell of_text(std::string_view text) {
        Cell cell;
        cell.end_at(std::copy(text.begin(), text.end(), cell.text_.data()));
        return cell;
    }

    static Cell of_id(const InstrumentId& id) {
        Cell cell;
        for (const char byte : id.bytes) {
            if (byte == '\0') {
                break;
            }
            cell.text_[cell.size_++] = InstrumentId::printable(byte);
        }
        return cell;
    }

    /** The time of day where the card's number reads as HHMMSS, otherwise the number itself. */
    static Cell of_time(uint32_t time, uint16_t milliseconds) {
        Cell cell;
        const uint32_t hours = time / 10000;
        const uint32_t minutes = time / 100 % 100;
        const uint32_t seconds = time % 100;
        char* out = cell.text_.data();
        cell.end_at(hours < 24 && minutes < 60 && seconds < 60
                        ? fmt::format_to(out, FMT_COMPILE("{:02}:{:02}:{:02}.{:03}"), hours, minutes, seconds,
                                         milliseconds)
                        : fmt::format_to(out, FMT_COMPILE("{}.{:03}"), time, milliseconds));
        return cell;
    }

 private:
    void end_at(const char* end) { size_ = static_cast<std::size_t>(end - text_.data()); }

    std::array<char, 32> text_{};
    std::size_t size_ = 0;
};

char* put(char* out, std::string_view text) {
    return std::copy(text.begin(), text.end(), out);
}

/** Writes the cells of one row from left to right. */
class RowWriter {
 public:
    RowWriter(char* out, const TableLayout& layout) : out_(out), layout_(layout) {}

    void cell(std::string_view text, std::string_view colour = {}) {
        if (column_ == layout_.columns) {
            return;
        }
        const Column& column = kColumns[column_];
        if (column_ > 0) {
            *out_++ = ' ';
        }
        ++column_;
        const bool is_coloured = layout_.has_colour && !colour.empty();
        if (is_coloured) {
            out_ = put(out_, colour);
        }
        out_ = column.is_left ? fmt::format_to(out_, FMT_COMPILE("{:<{}}"), text, column.width)
                              : fmt::format_to(out_, FMT_COMPILE("{:>{}}"), text, column.width);
        if (is_coloured) {
            out_ = put(out_, kPlain);
        }
    }

    void cell(const Cell& cell_text, std::string_view colour = {}) { cell(cell_text.text(), colour); }

    char* end_line() {
        *out_++ = '\n';
        return out_;
    }

 private:
    char* out_;
    const TableLayout& layout_;
    std::size_t column_ = 0;
};

}  // namespace

TableLayout TableLayout::for_width(std::size_t width, bool has_colour) {
    std::size_t used = 0;
    std::size_t columns = 0;
    for (const Column& column : kColumns) {
        used += column.width + (columns > 0 ? 1 : 0);
        if (used > width && columns >= kLeastColumns) {
            break;
        }
        ++columns;
    }
    return {.columns = columns, .has_colour = has_colour};
}

char* table_header(char* out, const TableLayout& layout) {
    RowWriter row(out, layout);
    for (const Column& column : kColumns) {
        row.cell(column.title, kBold);
    }
    return row.end_line();
}

char* table_row(char* out, const KovaShfeMdType& quote, const TableLayout& layout,
                std::optional<int32_t> previous_last) {
    const int64_t difference = previous_last ? int64_t{quote.last_px} - *previous_last : 0;
    std::string_view colour;
    if (difference != 0) {
        colour = difference > 0 ? kRed : kGreen;
    }
    RowWriter row(out, layout);
    row.cell(Cell::of_time(quote.update_time, quote.update_milli_sec));
    row.cell(Cell::of_id(InstrumentId::of(quote)));
    row.cell(Cell::of_price(quote.last_px), colour);
    row.cell(difference == 0 ? Cell() : Cell::of_price(difference, "+"), colour);
    row.cell(Cell::of_level_volume(quote.bid1_px, quote.bid1_vol));
    row.cell(Cell::of_level_price(quote.bid1_px, quote.bid1_vol));
    row.cell(Cell::of_level_price(quote.ask1_px, quote.ask1_vol));
    row.cell(Cell::of_level_volume(quote.ask1_px, quote.ask1_vol));
    row.cell(Cell::of_number(quote.volume));
    row.cell(Cell::of_number(quote.open_interest));
    row.cell(Cell::of_number(quote.change_no));
    return row.end_line();
}

}  // namespace kova::app
