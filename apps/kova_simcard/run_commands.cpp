#include "kova_simcard/run_commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>

#include "kova_simcard/card_values.h"
#include "kova_simcard/rate.h"
#include "kova_simcard/register_names.h"
#include "sim/card/registers.h"

namespace kova::app {

namespace {

std::uint32_t word_of(std::string_view text) {
    const std::optional<std::uint32_t> value = parse_word(text);
    if (!value) {
        throw CommandRefused(fmt::format("\"{}\" is no word of 32 bits, decimal or 0x", text));
    }
    return *value;
}

EMDQPDataType feed_of(std::string_view text) {
    const std::optional<EMDQPDataType> feed = parse_feed(text);
    if (!feed) {
        throw CommandRefused(
            fmt::format("\"{}\" is none of the feeds {}, or 0 to 3", text, fmt::join(sim::kFeedNames, ", ")));
    }
    return *feed;
}

std::string_view name_of(EMDQPDataType feed) {
    return sim::kFeedNames[static_cast<std::size_t>(feed)];
}

double share_of(std::string_view text) {
    double rate = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, rate, std::chars_format::fixed);
    if (error != std::errc() || rest != end || !(rate >= 0 && rate <= 1)) {
        throw CommandRefused(fmt::format("\"{}\" is no number from 0 to 1", text));
    }
    return rate;
}

template <typename Number>
Number whole_number(std::string_view text, Number least, Number most) {
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || rest != end || value < least || value > most) {
        throw CommandRefused(fmt::format("\"{}\" is no whole number from {} to {}", text, least, most));
    }
    return value;
}

// As a scenario has them.
std::uint64_t seed_of(std::string_view text) {
    return whole_number<std::uint64_t>(text, 0, std::numeric_limits<std::int64_t>::max());
}

Commands::Action set_rate(Traffic& traffic, Commands::Words words) {
    const std::optional<sim::Rate> rate = words.size() == 1 ? parse_rate(words.front()) : std::nullopt;
    if (!rate) {
        throw CommandRefused(fmt::format("rate takes a whole number from 1 to {}, or max", sim::kMaxRate));
    }
    return [&traffic, rate = *rate] {
        if (traffic.state() == sim::TrafficState::kEnded) {
            throw CommandRefused("the traffic has ended");
        }
        traffic.set_rate(rate);
        return rate_text(rate);
    };
}

// Something that a card raises by itself, or six words.
sim::EventWords event_of(Commands::Words words) {
    constexpr std::size_t kKindAndLane = 2;
    if (words.size() == kKindAndLane && words[0] == "lost") {
        return sim::lost_event(feed_of(words[1]));
    }
    if (words.size() == kKindAndLane && words[0] == "price") {
        return sim::price_event(feed_of(words[1]));
    }
    if (words.size() == kKindAndLane && words[0] == "timeout") {
        return sim::timeout_event(feed_of(words[1]));
    }
    sim::EventWords event{};
    if (words.size() != event.size()) {
        throw CommandRefused("event takes six words, or lost, price or timeout and a lane");
    }
    std::ranges::transform(words, event.begin(), word_of);
    return event;
}

std::string send_event(sim::Card& card, const sim::EventWords& event) {
    switch (card.push_event(sim::kEventChannel, event)) {
        case sim::PushResult::kSent:
            break;
        case sim::PushResult::kLost:
            throw CommandRefused("channel 0 has no room: the event is lost");
        case sim::PushResult::kUnheard:
            throw CommandRefused("nobody has channel 0 open: the event is lost");
    }
    return fmt::format("event {:#x} sent to channel 0", fmt::join(event, " "));
}

Commands::Action set_feed(sim::Card& card, Commands::Words words) {
    const bool is_stop = words.size() == 2 && words[0] == "stop";
    if (!is_stop && !(words.size() == 2 && words[0] == "start")) {
        throw CommandRefused("feed takes stop or start, and a feed");
    }
    const EMDQPDataType feed = feed_of(words[1]);
    return [&card, feed, is_stop] {
        card.set_line_cut(feed, is_stop);
        return fmt::format("{} {}", name_of(feed), is_stop ? "is silent" : "goes on");
    };
}

