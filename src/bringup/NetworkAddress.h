/**
 * Addresses of the configuration as the card's registers take them.
 */
#ifndef KOVA_BRINGUP_NETWORK_ADDRESS_H
#define KOVA_BRINGUP_NETWORK_ADDRESS_H

#include <array>
#include <cstdint>

/** Bytes of a MAC address, first one first. */
using MacBytes = std::array<uint32_t, 6>;

/** Reads six two-digit hexadecimal bytes separated by colons; what cannot be read is 0. */
[[nodiscard]] MacBytes ParseMac(const char* szMac) noexcept;

/** Bytes 0 and 1 of a MAC address. */
[[nodiscard]] uint32_t MacHighWord(const MacBytes& refMac) noexcept;

/**
 * Bytes 2 to 5 of a MAC address, `nAdded` added to the last one. A sum above 0xFF reaches into the bit next to
 * it and is merged there, not carried: the card's groups are told apart in the last byte alone.
 */
[[nodiscard]] uint32_t MacLowWord(const MacBytes& refMac, uint32_t nAdded) noexcept;

/** A dotted IPv4 address in host order; 0xFFFFFFFF for a text that is none. */
[[nodiscard]] uint32_t ParseIp(const char* szIp) noexcept;

#endif  // KOVA_BRINGUP_NETWORK_ADDRESS_H
