#include "integrity/FpgaEvents.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>

#include "engine/KovaShfeMdApiImpl.h"
#include "log/CommonLog.h"
#include "wire/Feed.h"
#include "wire/RegisterMap.h"

namespace {

// One byte per lane in each of these.
constexpr uint32_t LOST_LANE_BITS = 0x80808080;
constexpr uint32_t TIMEOUT_LANE_BITS = 0x40404040;
constexpr uint32_t PRICE_ERROR_BITS = 0x0F0F0F0F;
// One bit per feed.
constexpr uint32_t LOST_FEED_BITS = 0x0000000F;

struct LocalMinute {
    uint32_t nHour;
    uint32_t nMinute;
};

/** Local hour and minute; midnight, which is no break, for a time that the calendar cannot express. */
LocalMinute ToLocalMinute(int64_t nSeconds) {
    const time_t nTime = nSeconds;
    struct tm tmLocal = {};
    tzset();
    if (localtime_r(&nTime, &tmLocal) == nullptr) {
        return {0, 0};
    }
    return {static_cast<uint32_t>(tmLocal.tm_hour), static_cast<uint32_t>(tmLocal.tm_min)};
}

}  // namespace

EFpgaEventType ClassifyFpgaEvent(const U50Event& refEvent) noexcept {
    if ((refEvent.event_data0 & LOST_LANE_BITS) != 0) {
        return FPGA_EVENT_LOST_LANE;
    }
    if ((refEvent.event_data1 & PRICE_ERROR_BITS) != 0) {
        return FPGA_EVENT_PRICE_ERROR;
    }
    if ((refEvent.event_data0 & TIMEOUT_LANE_BITS) != 0) {
        return FPGA_EVENT_TIMEOUT;
    }
    if ((refEvent.event_data3 & LOST_FEED_BITS) != 0) {
        return FPGA_EVENT_LOST_FEED;
    }
    return FPGA_EVENT_NONE;
}

bool IsTradingBreak(uint32_t nHour, uint32_t nMinute) noexcept {
    switch (nHour) {
        case 2:
            return nMinute == 30;
        case 8:
        case 20:
            return nMinute >= 55 && nMinute <= 59;
        case 9:
        case 21:
            return nMinute == 0;
        case 10:
            return nMinute == 15 || (nMinute >= 25 && nMinute <= 30);
        case 11:
            return nMinute == 30;
        case 13:
            return nMinute >= 25 && nMinute <= 30;
        case 15:
            return true;
        default:
            return false;
    }
}

bool CKovaShfeMdApiImpl::_CheckLostUdpPktHandler(const U50Event& refEvent) {
    switch (ClassifyFpgaEvent(refEvent)) {
        case FPGA_EVENT_LOST_LANE:
            KOVA_LOG(LOG_WARNING, "received lost pkt event, event_data0=%08x", refEvent.event_data0);
            break;
        case FPGA_EVENT_PRICE_ERROR:
            KOVA_LOG(LOG_WARNING, "received px error event, event_data1=%08x", refEvent.event_data1);
            break;
        case FPGA_EVENT_TIMEOUT:
            if (!_IsTimeoutLost(refEvent)) {
                return false;
            }
            break;
        case FPGA_EVENT_LOST_FEED:
            KOVA_LOG(LOG_WARNING, "received lost pkt event, event_data3=%08x", refEvent.event_data3);
            break;
        case FPGA_EVENT_NONE:
            return false;
    }
    _ForgetCardState();
    _LogCardStatus();
    return true;
}

bool CKovaShfeMdApiImpl::_IsTimeoutLost(const U50Event& refEvent) {
    std::array<uint64_t, MDQP_FEED_COUNT> arrTime = {};
    int64_t nNewest = 0;
    for (uint32_t nFeed = 0; nFeed < arrTime.size(); ++nFeed) {
        m_drvRegEnyx.ReadRegister(REG_LAST_UPDATE_TIME + nFeed, arrTime[nFeed]);
        nNewest = std::max(nNewest, static_cast<int64_t>(arrTime[nFeed]));
    }
    const auto [nHour, nMinute] = ToLocalMinute(nNewest);
    if (IsTradingBreak(nHour, nMinute)) {
        KOVA_LOG_AS(LOG_INFO, "_CheckLostUdpPktHandler",
                    "received pkt timeout event, ignore. event_data0=%08x last_update_time[%lu,%lu,%lu,%lu] "
                    "ts[%u,%u]",
                    refEvent.event_data0, arrTime[0], arrTime[1], arrTime[2], arrTime[3], nHour, nMinute);
        return false;
    }
    KOVA_LOG_AS(LOG_WARNING, "_CheckLostUdpPktHandler",
                "received pkt timeout event, event_data0=%08x last_update_time[%lu,%lu,%lu,%lu] ts[%u,%u]",
                refEvent.event_data0, arrTime[0], arrTime[1], arrTime[2], arrTime[3], nHour, nMinute);
    return true;
}

void CKovaShfeMdApiImpl::_ForgetCardState() {
    m_finishedMask.enabled_mask = 0;
    m_u50DstPort = {};
    std::memset(&m_u50InstTable, 0, sizeof(m_u50InstTable));
    m_isTcpInitFinished = false;
    m_isHBM2InitFinished = false;
}

void CKovaShfeMdApiImpl::_LogCardStatus() {
    constexpr std::array<uint32_t, 7> arrRegister = {
        REG_STATUS_0,
        REG_STATUS_1,
        REG_HBM2_STATUS,
        REG_CORE_ERROR_COUNT,
        REG_CORE_ERROR_COUNT_B,
        REG_CORE_ERROR_COUNT + REG_CORE_STRIDE,
        REG_CORE_ERROR_COUNT_B + REG_CORE_STRIDE,
    };
    const CLogLevelScope everything(LOG_EVERYTHING, m_u50ConfigInfo.log_level);
    for (const uint32_t nRegister : arrRegister) {
        uint32_t nValue = 0;
        m_drvRegEnyx.ReadRegister(nRegister, nValue);
    }
}
