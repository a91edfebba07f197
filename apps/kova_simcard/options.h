/** What the command line of kova-simcard asks for. */
#ifndef KOVA_APPS_KOVA_SIMCARD_OPTIONS_H
#define KOVA_APPS_KOVA_SIMCARD_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>

#include "kova_simcard/replay.h"
#include "sim/card/card.h"
#include "sim/exchange/pacer.h"

namespace kova::app {

struct RunOptions {
    std::uint32_t card = 0;
    /** Tables filled, channels subscribed and cores started, as a bring-up leaves a card. */
    bool prepared = false;
    std::optional<std::filesystem::path> scenario;
    /** Instead of the scenario's; the inner value absent means as fast as it goes. */
    std::optional<sim::Rate> rate;
    /** Frames of snapshots a second, likewise. */
    std::optional<sim::Rate> snapshot_rate;
    /** Of traffic, instead of the scenario's; 0 is endless. */
    std::optional<std::chrono::seconds> seconds;
    std::uint32_t slots_log2 = sim::CardOptions{}.slots_log2;
    bool quiet = false;
    /** Of the card's memory, instead of the scenario's; the inner value absent means that it never gets ready.
     */
    std::optional<sim::MemoryDelay> memory_delay;
    std::uint32_t hardware_version = sim::CardOptions{}.hardware_version;
    std::uint32_t least_software = sim::CardOptions{}.least_software;
    /** Capture that the card forwards. */
    std::optional<std::filesystem::path> replay;
    ReplaySpeed replay_speed = 1;
    bool replay_repeat = false;
};

struct StatusOptions {
    std::uint32_t card = 0;
    bool json = false;
};

struct OffOptions {
    std::uint32_t card = 0;
    /** How long to wait until the card is off. */
    std::chrono::seconds patience{10};
};

struct TellOptions {
    std::uint32_t card = 0;
    /** What the program that powers the card is told: words with a blank between them. */
    std::string command;
    /** How long to wait for the answer. */
    std::chrono::seconds patience{10};
};

/** The command line asks for nothing, or for what there is not: `text` is the answer. */
struct Answer {
    int exit_code = 0;
    std::string text;
};

using Command = std::variant<Answer, RunOptions, StatusOptions, TellOptions, OffOptions>;

[[nodiscard]] Command parse_command_line(int argument_count, const char* const* arguments);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_OPTIONS_H
