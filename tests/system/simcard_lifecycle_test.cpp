// kova-simcard powers cards, shows them and powers them off, whatever happens to the programs.

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>

#include "sim/card/attached_card.h"
#include "support/card_index.h"
#include "support/process.h"
#include "support/simcard.h"

namespace kova::test {
namespace {

using ::testing::Test;

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(SimcardLifecycle, CardIsOnFromRunToOff) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on()) << simcard.process().error();
    EXPECT_NE(sim::attach(own_card()), nullptr);
    const nlohmann::json status = simcard.status();
    ASSERT_TRUE(status.is_object());
    EXPECT_EQ(status.at("card"), own_card());
    EXPECT_EQ(status.at("state"), "on");
    EXPECT_EQ(status.at("pid"), simcard.process().pid());

    Process off = simcard_command("off", own_card());
    EXPECT_EQ(off.exit_code(), 0);
    EXPECT_EQ(off.output(), "card " + std::to_string(own_card()) + " is off\n");
    EXPECT_FALSE(has_card_memory(own_card()));
    EXPECT_EQ(simcard.process().exit_code(), 0);
    EXPECT_TRUE(contains(simcard.process().output(), " is off as asked: "));
    EXPECT_EQ(simcard.process().error(), "");
    EXPECT_EQ(sim::attach(own_card()), nullptr);
    EXPECT_EQ(errno, ENODEV);
}

class SimcardSignal : public ::testing::TestWithParam<int> {};

TEST_P(SimcardSignal, PowersTheCardOffCleanly) {
    Simcard simcard(own_card(), {"--prepared"});
    ASSERT_TRUE(simcard.wait_until_on());
    ASSERT_TRUE(has_card_memory(own_card()));
    const sim::AttachedCard client = sim::attach(own_card());
    simcard.process().send(GetParam());
    EXPECT_EQ(simcard.process().exit_code(), 0);
    EXPECT_FALSE(has_card_memory(own_card()));
    EXPECT_TRUE(contains(simcard.process().output(), " is off by a signal: "));
    // A client that is still there sees it.
    ASSERT_NE(client, nullptr);
    EXPECT_EQ(client->memory().identity.power.load(), sim::PowerState::kOff);
}

INSTANTIATE_TEST_SUITE_P(Stop, SimcardSignal, ::testing::Values(SIGTERM, SIGINT, SIGHUP, SIGPIPE));

// A shell that runs this: `head` is gone behind the line that says the card is on, and the line that the event
// gives finds no reader.
TEST(SimcardLifecycle, OutputThatNobodyReadsAnyMorePowersTheCardOffCleanly) {
    const ScenarioFile scenario("[[events]]\nat = 0.5\ntell = \"feed stop ine2ps\"\n");
    const std::string run = "\"$0\" run --card \"$1\" --scenario \"$2\"";
    Process shell =
        Process::run("/bin/bash", {"-c", run + " | head -n 1; exit \"${PIPESTATUS[0]}\"", KOVA_SIMCARD_PROGRAM,
                                   std::to_string(own_card()), scenario.path()});
    EXPECT_EQ(shell.exit_code(), 0);
    EXPECT_TRUE(contains(shell.output(), " is on (pid ")) << shell.output();
    EXPECT_EQ(shell.error(), "");
    EXPECT_FALSE(has_card_memory(own_card()));
    EXPECT_EQ(sim::attach(own_card()), nullptr);
    ::shm_unlink(sim::card_memory_name(own_card()).data());
}

TEST(SimcardLifecycle, EventThatTellsWhatCannotBeDoneIsRefusedBeforeTheCardIsOn) {
    const ScenarioFile scenario(
        "[[events]]\nat = 1\ntell = \"event lost 0\"\n\n[[events]]\nat = 3600\ntell = \"evnt lost 0\"\n");
    Simcard simcard(own_card(), {"--scenario", scenario.path()});
    EXPECT_EQ(simcard.process().exit_code(), 2);
    EXPECT_EQ(simcard.process().output(), "");
    EXPECT_EQ(simcard.process().error(),
              scenario.path() + ":5: tell \"evnt lost 0\": no such command: \"evnt\"; help lists them\n");
    EXPECT_FALSE(has_card_memory(own_card()));
}

TEST(SimcardLifecycle, CardThatIsOnCannotBePoweredAgain) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on());
    Process second = simcard_command("run", own_card());
    EXPECT_EQ(second.exit_code(), 1);
    EXPECT_EQ(second.error(), "card " + std::to_string(own_card()) + ": it is on already\n");
    EXPECT_EQ(simcard.status().at("pid"), simcard.process().pid());
}

