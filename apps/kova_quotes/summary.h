/**
 * What a run of kova-quotes came to, for people and for programs.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_SUMMARY_H
#define KOVA_APPS_KOVA_QUOTES_SUMMARY_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kova_quotes/cost_meter.h"
#include "kova_quotes/gap_tracker.h"
#include "kova_quotes/quote_intake.h"
#include "kova_quotes/receive_loop.h"

namespace kova::app {

struct ReceiveCosts {
    CallCost with_quote;
    CallCost empty;
    double clock = 0; /**< cost of reading the counter twice, already taken off; nanoseconds */
};

struct InstrumentChanges {
    InstrumentId id;
    ChangeRecord changes;
};

struct Summary {
    End end = End::kFailure;
    double seconds = 0;
    std::uint64_t channel_quotes = 0; /**< all that came over the channel */
    std::uint64_t displayed = 0;      /**< those of the chosen instruments */
    double best_second = 0;           /**< most quotes in one second */
    std::uint64_t gaps = 0;
    std::uint64_t missing = 0;
    std::uint64_t backward = 0;
    std::uint64_t untracked = 0;                /**< quotes whose change numbers could not be watched */
    std::vector<InstrumentChanges> instruments; /**< in the order in which they turned up */
    std::vector<InstrumentId> silent;           /**< chosen instruments without a quote */
    std::optional<ReceiveCosts> costs;

    [[nodiscard]] double quotes_per_second() const;
};

Summary summarise(End end, const ReceiveLoop& loop, const QuoteIntake& intake);

/** Lines for people, each with its line feed; with rates, gaps by instrument and costs if `has_stats`. */
std::string summary_text(const Summary& summary, bool has_stats);

/** One JSON object with a line feed behind it. */
std::string summary_json(const Summary& summary);

/** Replaces the file. Empty when it was written, otherwise what went wrong. */
std::string write_summary(const std::string& path, const Summary& summary);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_SUMMARY_H
