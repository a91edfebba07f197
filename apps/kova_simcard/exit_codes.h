/** How kova-simcard ends. */
#ifndef KOVA_APPS_KOVA_SIMCARD_EXIT_CODES_H
#define KOVA_APPS_KOVA_SIMCARD_EXIT_CODES_H

namespace kova::app {

inline constexpr int kExitDone = 0;
/** The card is not there, is on already, or could not be powered. */
inline constexpr int kExitFailed = 1;
/** The command line or the scenario is wrong. */
inline constexpr int kExitRefused = 2;

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_EXIT_CODES_H
