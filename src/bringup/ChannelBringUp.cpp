// Bringing a card up, and finding out that one runs already. Channels other than 0 share the card that channel
// 0's process programs: they have nothing to bring up.

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>

#include "bringup/MdPktCnt.h"
#include "engine/KovaShfeMdApiImpl.h"
#include "log/CommonLog.h"
#include "util/FilePtr.h"
#include "wire/RegisterMap.h"

namespace {

constexpr const char* KOVA_SUB_DMA_UP = "_KovaSubDmaUp";

/** Seconds over which a card shows whether it receives. */
constexpr unsigned int PKT_SAMPLE_SECONDS = 3;

/** A signal ends a sleep early, and a sample cut short takes a card that receives for a silent one. */
void SleepWhole(unsigned int nSeconds) {
    while (nSeconds != 0) {
        nSeconds = sleep(nSeconds);
    }
}

/** Failures of _GetConfigCrc. */
enum EConfigCrcError : int32_t {
    CONFIG_NOT_OPENED = -1,
    CONFIG_EMPTY = -2,
    CONFIG_NO_MEMORY = -3,
    CONFIG_NOT_READ = -4,
    CONFIG_NO_CRC = -5,
};

/** Size of an open file; below 1 when it has none. */
long FileSize(FILE* lpFile) {
    return std::fseek(lpFile, 0, SEEK_END) == 0 ? std::ftell(lpFile) : -1;
}

}  // namespace

int32_t CKovaShfeMdApiImpl::_GetConfigCrc(uint32_t& configCrc) {
    const char* const szFile = m_configFileName.data();
    const CFilePtr file(std::fopen(szFile, "r"));
    if (!file) {
        KOVA_LOG(LOG_ERROR, "Error opening file [%s] [%u].", szFile, static_cast<uint32_t>(CONFIG_NOT_OPENED));
        return CONFIG_NOT_OPENED;
    }
    const long nSize = FileSize(file.get());
    if (nSize <= 0) {
        KOVA_LOG(LOG_ERROR, "file is empty [%s] [%u].", szFile, static_cast<uint32_t>(CONFIG_EMPTY));
        return CONFIG_EMPTY;
    }
    const auto nBytes = static_cast<size_t>(nSize);
    const std::unique_ptr<uint8_t[]> content(new (std::nothrow) uint8_t[nBytes + 1]);
    if (!content) {
        KOVA_LOG(LOG_ERROR, "Error allocating memory for file[%s] [%u].", szFile,
                 static_cast<uint32_t>(CONFIG_NO_MEMORY));
        return CONFIG_NO_MEMORY;
    }
    std::rewind(file.get());
    if (std::fread(content.get(), 1, nBytes, file.get()) != nBytes) {
        KOVA_LOG(LOG_ERROR, "error reading certificate file[%s] [%u].", szFile,
                 static_cast<uint32_t>(CONFIG_NOT_READ));
        return CONFIG_NOT_READ;
    }
    if (m_crc32.calculate_crc32c(configCrc, content.get(), static_cast<int32_t>(nSize)) != 0) {
        KOVA_LOG(LOG_ERROR, "calculate_crc32c failed file[%s] [%u].", szFile,
                 static_cast<uint32_t>(CONFIG_NO_CRC));
        return CONFIG_NO_CRC;
    }
    return 0;
}

int32_t CKovaShfeMdApiImpl::_ChechAndKovaSubDmaUp() {
    uint32_t configCrc = 0;
    if (m_u50ConfigInfo.channel_id == MANAGER_CHANNEL) {
        if (_GetConfigCrc(configCrc) != 0) {
            KOVA_LOG(LOG_ERROR, "Error opening file [%s].", m_configFileName.data());
            return -1;
        }
        if (_IsCardRunning(configCrc)) {
            m_isAllInitFinished = true;
            return 0;
        }
    }
    return _KovaSubDmaUp(configCrc);
}

