/**
 * What a function interposed by this program hides.
 */
#ifndef KOVA_TESTS_SUPPORT_NEXT_DEFINITION_H
#define KOVA_TESTS_SUPPORT_NEXT_DEFINITION_H

#include <dlfcn.h>

#include <cstdlib>

namespace kova::test {

/** The definition of the name behind this program's own; ends the program when there is none. */
template <typename Function>
Function* next_definition(const char* name) {
    auto* const function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
    if (function == nullptr) {
        std::abort();
    }
    return function;
}

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_NEXT_DEFINITION_H
