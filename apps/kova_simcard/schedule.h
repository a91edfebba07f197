/** What a scenario has the running card told, each at its time. */
#ifndef KOVA_APPS_KOVA_SIMCARD_SCHEDULE_H
#define KOVA_APPS_KOVA_SIMCARD_SCHEDULE_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "kova_simcard/commands.h"
#include "kova_simcard/frame_sender.h"
#include "sim/exchange/scenario.h"

namespace kova::app {

/** Has no clock: whoever drives it says what time it is. Each event happens once, those of one step in order.
 */
class Schedule {
 public:
    explicit Schedule(std::vector<sim::ScheduledEvent> events) : events_(std::move(events)) {}

    /**
     * Tells what is due; what came of it.
     *
     * @param now nanoseconds of a clock that never goes back; the first step is the power-on.
     * @param exchange_time the exchange's time since midnight.
     */
    std::vector<News> step(std::int64_t now, std::chrono::milliseconds exchange_time, const Commands& commands);

 private:
    std::vector<sim::ScheduledEvent> events_;  // still to come
    std::optional<std::int64_t> start_;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_SCHEDULE_H
