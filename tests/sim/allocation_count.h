/** The allocations of this test program, counted and made to fail: operator new is replaced. */
#ifndef KOVA_TESTS_SIM_ALLOCATION_COUNT_H
#define KOVA_TESTS_SIM_ALLOCATION_COUNT_H

#include <cstdint>

namespace kova::sim {

/** Calls of operator new so far, by this thread. */
std::uint64_t allocation_count();

/** What operator new has given out and nobody has given back, by and to this thread. */
std::int64_t allocations_alive();

/** While it lives, the n-th call of operator new (1 is the next) by this thread fails, and no other. */
class FailNthAllocation {
 public:
    explicit FailNthAllocation(std::uint64_t n);
    ~FailNthAllocation();
    FailNthAllocation(const FailNthAllocation&) = delete;
    FailNthAllocation& operator=(const FailNthAllocation&) = delete;

    /** Whether that call has come. */
    [[nodiscard]] bool has_failed() const;
};

}  // namespace kova::sim

#endif  // KOVA_TESTS_SIM_ALLOCATION_COUNT_H
