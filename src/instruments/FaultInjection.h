/**
 * Deliberate errors in a row, to test the card's own price protection.
 */
#ifndef KOVA_INSTRUMENTS_FAULT_INJECTION_H
#define KOVA_INSTRUMENTS_FAULT_INJECTION_H

#include <cstdint>

#include "wire/InstRow.h"

/** What is made wrong; every other number changes nothing. */
enum EErrorCase : uint16_t {
    ERROR_CASE_SWAPPED_LEVELS = 0, /**< bid1 with bid2, and ask5 with ask4 */
    ERROR_CASE_NARROW_LIMITS = 1,  /**< both limits moved towards each other */
    ERROR_CASE_EMPTY_LEVELS = 2,   /**< bid1 without a price, bid2 without a volume */
};

/**
 * Makes one kind of error.
 *
 * @param nLimitParts for narrow limits: two parts of 2 to the power of this many remain of the band. 0 widens
 * the band to twice its width, 1 leaves it, and 31 and more, whose power no int holds, change nothing.
 */
void InjectFault(SInstTableType& refRow, uint16_t nErrorCase, uint16_t nLimitParts) noexcept;

#endif  // KOVA_INSTRUMENTS_FAULT_INJECTION_H
