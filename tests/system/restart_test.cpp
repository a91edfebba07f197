// Channel 0's process is started anew on a running card: the card is left alone where it runs what is wanted,
// and brought up otherwise. The waits of the library pass on the test's clock.

#include <gtest/gtest.h>

#include <csignal>
#include <optional>
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

constexpr const char* kManager =
    "shfe2ps=enabled\nine2ps=enabled\ncrc_mux_check=1\n"
    "[channel0]\ninsts=all\noptions=recv\n"
    "[channel1]\ninsts=all\noptions=recv\n";

constexpr const char* kLeftAlone = "no changes have occurred, no initialization required";

class Restart : public ::testing::Test {
 protected:
    void SetUp() override {
        ASSERT_TRUE(card_.wait_until_on()) << card_.process().error();
        other_.emplace(card_.card(), 1);
        manager_.emplace(card_.card(), 0, std::vector<std::string>{}, kManager);
        ASSERT_TRUE(brings_up(1)) << manager_->process().error();
        ASSERT_TRUE(quotes_go_on());
    }

    void restart_manager(const std::string& further_lines = {}) {
        manager_->process().send(SIGINT);
        ASSERT_EQ(manager_->process().exit_code(), 0) << manager_->process().error();
        manager_->start_again(further_lines);
    }

    void tell(const std::vector<std::string>& words) const {
        Process process = simcard_command("tell", card_.card(), words);
        ASSERT_EQ(process.exit_code(), 0) << process.error();
    }

    [[nodiscard]] sim::CardMemory& memory() {
        if (attached_ == nullptr) {
            attached_ = sim::attach(card_.card());
        }
        return attached_->memory();
    }

    [[nodiscard]] std::uint64_t openings() { return memory().forwarding.openings.load(); }
    [[nodiscard]] std::uint64_t initialisations() { return memory().behaviour.initialisations.load(); }
    [[nodiscard]] std::uint64_t taken(std::uint32_t channel) {
        return memory().channels[channel].card_to_host.taken.load();
    }

    // Whether the card's feeds start behind its n-th snapshot.
    [[nodiscard]] bool brings_up(std::uint64_t n) {
        return clock_.eventually([&] {
            return openings() == n && sim::is_core_started(memory().registers, SHFE_2PS) &&
                   sim::is_core_started(memory().registers, SHFE_4PS);
        });
    }

    [[nodiscard]] bool quotes_go_on() {
        const std::uint64_t before0 = taken(0);
        const std::uint64_t before1 = taken(1);
        return clock_.eventually([&] { return taken(0) >= before0 + 50 && taken(1) >= before1 + 50; });
    }

    [[nodiscard]] bool is_said(const char* text) {
        return manager_->process().error().find(text) != std::string::npos;
    }

    OwnDay day_;
    FastClock clock_{day_.at(std::chrono::hours(9))};
    ScenarioFile scenario_{"listing = { shfe = 64, ine = 16 }\nrate = 500\ncard = { memory = 0 }\n"};
    Simcard card_{own_card(), {"--scenario", scenario_.path()}};
    sim::AttachedCard attached_;
    std::optional<Receiver> other_;
    std::optional<Receiver> manager_;
};

TEST_F(Restart, OnTheSameConfigurationLeavesTheCardAloneAndTheOthersMissNothing) {
    const std::uint64_t before = taken(1);
    restart_manager();
    ASSERT_TRUE(clock_.eventually([&] { return is_said(kLeftAlone); })) << manager_->process().error();
    ASSERT_TRUE(quotes_go_on());
    EXPECT_EQ(initialisations(), 1U);
    EXPECT_EQ(openings(), 1U);
    // The library looks at the card for three seconds, 500 quotes each; the exchange may leave some out that a
    // busy machine has made it late for.
    EXPECT_GT(taken(1), before + 500);
    manager_->process().send(SIGINT);
    other_->process().send(SIGINT);
    EXPECT_EQ(manager_->process().exit_code(), 0);
    EXPECT_EQ(other_->process().exit_code(), 0);
    EXPECT_EQ(other_->summary().at("gaps"), 0);
    EXPECT_EQ(other_->summary().at("backward"), 0);
    EXPECT_EQ(other_->summary().at("channel_quotes"), channel_of(card_.status(), 1).at("taken"));
    EXPECT_EQ(channel_of(card_.status(), 1).at("lost"), 0);
    EXPECT_EQ(manager_->summary().at("gaps"), 0);
}

TEST_F(Restart, OnAnotherConfigurationBringsTheCardUp) {
    restart_manager("[channel2]\ninsts=cu\n");
    ASSERT_TRUE(brings_up(2)) << manager_->process().error();
    ASSERT_TRUE(quotes_go_on());
    EXPECT_FALSE(is_said(kLeftAlone));
    EXPECT_EQ(initialisations(), 2U);
}

TEST_F(Restart, WhenEveryFeedHasStoppedBringsTheCardUp) {
    tell({"feed", "stop", "shfe2ps"});
    tell({"feed", "stop", "ine2ps"});
    restart_manager();
    ASSERT_TRUE(brings_up(2)) << manager_->process().error();
    EXPECT_FALSE(is_said(kLeftAlone));
    tell({"feed", "start", "shfe2ps"});
    ASSERT_TRUE(quotes_go_on());
    EXPECT_EQ(initialisations(), 2U);
}

TEST_F(Restart, WhenEventsAreCountedMeanwhileBringsTheCardUp) {
    restart_manager();
    // Between its two looks at the counters, the last of which is that of events. Nobody lets time pass
    // meanwhile.
    ASSERT_TRUE(eventually([&] { return is_said("0x1207: read"); })) << manager_->process().error();
    tell({"event", "0", "0", "0", "0", "0", "0"});
    ASSERT_TRUE(brings_up(2)) << manager_->process().error();
    EXPECT_FALSE(is_said(kLeftAlone));
    ASSERT_TRUE(quotes_go_on());
    EXPECT_EQ(initialisations(), 2U);
}

// Whatever has kept the snapshot away: attempts that have failed are not made again by the process that made
// them.
TEST_F(Restart, AfterAllAttemptsHaveFailedBringsTheCardUp) {
    tell({"impair", "lose", "1"});
    tell({"event", "lost", "shfe2ps"});
    ASSERT_TRUE(eventually([&] {
        clock_.pass(std::chrono::seconds(1));
        return manager_->process().wait(std::chrono::milliseconds(0)).has_value();
    }));
    EXPECT_EQ(manager_->process().exit_code(), 3);
    EXPECT_TRUE(is_said("channel0 m_u50InitCnt > 3")) << manager_->process().error();
    EXPECT_EQ(openings(), 4U);

    tell({"impair", "lose", "0"});
    manager_->start_again();
    ASSERT_TRUE(brings_up(5)) << manager_->process().error();
    ASSERT_TRUE(quotes_go_on());
}

}  // namespace
}  // namespace kova::test
