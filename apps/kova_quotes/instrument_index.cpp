#include "kova_quotes/instrument_index.h"

#include <bit>
#include <cstring>

namespace kova::app {

namespace {

std::uint64_t hash(const InstrumentId& id) {
    std::uint64_t low = 0;
    std::uint64_t high = 0;
    std::memcpy(&low, id.bytes.data(), sizeof low);
    std::memcpy(&high, id.bytes.data() + sizeof low, sizeof high);
    std::uint64_t mixed = (low ^ std::rotl(high, 29)) * 0x9E3779B97F4A7C15ULL;
    mixed = (mixed ^ (mixed >> 32)) * 0xD6E8FEB86659FD93ULL;
    return mixed ^ (mixed >> 32);
}

}  // namespace

InstrumentIndex::InstrumentIndex(std::size_t max_instruments)
    : max_instruments_(max_instruments), slots_(std::bit_ceil(2 * max_instruments + 2), kNone) {
    ids_.reserve(max_instruments);
}

std::uint32_t InstrumentIndex::find(const InstrumentId& id) const {
    return slots_[slot_of(id)];
}

std::uint32_t InstrumentIndex::find_or_add(const InstrumentId& id) {
    const std::size_t slot = slot_of(id);
    if (slots_[slot] == kNone && ids_.size() < max_instruments_) {
        slots_[slot] = static_cast<std::uint32_t>(ids_.size());
        ids_.push_back(id);
    }
    return slots_[slot];
}

std::size_t InstrumentIndex::slot_of(const InstrumentId& id) const {
    const std::size_t mask = slots_.size() - 1;
    std::size_t slot = hash(id) & mask;
    // At most half of the slots are ever taken, so the walk ends.
    while (slots_[slot] != kNone && ids_[slots_[slot]] != id) {
        slot = (slot + 1) & mask;
    }
    return slot;
}

}  // namespace kova::app
