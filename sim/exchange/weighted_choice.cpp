#include "sim/exchange/weighted_choice.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace kova::sim {

namespace {

double total_of(std::span<const double> weights) {
    double total = 0;
    for (const double weight : weights) {
        if (!std::isfinite(weight) || weight < 0) {
            throw std::invalid_argument("a weight is below 0 or no number");
        }
        total += weight;
    }
    if (!(total > 0) || !std::isfinite(total)) {
        throw std::invalid_argument("no weight is above 0");
    }
    return total;
}

}  // namespace

WeightedChoice::WeightedChoice(std::span<const double> weights) {
    constexpr std::uint32_t whole = std::numeric_limits<std::uint32_t>::max();
    const double scale = static_cast<double>(weights.size()) / total_of(weights);

    // A slot holds a share of 1. Those below 1 are filled up from those above.
    std::vector<double> shares;
    std::vector<std::uint32_t> poor;
    std::vector<std::uint32_t> rich;
    std::uint32_t heaviest = 0;
    for (std::uint32_t i = 0; i < weights.size(); ++i) {
        shares.push_back(weights[i] * scale);
        (shares[i] < 1 ? poor : rich).push_back(i);
        if (weights[i] > weights[heaviest]) {
            heaviest = i;
        }
    }
    slots_.assign(weights.size(), Slot{.own_share = whole, .other = heaviest});
    while (!poor.empty() && !rich.empty()) {
        const std::uint32_t taker = poor.back();
        const std::uint32_t giver = rich.back();
        poor.pop_back();
        slots_[taker] = {.own_share = static_cast<std::uint32_t>(shares[taker] * whole), .other = giver};
        shares[giver] -= 1 - shares[taker];
        if (shares[giver] < 1) {
            rich.pop_back();
            poor.push_back(giver);
        }
    }
    // Rounding leaves some a hair below 1; a number that must never come is none of them.
    for (const std::uint32_t left : poor) {
        if (weights[left] == 0) {
            slots_[left].own_share = 0;
        }
    }
    for (std::uint32_t i = 0; i < weights.size(); ++i) {
        slots_[i].other = slots_[i].own_share == whole ? i : slots_[i].other;
    }
}

}  // namespace kova::sim
