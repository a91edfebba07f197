// Library and card check each other's version: every outcome with its lines.

#include <gtest/gtest.h>

#include <cerrno>

#include "card/bring_up_test.h"

namespace {

using kova::test::RegisterTraffic;
using kova::test::Strings;

class SysVersionTest : public kova::test::BringUpTest {
 protected:
    SysVersionTest() { open("log_level = 15"); }

    /** The result of a check against a card of this hardware version and this verdict. */
    int check(std::uint32_t hardware, std::uint32_t verdict) {
        RegisterTraffic::answer(0x101, {hardware});
        RegisterTraffic::answer(0x103, {verdict});
        return EngineAccess::check_sys_version(*engine);
    }

    /** The first three lines of every check, and what follows. */
    static Strings lines(const char* hardware, const Strings& rest) {
        Strings all = {
            "[I][Chk_SysVersion]master channel addr 0x102, litte Endian  0x33010101.",
            "[I][Chk_SysVersion]master channel addr 0x102, big Endian  0x01010133.",
            "[I][Chk_SysVersion]str_it->second is 20260420, hwVersion is " + std::string(hardware) + "."};
        for (const std::string& line : rest) {
            all.push_back(line.substr(0, 3) + "[Chk_SysVersion]" + line.substr(3));
        }
        return all;
    }
};

TEST_F(SysVersionTest, TheCardIsToldTheVersionBeforeItsOwnAndItsVerdictAreRead) {
    RegisterTraffic::start_recording();
    EXPECT_EQ(check(0x20260420, 1), 0);
    EXPECT_EQ(RegisterTraffic::stop_recording(),
              (Strings{"0x102 = 0x1010133", "0x101 -> 0x20260420", "0x103 -> 0x1"}));
}

TEST_F(SysVersionTest, TheHardwareThatIsNeededIsEnough) {
    EXPECT_EQ(check(0x20260420, 1), 0);
    EXPECT_EQ(new_log(), lines("20260420", {"[I]hardware version check is success.",
                                            "[I]hardware and soft version check is success."}));
}

TEST_F(SysVersionTest, NewerHardwareIsEnough) {
    EXPECT_EQ(check(0x20260421, 1), 0);
    EXPECT_EQ(check(0x7FFFFFFF, 1), 0);
    // Compared without a sign.
    EXPECT_EQ(check(0x80000000, 1), 0);
    EXPECT_EQ(check(0xFFFFFFFF, 1), 0);
}

TEST_F(SysVersionTest, OlderHardwareIsRefusedAndNotAskedForItsVerdict) {
    RegisterTraffic::start_recording();
    EXPECT_EQ(check(0x2026041F, 1), -1);
    EXPECT_EQ(RegisterTraffic::stop_recording(), (Strings{"0x102 = 0x1010133", "0x101 -> 0x2026041f"}));
    EXPECT_EQ(
        new_log(),
        lines("2026041f", {"[E]you will need to update your hardware version.",
                           "[E]soft version 1.1.1.33, hwVersion is 20260420 > fpga hwVersion is 2026041f."}));
}

TEST_F(SysVersionTest, HardwareThatCannotBeReadIsTooOld) {
    sdk().fail("enyx_hw_read", 1, EIO);
    EXPECT_EQ(check(0x20260420, 1), -1);
    const Strings log = new_log();
    EXPECT_EQ(log.back(),
              "[E][Chk_SysVersion]soft version 1.1.1.33, hwVersion is 20260420 > fpga hwVersion is 0.");
}

TEST_F(SysVersionTest, AVersionThatDidNotArriveIsRefused) {
    EXPECT_EQ(check(0x20260420, 0), -1);
    EXPECT_EQ(new_log(),
              lines("20260420", {"[I]hardware version check is success.", "[I]soft version write is fail."}));
}

TEST_F(SysVersionTest, AVersionThatIsTooOldForTheCardIsRefused) {
    EXPECT_EQ(check(0x20260420, 2), -1);
    EXPECT_EQ(new_log(), lines("20260420", {"[I]hardware version check is success.",
                                            "[I]you will need to update your soft version.",
                                            "[I]iCheckRst == 2, soft  error."}));
}

TEST_F(SysVersionTest, AnyOtherVerdictIsRefused) {
    EXPECT_EQ(check(0x20260420, 3), -1);
    EXPECT_EQ(new_log(),
              lines("20260420", {"[I]hardware version check is success.", "[I]iCheckRst is 3 error."}));
    EXPECT_EQ(check(0x20260420, 0xFFFFFFFF), -1);
    EXPECT_EQ(new_log().back(), "[I][Chk_SysVersion]iCheckRst is -1 error.");
}

TEST_F(SysVersionTest, TheVersionIsRememberedOnceHoweverOftenItIsChecked) {
    EXPECT_EQ(check(0x20260420, 1), 0);
    EXPECT_EQ(check(0x20260420, 2), -1);
    EXPECT_EQ(EngineAccess::version_record(*engine), std::vector<std::string>{"1.1.1.33"});
}

}  // namespace
