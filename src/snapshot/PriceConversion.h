/**
 * From the exchange's doubles to the integers of a row.
 *
 * A price is the double times 100, rounded half up by adding 0.5 and cutting. What no integer of the row can
 * hold becomes 0: not-a-number, infinities, and the largest finite double, which is how the exchange says that
 * there is no value.
 */
#ifndef KOVA_SNAPSHOT_PRICE_CONVERSION_H
#define KOVA_SNAPSHOT_PRICE_CONVERSION_H

#include <cstdint>

/** Cuts the fraction off; 0 when the result does not fit. Both bounds are exact doubles. */
[[nodiscard]] constexpr int32_t CutToInt32(double dValue) noexcept {
    return dValue > -2147483649.0 && dValue < 2147483648.0 ? static_cast<int32_t>(dValue) : 0;
}
[[nodiscard]] constexpr int64_t CutToInt64(double dValue) noexcept {
    return dValue >= -9223372036854775808.0 && dValue < 9223372036854775808.0 ? static_cast<int64_t>(dValue)
                                                                              : 0;
}
[[nodiscard]] constexpr uint64_t CutToUint64(double dValue) noexcept {
    return dValue > -1.0 && dValue < 18446744073709551616.0 ? static_cast<uint64_t>(dValue) : 0;
}

/** A price in hundredths. */
[[nodiscard]] constexpr int32_t ToCents(double dPrice) noexcept {
    return CutToInt32(dPrice * 100.0 + 0.5);
}
/** An amount of money in hundredths, signed or not. */
[[nodiscard]] constexpr int64_t ToCentsInt64(double dAmount) noexcept {
    return CutToInt64(dAmount * 100.0 + 0.5);
}
[[nodiscard]] constexpr uint64_t ToCentsUint64(double dAmount) noexcept {
    return CutToUint64(dAmount * 100.0 + 0.5);
}
/** A number of lots, rounded. */
[[nodiscard]] constexpr uint64_t ToLots(double dLots) noexcept {
    return CutToUint64(dLots + 0.5);
}

#endif  // KOVA_SNAPSHOT_PRICE_CONVERSION_H
