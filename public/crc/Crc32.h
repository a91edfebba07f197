/**
 * CRC-32C over a buffer, or over a stream of buffers.
 */
#ifndef KOVA_PUBLIC_CRC_CRC32_H
#define KOVA_PUBLIC_CRC_CRC32_H

#include <cstdint>

/**
 * Every operation continues the checksum it is given, so a long input can be fed in pieces. The start value and
 * the inversion at the end are the caller's: 0xFFFFFFFF both, for the usual CRC-32C.
 *
 * All return 0, or -1 and leave the checksum alone when the buffer is null or the length below 1. All give the
 * same checksum. No state: any thread.
 */
class CCrc32 {
 public:
    /** Chooses the method by the length. */
    int32_t calculate_crc32c(uint32_t& crc32c, const uint8_t* buffer, int32_t length) const;

    /** One look-up for each byte. */
    int32_t singletable_crc32c(uint32_t& crc32c, const uint8_t* buffer, int32_t length) const;

    /** Eight bytes at a time, from a four-byte boundary on. */
    int32_t multitable_crc32c(uint32_t& crc32c, const uint8_t* buffer, int32_t length) const;

    /** Eight bytes at a time behind the first init_bytes, which are taken one by one. */
    int32_t crc32c_sb8_64_bit(uint32_t& crc, const uint8_t* p_buf, int32_t length, uint32_t init_bytes) const;
};

#endif  // KOVA_PUBLIC_CRC_CRC32_H
