#include "snapshot/TcpReassembly.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "log/CommonLog.h"
#include "snapshot/TcpSegment.h"

namespace {

constexpr const char* TCP_HANDLER = "_TcpHandler";

/** Payloads of this size and less open no session: header, snapshot field and the like. */
constexpr uint32_t OPENING_PAYLOAD_SIZE = 44;

enum EDelivery : int32_t {
    DELIVERY_DONE = 0,
    DELIVERY_ABANDONED = 1, /**< the session was given up and its early frames are gone */
    DELIVERY_REFUSED = 2,   /**< no message starts where a fresh one should */
};

/** Whether a payload comes as it arrived or from the early frames, which are treated differently in details. */
enum EDeliveryMode : int32_t { DELIVERY_LIVE = 0, DELIVERY_REPLAY = 1 };

struct SMdqpRun {
    const uint8_t* lpLast; /**< the message handed over last */
    const uint8_t* lpRest; /**< what follows it */
    uint32_t nRest;
};

/** Length of the message that starts here; at least sizeof(mdqp_t) bytes are there. */
uint32_t MessageLength(const uint8_t* lpMessage) {
    mdqp_t mdqp;
    std::memcpy(&mdqp, lpMessage, sizeof(mdqp));
    return static_cast<uint32_t>(sizeof(mdqp)) + mdqp.length;
}

bool IsWholeMessage(const uint8_t* lpBytes, uint32_t nSize) {
    return nSize >= sizeof(mdqp_t) && nSize >= MessageLength(lpBytes);
}

/** Hands over one message after the other; the first one is whole. Only that one has had its header looked at.
 */
SMdqpRun HandOverRun(const uint8_t* lpBytes, uint32_t nSize, const SMdqpSink& refSink) {
    SMdqpRun run = {lpBytes, lpBytes, nSize};
    do {
        const uint32_t nLength = MessageLength(run.lpRest);
        refSink.lpFunc(reinterpret_cast<const mdqp_t*>(run.lpRest), refSink.lpContext);
        run.lpLast = run.lpRest;
        run.lpRest += nLength;
        run.nRest -= nLength;
    } while (IsWholeMessage(run.lpRest, run.nRest));
    return run;
}

/** Makes these bytes, which may lie in the fragment buffer already, the fragment. */
void KeepFragment(tcp_session_t& refSession, const uint8_t* lpBytes, uint32_t nSize) {
    std::memmove(refSession.frag_buf, lpBytes, nSize);
    refSession.frag_flag = nSize > 0 ? 1 : 0;
    refSession.frag_buf_offset = nSize;
}

/**
 * Keeps the rest of a run, with a flaw that captures of the stream depend on: of a rest too short for a message
 * header it keeps as many bytes from the start of the message before it.
 */
void KeepRestFlawed(tcp_session_t& refSession, const SMdqpRun& refRun) {
    const bool isShort = refRun.nRest < sizeof(mdqp_t);
    KeepFragment(refSession, isShort ? refRun.lpLast : refRun.lpRest, refRun.nRest);
}

EDelivery Abandon(tcp_session_t& refSession) {
    KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "ignore tcp message!");
    refSession.init = 0;
    refSession.frag_flag = 0;
    refSession.frag_buf_offset = 0;
    FreeEarlyFrames(refSession);
    delete[] refSession.frag_buf;
    refSession.frag_buf = nullptr;
    return DELIVERY_ABANDONED;
}

bool IsTooLong(uint32_t nFragmentSize, EDeliveryMode mode) {
    return mode == DELIVERY_LIVE ? nFragmentSize >= TCP_FRAGMENT_LIMIT : nFragmentSize > TCP_FRAG_BUF_SIZE;
}

/** Delivers a payload that goes on with the fragment. */
EDelivery DeliverToFragment(tcp_session_t& refSession, const uint8_t* lpPayload, uint32_t nSize,
                            EDeliveryMode mode, const SMdqpSink& refSink) {
    const uint32_t nFragmentSize = refSession.frag_buf_offset + nSize;
    if (IsTooLong(nFragmentSize, mode)) {
        return Abandon(refSession);
    }
    std::memcpy(refSession.frag_buf + refSession.frag_buf_offset, lpPayload, nSize);
    refSession.frag_buf_offset = nFragmentSize;
    // A header that is refused leaves the fragment to grow until it is too long.
    if (!IsMdqpHeader(refSession.frag_buf, nFragmentSize) ||
        !IsWholeMessage(refSession.frag_buf, nFragmentSize)) {
        return DELIVERY_DONE;
    }
    const SMdqpRun run = HandOverRun(refSession.frag_buf, nFragmentSize, refSink);
    if (mode == DELIVERY_REPLAY) {
        KeepRestFlawed(refSession, run);
    } else {
        KeepFragment(refSession, run.lpRest, run.nRest);
    }
    return DELIVERY_DONE;
}

