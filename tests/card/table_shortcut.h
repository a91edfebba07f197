/**
 * The five million writes that clear and fill the contract tables, past the SDK: for tests that bring a card up
 * again and again. What a table write does to the card stays the same, and so does everything else; only the
 * core lock and whoever watches accesses do not hear of these writes.
 */
#ifndef KOVA_TESTS_CARD_TABLE_SHORTCUT_H
#define KOVA_TESTS_CARD_TABLE_SHORTCUT_H

#include <cstdint>
#include <utility>

#include "sim/card/card_memory.h"

namespace kova::test {

class TableShortcut {
 public:
    /** Takes the shortcut whenever the snapshot has just been closed; null: never again. */
    static void allow(sim::CardMemory* memory);

    // What the interposed SDK functions call.

    /** Whether it is being taken: the core lock is nobody's. */
    [[nodiscard]] static bool is_taken() { return is_taken_; }
    /** Notes a write that has been made, and that its lock has been given back. */
    static void wrote(std::uint32_t number, std::uint64_t value);
    static void unlocked() { is_taken_ = std::exchange(is_due_, false); }
    /** Does a table write; false, and the shortcut is over, when it is anything else. */
    [[nodiscard]] static bool write(std::uint32_t number, std::uint32_t value);
    static void leave() { is_taken_ = false; }

 private:
    static inline bool is_due_ = false;  // once the write at hand is over
    static inline bool is_taken_ = false;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_TABLE_SHORTCUT_H
