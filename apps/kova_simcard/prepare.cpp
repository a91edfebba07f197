#include "kova_simcard/prepare.h"

#include "sim/card/contract_tables.h"
#include "sim/card/registers.h"
#include "wire/RegisterMap.h"

namespace kova::app {

namespace {

constexpr EMDQPDataType deep_feed(EMDQPDataType feed) {
    return feed == SHFE_2PS ? SHFE_4PS : INE_4PS;
}

void fill_tables(sim::Card& card, const sim::Market& market, const sim::Selection& selection) {
    for (const sim::Instrument& instrument : market.listing().instruments()) {
        const std::uint32_t channels = selection.channel_bits(market.listing(), instrument.ref);
        SInstTableType row = market.fill_row(instrument);
        row.config = sim::subscription_word(instrument, channels);
        card.set_row(instrument.ref.feed, instrument.ref.inst_no, row);
        card.set_row(deep_feed(instrument.ref.feed), instrument.ref.inst_no, row);
    }
}

}  // namespace

void prepare(sim::Card& card, const sim::Market& market, const sim::Selection& selection) {
    fill_tables(card, market, selection);
    const sim::CardLockScope scope(card.memory().lock);
    sim::close_tables(card.memory());
    sim::RegisterFile& registers = card.memory().registers;
    sim::preset_register(registers, REG_SHFE_INST_COUNT, market.listing().rows(SHFE_2PS));
    sim::preset_register(registers, REG_INE_INST_COUNT, market.listing().rows(INE_2PS));
    sim::preset_register(registers, REG_HBM2_STATUS, HBM2_STATUS_READY);
    sim::preset_register(registers, REG_CORE_START, 1);
    sim::preset_register(registers, REG_CORE_START + REG_CORE_STRIDE, 1);
}

}  // namespace kova::app
