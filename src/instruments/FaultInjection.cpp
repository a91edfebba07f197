#include "instruments/FaultInjection.h"

namespace {

constexpr uint16_t MAX_LIMIT_PARTS = 30;

/** Arithmetic of the limits wraps like the card's: what a snapshot carries may be anything. */
int32_t WrapToInt32(int64_t nValue) {
    return static_cast<int32_t>(static_cast<uint32_t>(nValue));
}

void NarrowLimits(SInstTableType& refRow, uint16_t nLimitParts) {
    if (nLimitParts > MAX_LIMIT_PARTS) {
        return;
    }
    const int32_t nPart = 1 << nLimitParts;
    const int32_t nDiff = WrapToInt32(int64_t{refRow.upper_limit_price} - refRow.lower_limit_price);
    const int32_t nStep = WrapToInt32(int64_t{nDiff / nPart} * (nPart - 2)) / 2;
    refRow.upper_limit_price = WrapToInt32(int64_t{refRow.upper_limit_price} - nStep);
    refRow.lower_limit_price = WrapToInt32(int64_t{refRow.lower_limit_price} + nStep);
}

void SwapLevels(SInstTableType& refRow) {
    // The ask side swaps its far end and not its near one, on purpose. Packed fields have no references.
    const int32_t nBid1 = refRow.bid1_price;
    refRow.bid1_price = refRow.bid2_price;
    refRow.bid2_price = nBid1;
    const int32_t nAsk5 = refRow.ask5_price;
    refRow.ask5_price = refRow.ask4_price;
    refRow.ask4_price = nAsk5;
}

}  // namespace

void InjectFault(SInstTableType& refRow, uint16_t nErrorCase, uint16_t nLimitParts) noexcept {
    switch (nErrorCase) {
        case ERROR_CASE_SWAPPED_LEVELS:
            SwapLevels(refRow);
            break;
        case ERROR_CASE_NARROW_LIMITS:
            NarrowLimits(refRow, nLimitParts);
            break;
        case ERROR_CASE_EMPTY_LEVELS:
            refRow.bid1_price = 0;
            refRow.bid2_vol = 0;
            break;
        default:
            break;
    }
}
