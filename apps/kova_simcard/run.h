/** kova-simcard run. */
#ifndef KOVA_APPS_KOVA_SIMCARD_RUN_H
#define KOVA_APPS_KOVA_SIMCARD_RUN_H

#include "kova_simcard/options.h"

namespace kova::app {

/**
 * Powers a card and lets the exchange send through it until SIGTERM, SIGINT, SIGHUP, SIGPIPE or `off`; the
 * program's exit code. Progress goes to standard output, what went wrong to standard error.
 */
int run(const RunOptions& options);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_RUN_H
