// Events of the card on channel 0: what is logged, what is forgotten, what is read.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <utility>

#include "card/engine_test.h"
#include "card/register_traffic.h"

namespace {

using kova::sim::RegisterAccess;
using kova::test::Strings;
using ::testing::ElementsAre;

// 2026-01-05, seconds since the epoch at a time of Shanghai.
constexpr std::uint64_t kTenTwentySeven = 1'767'580'020;
constexpr std::uint64_t kTenThirtyOne = 1'767'580'260;
constexpr std::uint64_t kFourteenFiftyNine = 1'767'596'340;
constexpr std::uint64_t kFifteenFortyTwo = 1'767'598'920;

class FpgaEventTest : public kova::test::EngineTest {
 protected:
    FpgaEventTest() {
        EXPECT_EQ(engine->KovaStart(spi, config("init_tcpcnt = 0")), -2);  // not brought up, but open
        EngineAccess::is_tcp_init_finished(*engine) = true;
        EngineAccess::is_hbm2_init_finished(*engine) = true;
        EngineAccess::is_all_init_finished(*engine) = true;
        EngineAccess::finished_mask(*engine).enabled_mask = 5;
        forget();
    }

    ~FpgaEventTest() override { kova::test::RegisterTraffic::reset(); }

    bool judge(std::uint32_t data0, std::uint32_t data1, std::uint32_t data2, std::uint32_t data3) {
        return EngineAccess::check_event(*engine, {DMA_EVENT, 32, data0, data1, data2, data3, 0, 0});
    }
    void preset_update_times(std::uint64_t first, std::uint64_t second, std::uint64_t third,
                             std::uint64_t fourth) {
        card.preset(0x2040, first);
        card.preset(0x2041, second);
        card.preset(0x2042, third);
        card.preset(0x2043, fourth);
    }
};

TEST_F(FpgaEventTest, AnEventOfZerosSaysNothing) {
    EXPECT_FALSE(judge(0, 0, 0, 0));
    EXPECT_EQ(new_log(), Strings{});
    EXPECT_EQ(sdk().register_accesses().size(), 0U);
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 5);
}

TEST_F(FpgaEventTest, LostPacketsAreToldAndTheStatusIsReadIntoTheLog) {
    card.preset(0x2032, 3);
    card.preset(0x12015, 0x11);
    card.preset(0x2201B, 0x22);
    EXPECT_TRUE(judge(0x00000080, 0x00000001, 0, 0));
    EXPECT_THAT(
        new_log(),
        ElementsAre(
            "[W][_CheckLostUdpPktHandler]received lost pkt event, event_data0=00000080",
            "[X][ReadRegister]0x2030: read 0x00000000 (0)", "[X][ReadRegister]0x2031: read 0x00000000 (0)",
            "[X][ReadRegister]0x2032: read 0x00000003 (3)", "[X][ReadRegister]0x12015: read 0x00000011 (17)",
            "[X][ReadRegister]0x1201b: read 0x00000000 (0)", "[X][ReadRegister]0x22015: read 0x00000000 (0)",
            "[X][ReadRegister]0x2201b: read 0x00000022 (34)"));
    // The configured level holds again.
    std::uint32_t value = 0;
    EngineAccess::registers(*engine).ReadRegister(0x4, value);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(FpgaEventTest, APriceErrorIsTold) {
    EXPECT_TRUE(judge(0, 0x01000000, 0, 0));
    EXPECT_EQ(new_log().front(), "[W][_CheckLostUdpPktHandler]received px error event, event_data1=01000000");
}

TEST_F(FpgaEventTest, LostPacketsOfAFeedAreTold) {
    EXPECT_TRUE(judge(0, 0, 0, 0x8));
    EXPECT_EQ(new_log().front(), "[W][_CheckLostUdpPktHandler]received lost pkt event, event_data3=00000008");
    EXPECT_FALSE(judge(0, 0, 0, 0x10));
}

TEST_F(FpgaEventTest, SilenceInABreakIsIgnored) {
    preset_update_times(100, kTenTwentySeven, 200, 300);
    EXPECT_FALSE(judge(0x00004000, 0, 0, 0));
    EXPECT_THAT(new_log(),
                ElementsAre("[I][_CheckLostUdpPktHandler]received pkt timeout event, ignore. "
                            "event_data0=00004000 last_update_time[100,1767580020,200,300] ts[10,27]"));
    EXPECT_EQ(sdk().register_accesses(),
              (std::vector<RegisterAccess>{
                  {.is_write = false, .number = 0x2040, .value = 100, .is_locked = true},
                  {.is_write = false, .number = 0x2041, .value = kTenTwentySeven, .is_locked = true},
                  {.is_write = false, .number = 0x2042, .value = 200, .is_locked = true},
                  {.is_write = false, .number = 0x2043, .value = 300, .is_locked = true}}));
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 5);
    EXPECT_TRUE(EngineAccess::is_tcp_init_finished(*engine));
}

