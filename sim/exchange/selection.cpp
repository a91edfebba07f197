// Which instruments of a listing a scenario's channels receive.

#include <fnmatch.h>

#include "sim/exchange/product.h"
#include "sim/exchange/scenario.h"

namespace kova::sim {

namespace {

bool is_pattern(const std::string& text) {
    return text.find_first_of("*?[") != std::string::npos;
}

/** Whether an entry selects an instrument. Options and TAS instruments go with a product only on demand. */
bool selects(const std::string& entry, bool options, const Instrument& instrument) {
    if (is_pattern(entry)) {
        return fnmatch(entry.c_str(), instrument.id_chars.data(), 0) == 0;
    }
    if (entry == "all" || entry == instrument.product->code) {
        return options || instrument.kind == InstrumentKind::future;
    }
    return entry == instrument.id();
}

/** Marks what a choice selects and reports the entries that select nothing. */
std::vector<bool> chosen_by(const InstrumentChoice& choice, const Listing& listing,
                            std::optional<std::uint32_t> channel, std::vector<UnmatchedEntry>& unmatched) {
    std::vector<bool> chosen(listing.instruments().size());
    for (const InstrumentEntry& entry : choice.instruments) {
        bool is_matched = false;
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            if (selects(entry.text, choice.options, listing.instruments()[i])) {
                chosen[i] = true;
                is_matched = true;
            }
        }
        if (!is_matched) {
            unmatched.push_back({.channel = channel, .entry = entry});
        }
    }
    return chosen;
}

std::vector<InstrumentRef> refs_of(const std::vector<bool>& chosen, const Listing& listing) {
    std::vector<InstrumentRef> refs;
    for (std::size_t i = 0; i < chosen.size(); ++i) {
        if (chosen[i]) {
            refs.push_back(listing.instruments()[i].ref);
        }
    }
    return refs;
}

}  // namespace

Selection select(const Scenario& scenario, const Listing& listing) {
    Selection selection;
    selection.bits_.assign(listing.instruments().size(), 0U);
    std::vector<bool> heard(listing.instruments().size());
    for (std::uint32_t channel = 0; channel < kScenarioChannels; ++channel) {
        const std::vector<bool> chosen =
            chosen_by(scenario.channels[channel], listing, channel, selection.unmatched);
        for (std::size_t i = 0; i < chosen.size(); ++i) {
            selection.bits_[i] |= chosen[i] ? 1U << channel : 0U;
            heard[i] = heard[i] || chosen[i];
        }
        selection.channels[channel] = refs_of(chosen, listing);
    }
    selection.heard = refs_of(heard, listing);
    for (std::size_t i = 0; i < kPriceFaultNames.size(); ++i) {
        const auto fault = static_cast<PriceFault>(i + 1);
        for (const InstrumentRef ref :
             refs_of(chosen_by(scenario.bad_prices[i], listing, std::nullopt, selection.unmatched), listing)) {
            selection.bad_prices.push_back({.ref = ref, .fault = fault});
        }
    }
    selection.hot = refs_of(chosen_by(scenario.hot, listing, std::nullopt, selection.unmatched), listing);
    return selection;
}

MarketOptions market_options(const Scenario& scenario, const Selection& selection) {
    return {
        .seed = scenario.listing.seed,
        .moving = selection.heard,
        .hot = selection.hot,
        .hot_share = scenario.hot_share,
        .trend = scenario.trend,
        .open_time = scenario.open_time,
    };
}

SnapshotOptions snapshot_options(const Scenario& scenario, const Selection& selection) {
    SnapshotOptions options = scenario.snapshot;
    options.seed = scenario.listing.seed;
    options.bad_prices = selection.bad_prices;
    return options;
}

}  // namespace kova::sim
