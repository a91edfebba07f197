// One attempt to initialise the card: every register in its order, both waits, every way out.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <optional>

#include "card/bring_up_test.h"
#include "support/allocations.h"

namespace kova::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

constexpr const char* kNetwork =
    "log_level = 15\n"
    "shfe2ps = enabled\nine2ps = disabled\n"
    "shfe2ps_ip_a = 239.3.41.1:21001\nshfe2ps_ip_b = 239.4.41.2:21002\n"
    "DSTMAC = 01:02:03:04:05:06\nDSTIP = 10.20.30.40\nDSTPORT = 65535\n"
    "SRCMAC = 0a:0b:0c:0d:0e:0f\nSRCIP = 192.168.1.2\nSRCPORT = 5000\n"
    "TARGETROUTE = 21\nprice_protect_event_mask = 202116108\nwait_snap_timeout = 2";

class InitFpgaTest : public BringUpTest {
 protected:
    InitFpgaTest() { open(kNetwork); }

    int init() { return EngineAccess::init_fpga(*engine); }
    U50ConfigInfo& settings() { return EngineAccess::config(*engine); }

    /** The registers that an attempt writes, from the first one behind the memory wait on. */
    Strings programming() {
        RegisterTraffic::start_recording();
        init();
        const Strings all = RegisterTraffic::stop_recording();
        return all.size() < 3 ? all : Strings(all.begin() + 3, all.end());
    }
    /** Of those, what was written to a block of registers. */
    Strings programming_of(std::string_view prefix) {
        Strings lines = programming();
        std::erase_if(lines, [prefix](const std::string& line) { return !line.starts_with(prefix); });
        return lines;
    }
};

// The registers.

TEST_F(InitFpgaTest, RegistersAreProgrammedInThisOrder) {
    RegisterTraffic::start_recording();
    EXPECT_EQ(init(), -2);  // no snapshot comes
    EXPECT_EQ(RegisterTraffic::stop_recording(), (Strings{
                                                     "0x10 = 0x1",
                                                     "0x1f11 = 0xc0c0c0c",
                                                     "0x2032 -> 0x3",
                                                     "0x1000 = 0xf",
                                                     "0x1f14 = 0x0",
                                                     "0x1f15 = 0x0",
                                                     "0x11112 = 0xffffffff",
                                                     "0x21112 = 0xffffffff",
                                                     "0x3000 = 0x5",
                                                     // Destination.
                                                     "0x3001 = 0x102",
                                                     "0x3002 = 0x3040506",
                                                     "0x3011 = 0x102",
                                                     "0x3012 = 0x3040506",
                                                     "0x3021 = 0x102",
                                                     "0x3022 = 0x3040506",
                                                     "0x3031 = 0x102",
                                                     "0x3032 = 0x3040506",
                                                     "0x3003 = 0xa141e28",
                                                     "0x3013 = 0xa141e28",
                                                     "0x3023 = 0xa141e28",
                                                     "0x3033 = 0xa141e28",
                                                     "0x3004 = 0xffff",
                                                     "0x3014 = 0xffff",
                                                     "0x3024 = 0xffff",
                                                     "0x3034 = 0xffff",
                                                     // Source, another one for each group.
                                                     "0x3005 = 0xa0b",
                                                     "0x3006 = 0xc0d0e0f",
                                                     "0x3015 = 0xa0b",
                                                     "0x3016 = 0xc0d0e10",
                                                     "0x3025 = 0xa0b",
                                                     "0x3026 = 0xc0d0e11",
                                                     "0x3035 = 0xa0b",
                                                     "0x3036 = 0xc0d0e12",
                                                     "0x3007 = 0xc0a80102",
                                                     "0x3017 = 0xc0a80102",
                                                     "0x3027 = 0xc0a80102",
                                                     "0x3037 = 0xc0a80102",
                                                     "0x3008 = 0x1388",
                                                     "0x3018 = 0x1388",
                                                     "0x3028 = 0x1388",
                                                     "0x3038 = 0x1388",
                                                     // Multicast: of the one feed that is on, and zeros.
                                                     "0x11100 = 0xef032901",
                                                     "0x11102 = 0x5209",
                                                     "0x11104 = 0xef042902",
                                                     "0x11106 = 0x520a",
                                                     "0x11101 = 0x0",
                                                     "0x11103 = 0x0",
                                                     "0x11105 = 0x0",
                                                     "0x11107 = 0x0",
                                                     "0x21100 = 0x0",
                                                     "0x21102 = 0x0",
                                                     "0x21104 = 0x0",
                                                     "0x21106 = 0x0",
                                                     "0x21101 = 0x0",
                                                     "0x21103 = 0x0",
                                                     "0x21105 = 0x0",
                                                     "0x21107 = 0x0",
                                                 }));
}

