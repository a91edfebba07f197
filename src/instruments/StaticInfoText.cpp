#include "instruments/StaticInfoText.h"

#include <cstdio>

#include "instruments/InstPattern.h"

namespace {

/** The first hour of a day's second half. */
constexpr int PM_HOUR = 17;

}  // namespace

CUstCharArray<64> StaticInfoFileName(const std::tm& refLocalTime) {
    char szName[64];
    std::snprintf(szName, sizeof(szName), "/tmp/.shfe_%04d%02d%02d", refLocalTime.tm_year + 1900,
                  refLocalTime.tm_mon + 1, refLocalTime.tm_mday);
    CUstCharArray<64> fileName;
    fileName.UnSafeCopyFrom(szName);
    if (refLocalTime.tm_hour < PM_HOUR) {
        return fileName.Append("_am");
    }
    return fileName.Append("_pm");
}

SStaticInfoLine StaticInfoLine(uint32_t nIndex, const SInstTableType& refRow) {
    SStaticInfoLine line;
    std::snprintf(line.szText, sizeof(line.szText), "%u,%s,%u,%lu,%d,%lu,%u,%d,%d,%u,%d,%d", nIndex,
                  InstId(refRow).data(), refRow.change_no, refRow.open_interest, refRow.last_price,
                  refRow.turnover, refRow.volume, refRow.price_tick, refRow.codec_price, refRow.vol_multiple,
                  refRow.upper_limit_price, refRow.lower_limit_price);
    return line;
}
