/**
 * The host's copy of the card's four contract tables.
 */
#ifndef KOVA_INSTRUMENTS_INST_TABLE_H
#define KOVA_INSTRUMENTS_INST_TABLE_H

#include <cstddef>
#include <cstdint>

#include "wire/InstRow.h"

constexpr size_t INST_SHFE_TABLE_SIZE = 16384; /**< rows of each SHFE table */
constexpr size_t INST_INE_TABLE_SIZE = 4096;   /**< rows of each INE table */

/** Rows of one SHFE feed, addressed by the exchange's instrument number. */
struct InstShfeTable {
    SInstTableType rows[INST_SHFE_TABLE_SIZE];
};

/** Rows of one INE feed. */
struct InstIneTable {
    SInstTableType rows[INST_INE_TABLE_SIZE];
};

/** The tables of all feeds, 10 MiB of plain bytes: never on a stack, emptied with memset. */
struct U50InstTable {
    InstShfeTable shfe2psInstTable;
    InstShfeTable shfe4psInstTable;
    InstIneTable ine2psInstTable;
    InstIneTable ine4psInstTable;
};
static_assert(sizeof(InstShfeTable) == 4194304);
static_assert(sizeof(InstIneTable) == 1048576);
static_assert(sizeof(U50InstTable) == 10485760);

/** One past the highest row filled from the snapshot, for each table. */
struct U50InstCount {
    uint64_t shfe_inst_cnt_2ps = 0;
    uint64_t shfe_inst_cnt_4ps = 0;
    uint64_t ine_inst_cnt_2ps = 0;
    uint64_t ine_inst_cnt_4ps = 0;
};

#endif  // KOVA_INSTRUMENTS_INST_TABLE_H