bool CKovaShfeMdApiImpl::_IsCardRunning(uint32_t configCrc) {
    constexpr const char* FUNCTION = "_ChechAndKovaSubDmaUp";
    U50MdPktCnt pkts1;
    U50MdPktCnt pkts2;
    uint32_t lasrtCrc = 0;
    {
        const CLogLevelScope everything(LOG_EVERYTHING, m_u50ConfigInfo.log_level);
        _SamplePktCnt(pkts1);
        SleepWhole(PKT_SAMPLE_SECONDS);
        _SamplePktCnt(pkts2);
        m_drvRegEnyx.ReadRegister(REG_CONFIG_CRC, lasrtCrc);
    }
    if (!m_u50ConfigInfo.crc_mux_check || lasrtCrc != configCrc) {
        return false;
    }
    KOVA_LOG_AS(LOG_WARNING, FUNCTION, "crc_mux_check is %d, lasrtCrc is %d , configCrc is %d.",
                m_u50ConfigInfo.crc_mux_check, lasrtCrc, configCrc);
    if (!IsReceiving(pkts1, pkts2) || pkts1.shfe_event_pkts != pkts2.shfe_event_pkts) {
        return false;
    }
    KOVA_LOG_AS(LOG_WARNING, FUNCTION,
                "channel%d %s no changes have occurred, no initialization required, pkts1 [%lu %lu %lu %lu "
                "%lu], pkts2 [%lu %lu %lu %lu %lu].",
                m_u50ConfigInfo.channel_id, m_configFileName.data(), pkts1.shfe_2ps_pkts, pkts1.en_2ps_pkts,
                pkts1.shfe_4ps_pkts, pkts1.en_4ps_pkts, pkts1.shfe_event_pkts, pkts2.shfe_2ps_pkts,
                pkts2.en_2ps_pkts, pkts2.shfe_4ps_pkts, pkts2.en_4ps_pkts, pkts2.shfe_event_pkts);
    return true;
}

void CKovaShfeMdApiImpl::_SamplePktCnt(U50MdPktCnt& refPktCnt) {
    m_drvRegEnyx.ReadRegister(REG_SHFE2PS_PKTS, refPktCnt.shfe_2ps_pkts);
    m_drvRegEnyx.ReadRegister(REG_INE2PS_PKTS, refPktCnt.en_2ps_pkts);
    m_drvRegEnyx.ReadRegister(REG_SHFE4PS_PKTS, refPktCnt.shfe_4ps_pkts);
    m_drvRegEnyx.ReadRegister(REG_INE4PS_PKTS, refPktCnt.en_4ps_pkts);
    m_drvRegEnyx.ReadRegister(REG_EVENT_PKTS, refPktCnt.shfe_event_pkts);
}

int32_t CKovaShfeMdApiImpl::_KovaSubDmaUp(uint32_t configCrc) {
    const int32_t nChannelId = m_u50ConfigInfo.channel_id;
    if (nChannelId != MANAGER_CHANNEL) {
        return 0;
    }
    KOVA_LOG(LOG_DEBUG, "channel%d FPGA Init......begin", nChannelId);
    _StartCapture();
    if (_InitFpgaWithRetries() != 0) {
        return -1;
    }
    if (Chk_SysVersion() != 0) {
        KOVA_LOG(LOG_ERROR, "check version is fail.");
        return -1;
    }
    _RememberConfigCrc(configCrc);
    KOVA_LOG(LOG_DEBUG, "channel%d FPGA Init......end", nChannelId);
    _InstStaticInfoWriteFile();
    _SubscribeChannels();
    const CLogLevelScope everything(LOG_EVERYTHING, m_u50ConfigInfo.log_level);
    _WriteLimits();
    _WriteModes();
    return _StartDmaUp();
}

void CKovaShfeMdApiImpl::_StartCapture() {
    if (m_u50ConfigInfo.dma_data_flag) {
        m_writeDmaShot.CloseShotBinLog();
        m_writeDmaShot.CreateShotBinLog();
        m_writeDmaShot.CloseShotPcapLog();
        m_writeDmaShot.CreateShotPcapLog();
    }
}

