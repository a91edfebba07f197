#include "sim/exchange/impairments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "sim/snapshot_reader.h"

namespace kova::sim {
namespace {

using test::Bytes;
using test::ReadFrame;
using testing::ElementsAre;

constexpr std::uint32_t kServer = 0xC000020B;

/** Segments of 100 bytes whose sequence number is their own number, from 0 on. */
class NumberedFrames final : public FrameSource {
 public:
    explicit NumberedFrames(std::size_t payload_bytes = 100) : payload_(payload_bytes, std::byte{0x77}) {}

    std::span<const std::byte> next() override {
        const TcpSegment segment{.source = {.address = kServer, .port = 31000},
                                 .destination = {.address = 0xC6336402, .port = 33022},
                                 .seq = number_++,
                                 .payload = payload_};
        return std::span(frame_).first(write_tcp_frame(segment, frame_));
    }

 private:
    std::vector<std::byte> payload_;
    std::array<std::byte, kMostFrameBytes> frame_{};
    std::uint32_t number_ = 0;
};

/** A stage with one impairment on top of numbered frames. */
struct Stage {
    NumberedFrames source;
    Impairments impairments;

    Stage(const std::string& name, double rate, std::uint64_t seed = 1)
        : impairments(source, {.seed = seed, .rates = {}}) {
        impairments.set(name, rate);
    }

    ReadFrame next() { return test::read_frame(test::bytes_of(impairments.next())); }

    std::vector<ReadFrame> take(std::size_t count) {
        std::vector<ReadFrame> frames;
        while (frames.size() < count) {
            frames.push_back(next());
        }
        return frames;
    }

