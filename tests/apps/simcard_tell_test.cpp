#include "kova_simcard/tell.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "sim/card/attached_card.h"
#include "sim/card/card.h"

namespace kova::app {
namespace {

using sim::CommandReply;

constexpr std::chrono::seconds kPatience{10};
constexpr std::int64_t kSecond = 1'000'000'000;

// A clock whose sleeps are the time in which the other side does something.
class ScriptedClock final : public Clock {
 public:
    explicit ScriptedClock(std::function<void()> meanwhile) : meanwhile_(std::move(meanwhile)) {}
    std::int64_t now() override { return now_; }
    void sleep_until(std::int64_t time) override {
        now_ = time;
        meanwhile_();
    }

 private:
    std::int64_t now_ = 5 * kSecond;
    std::function<void()> meanwhile_;
};

class SimcardTell : public ::testing::Test {
 protected:
    sim::CommandMailbox& mailbox() { return card_->memory().mailbox; }

    // What the teller gets; a refusal in brackets.
    std::string ask_while(std::function<void()> meanwhile) {
        ScriptedClock clock(std::move(meanwhile));
        const std::int64_t start = clock.now();
        try {
            const CommandReply reply = ask(*client_, "rate 5", kPatience, clock);
            return reply.is_refused ? "[" + reply.text + "]" : reply.text;
        } catch (const Unanswered& reason) {
            waited_ = clock.now() - start;
            return reason.what();
        }
    }

    // The card's program: does what it is told.
    void answer(bool is_refused, const std::string& text) {
        if (const std::optional<std::string> command = sim::take_command(mailbox())) {
            commands_ += *command + ";";
            sim::answer_command(mailbox(), {is_refused, text});
        }
    }

    std::optional<sim::Card> card_ = sim::Card::power_on_privately(0, {.slots_log2 = 6});
    sim::AttachedCard client_ = sim::attach(0);
    std::int64_t waited_ = 0;
    std::string commands_;
};

TEST_F(SimcardTell, AnswerComesBack) {
    EXPECT_EQ(ask_while([this] { answer(false, "5 quotes/s"); }), "5 quotes/s");
    EXPECT_EQ(commands_, "rate 5;");
}

TEST_F(SimcardTell, RefusalComesBack) {
    EXPECT_EQ(ask_while([this] { answer(true, "no"); }), "[no]");
}

TEST_F(SimcardTell, ProgramThatDoesNotAnswerIsWaitedForAndTheCommandWithdrawn) {
    EXPECT_EQ(ask_while([] {}), "its program does not answer; it will not do it any more");
    EXPECT_GE(waited_, 10 * kSecond);
    EXPECT_LT(waited_, 11 * kSecond);
    answer(false, "late");
    EXPECT_EQ(commands_, "");
}

TEST_F(SimcardTell, ProgramThatHasBegunIsToldApart) {
    EXPECT_EQ(ask_while([this] { static_cast<void>(sim::take_command(mailbox())); }),
              "its program has begun to do it, but not answered");
}

TEST_F(SimcardTell, CardThatIsPoweredOffMeanwhileIsNoLongerWaitedFor) {
    EXPECT_EQ(ask_while([this] { card_.reset(); }), "it was powered off meanwhile");
    EXPECT_LT(waited_, kSecond);
}

TEST_F(SimcardTell, SecondTellerWaitsForItsTurn) {
    sim::AttachedCard other = sim::attach(0);
    ASSERT_TRUE(sim::try_lock_byte(other->file(), sim::kTellerLockByte));
    ASSERT_TRUE(sim::post_command(mailbox(), "of the other"));
    int looks = 0;
    EXPECT_EQ(ask_while([&] {
                  answer(false, "done");
                  if (++looks == 3) {
                      EXPECT_EQ(commands_, "of the other;");
                      other.reset();  // whether it ends or is killed
                  }
              }),
              "done");
    EXPECT_EQ(commands_, "of the other;rate 5;");
}

TEST_F(SimcardTell, TurnThatNeverComesIsTold) {
    const sim::AttachedCard other = sim::attach(0);
    ASSERT_TRUE(sim::try_lock_byte(other->file(), sim::kTellerLockByte));
    EXPECT_EQ(ask_while([this] { answer(false, "done"); }),
              "somebody else is telling it something all the time");
    EXPECT_EQ(commands_, "");
}

TEST_F(SimcardTell, CommandOfATellerThatDiedIsNotDoneAndDoesNotDisturb) {
    ASSERT_TRUE(sim::post_command(mailbox(), "of the dead"));
    EXPECT_EQ(ask_while([this] { answer(false, "done"); }), "done");
    EXPECT_EQ(commands_, "rate 5;");
}

TEST_F(SimcardTell, WhatTheProgramDoesForADeadTellerIsWaitedFor) {
    ASSERT_TRUE(sim::post_command(mailbox(), "of the dead"));
    ASSERT_EQ(sim::take_command(mailbox()), "of the dead");
    int looks = 0;
    EXPECT_EQ(ask_while([&] {
                  if (++looks == 3) {
                      sim::answer_command(mailbox(), {false, "for the dead"});
                  } else {
                      answer(false, "done");
                  }
              }),
              "done");
    EXPECT_EQ(commands_, "rate 5;");
}

TEST_F(SimcardTell, MailboxIsFreeAfterwards) {
    EXPECT_EQ(ask_while([this] { answer(false, "done"); }), "done");
    const sim::AttachedCard other = sim::attach(0);
    EXPECT_TRUE(sim::try_lock_byte(other->file(), sim::kTellerLockByte));
}

}  // namespace
}  // namespace kova::app
