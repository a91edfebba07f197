/**
 * A distribution of durations in a fixed piece of memory.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_COST_HISTOGRAM_H
#define KOVA_APPS_KOVA_QUOTES_COST_HISTOGRAM_H

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace kova::app {

/**
 * Buckets that grow with the value: exact below 64, from there 32 to each power of two, so that a quantile is
 * too high by at most 1/32 of itself and never too low. Values in whatever unit the caller measures.
 */
class CostHistogram {
 public:
    void add(std::uint64_t value) {
        ++buckets_[bucket_of(value)];
        ++count_;
        if (value > max_) {
            max_ = value;
        }
    }

    [[nodiscard]] std::uint64_t count() const { return count_; }

    /** The largest value, exactly; 0 without values. */
    [[nodiscard]] std::uint64_t max() const { return max_; }

    /**
     * The value that at least `per_mille` thousandths of all values do not exceed (nearest rank), rounded up to
     * the end of its bucket but not above the largest; 0 without values.
     *
     * @param per_mille 1 to 1000; the median is 500.
     */
    [[nodiscard]] std::uint64_t quantile(unsigned per_mille) const;

 private:
    static constexpr unsigned kSubBits = 5;
    static constexpr std::uint64_t kSubBuckets = 1U << kSubBits;

    static std::size_t bucket_of(std::uint64_t value) {
        if (value < kSubBuckets) {
            return value;
        }
        const auto shift = static_cast<unsigned>(std::bit_width(value)) - kSubBits - 1;
        return shift * kSubBuckets + (value >> shift);
    }
    static std::uint64_t last_value_of(std::size_t bucket);

    std::array<std::uint64_t, (64 - kSubBits + 1) * kSubBuckets> buckets_{};
    std::uint64_t count_ = 0;
    std::uint64_t max_ = 0;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_COST_HISTOGRAM_H