Commands::Action set_memory(sim::Card& card, Commands::Words words) {
    const std::optional<sim::MemoryDelay> delay =
        words.size() == 1 ? parse_memory_delay(words.front()) : std::nullopt;
    if (!delay) {
        throw CommandRefused("memory takes seconds from 0 to 3600, or never");
    }
    return [&card, delay = *delay] {
        card.set_memory_delay(delay);
        return memory_delay_text(delay);
    };
}

std::uint32_t register_of(std::string_view text) {
    if (const NamedRegister* known = find_register(text)) {
        return known->number;
    }
    const std::optional<std::uint32_t> number = parse_word(text);
    if (!number || *number >= sim::kRegisterCount) {
        throw CommandRefused(fmt::format("\"{}\" is no register: a name of the status, or a number below {:#x}",
                                         text, sim::kRegisterCount));
    }
    return *number;
}

Commands::Action use_register(sim::Card& card, Commands::Words words) {
    if (words.empty() || words.size() > 2) {
        throw CommandRefused("register takes a register, and a value if it is to be set");
    }
    const std::uint32_t number = register_of(words[0]);
    const auto wanted = words.size() == 2 ? std::optional(word_of(words[1])) : std::nullopt;
    return [&card, number, wanted] {
        if (wanted) {
            const sim::CardLockScope scope(card.memory().lock);
            sim::preset_register(card.memory().registers, number, *wanted);
        }
        const std::uint64_t value = sim::read_register(card.memory(), number);
        return fmt::format("register {:#x} holds {:#x} ({})", number, value, value);
    };
}

Commands::Action power_cycle(sim::Card& card, Commands::Words words) {
    if (!words.empty()) {
        throw CommandRefused("power-cycle takes nothing");
    }
    return [&card] {
        card.power_cycle();
        return std::string("the card has forgotten everything");
    };
}

Commands::Action impair(SnapshotSender& sender, Commands::Words words) {
    constexpr std::size_t kWithSeed = 3;
    if (words.size() != 2 && words.size() != kWithSeed) {
        throw CommandRefused(
            "impair takes the name of an impairment, its rate, and a seed if it is to have one");
    }
    const sim::Impairment impairment = sim::Impairments::find(words[0]);
    const double rate = share_of(words[1]);
    const auto seed = words.size() == kWithSeed ? std::optional(seed_of(words[2])) : std::nullopt;
    return [&sender, impairment, rate, seed] {
        sender.impairments().set(impairment, rate, seed);
        return fmt::format("{} strikes {:g} of the frames{}",
                           sim::kImpairmentNames[static_cast<std::size_t>(impairment)], rate,
                           seed ? fmt::format(", by seed {}", *seed) : "");
    };
}

std::string show_impairments(const sim::Impairments& impairments) {
    std::string text = fmt::format("{:<12}{:>10}{:>12}  {}", "impairment", "rate", "struck", "seed");
    for (std::size_t i = 0; i < sim::kImpairmentNames.size(); ++i) {
        const auto impairment = static_cast<sim::Impairment>(i);
        text += fmt::format("\n{:<12}{:>10g}{:>12}  {}", sim::kImpairmentNames[i], impairments.rate(impairment),
                            impairments.struck(impairment), impairments.seed(impairment));
    }
    return text;
}

Commands::Action set_quirky_cuts(SnapshotSender& sender, Commands::Words words) {
    if (words.size() != 1) {
        throw CommandRefused("quirky_cuts takes a rate");
    }
    return [&sender, rate = share_of(words.front())] {
        sender.stream().set_quirky_cuts(rate);
        return fmt::format("{:g} of the messages are cut in the next one's header", rate);
    };
}

Commands::Action send_long_messages(SnapshotSender& sender, Commands::Words words) {
    constexpr std::size_t kWithBytes = 3;
    if (words.size() != 2 && words.size() != kWithBytes) {
        throw CommandRefused("long_messages takes a feed, a number of cycles, and bytes if not the most");
    }
    const EMDQPDataType feed = feed_of(words[0]);
    const auto count = whole_number<std::uint64_t>(words[1], 0, sim::kMostLongMessages);
    const std::size_t bytes = words.size() == 2
                                  ? sim::kMostLongMessage
                                  : whole_number(words[2], sim::kLeastLongMessage, sim::kMostLongMessage);
    if (!sender.stream().sends(feed)) {
        throw CommandRefused(fmt::format("no snapshots of {} are sent", name_of(feed)));
    }
    return [&sender, feed, count, bytes] {
        sender.stream().send_long_messages(feed, count, bytes);
        return fmt::format("the next {} cycles of {} have a message of {} bytes", count, name_of(feed), bytes);
    };
}

