// What an event of the card means, and when a feed may be silent.

#include "integrity/FpgaEvents.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <utility>

namespace {

U50Event event(std::uint32_t data0, std::uint32_t data1, std::uint32_t data2, std::uint32_t data3) {
    return {.dma_type = 0,
            .dma_len = 32,
            .event_data0 = data0,
            .event_data1 = data1,
            .event_data2 = data2,
            .event_data3 = data3,
            .event_data4 = 0xFFFFFFFF,
            .event_data5 = 0xFFFFFFFF};
}

TEST(FpgaEvents, AllZeroMeansNothing) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0, 0, 0, 0)), FPGA_EVENT_NONE);
}

TEST(FpgaEvents, TheTopBitOfEachLaneMeansLostPackets) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00000080, 0, 0, 0)), FPGA_EVENT_LOST_LANE);
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00008000, 0, 0, 0)), FPGA_EVENT_LOST_LANE);
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00800000, 0, 0, 0)), FPGA_EVENT_LOST_LANE);
    EXPECT_EQ(ClassifyFpgaEvent(event(0x80000000, 0, 0, 0)), FPGA_EVENT_LOST_LANE);
}

TEST(FpgaEvents, TheSecondBitOfEachLaneMeansSilence) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00000040, 0, 0, 0)), FPGA_EVENT_TIMEOUT);
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00004000, 0, 0, 0)), FPGA_EVENT_TIMEOUT);
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00400000, 0, 0, 0)), FPGA_EVENT_TIMEOUT);
    EXPECT_EQ(ClassifyFpgaEvent(event(0x40000000, 0, 0, 0)), FPGA_EVENT_TIMEOUT);
}

TEST(FpgaEvents, TheLowSixBitsOfALaneMeanNothing) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0x3F3F3F3F, 0, 0, 0)), FPGA_EVENT_NONE);
}

TEST(FpgaEvents, TheLowFourBitsOfEachLaneMeanAPriceError) {
    for (const std::uint32_t bit : {0x1U, 0x2U, 0x4U, 0x8U, 0x100U, 0x200U, 0x400U, 0x800U, 0x10000U, 0x20000U,
                                    0x40000U, 0x80000U, 0x1000000U, 0x2000000U, 0x4000000U, 0x8000000U}) {
        EXPECT_EQ(ClassifyFpgaEvent(event(0, bit, 0, 0)), FPGA_EVENT_PRICE_ERROR) << std::hex << bit;
    }
    EXPECT_EQ(ClassifyFpgaEvent(event(0, 0xF0F0F0F0, 0, 0)), FPGA_EVENT_NONE);
}

TEST(FpgaEvents, OnlyFourBitsOfTheFourthWordMeanLostPackets) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0, 0, 0, 0x1)), FPGA_EVENT_LOST_FEED);
    EXPECT_EQ(ClassifyFpgaEvent(event(0, 0, 0, 0x2)), FPGA_EVENT_LOST_FEED);
    EXPECT_EQ(ClassifyFpgaEvent(event(0, 0, 0, 0x4)), FPGA_EVENT_LOST_FEED);
    EXPECT_EQ(ClassifyFpgaEvent(event(0, 0, 0, 0x8)), FPGA_EVENT_LOST_FEED);
    EXPECT_EQ(ClassifyFpgaEvent(event(0, 0, 0, 0x10)), FPGA_EVENT_NONE);
}

TEST(FpgaEvents, TheThirdWordMeansNothing) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0, 0, 0xFFFFFFFF, 0)), FPGA_EVENT_NONE);
}

TEST(FpgaEvents, LostPacketsComeBeforeEverything) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00000080, 0x00000001, 0, 0)), FPGA_EVENT_LOST_LANE);
    EXPECT_EQ(ClassifyFpgaEvent(event(0x000000C0, 0, 0, 0xF)), FPGA_EVENT_LOST_LANE);
}

TEST(FpgaEvents, APriceErrorComesBeforeSilence) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00000040, 0x00000001, 0, 0xF)), FPGA_EVENT_PRICE_ERROR);
}

TEST(FpgaEvents, SilenceComesBeforeTheFourthWord) {
    EXPECT_EQ(ClassifyFpgaEvent(event(0x00000040, 0, 0, 0x1)), FPGA_EVENT_TIMEOUT);
}

TEST(FpgaEvents, TheBreaksOfADayAreTheseMinutesAndNoOther) {
    std::set<std::pair<std::uint32_t, std::uint32_t>> breaks = {
        {2, 30},                                                     // end of the longest night
        {8, 55},  {8, 56},  {8, 57},  {8, 58},  {8, 59},  {9, 0},    // morning auction
        {10, 15},                                                    // start of the break
        {10, 25}, {10, 26}, {10, 27}, {10, 28}, {10, 29}, {10, 30},  // its end
        {11, 30},                                                    // noon
        {13, 25}, {13, 26}, {13, 27}, {13, 28}, {13, 29}, {13, 30},  // afternoon
        {20, 55}, {20, 56}, {20, 57}, {20, 58}, {20, 59}, {21, 0},   // night auction
    };
    for (std::uint32_t minute = 0; minute < 60; ++minute) {
        breaks.emplace(15, minute);  // after the close
    }
    for (std::uint32_t hour = 0; hour < 24; ++hour) {
        for (std::uint32_t minute = 0; minute < 60; ++minute) {
            EXPECT_EQ(IsTradingBreak(hour, minute), breaks.contains({hour, minute})) << hour << ":" << minute;
        }
    }
}

}  // namespace
