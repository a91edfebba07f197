#include "kova_quotes/gap_tracker.h"

#include <gtest/gtest.h>

#include <initializer_list>

namespace kova::app {
namespace {

InstrumentId id_of(std::string_view text) {
    return *InstrumentId::of(text);
}

ChangeRecord record_of(std::initializer_list<std::uint32_t> change_numbers) {
    GapTracker tracker(8);
    for (const std::uint32_t number : change_numbers) {
        tracker.note(id_of("cu2509"), number);
    }
    return *tracker.find(id_of("cu2509"));
}

TEST(GapTracker, NumbersThatRiseByOneHaveNoGapWhereverTheyBegin) {
    EXPECT_EQ(record_of({17, 18, 19}), (ChangeRecord{.quotes = 3, .first_change = 17, .last_change = 19}));
}

TEST(GapTracker, ANumberLeftOutIsOneGapWithOneMissing) {
    EXPECT_EQ(record_of({1, 3}),
              (ChangeRecord{.quotes = 2, .first_change = 1, .last_change = 3, .gaps = 1, .missing = 1}));
}

TEST(GapTracker, GapsAndWhatIsMissingInThemAreCountedApart) {
    EXPECT_EQ(record_of({1, 5, 6, 17}),
              (ChangeRecord{.quotes = 4, .first_change = 1, .last_change = 17, .gaps = 2, .missing = 13}));
}

TEST(GapTracker, ARepeatedNumberIsBackwardAndNoGap) {
    EXPECT_EQ(record_of({4, 4, 5}),
              (ChangeRecord{.quotes = 3, .first_change = 4, .last_change = 5, .backward = 1}));
}

TEST(GapTracker, AfterAFallCountingGoesOnFromTheLowerNumber) {
    EXPECT_EQ(record_of({100, 1, 2, 3}),
              (ChangeRecord{.quotes = 4, .first_change = 100, .last_change = 3, .backward = 1}));
}

TEST(GapTracker, TheStepFromTheLargestNumberToZeroIsNoGap) {
    EXPECT_EQ(
        record_of({4294967295U, 0, 2}),
        (ChangeRecord{.quotes = 3, .first_change = 4294967295U, .last_change = 2, .gaps = 1, .missing = 1}));
}

TEST(GapTracker, InstrumentsHaveTheirOwnNumbers) {
    GapTracker tracker(8);
    tracker.note(id_of("cu2509"), 1);
    tracker.note(id_of("al2509"), 50);
    tracker.note(id_of("cu2509"), 2);
    tracker.note(id_of("al2509"), 52);
    ASSERT_EQ(tracker.instruments(), 2U);
    EXPECT_EQ(tracker.id(0), id_of("cu2509"));
    EXPECT_EQ(tracker.record(0).gaps, 0U);
    EXPECT_EQ(tracker.id(1), id_of("al2509"));
    EXPECT_EQ(tracker.record(1).gaps, 1U);
}

TEST(GapTracker, AnInstrumentNeverSeenHasNoRecord) {
    const GapTracker tracker(8);
    EXPECT_EQ(tracker.find(id_of("cu2509")), nullptr);
}

TEST(GapTracker, QuotesOfInstrumentsBeyondTheBoundAreCountedOnly) {
    GapTracker tracker(1);
    tracker.note(id_of("cu2509"), 1);
    tracker.note(id_of("al2509"), 1);
    tracker.note(id_of("al2509"), 9);
    EXPECT_EQ(tracker.instruments(), 1U);
    EXPECT_EQ(tracker.untracked(), 2U);
}

}  // namespace
}  // namespace kova::app
