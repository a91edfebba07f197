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

#include "snapshot/TcpSegment.h"
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

/**
 * Takes one segment of the connection: hands over what it completes, keeps it when it is early, drops it when
 * it is outdated. What cannot be kept is told in the log.
 *
 * @param refSegment sound.
 * @param lpFrame the segment's frame from its Ethernet header on, `nLength` bytes.
 * @return false when too many early frames are waiting: what was taken of the snapshot so far is useless.
 */
[[nodiscard]] bool TakeSegment(tcp_session_t& refSession, const STcpSegment& refSegment, const uint8_t* lpFrame,
                               uint32_t nLength, const SMdqpSink& refSink);

/**
 * Hands over every message that an in-order payload completes and keeps what is left of it; then does the same
 * with early frames that are in order by now.
 */
void DeliverInOrder(tcp_session_t& refSession, const STcpSegment& refSegment, const SMdqpSink& refSink);

/** Frees the list of early frames. */
void FreeEarlyFrames(tcp_session_t& refSession) noexcept;

#endif  // KOVA_SNAPSHOT_TCP_REASSEMBLY_H
