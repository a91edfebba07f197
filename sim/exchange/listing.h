/**
 * The instruments of one trading day: everything that follows from a seed and a date.
 */
#ifndef KOVA_SIM_EXCHANGE_LISTING_H
#define KOVA_SIM_EXCHANGE_LISTING_H

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sim/exchange/instrument.h"

namespace kova::sim {

struct ListingOptions {
    std::uint64_t seed = 1;
    std::chrono::year_month_day date{std::chrono::year{2024}, std::chrono::month{11}, std::chrono::day{18}};
    /** At most so many instruments of each exchange; nothing means all of them. */
    std::optional<std::uint32_t> shfe{};
    std::optional<std::uint32_t> ine{};
    /** Daily limit of every product, in thousandths of the previous settlement price; nothing means its own. */
    std::optional<std::int32_t> limit_permille{};
    /**
     * Adds to each exchange futures at the ends of what feeds and tables hold: identifiers of 1 to
     * kMostIdentifier characters, the first under the number 0, the last under that of the table's last row.
     */
    bool edges = false;
};

/** Most characters of an identifier, which has a NUL behind it in a row and in a quote. */
inline constexpr std::size_t kMostIdentifier = 15;

/**
 * A trading day's listing; never changes once made.
 *
 * Instrument numbers of an exchange run from 0 without a gap, in the order of the identifiers. A listing cut to
 * a number keeps the nearest months of all products first, each with its options nearest to the money. With
 * edges, the shortest of them comes ahead of all others and the longer ones have the last numbers of the table,
 * with a gap before them.
 */
class Listing {
 public:
    /** The same options give the same listing on every machine. */
    static Listing make(const ListingOptions& options);

    /** All instruments: those of SHFE by their number, then those of INE by theirs. */
    [[nodiscard]] std::span<const Instrument> instruments() const { return instruments_; }
    /** The instruments of a feed by their number. 2PS and 4PS of an exchange have the same. */
    [[nodiscard]] std::span<const Instrument> of(EMDQPDataType feed) const;
    /** Instruments of a feed. */
    [[nodiscard]] std::uint32_t count(EMDQPDataType feed) const;
    /** One past the highest instrument number of a feed: the rows of its table that are in use. */
    [[nodiscard]] std::uint32_t rows(EMDQPDataType feed) const;
    [[nodiscard]] bool has(InstrumentRef ref) const;
    /** The instrument with this identifier, or null. */
    [[nodiscard]] const Instrument* find(std::string_view id) const;
    [[nodiscard]] const Instrument& at(InstrumentRef ref) const { return instruments_[index(ref)]; }
    /** Index in instruments() of one that is listed. */
    [[nodiscard]] std::size_t index(InstrumentRef ref) const;
    [[nodiscard]] const ListingOptions& options() const { return options_; }

 private:
    void add(Instrument instrument, std::uint32_t inst_no, std::string_view future);

    ListingOptions options_;
    std::vector<Instrument> instruments_;
    std::size_t shfe_count_ = 0;
    std::array<std::vector<std::uint32_t>, 2> by_number_;  // of each exchange: index, or kNone in a gap
    std::unordered_map<std::string, std::uint32_t> by_id_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_LISTING_H
