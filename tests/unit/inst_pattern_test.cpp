// Which instruments a pattern of a channel's list selects.

#include "instruments/InstPattern.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

namespace {

/** What a channel with an ordinary list selects, without and with option contracts. */
bool selects(std::string_view pattern, std::string_view inst_id) {
    return IsInstSelected(inst_id, pattern, false, false);
}
bool selects_with_options(std::string_view pattern, std::string_view inst_id) {
    return IsInstSelected(inst_id, pattern, false, true);
}

TEST(InstPattern, AProductSelectsItsFutures) {
    EXPECT_TRUE(selects("cu", "cu2401"));
    EXPECT_TRUE(selects("cu", "cu2412"));
    EXPECT_TRUE(selects("cu", "cu"));
    EXPECT_FALSE(selects("cu", "al2401"));
    EXPECT_FALSE(selects("cu", "c"));
    EXPECT_FALSE(selects("cu", ""));
    EXPECT_FALSE(selects("cu", "CU2401"));
    EXPECT_FALSE(selects("cu", "acu240"));
}

TEST(InstPattern, AProductSelectsItsOptionsOnlyForAChannelThatWantsOptions) {
    EXPECT_FALSE(selects("cu", "cu2401C60000"));
    EXPECT_TRUE(selects_with_options("cu", "cu2401C60000"));
    EXPECT_TRUE(selects_with_options("cu", "cu2401"));
    EXPECT_FALSE(selects_with_options("cu", "al2401C20000"));
}

TEST(InstPattern, SevenCharactersAreAnOption) {
    EXPECT_TRUE(selects("cu", "cu2401"));
    EXPECT_FALSE(selects("cu", "cu24011"));
    EXPECT_TRUE(selects_with_options("cu", "cu24011"));
}

TEST(InstPattern, AContractSelectsItselfAndForAChannelThatWantsThemItsOptions) {
    EXPECT_TRUE(selects("cu2401", "cu2401"));
    EXPECT_FALSE(selects("cu2401", "cu2402"));
    EXPECT_FALSE(selects("cu2401", "cu240"));
    EXPECT_FALSE(selects("cu2401", "cu2401C60000"));
    EXPECT_TRUE(selects_with_options("cu2401", "cu2401"));
    EXPECT_TRUE(selects_with_options("cu2401", "cu2401C60000"));
    EXPECT_FALSE(selects_with_options("cu2401", "cu2402C60000"));
}

TEST(InstPattern, SevenCharactersSelectOnlyTheIdenticalIdentifier) {
    EXPECT_TRUE(selects("cu24011", "cu24011"));
    EXPECT_TRUE(selects_with_options("cu24011", "cu24011"));
    EXPECT_FALSE(selects("cu24011", "cu2401"));
    EXPECT_FALSE(selects("cu24011", "cu24011C"));
    EXPECT_FALSE(selects_with_options("cu24011", "cu24011C"));
}

TEST(InstPattern, AnOptionNamedInFullNeedsNoLeave) {
    EXPECT_TRUE(selects("cu2401C60000", "cu2401C60000"));
    EXPECT_TRUE(selects_with_options("cu2401C60000", "cu2401C60000"));
    EXPECT_FALSE(selects("cu2401C60000", "cu2401C61000"));
}

TEST(InstPattern, OtherLengthsSelectOnlyTheIdenticalIdentifier) {
    EXPECT_TRUE(selects("b", "b"));
    EXPECT_FALSE(selects("b", "bu2406"));
    EXPECT_FALSE(selects_with_options("b", "bu2406"));
    EXPECT_FALSE(selects("cu2", "cu2401"));
    EXPECT_FALSE(selects("cu24", "cu2401"));
    EXPECT_FALSE(selects("cu240", "cu2401"));
    EXPECT_TRUE(selects("cu240", "cu240"));
    EXPECT_FALSE(selects_with_options("cu240", "cu2401C60000"));
}

TEST(InstPattern, TheEmptyPatternSelectsOnlyRowsWithoutAnIdentifier) {
    EXPECT_TRUE(selects("", ""));
    EXPECT_FALSE(selects("", "cu2401"));
    EXPECT_FALSE(selects_with_options("", "cu2401"));
}

TEST(InstPattern, AChannelThatReceivesAllIsOnlyAskedForOptions) {
    for (const std::string_view pattern : {"all", "", "b", "cu", "cu2401", "cu24011"}) {
        EXPECT_TRUE(IsInstSelected("al2401", pattern, true, false)) << pattern;
        EXPECT_TRUE(IsInstSelected("b", pattern, true, false)) << pattern;
        EXPECT_TRUE(IsInstSelected("", pattern, true, false)) << pattern;
        EXPECT_FALSE(IsInstSelected("al24011", pattern, true, false)) << pattern;
        EXPECT_FALSE(IsInstSelected("cu24011", pattern, true, false)) << pattern;
        EXPECT_TRUE(IsInstSelected("al24011", pattern, true, true)) << pattern;
        EXPECT_TRUE(IsInstSelected("al2401", pattern, true, true)) << pattern;
    }
}

TEST(InstPattern, TheWordAllIsNoPatternOfItsOwn) {
    EXPECT_FALSE(selects("all", "cu2401"));
    EXPECT_TRUE(selects("all", "all"));
}

TEST(InstPattern, ThePatternMayBeLongerThanAnyIdentifier) {
    EXPECT_FALSE(selects_with_options("cu2401C60000cu2401C60000cu2401C", "cu2401C60000cu24"));
}

TEST(InstPattern, ARowsIdentifierEndsAtItsNul) {
    SInstTableType row{};
    std::memcpy(row.inst_id, "cu2401\0C60000", 13);
    EXPECT_STREQ(InstId(row).data(), "cu2401");
    EXPECT_STREQ(InstId(SInstTableType{}).data(), "");
}

TEST(InstPattern, ARowsIdentifierWithoutANulEndsWithItsSixteenBytes) {
    SInstTableType row;
    std::memset(&row, 'x', sizeof(row));
    std::memcpy(row.inst_id, "0123456789abcdef", 16);
    EXPECT_EQ(std::string(InstId(row).data()), "0123456789abcdef");
}

}  // namespace
