/**
 * What must hold whatever the input: a fuzzer stops where it does not.
 */
#ifndef KOVA_FUZZ_REQUIRE_H
#define KOVA_FUZZ_REQUIRE_H

#include <cstdio>

namespace kova::fuzz {

inline void require(bool holds, const char* what) {
    if (holds) {
        return;
    }
    std::fprintf(stderr, "does not hold: %s\n", what);
    __builtin_trap();
}

}  // namespace kova::fuzz

#endif  // KOVA_FUZZ_REQUIRE_H
