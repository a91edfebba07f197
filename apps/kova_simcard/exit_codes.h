/** How kova-simcard ends. */
#ifndef KOVA_APPS_KOVA_SIMCARD_EXIT_CODES_H
#define KOVA_APPS_KOVA_SIMCARD_EXIT_CODES_H

namespace kova::app {

inline constexpr int kExitDone = 0;
/** The card is not there, is on already, could not be powered, or its program did not do what it was told. */
inline constexpr int kExitFailed = 1;
/** The command line, the scenario or the capture is wrong. */
inline constexpr int kExitRefused = 2;

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_EXIT_CODES_H
