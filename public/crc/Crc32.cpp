#include "crc/Crc32.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

#include "crc/Crc32Tables.h"

static_assert(std::endian::native == std::endian::little, "words are read as they lie in memory");

namespace {

constexpr size_t BLOCK_SIZE = 8;

uint32_t AddByte(uint32_t nCrc, uint8_t nByte, const Crc32TableType& refTable) {
    return refTable[(nCrc ^ nByte) & 0xFF] ^ (nCrc >> 8);
}

/** The four bytes of a word, each through the table of its position; the lowest comes first. */
uint32_t AddWord(uint32_t nWord, const Crc32TableType& refTable0, const Crc32TableType& refTable1,
                 const Crc32TableType& refTable2, const Crc32TableType& refTable3) {
    return refTable0[nWord & 0xFF] ^ refTable1[(nWord >> 8) & 0xFF] ^ refTable2[(nWord >> 16) & 0xFF] ^
           refTable3[nWord >> 24];
}

uint32_t AddBlock(uint32_t nCrc, const uint8_t* lpBlock) {
    uint32_t words[2];
    static_assert(sizeof(words) == BLOCK_SIZE);
    std::memcpy(words, lpBlock, sizeof(words));
    return AddWord(nCrc ^ words[0], sctp_crc_tableil8_o88, sctp_crc_tableil8_o80, sctp_crc_tableil8_o72,
                   sctp_crc_tableil8_o64) ^
           AddWord(words[1], sctp_crc_tableil8_o56, sctp_crc_tableil8_o48, sctp_crc_tableil8_o40,
                   sctp_crc_tableil8_o32);
}

}  // namespace

int32_t CCrc32::calculate_crc32c(uint32_t& crc32c, const uint8_t* buffer, int32_t length) const {
    if (length > 3) {
        return multitable_crc32c(crc32c, buffer, length);
    }
    return singletable_crc32c(crc32c, buffer, length);
}

int32_t CCrc32::singletable_crc32c(uint32_t& crc32c, const uint8_t* buffer, int32_t length) const {
    if (buffer == nullptr || length < 1) {
        return -1;
    }
    uint32_t nCrc = crc32c;
    for (const uint8_t* lpEnd = buffer + length; buffer != lpEnd; ++buffer) {
        nCrc = AddByte(nCrc, *buffer, crc32Table);
    }
    crc32c = nCrc;
    return 0;
}

int32_t CCrc32::multitable_crc32c(uint32_t& crc32c, const uint8_t* buffer, int32_t length) const {
    // An aligned buffer still gives up its first four bytes: that costs a little and changes nothing.
    const auto to_even_word = static_cast<uint32_t>(4 - (reinterpret_cast<uintptr_t>(buffer) & 3));
    return crc32c_sb8_64_bit(crc32c, buffer, length, to_even_word);
}

int32_t CCrc32::crc32c_sb8_64_bit(uint32_t& crc, const uint8_t* p_buf, int32_t length,
                                  uint32_t init_bytes) const {
    if (p_buf == nullptr || length < 1) {
        return -1;
    }
    uint32_t nCrc = crc;
    const uint8_t* lpEnd = p_buf + length;
    const uint8_t* lpBlocks = p_buf + std::min(init_bytes, static_cast<uint32_t>(length));
    for (; p_buf != lpBlocks; ++p_buf) {
        nCrc = AddByte(nCrc, *p_buf, sctp_crc_tableil8_o32);
    }
    for (; static_cast<size_t>(lpEnd - p_buf) >= BLOCK_SIZE; p_buf += BLOCK_SIZE) {
        nCrc = AddBlock(nCrc, p_buf);
    }
    for (; p_buf != lpEnd; ++p_buf) {
        nCrc = AddByte(nCrc, *p_buf, sctp_crc_tableil8_o32);
    }
    crc = nCrc;
    return 0;
}
