#include "kova_simcard/rate.h"

#include <fmt/format.h>

#include <charconv>

namespace kova::app {

std::optional<sim::Rate> parse_rate(std::string_view text) {
    if (text == "max") {
        return sim::Rate();
    }
    std::uint64_t rate = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, rate);
    if (error != std::errc() || rest != end || rate == 0 || rate > sim::kMaxRate) {
        return std::nullopt;
    }
    return sim::Rate(rate);
}

std::string rate_text(sim::Rate rate) {
    return rate ? fmt::format("{} quotes/s", *rate) : "quotes as fast as they go";
}

}  // namespace kova::app
