// What a card does by itself: its memory's wait, its verdict on software, its counters, silent feeds, and the
// loss of its power. Time passes when the test says so.

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "sim/card/attached_card.h"
#include "sim/card/in_process_card.h"
#include "sim/card/registers.h"

namespace kova::sim {
namespace {

using namespace std::chrono_literals;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kStart = 77 * kSecond;

constexpr const char* kMemoryReady = "0 0 1 0 0 0";

class CardLife : public ::testing::Test {
 protected:
    void write(std::uint32_t number, std::uint32_t value) { write_register(card_.memory(), number, value); }
    [[nodiscard]] std::uint64_t read(std::uint32_t number) const {
        return read_register(card_.memory(), number);
    }

    // The words of the events that have come since the last time.
    std::vector<std::string> events() {
        std::vector<std::string> events;
        while (reader_->poll([&events](const std::uint8_t* data, std::uint32_t size) {
            std::uint32_t words[8] = {};
            std::memcpy(words, data, std::min<std::size_t>(size, sizeof words));
            std::string text = words[0] == 0 && size == 32 ? "" : "no event ";
            for (int i = 2; i < 8; ++i) {
                text += (i == 2 ? "" : " ") + std::to_string(words[i]);
            }
            events.push_back(text);
        }) == 1) {
        }
        return events;
    }

    using Events = std::vector<std::string>;

