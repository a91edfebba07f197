/**
 * What the subscription of one channel asks of the card's registers, in its order, so that it can be made again
 * without the library. Millions of accesses, but of two kinds only, so a step stands for all accesses to a row.
 */
#ifndef KOVA_BENCH_SUBSCRIPTION_TRACE_H
#define KOVA_BENCH_SUBSCRIPTION_TRACE_H

#include <cstdint>
#include <span>
#include <vector>

#include "bench/sdk_registers.h"
#include "sim/card/sdk_calls.h"
#include "wire/Feed.h"

namespace kova::bench {

class SubscriptionTrace {
 public:
    /** The channel is taken out of a row: all words are read, what remains of the first one is written. */
    void add_removal(EMDQPDataType feed, std::uint32_t row, std::uint32_t remains);

    /** Recorded accesses that put a channel into rows. Throws std::runtime_error when they are others. */
    void add_recorded(std::span<const sim::RegisterAccess> accesses);

    /** Makes the accesses as plain calls of the SDK. */
    void replay(const SdkRegisters& registers) const;

    /** All accesses one by one, without the values of reads. */
    [[nodiscard]] std::vector<sim::RegisterAccess> accesses() const;

 private:
    struct Step {
        std::uint32_t first_word;  // address of the row
        std::uint32_t config;      // what is written there
        EMDQPDataType feed;
        bool is_removal;
    };

    // Makes every access through `target.write(number, value)` and `target.read(number)`.
    template <typename Target>
    void play(Target&& target) const;

    std::vector<Step> steps_;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_SUBSCRIPTION_TRACE_H
