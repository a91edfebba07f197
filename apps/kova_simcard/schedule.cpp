#include "kova_simcard/schedule.h"

#include <fmt/format.h>

namespace kova::app {

namespace {

News tell(const sim::ScheduledEvent& event, const Commands& commands) {
    const sim::CommandReply reply = commands.perform(event.command);
    return {.is_error = reply.is_refused,
            .text = reply.is_refused
                        ? fmt::format("event of line {}, \"{}\": {}", event.line, event.command, reply.text)
                        : reply.text};
}

}  // namespace

std::vector<News> Schedule::step(std::int64_t now, std::chrono::milliseconds exchange_time,
                                 const Commands& commands) {
    start_ = start_.value_or(now);
    const std::chrono::nanoseconds elapsed(now - *start_);
    const auto is_due = [&](const sim::ScheduledEvent& event) {
        return event.is_exchange_time ? event.at <= exchange_time : event.at <= elapsed;
    };
    std::vector<News> news;
    for (const sim::ScheduledEvent& event : events_) {
        if (is_due(event)) {
            news.push_back(tell(event, commands));
        }
    }
    std::erase_if(events_, is_due);
    return news;
}

}  // namespace kova::app