    /** Their numbers, in the order in which they come. */
    std::vector<std::uint32_t> numbers(std::size_t count) {
        std::vector<std::uint32_t> found;
        for (const ReadFrame& frame : take(count)) {
            found.push_back(frame.seq);
        }
        return found;
    }
};

bool is_right(const ReadFrame& frame) {
    return frame.is_ip_sum_right && frame.is_tcp_sum_right;
}

/** Frames that come behind one with a higher number. */
std::size_t late_ones(const std::vector<std::uint32_t>& numbers) {
    std::size_t late = 0;
    std::uint32_t highest = 0;
    for (const std::uint32_t number : numbers) {
        late += number < highest ? 1 : 0;
        highest = std::max(highest, number);
    }
    return late;
}

/** Each number up to the highest that is not there. */
std::vector<std::uint32_t> missing(std::vector<std::uint32_t> numbers) {
    std::ranges::sort(numbers);
    std::vector<std::uint32_t> all(numbers.back() + 1);
    std::iota(all.begin(), all.end(), 0U);
    std::vector<std::uint32_t> found;
    std::ranges::set_difference(all, numbers, std::back_inserter(found));
    return found;
}

// ---------------------------------------------------------------- what becomes of a frame

TEST(Impairments, WithoutRatesEveryFramePassesUnchanged) {
    NumberedFrames source;
    NumberedFrames same;
    Impairments impairments(source);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(test::bytes_of(impairments.next()), test::bytes_of(same.next()));
    }
    EXPECT_EQ(impairments.taken(), 1000U);
    for (std::size_t i = 0; i < kImpairmentNames.size(); ++i) {
        EXPECT_EQ(impairments.struck(static_cast<Impairment>(i)), 0U);
    }
}

TEST(Impairments, WhatIsLostNeverComes) {
    Stage stage("lose", 0.1);
    const std::vector<std::uint32_t> numbers = stage.numbers(2000);
    EXPECT_EQ(late_ones(numbers), 0U);
    EXPECT_EQ(missing(numbers).size(), stage.impairments.struck(Impairment::lose));
    EXPECT_GT(missing(numbers).size(), 150U);
    EXPECT_LT(missing(numbers).size(), 300U);
}

TEST(Impairments, WhenEverythingIsLostNothingIsGivenRatherThanWaitedFor) {
    Stage stage("lose", 1);
    EXPECT_TRUE(stage.impairments.next().empty());
    EXPECT_EQ(stage.impairments.taken(), Impairments::kMostLost);
    stage.impairments.set("lose", 0);
    EXPECT_EQ(stage.next().seq, Impairments::kMostLost);
}

TEST(Impairments, ADelayedFrameComesTwoToThirtyTwoFramesLater) {
    Stage stage("delay", 0.05);
    const std::vector<std::uint32_t> numbers = stage.numbers(4000);
    std::uint32_t highest = 0;
    std::size_t late = 0;
    for (const std::uint32_t number : numbers) {
        if (number < highest) {
            ++late;
            EXPECT_GE(highest - number, 1U);
            EXPECT_LE(highest - number, 32U);
        }
        highest = std::max(highest, number);
    }
    EXPECT_GT(late, 100U);
    EXPECT_GE(stage.impairments.struck(Impairment::delay), late);
    // Only those that are still on their way are missing.
    EXPECT_TRUE(missing(numbers).empty() || missing(numbers).front() + 32 >= highest);
}

TEST(Impairments, ARetransmittedFrameComesMuchLater) {
    Stage stage("retransmit", 0.01);
    const std::vector<std::uint32_t> numbers = stage.numbers(5000);
    std::uint32_t highest = 0;
    std::size_t late = 0;
    for (const std::uint32_t number : numbers) {
        if (number < highest) {
            ++late;
            EXPECT_GE(highest - number, 60U);
            EXPECT_LE(highest - number, 256U);
        }
        highest = std::max(highest, number);
    }
    EXPECT_GT(late, 20U);
    EXPECT_TRUE(missing(numbers).empty() || missing(numbers).front() + 256 >= highest);
}

TEST(Impairments, ASwappedFrameChangesPlacesWithTheNext) {
    Stage stage("swap", 1);
    EXPECT_THAT(stage.numbers(8), ElementsAre(1, 0, 3, 2, 5, 4, 7, 6));
    EXPECT_EQ(stage.impairments.struck(Impairment::swap), 4U);
}

TEST(Impairments, ARareSwapLeavesTheOthersInOrder) {
    Stage stage("swap", 0.05);
    const std::vector<std::uint32_t> numbers = stage.numbers(2000);
    EXPECT_EQ(late_ones(numbers), stage.impairments.struck(Impairment::swap));
    EXPECT_GT(late_ones(numbers), 50U);
    for (std::uint32_t i = 0; i < numbers.size(); ++i) {
        EXPECT_LE(numbers[i], i + 1);
        EXPECT_GE(numbers[i] + 1, i);
    }
}

TEST(Impairments, ADuplicateFollowsItsFrame) {
    Stage stage("duplicate", 1);
    EXPECT_THAT(stage.numbers(6), ElementsAre(0, 0, 1, 1, 2, 2));
    EXPECT_EQ(stage.impairments.struck(Impairment::duplicate), 3U);
    EXPECT_TRUE(std::ranges::all_of(stage.take(10), is_right));
}

TEST(Impairments, ACorruptFrameHasAWrongChecksumAndComesAgainWhole) {
    Stage stage("corrupt", 0.02);
    std::vector<std::uint32_t> damaged;
    std::vector<std::uint32_t> whole;
    for (const ReadFrame& frame : stage.take(5000)) {
        EXPECT_TRUE(frame.is_ip_sum_right);
        (frame.is_tcp_sum_right ? whole : damaged).push_back(frame.seq);
        const Bytes expected(100, 0x77);
        EXPECT_EQ(frame.payload == expected, frame.is_tcp_sum_right);
    }
    ASSERT_FALSE(whole.empty());
    EXPECT_EQ(damaged.size(), stage.impairments.struck(Impairment::corrupt));
    EXPECT_GT(damaged.size(), 60U);
    EXPECT_EQ(late_ones(damaged), 0U);
    EXPECT_GT(late_ones(whole), 50U);
    EXPECT_TRUE(missing(whole).empty() || missing(whole).front() + 256 >= whole.back());
}

TEST(Impairments, TheFirstThatStrikesIsAllThatHappens) {
    Stage stage("lose", 0.5);
    stage.impairments.set("duplicate", 1);
    const std::vector<std::uint32_t> numbers = stage.numbers(1000);
    EXPECT_EQ(stage.impairments.struck(Impairment::lose) + stage.impairments.struck(Impairment::duplicate),
              stage.impairments.taken());
    for (std::size_t i = 0; i < numbers.size(); i += 2) {
        EXPECT_EQ(numbers[i], numbers[i + 1]);
    }
}

// ---------------------------------------------------------------- what it looks like

TEST(Impairments, IpOptionsLeaveTheFrameRight) {
    Stage stage("ip_options", 1);
    std::vector<std::size_t> lengths;
    for (const ReadFrame& frame : stage.take(200)) {
        EXPECT_TRUE(is_right(frame));
        EXPECT_EQ(frame.payload, Bytes(100, 0x77));
        EXPECT_EQ(frame.tcp_options, 0U);
        lengths.push_back(frame.ip_options);
    }
    EXPECT_EQ(std::ranges::min(lengths), 4U);
    EXPECT_EQ(std::ranges::max(lengths), 40U);
}

TEST(Impairments, TcpOptionsLeaveTheFrameRight) {
    Stage stage("tcp_options", 1);
    std::vector<std::size_t> lengths;
    for (const ReadFrame& frame : stage.take(200)) {
        EXPECT_TRUE(is_right(frame));
        EXPECT_EQ(frame.payload, Bytes(100, 0x77));
        EXPECT_EQ(frame.ip_options, 0U);
        lengths.push_back(frame.tcp_options);
    }
    EXPECT_EQ(std::ranges::min(lengths), 4U);
    EXPECT_EQ(std::ranges::max(lengths), 40U);
}

TEST(Impairments, PaddingLiesBehindThePacketAndIsNotZero) {
    Stage stage("padding", 1);
    for (int i = 0; i < 200; ++i) {
        const Bytes bytes = test::bytes_of(stage.impairments.next());
        const ReadFrame frame = test::read_frame(bytes);
        EXPECT_TRUE(is_right(frame));
        EXPECT_EQ(frame.payload, Bytes(100, 0x77));
        EXPECT_GE(frame.padding, 1U);
        EXPECT_LE(frame.padding, 46U);
        EXPECT_EQ(bytes.back(), 0xA5);
    }
}

TEST(Impairments, AFullSegmentWithEverythingStaysWithinTheLongestFrame) {
    NumberedFrames source(1460);
    Impairments impairments(source);
    for (const std::string_view name : {"ip_options", "tcp_options", "padding"}) {
        impairments.set(name, 1);
    }
    std::size_t longest = 0;
    for (int i = 0; i < 2000; ++i) {
        const Bytes bytes = test::bytes_of(impairments.next());
        longest = std::max(longest, bytes.size());
        EXPECT_TRUE(is_right(test::read_frame(bytes)));
    }
    EXPECT_EQ(longest, 1600U);
}

TEST(Impairments, AStageOnAnotherStageHasNoRoomForPaddingThatIsThere) {
    NumberedFrames source(1460);
    Impairments first(source);
    FrameSource& stage = first;
    Impairments second(stage);
    for (const std::string_view name : {"ip_options", "tcp_options", "padding"}) {
        first.set(name, 1);
    }
    second.set("padding", 1);
    std::size_t longest = 0;
    for (int i = 0; i < 2000; ++i) {
        const Bytes bytes = test::bytes_of(second.next());
        longest = std::max(longest, bytes.size());
        EXPECT_TRUE(is_right(test::read_frame(bytes)));
    }
    EXPECT_EQ(longest, 1600U);
    EXPECT_LT(second.struck(Impairment::padding), 2000U);
}

// ---------------------------------------------------------------- what others send

TEST(Impairments, AWrongPeerSendsZerosWithTheSameNumberFirst) {
    Stage stage("wrong_peer", 1);
    for (std::uint32_t i = 0; i < 100; ++i) {
        const ReadFrame stranger = stage.next();
        EXPECT_TRUE(is_right(stranger));
        EXPECT_NE(stranger.source, kServer);
        EXPECT_EQ(stranger.port, 33022U);
        EXPECT_EQ(stranger.seq, i);
        EXPECT_EQ(stranger.payload, Bytes(100, 0));
        const ReadFrame own = stage.next();
        EXPECT_EQ(own.source, kServer);
        EXPECT_EQ(own.seq, i);
        EXPECT_EQ(own.payload, Bytes(100, 0x77));
    }
}

TEST(Impairments, ResetsComeWithAndWithoutAck) {
    for (const auto& [name, flags] : {std::pair{"rst", 0x04U}, std::pair{"rst_ack", 0x14U}}) {
        Stage stage(name, 1);
        for (std::uint32_t i = 0; i < 10; ++i) {
            const ReadFrame reset = stage.next();
            EXPECT_TRUE(is_right(reset));
            EXPECT_EQ(reset.flags, flags);
            EXPECT_EQ(reset.source, kServer);
            EXPECT_EQ(reset.port, 33022U);
            EXPECT_EQ(reset.seq, i);
            EXPECT_TRUE(reset.payload.empty());
            EXPECT_EQ(stage.next().flags, 0x10U);
        }
    }
}

TEST(Impairments, InsertionsAreCounted) {
    Stage stage("rst_ack", 0.1);
    stage.take(1000);
    const Impairments& impairments = stage.impairments;
    EXPECT_EQ(impairments.taken() + impairments.struck(Impairment::rst_ack), 1000U);
    EXPECT_GT(impairments.struck(Impairment::rst_ack), 50U);
}

// ---------------------------------------------------------------- other frames

/** Short frames of another protocol. */
class OtherFrame final : public FrameSource {
 public:
    std::span<const std::byte> next() override { return other_; }

