/** Instrument lists as sixteen channels have them. */
#ifndef KOVA_BENCH_CHANNEL_LISTS_H
#define KOVA_BENCH_CHANNEL_LISTS_H

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "sim/exchange/instrument.h"

namespace kova::bench {

/** Everything for channel 0; six to twenty products, contracts and single options of the listing for another.
 */
[[nodiscard]] inline std::string list_of_channel(int channel, std::span<const sim::Instrument> listed) {
    if (channel == 0) {
        return "all";
    }
    std::string list;
    const std::size_t patterns = 5 + static_cast<std::size_t>(channel);
    for (std::size_t i = 0; i < patterns; ++i) {
        const std::size_t position = (i * 997 + static_cast<std::size_t>(channel) * 331) % listed.size();
        const std::string_view id = listed[position].id();
        const std::size_t length = i % 3 == 0 ? 2 : i % 3 == 1 ? 6 : id.size();
        list.append(i == 0 ? "" : ",").append(id.substr(0, length));
    }
    return list;
}

}  // namespace kova::bench

#endif  // KOVA_BENCH_CHANNEL_LISTS_H
