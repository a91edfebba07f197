/**
 * From the segments of one connection to whole MDQP messages: keeps early frames, joins split messages, takes
 * early frames up again once the gap before them is closed.
 *
 * Plain functions over one session and bytes; nothing here knows the engine. The session is open: its fragment
 * buffer is allocated.
 */
#ifndef KOVA_SNAPSHOT_TCP_REASSEMBLY_H
#define KOVA_SNAPSHOT_TCP_REASSEMBLY_H

#include <cstddef>
#include <cstdint>
#include <optional>

#include "snapshot/TcpSession.h"
#include "wire/Mdqp.h"

/** Gets every whole message, in the order of the stream, valid during the call. */
struct SMdqpSink {
    void (*lpFunc)(const mdqp_t* lpMdqp, void* lpContext);
    void* lpContext;
};

/** How far a fragment may grow before the connection is given up. */
constexpr uint32_t TCP_FRAGMENT_LIMIT = 0x10000;
/** More early frames than this are never waiting. */
constexpr uint32_t TCP_LOST_FRAME_LIMIT = 500;

/** What became of an early frame. */
enum EKeepResult : int32_t {
    KEEP_STORED = 0,
    KEEP_DUPLICATE = 1, /**< a frame with its sequence number waits already */
    KEEP_LIST_FULL = 2, /**< TCP_LOST_FRAME_LIMIT frames are waiting */
    KEEP_NO_MEMORY = 3,
};

/** Whether a message of the snapshot stream starts here. */
[[nodiscard]] bool IsMdqpHeader(const uint8_t* lpBytes, uint32_t nSize) noexcept;

/** Whether the first message of a snapshot starts here and there is more than the smallest of them. */
[[nodiscard]] bool IsOpeningPayload(const uint8_t* lpPayload, uint32_t nSize) noexcept;

/**
 * The next snapshot field of a payload.
 *
 * @param nOffset where to go on; sizeof(mdqp_t) the first time, moved behind what was read.
 */
[[nodiscard]] std::optional<snap_t> NextSnapField(const uint8_t* lpPayload, uint32_t nSize,
                                                  uint32_t& nOffset) noexcept;

/** Hands over every message that an in-order payload completes and keeps what is left of it. */
void DeliverPayload(tcp_session_t& refSession, const uint8_t* lpPayload, uint32_t nSize,
                    const SMdqpSink& refSink);

/**
 * Keeps a frame that came too early, in its place by sequence number.
 *
 * @param lpFrame the frame from its Ethernet header on, at most TCP_LOST_FRAME_SIZE bytes, headers sound.
 */
[[nodiscard]] EKeepResult KeepEarlyFrame(tcp_session_t& refSession, const uint8_t* lpFrame, uint32_t nLength,
                                         uint32_t nSeq);

/** Takes up the early frames that are in order by now, and frees those and the outdated ones. */
void ReplayEarlyFrames(tcp_session_t& refSession, const SMdqpSink& refSink);

/** Frees the list of early frames. */
void FreeEarlyFrames(tcp_session_t& refSession) noexcept;

#endif  // KOVA_SNAPSHOT_TCP_REASSEMBLY_H