TEST_F(InitFpgaTest, RegisterAccessesAreToldWhateverIsConfiguredAndTheWaitIsNot) {
    settings().log_level = LOG_INFO;
    settings().enabled_mask.enabled_mask = 0;
    CCommonLog::GetInstance()->SetLogLevel(LOG_INFO);
    EXPECT_EQ(init(), -2);
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 4U + 5 + 2 + 32 + 16 + 1);
    EXPECT_EQ(Strings(log.begin(), log.begin() + 11),
              (Strings{wrote(0x10, 1), wrote(0x1F11, 0x0C0C0C0C), did_read(0x2032, 3),
                       "[I][_InitFpga]HBM2 init successful.", wrote(0x1000, 15), wrote(0x1F14, 0),
                       wrote(0x1F15, 0), wrote(0x11112, 4294967295), wrote(0x21112, 4294967295),
                       wrote(0x3000, 5), "[I][_InitFpga]route[5]"}));
    EXPECT_EQ(log[log.size() - 2], wrote(0x21107, 0));
    EXPECT_EQ(log.back(), "[I][_InitFpga]listening tcp basement data");
    // The configured level holds again.
    std::uint32_t value = 0;
    EngineAccess::registers(*engine).ReadRegister(0x4, value);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(InitFpgaTest, WithEveryFeedDisabledAllSixteenMulticastRegistersReceiveZero) {
    settings().enabled_mask.enabled_mask = 0xF0;  // the bits of no feed
    EXPECT_THAT(programming_of("0x111"), ElementsAre("0x11112 = 0xffffffff", "0x11100 = 0x0", "0x11102 = 0x0",
                                                     "0x11104 = 0x0", "0x11106 = 0x0", "0x11101 = 0x0",
                                                     "0x11103 = 0x0", "0x11105 = 0x0", "0x11107 = 0x0"));
    EXPECT_THAT(programming_of("0x211"), ElementsAre("0x21112 = 0xffffffff", "0x21100 = 0x0", "0x21102 = 0x0",
                                                     "0x21104 = 0x0", "0x21106 = 0x0", "0x21101 = 0x0",
                                                     "0x21103 = 0x0", "0x21105 = 0x0", "0x21107 = 0x0"));
}

