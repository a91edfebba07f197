/** The memory of a card, mapped into this process, with the open file it comes from. */
#ifndef KOVA_SIM_CARD_CARD_MAPPING_H
#define KOVA_SIM_CARD_CARD_MAPPING_H

#include <cstddef>
#include <cstdint>
#include <utility>

#include "sim/card/card_memory.h"

namespace kova::sim {

/** Owns one mapping and one open file. An empty one is what an operation that failed returns, errno set. */
class CardMapping {
 public:
    CardMapping() = default;
    ~CardMapping();
    CardMapping(CardMapping&& other) noexcept
        : file_(std::exchange(other.file_, -1)),
          memory_(std::exchange(other.memory_, nullptr)),
          bytes_(std::exchange(other.bytes_, 0)) {}
    CardMapping& operator=(CardMapping&& other) noexcept;

    [[nodiscard]] explicit operator bool() const { return memory_ != nullptr; }
    [[nodiscard]] CardMemory& memory() const { return *memory_; }
    [[nodiscard]] int file() const { return file_; }
    /** For a client: whether the card is on and the program that powers it lives. */
    [[nodiscard]] bool is_powered() const;

    /** Makes the memory of a new card in an empty file, which it takes over unless it fails. */
    static CardMapping create(int file, std::uint32_t index, const CardOptions& options);

    /** Maps a card that another program powers, from a file that it takes over. */
    static CardMapping attach(int file);

 private:
    CardMapping(int file, CardMemory* memory, std::size_t bytes)
        : file_(file), memory_(memory), bytes_(bytes) {}

    int file_ = -1;
    CardMemory* memory_ = nullptr;
    std::size_t bytes_ = 0;
};

/** Opens the card with this index: one of this process's own, or one that a program of this machine powers. */
[[nodiscard]] CardMapping attach_to_card(std::uint32_t index);

/** A new open file on the same memory, with locks of its own. -1 and errno on failure. */
[[nodiscard]] int reopen(int file);

/** Makes a private card known to attach_to_card in this process, and forgets it. */
void announce_private_card(std::uint32_t index, int file);
void forget_private_card(std::uint32_t index);

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_CARD_MAPPING_H
