#include "kova_simcard/run_commands.h"

#include <fmt/format.h>

#include <array>
#include <charconv>

#include "kova_simcard/rate.h"

namespace kova::app {

namespace {

constexpr std::uint32_t kEventChannel = 0;

std::uint32_t parse_event_word(std::string_view text) {
    const bool is_hexadecimal = text.starts_with("0x");
    const std::string_view digits = text.substr(is_hexadecimal ? 2 : 0);
    std::uint32_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [rest, error] = std::from_chars(digits.data(), end, value, is_hexadecimal ? 16 : 10);
    if (error != std::errc() || rest != end) {
        throw CommandRefused(fmt::format("\"{}\" is no word of 32 bits, decimal or 0x", text));
    }
    return value;
}

std::string set_rate(Traffic& traffic, Commands::Words words) {
    const std::optional<sim::Rate> rate = words.size() == 1 ? parse_rate(words.front()) : std::nullopt;
    if (!rate) {
        throw CommandRefused(fmt::format("rate takes a whole number from 1 to {}, or max", sim::kMaxRate));
    }
    if (traffic.state() == sim::TrafficState::kEnded) {
        throw CommandRefused("the traffic has ended");
    }
    traffic.set_rate(*rate);
    return rate_text(*rate);
}

std::string send_event(sim::Card& card, Commands::Words words) {
    std::array<std::uint32_t, 6> event{};
    if (words.size() != event.size()) {
        throw CommandRefused("event takes six words");
    }
    for (std::size_t i = 0; i < event.size(); ++i) {
        event[i] = parse_event_word(words[i]);
    }
    switch (card.push_event(kEventChannel, event)) {
        case sim::PushResult::kSent:
            break;
        case sim::PushResult::kLost:
            throw CommandRefused("channel 0 has no room: the event is lost");
        case sim::PushResult::kUnheard:
            throw CommandRefused("nobody has channel 0 open: the event is lost");
    }
    return fmt::format("event {:#x} sent to channel 0", fmt::join(event, " "));
}

}  // namespace

void add_rate_command(Commands& commands, Traffic& traffic) {
    commands.add("rate", "N|max", "quotes a second",
                 [&traffic](Commands::Words words) { return set_rate(traffic, words); });
}

void add_event_command(Commands& commands, sim::Card& card) {
    commands.add("event", "W0 W1 W2 W3 W4 W5", "an event message to channel 0, words decimal or 0x",
                 [&card](Commands::Words words) { return send_event(card, words); });
}

}  // namespace kova::app
