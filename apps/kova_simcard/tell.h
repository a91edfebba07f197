/** kova-simcard tell. */
#ifndef KOVA_APPS_KOVA_SIMCARD_TELL_H
#define KOVA_APPS_KOVA_SIMCARD_TELL_H

#include <chrono>
#include <stdexcept>
#include <string_view>

#include "kova_simcard/clock.h"
#include "kova_simcard/options.h"
#include "sim/card/card_mapping.h"
#include "sim/card/mailbox.h"

namespace kova::app {

/** Why there is no answer. */
class Unanswered : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/**
 * Asks the program that powers the card and waits for its answer. Others that ask at the same time come before
 * or after. Throws Unanswered when there is no answer in time; what the program had not begun to do then, it
 * will not do.
 */
[[nodiscard]] sim::CommandReply ask(const sim::CardMapping& card, std::string_view command,
                                    std::chrono::nanoseconds patience, Clock& clock);

/** Tells the program that powers a card and prints its answer; the program's exit code. */
int tell(const TellOptions& options);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_TELL_H
