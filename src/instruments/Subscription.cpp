// Which channel receives which instrument: bits in the config words of the card's contract tables.

#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "engine/KovaShfeMdApiImpl.h"
#include "instruments/FeedInfo.h"
#include "instruments/InstPattern.h"
#include "log/CommonLog.h"

namespace {

uint32_t ChannelBit(int channelID) {
    return uint32_t{1} << (static_cast<uint32_t>(channelID) & 31U);
}

}  // namespace

bool CKovaShfeMdApiImpl::isShfeTasInst(const std::string& refShfeInstId) {
    return refShfeInstId.find("TAS") != std::string::npos;
}

int CKovaShfeMdApiImpl::_ContractSubscribeManager(int channelID) {
    uint32_t shfeInstCount = 0;
    uint32_t ineInstCount = 0;
    _ReadInstCounts(shfeInstCount, ineInstCount);
    auto* const lpRows = reinterpret_cast<SInstTableType*>(&m_u50InstTable);
    for (size_t i = 0; i < FEED_INFO.size(); ++i) {
        const U50TableRegisters& refTable = FEED_INFO[i].table;
        const auto nCount = static_cast<int>(i < INE_2PS ? shfeInstCount : ineInstCount);
        // Rows are read back into memory here, whether a snapshot left anything there or not.
        m_snapshotDirt.AddRows(i, nCount);
        _ContractUnsubscribe(lpRows + FEED_INFO[i].nFirstRow, refTable.nReadAddr, refTable.nReadData,
                             refTable.nWriteAddr, refTable.nWriteData, nCount, channelID);
    }

    std::vector<CUstCharArray<32>> vecPattern;
    m_u50ConfigInfo.channelInfo[channelID].insts.SplitByChar(vecPattern, ',');
    for (CUstCharArray<32>& refPattern : vecPattern) {
        KOVA_LOG(LOG_INFO, "shfeInstCount[%u] ineInstCount[%u] listen_insts[%s]", shfeInstCount, ineInstCount,
                 refPattern.data());
        _SubscribePattern(SHFE_2PS, SHFE_4PS, static_cast<int>(shfeInstCount), channelID, refPattern);
        _SubscribePattern(INE_2PS, INE_4PS, static_cast<int>(ineInstCount), channelID, refPattern);
    }
    return 0;
}

void CKovaShfeMdApiImpl::_ReadInstCounts(uint32_t& shfeInstCount, uint32_t& ineInstCount) {
    constexpr const char* FUNCTION = "_ContractSubscribeManager";
    m_drvRegEnyx.ReadRegister(REG_SHFE_INST_COUNT, shfeInstCount);
    m_drvRegEnyx.ReadRegister(REG_INE_INST_COUNT, ineInstCount);
    if (shfeInstCount > INST_SHFE_TABLE_SIZE) {
        KOVA_LOG_AS(LOG_INFO, FUNCTION, "if shfeInstCount > %d, set shfeInstCount = %d.",
                    static_cast<int>(INST_SHFE_TABLE_SIZE), static_cast<int>(INST_SHFE_TABLE_SIZE));
        shfeInstCount = INST_SHFE_TABLE_SIZE;
    }
    if (ineInstCount > INST_INE_TABLE_SIZE) {
        KOVA_LOG_AS(LOG_INFO, FUNCTION, "if ineInstCount > %d, set ineInstCount = %d.",
                    static_cast<int>(INST_INE_TABLE_SIZE), static_cast<int>(INST_INE_TABLE_SIZE));
        ineInstCount = INST_INE_TABLE_SIZE;
    }
}

void CKovaShfeMdApiImpl::_SubscribePattern(EMDQPDataType feed2ps, EMDQPDataType feed4ps, int instCount,
                                           int channelID, CUstCharArray<32>& refInstrument) {
    auto* const lpRows = reinterpret_cast<SInstTableType*>(&m_u50InstTable);
    const uint8_t nEnabled = m_u50ConfigInfo.enabled_mask.enabled_mask;
    for (int i = 0; i < instCount; ++i) {
        for (const EMDQPDataType feed : {feed2ps, feed4ps}) {
            const U50FeedInfo& refFeed = FEED_INFO[static_cast<size_t>(feed)];
            _ContractSubscribe(lpRows + refFeed.nFirstRow, (nEnabled & refFeed.nMaskBit) != 0,
                               refFeed.table.nReadAddr, refFeed.table.nReadData, refFeed.table.nWriteAddr,
                               refFeed.table.nWriteData, i, channelID, refInstrument);
        }
    }
}

