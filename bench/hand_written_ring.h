/**
 * What one would write by hand to carry messages of one size between two processes: a ring of slots, each with
 * a valid word that the reader polls, and nothing else. No opening and closing, no counters, no longer
 * messages, no recovery. The measure for the simulated card's stream, which has all of these.
 */
#ifndef KOVA_BENCH_HAND_WRITTEN_RING_H
#define KOVA_BENCH_HAND_WRITTEN_RING_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kova::bench {

template <std::uint32_t kSlotCountLog2, std::size_t kMessageBytes>
struct HandWrittenRing {
    static constexpr std::uint64_t kSlots = std::uint64_t{1} << kSlotCountLog2;
    static constexpr std::uint64_t kPublishDistance = 64;

    struct alignas(64) Slot {
        std::atomic<std::uint32_t> valid;  // lap of the message that lies here, from 1
        std::uint32_t size;
        std::array<std::uint8_t, kMessageBytes> message;
    };

    static std::uint32_t lap_of(std::uint64_t position) {
        return static_cast<std::uint32_t>(position >> kSlotCountLog2) + 1;
    }

    alignas(64) std::atomic<std::uint64_t> consumed;  // by the reader, now and then
    std::array<Slot, kSlots> slots;
};

template <typename Ring>
class HandWrittenWriter {
 public:
    explicit HandWrittenWriter(Ring& ring) : ring_(&ring) {}

    /** False when the ring is full. */
    bool push(const void* message, std::size_t size) {
        if (position_ - consumed_ == Ring::kSlots) {
            consumed_ = ring_->consumed.load(std::memory_order_acquire);
            if (position_ - consumed_ == Ring::kSlots) {
                return false;
            }
        }
        typename Ring::Slot& slot = ring_->slots[position_ % Ring::kSlots];
        std::memcpy(slot.message.data(), message, size);
        slot.size = static_cast<std::uint32_t>(size);
        slot.valid.store(Ring::lap_of(position_), std::memory_order_release);
        ++position_;
        return true;
    }

 private:
    Ring* ring_;
    std::uint64_t position_ = 0;
    std::uint64_t consumed_ = 0;
};

template <typename Ring>
class HandWrittenReader {
 public:
    explicit HandWrittenReader(Ring& ring) : ring_(&ring) {}

    /** 1 when a message was handed to the handler, 0 when there is none. */
    template <typename Handler>
    int poll(Handler&& handler) {
        const typename Ring::Slot& slot = ring_->slots[position_ % Ring::kSlots];
        if (slot.valid.load(std::memory_order_acquire) != Ring::lap_of(position_)) {
            return 0;
        }
        handler(slot.message.data(), slot.size);
        ++position_;
        if (position_ % Ring::kPublishDistance == 0) {
            ring_->consumed.store(position_, std::memory_order_release);
        }
        return 1;
    }

 private:
    Ring* ring_;
    std::uint64_t position_ = 0;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_HAND_WRITTEN_RING_H
