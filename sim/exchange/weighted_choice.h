/**
 * Picks numbers with given weights in constant time.
 */
#ifndef KOVA_SIM_EXCHANGE_WEIGHTED_CHOICE_H
#define KOVA_SIM_EXCHANGE_WEIGHTED_CHOICE_H

#include <cstdint>
#include <span>
#include <vector>

#include "sim/exchange/random.h"

namespace kova::sim {

/** An alias table: each slot is shared by at most two numbers. */
class WeightedChoice {
 public:
    /** Throws std::invalid_argument unless some weight is above 0 and none is below or not finite. */
    explicit WeightedChoice(std::span<const double> weights);

    /** An index of `weights`, as often as its weight says. */
    std::uint32_t pick(Random& random) const {
        const std::uint64_t bits = random.bits();
        const std::uint32_t slot =
            Random::scale(static_cast<std::uint32_t>(bits >> 32U), static_cast<std::uint32_t>(slots_.size()));
        const Slot& chosen = slots_[slot];
        return static_cast<std::uint32_t>(bits) < chosen.own_share ? slot : chosen.other;
    }

 private:
    struct Slot {
        std::uint32_t own_share;  // of 2^32, what belongs to the slot's own number
        std::uint32_t other;      // whose the rest is
    };
    std::vector<Slot> slots_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_WEIGHTED_CHOICE_H
