/**
 * The tables of CRC-32C: Castagnoli's polynomial, bits reflected.
 */
#ifndef KOVA_PUBLIC_CRC_CRC32_TABLES_H
#define KOVA_PUBLIC_CRC_CRC32_TABLES_H

#include <array>
#include <cstdint>

using Crc32TableType = std::array<uint32_t, 256>;

/** What each byte adds to a checksum. */
constexpr Crc32TableType MakeCrc32Table() {
    constexpr uint32_t POLYNOMIAL = 0x82F63B78;
    Crc32TableType table{};
    for (uint32_t nByte = 0; nByte < table.size(); ++nByte) {
        uint32_t nCrc = nByte;
        for (int32_t nBit = 0; nBit < 8; ++nBit) {
            nCrc = (nCrc & 1) != 0 ? (nCrc >> 1) ^ POLYNOMIAL : nCrc >> 1;
        }
        table[nByte] = nCrc;
    }
    return table;
}

inline constexpr Crc32TableType crc32Table = MakeCrc32Table();

/** The table of a byte that stands one position further ahead. */
constexpr Crc32TableType AdvanceCrc32Table(const Crc32TableType& refTable) {
    Crc32TableType table{};
    for (uint32_t nByte = 0; nByte < table.size(); ++nByte) {
        table[nByte] = (refTable[nByte] >> 8) ^ crc32Table[refTable[nByte] & 0xFF];
    }
    return table;
}

// The number is that of the bits from the byte to the end of its block, and 32.
inline constexpr Crc32TableType sctp_crc_tableil8_o32 = crc32Table;
inline constexpr Crc32TableType sctp_crc_tableil8_o40 = AdvanceCrc32Table(sctp_crc_tableil8_o32);
inline constexpr Crc32TableType sctp_crc_tableil8_o48 = AdvanceCrc32Table(sctp_crc_tableil8_o40);
inline constexpr Crc32TableType sctp_crc_tableil8_o56 = AdvanceCrc32Table(sctp_crc_tableil8_o48);
inline constexpr Crc32TableType sctp_crc_tableil8_o64 = AdvanceCrc32Table(sctp_crc_tableil8_o56);
inline constexpr Crc32TableType sctp_crc_tableil8_o72 = AdvanceCrc32Table(sctp_crc_tableil8_o64);
inline constexpr Crc32TableType sctp_crc_tableil8_o80 = AdvanceCrc32Table(sctp_crc_tableil8_o72);
inline constexpr Crc32TableType sctp_crc_tableil8_o88 = AdvanceCrc32Table(sctp_crc_tableil8_o80);

#endif  // KOVA_PUBLIC_CRC_CRC32_TABLES_H
