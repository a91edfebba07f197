#include "sim/card/card_mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <map>
#include <mutex>

#include "sim/card/registers.h"

namespace kova::sim {

namespace {

// Closes a file on a path of failure without losing the reason.
CardMapping fail(int file, int error) {
    close(file);
    errno = error;
    return {};
}

// What every card is sure to write gets its pages at once: a page that nobody has when it is written ends the
// program that writes it. A ring gets its own when it is opened.
int reserve(int file) {
    int error = 0;
    do {
        error = posix_fallocate(file, 0, sizeof(CardMemory));
    } while (error == EINTR);
    return error;
}

CardMemory* map_memory(int file, std::size_t bytes) {
    void* place = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    return place == MAP_FAILED ? nullptr : static_cast<CardMemory*>(place);
}

bool is_card_of_this_layout(const CardIdentity& identity, std::size_t bytes) {
    return identity.magic == kCardMagic && identity.layout_version == kLayoutVersion &&
           identity.total_bytes == bytes && identity.card_to_host_slots_log2 < 32 &&
           card_bytes(identity.card_to_host_slots_log2) == bytes;
}

struct PrivateCards {
    std::mutex mutex;
    std::map<std::uint32_t, int> files;
};

PrivateCards& private_cards() {
    static PrivateCards cards;
    return cards;
}

int open_private_card(std::uint32_t index) {
    PrivateCards& cards = private_cards();
    const std::lock_guard guard(cards.mutex);
    const auto found = cards.files.find(index);
    return found == cards.files.end() ? -1 : reopen(found->second);
}

}  // namespace

CardMapping::~CardMapping() {
    if (memory_ != nullptr) {
        munmap(memory_, bytes_);
    }
    if (file_ >= 0) {
        close(file_);
    }
}

CardMapping& CardMapping::operator=(CardMapping&& other) noexcept {
    CardMapping released(std::move(*this));
    file_ = std::exchange(other.file_, -1);
    memory_ = std::exchange(other.memory_, nullptr);
    bytes_ = std::exchange(other.bytes_, 0);
    return *this;
}

CardMapping CardMapping::create(int file, std::uint32_t index, const CardOptions& options) {
    const std::uint32_t slots_log2 = options.slots_log2;
    const std::size_t bytes = card_bytes(slots_log2);
    const int error = reserve(file);
    if (error != 0) {
        errno = error;
        return {};
    }
    if (ftruncate(file, static_cast<off_t>(bytes)) != 0) {
        return {};
    }
    CardMemory* memory = map_memory(file, bytes);
    if (memory == nullptr) {
        return {};
    }
    CardIdentity& identity = memory->identity;
    identity.layout_version = kLayoutVersion;
    identity.index = index;
    identity.total_bytes = bytes;
    identity.card_to_host_slots_log2 = slots_log2;
    identity.owner_process = static_cast<std::uint32_t>(getpid());
    format_lock(memory->lock);
    CardBehaviour& behaviour = memory->behaviour;
    set_memory_delay(behaviour, options.memory_delay);
    behaviour.hardware_version.store(options.hardware_version, std::memory_order_relaxed);
    behaviour.least_software.store(options.least_software, std::memory_order_relaxed);
    power_up_registers(*memory);
    for (ChannelStreams& channel : memory->channels) {
        format_ring(channel.card_to_host, slots_log2, kCardToHostMtu);
        format_ring(channel.host_to_card, kHostToCardSlotsLog2, kHostToCardMtu);
    }
    identity.magic = kCardMagic;
    identity.power.store(PowerState::kOn, std::memory_order_release);
    return {file, memory, bytes};
}

CardMapping CardMapping::attach(int file) {
    struct stat status {};
    if (fstat(file, &status) != 0) {
        return fail(file, errno);
    }
    const auto bytes = static_cast<std::size_t>(status.st_size);
    if (bytes < sizeof(CardMemory)) {
        return fail(file, ENODEV);
    }
    CardMemory* memory = map_memory(file, bytes);
    if (memory == nullptr) {
        return fail(file, errno);
    }
    CardMapping mapping(file, memory, bytes);
    // The power word is set last, so what stands beside it is whole.
    const bool is_powered = mapping.is_powered();
    if (!is_powered || !is_card_of_this_layout(memory->identity, bytes)) {
        mapping = CardMapping();
        errno = is_powered ? EPROTO : ENODEV;
    }
    return mapping;
}

bool CardMapping::is_powered() const {
    return memory_->identity.power.load(std::memory_order_acquire) == PowerState::kOn &&
           is_byte_locked(file_, kOwnerLockByte);
}

CardMapping attach_to_card(std::uint32_t index) {
    int file = open_private_card(index);
    if (file < 0) {
        file = shm_open(card_memory_name(index).data(), O_RDWR | O_CLOEXEC, 0);
    }
    if (file < 0) {
        errno = errno == ENOENT ? ENODEV : errno;
        return {};
    }
    return CardMapping::attach(file);
}

int reopen(int file) {
    char path[32];
    std::snprintf(path, sizeof path, "/proc/self/fd/%d", file);
    return open(path, O_RDWR | O_CLOEXEC);
}

void announce_private_card(std::uint32_t index, int file) {
    PrivateCards& cards = private_cards();
    const std::lock_guard guard(cards.mutex);
    cards.files[index] = file;
}

void forget_private_card(std::uint32_t index) {
    PrivateCards& cards = private_cards();
    const std::lock_guard guard(cards.mutex);
    cards.files.erase(index);
}

}  // namespace kova::sim
