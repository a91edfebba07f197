/** What kova-simcard tells while a card is on. */
#ifndef KOVA_APPS_KOVA_SIMCARD_PROGRESS_H
#define KOVA_APPS_KOVA_SIMCARD_PROGRESS_H

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "kova_simcard/traffic.h"

namespace kova::app {

/** A look at a card that is on. */
struct ProgressSample {
    std::int64_t now = 0;      // nanoseconds
    std::int64_t elapsed = 0;  // nanoseconds of traffic
    sim::TrafficState traffic = sim::TrafficState::kNone;
    TrafficTotals totals;
    std::uint32_t channels_open = 0;
};

/** One line about a sample. `rate` is in quotes a second. */
[[nodiscard]] std::string progress_text(const ProgressSample& sample, double rate);

/**
 * On a terminal one line that is rewritten in place, otherwise a line every ten seconds; in both cases one when
 * the traffic ends.
 */
class Progress {
 public:
    enum class Kind { kNone, kLines, kTerminal };

    /** @param file where to; not owned. */
    Progress(std::FILE* file, Kind kind) : file_(file), kind_(kind) {}

    /** A line that stays. */
    void tell(std::string_view line);
    /** Shows the sample when it is time to. The first one only starts the interval. */
    void update(const ProgressSample& sample);
    /** Leaves a line about the last sample behind. */
    void end(const ProgressSample& sample, std::string_view headline);

 private:
    [[nodiscard]] bool is_time(std::int64_t now) const;
    void show(const ProgressSample& sample);

    std::FILE* file_;
    Kind kind_;
    bool is_line_open_ = false;  // the terminal's line has not been ended
    bool has_shown_ = false;
    bool is_end_told_ = false;
    ProgressSample shown_;
};

/** Nothing when quiet; otherwise what suits the file. */
[[nodiscard]] Progress::Kind progress_kind(std::FILE* file, bool quiet);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_PROGRESS_H
