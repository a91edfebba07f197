/**
 * One stream between host and card: a ring of slots that lies in shared memory like a DMA ring in host memory.
 *
 * The reader finds a message by a valid word in the slot itself, so a poll that finds nothing touches one cache
 * line and no index that the writer also writes. The valid word is the number of the lap that the slot was
 * written in, so the reader never clears it: in steady state it writes nothing to the slots at all, and the
 * writer learns how far the reader is from a position that the reader publishes now and then.
 *
 *     slot, 192 bytes    0     4      8
 *                        lap   size   message ... (184 bytes: a whole quote message)
 *
 * A longer message goes on over the slots behind its first one, so that it lies in one piece; a message at the
 * end of the ring goes on into the overhang behind it. What such a message leaves in the lap words of the slots
 * it ran over could be mistaken for a lap later, so the writer remembers those slots and clears the lap word of
 * the next slot before it publishes a message, if that slot is one of them. A ring of quotes has none.
 *
 * A writer that finds the ring full drops the message at hand: the newest is lost, and counted. A writer whose
 * stream nobody has open drops it too, and counts it apart.
 *
 * One writer and one reader at a time. Both may be killed at any instruction: the other goes on.
 */
#ifndef KOVA_SIM_CARD_STREAM_RING_H
#define KOVA_SIM_CARD_STREAM_RING_H

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

namespace kova::sim {

inline constexpr std::size_t kCacheLine = 64;

/** Bytes of one slot. */
inline constexpr std::size_t kSlotBytes = 192;
/** Bytes of a slot before the message. */
inline constexpr std::size_t kSlotHeaderBytes = 8;
/** Longest message of any stream. */
inline constexpr std::size_t kLongestMessage = 4096;
/** Slots behind the last one, for a message that starts close to the end of the ring. */
inline constexpr std::size_t kOverhangSlots =
    (kLongestMessage + kSlotHeaderBytes + kSlotBytes - 1) / kSlotBytes;

struct alignas(kCacheLine) RingSlot {
    std::atomic<std::uint32_t> lap;  // 0 before the first lap
    std::uint32_t size;
    std::byte message[kSlotBytes - kSlotHeaderBytes];
};

static_assert(sizeof(RingSlot) == kSlotBytes);
static_assert(std::atomic<std::uint32_t>::is_always_lock_free);

/** What the two sides of a ring tell each other, grouped by who writes it. */
struct RingControl {
    // Written when the stream is made, opened and closed.
    alignas(kCacheLine) std::uint32_t slot_count_log2;
    std::uint32_t mtu;
    std::atomic<std::uint64_t> reader;        // process id << 32 | number of the opening; 0: nobody has it open
    std::atomic<std::uint64_t> opened_count;  // openings so far

    // Written by the writer. `begun` leads `tail` while a message is being written.
    alignas(kCacheLine) std::atomic<std::uint64_t> begun;
    std::atomic<std::uint64_t> sent;     // messages
    std::atomic<std::uint64_t> tail;     // position behind the last message, in slots
    std::atomic<std::uint64_t> lost;     // messages dropped because the ring was full
    std::atomic<std::uint64_t> unheard;  // messages dropped because nobody had the stream open

    // Written by the reader.
    alignas(kCacheLine) std::atomic<std::uint64_t> consumed;  // position, in slots; published now and then
    std::atomic<std::uint64_t> taken;                         // messages handed to a handler
    std::atomic<std::uint64_t> abandoned;                     // messages that a reader left behind unread
};

static_assert(sizeof(RingControl) == 3 * kCacheLine);

/** Slots that a message of this size takes. */
[[nodiscard]] constexpr std::uint64_t slots_of(std::size_t size) {
    return (size + kSlotHeaderBytes + kSlotBytes - 1) / kSlotBytes;
}

/** Lap word of the slot at a position. */
[[nodiscard]] constexpr std::uint32_t lap_of(std::uint64_t position, std::uint32_t slot_count_log2) {
    return static_cast<std::uint32_t>(position >> slot_count_log2) + 1;
}

/** Bytes of a message that share the slot's first line with its valid word. */
inline constexpr std::size_t kFirstLineBytes = kCacheLine - kSlotHeaderBytes;

/** Keeps the compiler from moving stores over this point; the processor keeps their order anyway. */
inline void keep_store_order() {
    std::atomic_signal_fence(std::memory_order_acq_rel);
}

/**
 * Copies a message to its place in a slot, what shares the line with the valid word last: the reader polls that
 * line and so takes it away from the writer again and again. Written right before the valid word, it has to be
 * fetched back only once.
 */
inline void copy_to_slot(std::byte* place, const std::byte* message, std::size_t size) {
    if (size > kFirstLineBytes) {
        std::memcpy(place + kFirstLineBytes, message + kFirstLineBytes, size - kFirstLineBytes);
        size = kFirstLineBytes;
    }
    keep_store_order();
    std::memcpy(place, message, size);
}

/** Makes an empty stream in zeroed memory. */
inline void format_ring(RingControl& control, std::uint32_t slot_count_log2, std::uint32_t mtu) {
    control.slot_count_log2 = slot_count_log2;
    control.mtu = mtu;
}

enum class PushResult { kSent, kLost, kUnheard };

/** The writing side. The caller sees to it that a stream has only one at a time. */
class RingWriter {
 public:
    /** Goes on where an earlier writer of the stream, of whatever process and however it ended, has stopped. */
    RingWriter(RingControl& control, RingSlot* slots)
        : control_(&control),
          slots_(slots),
          slot_count_(std::uint64_t{1} << control.slot_count_log2),
          slot_count_log2_(control.slot_count_log2),
          position_(control.tail.load(std::memory_order_relaxed)),
          sent_(control.sent.load(std::memory_order_relaxed)) {
        if (control.begun.load(std::memory_order_relaxed) != 0) {
            resume();
        }
    }

