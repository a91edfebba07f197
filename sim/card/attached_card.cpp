#include "sim/card/attached_card.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <utility>

#include "sim/card/out_of_memory.h"

namespace kova::sim {

namespace {

constexpr std::string_view kStreamNamePrefix = "CUSTOM_CHAN";
constexpr std::string_view kStreamNameSuffix = "_DATA";

// An open file that holds the lock of one byte, closed when the stream is. -1 and errno when another holds it.
int lock_file_for(const AttachedCard& card, std::uint64_t byte) {
    const int file = reopen(card->file());
    if (file < 0) {
        return -1;
    }
    if (!try_lock_byte(file, byte)) {
        close(file);
        errno = EBUSY;
        return -1;
    }
    return file;
}

// Whether the ring has all its pages, ENOMEM if not: the first lap of a fresh one would otherwise pay a fault
// every 21 quotes, and a page that nobody has when it is written ends the program that writes it.
bool is_populated(RingSlot* slots, std::uint32_t slot_count_log2) {
    const auto page = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(slots) & ~(page - 1);
    const auto end = reinterpret_cast<std::uintptr_t>(slots + ring_slots(slot_count_log2));
    // EINVAL comes from a kernel older than 5.14, which does not know the advice and gives pages when they are
    // touched.
    if (madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE) != 0 && errno != EINVAL) {
        errno = ENOMEM;
        return false;
    }
    return true;
}

// An open stream that holds the lock; null and ENOMEM, the lock free again, when there is no memory for it.
template <typename Make>
auto made_or_freed(int lock_file, RingSlot* slots, std::uint32_t slot_count_log2, Make&& make)
    -> decltype(make()) {
    auto stream = is_populated(slots, slot_count_log2) ? unless_out_of_memory(make) : nullptr;
    if (stream == nullptr) {
        close(lock_file);
    }
    return stream;
}

}  // namespace

AttachedCard attach(std::uint32_t index) {
    return unless_out_of_memory([index]() -> AttachedCard {
        CardMapping mapping = attach_to_card(index);
        return mapping ? std::make_shared<const CardMapping>(std::move(mapping)) : nullptr;
    });
}

std::optional<std::uint32_t> channel_of(std::string_view stream_name) {
    if (!stream_name.starts_with(kStreamNamePrefix) || !stream_name.ends_with(kStreamNameSuffix)) {
        return std::nullopt;
    }
    stream_name.remove_prefix(kStreamNamePrefix.size());
    if (stream_name.size() <= kStreamNameSuffix.size()) {
        return std::nullopt;
    }
    stream_name.remove_suffix(kStreamNameSuffix.size());
    std::uint32_t channel = 0;
    const char* end = stream_name.data() + stream_name.size();
    const auto [rest, error] = std::from_chars(stream_name.data(), end, channel);
    const bool has_leading_zero = stream_name.size() > 1 && stream_name.front() == '0';
    if (error != std::errc() || rest != end || has_leading_zero || channel >= kChannelCount) {
        return std::nullopt;
    }
    return channel;
}

std::unique_ptr<CardToHostStream> CardToHostStream::open(const AttachedCard& card, std::uint32_t channel) {
    const int lock_file = lock_file_for(card, card_to_host_lock_byte(channel));
    if (lock_file < 0) {
        return nullptr;
    }
    CardMemory& memory = card->memory();
    RingSlot* const slots = card_to_host_slots(memory, channel);
    return made_or_freed(lock_file, slots, memory.identity.card_to_host_slots_log2, [&] {
        return std::unique_ptr<CardToHostStream>(new CardToHostStream(card, lock_file, channel));
    });
}

CardToHostStream::CardToHostStream(AttachedCard card, int lock_file, std::uint32_t channel)
    : card_(std::move(card)),
      lock_file_(lock_file),
      channel_(channel),
      reader_(card_->memory().channels[channel].card_to_host, card_to_host_slots(card_->memory(), channel),
              static_cast<std::uint32_t>(getpid())) {}

// The reader's presence must end before its lock does, or the next reader's would be taken away.
CardToHostStream::~CardToHostStream() {
    reader_.close();
    close(lock_file_);
}

std::uint32_t CardToHostStream::mtu() const {
    return card_->memory().channels[channel_].card_to_host.mtu;
}

std::unique_ptr<HostToCardStream> HostToCardStream::open(const AttachedCard& card, std::uint32_t channel) {
    const int lock_file = lock_file_for(card, host_to_card_lock_byte(channel));
    if (lock_file < 0) {
        return nullptr;
    }
    RingSlot* const slots = host_to_card_slots(card->memory(), channel);
    return made_or_freed(lock_file, slots, kHostToCardSlotsLog2, [&] {
        return std::unique_ptr<HostToCardStream>(new HostToCardStream(card, lock_file, channel));
    });
}

HostToCardStream::HostToCardStream(AttachedCard card, int lock_file, std::uint32_t channel)
    : card_(std::move(card)),
      lock_file_(lock_file),
      channel_(channel),
      writer_(card_->memory().channels[channel].host_to_card, host_to_card_slots(card_->memory(), channel)) {}

HostToCardStream::~HostToCardStream() {
    close(lock_file_);
}

std::uint32_t HostToCardStream::mtu() const {
    return card_->memory().channels[channel_].host_to_card.mtu;
}

int HostToCardStream::send(const void* data, std::uint32_t size) {
    if (size > mtu()) {
        return EMSGSIZE;
    }
    const std::span message(static_cast<const std::byte*>(data), size);
    return unless_out_of_memory([&] { return writer_.push(message) == PushResult::kSent ? 0 : ENOBUFS; },
                                ENOMEM);
}

}  // namespace kova::sim
