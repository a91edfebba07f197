/**
 * What kova-quotes tells the program that started it.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_EXIT_CODE_H
#define KOVA_APPS_KOVA_QUOTES_EXIT_CODE_H

namespace kova::app {

inline constexpr int kEndedNormally = 0;
inline constexpr int kStartOrOutputFailed = 1;
inline constexpr int kWrongUsage = 2;
inline constexpr int kReceiveFailed = 3;

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_EXIT_CODE_H
