#include "kova_simcard/replay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "sim/card/attached_card.h"
#include "sim/card/registers.h"

namespace kova::app {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kStart = 123'456'789'012;

// A capture of the test's own: each record is a text and the time before it.
struct Frame {
    std::string text;
    std::chrono::nanoseconds gap{};
    sim::CaptureRecord::Kind kind = sim::CaptureRecord::Kind::kFrame;
};

class ScriptedCapture final : public sim::CaptureFile {
 public:
    explicit ScriptedCapture(std::vector<Frame> frames) : frames_(std::move(frames)) {}

    std::optional<sim::CaptureRecord> next() override {
        if (at_ == frames_.size()) {
            return std::nullopt;
        }
        const Frame& frame = frames_[at_++];
        if (frame.text == "damaged") {
            throw sim::CaptureError("a.pcap: record 2: damaged");
        }
        return sim::CaptureRecord{
            .kind = frame.kind, .bytes = std::as_bytes(std::span(frame.text)), .gap = frame.gap};
    }
    void rewind() override { at_ = 0; }
    std::uint64_t skipped() const override { return 4; }

 private:
    std::vector<Frame> frames_;
    std::size_t at_ = 0;
};

class SimcardReplay : public ::testing::Test {
 protected:
    std::unique_ptr<Replay> replay(std::vector<Frame> frames, ReplaySpeed speed = 1, bool repeat = false) {
        return std::make_unique<Replay>(card_, std::make_unique<ScriptedCapture>(std::move(frames)),
                                        ReplayPlan{.name = "a.pcap", .speed = speed, .repeat = repeat});
    }

    void open_forwarding() { sim::write_register(card_.memory(), 0x1000, 0xF); }
    void close_forwarding() { sim::write_register(card_.memory(), 0x1000, 0); }

    // What has come since the last time, without the twelve bytes before each frame.
    std::vector<std::string> take() {
        std::vector<std::string> frames;
        while (reader_->poll([&frames](const std::uint8_t* data, std::uint32_t size) {
            frames.emplace_back(reinterpret_cast<const char*>(data) + 12, size - 12);
        }) == 1) {
        }
        return frames;
    }

    sim::Card card_ = sim::Card::power_on_privately(0, {.slots_log2 = 6});
    std::unique_ptr<sim::CardToHostStream> reader_ = sim::CardToHostStream::open(sim::attach(0), 0);
};

TEST_F(SimcardReplay, WaitsForForwardingAndStartsAtTheBeginning) {
    const auto one = replay({{"a"}, {"b"}});
    one->step(kStart);
    EXPECT_EQ(one->next(), kStart + 5 * kMillisecond);
    EXPECT_THAT(take(), IsEmpty());
    open_forwarding();
    one->step(kStart + 100 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("a", "b"));
    EXPECT_EQ(one->totals(), (ReplayTotals{.sent = 2, .too_long = 0}));
}

TEST_F(SimcardReplay, KeepsTheRecordedTimes) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 2ms}, {"c", 1s}});
    one->step(kStart);
    EXPECT_THAT(take(), ElementsAre("a"));
    EXPECT_EQ(one->next(), kStart + 2 * kMillisecond);
    one->step(kStart + 2 * kMillisecond - 1);
    EXPECT_THAT(take(), IsEmpty());
    one->step(kStart + 2 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("b"));
    one->step(kStart + 1002 * kMillisecond - 1);
    EXPECT_THAT(take(), IsEmpty());
    one->step(kStart + 1002 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("c"));
}

TEST_F(SimcardReplay, LateStepDoesNotDelayWhatComesBehind) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 2ms}, {"c", 2ms}});
    one->step(kStart);
    one->step(kStart + 3 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("a", "b"));
    EXPECT_EQ(one->next(), kStart + 4 * kMillisecond);
}

TEST_F(SimcardReplay, SpeedDividesTheTimes) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 10ms}, {"c", 10ms}}, 4);
    one->step(kStart);
    EXPECT_EQ(one->next(), kStart + 2'500'000);
    one->step(kStart + 5 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("a", "b", "c"));
}

TEST_F(SimcardReplay, WithoutASpeedTimesDoNotMatter) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 10ms}, {"c", 24h}}, std::nullopt);
    one->step(kStart);
    EXPECT_THAT(take(), ElementsAre("a", "b", "c"));
}

TEST_F(SimcardReplay, LongSilenceIsLookedAfterMeanwhile) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 24h}}, 0.001);
    one->step(kStart);
    EXPECT_EQ(one->next(), kStart + 5 * kMillisecond);
    one->step(kStart + 5 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("a"));
}

TEST_F(SimcardReplay, EachOpeningPlaysItOnceFromTheBeginning) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 1ms}, {"c", 1ms}});
    one->step(kStart);
    one->step(kStart + kMillisecond);
    EXPECT_THAT(take(), ElementsAre("a", "b"));
    close_forwarding();
    one->step(kStart + 2 * kMillisecond);
    EXPECT_THAT(take(), IsEmpty());
    open_forwarding();
    one->step(kStart + 10 * kMillisecond);
    one->step(kStart + 12 * kMillisecond);
    one->step(kStart + 20 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("a", "b", "c"));
    one->step(kStart + 30 * kMillisecond);
    EXPECT_THAT(take(), IsEmpty());
}

