/**
 * Whether the prices of an instrument's book can be true: inside the limits and falling from the highest ask to
 * the lowest bid.
 */
#ifndef KOVA_INTEGRITY_PRICE_CHECK_H
#define KOVA_INTEGRITY_PRICE_CHECK_H

#include <vector>

constexpr int PRICE_CHECK_OUT_OF_LIMITS = -1;
constexpr int PRICE_CHECK_OUT_OF_ORDER = -2;

/**
 * Checks one ladder; tells the first thing that is wrong in the log.
 *
 * @param _price ask5 to ask1, then bid1 to bid5, hundredths; 0 is an empty level.
 * @return 0, PRICE_CHECK_OUT_OF_LIMITS or PRICE_CHECK_OUT_OF_ORDER.
 */
[[nodiscard]] int CheckPrice(const std::vector<int>& _price, const int& upper_limit_price,
                             const int& lower_limit_price);

#endif  // KOVA_INTEGRITY_PRICE_CHECK_H
