#include "kova_quotes/cost_histogram.h"

#include <algorithm>

namespace kova::app {

std::uint64_t CostHistogram::quantile(unsigned per_mille) const {
    if (count_ == 0) {
        return 0;
    }
    const std::uint64_t rank = (count_ * per_mille + 999) / 1000;
    std::uint64_t seen = 0;
    for (std::size_t bucket = 0; bucket < buckets_.size(); ++bucket) {
        seen += buckets_[bucket];
        if (seen >= rank) {
            return std::min(last_value_of(bucket), max_);
        }
    }
    return max_;
}

std::uint64_t CostHistogram::last_value_of(std::size_t bucket) {
    if (bucket < 2 * kSubBuckets) {
        return bucket;
    }
    const std::size_t shift = bucket / kSubBuckets - 1;
    const std::uint64_t first = (bucket - shift * kSubBuckets) << shift;
    return first + ((std::uint64_t{1} << shift) - 1);
}

}  // namespace kova::app
