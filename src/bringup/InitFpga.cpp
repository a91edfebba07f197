// One attempt to initialise the card, from its reset to a complete snapshot, and the start of its feeds at the
// end of a bring-up.

#include <array>
#include <chrono>
#include <cstddef>
#include <vector>

#include "bringup/NetworkAddress.h"
#include "engine/KovaShfeMdApiImpl.h"
#include "instruments/FeedInfo.h"
#include "log/CommonLog.h"
#include "wire/RegisterMap.h"

namespace {

constexpr const char* INIT_FPGA = "_InitFpga";

/** The last whole second of the wait for the card's memory: its status is looked at once 6 seconds are over. */
constexpr int64_t HBM2_WAIT_SECONDS = 5;

constexpr uint32_t NETWORK_GROUP_COUNT = 4;

using SystemTime = std::chrono::system_clock::time_point;

/** Whole seconds since then, by the system's clock. */
int64_t ElapsedSeconds(SystemTime start) {
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now() - start).count();
}

/** One line, A or B, of a feed's multicast stream. */
struct SMulticast {
    EMDQPDataType feed;
    uint32_t nIpReg;
    CAddressType U50MultiIpAndPort::*lpAddress;
};

constexpr uint32_t SHFE_A = REG_MCAST_IP;
constexpr uint32_t SHFE_B = REG_MCAST_IP + REG_MCAST_LINE_B;
constexpr uint32_t INE_A = REG_MCAST_IP + REG_MCAST_INE;
constexpr uint32_t INE_B = REG_MCAST_IP + REG_MCAST_INE + REG_MCAST_LINE_B;

/** In the order in which they are written. */
constexpr std::array<SMulticast, 8> MULTICASTS = {{
    {SHFE_2PS, SHFE_A, &U50MultiIpAndPort::shfe2ps_ip_a},
    {SHFE_2PS, SHFE_B, &U50MultiIpAndPort::shfe2ps_ip_b},
    {INE_2PS, INE_A, &U50MultiIpAndPort::ine2ps_ip_a},
    {INE_2PS, INE_B, &U50MultiIpAndPort::ine2ps_ip_b},
    {SHFE_4PS, SHFE_A + REG_CORE_STRIDE, &U50MultiIpAndPort::shfe4ps_ip_a},
    {SHFE_4PS, SHFE_B + REG_CORE_STRIDE, &U50MultiIpAndPort::shfe4ps_ip_b},
    {INE_4PS, INE_A + REG_CORE_STRIDE, &U50MultiIpAndPort::ine4ps_ip_a},
    {INE_4PS, INE_B + REG_CORE_STRIDE, &U50MultiIpAndPort::ine4ps_ip_b},
}};

/** Tables in the order in which they are closed. */
constexpr std::array<EMDQPDataType, MDQP_FEED_COUNT> CLOSING_ORDER = {SHFE_4PS, SHFE_2PS, INE_2PS, INE_4PS};

}  // namespace

int CKovaShfeMdApiImpl::_InitFpga() {
    ++m_u50InitCnt;
    _Cleandata(*this);
    m_isSnapshotFailed = false;
    {
        const CLogLevelScope everything(LOG_EVERYTHING, m_u50ConfigInfo.log_level);
        m_drvRegEnyx.WriteRegister(REG_INIT_TRIGGER, 1);
        m_drvRegEnyx.WriteRegister(REG_PRICE_PROTECT_EVENT_MASK, m_u50ConfigInfo.price_protect_event_mask);
        if (!_WaitForMemory()) {
            return -1;
        }
        _OpenSnapshot();
        _WriteNetwork();
        _WriteMulticasts();
    }
    KOVA_LOG(LOG_INFO, "listening tcp basement data");
    return _WaitForSnapshot();
}

bool CKovaShfeMdApiImpl::_WaitForMemory() {
    m_isHBM2InitFinished = false;
    const SystemTime start = std::chrono::system_clock::now();
    while (!m_isHBM2InitFinished && ElapsedSeconds(start) <= HBM2_WAIT_SECONDS) {
        m_drvDMAEnyx.RecvOnce(reinterpret_cast<void*>(&_MdClearHandler), &m_u50UserData);
    }
    if (!m_isHBM2InitFinished) {
        uint32_t nStatus = 0;
        m_drvRegEnyx.ReadRegister(REG_HBM2_STATUS, nStatus);
        if (nStatus != HBM2_STATUS_READY) {
            KOVA_LOG_AS(LOG_WARNING, INIT_FPGA, "HBM2 init timeout, Please check whether the FPGA is normal.");
            return false;
        }
        m_isHBM2InitFinished = true;
    }
    KOVA_LOG_AS(LOG_INFO, INIT_FPGA, "HBM2 init successful.");
    return true;
}

void CKovaShfeMdApiImpl::_OpenSnapshot() {
    m_drvRegEnyx.WriteRegister(REG_INIT_MASK, INIT_MASK_FORWARD);
    m_drvRegEnyx.WriteRegister(REG_SHFE_INST_COUNT, 0);
    m_drvRegEnyx.WriteRegister(REG_INE_INST_COUNT, 0);
    m_drvRegEnyx.WriteRegister(REG_DETECT_INTERVAL, m_u50ConfigInfo.detect_interval);
    m_drvRegEnyx.WriteRegister(REG_DETECT_INTERVAL + REG_CORE_STRIDE, m_u50ConfigInfo.detect_interval);
}

