/**
 * Short names for what stands in a trace of register accesses; the library holds the core lock in every one.
 */
#ifndef KOVA_TESTS_CARD_ACCESS_TRACE_H
#define KOVA_TESTS_CARD_ACCESS_TRACE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "sim/card/sdk_calls.h"

namespace kova::test {

using AccessTrace = std::vector<sim::RegisterAccess>;

inline sim::RegisterAccess write_of(std::uint32_t number, std::uint64_t value) {
    return {.is_write = true, .number = number, .value = value, .is_locked = true};
}
inline sim::RegisterAccess read_of(std::uint32_t number, std::uint64_t value) {
    return {.is_write = false, .number = number, .value = value, .is_locked = true};
}

/** Adds one trace to another. */
inline void append(AccessTrace& trace, const AccessTrace& more) {
    trace.insert(trace.end(), more.begin(), more.end());
}

/** Number of the first access in which two traces differ; -1 when they are equal. Long ones print badly. */
inline std::int64_t first_difference(const AccessTrace& left, const AccessTrace& right) {
    for (std::size_t i = 0; i < left.size() && i < right.size(); ++i) {
        if (left[i] != right[i]) {
            return static_cast<std::int64_t>(i);
        }
    }
    return left.size() == right.size() ? -1 : static_cast<std::int64_t>(std::min(left.size(), right.size()));
}

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_ACCESS_TRACE_H
