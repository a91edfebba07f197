// The gateway to the registers, on a card: what it asks of the SDK, and what it does when the SDK refuses.

#include "reg/DrvRegEnyx.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "card/engine_test.h"

namespace {

using kova::sim::RegisterAccess;
using kova::test::Strings;

class DrvRegEnyxTest : public kova::test::EngineTest {
 protected:
    CDrvRegEnyx& registers = CDrvRegEnyx::GetInstance();
};

const Strings kOpeningOfAccelerator = {
    "enyx_hw_filter_create()",  "enyx_hw_filter_set_index(0)", "enyx_hw_enumerate_accelerators(1)",
    "enyx_hw_filter_destroy()", "enyx_hw_accelerator_get()",   "enyx_hw_free_accelerator_descriptors(1)",
};
const Strings kOpeningOfCore = {
    "enyx_hw_filter_create()",     "enyx_hw_filter_set_index(0)",  "enyx_hw_accelerator_enumerate_mmios(1)",
    "enyx_hw_filter_destroy()",    "enyx_hw_mmio_create()",        "enyx_hw_free_mmio_descriptors(1)",
    "enyx_hw_enumerate_cores()",   "enyx_hw_core_tree_get_root()", "enyx_hw_core_reset()",
    "enyx_hw_core_enumerate(474)",
};

Strings joined(const Strings& first, const Strings& second) {
    Strings all = first;
    all.insert(all.end(), second.begin(), second.end());
    return all;
}

TEST_F(DrvRegEnyxTest, OpeningFindsTheAcceleratorThenTheCoreAndResetsTheTree) {
    EXPECT_EQ(registers.Init(0, 474), 0);
    EXPECT_EQ(sdk().calls(), joined(kOpeningOfAccelerator, kOpeningOfCore));
    EXPECT_EQ(sdk().kinds_alive(), (Strings{"core_tree", "mmio"}));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(DrvRegEnyxTest, TheResultOfTheResetIsNotTested) {
    sdk().fail("enyx_hw_core_reset", 1, EIO);
    EXPECT_EQ(registers.Init(0, 474), 0);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(DrvRegEnyxTest, TheAcceleratorIsOpenedOnce) {
    enyx_hw_accelerator* const accelerator = registers.GetHwAccelerator(0);
    EXPECT_NE(accelerator, nullptr);
    EXPECT_EQ(sdk().calls(), kOpeningOfAccelerator);
    // Whatever index is asked for afterwards.
    EXPECT_EQ(registers.GetHwAccelerator(5), accelerator);
    EXPECT_EQ(sdk().calls(), kOpeningOfAccelerator);
}

TEST_F(DrvRegEnyxTest, WritingBeforeOpeningIsRefused) {
    EXPECT_EQ(registers.WriteRegister(0x10, 1), -1);
    EXPECT_EQ(new_log(),
              (Strings{"[E][WriteRegister]m_lpHwCore is nullptr, please check if the CDrvRegEnyx has "
                       "been initialized"}));
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(DrvRegEnyxTest, ReadingBeforeOpeningIsRefusedAndYieldsZero) {
    std::uint64_t wide = 77;
    std::uint32_t narrow = 77;
    EXPECT_EQ(registers.ReadRegister(0x4, wide), -1);
    EXPECT_EQ(wide, 77U);
    EXPECT_EQ(registers.ReadRegister(0x4, narrow), 0);
    EXPECT_EQ(narrow, 0U);
    const std::string line =
        "[E][ReadRegister]m_lpHwCore is nullptr, please check if the CDrvRegEnyx has been initialized";
    EXPECT_EQ(new_log(), (Strings{line, line}));
    EXPECT_EQ(sdk().calls(), Strings{});
}

class OpenDrvRegEnyxTest : public DrvRegEnyxTest {
 protected:
    OpenDrvRegEnyxTest() {
        EXPECT_EQ(registers.Init(0, 474), 0);
        forget();
    }
};

TEST_F(OpenDrvRegEnyxTest, RegisterSixteenLiesAtByteSixtyFour) {
    EXPECT_EQ(registers.WriteRegister(0x1010, 1), 0);
    EXPECT_EQ(registers.WriteRegister(0x10, 0), 0);
    EXPECT_EQ(sdk().calls(), (Strings{"enyx_hw_core_lock()", "enyx_hw_write(16448, 1)", "enyx_hw_core_unlock()",
                                      "enyx_hw_core_lock()", "enyx_hw_write(64, 0)", "enyx_hw_core_unlock()"}));
}

TEST_F(OpenDrvRegEnyxTest, EveryAccessHoldsTheCoreLock) {
    card.preset(0x2040, 0x12345678);
    std::uint64_t wide = 0;
    std::uint32_t narrow = 0;
    EXPECT_EQ(registers.WriteRegister(0x1005, 81000), 0);
    EXPECT_EQ(registers.ReadRegister(0x2040, wide), 0);
    EXPECT_EQ(registers.ReadRegister(0x2040, narrow), 0);
    EXPECT_EQ(wide, 0x12345678U);
    EXPECT_EQ(narrow, 0x12345678U);
    EXPECT_EQ(sdk().register_accesses(),
              (std::vector<RegisterAccess>{
                  {.is_write = true, .number = 0x1005, .value = 81000, .is_locked = true},
                  {.is_write = false, .number = 0x2040, .value = 0x12345678, .is_locked = true},
                  {.is_write = false, .number = 0x2040, .value = 0x12345678, .is_locked = true}}));
    EXPECT_EQ(sdk().count("enyx_hw_core_lock"), 3U);
    EXPECT_EQ(sdk().count("enyx_hw_core_unlock"), 3U);
}

TEST_F(OpenDrvRegEnyxTest, AccessesAreLoggedAtTheLowestLevelOnly) {
    card.preset(0x5, 0x20260430);
    std::uint32_t value = 0;
    EXPECT_EQ(registers.WriteRegister(0x10, 1), 0);
    EXPECT_EQ(registers.ReadRegister(0x5, value), 0);
    EXPECT_EQ(new_log(), Strings{});
    CCommonLog::GetInstance()->SetLogLevel(LOG_EVERYTHING);
    EXPECT_EQ(registers.WriteRegister(0x21120, 0xFFFFFFFF), 0);
    EXPECT_EQ(registers.ReadRegister(0x5, value), 0);
    EXPECT_EQ(new_log(), (Strings{"[X][WriteRegister]0x21120: wrote 0xffffffff (4294967295)",
                                  "[X][ReadRegister]0x0005: read 0x20260430 (539362352)"}));
}

TEST_F(OpenDrvRegEnyxTest, ARefusedWriteIsLoggedAndGivesTheLockBack) {
    sdk().fail("enyx_hw_write", 1, EIO);
    EXPECT_EQ(registers.WriteRegister(0x10, 1), -1);
    EXPECT_EQ(new_log(), (Strings{"[E][WriteRegister]enyx_hw_write failed"}));
    EXPECT_EQ(sdk().calls(), (Strings{"enyx_hw_core_lock()", "enyx_hw_write(64, 1)", "enyx_hw_core_unlock()"}));
    EXPECT_EQ(registers.WriteRegister(0x10, 0), 0);
}

TEST_F(OpenDrvRegEnyxTest, ARefusedReadLeavesTheWideValueAlone) {
    std::uint64_t value = 77;
    sdk().fail("enyx_hw_read", 1, EIO);
    EXPECT_EQ(registers.ReadRegister(0x4, value), -1);
    EXPECT_EQ(value, 77U);
    EXPECT_EQ(new_log(), (Strings{"[E][ReadRegister]enyx_hw_read failed"}));
    EXPECT_EQ(sdk().calls(), (Strings{"enyx_hw_core_lock()", "enyx_hw_read(16)", "enyx_hw_core_unlock()"}));
}

TEST_F(OpenDrvRegEnyxTest, ARefusedReadOfThirtyTwoBitsIsZeroAndNoError) {
    card.preset(0x4, 0x121);
    std::uint32_t value = 77;
    sdk().fail("enyx_hw_read", 1, EIO);
    EXPECT_EQ(registers.ReadRegister(0x4, value), 0);
    EXPECT_EQ(value, 0U);
    EXPECT_EQ(new_log(), (Strings{"[E][ReadRegister]enyx_hw_read failed"}));
}

TEST_F(OpenDrvRegEnyxTest, ClosingReleasesRegisterSpaceAndTreeOnce) {
    registers.Destory();
    registers.Destory();
    EXPECT_EQ(sdk().calls(), (Strings{"enyx_hw_mmio_destroy()", "enyx_hw_destroy_tree()"}));
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

TEST_F(OpenDrvRegEnyxTest, OpeningAgainKeepsTheAcceleratorAndLeaksNothing) {
    EXPECT_EQ(registers.Init(0, 474), 0);
    EXPECT_EQ(sdk().calls(), joined({"enyx_hw_mmio_destroy()", "enyx_hw_destroy_tree()"}, kOpeningOfCore));
    EXPECT_EQ(sdk().alive("mmio"), 1);
    EXPECT_EQ(sdk().alive("core_tree"), 1);
    EXPECT_EQ(sdk().kinds_alive(), (Strings{"core_tree", "mmio"}));
}

TEST_F(OpenDrvRegEnyxTest, OpeningAfterClosingWorks) {
    registers.Destory();
    forget();
    EXPECT_EQ(registers.Init(0, 474), 0);
    EXPECT_EQ(sdk().calls(), kOpeningOfCore);
    EXPECT_EQ(registers.WriteRegister(0x1010, 1), 0);
}

TEST_F(OpenDrvRegEnyxTest, AFailedOpeningLeavesNoCoreToWriteTo) {
    sdk().fail("enyx_hw_mmio_create", 1, EIO);
    EXPECT_EQ(registers.Init(0, 474), -1);
    EXPECT_EQ(registers.WriteRegister(0x1010, 1), -1);
    EXPECT_EQ(sdk().count("enyx_hw_write"), 0U);
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

TEST_F(DrvRegEnyxTest, AnIndexWithoutACardFailsWithThreeLines) {
    EXPECT_EQ(registers.Init(7, 474), -1);
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 3U);
    EXPECT_TRUE(log[0].starts_with("[E][_DrvEnyxCoreGetAcc]Could not find accelerator. err:")) << log[0];
    EXPECT_EQ(log[1], "[E][_GetCore]Get accelerator Failed");
    EXPECT_EQ(log[2], "[E][Init]_GetCore is nullptr!");
    EXPECT_EQ(sdk().calls(), (Strings{"enyx_hw_filter_create()", "enyx_hw_filter_set_index(7)",
                                      "enyx_hw_enumerate_accelerators(1)", "enyx_hw_filter_destroy()"}));
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

TEST_F(DrvRegEnyxTest, ACardWithoutTheCoreIsAFailure) {
    EXPECT_EQ(registers.Init(0, 475), -1);
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_TRUE(log[0].starts_with("[E][_GetCore]enyx_hw_core_enumerate failed. err:")) << log[0];
    EXPECT_EQ(log[1], "[E][Init]_GetCore is nullptr!");
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
    EXPECT_EQ(registers.WriteRegister(0x10, 1), -1);
}

/** One call of the SDK that fails while the registers are opened. */
struct OpeningFailure {
    const char* function;
    std::uint32_t n;
    Strings lines;
    Strings last_calls;  // from the failing one on
};

void PrintTo(const OpeningFailure& failure, std::ostream* out) {
    *out << failure.function << " " << failure.n;
}

class DrvRegEnyxFailureTest : public DrvRegEnyxTest, public ::testing::WithParamInterface<OpeningFailure> {};

TEST_P(DrvRegEnyxFailureTest, IsToldWithItsReasonAndLeavesNothingOpen) {
    const OpeningFailure& failure = GetParam();
    sdk().fail(failure.function, failure.n, EACCES);
    EXPECT_EQ(registers.Init(0, 474), -1);
    EXPECT_EQ(new_log(), failure.lines);
    const Strings calls = sdk().calls();
    ASSERT_GE(calls.size(), failure.last_calls.size());
    EXPECT_EQ(Strings(calls.end() - static_cast<std::ptrdiff_t>(failure.last_calls.size()), calls.end()),
              failure.last_calls);
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
    // What failed once works the next time.
    EXPECT_EQ(registers.Init(0, 474), 0);
    registers.Destory();
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

Strings accelerator_failure(const std::string& line) {
    return {"[E][_DrvEnyxCoreGetAcc]" + line, "[E][_GetCore]Get accelerator Failed",
            "[E][Init]_GetCore is nullptr!"};
}

Strings core_failure(const std::string& line) {
    return {"[E][_GetCore]" + line, "[E][Init]_GetCore is nullptr!"};
}

INSTANTIATE_TEST_SUITE_P(
    EachCall, DrvRegEnyxFailureTest,
    ::testing::Values(
        OpeningFailure{"enyx_hw_filter_create",
                       1,
                       accelerator_failure("Could not create filter for DMA. err:Permission denied"),
                       {"enyx_hw_filter_create()"}},
        OpeningFailure{"enyx_hw_filter_set_index",
                       1,
                       accelerator_failure("Could not set filter id. err:Permission denied"),
                       {"enyx_hw_filter_set_index(0)", "enyx_hw_filter_destroy()"}},
        OpeningFailure{"enyx_hw_enumerate_accelerators",
                       1,
                       accelerator_failure("Could not find accelerator. err:Permission denied"),
                       {"enyx_hw_enumerate_accelerators(1)", "enyx_hw_filter_destroy()"}},
        OpeningFailure{"enyx_hw_accelerator_get",
                       1,
                       accelerator_failure("Could not get accelerator. err:Permission denied"),
                       {"enyx_hw_filter_destroy()", "enyx_hw_accelerator_get()",
                        "enyx_hw_free_accelerator_descriptors(1)"}},
        OpeningFailure{"enyx_hw_filter_create",
                       2,
                       core_failure("enyx_hw_filter_create failed. err:Permission denied"),
                       {"enyx_hw_filter_create()"}},
        OpeningFailure{"enyx_hw_filter_set_index",
                       2,
                       core_failure("enyx_hw_filter_set_index failed. err:Permission denied"),
                       {"enyx_hw_filter_set_index(0)", "enyx_hw_filter_destroy()"}},
        OpeningFailure{"enyx_hw_accelerator_enumerate_mmios",
                       1,
                       core_failure("enyx_hw_accelerator_enumerate_mmios failed. err:Permission denied"),
                       {"enyx_hw_accelerator_enumerate_mmios(1)", "enyx_hw_filter_destroy()"}},
        OpeningFailure{
            "enyx_hw_mmio_create",
            1,
            core_failure("enyx_hw_mmio_create failed. err:Permission denied"),
            {"enyx_hw_filter_destroy()", "enyx_hw_mmio_create()", "enyx_hw_free_mmio_descriptors(1)"}},
        OpeningFailure{
            "enyx_hw_enumerate_cores",
            1,
            core_failure("enyx_hw_enumerate_cores failed. err:Permission denied"),
            {"enyx_hw_free_mmio_descriptors(1)", "enyx_hw_enumerate_cores()", "enyx_hw_mmio_destroy()"}},
        OpeningFailure{"enyx_hw_core_tree_get_root",
                       1,
                       core_failure("enyx_hw_core_tree_get_root failed. err:Permission denied"),
                       {"enyx_hw_core_tree_get_root()", "enyx_hw_mmio_destroy()", "enyx_hw_destroy_tree()"}},
        OpeningFailure{"enyx_hw_core_enumerate",
                       1,
                       core_failure("enyx_hw_core_enumerate failed. err:Permission denied"),
                       {"enyx_hw_core_reset()", "enyx_hw_core_enumerate(474)", "enyx_hw_mmio_destroy()",
                        "enyx_hw_destroy_tree()"}}),
    [](const ::testing::TestParamInfo<OpeningFailure>& test) {
        return std::string(test.param.function) + "_" + std::to_string(test.param.n);
    });

}  // namespace
