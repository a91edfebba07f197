#include "kova_simcard/progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include "kova_simcard/output.h"

namespace kova::app {

namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kTerminalInterval = kSecond / 2;
constexpr std::int64_t kLineInterval = 10 * kSecond;
constexpr const char* kRewrite = "\r\033[K";

double rate_between(const ProgressSample& from, const ProgressSample& to) {
    const auto quotes = static_cast<double>(to.totals.quotes - from.totals.quotes);
    const auto nanoseconds = static_cast<double>(to.elapsed - from.elapsed);
    return nanoseconds > 0 ? quotes * static_cast<double>(kSecond) / nanoseconds : 0;
}

// Whoever watches waits for the first quote.
std::string_view shown_name_of(sim::TrafficState state) {
    return state == sim::TrafficState::kNone ? "waiting" : name_of(state);
}

}  // namespace

std::string progress_text(const ProgressSample& sample, double rate) {
    const std::int64_t seconds = sample.elapsed / kSecond;
    return fmt::format("{} {:02}:{:02}:{:02}  {:.0f} quotes/s  sent {}  lost {}  {} channel{} open",
                       shown_name_of(sample.traffic), seconds / 3600, seconds / 60 % 60, seconds % 60, rate,
                       sample.totals.sent, sample.totals.lost, sample.channels_open,
                       sample.channels_open == 1 ? "" : "s");
}

void Progress::tell(std::string_view line) {
    if (kind_ == Kind::kNone) {
        return;
    }
    write_text(file_, fmt::format("{}{}\n", is_line_open_ ? kRewrite : "", line));
    is_line_open_ = false;
}

void Progress::update(const ProgressSample& sample) {
    if (!has_shown_) {
        has_shown_ = true;
        shown_ = sample;
    }
    if (sample.traffic == sim::TrafficState::kEnded && !is_end_told_) {
        is_end_told_ = true;
        tell(progress_text(sample, rate_between({}, sample)));
        shown_ = sample;
    } else if (is_time(sample.now)) {
        show(sample);
    }
}

void Progress::end(const ProgressSample& sample, std::string_view headline) {
    tell(fmt::format("{}: {} quotes in {:.1f} s, sent {}, lost {}, unheard {}", headline, sample.totals.quotes,
                     static_cast<double>(sample.elapsed) / static_cast<double>(kSecond), sample.totals.sent,
                     sample.totals.lost, sample.totals.unheard));
}

bool Progress::is_time(std::int64_t now) const {
    const std::int64_t interval = kind_ == Kind::kTerminal ? kTerminalInterval : kLineInterval;
    return kind_ != Kind::kNone && now - shown_.now >= interval;
}

void Progress::show(const ProgressSample& sample) {
    const std::string text = progress_text(sample, rate_between(shown_, sample));
    shown_ = sample;
    if (kind_ == Kind::kLines) {
        tell(text);
        return;
    }
    write_text(file_, kRewrite + text);
    is_line_open_ = true;
}

Progress::Kind progress_kind(std::FILE* file, bool quiet) {
    if (quiet) {
        return Progress::Kind::kNone;
    }
    return isatty(fileno(file)) == 1 ? Progress::Kind::kTerminal : Progress::Kind::kLines;
}

}  // namespace kova::app