TEST(SimcardLifecycle, TwoCardsAreOnAtOnce) {
    Simcard one(own_card(0), {"--prepared"});
    Simcard other(own_card(1));
    ASSERT_TRUE(one.wait_until_on());
    ASSERT_TRUE(other.wait_until_on());
    EXPECT_EQ(one.status().at("pid"), one.process().pid());
    EXPECT_EQ(other.status().at("pid"), other.process().pid());
    EXPECT_EQ(one.status().at("cores").at("shfe_2ps"), "started");
    EXPECT_EQ(other.status().at("cores").at("shfe_2ps"), "stopped");
    EXPECT_EQ(simcard_command("off", own_card(0)).exit_code(), 0);
    EXPECT_EQ(other.status().at("state"), "on");
}

TEST(SimcardLifecycle, CardThatIsOffIsToldByStatusAndOff) {
    const std::string card = "card " + std::to_string(own_card());
    Process status = simcard_command("status", own_card());
    EXPECT_EQ(status.exit_code(), 1);
    EXPECT_EQ(status.output(), "");
    EXPECT_EQ(status.error(), card + ": it is off\n");
    Process off = simcard_command("off", own_card());
    EXPECT_EQ(off.exit_code(), 1);
    EXPECT_EQ(off.error(), card + ": it is off already\n");
    Process json = simcard_command("status", own_card(), {"--json"});
    EXPECT_EQ(json.exit_code(), 1);
    EXPECT_EQ(nlohmann::json::parse(json.output()).at("state"), "off");
}

// A card whose program was killed without warning: the memory stays.
class DeadSimcard : public Test {
 protected:
    void SetUp() override {
        ASSERT_TRUE(dead_.wait_until_on());
        dead_.process().send(SIGKILL);
        ASSERT_EQ(dead_.process().ending_signal(), SIGKILL);
        ASSERT_TRUE(has_card_memory(own_card()));
    }

    Simcard dead_{own_card()};
};

TEST_F(DeadSimcard, IsNotMistakenForOneThatIsOn) {
    EXPECT_EQ(sim::attach(own_card()), nullptr);
    Process status = simcard_command("status", own_card());
    EXPECT_EQ(status.exit_code(), 1);
    EXPECT_TRUE(contains(status.error(), "its program was killed and left its memory behind"));
    EXPECT_TRUE(has_card_memory(own_card()));
}

TEST_F(DeadSimcard, IsReplacedByTheNextRun) {
    Simcard next(own_card());
    ASSERT_TRUE(next.wait_until_on());
    EXPECT_TRUE(contains(next.process().output(), "replaced the memory of a card that had died\n"));
    EXPECT_EQ(next.status().at("pid"), next.process().pid());
    next.process().send(SIGTERM);
    EXPECT_EQ(next.process().exit_code(), 0);
    EXPECT_FALSE(has_card_memory(own_card()));
}

TEST_F(DeadSimcard, IsRemovedByOff) {
    Process off = simcard_command("off", own_card());
    EXPECT_EQ(off.exit_code(), 0);
    EXPECT_TRUE(contains(off.output(), "its program was killed; removed the memory that it left behind"));
    EXPECT_FALSE(has_card_memory(own_card()));
}

TEST(SimcardLifecycle, FreshCardDoesNotClaimToHaveReplacedOne) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on());
    EXPECT_FALSE(contains(simcard.process().output(), "replaced"));
}

TEST(SimcardLifecycle, CardOfAnotherLayoutIsLeftAlone) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on());
    const sim::AttachedCard client = sim::attach(own_card());
    ASSERT_NE(client, nullptr);
    client->memory().identity.layout_version = sim::kLayoutVersion + 1;
    Process status = simcard_command("status", own_card());
    EXPECT_EQ(status.exit_code(), 1);
    EXPECT_TRUE(contains(status.error(), "another memory layout"));
    Process off = simcard_command("off", own_card());
    EXPECT_EQ(off.exit_code(), 1);
    EXPECT_TRUE(contains(off.error(), "another memory layout: use the kova-simcard of the same version"));
    EXPECT_TRUE(has_card_memory(own_card()));
}

TEST(SimcardLifecycle, OffTellsWhenThePowerStaysOn) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on());
    simcard.process().send(SIGSTOP);
    Process off = simcard_command("off", own_card(), {"--wait", "0"});
    EXPECT_EQ(off.exit_code(), 1);
    EXPECT_TRUE(contains(off.error(), "has not powered it off within 0 s"));
    EXPECT_TRUE(has_card_memory(own_card()));
    simcard.process().send(SIGCONT);
    EXPECT_EQ(simcard.process().exit_code(), 0);
}

TEST(SimcardLifecycle, RingOfAnImpossibleSizeIsRefused) {
    Process run = simcard_command("run", own_card(), {"--slots-log2", "23"});
    EXPECT_EQ(run.exit_code(), 1);
    EXPECT_TRUE(contains(run.error(), "a ring has 2^6 to 2^22 slots"));
    EXPECT_FALSE(has_card_memory(own_card()));
}

}  // namespace
}  // namespace kova::test