 private:
    std::array<std::byte, 60> other_{};
};

TEST(Impairments, WhatIsNoTcpPassesWhateverTheRates) {
    OtherFrame source;
    Impairments impairments(source);
    for (const std::string_view name : kImpairmentNames) {
        impairments.set(name, 1);
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(test::bytes_of(impairments.next()), Bytes(60, 0));
    }
    EXPECT_EQ(impairments.struck(Impairment::lose), 0U);
}

// ---------------------------------------------------------------- rates and seeds

TEST(Impairments, EveryNameSetsItsOwnRate) {
    NumberedFrames source;
    Impairments impairments(source);
    for (std::size_t i = 0; i < kImpairmentNames.size(); ++i) {
        impairments.set(kImpairmentNames[i], 0.25);
        for (std::size_t other = 0; other < kImpairmentNames.size(); ++other) {
            EXPECT_EQ(impairments.rate(static_cast<Impairment>(other)), other == i ? 0.25 : 0);
        }
        impairments.set(kImpairmentNames[i], 0);
    }
}

std::string refusal(std::string_view name, double rate) {
    NumberedFrames source;
    Impairments impairments(source);
    try {
        impairments.set(name, rate);
        return "accepted";
    } catch (const std::invalid_argument& error) {
        return error.what();
    }
}

TEST(Impairments, AnUnknownNameIsRefusedWithThoseThatAreKnown) {
    EXPECT_EQ(refusal("loss", 0.5),
              "unknown impairment \"loss\", known are lose, corrupt, retransmit, delay, swap, duplicate, "
              "ip_options, tcp_options, padding, wrong_peer, rst, rst_ack");
}

TEST(Impairments, ARateOutOfRangeIsRefusedAndChangesNothing) {
    EXPECT_EQ(refusal("lose", 1), "accepted");
    EXPECT_EQ(refusal("lose", 1.001), "lose must be a number from 0 to 1");
    EXPECT_EQ(refusal("rst_ack", -0.001), "rst_ack must be a number from 0 to 1");
    EXPECT_EQ(refusal("swap", std::numeric_limits<double>::quiet_NaN()), "swap must be a number from 0 to 1");
    Stage stage("delay", 0.5);
    EXPECT_THROW(stage.impairments.set("delay", 2), std::invalid_argument);
    EXPECT_EQ(stage.impairments.rate(Impairment::delay), 0.5);
    ImpairmentOptions options;
    options.rates[3] = 7;
    EXPECT_THROW(Impairments(stage.source, options), std::invalid_argument);
}

TEST(Impairments, TheSameSeedGivesTheSameFrames) {
    const auto order = [](std::uint64_t seed) {
        Stage stage("delay", 0.2, seed);
        stage.impairments.set("lose", 0.1);
        return stage.numbers(500);
    };
    EXPECT_EQ(order(5), order(5));
    EXPECT_NE(order(5), order(6));
}

TEST(Impairments, ARateDoesNotChangeWhereTheOthersStrike) {
    const auto lost = [](double duplicates) {
        Stage stage("lose", 0.1);
        stage.impairments.set("duplicate", duplicates);
        stage.impairments.set("padding", duplicates);
        std::vector<std::uint32_t> numbers = stage.numbers(3000);
        std::vector<std::uint32_t> found = missing(numbers);
        std::erase_if(found, [](std::uint32_t number) { return number > 1000; });
        return found;
    };
    EXPECT_EQ(lost(0), lost(0.5));
    EXPECT_GT(lost(0).size(), 50U);
}

TEST(Impairments, AFrameThatIsLostInsteadOfDelayedDoesNotChangeWhichOthersAreDelayed) {
    const auto delayed = [](double losses) {
        Stage stage("delay", 0.1);
        stage.impairments.set("lose", losses);
        std::vector<std::uint32_t> found;
        std::uint32_t highest = 0;
        for (const std::uint32_t number : stage.numbers(2000)) {
            if (number < highest && number < 1000) {
                found.push_back(number);
            }
            highest = std::max(highest, number);
        }
        std::ranges::sort(found);
        return found;
    };
    const std::vector<std::uint32_t> all = delayed(0);
    const std::vector<std::uint32_t> left = delayed(0.3);
    EXPECT_TRUE(std::ranges::includes(all, left));
    EXPECT_LT(left.size(), all.size());
    EXPECT_GT(left.size(), 40U);
}

/** Which of the next thousand frames are missing. */
std::vector<std::uint32_t> lost_of(const ImpairmentOptions& options) {
    NumberedFrames source;
    Impairments impairments(source, options);
    std::vector<std::uint32_t> numbers;
    for (int i = 0; i < 1000; ++i) {
        numbers.push_back(test::read_frame(test::bytes_of(impairments.next())).seq);
    }
    return missing(numbers);
}

TEST(Impairments, ASeedOfItsOwnDecidesWhereOneStrikesAndNoOther) {
    constexpr auto lose = static_cast<std::size_t>(Impairment::lose);
    constexpr auto duplicate = static_cast<std::size_t>(Impairment::duplicate);
    ImpairmentOptions options;
    options.rates[lose] = 0.1;
    const std::vector<std::uint32_t> of_one = lost_of(options);
    options.seeds[duplicate] = 2;
    EXPECT_EQ(lost_of(options), of_one);
    options.seeds[lose] = 2;
    const std::vector<std::uint32_t> of_two = lost_of(options);
    EXPECT_NE(of_two, of_one);
    options.seed = 3;
    EXPECT_EQ(lost_of(options), of_two);
    // As if all had it.
    EXPECT_EQ(lost_of({.seed = 2, .rates = options.rates}), of_two);
}

TEST(Impairments, ASeedThatIsSetBeginsTheNumbersAnew) {
    Stage stage("lose", 0.1, 5);
    NumberedFrames source;
    Impairments other(source);
    other.set("lose", 0.9);
    for (int i = 0; i < 100; ++i) {
        static_cast<void>(other.next());
    }
    const auto begin = static_cast<std::uint32_t>(other.taken());
    other.set("lose", 0.1, 5);
    EXPECT_EQ(other.seed(Impairment::lose), 5U);
    EXPECT_EQ(other.seed(Impairment::swap), 1U);
    for (int i = 0; i < 1000; ++i) {
        const std::uint32_t number = test::read_frame(test::bytes_of(other.next())).seq;
        ASSERT_EQ(number - begin, stage.next().seq);
    }
}

}  // namespace
}  // namespace kova::sim