int CKovaShfeMdApiImpl::_ContractUnsubscribe(SInstTableType* refInstTable, uint32_t readAddrReg,
                                             uint32_t readDataReg, uint32_t writeAddrReg, uint32_t writeDataReg,
                                             int instCount, int channelID) {
    for (int i = 0; i < instCount; ++i) {
        const uint32_t nFirstWord = static_cast<uint32_t>(i) * INST_ROW_WORDS;
        auto* const lpRow = reinterpret_cast<char*>(refInstTable + i);
        for (uint32_t j = 0; j < INST_ROW_WORDS; ++j) {
            uint32_t nWord = 0;
            m_drvRegEnyx.WriteRegister(readAddrReg, nFirstWord + j);
            m_drvRegEnyx.ReadRegister(readDataReg, nWord);
            std::memcpy(lpRow + j * sizeof(nWord), &nWord, sizeof(nWord));
        }
        const uint32_t unSubVal = refInstTable[i].config & ~ChannelBit(channelID);
        m_drvRegEnyx.WriteRegister(writeDataReg, unSubVal);
        if (unSubVal == INST_CONFIG_SUBSCRIBED) {
            // Nobody is left: the row becomes one that was never subscribed.
            m_drvRegEnyx.WriteRegister(writeDataReg, 0);
        }
        m_drvRegEnyx.WriteRegister(writeAddrReg, nFirstWord);
    }
    return 0;
}

int CKovaShfeMdApiImpl::_ContractSubscribe(SInstTableType* refInstTable, bool isEnabled, uint32_t readAddrReg,
                                           uint32_t readDataReg, uint32_t writeAddrReg, uint32_t writeDataReg,
                                           int instIndex, int channelID, CUstCharArray<32>& refInstrument) {
    if (!isEnabled || !_IsSubscribed(refInstTable[instIndex], channelID, refInstrument)) {
        return 0;
    }
    SInstTableType& refRow = refInstTable[instIndex];
    const std::string instId(InstId(refRow).data());
    const uint32_t nFirstWord = static_cast<uint32_t>(instIndex) * INST_ROW_WORDS;
    uint32_t nConfig = 0;
    m_drvRegEnyx.WriteRegister(readAddrReg, nFirstWord);
    m_drvRegEnyx.ReadRegister(readDataReg, nConfig);
    refRow.config = isShfeTasInst(instId) ? nConfig | INST_CONFIG_TAS : nConfig & ~INST_CONFIG_TAS;

    const uint32_t value = ChannelBit(channelID) | refRow.config | INST_CONFIG_SUBSCRIBED;
    KOVA_LOG(LOG_DEBUG, "subscribe %s %d %u", instId.c_str(), static_cast<int>(nFirstWord), value);
    m_drvRegEnyx.WriteRegister(writeDataReg, value);
    m_drvRegEnyx.WriteRegister(writeAddrReg, nFirstWord);
    m_drvRegEnyx.WriteRegister(readAddrReg, nFirstWord);
    m_drvRegEnyx.ReadRegister(readDataReg, nConfig);
    refRow.config = nConfig;
    KOVA_LOG(LOG_DEBUG, "subscribe %s %d %u", instId.c_str(), static_cast<int>(nFirstWord), nConfig);
    return 0;
}

bool CKovaShfeMdApiImpl::_IsSubscribed(const SInstTableType& refRow, int channelID,
                                       const CUstCharArray<32>& refInstrument) const {
    const U50ChannelInfo& refChannel = m_u50ConfigInfo.channelInfo[channelID];
    const std::string_view instId(refRow.inst_id, strnlen(refRow.inst_id, sizeof(refRow.inst_id)));
    const std::string_view pattern(refInstrument.data(), refInstrument.Length());
    if (!IsInstSelected(instId, pattern, refChannel.recvall, refChannel.options)) {
        return false;
    }
    // Seldom anything stands in the set, and asking it takes a string.
    return m_setPriceErrorInstId.empty() || !m_setPriceErrorInstId.contains(std::string(instId));
}
