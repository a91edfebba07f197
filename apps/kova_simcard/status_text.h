/** The status of a card, for people and for programs. */
#ifndef KOVA_APPS_KOVA_SIMCARD_STATUS_TEXT_H
#define KOVA_APPS_KOVA_SIMCARD_STATUS_TEXT_H

#include <cstdint>
#include <string>
#include <string_view>

#include "kova_simcard/status.h"

namespace kova::app {

/** A table; of the channels only those that something happened on. Times are local. */
[[nodiscard]] std::string status_text(const CardStatus& status);

/** One JSON object on one line. */
[[nodiscard]] std::string status_json(const CardStatus& status);
[[nodiscard]] std::string status_json_of_no_card(std::uint32_t card, std::string_view reason);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_STATUS_TEXT_H
