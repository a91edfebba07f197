/**
 * The exchange's random numbers: the same seed gives the same numbers on every machine.
 */
#ifndef KOVA_SIM_EXCHANGE_RANDOM_H
#define KOVA_SIM_EXCHANGE_RANDOM_H

#include <cstdint>

namespace kova::sim {

/** Splitmix64: a counter and a mixing of its bits, a nanosecond a number. */
class Random {
 public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    /** 64 random bits. */
    std::uint64_t bits() {
        state_ += 0x9E3779B97F4A7C15U;
        std::uint64_t mixed = state_;
        mixed = (mixed ^ (mixed >> 30U)) * 0xBF58476D1CE4E5B9U;
        mixed = (mixed ^ (mixed >> 27U)) * 0x94D049BB133111EBU;
        return mixed ^ (mixed >> 31U);
    }

    /** 0 to n - 1. */
    std::uint32_t below(std::uint32_t n) { return scale(static_cast<std::uint32_t>(bits() >> 32U), n); }

    /** 32 random bits brought to 0 to n - 1. */
    static std::uint32_t scale(std::uint32_t bits, std::uint32_t n) {
        return static_cast<std::uint32_t>((std::uint64_t{bits} * n) >> 32U);
    }

 private:
    std::uint64_t state_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_RANDOM_H