/** An early frame may start only with the message that ends a snapshot: stricter than live ones, on purpose. */
bool IsFreshHeader(const uint8_t* lpPayload, uint32_t nSize, EDeliveryMode mode) {
    return IsMdqpHeader(lpPayload, nSize) && (mode == DELIVERY_LIVE || lpPayload[0] == MDQP_FLAG_LAST);
}

/** Delivers a payload that starts with a message. */
EDelivery DeliverFresh(tcp_session_t& refSession, const uint8_t* lpPayload, uint32_t nSize, EDeliveryMode mode,
                       const SMdqpSink& refSink) {
    if (!IsFreshHeader(lpPayload, nSize, mode)) {
        return DELIVERY_REFUSED;
    }
    if (!IsWholeMessage(lpPayload, nSize)) {
        KeepFragment(refSession, lpPayload, nSize);
        return DELIVERY_DONE;
    }
    KeepRestFlawed(refSession, HandOverRun(lpPayload, nSize, refSink));
    return DELIVERY_DONE;
}

EDelivery Deliver(tcp_session_t& refSession, const uint8_t* lpPayload, uint32_t nSize, EDeliveryMode mode,
                  const SMdqpSink& refSink) {
    return refSession.frag_flag == 1 ? DeliverToFragment(refSession, lpPayload, nSize, mode, refSink)
                                     : DeliverFresh(refSession, lpPayload, nSize, mode, refSink);
}

uint32_t SeqOf(const tcp_lost_buf_t& refFrame) {
    return ReadTcpSegment(refFrame.buf, sizeof(refFrame.buf)).nSeq;
}

/** Links a frame into the list between two neighbours, either of which may be null. */
void Link(tcp_session_t& refSession, tcp_lost_buf_t* lpBefore, tcp_lost_buf_t* lpFrame,
          tcp_lost_buf_t* lpNext) {
    lpFrame->before = lpBefore;
    lpFrame->next = lpNext;
    (lpBefore != nullptr ? lpBefore->next : refSession.lost_buf_head) = lpFrame;
    if (lpNext != nullptr) {
        lpNext->before = lpFrame;
    }
    refSession.lost_buf_size += 1;
}

/** Takes the first frame off the list. */
std::unique_ptr<tcp_lost_buf_t> Unlink(tcp_session_t& refSession) {
    std::unique_ptr<tcp_lost_buf_t> frame(refSession.lost_buf_head);
    refSession.lost_buf_head = frame->next;
    if (frame->next != nullptr) {
        frame->next->before = nullptr;
    }
    return frame;
}

/** What became of an early frame. */
enum EKeepResult : int32_t {
    KEEP_STORED = 0,
    KEEP_DUPLICATE = 1, /**< a frame with its sequence number waits already */
    KEEP_LIST_FULL = 2,
    KEEP_NO_MEMORY = 3,
};

/** Keeps a frame that came too early, in its place by sequence number. */
EKeepResult KeepEarlyFrame(tcp_session_t& refSession, const uint8_t* lpFrame, uint32_t nLength, uint32_t nSeq) {
    if (refSession.lost_flag == 1 && refSession.lost_buf_size >= TCP_LOST_FRAME_LIMIT) {
        return KEEP_LIST_FULL;
    }
    std::unique_ptr<tcp_lost_buf_t> frame(new (std::nothrow) tcp_lost_buf_t());
    if (!frame) {
        return KEEP_NO_MEMORY;
    }
    std::memcpy(frame->buf, lpFrame, nLength);
    frame->len = nLength;
    refSession.lost_flag = 1;

    tcp_lost_buf_t* lpBefore = nullptr;
    tcp_lost_buf_t* lpNext = refSession.lost_buf_head;
    while (lpNext != nullptr) {
        const uint32_t nNextSeq = SeqOf(*lpNext);
        // An equal frame is noticed at the head only; further down the new one becomes its neighbour.
        if (nNextSeq == nSeq && lpBefore == nullptr) {
            return KEEP_DUPLICATE;
        }
        if (nNextSeq >= nSeq) {
            break;
        }
        if (lpBefore != nullptr) {
            KOVA_LOG_AS(LOG_ERROR, TCP_HANDLER, "free the cache of packet loss.");
        }
        lpBefore = lpNext;
        lpNext = lpNext->next;
    }
    Link(refSession, lpBefore, frame.release(), lpNext);
    return KEEP_STORED;
}

