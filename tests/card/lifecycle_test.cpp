// The engine from the factory to its end: starts that succeed, starts that fail, stops, signals.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <regex>
#include <thread>

#include "card/engine_test.h"
#include "support/allocations.h"
#include "support/refused_signal.h"
#include "support/stdout_capture.h"

namespace {

using kova::sim::RegisterAccess;
using kova::test::Allocations;
using kova::test::Clock;
using kova::test::quote_number;
using kova::test::StdoutCapture;
using kova::test::Strings;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::StartsWith;

class LifecycleTest : public kova::test::EngineTest {
 protected:
    /** Whether the engine delivers a quote of this channel to the callback. */
    bool receives(std::uint32_t channel) {
        const std::size_t before = spi.change_numbers.size();
        card->push_quote(channel, quote_number(1));
        return engine->KovaRecv() == 1 && spi.change_numbers.size() == before + 1;
    }

    /** What a start that has to fail writes to standard output. */
    std::string printed_by_failing_start(const char* path) {
        const StdoutCapture capture;
        EXPECT_EQ(engine->KovaStart(spi, path), -2);
        return capture.text();
    }
};

// The factory.

TEST_F(LifecycleTest, TheFactoryGivesNullWhenMemoryIsExhausted) {
    const Allocations::FailLarge exhausted(1 << 20);
    EXPECT_EQ(CKovaShfeMdApi::CreateKovaShfeMdApi(), nullptr);
}

TEST_F(LifecycleTest, AReceiverThatWasNeverStartedTouchesNeitherCardNorFile) {
    engine.reset();
    CKovaShfeMdApi* const api = CKovaShfeMdApi::CreateKovaShfeMdApi();
    ASSERT_NE(api, nullptr);
    CKovaShfeMdApi::DestroyKovaShfeMdApi(*api);
    EXPECT_EQ(sdk().calls(), Strings{});
    EXPECT_TRUE(std::filesystem::is_empty("."));
}

/** Destroys what a pointer refers to, null included, as an application that forgot to test does. */
__attribute__((noinline, no_sanitize("undefined"))) void destroy(CKovaShfeMdApi* api) {
    CKovaShfeMdApi::DestroyKovaShfeMdApi(*api);
}

TEST_F(LifecycleTest, DestroyingNothingIsIgnored) {
    destroy(nullptr);
}

TEST_F(LifecycleTest, DestroyingAStartedReceiverClosesItsStreams) {
    start_with_callback(3);
    destroy(engine.release());
    EXPECT_THAT(sdk().calls(), ElementsAre("enyx_hw_a2c_stream_destroy()", "enyx_hw_c2a_stream_destroy()"));
    // Register access belongs to the process.
    EXPECT_THAT(sdk().kinds_alive(), ElementsAre("core_tree", "mmio"));
}

TEST_F(LifecycleTest, AFreshEngineIsAllZero) {
    EXPECT_FALSE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_FALSE(EngineAccess::is_hbm2_init_finished(*engine));
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_FALSE(EngineAccess::is_stop_flag(*engine));
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0);
    EXPECT_EQ(EngineAccess::trading_day(*engine), 0);
    EXPECT_EQ(EngineAccess::init_count(*engine), 0);
    EXPECT_EQ(EngineAccess::inst_count(*engine).shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(EngineAccess::dst_port(*engine).port_ine_4ps, 0);
    EXPECT_EQ(EngineAccess::user_data(*engine).userDataType, CALL_BACK);
    EXPECT_EQ(EngineAccess::user_data(*engine).lpMdApi, nullptr);
    EXPECT_EQ(EngineAccess::user_data(*engine).lpMdData, nullptr);
    EXPECT_FALSE(EngineAccess::user_data(*engine).isQuote);
    bool has_callback = true;
    EXPECT_EQ(EngineAccess::spi(*engine).GetData(has_callback), nullptr);
    EXPECT_FALSE(has_callback);
    EXPECT_EQ(EngineAccess::config(*engine).cpucore, -1);
}

TEST_F(LifecycleTest, TheBuildIdentityIsDateTimeAndVersion) {
    const std::regex pattern("[A-Z][a-z]{2} [ 1-3][0-9] [0-9]{4} [0-9]{2}:[0-9]{2}:[0-9]{2} V1\\.1\\.1\\.33");
    EXPECT_TRUE(std::regex_match(KOVA_U50_VERSION.data(), pattern)) << KOVA_U50_VERSION.data();
}

// Starts that succeed.

const Strings kOpening = {
    "enyx_hw_filter_create()",
    "enyx_hw_filter_set_index(0)",
    "enyx_hw_enumerate_accelerators(1)",
    "enyx_hw_filter_destroy()",
    "enyx_hw_accelerator_get()",
    "enyx_hw_free_accelerator_descriptors(1)",
    "enyx_hw_filter_create()",
    "enyx_hw_filter_set_index(0)",
    "enyx_hw_accelerator_enumerate_mmios(1)",
    "enyx_hw_filter_destroy()",
    "enyx_hw_mmio_create()",
    "enyx_hw_free_mmio_descriptors(1)",
    "enyx_hw_enumerate_cores()",
    "enyx_hw_core_tree_get_root()",
    "enyx_hw_core_reset()",
    "enyx_hw_core_enumerate(474)",
    "enyx_hw_filter_create()",
    "enyx_hw_filter_set_name(CUSTOM_CHAN3_DATA)",
    "enyx_hw_accelerator_enumerate_a2c_streams(1)",
    "enyx_hw_a2c_stream_create(3)",
    "enyx_hw_free_a2c_stream_descriptors(1)",
    "enyx_hw_accelerator_enumerate_c2a_streams(1)",
    "enyx_hw_c2a_stream_create(3)",
    "enyx_hw_free_c2a_stream_descriptors(1)",
    "enyx_hw_filter_destroy()",
    "enyx_hw_a2c_stream_get_mtu()",
    "enyx_hw_c2a_stream_get_mtu()",
    "enyx_hw_core_lock()",
    "enyx_hw_read(20)",
    "enyx_hw_core_unlock()",
    "enyx_hw_core_lock()",
    "enyx_hw_read(16)",
    "enyx_hw_core_unlock()",
};

TEST_F(LifecycleTest, AStartOpensRegistersThenStreamThenReadsTheBuild) {
    EXPECT_EQ(engine->KovaStart(spi, config_of_channel(3)), 0);
    EXPECT_EQ(sdk().calls(), kOpening);
}

TEST_F(LifecycleTest, AStartInFetchModeDoesTheSame) {
    EXPECT_EQ(engine->KovaStart(config_of_channel(3)), 0);
    EXPECT_EQ(sdk().calls(), kOpening);
}

TEST_F(LifecycleTest, AStartIsToldLineByLine) {
    card.preset(0x5, 0x20260430);
    card.preset(0x4, 0x00010121);
    EXPECT_EQ(engine->KovaStart(spi, config_of_channel(3)), 0);
    EXPECT_THAT(new_log(),
                ElementsAre("[D][_ReadConfig]log_level[15]", "[D][_ReadConfig]cpucore[-1]",
                            "[D][_ReadConfig]bus_id[0] channel_id[3]",
                            std::string("[I][Init]KOVA_U50_VERSION[") + KOVA_U50_VERSION.data() + "]",
                            "[W][_BindCpu]could not set CPU[-1] affinity",
                            "[I][Init]Init DMA success! DMAName:CUSTOM_CHAN3_DATA",
                            "[X][ReadRegister]0x0005: read 0x20260430 (539362352)",
                            "[X][ReadRegister]0x0004: read 0x00010121 (65825)",
                            "[I][Init]FPGA COMPILE_DATE[20260430] COMPILE_VER[00010121]"));
}

TEST_F(LifecycleTest, TheBuildIsToldWhateverTheConfiguredLevel) {
    EXPECT_EQ(engine->KovaStart(spi, config("device = xilinx0:3\nlog_level = 1")), 0);
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 7U);
    EXPECT_EQ(log[0], "[D][_ReadConfig]log_level[1]");  // the mask is still that of a fresh process
    EXPECT_THAT(log[4], StartsWith("[X][ReadRegister]0x0005: read"));
    EXPECT_THAT(log[5], StartsWith("[X][ReadRegister]0x0004: read"));
    EXPECT_THAT(log[6], StartsWith("[I][Init]FPGA COMPILE_DATE["));
    // And the configured level holds again.
    card->push_event(3, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(LifecycleTest, ARefusedReadOfTheBuildIsZeroAndTheStartGoesOn) {
    card.preset(0x5, 0x20260430);
    card.preset(0x4, 0x00010121);
    sdk().fail("enyx_hw_read", 1, EIO);
    EXPECT_EQ(engine->KovaStart(spi, config_of_channel(3)), 0);
    EXPECT_THAT(new_log(), Contains("[I][Init]FPGA COMPILE_DATE[00000000] COMPILE_VER[00010121]"));
}

TEST_F(LifecycleTest, TheStreamIsTheOneOfTheConfiguredChannel) {
    EXPECT_EQ(engine->KovaStart(spi, config_of_channel(15)), 0);
    EXPECT_THAT(sdk().calls(), Contains("enyx_hw_filter_set_name(CUSTOM_CHAN15_DATA)"));
    EXPECT_TRUE(receives(15));
}

TEST_F(LifecycleTest, ALongPathIsCutToTwoHundredAndFiftyFiveCharacters) {
    config_of_channel(3);
    std::string path;
    for (int i = 0; i < 122; ++i) {
        path += "./";
    }
    path += ".//kova.ini";
    ASSERT_EQ(path.size(), 255U);
    EXPECT_EQ(engine->KovaStart(spi, (path + "-and-45-characters-of-a-name-of-no-file-here").c_str()), 0);
    EXPECT_EQ(EngineAccess::config_file_name(*engine).data(), path);
}

TEST_F(LifecycleTest, StartingTwiceLeaksNothingAndReceives) {
    start_with_callback(3);
    start_with_callback(4);
    EXPECT_EQ(sdk().alive("a2c_stream"), 1);
    EXPECT_EQ(sdk().alive("c2a_stream"), 1);
    EXPECT_EQ(sdk().alive("mmio"), 1);
    EXPECT_EQ(sdk().alive("core_tree"), 1);
    EXPECT_THAT(sdk().kinds_alive(), ElementsAre("a2c_stream", "c2a_stream", "core_tree", "mmio"));
    EXPECT_TRUE(receives(4));
}

// Starts that fail.

TEST_F(LifecycleTest, ANullPathIsPrintedByTheCallbackStart) {
    std::string printed;
    {
        const StdoutCapture capture;
        EXPECT_EQ(engine->KovaStart(spi, nullptr), -1);
        printed = capture.text();
    }
    EXPECT_EQ(printed, "KovaStart error, lpConfig is nullptr");
    EXPECT_EQ(new_log(), Strings{});
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(LifecycleTest, ANullPathIsLoggedByTheFetchStart) {
    EXPECT_EQ(engine->KovaStart(nullptr), -1);
    EXPECT_THAT(new_log(), ElementsAre("[E][KovaStart]lpConfig is nullptr"));
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(LifecycleTest, AnUnreadableConfigurationFailsTheStart) {
    EXPECT_THAT(printed_by_failing_start("missing.ini"),
                StartsWith("ReadConfig is missing.ini failed \nInit, _ReadConfig failed \n"));
    EXPECT_THAT(new_log(), ElementsAre("[E][KovaStart]_Init error"));
    EXPECT_EQ(EngineAccess::init(*engine), -2);
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(LifecycleTest, ADirectoryAsConfigurationFailsTheStartAndIsNamed) {
    std::filesystem::create_directory("folder");
    EXPECT_THAT(printed_by_failing_start("folder"),
                StartsWith("ReadConfig is folder failed \nInit, _ReadConfig failed \n"));
    EXPECT_THAT(new_log(), ElementsAre("[E][KovaStart]_Init error"));
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(LifecycleTest, AMissingCardFailsTheStart) {
    EXPECT_EQ(engine->KovaStart(spi, config("device = xilinx7:3")), -2);
    const Strings log = new_log();
    ASSERT_GE(log.size(), 5U);
    EXPECT_THAT(log[log.size() - 5], StartsWith("[E][_DrvEnyxCoreGetAcc]Could not find accelerator. err:"));
    EXPECT_EQ(Strings(log.end() - 4, log.end()),
              (Strings{"[E][_GetCore]Get accelerator Failed", "[E][Init]_GetCore is nullptr!",
                       "[E][Init]Reg Init failed", "[E][KovaStart]_Init error"}));
    EXPECT_EQ(EngineAccess::init(*engine), -4);
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

TEST_F(LifecycleTest, AMissingStreamFailsTheStartAndLeavesTheRegistersOpen) {
    EXPECT_EQ(engine->KovaStart(config("device = xilinx0:16")), -2);
    const Strings log = new_log();
    ASSERT_GE(log.size(), 4U);
    EXPECT_THAT(log[log.size() - 4], StartsWith("[E][_InitDma]Could not find a2c stream. err:"));
    EXPECT_EQ(Strings(log.end() - 3, log.end()),
              (Strings{"[E][Init]Init DMA failed!", "[E][Init]DMA Init failed", "[E][KovaStart]_Init error"}));
    EXPECT_EQ(EngineAccess::init(*engine), -3);
    EXPECT_THAT(sdk().kinds_alive(), ElementsAre("core_tree", "mmio"));
}

TEST_F(LifecycleTest, AStartAfterAFailedOneWorks) {
    sdk().fail("enyx_hw_c2a_stream_create", 1, EBUSY);
    EXPECT_EQ(engine->KovaStart(spi, config_of_channel(3)), -2);
    EXPECT_EQ(engine->KovaStart(spi, config_of_channel(3)), 0);
    EXPECT_EQ(sdk().alive("a2c_stream"), 1);
    EXPECT_TRUE(receives(3));
}

TEST_F(LifecycleTest, ACardThatIsNotBroughtUpFailsTheStartOfChannelZeroWithEverythingOpen) {
    EXPECT_EQ(engine->KovaStart(spi, config("device = xilinx0:0\ninit_tcpcnt = 0")), -2);
    const Strings log = new_log();
    ASSERT_GE(log.size(), 3U);
    EXPECT_EQ(Strings(log.end() - 3, log.end()),
              (Strings{"[D][_KovaSubDmaUp]channel0 FPGA Init......begin",
                       "[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 0", "[E][KovaStart]_Init error"}));
    EXPECT_EQ(EngineAccess::init(*engine), -1);
    EXPECT_THAT(sdk().kinds_alive(), ElementsAre("a2c_stream", "c2a_stream", "core_tree", "mmio"));
    engine.reset();
    EXPECT_THAT(sdk().kinds_alive(), ElementsAre("core_tree", "mmio"));
}

// Stops.

TEST_F(LifecycleTest, AStopEndsEveryFollowingReceive) {
    start_with_callback(3);
    EXPECT_EQ(engine->KovaStop(), 0);
    EXPECT_EQ(engine->KovaRecv(), -1);
    EXPECT_EQ(engine->KovaStop(), 0);
    EXPECT_EQ(engine->KovaRecv(), -1);
    EXPECT_EQ(engine->KovaRecv(), -1);
    EXPECT_EQ(sdk().calls(), Strings{});
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(LifecycleTest, ReceivingBeforeAnyStartYieldsNothing) {
    EngineAccess::config(*engine).channel_id = 3;
    KovaShfeMdType record{};
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_EQ(engine->KovaRecv(record), 0);
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(LifecycleTest, ReceivingOnChannelZeroBeforeAnyStartFailsAndSaysSo) {
    // Without a stream no poll moves the clock.
    std::jthread time([](const std::stop_token& end) {
        while (!end.stop_requested()) {
            Clock::advance(std::chrono::milliseconds(10));
            std::this_thread::yield();
        }
    });
    EXPECT_EQ(engine->KovaRecv(), -1);
    EXPECT_EQ(new_log().back(), "[E][KovaRecv]_KovaSubDmaUp is error");
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(LifecycleTest, AStopBeforeACallbackStartIsUndoneByIt) {
    EXPECT_EQ(engine->KovaStop(), 0);
    start_with_callback(3);
    EXPECT_TRUE(receives(3));
}

TEST_F(LifecycleTest, ACallbackStartAfterAStopReceivesAgain) {
    start_with_callback(3);
    engine->KovaStop();
    EXPECT_EQ(engine->KovaRecv(), -1);
    start_with_callback(3);
    EXPECT_TRUE(receives(3));
}

TEST_F(LifecycleTest, AFetchStartAfterAStopSucceedsAndStaysStopped) {
    start_fetching(3);
    KovaShfeMdType record{};
    engine->KovaStop();
    EXPECT_EQ(engine->KovaRecv(record), -1);
    EXPECT_EQ(engine->KovaStart(config_of_channel(3)), 0);
    EXPECT_EQ(engine->KovaRecv(record), -1);
    EXPECT_EQ(engine->KovaRecv(), -1);
}

TEST_F(LifecycleTest, ANullPathDoesNotUndoAStop) {
    start_with_callback(3);
    engine->KovaStop();
    EXPECT_EQ(engine->KovaStart(spi, nullptr), -1);
    EXPECT_EQ(engine->KovaRecv(), -1);
}

TEST_F(LifecycleTest, AFailedCallbackStartUndoesAStop) {
    engine->KovaStop();
    EXPECT_EQ(engine->KovaStart(spi, "missing.ini"), -2);
    EXPECT_FALSE(EngineAccess::is_stop_flag(*engine));
}

TEST_F(LifecycleTest, AFetchStartKeepsTheCallbackObject) {
    start_with_callback(3);
    start_fetching(3);
    bool has_callback = false;
    EXPECT_EQ(EngineAccess::spi(*engine).GetData(has_callback), &spi);
    EXPECT_EQ(EngineAccess::user_data(*engine).userDataType, BUFF_FETCH);
    start_with_callback(3);
    EXPECT_EQ(EngineAccess::user_data(*engine).userDataType, CALL_BACK);
    EXPECT_EQ(EngineAccess::user_data(*engine).lpMdApi, engine.get());
}

// Binding to a core.

TEST_F(LifecycleTest, NoCoreIsBoundByDefault) {
    cpu_set_t before;
    ASSERT_EQ(sched_getaffinity(0, sizeof(before), &before), 0);
    start_with_callback(3);
    EXPECT_EQ(EngineAccess::bind_cpu(*engine), -1);
    EXPECT_THAT(new_log(), ElementsAre("[W][_BindCpu]could not set CPU[-1] affinity"));
    cpu_set_t after;
    ASSERT_EQ(sched_getaffinity(0, sizeof(after), &after), 0);
    EXPECT_TRUE(CPU_EQUAL(&before, &after));
}

TEST_F(LifecycleTest, ACoreThatNoSetCanHoldIsRefusedAndTheStartGoesOn) {
    EXPECT_EQ(engine->KovaStart(spi, config("device = xilinx0:3\ncpucore = 1024")), 0);
    EXPECT_THAT(new_log(), Contains("[W][_BindCpu]set CPU[1024] affinity failed."));
    EXPECT_TRUE(receives(3));
}

TEST_F(LifecycleTest, ANegativeCoreIsRefused) {
    EngineAccess::config(*engine).cpucore = -2;
    EXPECT_EQ(EngineAccess::bind_cpu(*engine), -1);
    EngineAccess::config(*engine).cpucore = -2147483647 - 1;
    EXPECT_EQ(EngineAccess::bind_cpu(*engine), -1);
    EXPECT_THAT(new_log(), ElementsAre("[W][_BindCpu]set CPU[-2] affinity failed.",
                                       "[W][_BindCpu]set CPU[-2147483648] affinity failed."));
}

TEST_F(LifecycleTest, TheCallingThreadIsBoundToTheConfiguredCore) {
    cpu_set_t allowed;
    ASSERT_EQ(sched_getaffinity(0, sizeof(allowed), &allowed), 0);
    int core = 0;
    while (!CPU_ISSET(static_cast<std::size_t>(core), &allowed)) {
        ++core;
    }
    EXPECT_EQ(engine->KovaStart(spi, config("device = xilinx0:3\ncpucore = " + std::to_string(core))), 0);
    EXPECT_THAT(new_log(), Contains("[D][_BindCpu]set CPU[" + std::to_string(core) + "] affinity successful."));
    cpu_set_t bound;
    ASSERT_EQ(sched_getaffinity(0, sizeof(bound), &bound), 0);
    EXPECT_EQ(CPU_COUNT(&bound), 1);
    EXPECT_TRUE(CPU_ISSET(static_cast<std::size_t>(core), &bound));
}

// Signals.

TEST_F(LifecycleTest, AnInterruptEndsReceivingForEveryEngineAndForGood) {
    start_with_callback(3);
    const auto other = EngineAccess::create();
    ASSERT_EQ(other->KovaStart(config_of_channel(4)), 0);
    forget();
    std::raise(SIGINT);
    EXPECT_THAT(new_log(),
                ElementsAre("[E][SignalHandler][" + std::to_string(::getpid()) + "]received signal 2"));
    KovaShfeMdType record{};
    EXPECT_EQ(engine->KovaRecv(), -1);
    EXPECT_EQ(other->KovaRecv(record), -1);
    start_with_callback(3);
    EXPECT_EQ(engine->KovaRecv(), -1);
}

TEST_F(LifecycleTest, ATerminationEndsReceivingAndNotTheProcess) {
    start_fetching(3);
    std::raise(SIGTERM);
    EXPECT_THAT(new_log(),
                ElementsAre("[E][SignalHandler][" + std::to_string(::getpid()) + "]received signal 15"));
    KovaShfeMdType record{};
    EXPECT_EQ(engine->KovaRecv(record), -1);
}

TEST_F(LifecycleTest, AStartGoesOnWithoutTheHandlersThatTheSystemRefuses) {
    kova::test::refused_signal = SIGTERM;
    EXPECT_EQ(engine->KovaStart(spi, config_of_channel(3)), 0);
    EXPECT_THAT(new_log(), Contains("[E][InitSignal]Failed to install SIGTERM handle!"));
    EXPECT_TRUE(receives(3));
}

TEST_F(LifecycleTest, ABrokenPipeIsIgnored) {
    start_with_callback(3);
    std::raise(SIGPIPE);
    EXPECT_TRUE(receives(3));
}

// Memory that runs out during a start.

TEST_F(LifecycleTest, AStartSurvivesTheLackOfAnySingleAllocation) {
    const char* const path = config_of_channel(3);
    std::uint64_t failed_starts = 0;
    bool has_failed = true;
    for (std::uint64_t n = 1; has_failed; ++n) {
        int result = 0;
        {
            const Allocations::FailNth lack(n);
            ASSERT_NO_THROW(result = engine->KovaStart(spi, path)) << n;
            has_failed = lack.has_failed();
        }
        EXPECT_EQ(result, has_failed ? -2 : 0) << n;
        const Strings log = new_log();
        EXPECT_EQ(log.back() == "[E][KovaStart]_Init error", has_failed) << n;
        // Half a configuration would be one of channel 0.
        EXPECT_THAT(log, Not(Contains("[D][_ReadConfig]bus_id[0] channel_id[0]"))) << n;
        failed_starts += has_failed ? 1 : 0;
    }
    EXPECT_GT(failed_starts, 5U);
    EXPECT_TRUE(receives(3));
    engine.reset();
    EXPECT_THAT(sdk().kinds_alive(), ElementsAre("core_tree", "mmio"));
    EXPECT_EQ(sdk().alive("core_tree"), 1);
    EXPECT_EQ(sdk().alive("mmio"), 1);
}

}  // namespace
