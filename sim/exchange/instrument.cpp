#include "sim/exchange/instrument.h"

#include "wire/InstRow.h"

namespace kova::sim {

std::uint32_t subscription_word(const Instrument& instrument, std::uint32_t channels) {
    if (channels == 0) {
        return 0;
    }
    const std::uint32_t tas = instrument.kind == InstrumentKind::tas ? INST_CONFIG_TAS : 0;
    return channels | INST_CONFIG_SUBSCRIBED | tas;
}

}  // namespace kova::sim
