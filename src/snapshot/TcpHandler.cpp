// The handler of the polls that wait for the snapshot: from one DMA message to the messages inside it, and what
// is done once every feed's snapshot is complete.

#include <netinet/in.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <new>

#include "engine/KovaShfeMdApiImpl.h"
#include "engine/NoThrow.h"
#include "instruments/FeedInfo.h"
#include "log/CommonLog.h"
#include "snapshot/TcpReassembly.h"
#include "snapshot/TcpSegment.h"
#include "wire/DmaMessage.h"

namespace {

constexpr const char* TCP_HANDLER = "_TcpHandler";

/** Bytes of a message that count; behind a shorter one there are zeros. */
constexpr uint32_t WORK_BUFFER_SIZE = 2048;

/**
 * Whether nothing behind the end of the message matters to it: its headers and all that its IP header speaks of
 * lie in front. All segments but odd ones are like that and need no copy.
 */
bool IsSelfContained(const uint8_t* lpPacket, uint32_t nLength) {
    return nLength >= DMA_TCP_FRAME_OFFSET + MIN_FRAME_ROOM &&
           DMA_TCP_FRAME_OFFSET + IpFrameEnd(lpPacket + DMA_TCP_FRAME_OFFSET) <= nLength;
}

uint32_t DmaTypeOf(const uint8_t* lpPacket) {
    uint32_t nDmaType;
    std::memcpy(&nDmaType, lpPacket, sizeof(nDmaType));
    return nDmaType;
}

}  // namespace

/** What a delivered message belongs to. */
struct CKovaShfeMdApiImpl::SDeliveryContext {
    CKovaShfeMdApiImpl& refMdApi;
    uint16_t nDstPort;

    static void Parse(const mdqp_t* lpMdqp, void* lpContext) {
        const auto& refContext = *static_cast<SDeliveryContext*>(lpContext);
        _ParseMdqp(lpMdqp, refContext.nDstPort, refContext.refMdApi);
    }
};

void CKovaShfeMdApiImpl::_TcpHandler(const unsigned char* lpPacket, unsigned int length, void* user_data) {
    if (user_data == nullptr || lpPacket == nullptr) {
        KOVA_LOG(LOG_DEBUG, "user_data or lpPacket is nullptr");
        return;
    }
    auto& refMdApi = *static_cast<CKovaShfeMdApiImpl*>(user_data);
    // Nothing is thrown through the SDK, which calls this.
    if (CallNoThrow([&] { return refMdApi._TakeMessage(lpPacket, length); }, -1) != 0) {
        KOVA_LOG(LOG_ERROR, "memory exhausted, snapshot given up");
        refMdApi.m_isSnapshotFailed = true;
    }
}

int32_t CKovaShfeMdApiImpl::_TakeMessage(const uint8_t* lpPacket, uint32_t nLength) {
    _Capture(lpPacket, nLength);
    const uint32_t nUsed = std::min(nLength, WORK_BUFFER_SIZE);
    if (IsSelfContained(lpPacket, nUsed)) {
        _TakePacket(lpPacket, nUsed, nLength);
        return 0;
    }
    std::array<uint8_t, WORK_BUFFER_SIZE> packetBuf = {};
    std::memcpy(packetBuf.data(), lpPacket, nUsed);
    _TakePacket(packetBuf.data(), WORK_BUFFER_SIZE, nLength);
    return 0;
}

void CKovaShfeMdApiImpl::_Capture(const uint8_t* lpPacket, uint32_t nLength) {
    if (!m_u50ConfigInfo.dma_data_flag) {
        return;
    }
    const uint32_t nHeader = std::min(nLength, DMA_TCP_FRAME_OFFSET);
    m_writeDmaShot.WriteShotBinLog(lpPacket, nLength);
    m_writeDmaShot.WriteShotPcapLog(lpPacket + nHeader, nLength - nHeader);
}

