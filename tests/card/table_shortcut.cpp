#include "card/table_shortcut.h"

#include <array>
#include <cstddef>

#include "sim/card/registers.h"

namespace kova::test {

namespace {

constexpr std::uint32_t kForwarding = 0x1000;

/** One table, as its write registers see it. */
struct Table {
    std::uint32_t* words;
    std::uint32_t word_count;
    std::atomic<std::uint32_t>* is_closed;
    std::uint32_t data;  // that the next address stores
};

sim::CardMemory* allowed_memory = nullptr;
// SHFE 2PS, INE 2PS, SHFE 4PS, INE 4PS: the order of their registers.
std::array<Table, 4> tables;

Table table_of(EMDQPDataType feed) {
    return {.words = reinterpret_cast<std::uint32_t*>(sim::table_rows(allowed_memory->tables, feed)),
            .word_count = sim::table_row_count(feed) * INST_ROW_WORDS,
            .is_closed = &allowed_memory->table_ports[static_cast<std::size_t>(feed)].is_closed,
            .data = 0};
}

}  // namespace

void TableShortcut::allow(sim::CardMemory* memory) {
    allowed_memory = memory;
    is_due_ = false;
    is_taken_ = false;
    if (memory != nullptr) {
        tables = {table_of(SHFE_2PS), table_of(INE_2PS), table_of(SHFE_4PS), table_of(INE_4PS)};
    }
}

void TableShortcut::wrote(std::uint32_t number, std::uint64_t value) {
    is_due_ = allowed_memory != nullptr && number == kForwarding && value == 0;
}

bool TableShortcut::write(std::uint32_t number, std::uint32_t value) {
    const std::uint32_t in_core = number & 0xFFFF;
    const std::uint32_t core = number >> 16;
    if ((in_core & ~5U) != 0x1000 || (core != 1 && core != 2)) {
        is_taken_ = false;
        return false;
    }
    Table& table = tables[(core - 1) * 2 + (in_core & 4) / 4];
    if ((in_core & 1) != 0) {
        table.data = value;
        return true;
    }
    if (value >= table.word_count || table.is_closed->load(std::memory_order_relaxed) != 0) {
        // The card knows what that means.
        sim::preset_register(allowed_memory->registers, number + 1, table.data);
        is_taken_ = false;
        return false;
    }
    table.words[value] = table.data;
    return true;
}

}  // namespace kova::test
