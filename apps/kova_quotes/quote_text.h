/**
 * A quote as text with every field: CSV and JSON.
 *
 * Each function writes behind `out`, where kMaxQuoteText bytes must be free, and returns the end of its text.
 * Values stand as the record has them, prices in hundredths. Identifier bytes that are no printable ASCII
 * become '?'.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_QUOTE_TEXT_H
#define KOVA_APPS_KOVA_QUOTES_QUOTE_TEXT_H

#include <cstddef>

#include "KovaShfeMdApi.h"

namespace kova::app {

/** No line is longer, line feed included. */
inline constexpr std::size_t kMaxQuoteText = 2048;

/** The names of the fields in the order of the record. */
char* csv_header(char* out);

/** One row; an identifier with a comma or a quotation mark is quoted. */
char* csv_row(char* out, const KovaShfeMdType& quote);

/** One object on one line. */
char* json_line(char* out, const KovaShfeMdType& quote);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_QUOTE_TEXT_H
