// Samples of the card's packet counters, and what two of them tell.

#include "bringup/MdPktCnt.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

namespace {

TEST(MdPktCnt, ASampleBeginsAtZero) {
    const U50MdPktCnt sample;
    EXPECT_EQ(sample.shfe_2ps_pkts, 0U);
    EXPECT_EQ(sample.en_2ps_pkts, 0U);
    EXPECT_EQ(sample.shfe_4ps_pkts, 0U);
    EXPECT_EQ(sample.en_4ps_pkts, 0U);
    EXPECT_EQ(sample.shfe_event_pkts, 0U);
}

TEST(MdPktCnt, CountersHave64BitsAndStandInTheOrderInWhichTheyAreTold) {
    EXPECT_EQ(sizeof(U50MdPktCnt), 40U);
    EXPECT_EQ(offsetof(U50MdPktCnt, shfe_2ps_pkts), 0U);
    EXPECT_EQ(offsetof(U50MdPktCnt, en_2ps_pkts), 8U);
    EXPECT_EQ(offsetof(U50MdPktCnt, shfe_4ps_pkts), 16U);
    EXPECT_EQ(offsetof(U50MdPktCnt, en_4ps_pkts), 24U);
    EXPECT_EQ(offsetof(U50MdPktCnt, shfe_event_pkts), 32U);
}

TEST(MdPktCnt, WithoutAPacketOfAnyFeedTheCardIsNotReceiving) {
    EXPECT_FALSE(IsReceiving({}, {}));
    EXPECT_FALSE(IsReceiving({1, 2, 3, 4, 5}, {1, 2, 3, 4, 5}));
}

TEST(MdPktCnt, APacketOfOneFeedIsEnough) {
    const U50MdPktCnt before = {10, 20, 30, 40, 50};
    EXPECT_TRUE(IsReceiving(before, {11, 20, 30, 40, 50}));
    EXPECT_TRUE(IsReceiving(before, {10, 21, 30, 40, 50}));
    EXPECT_TRUE(IsReceiving(before, {10, 20, 31, 40, 50}));
    EXPECT_TRUE(IsReceiving(before, {10, 20, 30, 41, 50}));
    // Above 32 bits too.
    EXPECT_TRUE(IsReceiving(before, {10 + (1UL << 32), 20, 30, 40, 50}));
}

TEST(MdPktCnt, EventsAreNoPackets) {
    EXPECT_FALSE(IsReceiving({1, 2, 3, 4, 5}, {1, 2, 3, 4, 6}));
}

TEST(MdPktCnt, ACounterThatFellHasChanged) {
    EXPECT_TRUE(IsReceiving({10, 20, 30, 40, 50}, {0, 20, 30, 40, 50}));
}

}  // namespace
