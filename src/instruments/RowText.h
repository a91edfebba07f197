/**
 * A row of a contract table as a line of the log.
 */
#ifndef KOVA_INSTRUMENTS_ROW_TEXT_H
#define KOVA_INSTRUMENTS_ROW_TEXT_H

#include <cstdint>

#include "wire/InstRow.h"

/** Room for the names of all fields and the longest numbers. */
struct SRowText {
    char szText[2048] = {};
};

/** The row that is about to be made wrong on purpose. */
[[nodiscard]] SRowText FaultRowText(uint16_t nInstNo, const SInstTableType& refRow);

/** A row that goes to the card. */
[[nodiscard]] SRowText TableRowText(int nIndex, const SInstTableType& refRow);

#endif  // KOVA_INSTRUMENTS_ROW_TEXT_H