TEST_F(FpgaEventTest, SilenceOutsideTheBreaksMeansLostPackets) {
    preset_update_times(kTenThirtyOne, kTenTwentySeven, 0, 0);
    EXPECT_TRUE(judge(0x00004000, 0, 0, 0));
    EXPECT_EQ(new_log().front(),
              "[W][_CheckLostUdpPktHandler]received pkt timeout event, event_data0=00004000 "
              "last_update_time[1767580260,1767580020,0,0] ts[10,31]");
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0);
}

TEST_F(FpgaEventTest, TheNewestUpdateOfAllFeedsCounts) {
    preset_update_times(kFourteenFiftyNine, 0, 0, kFifteenFortyTwo);
    EXPECT_FALSE(judge(0x40000000, 0, 0, 0));
    preset_update_times(kFourteenFiftyNine, 0, 0, 0);
    EXPECT_TRUE(judge(0x40000000, 0, 0, 0));
}

TEST_F(FpgaEventTest, ACardThatCannotBeReadHasNeverBeenUpdated) {
    preset_update_times(kTenTwentySeven, kTenTwentySeven, kTenTwentySeven, kTenTwentySeven);
    for (std::uint32_t n = 1; n <= 4; ++n) {
        sdk().fail("enyx_hw_read", n, EIO);
    }
    EXPECT_TRUE(judge(0x00000040, 0, 0, 0));  // the first second of the epoch: 8:00 in Shanghai
    EXPECT_EQ(new_log()[4],
              "[W][_CheckLostUdpPktHandler]received pkt timeout event, event_data0=00000040 "
              "last_update_time[0,0,0,0] ts[8,0]");
}

/** Lets the SDK give update times of 64 bits, whatever width it is asked for. */
void answer_update_times(std::uint64_t first, std::uint64_t second, std::uint64_t third, std::uint64_t fourth) {
    using kova::test::RegisterTraffic;
    RegisterTraffic::answer(0x2040, {first});
    RegisterTraffic::answer(0x2041, {second});
    RegisterTraffic::answer(0x2042, {third});
    RegisterTraffic::answer(0x2043, {fourth});
}

/** Minutes of the day in which a feed may be silent, as pairs of the first and the last one. */
constexpr std::array<std::pair<int, int>, 10> kBreaks = {{
    {2 * 60 + 30, 2 * 60 + 30},
    {8 * 60 + 55, 8 * 60 + 59},
    {9 * 60, 9 * 60},
    {10 * 60 + 15, 10 * 60 + 15},
    {10 * 60 + 25, 10 * 60 + 30},
    {11 * 60 + 30, 11 * 60 + 30},
    {13 * 60 + 25, 13 * 60 + 30},
    {15 * 60, 15 * 60 + 59},
    {20 * 60 + 55, 20 * 60 + 59},
    {21 * 60, 21 * 60},
}};

class BreakTest : public FpgaEventTest {
 protected:
    /** Whether silence is judged by the local minute of the newest update, for each minute of a day. */
    void expect_every_minute_judged(const char* zone, std::uint64_t midnight) {
        ::setenv("TZ", zone, 1);
        ::tzset();
        for (int minute = 0; minute < 24 * 60; ++minute) {
            const bool is_break = std::ranges::any_of(kBreaks, [minute](const std::pair<int, int>& span) {
                return minute >= span.first && minute <= span.second;
            });
            // Its last second, in the register of each feed in turn.
            card.preset(0x2040 + static_cast<std::uint32_t>(minute % 4),
                        midnight + static_cast<std::uint64_t>(minute) * 60 + 59);
            ASSERT_EQ(EngineAccess::is_timeout_lost(*engine, {DMA_EVENT, 32, 0x40, 0, 0, 0, 0, 0}), !is_break)
                << zone << " " << minute / 60 << ":" << minute % 60;
        }
        const std::string last = new_log().back();
        EXPECT_THAT(last, ::testing::EndsWith(" ts[23,59]"));
    }
};

