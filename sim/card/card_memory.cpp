#include "sim/card/card_memory.h"

#include <fcntl.h>

#include <cstdio>

namespace kova::sim {

namespace {

RingSlot* first_slot(CardMemory& memory) {
    return reinterpret_cast<RingSlot*>(&memory + 1);
}

struct flock byte_lock(std::uint64_t byte) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(byte);
    lock.l_len = 1;
    return lock;
}

}  // namespace

void set_memory_delay(CardBehaviour& behaviour, const MemoryDelay& delay) {
    constexpr std::int64_t kNeverReady = -1;
    behaviour.memory_delay.store(delay ? delay->count() : kNeverReady, std::memory_order_relaxed);
}

RingSlot* card_to_host_slots(CardMemory& memory, std::uint32_t channel) {
    return first_slot(memory) + channel * ring_slots(memory.identity.card_to_host_slots_log2);
}

RingSlot* host_to_card_slots(CardMemory& memory, std::uint32_t channel) {
    return first_slot(memory) + kChannelCount * ring_slots(memory.identity.card_to_host_slots_log2) +
           channel * ring_slots(kHostToCardSlotsLog2);
}

SInstTableType* table_rows(ContractTables& tables, EMDQPDataType feed) {
    switch (feed) {
        case SHFE_2PS:
            return tables.shfe_2ps.data();
        case SHFE_4PS:
            return tables.shfe_4ps.data();
        case INE_2PS:
            return tables.ine_2ps.data();
        case INE_4PS:
            return tables.ine_4ps.data();
    }
    return nullptr;
}

std::atomic_ref<std::uint32_t> config_word(ContractTables& tables, EMDQPDataType feed, std::uint32_t inst_no) {
    static_assert(offsetof(SInstTableType, config) == 0 &&
                  sizeof(SInstTableType) % alignof(std::uint32_t) == 0);
    return std::atomic_ref(*reinterpret_cast<std::uint32_t*>(table_rows(tables, feed) + inst_no));
}

std::array<char, 32> card_memory_name(std::uint32_t index) {
    std::array<char, 32> name{};
    std::snprintf(name.data(), name.size(), "/kova_simcard_%u", index);
    return name;
}

bool try_lock_byte(int file, std::uint64_t byte) {
    struct flock lock = byte_lock(byte);
    return fcntl(file, F_OFD_SETLK, &lock) == 0;
}

void unlock_byte(int file, std::uint64_t byte) {
    struct flock lock = byte_lock(byte);
    lock.l_type = F_UNLCK;
    fcntl(file, F_OFD_SETLK, &lock);
}

bool is_byte_locked(int file, std::uint64_t byte) {
    struct flock lock = byte_lock(byte);
    return fcntl(file, F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

}  // namespace kova::sim
