/**
 * Watches the change numbers of each instrument.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_GAP_TRACKER_H
#define KOVA_APPS_KOVA_QUOTES_GAP_TRACKER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "kova_quotes/instrument_id.h"
#include "kova_quotes/instrument_index.h"

namespace kova::app {

/** What was seen of one instrument. */
struct ChangeRecord {
    std::uint64_t quotes = 0;
    std::uint32_t first_change = 0;
    std::uint32_t last_change = 0;
    std::uint64_t gaps = 0;     /**< how often the number rose by more than one */
    std::uint64_t missing = 0;  /**< numbers left out in those gaps */
    std::uint64_t backward = 0; /**< how often it did not rise; counting goes on from the lower number */

    friend bool operator==(const ChangeRecord&, const ChangeRecord&) = default;
};

/**
 * Constant time and no allocation per quote; memory for as many instruments as the card has rows. An
 * instrument's first quote says where its numbers begin. They are 32 bits wide and may wrap.
 */
class GapTracker {
 public:
    explicit GapTracker(std::size_t max_instruments = InstrumentIndex::kAllRows);

    void note(const InstrumentId& id, std::uint32_t change_no);

    [[nodiscard]] std::size_t instruments() const { return index_.size(); }
    [[nodiscard]] const InstrumentId& id(std::size_t number) const {
        return index_.id(static_cast<std::uint32_t>(number));
    }
    [[nodiscard]] const ChangeRecord& record(std::size_t number) const { return records_[number]; }

    /** Null for an instrument never seen. */
    [[nodiscard]] const ChangeRecord* find(const InstrumentId& id) const;

    /** Quotes of instruments beyond the number that is kept apart. */
    [[nodiscard]] std::uint64_t untracked() const { return untracked_; }

 private:
    InstrumentIndex index_;
    std::vector<ChangeRecord> records_;
    std::uint64_t untracked_ = 0;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_GAP_TRACKER_H