void CKovaShfeMdApiImpl::_WriteNetwork() {
    const U50ConfigInfo& refConfig = m_u50ConfigInfo;
    const uint32_t nRoute = static_cast<uint32_t>(refConfig.TARGETROUTE) & 0xF;
    m_drvRegEnyx.WriteRegister(REG_ROUTE, nRoute);
    KOVA_LOG_AS(LOG_INFO, INIT_FPGA, "route[%d]", nRoute);

    const MacBytes dstMac = ParseMac(refConfig.DSTMAC.data());
    for (uint32_t k = 0; k < NETWORK_GROUP_COUNT; ++k) {
        m_drvRegEnyx.WriteRegister(REG_DST_MAC_HI + k * REG_NETWORK_GROUP_STRIDE, MacHighWord(dstMac));
        m_drvRegEnyx.WriteRegister(REG_DST_MAC_LO + k * REG_NETWORK_GROUP_STRIDE, MacLowWord(dstMac, 0));
    }
    _WriteEachGroup(REG_DST_IP, ParseIp(refConfig.DSTIP.data()));
    _WriteEachGroup(REG_DST_PORT, refConfig.DSTPORT);

    const MacBytes srcMac = ParseMac(refConfig.SRCMAC.data());
    for (uint32_t k = 0; k < NETWORK_GROUP_COUNT; ++k) {
        m_drvRegEnyx.WriteRegister(REG_SRC_MAC_HI + k * REG_NETWORK_GROUP_STRIDE, MacHighWord(srcMac));
        m_drvRegEnyx.WriteRegister(REG_SRC_MAC_LO + k * REG_NETWORK_GROUP_STRIDE, MacLowWord(srcMac, k));
    }
    _WriteEachGroup(REG_SRC_IP, ParseIp(refConfig.SRCIP.data()));
    _WriteEachGroup(REG_SRC_PORT, refConfig.SRCPORT);
}

void CKovaShfeMdApiImpl::_WriteEachGroup(uint32_t nRegister, uint32_t nValue) {
    for (uint32_t k = 0; k < NETWORK_GROUP_COUNT; ++k) {
        m_drvRegEnyx.WriteRegister(nRegister + k * REG_NETWORK_GROUP_STRIDE, nValue);
    }
}

void CKovaShfeMdApiImpl::_WriteMulticasts() {
    for (const SMulticast& refMulticast : MULTICASTS) {
        const uint8_t nMaskBit = FEED_INFO[static_cast<size_t>(refMulticast.feed)].nMaskBit;
        _SetRegIpAndPort(refMulticast.nIpReg, refMulticast.nIpReg + (REG_MCAST_PORT - REG_MCAST_IP),
                         m_u50ConfigInfo.multiIpAndPort.*refMulticast.lpAddress,
                         (m_u50ConfigInfo.enabled_mask.enabled_mask & nMaskBit) != 0);
    }
}

int CKovaShfeMdApiImpl::_SetRegIpAndPort(uint32_t ipReg, uint32_t portReg, const CAddressType& ipAndPort,
                                         bool isEnabled) {
    if (!isEnabled) {
        m_drvRegEnyx.WriteRegister(ipReg, 0);
        m_drvRegEnyx.WriteRegister(portReg, 0);
        return 0;
    }
    std::vector<CAddressType> vecPiece;
    ipAndPort.SplitByChar(vecPiece, ':');
    if (vecPiece.size() < 2) {
        KOVA_LOG(LOG_ERROR, "_SetRegIpAndPort failed");
        return -1;
    }
    const int32_t nPort = vecPiece[1].ToInt32();
    KOVA_LOG(LOG_INFO, "%u[%s] %u[%d]", ipReg, vecPiece[0].data(), portReg, nPort);
    m_drvRegEnyx.WriteRegister(ipReg, ParseIp(vecPiece[0].data()));
    m_drvRegEnyx.WriteRegister(portReg, static_cast<uint32_t>(nPort));
    return 0;
}

int CKovaShfeMdApiImpl::_WaitForSnapshot() {
    const SystemTime start = std::chrono::system_clock::now();
    while (!_IsStopping() && !m_isTcpInitFinished) {
        if (m_u50ConfigInfo.wait_snap_timeout < ElapsedSeconds(start)) {
            return -2;
        }
        m_drvDMAEnyx.RecvOnce(reinterpret_cast<void*>(&_TcpHandler), this);
        if (m_isSnapshotFailed) {
            return -1;
        }
    }
    if (_IsStopping()) {
        return -1;
    }
    KOVA_LOG_AS(LOG_INFO, INIT_FPGA, "tcp init finished, start listening udp data");
    return 0;
}

int CKovaShfeMdApiImpl::_StartDmaUp() {
    if (m_u50ConfigInfo.channel_id == MANAGER_CHANNEL) {
        KOVA_LOG(LOG_INFO, "channel%d close read/write channle", m_u50ConfigInfo.channel_id);
        for (const EMDQPDataType feed : CLOSING_ORDER) {
            const U50TableRegisters& refTable = FEED_INFO[static_cast<size_t>(feed)].table;
            m_drvRegEnyx.WriteRegister(refTable.nWriteData, 1);
            m_drvRegEnyx.WriteRegister(refTable.nWriteAddr, TABLE_CLOSE_ADDRESS);
        }
        KOVA_LOG(LOG_INFO, "channel%d logical start", m_u50ConfigInfo.channel_id);
        m_drvRegEnyx.WriteRegister(REG_CORE_START, 1);
        m_drvRegEnyx.WriteRegister(REG_CORE_START + REG_CORE_STRIDE, 1);
    }
    m_isAllInitFinished = true;
    return 0;
}
