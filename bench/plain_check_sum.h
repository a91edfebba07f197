/** The Internet checksum as a textbook writes it: one 16-bit word after the other, the carries folded at the
 * end. */
#ifndef KOVA_BENCH_PLAIN_CHECK_SUM_H
#define KOVA_BENCH_PLAIN_CHECK_SUM_H

#include <cstddef>
#include <cstdint>

namespace kova::bench {

using CheckSum = std::uint16_t (*)(const void* buffer, std::size_t size);

/** The loop as it is written: the compiler may not turn it into vector instructions. */
[[nodiscard]] std::uint16_t plain_check_sum(const void* buffer, std::size_t size) noexcept;

/** The same loop, with what the compiler makes of it. */
[[nodiscard]] std::uint16_t vectorised_check_sum(const void* buffer, std::size_t size) noexcept;

}  // namespace kova::bench

#endif  // KOVA_BENCH_PLAIN_CHECK_SUM_H
