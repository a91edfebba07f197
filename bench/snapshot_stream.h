/**
 * The snapshot of one feed as the card hands it to the host: DMA messages, each with the frame of one TCP
 * segment.
 */
#ifndef KOVA_BENCH_SNAPSHOT_STREAM_H
#define KOVA_BENCH_SNAPSHOT_STREAM_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kova::bench {

constexpr std::uint16_t kSnapshotPort = 33022;
constexpr std::int16_t kSnapshotTopic = 1000;

/** DMA messages in one piece of memory, a multiple of 64 bytes apart as in the card's ring. */
struct SnapshotStream {
    struct Message {
        std::size_t offset;
        std::uint32_t size;
    };

    std::vector<std::uint8_t> memory;
    std::vector<Message> messages;
    std::size_t payload_bytes = 0;

    [[nodiscard]] const std::uint8_t* begin(const Message& message) const {
        return memory.data() + message.offset;
    }
};

/**
 * Instruments 0 to `instruments` - 1, each with its description, its trading, ten price levels and its order
 * statistics, several of them a message; in segments of 1460 bytes, none of which ends inside the header of a
 * message.
 */
[[nodiscard]] SnapshotStream make_snapshot_stream(std::int32_t instruments);

}  // namespace kova::bench

#endif  // KOVA_BENCH_SNAPSHOT_STREAM_H
