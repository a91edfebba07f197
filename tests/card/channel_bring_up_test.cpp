// Bringing a card up: whether it is needed, how often it is tried, and what follows the snapshot.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <initializer_list>
#include <set>
#include <utility>

#include "card/bring_up_test.h"

namespace kova::test {
namespace {

using std::chrono::seconds;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class ChannelBringUpTest : public BringUpTest {
 protected:
    int check_and_bring_up() { return EngineAccess::check_and_bring_up(*engine); }
    int bring_up(std::uint32_t config_crc) { return EngineAccess::bring_up(*engine, config_crc); }
    U50ConfigInfo& settings() { return EngineAccess::config(*engine); }

    /** The snapshot counts as taken: a bring-up goes on behind it. */
    void skip_snapshot() { EngineAccess::is_tcp_init_finished(*engine) = true; }
};

// Whether a bring-up is needed. With no attempt allowed, one that begins is two lines and a failure.

const Strings kBringUpBegins = {"[D][_KovaSubDmaUp]channel0 FPGA Init......begin",
                                "[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 0"};

class RunningCardTest : public ChannelBringUpTest {
 protected:
    // CRC-32C of the file that these lines give.
    static constexpr std::uint32_t kConfigCrc = 0xB8552D7B;
    static constexpr const char* kConfig = "crc_mux_check = 1\ninit_tcpcnt = 0\nboard_id = 8";

    RunningCardTest() {
        open(kConfig);
        RegisterTraffic::answer(0x1001, {kConfigCrc});
    }

    /** The counters of both samples, 2PS before 4PS and SHFE before INE. */
    static void count(const std::array<std::uint64_t, 5>& before, const std::array<std::uint64_t, 5>& after) {
        constexpr std::array<std::uint32_t, 5> registers = {0x1220, 0x1230, 0x1240, 0x1250, 0x1207};
        for (std::size_t i = 0; i < registers.size(); ++i) {
            RegisterTraffic::answer(registers[i], {before[i], after[i]});
        }
    }

    /** The lines that are no register access. */
    Strings told() {
        Strings lines = new_log();
        std::erase_if(lines, [](const std::string& line) { return line.starts_with("[X]"); });
        return lines;
    }

