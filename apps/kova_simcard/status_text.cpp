#include "kova_simcard/status_text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "kova_simcard/traffic.h"

namespace kova::app {

namespace {

// Keys in the order that they are written in here.
using Json = nlohmann::ordered_json;

// Keys of the status, spelt like its registers.
constexpr std::array<std::string_view, MDQP_FEED_COUNT> kFeedKeys{"shfe_2ps", "shfe_4ps", "ine_2ps", "ine_4ps"};

bool has_history(const ChannelStatus& channel) {
    return channel.is_open || channel.sent + channel.lost + channel.unheard != 0;
}

void append_feeds(std::string& text, const CardStatus& status) {
    fmt::format_to(std::back_inserter(text),
                   "\n{:<10}{:>7}{:>8}{:>12}{:>12}  {:<8}{:<7}{:>9}{:>9}  {:<6}{:>7}\n", "feed", "rows",
                   "filled", "subscribed", "packets", "core", "table", "refused", "outside", "line", "cycles");
    for (std::size_t feed = 0; feed < status.feeds.size(); ++feed) {
        const FeedStatus& line = status.feeds[feed];
        fmt::format_to(std::back_inserter(text),
                       "{:<10}{:>7}{:>8}{:>12}{:>12}  {:<8}{:<7}{:>9}{:>9}  {:<6}{:>7}\n", kFeedKeys[feed],
                       line.rows, line.filled, line.subscribed, line.packets,
                       line.is_started ? "started" : "stopped", line.is_open ? "open" : "closed",
                       line.refused_writes, line.outside, line.is_cut ? "cut" : "whole", line.cycles);
    }
    const ForwardingStatus& forwarding = status.forwarding;
    fmt::format_to(std::back_inserter(text),
                   "\nsnapshot forwarding: {}, opened {} times, {} frames forwarded, {} withheld\n",
                   forwarding.is_open ? "open" : "closed", forwarding.openings, forwarding.forwarded,
                   forwarding.withheld);
}

void append_channels(std::string& text, const CardStatus& status) {
    fmt::format_to(std::back_inserter(text), "\n{:<8}{:>9}{:>12}{:>12}{:>9}{:>10}{:>10}{:>12}\n", "channel",
                   "reader", "sent", "taken", "waiting", "lost", "abandoned", "unheard");
    for (const ChannelStatus& line : status.channels) {
        if (!has_history(line)) {
            continue;
        }
        fmt::format_to(std::back_inserter(text), "{:<8}{:>9}{:>12}{:>12}{:>9}{:>10}{:>10}{:>12}\n",
                       line.channel, line.is_open ? std::to_string(line.reader_process) : "-", line.sent,
                       line.taken, line.waiting, line.lost, line.abandoned, line.unheard);
    }
    if (std::ranges::none_of(status.channels, has_history)) {
        text += "(nothing on any channel yet)\n";
    }
}

// Most of them hold nothing at any one time.
void append_registers(std::string& text, const CardStatus& status) {
    fmt::format_to(std::back_inserter(text), "\n{:<24}{:>8}{:>12}{:>12}\n", "register", "number", "value",
                   "decimal");
    for (const RegisterStatus& line : status.registers) {
        if (line.value != 0) {
            fmt::format_to(std::back_inserter(text), "{:<24}{:>#8x}{:>#12x}{:>12}\n", line.name, line.number,
                           line.value, line.value);
        }
    }
    text += "(all others hold 0)\n";
}

Json json_of(const ChannelStatus& channel) {
    return {{"channel", channel.channel}, {"open", channel.is_open},        {"pid", channel.reader_process},
            {"sent", channel.sent},       {"taken", channel.taken},         {"lost", channel.lost},
            {"unheard", channel.unheard}, {"abandoned", channel.abandoned}, {"waiting", channel.waiting}};
}

}  // namespace

std::string status_text(const CardStatus& status) {
    std::string text = fmt::format("card {}: on, pid {}, since {:%Y-%m-%d %H:%M:%S}, traffic {}\n", status.card,
                                   status.process, fmt::localtime(status.since), name_of(status.traffic));
    append_feeds(text, status);
    append_channels(text, status);
    append_registers(text, status);
    fmt::format_to(std::back_inserter(text),
                   "\nregister lock: {} recoveries from killed clients, {} accesses without it\n",
                   status.lock_recoveries, status.unprotected_accesses);
    return text;
}

std::string status_json(const CardStatus& status) {
    Json json{{"card", status.card},
              {"state", "on"},
              {"pid", status.process},
              {"since", fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(status.since))},
              {"traffic", name_of(status.traffic)}};
    json["channels"] = Json::array();
    for (const ChannelStatus& channel : status.channels) {
        json["channels"].push_back(json_of(channel));
    }
    json["lock"] = {{"recoveries", status.lock_recoveries}, {"unprotected", status.unprotected_accesses}};
    for (std::size_t feed = 0; feed < status.feeds.size(); ++feed) {
        const std::string name(kFeedKeys[feed]);
        const FeedStatus& line = status.feeds[feed];
        json["packets"][name] = line.packets;
        json["tables"][name] = {{"rows", line.rows},
                                {"filled", line.filled},
                                {"subscribed", line.subscribed},
                                {"open", line.is_open},
                                {"refused_writes", line.refused_writes},
                                {"outside", line.outside}};
        json["snapshot_cycles"][name] = line.cycles;
        json["lines"][name] = line.is_cut ? "cut" : "whole";
        json["cores"][name] = line.is_started ? "started" : "stopped";
    }
    json["forwarding"] = {{"open", status.forwarding.is_open},
                          {"openings", status.forwarding.openings},
                          {"forwarded", status.forwarding.forwarded},
                          {"withheld", status.forwarding.withheld}};
    for (const RegisterStatus& shown : status.registers) {
        json["registers"][std::string(shown.name)] = shown.value;
    }
    return json.dump();
}

std::string status_json_of_no_card(std::uint32_t card, std::string_view reason) {
    return Json{{"card", card}, {"state", "off"}, {"reason", reason}}.dump();
}

}  // namespace kova::app