TEST_F(SimcardReplay, OpeningBetweenTwoStepsIsNoticed) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 1ms}});
    one->step(kStart);
    close_forwarding();
    open_forwarding();
    one->step(kStart + 1);
    EXPECT_THAT(take(), ElementsAre("a", "a"));
}

TEST_F(SimcardReplay, RepeatsWithoutAPause) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 1ms}}, 1, true);
    one->step(kStart);
    EXPECT_THAT(take(), ElementsAre("a"));
    one->step(kStart + kMillisecond);
    EXPECT_THAT(take(), ElementsAre("b", "a"));
    one->step(kStart + 2 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("b", "a"));
}

TEST_F(SimcardReplay, RepeatingAtFullSpeedLeavesTheOthersTheirTurn) {
    open_forwarding();
    const auto one = replay({{"x"}}, std::nullopt, true);
    std::uint64_t taken = 0;
    for (int i = 0; i < 1000; ++i) {
        one->step(kStart + i);
        taken += take().size();
    }
    EXPECT_GT(taken, 10'000U);
    EXPECT_EQ(one->totals().sent, taken);
}

TEST_F(SimcardReplay, EmptyCaptureEndsEvenWhenItRepeats) {
    open_forwarding();
    const auto one = replay({}, std::nullopt, true);
    one->step(kStart);
    EXPECT_EQ(one->next(), kStart + 5 * kMillisecond);
}

// The ring has 64 slots, one of which stays free; each of these frames takes 10.
TEST_F(SimcardReplay, WaitsForRoomAndLosesNothing) {
    open_forwarding();
    std::vector<Frame> frames;
    for (char letter = 'a'; letter < 'a' + 20; ++letter) {
        frames.push_back({std::string(1800, letter)});
    }
    const auto one = replay(frames, std::nullopt);
    std::string letters;
    std::int64_t now = kStart;
    for (int turn = 0; turn < 10; ++turn) {
        one->step(now);
        EXPECT_LE(one->next(), now + 5 * kMillisecond);
        now += kMillisecond;
        for (const std::string& frame : take()) {
            letters.push_back(frame.front());
        }
    }
    EXPECT_EQ(letters, "abcdefghijklmnopqrst");
    EXPECT_EQ(card_.memory().channels[0].card_to_host.lost, 0U);
}

TEST_F(SimcardReplay, LooksOftenWhileThereIsNoRoom) {
    open_forwarding();
    const auto one = replay(std::vector<Frame>(10, Frame{std::string(1800, 'x')}), std::nullopt);
    one->step(kStart);
    EXPECT_EQ(one->next(), kStart + 20'000);
}

TEST_F(SimcardReplay, WaitsWhileNobodyReadsTheChannel) {
    open_forwarding();
    const auto one = replay({{"a"}, {"b", 1ms}, {"c", 7ms}});
    one->step(kStart);
    EXPECT_THAT(take(), ElementsAre("a"));
    reader_.reset();
    one->step(kStart + 500 * kMillisecond);
    EXPECT_EQ(card_.memory().channels[0].card_to_host.unheard, 0U);
    reader_ = sim::CardToHostStream::open(sim::attach(0), 0);
    one->step(kStart + 505 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("b"));
    // The time before "c" counts from when it could go on.
    one->step(kStart + 506 * kMillisecond);
    EXPECT_THAT(take(), IsEmpty());
    one->step(kStart + 512 * kMillisecond);
    EXPECT_THAT(take(), ElementsAre("c"));
}

TEST_F(SimcardReplay, FrameThatNoMessageHoldsIsLeftOut) {
    open_forwarding();
    const auto one = replay({{"a"}, {std::string(200'000, 'x')}, {"b"}});
    one->step(kStart);
    EXPECT_THAT(take(), ElementsAre("a", "b"));
    EXPECT_EQ(one->totals(), (ReplayTotals{.sent = 2, .too_long = 1}));
}

TEST_F(SimcardReplay, MessagesAreSentAsTheyAre) {
    open_forwarding();
    const auto one = replay({{"0123456789abFRAME", {}, sim::CaptureRecord::Kind::kMessage}});
    one->step(kStart);
    std::string message;
    reader_->poll([&message](const std::uint8_t* data, std::uint32_t size) {
        message.assign(reinterpret_cast<const char*>(data), size);
    });
    EXPECT_EQ(message, "0123456789abFRAME");
}

TEST_F(SimcardReplay, TellsWhenItBeginsAndWhenItIsOver) {
    const auto one = replay({{"a"}, {"b"}});
    one->step(kStart);
    EXPECT_THAT(one->take_news(), IsEmpty());
    open_forwarding();
    one->step(kStart + 1);
    EXPECT_THAT(one->take_news(),
                ElementsAre(News{false, "replay of a.pcap begins"},
                            News{false, "replay of a.pcap is over: 2 sent, 0 too long, 4 of another kind"}));
    one->step(kStart + 2);
    EXPECT_THAT(one->take_news(), IsEmpty());
}

TEST_F(SimcardReplay, DamageIsToldOnceAndEndsIt) {
    open_forwarding();
    const auto one = replay({{"a"}, {"damaged"}, {"b"}}, 1, true);
    one->step(kStart);
    one->step(kStart + kMillisecond);
    EXPECT_THAT(take(), ElementsAre("a"));
    EXPECT_THAT(one->take_news(),
                ElementsAre(News{false, "replay of a.pcap begins"}, News{true, "a.pcap: record 2: damaged"}));
}

}  // namespace
}  // namespace kova::app
