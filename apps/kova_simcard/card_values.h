/** Values of a card's properties as people write them. Nothing when a text is none. */
#ifndef KOVA_APPS_KOVA_SIMCARD_CARD_VALUES_H
#define KOVA_APPS_KOVA_SIMCARD_CARD_VALUES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sim/card/card_options.h"
#include "wire/Feed.h"

namespace kova::app {

/** Seconds from 0 to 3600, or "never". */
[[nodiscard]] std::optional<sim::MemoryDelay> parse_memory_delay(std::string_view text);
[[nodiscard]] std::string memory_delay_text(const sim::MemoryDelay& delay);

/** A number of 32 bits, decimal or 0x. */
[[nodiscard]] std::optional<std::uint32_t> parse_word(std::string_view text);
/** A hexadecimal one, with or without 0x. */
[[nodiscard]] std::optional<std::uint32_t> parse_hexadecimal(std::string_view text);

/** Four hexadecimal numbers of a byte each, "1.1.1.33", as the card compares versions: the first in the
 * highest. */
[[nodiscard]] std::optional<std::uint32_t> parse_software_version(std::string_view text);

/** A feed by its name, "ine2ps", or its number. */
[[nodiscard]] std::optional<EMDQPDataType> parse_feed(std::string_view text);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_CARD_VALUES_H
