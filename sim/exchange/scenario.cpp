#include "sim/exchange/scenario.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <sstream>

#include "sim/exchange/calendar.h"
#include "sim/exchange/product.h"
#include "sim/exchange/toml_file.h"
#include "wire/InstRow.h"

namespace kova::sim {

namespace {

using std::chrono::milliseconds;

constexpr double kLongestSeconds = 7 * 24 * 3600;
constexpr double kMillisecondsPerSecond = 1000;

/** Reads one scenario; every operation refuses what it does not like, with the line. */
class Reader {
 public:
    explicit Reader(const std::string& name) : name_(name) {}

    Scenario read(const toml::table& file) const {
        only(file, {"seed", "date", "rate", "duration", "start_delay", "open_time", "listing", "market", "hot",
                    "channel", "snapshot", "impairments", "card", "events"});
        Scenario scenario;
        scenario.name = name_;
        with(file, "seed", [&](const toml::node& node) { scenario.listing.seed = seed(node); });
        with(file, "date", [&](const toml::node& node) { scenario.listing.date = trading_day(node); });
        with(file, "rate", [&](const toml::node& node) { scenario.rate = rate(node); });
        with(file, "duration", [&](const toml::node& node) { scenario.duration = seconds(node); });
        with(file, "start_delay", [&](const toml::node& node) { scenario.start_delay = seconds(node); });
        with(file, "open_time", [&](const toml::node& node) { scenario.open_time = time_of_day(node); });
        with(file, "listing", [&](const toml::node& node) { read_listing(node, scenario.listing); });
        with(file, "market", [&](const toml::node& node) { read_market(table(node), scenario); });
        with(file, "hot", [&](const toml::node& node) { read_hot(table(node), scenario); });
        read_channels(file, scenario);
        with(file, "snapshot", [&](const toml::node& node) { read_snapshot(table(node), scenario); });
        with(file, "card", [&](const toml::node& node) { read_card(table(node), scenario); });
        with(file, "events", [&](const toml::node& node) { scenario.events = events(node); });
        scenario.impairments.seed = scenario.listing.seed;
        with(file, "impairments",
             [&](const toml::node& node) { read_impairments(table(node), scenario.impairments); });
        return scenario;
    }

 private:
    [[noreturn]] void refuse(const toml::node& node, const std::string& reason) const {
        throw ScenarioError(name_, node.source().begin.line, reason);
    }

    [[noreturn]] void refuse_key(const toml::key& key) const {
        throw ScenarioError(name_, key.source().begin.line, "unknown key \"" + std::string(key.str()) + "\"");
    }

    template <typename Use>
    void with(const toml::table& from, std::string_view key, const Use& use) const {
        if (const toml::node* node = from.get(key)) {
            try {
                use(*node);
            } catch (const Unfit& unfit) {
                refuse(*node, std::string(key) + " " + unfit.reason);
            }
        }
    }

    /** A value that is not what its key wants; becomes an error where the key is known. */
    struct Unfit {
        std::string reason;
    };

    void only(const toml::table& found, std::initializer_list<std::string_view> known) const {
        for (const auto& [key, node] : found) {
            if (std::ranges::find(known, key.str()) == known.end()) {
                refuse_key(key);
            }
        }
    }

    static const toml::table& table(const toml::node& node) {
        if (!node.is_table()) {
            throw Unfit{"must be a table"};
        }
        return *node.as_table();
    }

    static std::uint64_t integer(const toml::node& node, std::int64_t least, std::int64_t most) {
        const std::string range = "from " + std::to_string(least) + " to " + std::to_string(most);
        const auto value = node.value_exact<std::int64_t>();
        if (!value || *value < least || *value > most) {
            throw Unfit{"must be a whole number " + range};
        }
        return static_cast<std::uint64_t>(*value);
    }

    static std::uint64_t seed(const toml::node& node) {
        return integer(node, 0, std::numeric_limits<std::int64_t>::max());
    }

    static double number(const toml::node& node, double least, double most, const std::string& range) {
        const auto value = node.is_number() ? node.value<double>() : std::nullopt;
        if (!value || !(*value >= least && *value <= most)) {
            throw Unfit{"must be a number " + range};
        }
        return *value;
    }

    static bool boolean(const toml::node& node) {
        if (!node.is_boolean()) {
            throw Unfit{"must be true or false"};
        }
        return node.value_or(false);
    }