void CKovaShfeMdApiImpl::_TakePacket(const uint8_t* lpPacket, uint32_t nRoom, uint32_t nLength) {
    if (DmaTypeOf(lpPacket) != DMA_TCP) {
        _LogForeignMessage(lpPacket);
        return;
    }
    const uint8_t* const lpFrame = lpPacket + DMA_TCP_FRAME_OFFSET;
    const STcpSegment segment = ReadTcpSegment(lpFrame, nRoom - DMA_TCP_FRAME_OFFSET);
    if (segment.nProtocol != IPPROTO_TCP || !_IsSnapshotPort(segment.nDstPort)) {
        return;
    }
    if (!segment.isSound) {
        KOVA_LOG_AS(LOG_ERROR, TCP_HANDLER, "TcpCheckSum false");
        return;
    }
    if (const uint16_t tcpchecksum = SegmentCheckSum(segment); tcpchecksum != segment.nCheck) {
        KOVA_LOG_AS(LOG_ERROR, TCP_HANDLER, "TcpCheckSum false, tcp_hdr->check is 0x%x, tcpchecksum is 0x%x",
                    segment.nCheck, tcpchecksum);
        return;
    }
    if (!_CompleteSnapshot()) {
        return;
    }
    if (segment.isResetAck) {
        _Cleandata(*this);
        KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "rst msg, Session closed dstport:%d", segment.nDstPort);
        return;
    }
    m_snapshotDirt.AddSession(segment.nDstPort);
    if (m_sessions[segment.nDstPort].init == 0) {
        _OpenSession(segment);
        return;
    }
    _TakeSegment(segment, lpFrame, nLength - DMA_TCP_FRAME_OFFSET);
}

void CKovaShfeMdApiImpl::_LogForeignMessage(const uint8_t* lpPacket) const {
    U50Event event;
    std::memcpy(&event, lpPacket, sizeof(event));
    KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "invalide DMA Data Type[%u]", event.dma_type);
    if (event.dma_type == DMA_EVENT) {
        KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER,
                    "channel%d receive DMA_EVENT event_data0[%u] event_data1[%u] event_data2[%u] "
                    "event_data3[%u] event_data4[%u] event_data5[%u]",
                    m_u50ConfigInfo.channel_id, event.event_data0, event.event_data1, event.event_data2,
                    event.event_data3, event.event_data4, event.event_data5);
    }
}

bool CKovaShfeMdApiImpl::_IsSnapshotPort(uint16_t nPort) const noexcept {
    const U50SnapTcpPort& refPorts = m_u50ConfigInfo.snapTcpPort;
    return nPort == refPorts.shfe2ps_snap_port || nPort == refPorts.shfe4ps_snap_port ||
           nPort == refPorts.ine2ps_snap_port || nPort == refPorts.ine4ps_snap_port;
}

bool CKovaShfeMdApiImpl::_CompleteSnapshot() {
    const uint8_t nEnabled = m_u50ConfigInfo.enabled_mask.enabled_mask;
    if (nEnabled == 0) {
        KOVA_LOG_AS(LOG_ERROR, TCP_HANDLER, "both shfe and ine are not subscribed");
        return false;
    }
    if (nEnabled != m_finishedMask.enabled_mask) {
        return true;
    }
    if (ShfePriceCheck(*this) != 0) {
        _Cleandata(*this);
        KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "price check is error, shot cnt is %d.",
                    m_writeDmaShot.GetBinShotCnt());
        return false;
    }
    m_isTcpInitFinished = true;
    if (m_u50ConfigInfo.debug_flag) {
        usleep(m_u50ConfigInfo.dma_sleep);
        KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "DMA sleep %dus", m_u50ConfigInfo.dma_sleep);
    }
    {
        const CLogLevelScope everything(LOG_EVERYTHING, m_u50ConfigInfo.log_level);
        m_drvRegEnyx.WriteRegister(REG_INIT_MASK, 0);
    }
    _WriteContractTables();
    return true;
}