    static inline const std::string kSameConfig =
        "[W][_ChechAndKovaSubDmaUp]crc_mux_check is 1, lasrtCrc is -1202377349 , configCrc is -1202377349.";
};

TEST_F(RunningCardTest, TwoSamplesAreTakenThreeSecondsApartThenTheChecksumIsRead) {
    count({10, 20, 30, 40, 50}, {11, 21, 31, 41, 51});
    const auto slept = Clock::slept();
    std::vector<long> seconds_slept;
    RegisterTraffic::before_each([&](bool, std::uint32_t) {
        seconds_slept.push_back(std::chrono::duration_cast<seconds>(Clock::slept() - slept).count());
    });
    RegisterTraffic::start_recording();
    EXPECT_EQ(check_and_bring_up(), -1);
    EXPECT_EQ(RegisterTraffic::stop_recording(),
              (Strings{"0x1220 -> 0xa", "0x1230 -> 0x14", "0x1240 -> 0x1e", "0x1250 -> 0x28", "0x1207 -> 0x32",
                       "0x1220 -> 0xb", "0x1230 -> 0x15", "0x1240 -> 0x1f", "0x1250 -> 0x29", "0x1207 -> 0x33",
                       "0x1001 -> 0xb8552d7b"}));
    EXPECT_EQ(seconds_slept, (std::vector<long>{0, 0, 0, 0, 0, 3, 3, 3, 3, 3, 3}));
    EXPECT_EQ(Clock::slept() - slept, seconds(3));
}

TEST_F(RunningCardTest, ASignalDoesNotShortenTheThreeSeconds) {
    // A feed's packet arrives in the last second.
    count({1, 2, 3, 4, 5}, {1, 2, 3, 4, 5});
    Clock::interrupt_next_sleep_after(seconds(1));
    const auto slept = Clock::slept();
    Clock::during_each_sleep([&] {
        if (Clock::slept() - slept == seconds(3)) {
            RegisterTraffic::answer(0x1220, {2});
        }
    });
    EXPECT_EQ(check_and_bring_up(), 0);
    EXPECT_EQ(Clock::slept() - slept, seconds(3));
    Clock::during_each_sleep({});
}

TEST_F(RunningCardTest, SamplesAreToldWhateverIsConfiguredAndNothingElse) {
    settings().log_level = static_cast<ELOGLEVEL>(0);
    CCommonLog::GetInstance()->SetLogLevel(static_cast<ELOGLEVEL>(0));
    count({1, 2, 3, 4, 5}, {6, 7, 8, 9, 10});
    EXPECT_EQ(check_and_bring_up(), -1);
    EXPECT_EQ(new_log(),
              (Strings{did_read(0x1220, 1), did_read(0x1230, 2), did_read(0x1240, 3), did_read(0x1250, 4),
                       did_read(0x1207, 5), did_read(0x1220, 6), did_read(0x1230, 7), did_read(0x1240, 8),
                       did_read(0x1250, 9), did_read(0x1207, 10), did_read(0x1001, kConfigCrc)}));
}

TEST_F(RunningCardTest, ACardThatRunsThisConfigurationWithoutEventsIsLeftAlone) {
    // Counters have 64 bits.
    count({1, 2, 3, 4, 18446744073709551615UL}, {4294967297, 2, 3, 4, 18446744073709551615UL});
    RegisterTraffic::start_recording();
    EXPECT_EQ(check_and_bring_up(), 0);
    EXPECT_EQ(RegisterTraffic::stop_recording().size(), 11U);
    EXPECT_EQ(told(), (Strings{kSameConfig,
                               "[W][_ChechAndKovaSubDmaUp]channel0 kova.ini no changes have occurred, no "
                               "initialization required, pkts1 [1 2 3 4 18446744073709551615], pkts2 "
                               "[4294967297 2 3 4 18446744073709551615]."}));
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_FALSE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_EQ(Polls::count(), 0U);
    // It receives at once.
    card->push_quote(0, quote_number(1));
    EngineAccess::spi(*engine) = CUSTOptional<CKovaShfeMdSpi>(spi);
    EXPECT_EQ(engine->KovaRecv(), 1);
}

TEST_F(RunningCardTest, APacketOfAnyOneFeedShowsThatItReceives) {
    for (std::size_t feed = 0; feed < 4; ++feed) {
        std::array<std::uint64_t, 5> after = {1, 2, 3, 4, 5};
        ++after[feed];
        count({1, 2, 3, 4, 5}, after);
        EXPECT_EQ(check_and_bring_up(), 0) << feed;
    }
}

TEST_F(RunningCardTest, ACardWithoutPacketsIsBroughtUpAlthoughTheConfigurationIsTheSame) {
    count({1, 2, 3, 4, 5}, {1, 2, 3, 4, 5});
    EXPECT_EQ(check_and_bring_up(), -1);
    EXPECT_EQ(told(), joined({{kSameConfig}, kBringUpBegins}));
    // Events do not show that it receives.
    count({1, 2, 3, 4, 5}, {1, 2, 3, 4, 6});
    EXPECT_EQ(check_and_bring_up(), -1);
    EXPECT_EQ(told(), joined({{kSameConfig}, kBringUpBegins}));
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
}

TEST_F(RunningCardTest, ACardThatRaisedEventsIsBroughtUpAlthoughItReceives) {
    count({1, 2, 3, 4, 5}, {9, 9, 9, 9, 6});
    EXPECT_EQ(check_and_bring_up(), -1);
    EXPECT_EQ(told(), joined({{kSameConfig}, kBringUpBegins}));
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
}

TEST_F(RunningCardTest, ACardWithAnotherConfigurationIsBroughtUpWithoutAWordAboutIt) {
    RegisterTraffic::answer(0x1001, {kConfigCrc ^ 0x80000000});
    count({1, 2, 3, 4, 5}, {9, 9, 9, 9, 5});
    EXPECT_EQ(check_and_bring_up(), -1);
    EXPECT_EQ(told(), kBringUpBegins);
}

TEST_F(RunningCardTest, WithoutTheCheckSamplesAreTakenAndTheCardIsBroughtUp) {
    settings().crc_mux_check = false;
    count({1, 2, 3, 4, 5}, {9, 9, 9, 9, 5});
    const auto slept = Clock::slept();
    EXPECT_EQ(check_and_bring_up(), -1);
    EXPECT_EQ(Clock::slept() - slept, seconds(3));
    EXPECT_EQ(told(), kBringUpBegins);
}

TEST_F(RunningCardTest, AnotherChannelAsksNothing) {
    settings().channel_id = 3;
    std::filesystem::remove("kova.ini");
    const auto slept = Clock::slept();
    RegisterTraffic::start_recording();
    EXPECT_EQ(check_and_bring_up(), 0);
    EXPECT_EQ(bring_up(kConfigCrc), 0);
    EXPECT_EQ(RegisterTraffic::stop_recording(), Strings{});
    EXPECT_EQ(Clock::slept(), slept);
    EXPECT_EQ(new_log(), Strings{});
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
}

// Attempts.

class AttemptsTest : public ChannelBringUpTest {
 protected:
    AttemptsTest() {
        open("init_tcpcnt = 3\nwait_snap_timeout = 1");
        RegisterTraffic::before_each(
            [this](bool is_write, std::uint32_t number) { attempts += is_write && number == 0x10 ? 1 : 0; });
    }

