/**
 * Scenario files: what the simulated exchange lists, how it moves, who receives it, how its snapshots are sent
 * and what befalls them. docs/scenarios.md describes the format.
 */
#ifndef KOVA_SIM_EXCHANGE_SCENARIO_H
#define KOVA_SIM_EXCHANGE_SCENARIO_H

#include <array>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sim/exchange/impairments.h"
#include "sim/exchange/listing.h"
#include "sim/exchange/market.h"
#include "sim/exchange/pacer.h"
#include "sim/exchange/price_fault.h"
#include "sim/exchange/snapshot_stream.h"

namespace kova::sim {

constexpr std::size_t kScenarioChannels = 16;

/** Why a scenario is refused; what() is "file:line: reason". */
class ScenarioError : public std::runtime_error {
 public:
    ScenarioError(const std::string& file, std::uint32_t line, const std::string& reason);

    /** 1 for the first line; 0 when the file could not be read at all. */
    [[nodiscard]] std::uint32_t line() const { return line_; }
    [[nodiscard]] const std::string& reason() const { return reason_; }

 private:
    std::uint32_t line_;
    std::string reason_;
};

/** One entry of an instrument list: a product code, an identifier, a pattern, or "all". */
struct InstrumentEntry {
    std::string text;
    std::uint32_t line = 0;
};

struct InstrumentChoice {
    std::vector<InstrumentEntry> instruments{};
    bool options = false;  // product codes and "all" take options and TAS instruments too
};

/** Something that the program that powers the card is told at a time. */
struct ScheduledEvent {
    bool is_exchange_time = false;  // `at` is the exchange's time of day, else time since power-on
    std::chrono::milliseconds at{};
    std::string command{};  // as one would tell it
    std::uint32_t line = 0;
};

/** Nothing: never. */
using CardMemoryDelay = std::optional<std::chrono::milliseconds>;

struct Scenario {
    std::string name = "default";
    ListingOptions listing;                 // its seed is the scenario's
    Rate rate = 1000;                       // quotes a second of all instruments together
    std::chrono::milliseconds duration{0};  // 0 is endless
    std::chrono::milliseconds start_delay{0};
    std::chrono::milliseconds open_time = std::chrono::hours{9};
    double trend = 0;
    InstrumentChoice hot;
    double hot_share = 0;
    /** By channel number. A scenario that names no channel gives every future to every channel. */
    std::array<InstrumentChoice, kScenarioChannels> channels;
    Rate snapshot_rate = 5000;  // frames a second while the card forwards them
    SnapshotOptions snapshot;   // without seed and bad prices: see snapshot_options()
    /** Instruments whose prices the snapshot gets wrong, in the order of kPriceFaultNames. */
    std::array<InstrumentChoice, kPriceFaultNames.size()> bad_prices;
    ImpairmentOptions impairments;
    /** How long the card's memory takes after an initialisation: nothing: as long as it likes. */
    std::optional<CardMemoryDelay> card_memory;
    std::vector<ScheduledEvent> events;  // in the order of the file

    /** The scenario of an empty file. */
    static Scenario defaults();
    /** Reads a scenario from its text; `name` is what errors call the file. Throws ScenarioError. */
    static Scenario parse(std::string_view text, const std::string& name);
    /** Reads a scenario file. Throws ScenarioError. */
    static Scenario load(const std::filesystem::path& file);
};

/** An entry that no instrument of the listing answers to: not listed that day, or cut off. */
struct UnmatchedEntry {
    std::optional<std::uint32_t> channel;  // nothing: of the hot set or of the bad prices
    InstrumentEntry entry;
};

/** What a scenario selects from a listing; each list in the order of the listing, without repetition. */
struct Selection {
    std::array<std::vector<InstrumentRef>, kScenarioChannels> channels;
    std::vector<InstrumentRef> heard;  // by any channel
    std::vector<InstrumentRef> hot;
    std::vector<BadPrice> bad_prices;
    std::vector<UnmatchedEntry> unmatched;

    /** Channels that receive an instrument, bit c for channel c. */
    [[nodiscard]] std::uint32_t channel_bits(const Listing& listing, InstrumentRef ref) const {
        return bits_[listing.index(ref)];
    }

 private:
    friend Selection select(const Scenario&, const Listing&);
    std::vector<std::uint32_t> bits_;  // as in Listing::instruments()
};

Selection select(const Scenario& scenario, const Listing& listing);

/** The market of a scenario, with only those instruments moving that some channel hears. */
MarketOptions market_options(const Scenario& scenario, const Selection& selection);

/** The snapshots of a scenario. */
SnapshotOptions snapshot_options(const Scenario& scenario, const Selection& selection);

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_SCENARIO_H
