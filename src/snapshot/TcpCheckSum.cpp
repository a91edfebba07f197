#include "snapshot/TcpCheckSum.h"

#include <cstring>

namespace {

constexpr size_t BLOCK_SIZE = 64;

/** Adds 64 bytes to a sum: one chain of adds, each of which takes along the carry of the one before. */
inline uint64_t AddBlock(uint64_t nSum, const uint8_t* lpBlock) {
    // A compiler does not keep a carry in the flags from one addition to the next.
    asm("addq   (%[block]), %[sum]\n\t"
        "adcq  8(%[block]), %[sum]\n\t"
        "adcq 16(%[block]), %[sum]\n\t"
        "adcq 24(%[block]), %[sum]\n\t"
        "adcq 32(%[block]), %[sum]\n\t"
        "adcq 40(%[block]), %[sum]\n\t"
        "adcq 48(%[block]), %[sum]\n\t"
        "adcq 56(%[block]), %[sum]\n\t"
        "adcq $0, %[sum]"
        : [sum] "+r"(nSum)
        : [block] "r"(lpBlock), "m"(*reinterpret_cast<const uint8_t(*)[BLOCK_SIZE]>(lpBlock))
        : "cc");
    return nSum;
}

inline uint64_t AddWithCarry(uint64_t nSum, uint64_t nWord) {
    nSum += nWord;
    return nSum + static_cast<uint64_t>(nSum < nWord);
}

/** The next bytes, at most eight, as the low bytes of a zero-padded word. */
inline uint64_t LoadWord(const uint8_t* lpBytes, size_t nLength) {
    uint64_t nWord = 0;
    std::memcpy(&nWord, lpBytes, nLength);
    return nWord;
}

}  // namespace

uint64_t SumWords(const void* buffer, size_t nLength) noexcept {
    const auto* lpBytes = static_cast<const uint8_t*>(buffer);
    // Two chains that know nothing of each other run side by side.
    uint64_t nSum = 0;
    uint64_t nOtherSum = 0;
    for (; nLength >= 2 * BLOCK_SIZE; nLength -= 2 * BLOCK_SIZE, lpBytes += 2 * BLOCK_SIZE) {
        nSum = AddBlock(nSum, lpBytes);
        nOtherSum = AddBlock(nOtherSum, lpBytes + BLOCK_SIZE);
    }
    for (; nLength >= sizeof(uint64_t); nLength -= sizeof(uint64_t), lpBytes += sizeof(uint64_t)) {
        nSum = AddWithCarry(nSum, LoadWord(lpBytes, sizeof(uint64_t)));
    }
    if (nLength > 0) {
        nOtherSum = AddWithCarry(nOtherSum, LoadWord(lpBytes, nLength));
    }
    return AddWithCarry(nSum, nOtherSum);
}

uint16_t TcpCheckSum(const void* buffer, int length) noexcept {
    return static_cast<uint16_t>(~FoldSum(SumWords(buffer, length > 0 ? static_cast<size_t>(length) : 0)));
}
