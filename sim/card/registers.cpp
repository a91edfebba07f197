#include "sim/card/registers.h"

#include "sim/card/contract_tables.h"
#include "wire/RegisterMap.h"

namespace kova::sim {

namespace {

// What a powered card tells of itself.
constexpr std::uint32_t kBuildDate = 0x20260420;
constexpr std::uint32_t kBuildVersion = 0x00010121;

constexpr std::uint32_t kForwardingOpen = 0xF;
constexpr std::uint32_t kMemoryNotReady = 0;
// Detection intervals that mean none: of a card that has not been told one, and of a host that wants none.
constexpr std::uint32_t kNoInterval = 0;
constexpr std::uint32_t kNever = 0xFFFFFFFF;

// The card's verdict on the software's version. Before any was written it is 0.
enum Verdict : std::uint32_t { kAccepted = 1, kTooOld = 2 };

// Registers whose read side is another register than the write side.
constexpr bool is_split(std::uint32_t number) {
    return number == REG_HW_VERSION;
}

// Of a 2PS core's register, the one of the core that a feed belongs to.
constexpr std::uint32_t of_core(EMDQPDataType feed, std::uint32_t number) {
    return number + (feed == SHFE_4PS || feed == INE_4PS ? REG_CORE_STRIDE : 0);
}

// The address of a feed's multicast group on the A line.
constexpr std::uint32_t group_register(EMDQPDataType feed) {
    return of_core(feed, REG_MCAST_IP) + (feed == INE_2PS || feed == INE_4PS ? REG_MCAST_INE : 0);
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

// What the card has the host read.
void show(RegisterFile& registers, std::uint32_t number, std::uint64_t value) {
    if (!registers.is_held[number].load(std::memory_order_relaxed)) {
        registers.readable[number].store(value, std::memory_order_relaxed);
    }
}

// An initialisation ends what an earlier bring-up has started: the feeds, the snapshot stream, the tables'
// rest. What stands in the tables and the checksum of the configuration survive it. The memory is not ready
// again before its time; only one that takes none is at once.
void begin_initialisation(CardMemory& memory) {
    store(memory.registers, REG_CORE_START, 0);
    store(memory.registers, REG_CORE_START + REG_CORE_STRIDE, 0);
    store(memory.registers, REG_INIT_MASK, 0);
    open_tables(memory);
    const bool is_at_once = memory.behaviour.memory_delay.load(std::memory_order_relaxed) == 0;
    show(memory.registers, REG_HBM2_STATUS, is_at_once ? HBM2_STATUS_READY : kMemoryNotReady);
    memory.behaviour.initialisations.fetch_add(1, std::memory_order_release);
}

// The version comes with its first number in the highest byte, so that versions compare as numbers.
void judge_software(CardMemory& memory, std::uint32_t version) {
    const bool is_accepted = version >= memory.behaviour.least_software.load(std::memory_order_relaxed);
    show(memory.registers, REG_VERSION_CHECK, is_accepted ? kAccepted : kTooOld);
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
        case REG_SOFT_VERSION:
            judge_software(memory, value);
            break;
        default:
            break;
    }
}

}  // namespace

void forget_registers(RegisterFile& registers) {
    for (std::uint32_t number = 0; number < kRegisterCount; ++number) {
        preset_register(registers, number, 0);
        registers.is_held[number].store(false, std::memory_order_relaxed);
    }
}

void power_up_registers(CardMemory& memory) {
    RegisterFile& registers = memory.registers;
    preset_register(registers, REG_BUILD_DATE, kBuildDate);
    preset_register(registers, REG_BUILD_VERSION, kBuildVersion);
    show(registers, REG_HW_VERSION, memory.behaviour.hardware_version.load(std::memory_order_relaxed));
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
    return registers.written[of_core(feed, REG_CORE_START)].load(std::memory_order_relaxed) == 1;
}

bool is_forwarding(const RegisterFile& registers) {
    return registers.written[REG_INIT_MASK].load(std::memory_order_relaxed) == kForwardingOpen;
}

void count_packet(RegisterFile& registers, EMDQPDataType feed) {
    registers.readable[packet_register(feed)].fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t packet_count(const RegisterFile& registers, EMDQPDataType feed) {
    return registers.readable[packet_register(feed)].load(std::memory_order_relaxed);
}

void count_event(RegisterFile& registers) {
    registers.readable[REG_EVENT_PKTS].fetch_add(1, std::memory_order_relaxed);
}

void show_update_time(RegisterFile& registers, EMDQPDataType feed, std::int64_t seconds) {
    show(registers, REG_LAST_UPDATE_TIME + static_cast<std::uint32_t>(feed),
         static_cast<std::uint64_t>(seconds));
}

void show_memory_ready(RegisterFile& registers) {
    show(registers, REG_HBM2_STATUS, HBM2_STATUS_READY);
}

std::optional<std::uint32_t> allowed_silence(const RegisterFile& registers, EMDQPDataType feed) {
    const auto written = [&registers](std::uint32_t number) {
        return static_cast<std::uint32_t>(registers.written[number].load(std::memory_order_relaxed));
    };
    const std::uint32_t interval = written(of_core(feed, REG_DETECT_INTERVAL));
    const std::uint32_t group = group_register(feed);
    const bool has_group = (written(group) | written(group + REG_MCAST_LINE_B)) != 0;
    if (!is_core_started(registers, feed) || !has_group || interval == kNoInterval || interval == kNever) {
        return std::nullopt;
    }
    return interval;
}

}  // namespace kova::sim
