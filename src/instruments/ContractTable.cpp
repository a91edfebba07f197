// The card's contract tables: one block for each feed once the snapshot is complete, single words afterwards.

#include <cstddef>
#include <cstring>

#include "engine/KovaShfeMdApiImpl.h"
#include "instruments/FaultInjection.h"
#include "instruments/FeedInfo.h"
#include "instruments/RowText.h"
#include "log/CommonLog.h"

namespace {

/** Writes the words of one row. The address write stores what the data write presents. */
void WriteRow(CDrvRegEnyx& refDrvReg, const SInstTableType& refRow, uint32_t nFirstWord, uint32_t writeAddrReg,
              uint32_t writeDataReg) {
    const auto* const lpRow = reinterpret_cast<const char*>(&refRow);
    for (uint32_t j = 0; j < INST_ROW_WORDS; ++j) {
        uint32_t nWord;
        std::memcpy(&nWord, lpRow + j * sizeof(nWord), sizeof(nWord));
        refDrvReg.WriteRegister(writeDataReg, nWord);
        refDrvReg.WriteRegister(writeAddrReg, nFirstWord + j);
    }
}

void ClearRow(CDrvRegEnyx& refDrvReg, uint32_t nFirstWord, uint32_t writeAddrReg, uint32_t writeDataReg) {
    for (uint32_t j = 0; j < INST_ROW_WORDS; ++j) {
        refDrvReg.WriteRegister(writeDataReg, 0);
        refDrvReg.WriteRegister(writeAddrReg, nFirstWord + j);
    }
}

}  // namespace

void CKovaShfeMdApiImpl::_WriteContractTables() {
    auto* const lpRows = reinterpret_cast<SInstTableType*>(&m_u50InstTable);
    for (const U50FeedInfo& refFeed : FEED_INFO) {
        _WriteContractTable(lpRows + refFeed.nFirstRow,
                            (m_u50ConfigInfo.enabled_mask.enabled_mask & refFeed.nMaskBit) != 0,
                            refFeed.table.nWriteAddr, refFeed.table.nWriteData,
                            static_cast<int>(m_u50InstCount.*refFeed.lpInstCount), refFeed.nRowCount);
    }
}

int CKovaShfeMdApiImpl::_WriteContractTable(SInstTableType* refInstTable, bool isEnabled, uint32_t writeAddrReg,
                                            uint32_t writeDataReg, int instCount, int instMaxCount) {
    _InjectFault(refInstTable, instCount);
    for (int i = 0; i < instMaxCount; ++i) {
        const uint32_t nFirstWord = static_cast<uint32_t>(i) * INST_ROW_WORDS;
        if (i >= instCount) {
            ClearRow(m_drvRegEnyx, nFirstWord, writeAddrReg, writeDataReg);
            continue;
        }
        if (isEnabled) {
            WriteRow(m_drvRegEnyx, refInstTable[i], nFirstWord, writeAddrReg, writeDataReg);
        }
        KOVA_LOG(LOG_DEBUG, "%s", TableRowText(i, refInstTable[i]).szText);
    }
    return 0;
}

void CKovaShfeMdApiImpl::_InjectFault(SInstTableType* refInstTable, int instCount) {
    constexpr const char* FUNCTION = "_WriteContractTable";
    const U50ConfigInfo& refConfig = m_u50ConfigInfo;
    if (!refConfig.debug_flag || refConfig.error_instno >= instCount) {
        return;
    }
    SInstTableType& refRow = refInstTable[refConfig.error_instno];
    KOVA_LOG_AS(LOG_DEBUG, FUNCTION, "%s", FaultRowText(refConfig.error_instno, refRow).szText);
    KOVA_LOG_AS(LOG_WARNING, FUNCTION, "debug mode error_case:%d", refConfig.error_case);
    InjectFault(refRow, refConfig.error_case, refConfig.error_limit_parts);
}
