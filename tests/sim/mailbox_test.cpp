#include "sim/card/mailbox.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "sim/card/attached_card.h"
#include "sim/card/card.h"

namespace kova::sim {
namespace {

class Mailbox : public ::testing::Test {
 protected:
    // As in the memory of a fresh card.
    std::unique_ptr<CommandMailbox> kept_ = std::make_unique<CommandMailbox>();
    CommandMailbox& mailbox_ = *kept_;
};

TEST_F(Mailbox, IsEmptyAtFirst) {
    EXPECT_EQ(take_command(mailbox_), std::nullopt);
    EXPECT_EQ(collect_reply(mailbox_), std::nullopt);
    EXPECT_FALSE(withdraw_command(mailbox_));
}

TEST_F(Mailbox, CommandIsTakenOnceAndItsAnswerComesBack) {
    ASSERT_TRUE(post_command(mailbox_, "rate 100"));
    EXPECT_EQ(collect_reply(mailbox_), std::nullopt);
    EXPECT_EQ(take_command(mailbox_), "rate 100");
    EXPECT_EQ(take_command(mailbox_), std::nullopt);
    EXPECT_EQ(collect_reply(mailbox_), std::nullopt);
    answer_command(mailbox_, {.is_refused = false, .text = "100 quotes/s"});
    EXPECT_EQ(collect_reply(mailbox_), (CommandReply{false, "100 quotes/s"}));
}

TEST_F(Mailbox, RefusalIsToldApart) {
    ASSERT_TRUE(post_command(mailbox_, "rate fast"));
    static_cast<void>(take_command(mailbox_));
    answer_command(mailbox_, {.is_refused = true, .text = "no rate"});
    EXPECT_EQ(collect_reply(mailbox_), (CommandReply{true, "no rate"}));
}

TEST_F(Mailbox, AnswerToAnEarlierCommandIsNotTakenForThisOnes) {
    ASSERT_TRUE(post_command(mailbox_, "first"));
    static_cast<void>(take_command(mailbox_));
    answer_command(mailbox_, {.is_refused = false, .text = "one"});
    ASSERT_TRUE(post_command(mailbox_, "second"));
    EXPECT_EQ(collect_reply(mailbox_), std::nullopt);
    EXPECT_EQ(take_command(mailbox_), "second");
}

TEST_F(Mailbox, CommandThatNobodyTookCanBeWithdrawn) {
    ASSERT_TRUE(post_command(mailbox_, "rate 1"));
    EXPECT_TRUE(withdraw_command(mailbox_));
    EXPECT_EQ(take_command(mailbox_), std::nullopt);
}

TEST_F(Mailbox, CommandThatWasTakenCannot) {
    ASSERT_TRUE(post_command(mailbox_, "rate 1"));
    ASSERT_EQ(take_command(mailbox_), "rate 1");
    EXPECT_FALSE(withdraw_command(mailbox_));
}

TEST_F(Mailbox, TellerThatDiedAfterAskingIsFollowedByTheNext) {
    ASSERT_TRUE(post_command(mailbox_, "of the dead"));
    ASSERT_TRUE(post_command(mailbox_, "of the next"));
    EXPECT_EQ(take_command(mailbox_), "of the next");
    EXPECT_EQ(take_command(mailbox_), std::nullopt);
}

TEST_F(Mailbox, NextTellerWaitsForWhatTheCardIsDoingForADeadOne) {
    ASSERT_TRUE(post_command(mailbox_, "of the dead"));
    ASSERT_EQ(take_command(mailbox_), "of the dead");
    EXPECT_FALSE(post_command(mailbox_, "of the next"));
    answer_command(mailbox_, {.is_refused = false, .text = "for the dead"});
    ASSERT_TRUE(post_command(mailbox_, "of the next"));
    EXPECT_EQ(collect_reply(mailbox_), std::nullopt);
    EXPECT_EQ(take_command(mailbox_), "of the next");
}

TEST_F(Mailbox, TellerThatDiedWhileWritingLeavesNothing) {
    mailbox_.command.size = 3;
    mailbox_.command.characters[0] = 'r';
    EXPECT_EQ(take_command(mailbox_), std::nullopt);
    ASSERT_TRUE(post_command(mailbox_, "help"));
    EXPECT_EQ(take_command(mailbox_), "help");
}

TEST_F(Mailbox, LongTextsAreCut) {
    ASSERT_TRUE(post_command(mailbox_, std::string(1025, 'c')));
    EXPECT_EQ(take_command(mailbox_), std::string(1024, 'c'));
    answer_command(mailbox_, {.is_refused = false, .text = std::string(5000, 'a')});
    EXPECT_EQ(collect_reply(mailbox_), (CommandReply{false, std::string(4096, 'a')}));
}

TEST_F(Mailbox, SizeThatAnotherProcessMadeUpIsBounded) {
    ASSERT_TRUE(post_command(mailbox_, std::string(1024, 'c')));
    mailbox_.command.size = 0xFFFFFFFF;
    EXPECT_EQ(take_command(mailbox_), std::string(1024, 'c'));
    answer_command(mailbox_, {.is_refused = false, .text = std::string(4096, 'a')});
    mailbox_.answer.size = 0xFFFFFFFF;
    EXPECT_EQ(collect_reply(mailbox_)->text.size(), 4096U);
}

TEST(MailboxLock, OneTellerAtATimeAndADeadOneIsNone) {
    const Card card = Card::power_on_privately(0, {.slots_log2 = 6});
    AttachedCard one = attach(0);
    const AttachedCard other = attach(0);
    EXPECT_TRUE(try_lock_byte(one->file(), kTellerLockByte));
    EXPECT_FALSE(try_lock_byte(other->file(), kTellerLockByte));
    one.reset();
    EXPECT_TRUE(try_lock_byte(other->file(), kTellerLockByte));
}

}  // namespace
}  // namespace kova::sim
