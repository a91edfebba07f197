#include "kova_quotes/summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>

namespace kova::app {

namespace {

/** Instruments with gaps told one by one. */
constexpr std::size_t kMaxGapRows = 20;

std::string_view name_of(End end) {
    switch (end) {
        case End::kCount:
            return "count";
        case End::kSeconds:
            return "seconds";
        case End::kSignal:
            return "signal";
        case End::kOutput:
            return "output";
        case End::kFailure:
            break;
    }
    return "failure";
}

std::string_view words_for(End end) {
    switch (end) {
        case End::kCount:
            return "all that were asked for";
        case End::kSeconds:
            return "the time is over";
        case End::kSignal:
            return "ended by a signal";
        case End::kOutput:
            return "ended by a failed output";
        case End::kFailure:
            break;
    }
    return "ended by a receive call that failed";
}

/** 1234567 as 1,234,567. */
std::string grouped(std::uint64_t number) {
    std::string text = fmt::format("{}", number);
    for (std::size_t i = text.size(); i > 3; i -= 3) {
        text.insert(i - 3, 1, ',');
    }
    return text;
}

std::string grouped(double number) {
    return grouped(static_cast<std::uint64_t>(number + 0.5));
}

std::string counted(std::uint64_t number, std::string_view noun) {
    return fmt::format("{} {}{}", grouped(number), noun, number == 1 ? "" : "s");
}

std::string change_line(const Summary& summary) {
    std::string line = fmt::format("{}, ", counted(summary.instruments.size(), "instrument"));
    if (summary.gaps == 0 && summary.backward == 0) {
        line += "no gap in the change numbers";
    } else {
        line += fmt::format("{} in the change numbers, {} missing, {} backward", counted(summary.gaps, "gap"),
                            grouped(summary.missing), grouped(summary.backward));
    }
    if (summary.untracked > 0) {
        line += fmt::format(" ({} of further instruments not watched)", counted(summary.untracked, "quote"));
    }
    return line + "\n";
}

std::string silent_line(const Summary& summary) {
    if (summary.silent.empty()) {
        return {};
    }
    std::string line = "no quote of";
    for (const InstrumentId& id : summary.silent) {
        line += fmt::format(" {}", id.printable());
    }
    return line + "\n";
}

std::string cost_row(std::string_view kind, const CallCost& cost) {
    if (cost.calls == 0) {
        return fmt::format("  {:<14} {:>15}\n", kind, 0);
    }
    return fmt::format("  {:<14} {:>15} {:>9} {:>9} {:>9} {:>9} {:>13}\n", kind, grouped(cost.calls),
                       grouped(cost.p50), grouped(cost.p90), grouped(cost.p99), grouped(cost.p99_9),
                       grouped(cost.max));
}

std::string cost_table(const ReceiveCosts& costs) {
    return fmt::format(
               "receive calls, nanoseconds without the callback and the clock ({:.1f} a reading pair)\n",
               costs.clock) +
           fmt::format("  {:<14} {:>15} {:>9} {:>9} {:>9} {:>9} {:>13}\n", "", "calls", "p50", "p90", "p99",
                       "p99.9", "max") +
           cost_row("with a quote", costs.with_quote) + cost_row("empty", costs.empty);
}

std::string gap_table(const Summary& summary) {
    std::vector<InstrumentChanges> worst;
    std::copy_if(summary.instruments.begin(), summary.instruments.end(), std::back_inserter(worst),
                 [](const InstrumentChanges& one) { return one.changes.gaps > 0 || one.changes.backward > 0; });
    if (worst.empty()) {
        return {};
    }
    std::stable_sort(worst.begin(), worst.end(), [](const InstrumentChanges& a, const InstrumentChanges& b) {
        return a.changes.missing > b.changes.missing;
    });
    std::string table = fmt::format("gaps by instrument\n  {:<16} {:>12} {:>12} {:>12} {:>9} {:>12} {:>9}\n",
                                    "instrument", "quotes", "first", "last", "gaps", "missing", "backward");
    for (std::size_t i = 0; i < std::min(worst.size(), kMaxGapRows); ++i) {
        const ChangeRecord& changes = worst[i].changes;
        table += fmt::format("  {:<16} {:>12} {:>12} {:>12} {:>9} {:>12} {:>9}\n", worst[i].id.printable(),
                             changes.quotes, changes.first_change, changes.last_change, changes.gaps,
                             changes.missing, changes.backward);
    }
    if (worst.size() > kMaxGapRows) {
        table += fmt::format("  and {} more\n", worst.size() - kMaxGapRows);
    }
    return table;
}

nlohmann::ordered_json cost_object(const CallCost& cost) {
    return {{"calls", cost.calls}, {"p50_ns", cost.p50},     {"p90_ns", cost.p90},
            {"p99_ns", cost.p99},  {"p99_9_ns", cost.p99_9}, {"max_ns", cost.max}};
}

}  // namespace

double Summary::quotes_per_second() const {
    return seconds > 0 ? static_cast<double>(channel_quotes) / seconds : 0;
}

Summary summarise(End end, const ReceiveLoop& loop, const QuoteIntake& intake) {
    Summary summary;
    summary.end = end;
    summary.seconds = std::chrono::duration<double>(loop.duration()).count();
    summary.channel_quotes = intake.received();
    summary.displayed = intake.displayed();
    summary.best_second = loop.best_second();
    const GapTracker& changes = intake.changes();
    summary.untracked = changes.untracked();
    for (std::size_t number = 0; number < changes.instruments(); ++number) {
        const ChangeRecord& record = changes.record(number);
        summary.gaps += record.gaps;
        summary.missing += record.missing;
        summary.backward += record.backward;
        summary.instruments.push_back({.id = changes.id(number), .changes = record});
    }
    summary.silent = intake.silent();
    if (const CostMeter* costs = loop.costs()) {
        summary.costs = {
            .with_quote = costs->with_quote(), .empty = costs->empty(), .clock = costs->pair_cost()};
    }
    return summary;
}

std::string summary_text(const Summary& summary, bool has_stats) {
    std::string text =
        fmt::format("{} in {:.1f} s, {} a second, {} displayed: {}\n", counted(summary.channel_quotes, "quote"),
                    summary.seconds, grouped(summary.quotes_per_second()), grouped(summary.displayed),
                    words_for(summary.end));
    text += change_line(summary);
    text += silent_line(summary);
    if (has_stats) {
        if (summary.best_second > 0) {
            text += fmt::format("busiest second: {}\n",
                                counted(static_cast<std::uint64_t>(summary.best_second + 0.5), "quote"));
        }
        text += gap_table(summary);
        if (summary.costs) {
            text += cost_table(*summary.costs);
        }
    }
    return text;
}

std::string summary_json(const Summary& summary) {
    nlohmann::ordered_json json{{"end", name_of(summary.end)},
                                {"seconds", summary.seconds},
                                {"channel_quotes", summary.channel_quotes},
                                {"displayed", summary.displayed},
                                {"quotes_per_second", summary.quotes_per_second()},
                                {"best_second", summary.best_second},
                                {"gaps", summary.gaps},
                                {"missing", summary.missing},
                                {"backward", summary.backward},
                                {"untracked", summary.untracked}};
    auto& instruments = json["instruments"] = nlohmann::ordered_json::array();
    for (const auto& [id, changes] : summary.instruments) {
        instruments.push_back({{"inst_id", id.printable()},
                               {"quotes", changes.quotes},
                               {"first_change", changes.first_change},
                               {"last_change", changes.last_change},
                               {"gaps", changes.gaps},
                               {"missing", changes.missing},
                               {"backward", changes.backward}});
    }
    if (summary.costs) {
        json["receive_calls"] = {{"with_quote", cost_object(summary.costs->with_quote)},
                                 {"empty", cost_object(summary.costs->empty)},
                                 {"clock_ns", summary.costs->clock}};
    }
    return json.dump(2) + "\n";
}

std::string write_summary(const std::string& path, const Summary& summary) {
    const std::string text = summary_json(summary);
    std::FILE* file = std::fopen(path.c_str(), "we");
    if (file == nullptr) {
        return std::strerror(errno);
    }
    const bool is_written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    const int write_error = errno;
    if (std::fclose(file) != 0) {
        return std::strerror(errno);
    }
    return is_written ? "" : std::strerror(write_error);
}

}  // namespace kova::app