constexpr std::string_view kRight = "right";

sim::PriceFault fault_of(std::string_view text) {
    if (text == kRight) {
        return sim::PriceFault::none;
    }
    const auto found = std::ranges::find(sim::kPriceFaultNames, text);
    if (found == sim::kPriceFaultNames.end()) {
        throw CommandRefused(
            fmt::format("\"{}\" is none of {}, {}", text, kRight, fmt::join(sim::kPriceFaultNames, ", ")));
    }
    return static_cast<sim::PriceFault>(found - sim::kPriceFaultNames.begin() + 1);
}

Commands::Action set_prices(SnapshotSender& sender, Commands::Words words) {
    if (words.size() < 2) {
        throw CommandRefused("prices takes what is wrong with them, and instruments");
    }
    const sim::PriceFault fault = fault_of(words.front());
    const Commands::Words inst_ids = words.subspan(1);
    for (const std::string_view inst_id : inst_ids) {
        if (!sender.stream().lists(inst_id)) {
            throw CommandRefused(fmt::format("no such instrument: {}", inst_id));
        }
    }
    return [&sender, words, inst_ids, fault] {
        for (const std::string_view inst_id : inst_ids) {
            sender.stream().set_price_fault(inst_id, fault);
        }
        return fmt::format("snapshots have prices {} of {}", words.front(), fmt::join(inst_ids, " "));
    };
}

}  // namespace

void add_rate_command(Commands& commands, Traffic& traffic) {
    commands.add("rate", "N|max", "quotes a second",
                 [&traffic](Commands::Words words) { return set_rate(traffic, words); });
}

void add_event_command(Commands& commands, sim::Card& card) {
    commands.add("event", "lost|price|timeout LANE, or W0 W1 W2 W3 W4 W5",
                 "an event message to channel 0, words decimal or 0x", [&card](Commands::Words words) {
                     return [&card, event = event_of(words)] { return send_event(card, event); };
                 });
}

void add_feed_command(Commands& commands, sim::Card& card) {
    commands.add("feed", "stop|start FEED", "cuts the line of a feed's quotes, joins it again",
                 [&card](Commands::Words words) { return set_feed(card, words); });
}

void add_memory_command(Commands& commands, sim::Card& card) {
    commands.add("memory", "SECONDS|never", "how long the card's memory takes to get ready",
                 [&card](Commands::Words words) { return set_memory(card, words); });
}

void add_register_command(Commands& commands, sim::Card& card) {
    commands.add("register", "NAME|NUMBER [VALUE]", "what the host reads in a register",
                 [&card](Commands::Words words) { return use_register(card, words); });
}

void add_power_cycle_command(Commands& commands, sim::Card& card) {
    commands.add("power-cycle", "", "the card forgets everything",
                 [&card](Commands::Words words) { return power_cycle(card, words); });
}

void add_snapshot_commands(Commands& commands, SnapshotSender& sender) {
    commands.add("impair", "NAME RATE [SEED]", "how often something befalls a frame of the snapshots, 0 to 1",
                 [&sender](Commands::Words words) { return impair(sender, words); });
    commands.add(
        "impairments", "", "their rates, how often they have struck, and their seeds",
        [&sender](Commands::Words) { return [&sender] { return show_impairments(sender.impairments()); }; });
    commands.add("quirky_cuts", "RATE", "share of the messages that are cut in the next one's header",
                 [&sender](Commands::Words words) { return set_quirky_cuts(sender, words); });
    commands.add("long_messages", "FEED N [BYTES]",
                 "a message near or above 64 KiB in each of its next N cycles",
                 [&sender](Commands::Words words) { return send_long_messages(sender, words); });
    commands.add("prices", "FAULT|right INSTRUMENT...", "what is wrong with their prices in the snapshots",
                 [&sender](Commands::Words words) { return set_prices(sender, words); });
}

}  // namespace kova::app