    /**
     * Writes one message of `size` bytes (at most the stream's MTU): `fill` writes them where they will lie.
     *
     * Called by one thread. Never waits. Throws std::bad_alloc, nothing written, at the first message of more
     * than one slot.
     */
    template <typename Fill>
    PushResult push(std::size_t size, Fill&& fill) {
        RingControl& control = *control_;
        if (control.reader.load(std::memory_order_relaxed) == 0) [[unlikely]] {
            count(control.unheard);
            return PushResult::kUnheard;
        }
        const std::uint64_t end = position_ + slots_of(size);
        if (!has_room_until(end)) [[unlikely]] {
            count(control.lost);
            return PushResult::kLost;
        }
        // First of all, since memory for it may be missing.
        if (end - position_ > 1) [[unlikely]] {
            remember_overrun(position_, end);
        }
        RingSlot& slot = slots_[position_ & (slot_count_ - 1)];
        control.begun.store(end, std::memory_order_relaxed);
        fill(reinterpret_cast<std::byte*>(&slot) + kSlotHeaderBytes);
        if (any_overrun_) [[unlikely]] {
            clear_if_overrun(end);
        }
        slot.size = static_cast<std::uint32_t>(size);
        slot.lap.store(lap_of(position_, slot_count_log2_), std::memory_order_release);
        control.sent.store(++sent_, std::memory_order_release);
        control.tail.store(end, std::memory_order_release);
        position_ = end;
        return PushResult::kSent;
    }

    /** Whether a message of this size would not be lost now. It would not where nobody is listening either. */
    [[nodiscard]] bool has_room(std::size_t size) {
        return control_->reader.load(std::memory_order_relaxed) == 0 ||
               has_room_until(position_ + slots_of(size));
    }

    PushResult push(std::span<const std::byte> message) {
        return push(message.size(),
                    [message](std::byte* place) { copy_to_slot(place, message.data(), message.size()); });
    }

 private:
    // A writer killed between the lap word and the tail has published a message that the tail does not know
    // yet. What its messages ran over is not known either, so every slot is cleared before it is used.
    void resume() {
        const RingSlot& slot = slots_[position_ & (slot_count_ - 1)];
        if (slot.lap.load(std::memory_order_relaxed) == lap_of(position_, slot_count_log2_)) {
            position_ += slots_of(slot.size);
            ++sent_;
        }
        control_->sent.store(sent_, std::memory_order_release);
        control_->begun.store(position_, std::memory_order_relaxed);
        control_->tail.store(position_, std::memory_order_release);
        overrun_.assign(slot_count_, true);
        any_overrun_ = true;
    }

