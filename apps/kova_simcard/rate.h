/** Rates of quotes as people write them. */
#ifndef KOVA_APPS_KOVA_SIMCARD_RATE_H
#define KOVA_APPS_KOVA_SIMCARD_RATE_H

#include <optional>
#include <string>
#include <string_view>

#include "sim/exchange/pacer.h"

namespace kova::app {

/** A whole number from 1 to kMaxRate, or "max"; nothing when it is neither. */
[[nodiscard]] std::optional<sim::Rate> parse_rate(std::string_view text);

[[nodiscard]] std::string rate_text(sim::Rate rate);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_RATE_H
