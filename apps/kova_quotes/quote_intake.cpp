#include "kova_quotes/quote_intake.h"

namespace kova::app {

QuoteIntake::QuoteIntake(const std::vector<InstrumentId>& chosen, QuoteWriter& writer)
    : chosen_(chosen.size()), writer_(writer) {
    for (const InstrumentId& id : chosen) {
        chosen_.find_or_add(id);
    }
}

void QuoteIntake::take(const KovaShfeMdType& quote) {
    const InstrumentId id = InstrumentId::of(quote);
    ++received_;
    changes_.note(id, quote.change_no);
    if (chosen_.size() == 0 || chosen_.find(id) != InstrumentIndex::kNone) {
        ++displayed_;
        writer_.write(quote);
    }
}

std::vector<InstrumentId> QuoteIntake::silent() const {
    std::vector<InstrumentId> silent;
    for (std::uint32_t number = 0; number < chosen_.size(); ++number) {
        if (changes_.find(chosen_.id(number)) == nullptr) {
            silent.push_back(chosen_.id(number));
        }
    }
    return silent;
}

}  // namespace kova::app
