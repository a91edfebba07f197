/**
 * Something that happens now and then, at a rate that can be set.
 */
#ifndef KOVA_SIM_EXCHANGE_CHANCE_H
#define KOVA_SIM_EXCHANGE_CHANCE_H

#include <cstdint>
#include <stdexcept>

#include "sim/exchange/random.h"

namespace kova::sim {

class Chance {
 public:
    /** Never. */
    Chance() = default;

    /** @param rate 0 (never) to 1 (always). Throws std::invalid_argument for anything else. */
    explicit Chance(double rate) : rate_(rate) {
        if (!(rate >= 0 && rate <= 1)) {
            throw std::invalid_argument("must be a number from 0 to 1");
        }
        threshold_ = static_cast<std::uint64_t>(rate * kAlways);
    }

    /** Whether it happens this time; takes one number of `random` whatever the rate. */
    [[nodiscard]] bool strikes(Random& random) const { return (random.bits() >> 32U) < threshold_; }
    [[nodiscard]] double rate() const { return rate_; }

 private:
    static constexpr double kAlways = 4294967296;  // 2^32

    double rate_ = 0;
    std::uint64_t threshold_ = 0;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_CHANCE_H
