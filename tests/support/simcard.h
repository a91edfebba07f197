/**
 * A kova-simcard program under test that powers one card, and what it says about it.
 */
#ifndef KOVA_TESTS_SUPPORT_SIMCARD_H
#define KOVA_TESTS_SUPPORT_SIMCARD_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "sim/card/card_memory.h"
#include "support/process.h"
#include "support/temp_dir.h"

namespace kova::test {

/** A scenario in a file of its own, which is gone when this goes. */
class ScenarioFile {
 public:
    explicit ScenarioFile(const std::string& text) { std::ofstream(path()) << text; }
    [[nodiscard]] std::string path() const { return (directory_.path() / "scenario.toml").string(); }

 private:
    TempDir directory_;
};

/** Whether there is memory under the card's name, whoever powers it. */
inline bool has_card_memory(std::uint32_t card) {
    const int file = ::shm_open(sim::card_memory_name(card).data(), O_RDONLY | O_CLOEXEC, 0);
    if (file >= 0) {
        ::close(file);
    }
    return file >= 0;
}

/** Runs `kova-simcard COMMAND --card CARD ...` to its end. */
inline Process simcard_command(const std::string& command, std::uint32_t card,
                               std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {command, "--card", std::to_string(card)});
    return Process::run(KOVA_SIMCARD_PROGRAM, arguments);
}

/** What `kova-simcard status --json` says; a value that is no object when it says no JSON. */
inline nlohmann::json simcard_status(std::uint32_t card) {
    const Process process = simcard_command("status", card, {"--json"});
    return nlohmann::json::parse(process.output(), nullptr, false);
}

/** One channel of a status. */
inline nlohmann::json channel_of(const nlohmann::json& status, std::uint32_t channel) {
    return status.at("channels").at(channel);
}

/** A running card of this test; it and its memory are gone when this goes. */
class Simcard {
 public:
    /** Starts `kova-simcard run --card CARD ...`; see wait_until_on(). */
    explicit Simcard(std::uint32_t card, std::vector<std::string> arguments = {})
        : card_(card), process_(start(card, std::move(arguments))) {}
    ~Simcard() {
        process_.send(SIGKILL);
        static_cast<void>(process_.wait());
        ::shm_unlink(sim::card_memory_name(card_).data());
    }
    Simcard(const Simcard&) = delete;
    Simcard& operator=(const Simcard&) = delete;

    [[nodiscard]] std::uint32_t card() const { return card_; }
    [[nodiscard]] Process& process() { return process_; }

    /** Waits until the card is on and, if that was asked for, prepared; false when it does not come up. */
    [[nodiscard]] bool wait_until_on() {
        return eventually([this] { return process_.output().find(" is on (pid ") != std::string::npos; });
    }

    [[nodiscard]] nlohmann::json status() const { return simcard_status(card_); }

 private:
    static Process start(std::uint32_t card, std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), {"run", "--card", std::to_string(card)});
        return Process::start(KOVA_SIMCARD_PROGRAM, arguments);
    }

    std::uint32_t card_;
    Process process_;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_SIMCARD_H
