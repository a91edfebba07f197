// What a receive call does when it is not about a quote: stopping, bringing up again, events, lines.

#include <cstring>

#include "engine/KovaShfeMdApiImpl.h"
#include "engine/NoThrow.h"
#include "log/CommonLog.h"

int32_t CKovaShfeMdApiImpl::_RecvStopped() {
    _Cleandata(*this);
    return -1;
}

int32_t CKovaShfeMdApiImpl::_BringUpAgain() {
    if (CallNoThrow([this] { return _KovaSubDmaUp(0); }, -1) != 0) {
        KOVA_LOG_AS(LOG_ERROR, "KovaRecv", "_KovaSubDmaUp is error");
        return -1;
    }
    return 0;
}

void CKovaShfeMdApiImpl::_HandleEvent(const unsigned char* msg) {
    const int32_t nChannelId = m_u50ConfigInfo.channel_id;
    U50Event event;
    std::memcpy(&event, msg, sizeof(event));
    KOVA_LOG_AS(LOG_WARNING, "_MdHandler",
                "channel%d got DMA_EVENT event_data0[%u] event_data1[%u] event_data2[%u] event_data3[%u] "
                "event_data4[%u] event_data5[%u]",
                nChannelId, event.event_data0, event.event_data1, event.event_data2, event.event_data3,
                event.event_data4, event.event_data5);
    if (nChannelId != MANAGER_CHANNEL) {
        KOVA_LOG_AS(LOG_WARNING, "_MdHandler",
                    "channel%d receive DMA_EVENT event_data0[%u] event_data1[%u] event_data2[%u]", nChannelId,
                    event.event_data0, event.event_data1, event.event_data2);
        return;
    }
    if (!m_isHBM2InitFinished && (event.event_data2 & 1) != 0) {
        m_isHBM2InitFinished = true;
        KOVA_LOG_AS(LOG_INFO, "_MdHandler", "received HBM2 init event, event_data2=%08x", event.event_data2);
        return;
    }
    if (_CheckLostUdpPktHandler(event)) {
        m_isAllInitFinished = false;
    }
}

void CKovaShfeMdApiImpl::_LogDroppedMessage(const char* szReason) {
    KOVA_LOG_AS(LOG_ERROR, "_MdHandler", "%s", szReason);
}