    static void count(std::atomic<std::uint64_t>& counter) {
        counter.store(counter.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }

    // One slot always stays free, since the slot behind the message may have to be cleared.
    [[nodiscard]] bool has_room_until(std::uint64_t end) {
        if (end + 1 - consumed_ <= slot_count_) [[likely]] {
            return true;
        }
        consumed_ = control_->consumed.load(std::memory_order_acquire);
        return end + 1 - consumed_ <= slot_count_;
    }

    void clear_if_overrun(std::uint64_t next) {
        const std::uint64_t index = next & (slot_count_ - 1);
        if (overrun_[index]) {
            slots_[index].lap.store(0, std::memory_order_relaxed);
            overrun_[index] = false;
        }
    }

    // Slots in the overhang have no lap word that anybody reads.
    void remember_overrun(std::uint64_t begin, std::uint64_t end) {
        const std::uint64_t first = begin & (slot_count_ - 1);
        const std::uint64_t last = first + (end - begin);
        if (!any_overrun_) {
            overrun_.assign(slot_count_, false);
            any_overrun_ = true;
        }
        for (std::uint64_t index = first + 1; index < last && index < slot_count_; ++index) {
            overrun_[index] = true;
        }
    }

    RingControl* control_;
    RingSlot* slots_;
    std::uint64_t slot_count_;
    std::uint32_t slot_count_log2_;
    bool any_overrun_ = false;
    std::uint64_t position_;
    std::uint64_t consumed_ = 0;  // what the reader had published when it was last looked at
    std::uint64_t sent_;
    std::vector<bool> overrun_;
};

/** The reading side, between the opening and the closing of a stream. */
class RingReader {
 public:
    /**
     * Opens the stream behind everything written so far: what an earlier reader left unread is abandoned.
     *
     * The caller has made sure that nobody else has the stream open.
     */
    RingReader(RingControl& control, RingSlot* slots, std::uint32_t process_id)
        : control_(&control),
          slots_(slots),
          mask_((std::uint64_t{1} << control.slot_count_log2) - 1),
          slot_count_log2_(control.slot_count_log2),
          publish_distance_(std::min(kPublishDistance, (mask_ + 1) / 8)) {
        const std::uint64_t sent = position_behind_last_message();
        const std::uint64_t accounted =
            control.taken.load(std::memory_order_relaxed) + control.abandoned.load(std::memory_order_relaxed);
        control.abandoned.fetch_add(sent - accounted, std::memory_order_relaxed);
        control.consumed.store(position_, std::memory_order_release);
        taken_ = control.taken.load(std::memory_order_relaxed);
        published_ = position_;
        token_ = (std::uint64_t{process_id} << 32) |
                 (control.opened_count.fetch_add(1, std::memory_order_relaxed) & 0xFFFFFFFF);
        control.reader.store(token_, std::memory_order_release);
    }

    ~RingReader() { close(); }

    /**
     * Closes the stream; what is still unread in it is abandoned by the next opening.
     *
     * Once and for all: the stream may have another reader afterwards, whose position is not to be touched.
     */
    void close() {
        if (token_ == 0) {
            return;
        }
        publish();
        std::uint64_t own = std::exchange(token_, 0);
        control_->reader.compare_exchange_strong(own, 0, std::memory_order_release);
    }

    RingReader(const RingReader&) = delete;
    RingReader& operator=(const RingReader&) = delete;

    /**
     * Hands the next message, if there is one, to `handler(const std::uint8_t* message, std::uint32_t size)`
     * where it lies. Returns 1 if it did, 0 if there is none, -1 if the slot holds what no writer writes.
     */
    template <typename Handler>
    int poll(Handler&& handler) {
        const std::uint64_t position = position_;
        const RingSlot& slot = slots_[position & mask_];
        if (slot.lap.load(std::memory_order_acquire) != lap_of(position, slot_count_log2_)) [[unlikely]] {
            if (published_ != position) [[unlikely]] {
                publish();
            }
            return 0;
        }
        const std::uint32_t size = slot.size;
        if (size > kLongestMessage) [[unlikely]] {
            return -1;
        }
        handler(reinterpret_cast<const std::uint8_t*>(&slot) + kSlotHeaderBytes, size);
        // A branch and not a sum: where the next message lies is then not waiting for this one's size.
        std::uint64_t next = position + 1;
        if (size > kSlotBytes - kSlotHeaderBytes) [[unlikely]] {
            next = position + slots_of(size);
        }
        position_ = next;
        ++taken_;
        if (next - published_ >= publish_distance_) [[unlikely]] {
            publish();
        }
        return 1;
    }

 private:
    // Slots between two publications of the position while messages keep coming, if the ring has enough.
    static constexpr std::uint64_t kPublishDistance = 64;
    static constexpr int kMostTries = 100'000;

    // Takes the position and the count of sent messages that belong together: none began after the position.
    [[nodiscard]] std::uint64_t position_behind_last_message() {
        // A writer that was killed in between never ends what it began, hence the bound.
        for (int tries = 0;; ++tries) {
            position_ = control_->tail.load(std::memory_order_acquire);
            const std::uint64_t sent = control_->sent.load(std::memory_order_acquire);
            if (control_->begun.load(std::memory_order_acquire) == position_ || tries == kMostTries) {
                return sent;
            }
            sched_yield();
        }
    }

    void publish() {
        control_->taken.store(taken_, std::memory_order_relaxed);
        control_->consumed.store(position_, std::memory_order_release);
        published_ = position_;
    }

    RingControl* control_;
    RingSlot* slots_;
    std::uint64_t mask_;
    std::uint32_t slot_count_log2_;
    std::uint64_t publish_distance_;
    std::uint64_t position_ = 0;
    std::uint64_t published_ = 0;
    std::uint64_t taken_ = 0;
    std::uint64_t token_ = 0;  // what stands in `reader`; 0 once the stream is closed
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_STREAM_RING_H