    Card card_ = Card::power_on_privately(0, {.slots_log2 = 6});
    std::unique_ptr<CardToHostStream> reader_ = CardToHostStream::open(attach(0), 0);
};

TEST_F(CardLife, MemoryIsReadyTwoSecondsAfterAnInitialisationAndSaysSo) {
    write(0x10, 1);
    card_.tick(kStart);
    EXPECT_EQ(read(0x2032), 0U);
    card_.tick(kStart + 2 * kSecond - 1);
    EXPECT_EQ(read(0x2032), 0U);
    EXPECT_EQ(events(), Events{});
    card_.tick(kStart + 2 * kSecond);
    EXPECT_EQ(read(0x2032), 3U);
    EXPECT_EQ(events(), Events{kMemoryReady});
    card_.tick(kStart + 9 * kSecond);
    EXPECT_EQ(events(), Events{});
}

TEST_F(CardLife, AnotherInitialisationBeginsTheWaitAnew) {
    write(0x10, 1);
    card_.tick(kStart);
    card_.tick(kStart + 2 * kSecond);
    write(0x10, 1);
    EXPECT_EQ(read(0x2032), 0U);
    card_.tick(kStart + 3 * kSecond);
    write(0x10, 1);
    card_.tick(kStart + 5 * kSecond);
    EXPECT_EQ(read(0x2032), 0U);
    card_.tick(kStart + 7 * kSecond);
    EXPECT_EQ(read(0x2032), 3U);
    EXPECT_EQ(events(), (Events{kMemoryReady, kMemoryReady}));
}

TEST_F(CardLife, MemoryThatNeverGetsReadyMayBeToldToMeanwhile) {
    card_.set_memory_delay(std::nullopt);
    write(0x10, 1);
    card_.tick(kStart);
    card_.tick(kStart + 1'000'000 * kSecond);
    EXPECT_EQ(read(0x2032), 0U);
    card_.set_memory_delay(500ms);
    card_.tick(kStart + 1'000'000 * kSecond);
    EXPECT_EQ(read(0x2032), 3U);
}

TEST_F(CardLife, OtherValuesBeginNothing) {
    write(0x10, 2);
    write(0x10, 0);
    card_.tick(kStart);
    card_.tick(kStart + 9 * kSecond);
    EXPECT_EQ(read(0x2032), 0U);
    EXPECT_EQ(events(), Events{});
}

TEST_F(CardLife, SoftwareIsJudgedByTheVersionItTells) {
    EXPECT_EQ(read(0x103), 0U);
    write(0x102, 0x01010133);
    EXPECT_EQ(read(0x103), 1U);
    write(0x102, 0x01010132);
    EXPECT_EQ(read(0x103), 2U);
    write(0x102, 0x02000000);
    EXPECT_EQ(read(0x103), 1U);
}

TEST(CardOptionsTest, VersionsAreThoseOfTheOptions) {
    const Card card = Card::power_on_privately(
        0, {.slots_log2 = 6, .hardware_version = 0x20270101, .least_software = 0x01010140});
    EXPECT_EQ(read_register(card.memory(), 0x101), 0x20270101U);
    write_register(card.memory(), 0x102, 0x01010133);
    EXPECT_EQ(read_register(card.memory(), 0x103), 2U);
}

TEST_F(CardLife, EventsAreCounted) {
    card_.push_event(0, lost_event(INE_2PS));
    card_.push_event(0, price_event(SHFE_4PS));
    card_.push_event(0, timeout_event(INE_4PS));
    EXPECT_EQ(read(0x1207), 3U);
    // 0x80 in byte 2, 0x04 in byte 1, 0x40 in byte 3.
    EXPECT_EQ(events(), (Events{"8388608 0 0 0 0 0", "0 1024 0 0 0 0", "1073741824 0 0 0 0 0"}));
}

TEST_F(CardLife, PacketsOfAStartedCoreAreCountedAndTellWhenTheyCame) {
    const KovaShfeMdType quote{};
    card_.set_exchange_time(1'731'891'600);
    card_.route_quote(INE_2PS, quote);
    EXPECT_EQ(read(0x1230) + read(0x2042), 0U);
    write(0x11120, 1);
    card_.route_quote(INE_2PS, quote);
    EXPECT_EQ(read(0x1230), 1U);
    EXPECT_EQ(read(0x2042), 1'731'891'600U);
    EXPECT_EQ(read(0x2040), 0U);
    write(0x10, 1);
    card_.set_exchange_time(1'731'891'700);
    card_.route_quote(INE_2PS, quote);
    EXPECT_EQ(read(0x1230), 1U);
    EXPECT_EQ(read(0x2042), 1'731'891'600U);
}

TEST_F(CardLife, FeedThatIsSilentForTheIntervalIsToldOnce) {
    write(0x11112, 5);
    write(0x11100, 0xEF032A47);  // SHFE 2PS, A line
    write(0x11105, 0xEF043448);  // INE 2PS, B line
    write(0x11120, 1);
    card_.tick(kStart);
    card_.tick(kStart + 3 * kSecond);
    card_.route_quote(INE_2PS, KovaShfeMdType{});
    card_.tick(kStart + 4 * kSecond);
    card_.tick(kStart + 5 * kSecond - 1);
    EXPECT_EQ(events(), Events{});
    card_.tick(kStart + 5 * kSecond);
    EXPECT_EQ(events(), Events{"64 0 0 0 0 0"});  // SHFE 2PS: byte 0
    card_.tick(kStart + 8 * kSecond);
    EXPECT_EQ(events(), Events{});
    card_.tick(kStart + 9 * kSecond);
    EXPECT_EQ(events(), Events{"4194304 0 0 0 0 0"});  // INE 2PS: byte 2
    card_.route_quote(SHFE_2PS, KovaShfeMdType{});
    card_.tick(kStart + 20 * kSecond);
    card_.tick(kStart + 25 * kSecond);
    EXPECT_EQ(events(), Events{"64 0 0 0 0 0"});
}

TEST_F(CardLife, SilenceIsNotWatchedWithoutACoreAGroupOrAnInterval) {
    std::int64_t now = kStart;
    const auto is_silence_told = [&] {
        for (int second = 0; second < 20; ++second) {
            card_.tick(now += kSecond);
        }
        return !events().empty();
    };
    write(0x11100, 1);
    write(0x11112, 5);
    EXPECT_FALSE(is_silence_told());  // no core
    write(0x11120, 1);
    write(0x11100, 0);
    EXPECT_FALSE(is_silence_told());  // no group
    write(0x11100, 1);
    write(0x11112, 0);
    EXPECT_FALSE(is_silence_told());  // no interval
    write(0x11112, 0xFFFFFFFF);
    now += 0xFFFFFFFF * kSecond;
    EXPECT_FALSE(is_silence_told());  // none wanted
    card_.tick(now += 0xFFFFFFFF * kSecond);
    EXPECT_FALSE(is_silence_told());
    write(0x11112, 5);
    EXPECT_TRUE(is_silence_told());
}

TEST_F(CardLife, PowerCycleForgetsEverythingButTheStreams) {
    SInstTableType row{};
    row.config = 0x80000001;
    card_.set_row(SHFE_2PS, 3, row);
    write(0x1001, 0x12345678);
    write(0x11120, 1);
    write(0x1000, 0xF);
    write(0x11001, 1);
    write(0x11000, 0xFFFFFFFF);
    card_.push_event(0, lost_event(SHFE_2PS));
    write(0x10, 1);
    card_.tick(kStart);
    card_.power_cycle();
    EXPECT_EQ(read(0x1001) + read(0x11120) + read(0x1000) + read(0x1207) + read(0x10), 0U);
    EXPECT_EQ(read(0x4), 0x10121U);
    EXPECT_EQ(read(0x101), 0x20260420U);
    EXPECT_FALSE(card_.is_forwarding());
    write(0x11002, 3 * 64);
    EXPECT_EQ(read(0x11003), 0U);
    write(0x11001, 7);
    write(0x11000, 3 * 64);  // open for software
    write(0x11002, 3 * 64);
    EXPECT_EQ(read(0x11003), 7U);
    card_.tick(kStart + 9 * kSecond);  // the wait is forgotten too
    EXPECT_EQ(events(), Events{"128 0 0 0 0 0"});
}

TEST(InProcessCardTest, MemoryIsReadyAtOnceAndAPresetValueStays) {
    InProcessCard card;
    write_register(card->memory(), 0x10, 1);
    EXPECT_EQ(read_register(card->memory(), 0x2032), 3U);
    card.preset(0x2032, 1);
    card.preset(0x103, 2);
    write_register(card->memory(), 0x10, 1);
    write_register(card->memory(), 0x102, 0x01010133);
    card->tick(kStart);
    EXPECT_EQ(read_register(card->memory(), 0x2032), 1U);
    EXPECT_EQ(read_register(card->memory(), 0x103), 2U);
}

}  // namespace
}  // namespace kova::sim
