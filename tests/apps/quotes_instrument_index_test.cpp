#include "kova_quotes/instrument_index.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "apps/quotes_sample.h"

namespace kova::app {
namespace {

InstrumentId id_of(std::string_view text) {
    return *InstrumentId::of(text);
}

TEST(InstrumentId, ATextThatNoRecordCanCarryIsNone) {
    EXPECT_FALSE(InstrumentId::of(std::string_view("")));
    EXPECT_TRUE(InstrumentId::of(std::string_view("0123456789abcdef")));
    EXPECT_FALSE(InstrumentId::of(std::string_view("0123456789abcdefg")));
    EXPECT_FALSE(InstrumentId::of(std::string_view("a\0b", 3)));
}

TEST(InstrumentId, WhatStandsBehindTheFirstNulDoesNotCount) {
    KovaShfeMdType quote = make_quote("cu2509", 1);
    quote.inst_id[10] = 'x';
    EXPECT_EQ(InstrumentId::of(quote), id_of("cu2509"));
}

TEST(InstrumentId, SixteenCharactersNeedNoNul) {
    EXPECT_EQ(InstrumentId::of(make_quote("0123456789abcdef", 1)).printable(), "0123456789abcdef");
}

TEST(InstrumentId, BytesThatCouldDriveATerminalAreShownAsQuestionMarks) {
    EXPECT_EQ(id_of("a\x1b[m\x7f\xc3z").printable(), "a?[m??z");
}

TEST(InstrumentIndex, NumbersInstrumentsInTheOrderOfTheirFirstAppearance) {
    InstrumentIndex index(4);
    EXPECT_EQ(index.find_or_add(id_of("cu2509")), 0U);
    EXPECT_EQ(index.find_or_add(id_of("al2509")), 1U);
    EXPECT_EQ(index.find_or_add(id_of("cu2509")), 0U);
    EXPECT_EQ(index.find(id_of("al2509")), 1U);
    EXPECT_EQ(index.find(id_of("zn2509")), InstrumentIndex::kNone);
    EXPECT_EQ(index.size(), 2U);
    EXPECT_EQ(index.id(1), id_of("al2509"));
}

TEST(InstrumentIndex, HasNoNumberForOneMoreThanItsBound) {
    InstrumentIndex index(2);
    index.find_or_add(id_of("a"));
    index.find_or_add(id_of("b"));
    EXPECT_EQ(index.find_or_add(id_of("c")), InstrumentIndex::kNone);
    EXPECT_EQ(index.find_or_add(id_of("b")), 1U);
    EXPECT_EQ(index.size(), 2U);
}

TEST(InstrumentIndex, WithoutRoomForAnyFindsNothing) {
    InstrumentIndex index(0);
    EXPECT_EQ(index.find(id_of("a")), InstrumentIndex::kNone);
    EXPECT_EQ(index.find_or_add(id_of("a")), InstrumentIndex::kNone);
}

TEST(InstrumentIndex, KeepsEveryRowOfTheCardApart) {
    InstrumentIndex index;
    std::set<std::uint32_t> numbers;
    for (int i = 0; i < 40960; ++i) {
        numbers.insert(index.find_or_add(id_of(fmt::format("cu25{}", i))));
    }
    EXPECT_EQ(numbers.size(), 40960U);
    EXPECT_EQ(*numbers.rbegin(), 40959U);
    EXPECT_EQ(index.find(id_of("cu2540959")), 40959U);
}

}  // namespace
}  // namespace kova::app