    static milliseconds seconds(const toml::node& node) {
        const double value = number(node, 0, kLongestSeconds, "of seconds from 0 to 604800, a week");
        return milliseconds{std::llround(value * kMillisecondsPerSecond)};
    }

    static milliseconds time_of_day(const toml::node& node) {
        const auto time = node.value_exact<toml::time>();
        if (!time) {
            throw Unfit{"must be a time of day as 09:00:00"};
        }
        return std::chrono::hours{time->hour} + std::chrono::minutes{time->minute} +
               std::chrono::seconds{time->second} + milliseconds{time->nanosecond / 1'000'000};
    }

    static std::chrono::year_month_day trading_day(const toml::node& node) {
        const auto date = node.value_exact<toml::date>();
        if (!date) {
            throw Unfit{"must be a date as 2024-11-18"};
        }
        const std::chrono::year_month_day day{std::chrono::year{date->year}, std::chrono::month{date->month},
                                              std::chrono::day{date->day}};
        constexpr int first_year = 2010;
        constexpr int last_year = 2090;
        if (date->year < first_year || date->year > last_year) {
            throw Unfit{"must lie in the years 2010 to 2090"};
        }
        if (is_weekend(day)) {
            throw Unfit{"must be a trading day, and that is a weekend"};
        }
        return day;
    }

    static Rate rate(const toml::node& node) {
        if (node.value_exact<std::string>() == "max") {
            return std::nullopt;
        }
        const auto value = node.value_exact<std::int64_t>();
        if (!value || *value < 1 || *value > static_cast<std::int64_t>(kMaxRate)) {
            throw Unfit{"must be \"max\" or a whole number from 1 to 1000000000"};
        }
        return static_cast<std::uint64_t>(*value);
    }

    void read_listing(const toml::node& node, ListingOptions& listing) const {
        if (node.value_exact<std::string>() == "full") {
            return;
        }
        if (!node.is_table()) {
            throw Unfit{"must be \"full\" or a table with the counts shfe and ine"};
        }
        const toml::table& counts = *node.as_table();
        only(counts, {"shfe", "ine", "edges"});
        with(counts, "edges", [&](const toml::node& is_wanted) { listing.edges = boolean(is_wanted); });
        with(counts, "shfe", [&](const toml::node& count) {
            listing.shfe = static_cast<std::uint32_t>(integer(count, 0, SHFE_TABLE_ROWS));
        });
        with(counts, "ine", [&](const toml::node& count) {
            listing.ine = static_cast<std::uint32_t>(integer(count, 0, INE_TABLE_ROWS));
        });
        if (listing.shfe == 0U && listing.ine == 0U && !listing.edges) {
            throw Unfit{"has no instrument"};
        }
    }

    void read_market(const toml::table& market, Scenario& scenario) const {
        only(market, {"limit_percent", "trend"});
        with(market, "limit_percent", [&](const toml::node& node) {
            const double percent = number(node, 0.1, 50, "from 0.1 to 50");
            scenario.listing.limit_permille = static_cast<std::int32_t>(std::llround(percent * 10));
        });
        with(market, "trend",
             [&](const toml::node& node) { scenario.trend = number(node, -1, 1, "from -1 to 1"); });
    }

    void read_hot(const toml::table& hot, Scenario& scenario) const {
        only(hot, {"instruments", "options", "share"});
        scenario.hot_share = 0.5;
        scenario.hot = choice(hot);
        with(hot, "share",
             [&](const toml::node& node) { scenario.hot_share = number(node, 0, 1, "from 0 to 1"); });
    }

    void read_channels(const toml::table& file, Scenario& scenario) const {
        if (!file.contains("channel")) {
            scenario.channels.fill({.instruments = {{.text = "all"}}, .options = false});
            return;
        }
        with(file, "channel", [&](const toml::node& node) {
            for (const auto& [key, channel] : table(node)) {
                const std::size_t number = channel_number(key);
                with(table(node), key.str(), [&](const toml::node& entry) {
                    only(table(entry), {"instruments", "options"});
                    scenario.channels[number] = choice(table(entry));
                });
            }
        });
    }