TEST_F(BreakTest, EveryMinuteOfADayInShanghaiIsJudged) {
    expect_every_minute_judged("CST-8", 1'767'542'400);  // 2026-01-05 00:00 there is 16:00 the day before
}

TEST_F(BreakTest, EveryMinuteOfADayInNewYorkIsJudged) {
    expect_every_minute_judged("EST5EDT,M3.2.0,M11.1.0", 1'781'496'000);  // 2026-06-15 00:00 there is 4:00
}

TEST_F(BreakTest, EveryMinuteOfADayInAZoneOfHalfHoursIsJudged) {
    expect_every_minute_judged("IST-5:30", 1'767'551'400);  // 2026-01-05 00:00 there is 18:30 the day before
}

TEST_F(FpgaEventTest, AnUpdateTimeThatNoCalendarExpressesIsNoBreak) {
    answer_update_times(0x7FFFFFFFFFFFFFFF, 0, 0, 0);
    EXPECT_TRUE(judge(0x40, 0, 0, 0));
    EXPECT_EQ(new_log().front(),
              "[W][_CheckLostUdpPktHandler]received pkt timeout event, event_data0=00000040 "
              "last_update_time[9223372036854775807,0,0,0] ts[0,0]");
}

TEST_F(FpgaEventTest, UpdateTimesAreSignedAndBelowZeroTheyAreOlderThanTheEpoch) {
    answer_update_times(0xFFFFFFFFFFFFFFFF, kFifteenFortyTwo, 0x8000000000000000, 0);
    EXPECT_FALSE(judge(0x40, 0, 0, 0));
    new_log();
    answer_update_times(0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFFF);
    EXPECT_TRUE(judge(0x40, 0, 0, 0));  // the epoch: 8:00 in Shanghai
    EXPECT_THAT(new_log().front(), ::testing::EndsWith(" ts[8,0]"));
}

TEST_F(FpgaEventTest, StatusIsReadInItsOrderAndInNoOther) {
    EXPECT_TRUE(judge(0x80, 0, 0, 0));
    std::vector<std::uint32_t> numbers;
    for (const RegisterAccess& access : sdk().register_accesses()) {
        EXPECT_FALSE(access.is_write);
        numbers.push_back(access.number);
    }
    EXPECT_THAT(numbers, ElementsAre(0x2030, 0x2031, 0x2032, 0x12015, 0x1201B, 0x22015, 0x2201B));
}

TEST_F(FpgaEventTest, ALostCardIsForgottenButForSessionsAndCounts) {
    EngineAccess::dst_port(*engine).port_ine_2ps = 33022;
    EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps = 12;
    EngineAccess::inst_table(*engine).shfe2psInstTable.rows[0].price_tick = 1;
    EngineAccess::inst_table(*engine).ine4psInstTable.rows[4095].low_price = 1;
    EngineAccess::session(*engine, 33022).init = 1;
    EXPECT_TRUE(judge(0x80, 0, 0, 0));
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0);
    EXPECT_EQ(EngineAccess::dst_port(*engine).port_ine_2ps, 0);
    EXPECT_EQ(EngineAccess::peek_inst_table(*engine).shfe2psInstTable.rows[0].price_tick, 0);
    EXPECT_EQ(EngineAccess::peek_inst_table(*engine).ine4psInstTable.rows[4095].low_price, 0);
    EXPECT_FALSE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_FALSE(EngineAccess::is_hbm2_init_finished(*engine));
    // The dispatcher's to clear, the next initialisation's to clear.
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_EQ(EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps, 12U);
    EXPECT_EQ(EngineAccess::peek_session(*engine, 33022).init, 1);
}

}  // namespace
