/**
 * The instrument file for operators: its name and its lines.
 */
#ifndef KOVA_INSTRUMENTS_STATIC_INFO_TEXT_H
#define KOVA_INSTRUMENTS_STATIC_INFO_TEXT_H

#include <cstdint>
#include <ctime>

#include "util/UstCharArray.h"
#include "wire/InstRow.h"

/** Heading of the file. */
constexpr const char* STATIC_INFO_HEADER =
    "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,codec_price,"
    "vol_multiple,upper_limit_price,lower_limit_price";

/** One file for each half of a day: until 16:59, and from 17:00 on. */
[[nodiscard]] CUstCharArray<64> StaticInfoFileName(const std::tm& refLocalTime);

/** An instrument's line, without its end. */
struct SStaticInfoLine {
    char szText[256] = {};
};
[[nodiscard]] SStaticInfoLine StaticInfoLine(uint32_t nIndex, const SInstTableType& refRow);

#endif  // KOVA_INSTRUMENTS_STATIC_INFO_TEXT_H
