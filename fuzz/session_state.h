/**
 * What holds of a session of the snapshot stream between any two segments.
 */
#ifndef KOVA_FUZZ_SESSION_STATE_H
#define KOVA_FUZZ_SESSION_STATE_H

#include <cstddef>
#include <cstdint>

#include "fuzz/require.h"
#include "snapshot/TcpSession.h"

namespace kova::fuzz {

constexpr std::uint32_t kFragmentRoom = 100'000;
constexpr std::uint32_t kMostEarlyFrames = 500;
constexpr std::uint32_t kLongestEarlyFrame = 1600;

/** The sequence number of a frame. */
inline std::uint32_t seq_of(const tcp_lost_buf_t& frame) {
    const std::size_t tcp = 14 + 4U * (frame.buf[14] & 0x0FU);
    std::uint32_t seq = 0;
    for (std::size_t i = tcp + 4; i < tcp + 8; ++i) {
        seq = seq << 8U | frame.buf[i];
    }
    return seq;
}

inline void require_sound_list(const tcp_session_t& session) {
    std::uint32_t count = 0;
    const tcp_lost_buf_t* before = nullptr;
    for (const tcp_lost_buf_t* frame = session.lost_buf_head; frame != nullptr; frame = frame->next) {
        ++count;
        require(count <= kMostEarlyFrames, "no more than 500 early frames");
        require(frame->before == before, "the list's links agree");
        require(frame->len <= kLongestEarlyFrame, "an early frame fits its buffer");
        require(before == nullptr || seq_of(*before) <= seq_of(*frame), "the list is sorted");
        before = frame;
    }
    require(count <= session.lost_buf_size, "the list is not longer than its count");
    require(session.lost_buf_size <= kMostEarlyFrames, "the count is bounded");
    require(count == 0 || session.lost_flag == 1, "a list is in use");
    require(session.lost_flag == 1 || session.lost_buf_size == 0, "a list that is not in use counts nothing");
}

inline void require_sound(const tcp_session_t& session) {
    require(session.frag_flag <= 1 && session.lost_flag <= 1 && session.init <= 1, "flags are 0 or 1");
    require(session.frag_buf_offset <= kFragmentRoom, "the fragment fits its buffer");
    require(session.frag_flag == 1 || session.frag_buf_offset == 0, "without a fragment nothing is kept");
    require(session.frag_buf != nullptr || (session.init == 0 && session.frag_flag == 0),
            "an open session has a buffer");
    require_sound_list(session);
}

inline void require_closed(const tcp_session_t& session) {
    require(session.lost_buf_head == nullptr && session.frag_buf == nullptr, "a closed session owns nothing");
    require(session.lost_buf_size == 0 && session.frag_buf_offset == 0 && session.next_expt_seq == 0 &&
                session.frag_flag == 0 && session.lost_flag == 0 && session.init == 0,
            "a closed session is zero");
}

}  // namespace kova::fuzz

#endif  // KOVA_FUZZ_SESSION_STATE_H