TEST_F(InitFpgaTest, EachFeedHasItsOwnAddressesRegistersAndBit) {
    U50MultiIpAndPort& addresses = settings().multiIpAndPort;
    addresses.shfe2ps_ip_a.UnSafeCopyFrom("1.0.0.1:11");
    addresses.shfe2ps_ip_b.UnSafeCopyFrom("1.0.0.2:12");
    addresses.shfe4ps_ip_a.UnSafeCopyFrom("2.0.0.1:21");
    addresses.shfe4ps_ip_b.UnSafeCopyFrom("2.0.0.2:22");
    addresses.ine2ps_ip_a.UnSafeCopyFrom("3.0.0.1:31");
    addresses.ine2ps_ip_b.UnSafeCopyFrom("3.0.0.2:32");
    addresses.ine4ps_ip_a.UnSafeCopyFrom("4.0.0.1:41");
    addresses.ine4ps_ip_b.UnSafeCopyFrom("4.0.0.2:42");
    const Strings shfe_2ps = {"0x11100 = 0x1000001", "0x11102 = 0xb", "0x11104 = 0x1000002", "0x11106 = 0xc"};
    const Strings ine_2ps = {"0x11101 = 0x3000001", "0x11103 = 0x1f", "0x11105 = 0x3000002", "0x11107 = 0x20"};
    const Strings shfe_4ps = {"0x21100 = 0x2000001", "0x21102 = 0x15", "0x21104 = 0x2000002", "0x21106 = 0x16"};
    const Strings ine_4ps = {"0x21101 = 0x4000001", "0x21103 = 0x29", "0x21105 = 0x4000002", "0x21107 = 0x2a"};
    const std::array<std::pair<std::uint8_t, Strings>, 4> feeds = {
        {{0x01, shfe_2ps}, {0x04, ine_2ps}, {0x02, shfe_4ps}, {0x08, ine_4ps}}};
    for (unsigned mask = 0; mask < 16; ++mask) {
        settings().enabled_mask.enabled_mask = static_cast<std::uint8_t>(mask);
        Strings expected;
        for (const auto& [bit, lines] : feeds) {
            for (const std::string& line : lines) {
                expected.push_back((mask & bit) != 0 ? line : line.substr(0, 10) + "0x0");
            }
        }
        const Strings all = programming();
        ASSERT_GE(all.size(), 16U);
        EXPECT_EQ(Strings(all.end() - 16, all.end()), expected) << mask;
    }
}

TEST_F(InitFpgaTest, OfTheRouteFourBitsAreWrittenAndTold) {
    const std::array<std::pair<std::int32_t, int>, 5> routes = {
        {{0, 0}, {15, 15}, {16, 0}, {0x7FFFFFF9, 9}, {-1, 15}}};
    for (const auto& [configured, used] : routes) {
        settings().TARGETROUTE = configured;
        new_log();
        EXPECT_THAT(programming_of("0x3000"),
                    ElementsAre("0x3000 = 0x" + std::string(1, "0123456789abcdef"[used])));
        EXPECT_THAT(new_log(), Contains("[I][_InitFpga]route[" + std::to_string(used) + "]"));
    }
}

TEST_F(InitFpgaTest, ASourceMacThatEndsInFFIsMergedNotCarried) {
    settings().SRCMAC.UnSafeCopyFrom("0a:0b:0c:0d:0e:ff");
    EXPECT_THAT(programming_of("0x30"), ::testing::IsSupersetOf({"0x3006 = 0xc0d0eff", "0x3016 = 0xc0d0f00",
                                                                 "0x3026 = 0xc0d0f01", "0x3036 = 0xc0d0f02"}));
    settings().SRCMAC.UnSafeCopyFrom("0a:0b:0c:0d:0f:ff");
    EXPECT_THAT(programming_of("0x30"), ::testing::IsSupersetOf({"0x3006 = 0xc0d0fff", "0x3016 = 0xc0d0f00",
                                                                 "0x3026 = 0xc0d0f01", "0x3036 = 0xc0d0f02"}));
}

TEST_F(InitFpgaTest, AMalformedMacLeavesTheRestAtZeroWithoutAWord) {
    settings().DSTMAC.UnSafeCopyFrom("01:02:03:xx:05:06");
    settings().SRCMAC.UnSafeCopyFrom("");
    new_log();
    const Strings network = programming_of("0x30");
    EXPECT_THAT(network, ::testing::IsSupersetOf({"0x3001 = 0x102", "0x3002 = 0x3000000", "0x3032 = 0x3000000",
                                                  "0x3005 = 0x0", "0x3006 = 0x0", "0x3016 = 0x1",
                                                  "0x3026 = 0x2", "0x3036 = 0x3"}));
    for (const std::string& line : new_log()) {
        EXPECT_TRUE(line.starts_with("[X]") || line.starts_with("[I]")) << line;
    }
}

