/**
 * A card inside the test's own process, driven step by step without a second thread: powered privately, found
 * by the SDK stand-ins under its index, its SDK calls watched.
 *
 *     InProcessCard card;                       // index 0
 *     card.preset(0x4, 0x00010121);
 *     ... start an engine ...
 *     card->tick(now);                          // time passes for the card when the test says so
 *     card->push_quote(3, record);              // the next poll of channel 3 delivers it
 *     EXPECT_EQ(card.calls().register_accesses(), ...);
 */
#ifndef KOVA_SIM_CARD_IN_PROCESS_CARD_H
#define KOVA_SIM_CARD_IN_PROCESS_CARD_H

#include <chrono>
#include <cstdint>

#include "sim/card/card.h"
#include "sim/card/registers.h"
#include "sim/card/sdk_calls.h"

namespace kova::sim {

class InProcessCard {
 public:
    /** Its memory is ready at once unless a test says otherwise: nothing ticks by itself. */
    static constexpr CardOptions kOptions{.slots_log2 = 8, .memory_delay = std::chrono::nanoseconds{0}};

    explicit InProcessCard(std::uint32_t index = 0, const CardOptions& options = kOptions)
        : card_(Card::power_on_privately(index, options)) {
        calls().start_recording();
    }
    ~InProcessCard() { calls().stop(); }
    InProcessCard(const InProcessCard&) = delete;
    InProcessCard& operator=(const InProcessCard&) = delete;

    Card* operator->() { return &card_; }
    [[nodiscard]] Card& card() { return card_; }

    /** What this process asked of the SDK, and what of it is to fail. */
    [[nodiscard]] static SdkCalls& calls() { return SdkCalls::of_this_process(); }

    /** Sets a register; a read gives the value back, whatever the card itself would show there. */
    void preset(std::uint32_t number, std::uint64_t value) {
        card_.memory().registers.is_held.at(number).store(true);
        preset_register(card_.memory().registers, number, value);
    }
    /** What the host last wrote to a register. */
    [[nodiscard]] std::uint64_t written(std::uint32_t number) const {
        return card_.memory().registers.written.at(number).load();
    }

 private:
    Card card_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_IN_PROCESS_CARD_H
