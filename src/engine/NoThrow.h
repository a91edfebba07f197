/**
 * The border that no exception crosses.
 */
#ifndef KOVA_ENGINE_NO_THROW_H
#define KOVA_ENGINE_NO_THROW_H

#include <cxxabi.h>

#include <cstdint>

/**
 * Runs `operation` and returns its result, or `nFailed` when it throws.
 *
 * A thread that is being cancelled unwinds by an exception of its own, which has to pass: swallowing it ends
 * the process.
 */
// The runtime hands a cancellation over as a reference to nothing, which a sanitizer would report.
template <typename TOperation>
__attribute__((no_sanitize("undefined"))) int32_t CallNoThrow(TOperation&& operation, int32_t nFailed) {
    try {
        return operation();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return nFailed;
    }
}

#endif  // KOVA_ENGINE_NO_THROW_H
