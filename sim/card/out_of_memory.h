/**
 * The border to C: whoever calls the stand-ins learns by a result and errno that memory has run out, and by no
 * exception.
 */
#ifndef KOVA_SIM_CARD_OUT_OF_MEMORY_H
#define KOVA_SIM_CARD_OUT_OF_MEMORY_H

#include <cerrno>
#include <new>
#include <type_traits>
#include <utility>

namespace kova::sim {

/** What `make` returns; `failed`, null if it is not given, and ENOMEM when memory runs out meanwhile. */
template <typename Make>
[[nodiscard]] auto unless_out_of_memory(Make&& make, std::invoke_result_t<Make> failed = {})
    -> std::invoke_result_t<Make> {
    try {
        return std::forward<Make>(make)();
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        return failed;
    }
}

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_OUT_OF_MEMORY_H
