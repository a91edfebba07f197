// The version word that the card is told.

#include "bringup/SysVersion.h"

#include <gtest/gtest.h>

namespace {

TEST(SysVersion, TheLibraryIsOfThisVersion) {
    EXPECT_STREQ(SOFT_VERSION, "1.1.1.33");
    EXPECT_EQ(PackSoftVersion("1.1.1.33"), 0x33010101U);
}

TEST(SysVersion, PartsAreHexadecimalAndTheFirstIsTheLowestByte) {
    EXPECT_EQ(PackSoftVersion("1.2.3.4"), 0x04030201U);
    EXPECT_EQ(PackSoftVersion("a.B.c.ff"), 0xFF0C0B0AU);
    EXPECT_EQ(PackSoftVersion("10.20.30.40"), 0x40302010U);
}

TEST(SysVersion, PartsThatAreMissingAreZero) {
    EXPECT_EQ(PackSoftVersion(""), 0U);
    EXPECT_EQ(PackSoftVersion("7"), 0x00000007U);
    EXPECT_EQ(PackSoftVersion("1.2"), 0x00000201U);
    EXPECT_EQ(PackSoftVersion("1.2.3."), 0x00030201U);
    EXPECT_EQ(PackSoftVersion("1.x.3.4"), 0x00000001U);
    EXPECT_EQ(PackSoftVersion("version"), 0U);
}

TEST(SysVersion, OfEachPartOneByteIsKept) {
    EXPECT_EQ(PackSoftVersion("101.2.3.4"), 0x04030201U);
    EXPECT_EQ(PackSoftVersion("1.1ff.3.12345678"), 0x7803FF01U);
}

TEST(SysVersion, VerdictsHaveTheCardsNumbers) {
    EXPECT_EQ(VERSION_NOT_WRITTEN, 0U);
    EXPECT_EQ(VERSION_ACCEPTED, 1U);
    EXPECT_EQ(VERSION_TOO_OLD, 2U);
}

}  // namespace