    /** The lines of the bring-up itself. */
    Strings told() {
        Strings lines = new_log();
        std::erase_if(lines,
                      [](const std::string& line) { return !line.substr(3).starts_with("[_KovaSubDmaUp]"); });
        return lines;
    }

    int attempts = 0;
};

TEST_F(AttemptsTest, NoneIsMadeWhenNoneIsAllowed) {
    settings().init_tcpcnt = 0;
    RegisterTraffic::start_recording();
    EXPECT_EQ(bring_up(1), -1);
    EXPECT_EQ(RegisterTraffic::stop_recording(), Strings{});
    EXPECT_EQ(new_log(), kBringUpBegins);
}

TEST_F(AttemptsTest, AsManyAreMadeInARowAsAreAllowedAndThenNone) {
    EXPECT_EQ(bring_up(1), -1);
    EXPECT_EQ(attempts, 3);
    EXPECT_EQ(told(), (Strings{"[D][_KovaSubDmaUp]channel0 FPGA Init......begin",
                               "[W][_KovaSubDmaUp]channel0 u50 Init time out Cnt == 1",
                               "[W][_KovaSubDmaUp]channel0 u50 Init time out Cnt == 2",
                               "[W][_KovaSubDmaUp]channel0 u50 Init time out Cnt == 3",
                               "[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 3"}));
    EXPECT_EQ(EngineAccess::init_count(*engine), 3);
    EXPECT_EQ(bring_up(1), -1);
    EXPECT_EQ(attempts, 3);
    EXPECT_EQ(told(), (Strings{"[D][_KovaSubDmaUp]channel0 FPGA Init......begin",
                               "[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 3"}));
}

TEST_F(AttemptsTest, TheMostThatCanBeConfiguredIsNoNegativeNumber) {
    settings().init_tcpcnt = 65535;
    EngineAccess::init_count(*engine) = 65534;
    EXPECT_EQ(bring_up(1), -1);
    EXPECT_EQ(attempts, 1);
    EXPECT_EQ(told().back(), "[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 65535");
}

TEST_F(AttemptsTest, AfterAMemoryFailureNoOtherFollowsAndItCounts) {
    RegisterTraffic::answer(0x2032, {0});
    EXPECT_EQ(bring_up(1), -1);
    EXPECT_EQ(attempts, 1);
    EXPECT_EQ(new_log().back(), "[W][_InitFpga]HBM2 init timeout, Please check whether the FPGA is normal.");
    RegisterTraffic::answer(0x2032, {3});
    EXPECT_EQ(bring_up(1), -1);
    EXPECT_EQ(attempts, 3);
    EXPECT_THAT(told(), Contains("[W][_KovaSubDmaUp]channel0 u50 Init time out Cnt == 2"));
}

TEST_F(AttemptsTest, AfterAStopNoOtherFollows) {
    on_poll = [this](std::uint64_t number) {
        if (number == 7) {
            engine->KovaStop();
        }
    };
    EXPECT_EQ(bring_up(1), -1);
    EXPECT_EQ(attempts, 1);
    EXPECT_EQ(told(), Strings{"[D][_KovaSubDmaUp]channel0 FPGA Init......begin"});
}

TEST_F(AttemptsTest, AfterASignalNoOtherFollows) {
    CSignalProcess::InitSignal();
    on_poll = [](std::uint64_t number) {
        if (number == 7) {
            std::raise(SIGTERM);
        }
    };
    EXPECT_EQ(bring_up(1), -1);
    EXPECT_EQ(attempts, 1);
    EXPECT_EQ(told(), Strings{"[D][_KovaSubDmaUp]channel0 FPGA Init......begin"});
}

TEST_F(AttemptsTest, ASuccessAfterATimeoutLetsTheCountBeginAnew) {
    settings().init_tcpcnt = 2;
    settings().log_level = static_cast<ELOGLEVEL>(3);
    CCommonLog::GetInstance()->SetLogLevel(static_cast<ELOGLEVEL>(3));
    settings().wait_snap_timeout = 20;
    settings().enabled_mask.enabled_mask = 0x05;
    on_poll = [this](std::uint64_t) {
        if (attempts == 2 && frames.empty()) {
            frames = SnapshotFrames().frames();
        }
    };
    EXPECT_EQ(bring_up(1), 0);
    EXPECT_EQ(attempts, 2);
    EXPECT_EQ(told(), (Strings{"[W][_KovaSubDmaUp]channel0 u50 Init time out Cnt == 1",
                               // At level 31.
                               "[D][_KovaSubDmaUp]channel0 update_reg configCrc[1]",
                               "[I][_KovaSubDmaUp]shfe2ps_max_inst_no[81000] shfe4ps_max_inst_no[81101] "
                               "ine2ps_max_inst_no[85000] ine4ps_max_inst_no[85101] lastTickChannel[0]"}));
    EXPECT_EQ(EngineAccess::init_count(*engine), 0);
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
}

// What follows the snapshot.

class BehindSnapshotTest : public ChannelBringUpTest {
 protected:
    BehindSnapshotTest() {
        open("log_level = 15\nlast_tick_channel = 5\nmodel_sel = 1");
        skip_snapshot();
    }
};

/** The registers behind the subscriptions. */
const Strings kLimitsModesAndStart = {
    "0x1005 = 0x13c68", "0x1006 = 0x13ccd",     "0x1007 = 0x14c08", "0x1008 = 0x14c6d",
    "0x1009 = 0x5",     "0x1010 = 0x0",         "0x100 = 0x1",      "0x101 = 0x0",
    "0x21001 = 0x1",    "0x21000 = 0xffffffff", "0x11001 = 0x1",    "0x11000 = 0xffffffff",
    "0x11005 = 0x1",    "0x11004 = 0xffffffff", "0x21005 = 0x1",    "0x21004 = 0xffffffff",
    "0x11120 = 0x1",    "0x21120 = 0x1",
};

TEST_F(BehindSnapshotTest, WithASnapshotNoAttemptIsMadeAndEveryChannelIsSubscribed) {
    Strings expected = {"0x102 = 0x1010133",   "0x101 -> 0x20260420", "0x103 -> 0x1",
                        "0x1001 = 0x12345678", "0x1f14 -> 0x0",       "0x1f15 -> 0x0"};
    for (int channel = 0; channel < 16; ++channel) {
        expected.insert(expected.end(), {"0x1f14 -> 0x0", "0x1f15 -> 0x0"});
    }
    RegisterTraffic::start_recording();
    EXPECT_EQ(bring_up(0x12345678), 0);
    EXPECT_EQ(RegisterTraffic::stop_recording(), joined({expected, kLimitsModesAndStart}));
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_EQ(Polls::count(), 0U);
}

TEST_F(BehindSnapshotTest, AChecksumOfZeroIsNeverWrittenNorTold) {
    RegisterTraffic::start_recording();
    EXPECT_EQ(bring_up(0), 0);
    EXPECT_THAT(RegisterTraffic::stop_recording(), Not(Contains(StartsWith("0x1001 "))));
    EXPECT_THAT(new_log(), Not(Contains(HasSubstr("update_reg"))));
}

TEST_F(BehindSnapshotTest, ModesAndLimitsAreTheConfiguredOnes) {
    settings().maxInstNo = {1, -1, 3, 4};
    settings().last_tick_channel = 0x8001;
    settings().repeat_quote_upload = true;
    settings().model_sel = false;
    settings().event_model_sel = true;
    RegisterTraffic::start_recording();
    EXPECT_EQ(bring_up(0), 0);
    const Strings all = RegisterTraffic::stop_recording();
    ASSERT_GT(all.size(), 18U);
    EXPECT_EQ(Strings(all.end() - 18, all.end() - 10),
              (Strings{"0x1005 = 0x1", "0x1006 = 0xffffffff", "0x1007 = 0x3", "0x1008 = 0x4", "0x1009 = 0x8001",
                       "0x1010 = 0x1", "0x100 = 0x0", "0x101 = 0x1"}));
    EXPECT_THAT(new_log(), Contains("[I][_KovaSubDmaUp]shfe2ps_max_inst_no[1] shfe4ps_max_inst_no[-1] "
                                    "ine2ps_max_inst_no[3] ine4ps_max_inst_no[4] lastTickChannel[32769]"));
}

TEST_F(BehindSnapshotTest, AtLevelZeroOnlyRegisterProgrammingIsTold) {
    settings().log_level = static_cast<ELOGLEVEL>(0);
    CCommonLog::GetInstance()->SetLogLevel(static_cast<ELOGLEVEL>(0));
    EXPECT_EQ(bring_up(2), 0);
    EXPECT_EQ(new_log(), (Strings{wrote(0x1001, 2),
                                  "[D][_KovaSubDmaUp]channel0 update_reg configCrc[2]",
                                  wrote(0x1005, 81000),
                                  wrote(0x1006, 81101),
                                  wrote(0x1007, 85000),
                                  wrote(0x1008, 85101),
                                  wrote(0x1009, 5),
                                  "[I][_KovaSubDmaUp]shfe2ps_max_inst_no[81000] shfe4ps_max_inst_no[81101] "
                                  "ine2ps_max_inst_no[85000] ine4ps_max_inst_no[85101] lastTickChannel[5]",
                                  wrote(0x1010, 0),
                                  wrote(0x100, 1),
                                  wrote(0x101, 0),
                                  "[I][_StartDmaUp]channel0 close read/write channle",
                                  wrote(0x21001, 1),
                                  wrote(0x21000, 0xFFFFFFFF),
                                  wrote(0x11001, 1),
                                  wrote(0x11000, 0xFFFFFFFF),
                                  wrote(0x11005, 1),
                                  wrote(0x11004, 0xFFFFFFFF),
                                  wrote(0x21005, 1),
                                  wrote(0x21004, 0xFFFFFFFF),
                                  "[I][_StartDmaUp]channel0 logical start",
                                  wrote(0x11120, 1),
                                  wrote(0x21120, 1)}));
    // And level zero holds again.
    std::uint32_t value = 0;
    EngineAccess::registers(*engine).ReadRegister(0x4, value);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(BehindSnapshotTest, AWrongVersionEndsItBeforeAnythingIsRememberedOrSubscribed) {
    for (const std::uint32_t verdict : {0U, 2U, 3U}) {
        RegisterTraffic::answer(0x103, {verdict});
        RegisterTraffic::start_recording();
        EXPECT_EQ(bring_up(7), -1);
        EXPECT_EQ(RegisterTraffic::stop_recording().size(), 3U);
        const Strings log = new_log();
        EXPECT_EQ(log.front(), "[D][_KovaSubDmaUp]channel0 FPGA Init......begin");
        EXPECT_EQ(log.back(), "[E][_KovaSubDmaUp]check version is fail.");
        EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
    }
}

TEST_F(BehindSnapshotTest, AnInstrumentFileThatCannotBeWrittenIsNoFailure) {
    std::filesystem::create_directory(day.morning_file());
    RegisterTraffic::answer(0x1F14, {1, 0});
    EXPECT_EQ(bring_up(7), 0);
    EXPECT_THAT(new_log(),
                Contains("[W][_InstStaticInfoWriteFile]open contract index file failed " + day.morning_file()));
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
}

TEST_F(BehindSnapshotTest, EachBringUpBeginsCapturesOfItsOwnWhenTheyAreWanted) {
    const auto captures = [] {
        std::multiset<std::string> extensions;
        for (const auto& entry : std::filesystem::directory_iterator(".")) {
            extensions.insert(entry.path().extension().string());
        }
        return std::pair(extensions.count(".bin"), extensions.count(".pcap"));
    };
    EXPECT_EQ(bring_up(0), 0);
    EXPECT_EQ(captures(), std::pair(0UL, 0UL));
    settings().dma_data_flag = true;
    new_log();
    EXPECT_EQ(bring_up(0), 0);
    EXPECT_EQ(captures(), std::pair(1UL, 1UL));
    const Strings log = new_log();
    EXPECT_EQ(log[0], "[D][_KovaSubDmaUp]channel0 FPGA Init......begin");
    EXPECT_THAT(log[1], StartsWith("[I][CreateShotBinLog]open dma file [kova_u50_dma_"));
    Clock::advance(seconds(60));
    EXPECT_EQ(bring_up(0), 0);
    EXPECT_EQ(captures(), std::pair(2UL, 2UL));
    EXPECT_EQ(EngineAccess::write_dma_shot(*engine).GetBinShotCnt(), 2);
    EXPECT_EQ(EngineAccess::write_dma_shot(*engine).GetPcapShotCnt(), 2);
}

}  // namespace
}  // namespace kova::test