    void read_snapshot(const toml::table& snapshot, Scenario& scenario) const {
        only(snapshot, {"feeds", "ports", "topics", "order", "message_bytes", "long_messages",
                        "long_message_bytes", "middle_flag", "segments", "segment_bytes", "split_at",
                        "quirky_cuts", "first_seq", "bad_prices", "rate"});
        with(snapshot, "rate", [&](const toml::node& node) { scenario.snapshot_rate = rate(node); });
        SnapshotOptions& options = scenario.snapshot;
        with(snapshot, "feeds", [&](const toml::node& node) { options.feeds = feeds(node); });
        with(snapshot, "ports", [&](const toml::node& node) { read_ports(table(node), options); });
        with(snapshot, "topics", [&](const toml::node& node) { read_topics(table(node), options); });
        with(snapshot, "order", [&](const toml::node& node) {
            options.order = static_cast<SnapshotOrder>(one_of(node, {"sequential", "interleaved"}));
        });
        with(snapshot, "message_bytes", [&](const toml::node& node) {
            options.message_bytes = integer(node, kLeastMessageBytes, kMostMessageBytes);
        });
        with(snapshot, "long_messages",
             [&](const toml::node& node) { read_long_messages(table(node), options); });
        with(snapshot, "long_message_bytes", [&](const toml::node& node) {
            options.long_message_bytes = integer(node, kLeastLongMessage, kMostLongMessage);
        });
        with(snapshot, "middle_flag", [&](const toml::node& node) { options.middle_flag = middle_flag(node); });
        with(snapshot, "first_seq", [&](const toml::node& node) {
            options.first_seq =
                static_cast<std::uint32_t>(integer(node, 0, std::numeric_limits<std::uint32_t>::max()));
        });
        read_segments(snapshot, options.segments);
        with(snapshot, "bad_prices", [&](const toml::node& node) { read_bad_prices(table(node), scenario); });
    }

    void read_segments(const toml::table& snapshot, SegmentOptions& segments) const {
        with(snapshot, "segments", [&](const toml::node& node) {
            segments.rule = static_cast<SegmentRule>(one_of(node, {"bulk", "message", "packed"}));
        });
        with(snapshot, "segment_bytes", [&](const toml::node& node) {
            segments.bytes = integer(node, kLeastSegmentBytes, kMostSegmentBytes);
        });
        with(snapshot, "split_at", [&](const toml::node& node) {
            segments.split_at = integer(node, 1, std::numeric_limits<std::int32_t>::max());
        });
        with(snapshot, "quirky_cuts", [&](const toml::node& node) { segments.quirky_cuts = share(node); });
    }

    static std::vector<SnapshotFeed> feeds(const toml::node& node) {
        const Unfit unfit{"must be a list of shfe2ps, shfe4ps, ine2ps and ine4ps, each at most once"};
        const toml::array* names = node.as_array();
        if (names == nullptr || names->empty()) {
            throw Unfit{unfit};
        }
        std::vector<SnapshotFeed> feeds;
        for (const toml::node& name : *names) {
            const auto found = std::ranges::find(kFeedNames, name.value_exact<std::string>().value_or(""));
            const auto feed = static_cast<EMDQPDataType>(found - kFeedNames.begin());
            const bool is_twice = std::ranges::find(feeds, feed, &SnapshotFeed::feed) != feeds.end();
            if (found == kFeedNames.end() || is_twice) {
                throw Unfit{unfit};
            }
            feeds.push_back(SnapshotFeed::of(feed));
        }
        return feeds;
    }

    void read_ports(const toml::table& ports, SnapshotOptions& options) const {
        only_feeds(ports, options);
        for (SnapshotFeed& feed : options.feeds) {
            with(ports, kFeedNames[static_cast<std::size_t>(feed.feed)], [&](const toml::node& node) {
                feed.client.port =
                    static_cast<std::uint16_t>(integer(node, 1, std::numeric_limits<std::uint16_t>::max()));
            });
        }
    }

    void read_topics(const toml::table& topics, SnapshotOptions& options) const {
        only_feeds(topics, options);
        for (SnapshotFeed& feed : options.feeds) {
            with(topics, kFeedNames[static_cast<std::size_t>(feed.feed)], [&](const toml::node& node) {
                feed.topic_id =
                    static_cast<std::int16_t>(integer(node, 0, std::numeric_limits<std::int16_t>::max()));
            });
        }
    }

