/**
 * Where something of a snapshot may stand in the engine's memory.
 *
 * The instrument tables and the TCP sessions are 14 MB, and an application may go on calling a stopped receiver
 * in a loop: throwing a snapshot away costs as much as there is of one, and next to nothing when there is none.
 */
#ifndef KOVA_SNAPSHOT_SNAPSHOT_DIRT_H
#define KOVA_SNAPSHOT_SNAPSHOT_DIRT_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

#include "snapshot/TcpSession.h"
#include "wire/Feed.h"

struct SSnapshotDirt {
    /** One past the highest row written, for each feed's table. */
    std::array<int32_t, MDQP_FEED_COUNT> arrRowEnd = {};
    /** Ports of the sessions written lie from here on ... */
    uint32_t nFirstPort = TCP_SESSION_COUNT;
    /** ... and below this. */
    uint32_t nPortEnd = 0;

    /** Called for every field of the snapshot, and most of an instrument's fields find its row named already.
     */
    void AddRows(size_t nFeed, int32_t nRowEnd) noexcept {
        if (nRowEnd > arrRowEnd[nFeed]) [[unlikely]] {
            arrRowEnd[nFeed] = nRowEnd;
        }
    }
    void AddSession(uint16_t nPort) noexcept {
        nFirstPort = std::min<uint32_t>(nFirstPort, nPort);
        nPortEnd = std::max<uint32_t>(nPortEnd, nPort + 1U);
    }
    [[nodiscard]] bool IsEmpty() const noexcept {
        return nPortEnd == 0 && std::ranges::all_of(arrRowEnd, [](int32_t nRowEnd) { return nRowEnd == 0; });
    }
};

#endif  // KOVA_SNAPSHOT_SNAPSHOT_DIRT_H
