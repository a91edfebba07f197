/**
 * What the engine has to know of each feed: its table in memory and in the card, and its members elsewhere.
 */
#ifndef KOVA_INSTRUMENTS_FEED_INFO_H
#define KOVA_INSTRUMENTS_FEED_INFO_H

#include <array>
#include <cstdint>

#include "instruments/InstTable.h"
#include "snapshot/DstPort.h"
#include "wire/Feed.h"
#include "wire/RegisterMap.h"

/** The registers through which the host reads and writes one contract table. */
struct U50TableRegisters {
    uint32_t nReadAddr;
    uint32_t nReadData;
    uint32_t nWriteAddr;
    uint32_t nWriteData;
};

/** One feed. */
struct U50FeedInfo {
    uint8_t nMaskBit;   /**< of a UEnabledMask */
    uint32_t nFirstRow; /**< of the feed's table, when the four tables are counted through */
    int32_t nRowCount;  /**< of the feed's table */
    U50TableRegisters table;
    uint32_t nPacketNoReg;
    uint32_t nInstCountReg; /**< shared by both feeds of an exchange */
    uint64_t U50InstCount::*lpInstCount;
    uint16_t U50DstPort::*lpDstPort;
};

constexpr U50TableRegisters SHFE_TABLE_REGISTERS = {REG_SHFE_TABLE_RADDR, REG_SHFE_TABLE_RDATA,
                                                    REG_SHFE_TABLE_WADDR, REG_SHFE_TABLE_WDATA};
constexpr U50TableRegisters INE_TABLE_REGISTERS = {REG_INE_TABLE_RADDR, REG_INE_TABLE_RDATA,
                                                   REG_INE_TABLE_WADDR, REG_INE_TABLE_WDATA};

/** The same registers in the 4PS core. */
constexpr U50TableRegisters In4psCore(const U50TableRegisters& refRegisters) {
    return {refRegisters.nReadAddr + REG_CORE_STRIDE, refRegisters.nReadData + REG_CORE_STRIDE,
            refRegisters.nWriteAddr + REG_CORE_STRIDE, refRegisters.nWriteData + REG_CORE_STRIDE};
}

/** Indexed by EMDQPDataType. */
constexpr std::array<U50FeedInfo, MDQP_FEED_COUNT> FEED_INFO = {{
    {0x01, 0, INST_SHFE_TABLE_SIZE, SHFE_TABLE_REGISTERS, REG_SHFE_PACKET_NO, REG_SHFE_INST_COUNT,
     &U50InstCount::shfe_inst_cnt_2ps, &U50DstPort::port_shfe_2ps},
    {0x02, 16384, INST_SHFE_TABLE_SIZE, In4psCore(SHFE_TABLE_REGISTERS), REG_SHFE_PACKET_NO + REG_CORE_STRIDE,
     REG_SHFE_INST_COUNT, &U50InstCount::shfe_inst_cnt_4ps, &U50DstPort::port_shfe_4ps},
    {0x04, 32768, INST_INE_TABLE_SIZE, INE_TABLE_REGISTERS, REG_INE_PACKET_NO, REG_INE_INST_COUNT,
     &U50InstCount::ine_inst_cnt_2ps, &U50DstPort::port_ine_2ps},
    {0x08, 36864, INST_INE_TABLE_SIZE, In4psCore(INE_TABLE_REGISTERS), REG_INE_PACKET_NO + REG_CORE_STRIDE,
     REG_INE_INST_COUNT, &U50InstCount::ine_inst_cnt_4ps, &U50DstPort::port_ine_4ps},
}};

#endif  // KOVA_INSTRUMENTS_FEED_INFO_H