    void read_long_messages(const toml::table& counts, SnapshotOptions& options) const {
        only_feeds(counts, options);
        for (SnapshotFeed& feed : options.feeds) {
            with(counts, kFeedNames[static_cast<std::size_t>(feed.feed)],
                 [&](const toml::node& node) { feed.long_messages = integer(node, 0, kMostLongMessages); });
        }
    }

    /** A table of feeds that are sent. */
    void only_feeds(const toml::table& found, const SnapshotOptions& options) const {
        only(found, {kFeedNames[SHFE_2PS], kFeedNames[SHFE_4PS], kFeedNames[INE_2PS], kFeedNames[INE_4PS]});
        for (const auto& [key, node] : found) {
            const auto is_it = [name = key.str()](const SnapshotFeed& feed) {
                return kFeedNames[static_cast<std::size_t>(feed.feed)] == name;
            };
            if (std::ranges::none_of(options.feeds, is_it)) {
                throw ScenarioError(name_, key.source().begin.line,
                                    std::string(key.str()) + " is none of the feeds whose snapshots are sent");
            }
        }
    }

    static std::uint8_t middle_flag(const toml::node& node) {
        const std::uint64_t flag = integer(node, 0, std::numeric_limits<std::uint8_t>::max());
        if (flag == MDQP_FLAG_LAST) {
            throw Unfit{"must not be 1, which ends a snapshot"};
        }
        return static_cast<std::uint8_t>(flag);
    }

    static double share(const toml::node& node) { return number(node, 0, 1, "from 0 to 1"); }

    /** Index of the text in the choices. */
    static std::size_t one_of(const toml::node& node, std::initializer_list<std::string_view> choices) {
        const auto found = std::ranges::find(choices, node.value_exact<std::string>().value_or(""));
        if (found != choices.end()) {
            return static_cast<std::size_t>(found - choices.begin());
        }
        std::string reason = "must be one of";
        for (const std::string_view choice : choices) {
            reason += " \"" + std::string(choice) + "\"";
        }
        throw Unfit{reason};
    }

    void read_bad_prices(const toml::table& bad_prices, Scenario& scenario) const {
        for (const auto& [key, node] : bad_prices) {
            const auto found = std::ranges::find(kPriceFaultNames, key.str());
            if (found == kPriceFaultNames.end()) {
                refuse_key(key);
            }
            const auto fault = static_cast<std::size_t>(found - kPriceFaultNames.begin());
            with(bad_prices, key.str(),
                 [&](const toml::node& list) { scenario.bad_prices[fault].instruments = instruments(list); });
        }
    }

    void read_impairments(const toml::table& rates, ImpairmentOptions& options) const {
        for (const auto& [key, node] : rates) {
            const auto found = std::ranges::find(kImpairmentNames, key.str());
            if (found == kImpairmentNames.end() && key.str() != "seed") {
                refuse_key(key);
            }
            with(rates, key.str(), [&](const toml::node& value) {
                if (found == kImpairmentNames.end()) {
                    options.seed = seed(value);
                    return;
                }
                read_impairment(value, static_cast<std::size_t>(found - kImpairmentNames.begin()), options);
            });
        }
    }

    void read_impairment(const toml::node& node, std::size_t index, ImpairmentOptions& options) const {
        if (!node.is_table()) {
            options.rates[index] = share(node);
            return;
        }
        const toml::table& impairment = *node.as_table();
        only(impairment, {"rate", "seed"});
        if (!impairment.contains("rate")) {
            throw Unfit{"needs a rate"};
        }
        with(impairment, "rate", [&](const toml::node& value) { options.rates[index] = share(value); });
        with(impairment, "seed", [&](const toml::node& value) { options.seeds[index] = seed(value); });
    }

    void read_card(const toml::table& card, Scenario& scenario) const {
        only(card, {"memory"});
        with(card, "memory", [&](const toml::node& node) {
            const bool is_never = node.value_exact<std::string>() == "never";
            scenario.card_memory = is_never ? CardMemoryDelay() : CardMemoryDelay(memory_delay(node));
        });
    }

    static milliseconds memory_delay(const toml::node& node) {
        constexpr double longest = 3600;
        const double value = number(node, 0, longest, "of seconds from 0 to 3600, or \"never\"");
        return milliseconds{std::llround(value * kMillisecondsPerSecond)};
    }