int CKovaShfeMdApiImpl::_InitTcpSession(tcp_session_t& refSession, int dstPort) {
    if (refSession.frag_buf == nullptr) {
        refSession.frag_buf = new (std::nothrow) uint8_t[TCP_FRAG_BUF_SIZE]();
        if (refSession.frag_buf == nullptr) {
            KOVA_LOG(LOG_ERROR, "failed to allocate memcory for fragment memory.");
            return -1;
        }
        KOVA_LOG(LOG_DEBUG, " dstPort:%d frag_buf:%p", dstPort, static_cast<void*>(refSession.frag_buf));
    }
    // A cycle that ended while early frames were waiting leaves them behind.
    FreeEarlyFrames(refSession);
    refSession.frag_buf_offset = 0;
    return 0;
}

void CKovaShfeMdApiImpl::_OpenSession(const STcpSegment& refSegment) {
    tcp_session_t& refSession = m_sessions[refSegment.nDstPort];
    if (_InitTcpSession(refSession, refSegment.nDstPort) != 0) {
        return;
    }
    refSession.dst_host = refSegment.nDstHost;
    refSession.src_host = refSegment.nSrcHost;
    refSession.dst_port = refSegment.nDstPort;
    refSession.src_port = refSegment.nSrcPort;
    if (!IsOpeningPayload(refSegment.lpPayload, refSegment.nPayloadSize)) {
        return;
    }
    refSession.current_seq = refSegment.nSeq;
    refSession.next_expt_seq = refSession.current_seq + refSegment.nPayloadSize;
    uint32_t nOffset = sizeof(mdqp_t);
    while (const auto snap = NextSnapField(refSegment.lpPayload, refSegment.nPayloadSize, nOffset)) {
        KOVA_LOG_AS(LOG_DEBUG, TCP_HANDLER, "mdqp packet. TCP dst port: %d", refSegment.nDstPort);
        KOVA_LOG_AS(LOG_DEBUG, TCP_HANDLER, "topic ID: %d, snap No: %d", snap->topic_id, snap->snap_no);
        if (!_AcceptTopic(snap->topic_id, refSession)) {
            return;
        }
    }
    SDeliveryContext context = {*this, refSegment.nDstPort};
    DeliverInOrder(refSession, refSegment, {&SDeliveryContext::Parse, &context});
}

bool CKovaShfeMdApiImpl::_AcceptTopic(int32_t nTopicId, tcp_session_t& refSession) {
    const U50TopicID& refTopic = m_u50ConfigInfo.topicID;
    const std::array<std::pair<int32_t, EMDQPDataType>, MDQP_FEED_COUNT> arrTopic = {{
        {refTopic.ine2ps_topic_id, INE_2PS},
        {refTopic.shfe2ps_topic_id, SHFE_2PS},
        {refTopic.ine4ps_topic_id, INE_4PS},
        {refTopic.shfe4ps_topic_id, SHFE_4PS},
    }};
    const auto* const lpTopic =
        std::ranges::find(arrTopic, nTopicId, &std::pair<int32_t, EMDQPDataType>::first);
    if (lpTopic == arrTopic.end()) {
        KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "invalide topic id[%d]", nTopicId);
        return false;
    }
    const U50FeedInfo& refFeed = FEED_INFO[static_cast<size_t>(lpTopic->second)];
    const bool isEnabled = (m_u50ConfigInfo.enabled_mask.enabled_mask & refFeed.nMaskBit) != 0;
    const bool isFinished = (m_finishedMask.enabled_mask & refFeed.nMaskBit) != 0;
    if (!isEnabled || isFinished) {
        return false;
    }
    m_u50DstPort.*refFeed.lpDstPort = refSession.dst_port;
    refSession.init = 1;
    return true;
}

void CKovaShfeMdApiImpl::_TakeSegment(const STcpSegment& refSegment, const uint8_t* lpFrame, uint32_t nLength) {
    tcp_session_t& refSession = m_sessions[refSegment.nDstPort];
    if (refSegment.nDstHost != refSession.dst_host || refSegment.nSrcHost != refSession.src_host) {
        return;
    }
    SDeliveryContext context = {*this, refSegment.nDstPort};
    if (!TakeSegment(refSession, refSegment, lpFrame, nLength, {&SDeliveryContext::Parse, &context})) {
        _Cleandata(*this);
        KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "packet loss > 20 msg, free cache, init again.");
    }
}
