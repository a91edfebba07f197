/** Puts a card into the state that a finished bring-up leaves it in. */
#ifndef KOVA_APPS_KOVA_SIMCARD_PREPARE_H
#define KOVA_APPS_KOVA_SIMCARD_PREPARE_H

#include "sim/card/card.h"
#include "sim/exchange/market.h"
#include "sim/exchange/scenario.h"

namespace kova::app {

/**
 * Fills the contract tables of all four feeds with the market's instruments, subscribes the channels to what
 * the scenario selects for them, closes the tables for software, sets the instrument counts and starts both
 * cores.
 */
void prepare(sim::Card& card, const sim::Market& market, const sim::Selection& selection);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_PREPARE_H
