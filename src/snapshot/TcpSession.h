/**
 * What is remembered of one TCP connection of the snapshot stream.
 */
#ifndef KOVA_SNAPSHOT_TCP_SESSION_H
#define KOVA_SNAPSHOT_TCP_SESSION_H

#include <cstddef>
#include <cstdint>

/** Longest frame that is kept while it waits for an earlier one. */
constexpr size_t TCP_LOST_FRAME_SIZE = 1600;
/** Bytes of a fragment buffer. */
constexpr size_t TCP_FRAG_BUF_SIZE = 100000;
/** Sessions are indexed by destination port, so there is one for every port. */
constexpr size_t TCP_SESSION_COUNT = 65536;

/** A frame that came too early. Allocated with `new (std::nothrow) tcp_lost_buf_t()`. */
struct tcp_lost_buf_t {
    uint8_t buf[TCP_LOST_FRAME_SIZE]; /**< from its Ethernet header on */
    uint32_t len;
    tcp_lost_buf_t* next;   /**< higher sequence number */
    tcp_lost_buf_t* before; /**< lower sequence number */
};

/**
 * One connection. All zero means closed and owning nothing.
 *
 * It has no constructor, so that the engine's 65536 of them are one run of zeros.
 */
struct tcp_session_t {
    uint32_t src_host;             /**< as it stands in the IP header */
    uint32_t dst_host;             /**< as it stands in the IP header */
    uint16_t src_port;             /**< host order */
    uint16_t dst_port;             /**< host order */
    tcp_lost_buf_t* lost_buf_head; /**< owned list of early frames, ascending by sequence number */
    uint8_t* frag_buf; /**< owned, `new (std::nothrow) uint8_t[TCP_FRAG_BUF_SIZE]`: the head of an unfinished
                          message */
    uint32_t lost_buf_size;   /**< frames put into the list since it began; the ones taken off it still count */
    uint32_t frag_buf_offset; /**< bytes in frag_buf */
    uint32_t next_expt_seq;   /**< next expected sequence number, host order */
    uint32_t current_seq;     /**< sequence number of the first segment, host order */
    uint8_t frag_flag;        /**< 1 while frag_buf holds an unfinished message */
    uint8_t lost_flag;        /**< 1 while the list is in use */
    uint8_t init;             /**< 1 once the connection's first snapshot segment was seen */
    uint8_t reserved;
};

/** Frees everything the session owns and zeroes it. */
void ResetSession(tcp_session_t& refSession) noexcept;

#endif  // KOVA_SNAPSHOT_TCP_SESSION_H
