/**
 * What the card does when one of its registers is written or read.
 *
 * Everything that the simulated card assumes about a register of the real one stands in registers.cpp and, for
 * those of the contract tables, in contract_tables.cpp, and nowhere else. The caller holds the card's lock.
 */
#ifndef KOVA_SIM_CARD_REGISTERS_H
#define KOVA_SIM_CARD_REGISTERS_H

#include <cstdint>
#include <optional>

#include "sim/card/card_memory.h"

namespace kova::sim {

/** Makes all registers 0, what was held included. */
void forget_registers(RegisterFile& registers);

/** Gives registers that are 0 the values of a card that has just been powered. */
void power_up_registers(CardMemory& memory);

/** A write by the host. */
void write_register(CardMemory& memory, std::uint32_t number, std::uint32_t value);

/** A read by the host. */
[[nodiscard]] std::uint64_t read_register(const CardMemory& memory, std::uint32_t number);

/** Sets both sides of a register without any of the card's logic. */
void preset_register(RegisterFile& registers, std::uint32_t number, std::uint64_t value);

/** Whether the core of a feed has been started. */
[[nodiscard]] bool is_core_started(const RegisterFile& registers, EMDQPDataType feed);

/** Whether the snapshot stream is being forwarded to channel 0. */
[[nodiscard]] bool is_forwarding(const RegisterFile& registers);

/** Counts one packet of a feed; how many there were. */
void count_packet(RegisterFile& registers, EMDQPDataType feed);
[[nodiscard]] std::uint64_t packet_count(const RegisterFile& registers, EMDQPDataType feed);

/** Counts one event. */
void count_event(RegisterFile& registers);

/** Shows when a feed was updated last, in seconds since the epoch. */
void show_update_time(RegisterFile& registers, EMDQPDataType feed, std::int64_t seconds);

/** Shows that the card's memory is ready. */
void show_memory_ready(RegisterFile& registers);

/** Seconds that the host lets a feed be silent; nothing while the feed is not watched. */
[[nodiscard]] std::optional<std::uint32_t> allowed_silence(const RegisterFile& registers, EMDQPDataType feed);

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_REGISTERS_H
