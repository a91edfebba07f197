#include "sim/exchange/segment_cutter.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <vector>

namespace kova::sim {
namespace {

using testing::ElementsAre;

/** Cuts one cycle of messages of the given sizes. */
std::vector<std::size_t> cut(SegmentCutter& cutter, const std::vector<std::size_t>& messages) {
    std::vector<std::size_t> sizes;
    std::size_t appended = 0;
    do {
        while (cutter.is_hungry()) {
            std::vector<std::byte>& buffer = cutter.buffer();
            buffer.resize(buffer.size() + messages.at(appended++));
            appended == messages.size() ? cutter.end_cycle() : cutter.end_message();
        }
        sizes.push_back(cutter.take().size());
    } while (!cutter.is_at_start());
    EXPECT_EQ(appended, messages.size());
    return sizes;
}

std::vector<std::size_t> cut(const SegmentOptions& options, const std::vector<std::size_t>& messages) {
    SegmentCutter cutter(options, 1);
    return cut(cutter, messages);
}

TEST(SegmentCutter, BulkFillsSegments) {
    EXPECT_THAT(cut({.bytes = 100}, {250, 30}), ElementsAre(100, 100, 80));
    EXPECT_THAT(cut({.bytes = 100}, {100}), ElementsAre(100));
}

TEST(SegmentCutter, BulkEndsBeforeTheMessageEndRatherThanUpToSevenBytesBehindIt) {
    EXPECT_THAT(cut({.bytes = 100}, {100, 60}), ElementsAre(99, 61));
    EXPECT_THAT(cut({.bytes = 100}, {101, 60}), ElementsAre(100, 61));
    EXPECT_THAT(cut({.bytes = 100}, {93, 60}), ElementsAre(92, 61));
    EXPECT_THAT(cut({.bytes = 100}, {92, 60}), ElementsAre(100, 52));
}

TEST(SegmentCutter, BulkMayEndAnywhereAtTheEndOfTheCycle) {
    EXPECT_THAT(cut({.bytes = 100}, {94, 6}), ElementsAre(100));
    EXPECT_THAT(cut({.bytes = 100}, {50, 50}), ElementsAre(100));
}

TEST(SegmentCutter, MessagesOfTheirOwnAreCutWhenTheyAreLong) {
    EXPECT_THAT(cut({.rule = SegmentRule::message, .bytes = 100}, {30, 40, 250, 20}),
                ElementsAre(30, 40, 100, 100, 50, 20));
}

TEST(SegmentCutter, PackedMessagesShareASegmentWhileTheyFit) {
    EXPECT_THAT(cut({.rule = SegmentRule::packed, .bytes = 100}, {30, 70, 40, 50, 20}),
                ElementsAre(100, 90, 20));
    EXPECT_THAT(cut({.rule = SegmentRule::packed, .bytes = 100}, {30, 250, 20, 10}),
                ElementsAre(30, 100, 100, 80));
}

TEST(SegmentCutter, ASplitComesOnTopOfTheRule) {
    EXPECT_THAT(cut({.bytes = 100, .split_at = 20}, {250}), ElementsAre(20, 100, 100, 30));
    EXPECT_THAT(cut({.bytes = 100, .split_at = 103}, {100, 100}), ElementsAre(99, 4, 97));
    EXPECT_THAT(cut({.bytes = 100, .split_at = 250}, {150}), ElementsAre(100, 50));
}

TEST(SegmentCutter, EveryCycleIsCutFromItsBeginning) {
    SegmentCutter cutter({.bytes = 100, .split_at = 10}, 1);
    EXPECT_THAT(cut(cutter, {100, 60}), ElementsAre(10, 100, 50));
    EXPECT_THAT(cut(cutter, {100, 60}), ElementsAre(10, 100, 50));
    EXPECT_THAT(cut(cutter, {70}), ElementsAre(10, 60));
}

TEST(SegmentCutter, PayloadsAreTheBytesInTheirOrder) {
    SegmentCutter cutter({.bytes = 64}, 1);
    for (int i = 0; i < 200; ++i) {
        cutter.buffer().push_back(static_cast<std::byte>(i));
    }
    cutter.end_cycle();
    int expected = 0;
    do {
        for (const std::byte byte : cutter.take()) {
            EXPECT_EQ(std::to_integer<int>(byte), expected++);
        }
    } while (!cutter.is_at_start());
    EXPECT_EQ(expected, 200);
}

TEST(SegmentCutter, OptionsOutOfTheirRangesAreRefused) {
    EXPECT_NO_THROW(SegmentCutter({.bytes = 64, .quirky_cuts = 1}, 1));
    EXPECT_THROW(SegmentCutter({.bytes = 63}, 1), std::invalid_argument);
    EXPECT_THROW(SegmentCutter({.bytes = 1461}, 1), std::invalid_argument);
    EXPECT_THROW(SegmentCutter({.quirky_cuts = 1.01}, 1), std::invalid_argument);
}

}  // namespace
}  // namespace kova::sim
