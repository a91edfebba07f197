/** The commands of a running card. */
#ifndef KOVA_APPS_KOVA_SIMCARD_RUN_COMMANDS_H
#define KOVA_APPS_KOVA_SIMCARD_RUN_COMMANDS_H

#include "kova_simcard/commands.h"
#include "kova_simcard/snapshot_sender.h"
#include "kova_simcard/traffic.h"
#include "sim/card/card.h"

namespace kova::app {

/** `rate`: quotes a second from now on. */
void add_rate_command(Commands& commands, Traffic& traffic);

/** `event`: an event message to channel 0. */
void add_event_command(Commands& commands, sim::Card& card);

/** `feed`: cuts the line of a feed's quotes, joins it again. */
void add_feed_command(Commands& commands, sim::Card& card);

/** `memory`: how long the card's memory takes. */
void add_memory_command(Commands& commands, sim::Card& card);

/** `register`: what the host reads in a register. */
void add_register_command(Commands& commands, sim::Card& card);

/** `power-cycle`: the card forgets everything. */
void add_power_cycle_command(Commands& commands, sim::Card& card);

/** `impair`, `impairments`, `quirky_cuts`, `long_messages` and `prices`: what befalls the snapshots. */
void add_snapshot_commands(Commands& commands, SnapshotSender& sender);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_RUN_COMMANDS_H
