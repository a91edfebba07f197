/** Counts the allocations of this test program: operator new is replaced. */
#ifndef KOVA_TESTS_SIM_ALLOCATION_COUNT_H
#define KOVA_TESTS_SIM_ALLOCATION_COUNT_H

#include <cstdint>

namespace kova::sim {

/** Calls of operator new so far, by this thread. */
std::uint64_t allocation_count();

}  // namespace kova::sim

#endif  // KOVA_TESTS_SIM_ALLOCATION_COUNT_H
