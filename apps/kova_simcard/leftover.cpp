#include "kova_simcard/leftover.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sim/card/card_memory.h"

namespace kova::app {

namespace {

class NamedMemory {
 public:
    explicit NamedMemory(std::uint32_t card)
        : file_(shm_open(sim::card_memory_name(card).data(), O_RDWR | O_CLOEXEC, 0)) {}
    ~NamedMemory() {
        if (file_ >= 0) {
            close(file_);
        }
    }
    NamedMemory(const NamedMemory&) = delete;
    NamedMemory& operator=(const NamedMemory&) = delete;

    [[nodiscard]] bool exists() const { return file_ >= 0; }
    [[nodiscard]] int file() const { return file_; }
    [[nodiscard]] ino_t inode() const {
        struct stat status {};
        return fstat(file_, &status) == 0 ? status.st_ino : 0;
    }

 private:
    int file_;
};

}  // namespace

std::string why_not_on(std::uint32_t card, int error) {
    if (error == EPROTO) {
        return "its program has another memory layout: use the kova-simcard of the same version";
    }
    if (error != ENODEV) {
        return std::strerror(error);
    }
    return has_leftover(card) ? "it is off; its program was killed and left its memory behind" : "it is off";
}

bool has_leftover(std::uint32_t card) {
    const NamedMemory memory(card);
    return memory.exists() && !sim::is_byte_locked(memory.file(), sim::kOwnerLockByte);
}

// Holding the owner's lock keeps everybody else from powering a card in this very memory. The name may have
// gone to the memory of another card before the lock was taken.
bool remove_leftover(std::uint32_t card) {
    const NamedMemory memory(card);
    if (!memory.exists() || !sim::try_lock_byte(memory.file(), sim::kOwnerLockByte)) {
        return false;
    }
    const NamedMemory named(card);
    if (!named.exists() || named.inode() != memory.inode()) {
        return false;
    }
    return shm_unlink(sim::card_memory_name(card).data()) == 0;
}

}  // namespace kova::app
