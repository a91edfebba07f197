#include "kova_simcard/card_values.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>

#include "sim/exchange/snapshot_stream.h"

namespace kova::app {

namespace {

constexpr double kNanosecondsPerSecond = 1e9;

template <typename Number, typename... Format>
std::optional<Number> parse(std::string_view text, Format... format) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value, format...);
    return error == std::errc() && rest == end ? std::optional(value) : std::nullopt;
}

constexpr int kHexadecimal = 16;

}  // namespace

std::optional<sim::MemoryDelay> parse_memory_delay(std::string_view text) {
    constexpr double kLongest = 3600;
    if (text == "never") {
        return sim::MemoryDelay();
    }
    const std::optional<double> seconds = parse<double>(text, std::chars_format::fixed);
    if (!seconds || !(*seconds >= 0 && *seconds <= kLongest)) {
        return std::nullopt;
    }
    return sim::MemoryDelay(
        std::chrono::nanoseconds(static_cast<std::int64_t>(*seconds * kNanosecondsPerSecond)));
}

std::string memory_delay_text(const sim::MemoryDelay& delay) {
    if (!delay) {
        return "the memory never gets ready";
    }
    return fmt::format("the memory gets ready in {:g} s",
                       static_cast<double>(delay->count()) / kNanosecondsPerSecond);
}

std::optional<std::uint32_t> parse_word(std::string_view text) {
    return text.starts_with("0x") ? parse<std::uint32_t>(text.substr(2), kHexadecimal)
                                  : parse<std::uint32_t>(text);
}

std::optional<std::uint32_t> parse_hexadecimal(std::string_view text) {
    return parse<std::uint32_t>(text.substr(text.starts_with("0x") ? 2 : 0), kHexadecimal);
}

std::optional<std::uint32_t> parse_software_version(std::string_view text) {
    constexpr int kNumbers = 4;
    constexpr std::uint32_t kBitsPerNumber = 8;
    std::uint32_t version = 0;
    for (int number = 0; number < kNumbers; ++number) {
        const bool is_last = number == kNumbers - 1;
        const std::size_t end = is_last ? text.size() : text.find('.');
        const std::optional<std::uint8_t> value = end == std::string_view::npos
                                                      ? std::nullopt
                                                      : parse<std::uint8_t>(text.substr(0, end), kHexadecimal);
        if (!value) {
            return std::nullopt;
        }
        version = version << kBitsPerNumber | *value;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return version;
}

std::optional<EMDQPDataType> parse_feed(std::string_view text) {
    const auto found = std::ranges::find(sim::kFeedNames, text);
    if (found != sim::kFeedNames.end()) {
        return static_cast<EMDQPDataType>(found - sim::kFeedNames.begin());
    }
    const std::optional<std::uint32_t> number = parse<std::uint32_t>(text);
    return number && *number < MDQP_FEED_COUNT ? std::optional(static_cast<EMDQPDataType>(*number))
                                               : std::nullopt;
}

}  // namespace kova::app
