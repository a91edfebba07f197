/**
 * The five levels a side of an instrument's row.
 */
#ifndef KOVA_SNAPSHOT_PRICE_LEVELS_H
#define KOVA_SNAPSHOT_PRICE_LEVELS_H

#include <cstdint>

#include "wire/InstRow.h"

/** Empties all ten levels. */
void ClearPriceLevels(SInstTableType& refRow) noexcept;

/**
 * Puts a level into the first slot of its side, from the best on, that is empty or not better than it; into the
 * last slot if there is none. The slot is overwritten and nothing moves: levels are expected best first.
 */
void PutBidLevel(SInstTableType& refRow, int32_t nPrice, uint32_t nVolume) noexcept;
void PutAskLevel(SInstTableType& refRow, int32_t nPrice, uint32_t nVolume) noexcept;

#endif  // KOVA_SNAPSHOT_PRICE_LEVELS_H
