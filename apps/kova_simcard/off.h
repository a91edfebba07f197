/** kova-simcard off. */
#ifndef KOVA_APPS_KOVA_SIMCARD_OFF_H
#define KOVA_APPS_KOVA_SIMCARD_OFF_H

#include "kova_simcard/options.h"

namespace kova::app {

/**
 * Asks the program that powers a card to power it off and waits until it has; removes the memory of a card
 * whose program was killed. The program's exit code.
 */
int power_off(const OffOptions& options);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_OFF_H
