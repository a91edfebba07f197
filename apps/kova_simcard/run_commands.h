/** The commands of a running card. */
#ifndef KOVA_APPS_KOVA_SIMCARD_RUN_COMMANDS_H
#define KOVA_APPS_KOVA_SIMCARD_RUN_COMMANDS_H

#include "kova_simcard/commands.h"
#include "kova_simcard/traffic.h"
#include "sim/card/card.h"

namespace kova::app {

/** `rate`: quotes a second from now on. */
void add_rate_command(Commands& commands, Traffic& traffic);

/** `event`: an event message to channel 0. */
void add_event_command(Commands& commands, sim::Card& card);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_RUN_COMMANDS_H
