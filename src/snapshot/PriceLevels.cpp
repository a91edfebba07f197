#include "snapshot/PriceLevels.h"

#include <cstddef>
#include <cstring>

namespace {

/** A level as it lies in a row. */
struct SPriceLevel {
    int32_t nPrice;
    uint32_t nVolume;
};

constexpr size_t LEVEL_COUNT = 5;

// A side's levels lie from the fifth to the first.
static_assert(offsetof(SInstTableType, bid5_price) + 4 * sizeof(SPriceLevel) ==
              offsetof(SInstTableType, bid1_price));
static_assert(offsetof(SInstTableType, ask5_price) + 4 * sizeof(SPriceLevel) ==
              offsetof(SInstTableType, ask1_price));
static_assert(offsetof(SInstTableType, bid1_price) + sizeof(SPriceLevel) ==
              offsetof(SInstTableType, ask5_price));

template <typename TIsFree>
void PutLevel(SInstTableType& refRow, size_t nBestOffset, SPriceLevel level, TIsFree isFree) {
    char* lpSlot = reinterpret_cast<char*>(&refRow) + nBestOffset;
    for (size_t i = 1; i < LEVEL_COUNT; ++i, lpSlot -= sizeof(level)) {
        int32_t nPrice;
        std::memcpy(&nPrice, lpSlot, sizeof(nPrice));
        if (nPrice <= 0 || isFree(nPrice)) {
            break;
        }
    }
    std::memcpy(lpSlot, &level, sizeof(level));
}

}  // namespace

void ClearPriceLevels(SInstTableType& refRow) noexcept {
    std::memset(reinterpret_cast<char*>(&refRow) + offsetof(SInstTableType, bid5_price), 0,
                2 * LEVEL_COUNT * sizeof(SPriceLevel));
}

void PutBidLevel(SInstTableType& refRow, int32_t nPrice, uint32_t nVolume) noexcept {
    PutLevel(refRow, offsetof(SInstTableType, bid1_price), {nPrice, nVolume},
             [nPrice](int32_t nInSlot) { return nInSlot <= nPrice; });
}

void PutAskLevel(SInstTableType& refRow, int32_t nPrice, uint32_t nVolume) noexcept {
    PutLevel(refRow, offsetof(SInstTableType, ask1_price), {nPrice, nVolume},
             [nPrice](int32_t nInSlot) { return nInSlot >= nPrice; });
}
