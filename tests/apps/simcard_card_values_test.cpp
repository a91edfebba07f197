#include "kova_simcard/card_values.h"

#include <gtest/gtest.h>

namespace kova::app {
namespace {

using namespace std::chrono_literals;

TEST(SimcardCardValues, MemoryDelayIsSecondsOrNever) {
    EXPECT_EQ(parse_memory_delay("2.5"), sim::MemoryDelay(2500ms));
    EXPECT_EQ(parse_memory_delay("0"), sim::MemoryDelay(0ms));
    ASSERT_TRUE(parse_memory_delay("never").has_value());
    EXPECT_FALSE(parse_memory_delay("never")->has_value());
    for (const char* text : {"", "-1", "3601", "soon", "1s", "nan"}) {
        EXPECT_FALSE(parse_memory_delay(text).has_value()) << text;
    }
}

TEST(SimcardCardValues, VersionHasFourHexadecimalNumbers) {
    EXPECT_EQ(parse_software_version("1.1.1.33"), 0x01010133U);
    EXPECT_EQ(parse_software_version("ff.0.a.1"), 0xFF000A01U);
    for (const char* text : {"", "1.1.1", "1.1.1.33.2", "1.1.1.", "1..1.33", "100.1.1.1", "a.b.c.x"}) {
        EXPECT_FALSE(parse_software_version(text).has_value()) << text;
    }
}

TEST(SimcardCardValues, WordsAreDecimalOrHexadecimal) {
    EXPECT_EQ(parse_word("4294967295"), 0xFFFFFFFFU);
    EXPECT_EQ(parse_word("0x20260420"), 0x20260420U);
    EXPECT_EQ(parse_hexadecimal("20260420"), 0x20260420U);
    EXPECT_FALSE(parse_word("4294967296").has_value());
    EXPECT_FALSE(parse_hexadecimal("0x").has_value());
}

TEST(SimcardCardValues, FeedsHaveNamesAndNumbers) {
    EXPECT_EQ(parse_feed("ine2ps"), INE_2PS);
    EXPECT_EQ(parse_feed("3"), INE_4PS);
    EXPECT_FALSE(parse_feed("4").has_value());
    EXPECT_FALSE(parse_feed("dce").has_value());
}

}  // namespace
}  // namespace kova::app