    std::vector<ScheduledEvent> events(const toml::node& node) const {
        const Unfit unfit{"must be tables, each under [[events]]"};
        if (!node.is_array()) {
            throw Unfit{unfit};
        }
        std::vector<ScheduledEvent> events;
        for (const toml::node& entry : *node.as_array()) {
            if (!entry.is_table()) {
                throw Unfit{unfit};
            }
            events.push_back(event(*entry.as_table()));
        }
        return events;
    }

    ScheduledEvent event(const toml::table& table) const {
        only(table, {"at", "tell"});
        ScheduledEvent event{.line = table.source().begin.line};
        with(table, "at", [&](const toml::node& node) {
            event.is_exchange_time = node.is_time();
            event.at = event.is_exchange_time ? time_of_day(node) : seconds(node);
        });
        with(table, "tell", [&](const toml::node& node) {
            event.command = node.value_exact<std::string>().value_or("");
            if (event.command.empty()) {
                throw Unfit{"must be a text as \"event lost 0\""};
            }
        });
        if (!table.contains("at") || !table.contains("tell")) {
            refuse(table, "an event needs both at and tell");
        }
        return event;
    }

    std::size_t channel_number(const toml::key& key) const {
        for (std::size_t number = 0; number < kScenarioChannels; ++number) {
            if (key.str() == std::to_string(number)) {
                return number;
            }
        }
        throw ScenarioError(name_, key.source().begin.line,
                            "channel \"" + std::string(key.str()) + "\" is none of 0 to 15");
    }

    InstrumentChoice choice(const toml::table& table) const {
        InstrumentChoice choice;
        with(table, "options", [&](const toml::node& node) { choice.options = boolean(node); });
        with(table, "instruments", [&](const toml::node& node) { choice.instruments = instruments(node); });
        return choice;
    }

    std::vector<InstrumentEntry> instruments(const toml::node& node) const {
        if (!node.is_array()) {
            throw Unfit{"must be a list as [\"cu\", \"au2412\"]"};
        }
        std::vector<InstrumentEntry> entries;
        for (const toml::node& entry : *node.as_array()) {
            entries.push_back(instrument_entry(entry));
        }
        return entries;
    }

    InstrumentEntry instrument_entry(const toml::node& node) const {
        const auto text = node.value_exact<std::string>();
        if (!text) {
            refuse(node, "instruments must be texts");
        }
        if (const std::string fault = fault_of(*text); !fault.empty()) {
            refuse(node, "\"" + *text + "\" " + fault);
        }
        return {.text = *text, .line = node.source().begin.line};
    }

    /** What is wrong with an entry, or nothing. */
    static std::string fault_of(std::string_view text) {
        const auto is_letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
        const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
        if (text == "all" || text.find_first_of("*?[") != std::string_view::npos) {
            return {};
        }
        const auto digits = std::ranges::find_if_not(text, is_letter);
        const std::string code(text.begin(), digits);
        if (code.empty() ||
            !std::all_of(digits, text.end(), [&](char c) { return is_letter(c) || is_digit(c); })) {
            return "is neither a product, an identifier nor a pattern";
        }
        if (find_product(code) == nullptr) {
            return "names an unknown product, \"" + code + "\"";
        }
        constexpr std::ptrdiff_t month_digits = 4;
        const bool is_product = digits == text.end();
        const bool has_month =
            text.end() - digits >= month_digits && std::all_of(digits, digits + month_digits, is_digit);
        if (!is_product && (!has_month || text.size() > kMostIdentifier)) {
            return "is no identifier: " + code + " with year and month is " + code + "2501";
        }
        return {};
    }

    const std::string& name_;
};

}  // namespace

ScenarioError::ScenarioError(const std::string& file, std::uint32_t line, const std::string& reason)
    : std::runtime_error(file + ":" + std::to_string(line) + ": " + reason), line_(line), reason_(reason) {}

Scenario Scenario::defaults() {
    return parse("", "default");
}

Scenario Scenario::parse(std::string_view text, const std::string& name) {
    try {
        return Reader(name).read(read_toml(text));
    } catch (const TomlError& error) {
        throw ScenarioError(name, error.line, error.reason);
    }
}

Scenario Scenario::load(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    if (!stream || std::filesystem::is_directory(file)) {
        throw ScenarioError(file.string(), 0, "cannot be read");
    }
    text << stream.rdbuf();
    return parse(text.str(), file.string());
}

}  // namespace kova::sim
