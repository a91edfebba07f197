/**
 * Versions of the library and of the card's firmware, and whether they belong together.
 */
#ifndef KOVA_BRINGUP_SYS_VERSION_H
#define KOVA_BRINGUP_SYS_VERSION_H

#include <cstdint>

/** Version of the library, as the card is told it. */
constexpr const char* SOFT_VERSION = "1.1.1.33";

/** The card's verdict on the software version. */
enum EVersionCheck : uint32_t {
    VERSION_NOT_WRITTEN = 0, /**< the version did not arrive as it was written */
    VERSION_ACCEPTED = 1,
    VERSION_TOO_OLD = 2,
};

/**
 * A version of four hexadecimal numbers, each as one byte, the first in the lowest; numbers that are missing
 * are 0.
 */
[[nodiscard]] uint32_t PackSoftVersion(const char* szVersion) noexcept;

#endif  // KOVA_BRINGUP_SYS_VERSION_H