TEST_F(InitFpgaTest, AnAddressWithoutAPortIsToldAndTheAttemptGoesOn) {
    settings().multiIpAndPort.shfe2ps_ip_a.UnSafeCopyFrom("239.3.41.1");
    const Strings all = programming();
    EXPECT_THAT(all, Not(Contains(::testing::StartsWith("0x11100 "))));
    EXPECT_THAT(all, Not(Contains(::testing::StartsWith("0x11102 "))));
    EXPECT_THAT(all, Contains("0x11104 = 0xef042902"));
    EXPECT_THAT(new_log(), Contains("[E][_SetRegIpAndPort]_SetRegIpAndPort failed").Times(1));
}

// One multicast address.

class MulticastAddressTest : public InitFpgaTest {
 protected:
    /** What is written for an address; the result of the operation goes in front. */
    Strings set(const char* address, bool is_enabled = true) {
        CAddressType text;
        text.UnSafeCopyFrom(address);
        RegisterTraffic::start_recording();
        const int result = EngineAccess::set_reg_ip_and_port(*engine, 0x11100, 0x11102, text, is_enabled);
        Strings lines = RegisterTraffic::stop_recording();
        lines.insert(lines.begin(), std::to_string(result));
        return lines;
    }
};

TEST_F(MulticastAddressTest, AddressThenPortAreWrittenAndTold) {
    EXPECT_EQ(set("239.3.41.1:21001"), (Strings{"0", "0x11100 = 0xef032901", "0x11102 = 0x5209"}));
    EXPECT_THAT(new_log(), ElementsAre("[I][_SetRegIpAndPort]69888[239.3.41.1] 69890[21001]"));
}