int32_t CKovaShfeMdApiImpl::_InitFpgaWithRetries() {
    const int32_t nAttempts = m_u50ConfigInfo.init_tcpcnt;
    while (!m_isTcpInitFinished) {
        if (m_u50InitCnt >= nAttempts) {
            KOVA_LOG_AS(LOG_WARNING, KOVA_SUB_DMA_UP, "channel%d m_u50InitCnt > %d", m_u50ConfigInfo.channel_id,
                        nAttempts);
            return -1;
        }
        const int32_t nResult = _InitFpga();
        if (nResult == -2) {
            KOVA_LOG_AS(LOG_WARNING, KOVA_SUB_DMA_UP, "channel%d u50 Init time out Cnt == %d",
                        m_u50ConfigInfo.channel_id, m_u50InitCnt);
            continue;
        }
        if (nResult != 0) {
            return -1;
        }
        m_u50InitCnt = 0;
    }
    return 0;
}

void CKovaShfeMdApiImpl::_RememberConfigCrc(uint32_t configCrc) {
    const CLogLevelScope everything(LOG_EVERYTHING, m_u50ConfigInfo.log_level);
    if (configCrc != 0) {
        m_drvRegEnyx.WriteRegister(REG_CONFIG_CRC, configCrc);
        KOVA_LOG_AS(LOG_DEBUG, KOVA_SUB_DMA_UP, "channel%d update_reg configCrc[%u]",
                    m_u50ConfigInfo.channel_id, configCrc);
    }
}

void CKovaShfeMdApiImpl::_SubscribeChannels() {
    for (int32_t i = 0; i < U50ChannelInfo::CHANNEL_SIZE; ++i) {
        KOVA_LOG_AS(LOG_INFO, KOVA_SUB_DMA_UP, "channel%d subscribe start...", i);
        _ContractSubscribeManager(i);
        KOVA_LOG_AS(LOG_INFO, KOVA_SUB_DMA_UP, "channel%d subscribe end", i);
    }
}

void CKovaShfeMdApiImpl::_WriteLimits() {
    const U50MaxInstNo& refMax = m_u50ConfigInfo.maxInstNo;
    m_drvRegEnyx.WriteRegister(REG_SHFE2PS_MAX_INST, static_cast<uint32_t>(refMax.shfe2ps_max_inst_no));
    m_drvRegEnyx.WriteRegister(REG_SHFE4PS_MAX_INST, static_cast<uint32_t>(refMax.shfe4ps_max_inst_no));
    m_drvRegEnyx.WriteRegister(REG_INE2PS_MAX_INST, static_cast<uint32_t>(refMax.ine2ps_max_inst_no));
    m_drvRegEnyx.WriteRegister(REG_INE4PS_MAX_INST, static_cast<uint32_t>(refMax.ine4ps_max_inst_no));
    m_drvRegEnyx.WriteRegister(REG_LAST_TICK_CHANNEL, m_u50ConfigInfo.last_tick_channel);
    KOVA_LOG_AS(LOG_INFO, KOVA_SUB_DMA_UP,
                "shfe2ps_max_inst_no[%d] shfe4ps_max_inst_no[%d] ine2ps_max_inst_no[%d] ine4ps_max_inst_no[%d] "
                "lastTickChannel[%u]",
                refMax.shfe2ps_max_inst_no, refMax.shfe4ps_max_inst_no, refMax.ine2ps_max_inst_no,
                refMax.ine4ps_max_inst_no, m_u50ConfigInfo.last_tick_channel);
}

void CKovaShfeMdApiImpl::_WriteModes() {
    m_drvRegEnyx.WriteRegister(REG_REPEAT_QUOTE_UPLOAD, m_u50ConfigInfo.repeat_quote_upload ? 1 : 0);
    m_drvRegEnyx.WriteRegister(REG_MODEL_SEL, m_u50ConfigInfo.model_sel ? 1 : 0);
    m_drvRegEnyx.WriteRegister(REG_EVENT_MODEL_SEL, m_u50ConfigInfo.event_model_sel ? 1 : 0);
}
