// Channel 0's process is killed while it brings a card up, at any point: the next one succeeds all the same.
// With the library's real waits.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "sim/card/attached_card.h"
#include "sim/card/registers.h"
#include "support/card_index.h"
#include "support/fast_clock.h"
#include "support/own_day.h"
#include "support/process.h"
#include "support/receiver.h"
#include "support/simcard.h"
#include "wire/RegisterMap.h"

namespace kova::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongPatience{90};

// Enough instruments for writing and subscribing them to take its time. A checksum that the killed process has
// left in the card must not be taken for a card that runs.
constexpr const char* kScenario = "listing = { shfe = 512, ine = 128 }\nrate = 1000\ncard = { memory = 0.5 }\n";
constexpr const char* kManager =
    "shfe2ps=enabled\nine2ps=enabled\ncrc_mux_check=1\n[channel0]\ninsts=all\noptions=recv\n";

// What the time until the kill counts from.
enum class From { kStart, kSnapshot, kChecksum };

constexpr const char* kFromText[] = {"its start", "the opening of the snapshot", "the writing of the checksum"};

struct Point {
    From from;
    milliseconds after;
};

// One card and its manager: started, killed, started again.
class Life {
 public:
    Life(std::uint32_t n, const std::string& scenario, Point point)
        : point_(point), card_(own_card(n), {"--scenario", scenario}) {}

    [[nodiscard]] bool begin() {
        if (!card_.wait_until_on()) {
            return false;
        }
        attached_ = sim::attach(card_.card());
        manager_.emplace(card_.card(), 0, std::vector<std::string>{}, kManager);
        return true;
    }

    // Whether it is killed by now.
    [[nodiscard]] bool is_killed() {
        if (is_killed_) {
            return true;
        }
        if (!is_counting_) {
            is_counting_ = has_come_to(point_.from);
            since_ = steady_clock::now();
        }
        if (is_counting_ && steady_clock::now() - since_ >= point_.after) {
            kill();
        }
        return is_killed_;
    }

    [[nodiscard]] bool receives() {
        return is_running() && openings() == openings_wanted_ && manager_->column("inst_id").size() > 50;
    }

    void end() {
        manager_->process().send(SIGINT);
        EXPECT_EQ(manager_->process().exit_code(), 0) << manager_->process().error();
        EXPECT_EQ(manager_->summary().at("gaps"), 0);
    }

    [[nodiscard]] std::string log() { return manager_->process().error(); }

 private:
    [[nodiscard]] sim::CardMemory& memory() const { return attached_->memory(); }
    [[nodiscard]] std::uint64_t openings() const { return memory().forwarding.openings.load(); }

    [[nodiscard]] bool has_come_to(From from) const {
        switch (from) {
            case From::kStart:
                return true;
            case From::kSnapshot:
                return openings() > 0;
            case From::kChecksum:
                return sim::read_register(memory(), REG_CONFIG_CRC) != 0;
        }
        return false;
    }

    void kill() {
        manager_->process().send(SIGKILL);
        EXPECT_EQ(manager_->process().ending_signal(), SIGKILL);
        is_killed_ = true;
        // On a machine that is too busy to kill in time the card is up, and then nothing is to be done.
        openings_wanted_ = openings() + (is_running() ? 0 : 1);
        manager_->start_again();
    }

    [[nodiscard]] bool is_running() const {
        return sim::is_core_started(memory().registers, SHFE_2PS) &&
               sim::is_core_started(memory().registers, SHFE_4PS);
    }

    Point point_;
    Simcard card_;
    sim::AttachedCard attached_;
    std::optional<Receiver> manager_;
    steady_clock::time_point since_;
    bool is_counting_ = false;
    bool is_killed_ = false;
    std::uint64_t openings_wanted_ = 0;
};

std::uint32_t seed() {
    const char* const given = std::getenv("KOVA_SEED");
    return given == nullptr ? std::random_device()() : static_cast<std::uint32_t>(std::stoul(given));
}

// Most of a bring-up's time is the nine seconds that it waits for the card, most of its work comes behind
// these.
std::vector<Point> random_points(std::uint32_t seed) {
    std::mt19937 random(seed);
    const auto within = [&random](int most) {
        return milliseconds(std::uniform_int_distribution<int>(0, most)(random));
    };
    std::vector<Point> points;
    for (const From from : {From::kStart, From::kSnapshot, From::kStart, From::kSnapshot, From::kChecksum}) {
        points.push_back({from, within(from == From::kStart ? 9000 : from == From::kSnapshot ? 200 : 50)});
    }
    return points;
}

TEST(KilledBringUp, TheNextStartSucceedsWhereverItWasKilled) {
    // Only the date is ours; nobody lets time pass.
    const OwnDay day;
    const FastClock clock(day.at(std::chrono::hours(9)));
    const ScenarioFile scenario(kScenario);
    const std::uint32_t used_seed = seed();
    std::cout << "KOVA_SEED=" << used_seed << '\n';
    std::deque<Life> lives;
    for (const Point& point : random_points(used_seed)) {
        std::cout << "killed " << point.after.count() << " ms behind "
                  << kFromText[static_cast<int>(point.from)] << '\n';
        lives.emplace_back(static_cast<std::uint32_t>(lives.size()), scenario.path(), point);
        ASSERT_TRUE(lives.back().begin());
    }
    const auto all = [&lives](auto condition) {
        bool holds = true;
        for (Life& life : lives) {
            holds = condition(life) && holds;
        }
        return holds;
    };
    ASSERT_TRUE(eventually([&] { return all([](Life& life) { return life.is_killed(); }); }, kLongPatience));
    for (std::size_t i = 0; i < lives.size(); ++i) {
        EXPECT_TRUE(eventually([&] { return lives[i].receives(); }, kLongPatience)) << i << lives[i].log();
        lives[i].end();
    }
}

}  // namespace
}  // namespace kova::test