TEST_F(MulticastAddressTest, ADisabledFeedGetsZerosWithoutAWordWhateverItsAddress) {
    EXPECT_EQ(set("239.3.41.1:21001", false), (Strings{"0", "0x11100 = 0x0", "0x11102 = 0x0"}));
    EXPECT_EQ(set("nowhere", false), (Strings{"0", "0x11100 = 0x0", "0x11102 = 0x0"}));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(MulticastAddressTest, WithoutAPortNothingIsWritten) {
    EXPECT_EQ(set("239.3.41.1"), Strings{"-1"});
    EXPECT_EQ(set(""), Strings{"-1"});
    const std::string line = "[E][_SetRegIpAndPort]_SetRegIpAndPort failed";
    EXPECT_EQ(new_log(), (Strings{line, line}));
}

TEST_F(MulticastAddressTest, OfMoreThanTwoPiecesTheFirstTwoCount) {
    EXPECT_EQ(set("239.3.41.1:21001:9:8"), (Strings{"0", "0x11100 = 0xef032901", "0x11102 = 0x5209"}));
}

TEST_F(MulticastAddressTest, APortThatIsNoNumberIsZero) {
    EXPECT_EQ(set("239.3.41.1:port"), (Strings{"0", "0x11100 = 0xef032901", "0x11102 = 0x0"}));
}

// The wait for the memory.

TEST_F(InitFpgaTest, TheMemoryIsAskedAfterSixSecondsOfDraining) {
    Clock::move_per_poll(milliseconds(100));
    const auto start = Clock::now();
    std::optional<std::chrono::nanoseconds> asked_after;
    std::uint64_t polls = 0;
    RegisterTraffic::before_each([&](bool, std::uint32_t number) {
        if (number == 0x2032) {
            asked_after = Clock::now() - start;
            polls = Polls::count();
        }
    });
    RegisterTraffic::answer(0x2032, {1});
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(asked_after, seconds(6));
    EXPECT_EQ(polls, 60U);
}

TEST_F(InitFpgaTest, MemoryThatIsNotReadyEndsTheAttemptWithoutAnotherRegister) {
    for (const std::uint32_t status : {0U, 1U, 2U, 4U, 7U, 0xFFFFFFFFU}) {
        RegisterTraffic::answer(0x2032, {status});
        RegisterTraffic::start_recording();
        new_log();
        EXPECT_EQ(init(), -1) << status;
        EXPECT_EQ(RegisterTraffic::stop_recording().size(), 3U) << status;
        EXPECT_EQ(new_log(),
                  (Strings{wrote(0x10, 1), wrote(0x1F11, 0x0C0C0C0C), did_read(0x2032, status),
                           "[W][_InitFpga]HBM2 init timeout, Please check whether the FPGA is normal."}));
        EXPECT_FALSE(EngineAccess::is_hbm2_init_finished(*engine));
    }
}

TEST_F(InitFpgaTest, MemoryThatCannotBeAskedIsNotReady) {
    sdk().fail("enyx_hw_read", 1, EIO);
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(new_log().back(), "[W][_InitFpga]HBM2 init timeout, Please check whether the FPGA is normal.");
}

TEST_F(InitFpgaTest, TheConfiguredLevelHoldsAgainAfterTheMemoryFailed) {
    RegisterTraffic::answer(0x2032, {0});
    EXPECT_EQ(init(), -1);
    new_log();
    std::uint32_t value = 0;
    EngineAccess::registers(*engine).ReadRegister(0x4, value);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(InitFpgaTest, WhatTheCardSendsMeanwhileIsDiscardedItsMemoryEventToo) {
    on_poll = [this](std::uint64_t number) {
        if (number == 1) {
            card->push_event(0, {0, 0, 1, 0, 0, 0});
            card->push_quote(0, quote_number(1));
            card->push_event(0, {0x80, 0, 0, 0, 0, 0});
        }
        EXPECT_FALSE(EngineAccess::is_hbm2_init_finished(*engine) && number <= 6);
    };
    EngineAccess::is_hbm2_init_finished(*engine) = true;
    RegisterTraffic::answer(0x2032, {0});
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(Polls::count(), 6U);
    EXPECT_TRUE(spi.change_numbers.empty());
    EXPECT_EQ(new_log().size(), 4U);  // three accesses and the failure
}

TEST_F(InitFpgaTest, AFlagSetFromElsewhereEndsTheWaitAndTheMemoryIsNotAsked) {
    on_poll = [this](std::uint64_t number) {
        if (number == 2) {
            EngineAccess::is_hbm2_init_finished(*engine) = true;
        }
    };
    std::optional<std::uint64_t> polls_before_forwarding;
    RegisterTraffic::before_each([&](bool, std::uint32_t number) {
        if (number == 0x1000) {
            polls_before_forwarding = Polls::count();
        }
    });
    RegisterTraffic::answer(0x2032, {0});
    EXPECT_EQ(init(), -2);
    EXPECT_EQ(polls_before_forwarding, 2U);
    const Strings log = new_log();
    ASSERT_GE(log.size(), 4U);
    EXPECT_EQ(log[2], "[I][_InitFpga]HBM2 init successful.");
    EXPECT_THAT(log, Not(Contains(did_read(0x2032, 0))));
}

TEST_F(InitFpgaTest, AStopDuringTheMemoryWaitIsHeededBeforeTheSnapshot) {
    on_poll = [this](std::uint64_t number) {
        if (number == 3) {
            engine->KovaStop();
        }
    };
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(Polls::count(), 6U);
    EXPECT_EQ(new_log().back(), "[I][_InitFpga]listening tcp basement data");
}

TEST_F(InitFpgaTest, ASignalDuringTheMemoryWaitIsHeededBeforeTheSnapshot) {
    CSignalProcess::InitSignal();
    on_poll = [](std::uint64_t number) {
        if (number == 3) {
            std::raise(SIGINT);
        }
    };
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(Polls::count(), 6U);
    EXPECT_EQ(new_log().back(), "[I][_InitFpga]listening tcp basement data");
}

// The wait for the snapshot.

TEST_F(InitFpgaTest, WithATimeoutOfZeroTheWaitEndsOnceAWholeSecondHasPassed) {
    settings().wait_snap_timeout = 0;
    Clock::move_per_poll(milliseconds(250));
    const auto start = Clock::now();
    EXPECT_EQ(init(), -2);
    EXPECT_EQ(Clock::now() - start, seconds(6) + seconds(1));
    EXPECT_EQ(Polls::count(), 24U + 4U);
    EXPECT_EQ(new_log().back(), "[I][_InitFpga]listening tcp basement data");
}

TEST_F(InitFpgaTest, TheWaitEndsOnceItHasLastedLongerThanTheTimeout) {
    settings().wait_snap_timeout = 7;
    EXPECT_EQ(init(), -2);
    EXPECT_EQ(Polls::count(), 6U + 8U);
}

TEST_F(InitFpgaTest, TheLongestTimeoutIsNoNegativeNumber) {
    settings().wait_snap_timeout = 65535;
    Clock::move_per_poll(seconds(4096));
    EXPECT_EQ(init(), -2);
    EXPECT_EQ(Polls::count(), 1U + 16U);
}

TEST_F(InitFpgaTest, AStopEndsTheWaitWithoutAWord) {
    on_poll = [this](std::uint64_t number) {
        if (number == 7) {
            engine->KovaStop();
        }
    };
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(Polls::count(), 7U);
    EXPECT_EQ(new_log().back(), "[I][_InitFpga]listening tcp basement data");
}

TEST_F(InitFpgaTest, ASignalEndsTheWaitWithoutAWordOfTheEngine) {
    CSignalProcess::InitSignal();
    on_poll = [](std::uint64_t number) {
        if (number == 8) {
            std::raise(SIGTERM);
        }
    };
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(Polls::count(), 8U);
    const Strings log = new_log();
    ASSERT_GE(log.size(), 2U);
    EXPECT_EQ(log[log.size() - 2], "[I][_InitFpga]listening tcp basement data");
    EXPECT_EQ(log.back(), "[E][SignalHandler][" + std::to_string(::getpid()) + "]received signal 15");
}

TEST_F(InitFpgaTest, ACompleteSnapshotEndsTheWait) {
    on_poll = [this](std::uint64_t number) {
        if (number == 7) {
            EngineAccess::is_tcp_init_finished(*engine) = true;
        }
    };
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(Polls::count(), 7U);
    const Strings log = new_log();
    ASSERT_GE(log.size(), 2U);
    EXPECT_EQ(log[log.size() - 2], "[I][_InitFpga]listening tcp basement data");
    EXPECT_EQ(log.back(), "[I][_InitFpga]tcp init finished, start listening udp data");
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
}

TEST_F(InitFpgaTest, ASnapshotThatIsCompletedByTheLastPollInTimeCounts) {
    settings().wait_snap_timeout = 0;
    on_poll = [this](std::uint64_t number) {
        if (number == 7) {
            EngineAccess::is_tcp_init_finished(*engine) = true;
            Clock::advance(seconds(60));
        }
    };
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(Polls::count(), 7U);
}

TEST_F(InitFpgaTest, AStopInTheLastPollInTimeIsNoTimeout) {
    settings().wait_snap_timeout = 0;
    on_poll = [this](std::uint64_t number) {
        if (number == 7) {
            engine->KovaStop();
            Clock::advance(seconds(60));
        }
    };
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(Polls::count(), 7U);
}

TEST_F(InitFpgaTest, AStopCountsAlsoWhenTheSnapshotIsComplete) {
    on_poll = [this](std::uint64_t number) {
        if (number == 7) {
            EngineAccess::is_tcp_init_finished(*engine) = true;
            engine->KovaStop();
        }
    };
    EXPECT_EQ(init(), -1);
}

TEST_F(InitFpgaTest, AStoppedReceiverTriesWithoutWaitingForASnapshot) {
    engine->KovaStop();
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(Polls::count(), 6U);
}

TEST_F(InitFpgaTest, MemoryThatRunsOutInTheSnapshotEndsTheAttempt) {
    frames = SnapshotFrames().frames();
    // The first list of prices that the check of the complete snapshot makes.
    settings().enabled_mask.enabled_mask = 0x01;
    std::optional<Allocations::FailNth> lack;
    on_poll = [&](std::uint64_t) {
        if (EngineAccess::finished_mask(*engine).enabled_mask == 0x01 && !lack) {
            lack.emplace(1);
        }
    };
    EXPECT_EQ(init(), -1);
    ASSERT_TRUE(lack);
    EXPECT_TRUE(lack->has_failed());
    lack.reset();
    EXPECT_FALSE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_EQ(new_log().back(), "[E][_TcpHandler]memory exhausted, snapshot given up");
    // The next attempt is not held back by it.
    frames.clear();
    on_poll = {};
    EXPECT_EQ(init(), -2);
}

// Before everything.

TEST_F(InitFpgaTest, EveryAttemptIsCounted) {
    EXPECT_EQ(init(), -2);
    EXPECT_EQ(EngineAccess::init_count(*engine), 1);
    RegisterTraffic::answer(0x2032, {0});
    EXPECT_EQ(init(), -1);
    EXPECT_EQ(EngineAccess::init_count(*engine), 2);
}

TEST_F(InitFpgaTest, EveryAttemptBeginsWithoutASnapshot) {
    EngineAccess::finished_mask(*engine).enabled_mask = 5;
    EngineAccess::price_error_inst_ids(*engine) = {"cu2606"};
    EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps = 3;
    EngineAccess::inst_table(*engine).ine4psInstTable.rows[4095].low_price = 1;
    EngineAccess::session(*engine, 33022).init = 1;
    std::optional<bool> was_clean;
    RegisterTraffic::before_each([&](bool, std::uint32_t) {
        was_clean = was_clean.value_or(
            EngineAccess::finished_mask(*engine).enabled_mask == 0 &&
            EngineAccess::price_error_inst_ids(*engine).empty() &&
            EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps == 0 &&
            EngineAccess::peek_inst_table(*engine).ine4psInstTable.rows[4095].low_price == 0 &&
            EngineAccess::peek_session(*engine, 33022).init == 0);
    });
    EXPECT_EQ(init(), -2);
    EXPECT_EQ(was_clean, true);
}

// The start of the feeds.

TEST_F(InitFpgaTest, TheTablesAreClosedThenTheFeedsStarted) {
    RegisterTraffic::start_recording();
    EXPECT_EQ(EngineAccess::start_dma_up(*engine), 0);
    EXPECT_EQ(RegisterTraffic::stop_recording(),
              (Strings{"0x21001 = 0x1", "0x21000 = 0xffffffff", "0x11001 = 0x1", "0x11000 = 0xffffffff",
                       "0x11005 = 0x1", "0x11004 = 0xffffffff", "0x21005 = 0x1", "0x21004 = 0xffffffff",
                       "0x11120 = 0x1", "0x21120 = 0x1"}));
    EXPECT_EQ(new_log(), (Strings{"[I][_StartDmaUp]channel0 close read/write channle",
                                  "[I][_StartDmaUp]channel0 logical start"}));
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
}

TEST_F(InitFpgaTest, AnotherChannelLeavesTablesAndFeedsAlone) {
    settings().channel_id = 3;
    RegisterTraffic::start_recording();
    EXPECT_EQ(EngineAccess::start_dma_up(*engine), 0);
    EXPECT_EQ(RegisterTraffic::stop_recording(), Strings{});
    EXPECT_EQ(new_log(), Strings{});
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
}

}  // namespace
}  // namespace kova::test
