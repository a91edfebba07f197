#include "kova_quotes/gap_tracker.h"

namespace kova::app {

GapTracker::GapTracker(std::size_t max_instruments) : index_(max_instruments) {
    records_.reserve(max_instruments);
}

void GapTracker::note(const InstrumentId& id, std::uint32_t change_no) {
    const std::uint32_t number = index_.find_or_add(id);
    if (number == InstrumentIndex::kNone) {
        ++untracked_;
        return;
    }
    if (number == records_.size()) {
        records_.push_back({.quotes = 1, .first_change = change_no, .last_change = change_no});
        return;
    }
    ChangeRecord& record = records_[number];
    // The distance in the ring of 32-bit numbers: half of them lie ahead, half behind.
    const auto ahead = static_cast<std::int32_t>(change_no - record.last_change - 1);
    if (ahead > 0) {
        ++record.gaps;
        record.missing += static_cast<std::uint32_t>(ahead);
    } else if (ahead < 0) {
        ++record.backward;
    }
    ++record.quotes;
    record.last_change = change_no;
}

const ChangeRecord* GapTracker::find(const InstrumentId& id) const {
    const std::uint32_t number = index_.find(id);
    return number == InstrumentIndex::kNone ? nullptr : &records_[number];
}

}  // namespace kova::app
