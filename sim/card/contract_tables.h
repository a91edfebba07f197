/**
 * The registers through which the host fills and reads the contract tables: four of them for each table.
 *
 *              write address  write data  read address  read data
 *     SHFE 2PS       0x11000     0x11001       0x11002    0x11003
 *     INE  2PS       0x11004     0x11005       0x11006    0x11007
 *     SHFE 4PS       0x21000     0x21001       0x21002    0x21003
 *     INE  4PS       0x21004     0x21005       0x21006    0x21007
 *
 * A word's address is row x 64 + word. Writing it to the write-address register stores what the write-data
 * register holds; writing it to the read-address register presents the word in the read-data register. Data 1
 * to address 0xFFFFFFFF closes the table for software until the card is initialised.
 *
 * A full listing is five million writes, so the way from a register number to its table is a little arithmetic.
 * The caller holds the card's lock.
 */
#ifndef KOVA_SIM_CARD_CONTRACT_TABLES_H
#define KOVA_SIM_CARD_CONTRACT_TABLES_H

#include <cstdint>

#include "sim/card/card_memory.h"
#include "wire/RegisterMap.h"

namespace kova::sim {

/** Registers of the tables of one core. */
inline constexpr std::uint32_t kTableRegistersPerCore = 8;

/** Whether the register is one of the sixteen above. */
[[nodiscard]] constexpr bool is_table_register(std::uint32_t number) {
    constexpr std::uint32_t kCores = 2;
    const std::uint32_t offset = number - REG_SHFE_TABLE_WADDR;
    return offset / REG_CORE_STRIDE < kCores && offset % REG_CORE_STRIDE < kTableRegistersPerCore;
}

/** A write by the host to one of them. */
void write_table_register(CardMemory& memory, std::uint32_t number, std::uint32_t value);

/** Empties all tables, opens them for software and forgets what was counted. */
void forget_tables(CardMemory& memory);

/** Opens all tables for software, closes them. What is in them stays. */
void open_tables(CardMemory& memory);
void close_tables(CardMemory& memory);

[[nodiscard]] bool is_table_open(const CardMemory& memory, EMDQPDataType feed);

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_CONTRACT_TABLES_H
