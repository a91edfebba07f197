/**
 * A quote as one row of a table for people.
 *
 * The functions write behind `out`, where kMaxTableText bytes must be free, and return the end of their text.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_TABLE_TEXT_H
#define KOVA_APPS_KOVA_QUOTES_TABLE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "KovaShfeMdApi.h"

namespace kova::app {

/** No row is longer, colours and line feed included. */
inline constexpr std::size_t kMaxTableText = 512;

/** How many of the columns there are, from the left, and whether a rise and a fall have colours. */
struct TableLayout {
    std::size_t columns;
    bool has_colour;

    static constexpr std::size_t kAllColumns = 11;

    /** As many columns as fit: at least those up to the best ask, which need 79 characters. */
    static TableLayout for_width(std::size_t width, bool has_colour);
};

char* table_header(char* out, const TableLayout& layout);

/**
 * One row; prices in the exchange's units with two decimals, an empty level as "-".
 *
 * @param previous_last the instrument's last price in the row before; the difference fills a column, and a rise
 *        is red, a fall green, as on the exchanges' own screens.
 */
char* table_row(char* out, const KovaShfeMdType& quote, const TableLayout& layout,
                std::optional<int32_t> previous_last);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_TABLE_TEXT_H
