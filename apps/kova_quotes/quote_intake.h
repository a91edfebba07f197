/**
 * What happens to each quote: counted, its change number noted, chosen or not, written.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_QUOTE_INTAKE_H
#define KOVA_APPS_KOVA_QUOTES_QUOTE_INTAKE_H

#include <cstdint>
#include <vector>

#include "KovaShfeMdApi.h"
#include "kova_quotes/gap_tracker.h"
#include "kova_quotes/instrument_index.h"
#include "kova_quotes/quote_writer.h"

namespace kova::app {

/** Bounded work and no allocation per quote. Change numbers are watched for all quotes of the channel. */
class QuoteIntake {
 public:
    /**
     * @param chosen the instruments to display; none: all.
     * @param writer not owned.
     */
    QuoteIntake(const std::vector<InstrumentId>& chosen, QuoteWriter& writer);

    void take(const KovaShfeMdType& quote);

    [[nodiscard]] std::uint64_t received() const { return received_; }
    [[nodiscard]] std::uint64_t displayed() const { return displayed_; }
    [[nodiscard]] const GapTracker& changes() const { return changes_; }

    /** The chosen instruments of which no quote came. */
    [[nodiscard]] std::vector<InstrumentId> silent() const;

 private:
    InstrumentIndex chosen_;
    QuoteWriter& writer_;
    GapTracker changes_;
    std::uint64_t received_ = 0;
    std::uint64_t displayed_ = 0;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_QUOTE_INTAKE_H
