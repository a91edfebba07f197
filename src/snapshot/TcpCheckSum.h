/**
 * The Internet checksum (RFC 1071) of a buffer.
 */
#ifndef KOVA_SNAPSHOT_TCP_CHECK_SUM_H
#define KOVA_SNAPSHOT_TCP_CHECK_SUM_H

#include <cstddef>
#include <cstdint>

/**
 * Checksum of `length` bytes, in the byte order of the buffer: compare it with a checksum field as that lies in
 * memory. A length below 1 is an empty buffer.
 */
[[nodiscard]] uint16_t TcpCheckSum(const void* buffer, int length) noexcept;

/**
 * One's-complement sum of the 16-bit words of a buffer, not folded, for sums over several pieces. All pieces
 * but the last have even lengths.
 */
[[nodiscard]] uint64_t SumWords(const void* buffer, size_t nLength) noexcept;

/** Folds a sum of words to 16 bits. */
[[nodiscard]] constexpr uint16_t FoldSum(uint64_t nSum) noexcept {
    nSum = (nSum >> 32) + (nSum & 0xFFFFFFFF);
    nSum = (nSum >> 32) + (nSum & 0xFFFFFFFF);
    nSum = (nSum >> 16) + (nSum & 0xFFFF);
    nSum = (nSum >> 16) + (nSum & 0xFFFF);
    return static_cast<uint16_t>(nSum);
}

#endif  // KOVA_SNAPSHOT_TCP_CHECK_SUM_H
