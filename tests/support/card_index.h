/**
 * Simulated cards of this machine that no other test process uses.
 */
#ifndef KOVA_TESTS_SUPPORT_CARD_INDEX_H
#define KOVA_TESTS_SUPPORT_CARD_INDEX_H

#include <unistd.h>

#include <cstdint>

namespace kova::test {

/**
 * Index of the n-th card of this process, n from 0 to 4.
 *
 * A device name of the configuration holds 16 bits, so that some thousand processes later an index comes again;
 * the first indices are left to people.
 */
inline std::uint32_t own_card(std::uint32_t n = 0) {
    constexpr std::uint32_t kFirst = 256;
    constexpr std::uint32_t kCardsOfAProcess = 5;
    constexpr std::uint32_t kProcesses = (65'536 - kFirst) / kCardsOfAProcess;
    return kFirst + static_cast<std::uint32_t>(getpid()) % kProcesses * kCardsOfAProcess + n;
}

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_CARD_INDEX_H
