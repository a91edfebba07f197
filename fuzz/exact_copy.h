/**
 * Bytes in memory of their own, to the byte: whoever reads behind them is caught.
 */
#ifndef KOVA_FUZZ_EXACT_COPY_H
#define KOVA_FUZZ_EXACT_COPY_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

namespace kova::fuzz {

using ExactBytes = std::unique_ptr<std::uint8_t[]>;

/** The first `size` bytes of something that has them; zeros behind what `bytes` holds. */
template <typename Bytes>
ExactBytes exact_copy(const Bytes& bytes, std::size_t size) {
    auto copy = std::make_unique<std::uint8_t[]>(size);
    std::copy_n(bytes.data(), std::min(size, bytes.size()), copy.get());
    return copy;
}

template <typename Bytes>
ExactBytes exact_copy(const Bytes& bytes) {
    return exact_copy(bytes, bytes.size());
}

}  // namespace kova::fuzz

#endif  // KOVA_FUZZ_EXACT_COPY_H
