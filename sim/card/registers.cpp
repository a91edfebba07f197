#include "sim/card/registers.h"

#include "sim/card/contract_tables.h"
#include "wire/RegisterMap.h"

namespace kova::sim {

namespace {

// What a powered card tells of itself.
constexpr std::uint32_t kBuildDate = 0x20260420;
constexpr std::uint32_t kBuildVersion = 0x00010121;
constexpr std::uint32_t kHardwareVersion = 0x20260420;

constexpr std::uint32_t kForwardingOpen = 0xF;

// Registers whose read side is another register than the write side.
constexpr bool is_split(std::uint32_t number) {
    return number == REG_HW_VERSION;
}

constexpr std::uint32_t core_start_register(EMDQPDataType feed) {
    return REG_CORE_START + (feed == SHFE_4PS || feed == INE_4PS ? REG_CORE_STRIDE : 0);
}

constexpr std::uint32_t packet_register(EMDQPDataType feed) {
    switch (feed) {
        case SHFE_2PS:
            return REG_SHFE2PS_PKTS;
        case SHFE_4PS:
            return REG_SHFE4PS_PKTS;
        case INE_2PS:
            return REG_INE2PS_PKTS;
        case INE_4PS:
            return REG_INE4PS_PKTS;
    }
    return REG_EVENT_PKTS;
}

void store(RegisterFile& registers, std::uint32_t number, std::uint32_t value) {
    registers.written[number].store(value, std::memory_order_relaxed);
    if (!is_split(number)) {
        registers.readable[number].store(value, std::memory_order_relaxed);
    }
}

// An initialisation ends what an earlier bring-up has started: the feeds, the snapshot stream, the tables'
// rest. What stands in the tables and the checksum of the configuration survive it.
void begin_initialisation(CardMemory& memory) {
    store(memory.registers, REG_CORE_START, 0);
    store(memory.registers, REG_CORE_START + REG_CORE_STRIDE, 0);
    store(memory.registers, REG_INIT_MASK, 0);
    open_tables(memory);
}

// Whoever feeds the stream tells by the count that it was opened anew.
void set_forwarding(CardMemory& memory, std::uint32_t value) {
    if (value == kForwardingOpen && !is_forwarding(memory.registers)) {
        memory.forwarding.openings.fetch_add(1, std::memory_order_relaxed);
    }
}

// What the card does about a write before the register holds the value.
void act_on(CardMemory& memory, std::uint32_t number, std::uint32_t value) {
    switch (number) {
        case REG_INIT_TRIGGER:
            if (value == 1) {
                begin_initialisation(memory);
            }
            break;
        case REG_INIT_MASK:
            set_forwarding(memory, value);
            break;
        default:
            break;
    }
}

}  // namespace

void power_up_registers(RegisterFile& registers) {
    preset_register(registers, REG_BUILD_DATE, kBuildDate);
    preset_register(registers, REG_BUILD_VERSION, kBuildVersion);
    registers.readable[REG_HW_VERSION].store(kHardwareVersion, std::memory_order_relaxed);
}

void write_register(CardMemory& memory, std::uint32_t number, std::uint32_t value) {
    if (is_table_register(number)) {
        write_table_register(memory, number, value);
        return;
    }
    act_on(memory, number, value);
    store(memory.registers, number, value);
}

std::uint64_t read_register(const CardMemory& memory, std::uint32_t number) {
    return memory.registers.readable[number].load(std::memory_order_relaxed);
}

void preset_register(RegisterFile& registers, std::uint32_t number, std::uint64_t value) {
    registers.written[number].store(value, std::memory_order_relaxed);
    registers.readable[number].store(value, std::memory_order_relaxed);
}

bool is_core_started(const RegisterFile& registers, EMDQPDataType feed) {
    return registers.written[core_start_register(feed)].load(std::memory_order_relaxed) == 1;
}

bool is_forwarding(const RegisterFile& registers) {
    return registers.written[REG_INIT_MASK].load(std::memory_order_relaxed) == kForwardingOpen;
}

void count_packet(RegisterFile& registers, EMDQPDataType feed) {
    registers.readable[packet_register(feed)].fetch_add(1, std::memory_order_relaxed);
}

}  // namespace kova::sim
