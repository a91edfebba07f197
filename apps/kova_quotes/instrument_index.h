/**
 * Numbers instruments in the order in which they turn up.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_INSTRUMENT_INDEX_H
#define KOVA_APPS_KOVA_QUOTES_INSTRUMENT_INDEX_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "kova_quotes/instrument_id.h"

namespace kova::app {

/**
 * Open addressing over a table of fixed size: constant time, and no allocation once constructed. The
 * identifiers come from outside, so their number is bounded; one more than that gets no number.
 */
class InstrumentIndex {
 public:
    /** Every row of the card's four contract tables. */
    static constexpr std::size_t kAllRows = 2 * (16384 + 4096);

    static constexpr std::uint32_t kNone = 0xFFFFFFFF;

    explicit InstrumentIndex(std::size_t max_instruments = kAllRows);

    /** The instrument's number, kNone if it has none. */
    [[nodiscard]] std::uint32_t find(const InstrumentId& id) const;

    /** The instrument's number, a new one for a new instrument, kNone when no more are left. */
    std::uint32_t find_or_add(const InstrumentId& id);

    [[nodiscard]] const InstrumentId& id(std::uint32_t number) const { return ids_[number]; }
    [[nodiscard]] std::size_t size() const { return ids_.size(); }
    [[nodiscard]] std::size_t max_size() const { return max_instruments_; }

 private:
    /** The slot that holds the instrument, or the empty one where it would go. */
    [[nodiscard]] std::size_t slot_of(const InstrumentId& id) const;

    std::size_t max_instruments_;
    std::vector<std::uint32_t> slots_;
    std::vector<InstrumentId> ids_;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_INSTRUMENT_INDEX_H
