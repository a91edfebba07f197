/** The loop behind plain_check_sum.h, compiled twice with different flags. */
#ifndef KOVA_BENCH_PLAIN_CHECK_SUM_LOOP_H
#define KOVA_BENCH_PLAIN_CHECK_SUM_LOOP_H

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kova::bench {
namespace {

inline std::uint16_t check_sum_loop(const void* buffer, std::size_t size) noexcept {
    const auto* bytes = static_cast<const std::uint8_t*>(buffer);
    std::uint32_t sum = 0;
    for (; size > 1; size -= 2, bytes += 2) {
        std::uint16_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        sum += word;
    }
    if (size == 1) {
        sum += *bytes;
    }
    while (sum >> 16 != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<std::uint16_t>(~sum);
}

}  // namespace
}  // namespace kova::bench

#endif  // KOVA_BENCH_PLAIN_CHECK_SUM_LOOP_H
