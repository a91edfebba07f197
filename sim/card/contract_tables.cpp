#include "sim/card/contract_tables.h"

#include <atomic>
#include <cstddef>

#include "sim/card/registers.h"

namespace kova::sim {

namespace {

constexpr std::uint32_t kRegistersPerTable = 4;
constexpr std::uint32_t kClosingData = 1;

// The four registers of a table, by their distance from its first one.
enum Role : std::uint32_t { kWriteAddress = 0, kWriteData = 1, kReadAddress = 2, kReadData = 3 };

static_assert(REG_SHFE_TABLE_WDATA - REG_SHFE_TABLE_WADDR == kWriteData);
static_assert(REG_SHFE_TABLE_RADDR - REG_SHFE_TABLE_WADDR == kReadAddress);
static_assert(REG_SHFE_TABLE_RDATA - REG_SHFE_TABLE_WADDR == kReadData);
static_assert(REG_INE_TABLE_WADDR - REG_SHFE_TABLE_WADDR == kRegistersPerTable);

// SHFE and INE of one depth share a core, and the 4PS core is the second one.
constexpr EMDQPDataType feed_of(std::uint32_t number) {
    const std::uint32_t offset = number - REG_SHFE_TABLE_WADDR;
    const std::uint32_t is_deep = offset / REG_CORE_STRIDE;
    const std::uint32_t is_ine = offset % REG_CORE_STRIDE / kRegistersPerTable;
    return static_cast<EMDQPDataType>(is_ine * 2 + is_deep);
}

static_assert(feed_of(0x11000) == SHFE_2PS && feed_of(0x21000) == SHFE_4PS);
static_assert(feed_of(0x11007) == INE_2PS && feed_of(0x21007) == INE_4PS);

constexpr std::uint32_t first_register_of(EMDQPDataType feed) {
    return REG_SHFE_TABLE_WADDR + (feed == SHFE_4PS || feed == INE_4PS ? REG_CORE_STRIDE : 0) +
           (feed == INE_2PS || feed == INE_4PS ? kRegistersPerTable : 0);
}

static_assert(feed_of(first_register_of(SHFE_4PS)) == SHFE_4PS &&
              feed_of(first_register_of(INE_2PS)) == INE_2PS);

struct Table {
    CardMemory& memory;
    EMDQPDataType feed;

    [[nodiscard]] TablePort& port() const { return memory.table_ports[static_cast<std::size_t>(feed)]; }
    [[nodiscard]] bool is_closed() const { return port().is_closed.load(std::memory_order_relaxed) != 0; }
    [[nodiscard]] bool has(std::uint32_t address) const {
        return address < table_row_count(feed) * INST_ROW_WORDS;
    }
    // Quotes are routed by the rows meanwhile, so a word is never half written.
    [[nodiscard]] std::atomic_ref<std::uint32_t> word(std::uint32_t address) const {
        return std::atomic_ref(reinterpret_cast<std::uint32_t*>(table_rows(memory.tables, feed))[address]);
    }
    [[nodiscard]] std::uint32_t write_data() const {
        const auto& written = memory.registers.written[first_register_of(feed) + kWriteData];
        return static_cast<std::uint32_t>(written.load(std::memory_order_relaxed));
    }
    void present(std::uint32_t value) const {
        memory.registers.readable[first_register_of(feed) + kReadData].store(value, std::memory_order_relaxed);
    }
    // What was presented before is no way to read a closed table.
    void close() const {
        port().is_closed.store(1, std::memory_order_relaxed);
        present(0);
    }
};

void count(std::atomic<std::uint64_t>& counter) {
    counter.fetch_add(1, std::memory_order_relaxed);
}

void write_word(const Table& table, std::uint32_t address) {
    const std::uint32_t data = table.write_data();
    if (table.has(address) && !table.is_closed()) [[likely]] {
        table.word(address).store(data, std::memory_order_release);
    } else if (address == TABLE_CLOSE_ADDRESS && data == kClosingData) {
        table.close();
    } else {
        count(table.has(address) ? table.port().refused_writes : table.port().outside);
    }
}

void read_word(const Table& table, std::uint32_t address) {
    if (!table.has(address)) {
        count(table.port().outside);
        table.present(0);
        return;
    }
    table.present(table.is_closed() ? 0 : table.word(address).load(std::memory_order_relaxed));
}

}  // namespace

void write_table_register(CardMemory& memory, std::uint32_t number, std::uint32_t value) {
    const Table table{memory, feed_of(number)};
    const std::uint32_t role = (number - REG_SHFE_TABLE_WADDR) % kRegistersPerTable;
    if (role == kReadData) {
        return;
    }
    preset_register(memory.registers, number, value);
    if (role == kWriteAddress) {
        write_word(table, value);
    } else if (role == kReadAddress) {
        read_word(table, value);
    }
}

void forget_tables(CardMemory& memory) {
    for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
        const Table table{memory, feed};
        for (std::uint32_t address = 0; table.has(address); ++address) {
            table.word(address).store(0, std::memory_order_relaxed);
        }
        table.port().refused_writes.store(0, std::memory_order_relaxed);
        table.port().outside.store(0, std::memory_order_relaxed);
    }
    open_tables(memory);
}

void open_tables(CardMemory& memory) {
    for (TablePort& port : memory.table_ports) {
        port.is_closed.store(0, std::memory_order_relaxed);
    }
}

void close_tables(CardMemory& memory) {
    for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
        Table{memory, feed}.close();
    }
}

bool is_table_open(const CardMemory& memory, EMDQPDataType feed) {
    return memory.table_ports[static_cast<std::size_t>(feed)].is_closed.load(std::memory_order_relaxed) == 0;
}

}  // namespace kova::sim