/** Takes up the early frames that are in order by now, and frees those and the outdated ones. */
void ReplayEarlyFrames(tcp_session_t& refSession, const SMdqpSink& refSink) {
    while (refSession.lost_buf_head != nullptr) {
        const tcp_lost_buf_t& refHead = *refSession.lost_buf_head;
        const STcpSegment segment = ReadTcpSegment(refHead.buf, sizeof(refHead.buf));
        if (segment.nSeq > refSession.next_expt_seq) {
            return;
        }
        const std::unique_ptr<tcp_lost_buf_t> frame = Unlink(refSession);
        if (segment.nSeq < refSession.next_expt_seq) {
            continue;
        }
        refSession.next_expt_seq += segment.nPayloadSize;
        const EDelivery delivery =
            Deliver(refSession, segment.lpPayload, segment.nPayloadSize, DELIVERY_REPLAY, refSink);
        if (delivery == DELIVERY_ABANDONED) {
            return;
        }
        if (delivery == DELIVERY_REFUSED) {
            KOVA_LOG_AS(LOG_ERROR, TCP_HANDLER, "not a mdqp header, check program logic");
            return;
        }
    }
    refSession.lost_flag = 0;
    refSession.lost_buf_size = 0;
}

/** False when too many early frames are waiting. */
bool TakeEarlySegment(tcp_session_t& refSession, const STcpSegment& refSegment, const uint8_t* lpFrame,
                      uint32_t nLength) {
    // A frame may end before its segment does: the rest counts as zeros, which would have to be kept too.
    const uint32_t nWholeLength = std::max(nLength, static_cast<uint32_t>(IpFrameEnd(lpFrame)));
    if (nWholeLength > TCP_LOST_FRAME_SIZE) {
        KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "early frame of %u bytes is too long to be kept, dropped",
                    nWholeLength);
        return true;
    }
    switch (KeepEarlyFrame(refSession, lpFrame, nLength, refSegment.nSeq)) {
        case KEEP_STORED:
        case KEEP_DUPLICATE:
            return true;
        case KEEP_NO_MEMORY:
            KOVA_LOG_AS(LOG_ERROR, TCP_HANDLER, "failed to malloc buffer to store tcp_lost_buf_t");
            return true;
        case KEEP_LIST_FULL:
            break;
    }
    KOVA_LOG_AS(LOG_WARNING, TCP_HANDLER, "break tcp seq detected. expt: %u, Got: %u", refSession.next_expt_seq,
                refSegment.nSeq);
    return false;
}

}  // namespace

bool IsMdqpHeader(const uint8_t* lpBytes, uint32_t nSize) noexcept {
    return nSize >= 2 && (lpBytes[0] == MDQP_FLAG_LAST || lpBytes[0] == MDQP_FLAG_FIRST) &&
           lpBytes[1] == MDQP_TYPE_ID;
}

bool IsOpeningPayload(const uint8_t* lpPayload, uint32_t nSize) noexcept {
    return nSize > OPENING_PAYLOAD_SIZE && lpPayload[0] == MDQP_FLAG_FIRST && lpPayload[1] == MDQP_TYPE_ID;
}

std::optional<snap_t> NextSnapField(const uint8_t* lpPayload, uint32_t nSize, uint32_t& nOffset) noexcept {
    while (nSize - nOffset >= sizeof(field_t)) {
        field_t field;
        std::memcpy(&field, lpPayload + nOffset, sizeof(field));
        const uint8_t* const lpBody = lpPayload + nOffset + sizeof(field);
        const uint32_t nBodyRoom = nSize - nOffset - static_cast<uint32_t>(sizeof(field));
        const bool isWhole = field.field_size <= nBodyRoom;
        nOffset = isWhole ? nOffset + static_cast<uint32_t>(sizeof(field)) + field.field_size : nSize;
        if (isWhole && field.field_id == MDQP_FIELD_SNAP && field.field_size == sizeof(snap_t)) {
            snap_t snap;
            std::memcpy(&snap, lpBody, sizeof(snap));
            return snap;
        }
    }
    return std::nullopt;
}

bool TakeSegment(tcp_session_t& refSession, const STcpSegment& refSegment, const uint8_t* lpFrame,
                 uint32_t nLength, const SMdqpSink& refSink) {
    if (refSegment.nSeq < refSession.next_expt_seq) {
        return true;
    }
    if (refSegment.nSeq > refSession.next_expt_seq) {
        return TakeEarlySegment(refSession, refSegment, lpFrame, nLength);
    }
    refSession.next_expt_seq += refSegment.nPayloadSize;
    DeliverInOrder(refSession, refSegment, refSink);
    return true;
}

void DeliverInOrder(tcp_session_t& refSession, const STcpSegment& refSegment, const SMdqpSink& refSink) {
    Deliver(refSession, refSegment.lpPayload, refSegment.nPayloadSize, DELIVERY_LIVE, refSink);
    if (refSession.lost_flag == 1) {
        ReplayEarlyFrames(refSession, refSink);
    }
}

void FreeEarlyFrames(tcp_session_t& refSession) noexcept {
    while (refSession.lost_buf_head != nullptr) {
        Unlink(refSession);
    }
    refSession.lost_flag = 0;
    refSession.lost_buf_size = 0;
}
