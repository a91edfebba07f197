#include "kova_simcard/snapshot_sender.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "sim/card/attached_card.h"
#include "sim/card/registers.h"
#include "sim/exchange/listing.h"

namespace kova::app {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::string_literals;

constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kStart = 123'456'789'012;

class SimcardSnapshot : public ::testing::Test {
 protected:
    void write(std::uint32_t number, std::uint32_t value) {
        sim::write_register(card_.memory(), number, value);
    }

    // What has come since the last time: frames behind 12 bytes of the card's message.
    std::vector<std::string> take() {
        constexpr std::size_t kHeader = 12;
        std::vector<std::string> frames;
        while (reader_->poll([&frames](const std::uint8_t* data, std::uint32_t size) {
            frames.emplace_back(reinterpret_cast<const char*>(data) + kHeader, size - kHeader);
        }) == 1) {
        }
        return frames;
    }

    // What a segment carries: behind 14 bytes of Ethernet, 20 of IP and 20 of TCP.
    static std::string payload(const std::string& frame) { return frame.substr(14 + 20 + 20); }

    static std::string text_of(std::span<const std::byte> frame) {
        return {reinterpret_cast<const char*>(frame.data()), frame.size()};
    }

    sim::Listing listing_ = sim::Listing::make({.shfe = 40, .ine = 4});
    sim::Market market_{listing_};
    sim::Card card_ = sim::Card::power_on_privately(0, {.slots_log2 = 12});
    std::unique_ptr<sim::CardToHostStream> reader_ = sim::CardToHostStream::open(sim::attach(0), 0);
};

TEST_F(SimcardSnapshot, SendsNothingBeforeForwardingIsOpen) {
    SnapshotSender sender(card_, market_, {});
    sender.step(kStart);
    EXPECT_THAT(take(), IsEmpty());
    EXPECT_EQ(sender.next(), kStart + 5 * kMillisecond);
    EXPECT_EQ(sender.stream().frames(), 0U);
}

TEST_F(SimcardSnapshot, SendsAtItsRate) {
    SnapshotSender sender(card_, market_, {.rate = 2000});
    write(0x1000, 0xF);
    std::size_t frames = 0;
    for (std::int64_t elapsed = 0; elapsed < 100; ++elapsed) {
        sender.step(kStart + elapsed * kMillisecond);
        frames += take().size();
    }
    EXPECT_NEAR(static_cast<double>(frames), 200, 3);
}

TEST_F(SimcardSnapshot, EachOpeningBeginsWithACycleAndTheConnectionGoesOn) {
    SnapshotSender sender(card_, market_, {.rate = 1000});
    write(0x1000, 0xF);
    sender.step(kStart);
    const std::vector<std::string> first = take();
    ASSERT_EQ(first.size(), 1U);
    sender.step(kStart + 2 * kMillisecond);
    static_cast<void>(take());
    write(0x1000, 0);
    sender.step(kStart + 10 * kMillisecond);
    EXPECT_THAT(take(), IsEmpty());
    EXPECT_FALSE(sender.stream().at_cycle_start());
    write(0x1000, 0xF);
    sender.step(kStart + 20 * kMillisecond);
    const std::vector<std::string> again = take();
    ASSERT_EQ(again.size(), 1U);
    // Opening messages: flag, type, 50 bytes of body; the snapshot's field with topic and number, a field of
    // nothing. The second one is of the other exchange: the cycle that was cut short counts as passed.
    const std::string nothing = "\x02\x10\x24"s + std::string(1 + 36, '\0');
    EXPECT_EQ(payload(first.front()).substr(0, 58),
              "\x11\x32\x32\0\0\0\0\0\x01\x10\x06\0\xE8\x03\x01\0\0\0"s + nothing);
    EXPECT_EQ(payload(again.front()).substr(0, 58),
              "\x11\x32\x32\0\0\0\0\0\x01\x10\x06\0\x88\x13\x01\0\0\0"s + nothing);
    EXPECT_EQ(sender.stream().cycles(SHFE_2PS), 1U);
    EXPECT_EQ(sender.stream().cycles(INE_2PS), 0U);
    EXPECT_THAT(sender.take_news(), ElementsAre(News{false, "snapshot forwarding is open"},
                                                News{false, "snapshot forwarding is closed after 3 frames"},
                                                News{false, "snapshot forwarding is open"}));
}

TEST_F(SimcardSnapshot, NothingOfAnEarlierOpeningComesInALaterOne) {
    for (const std::string name : {"delay", "retransmit", "corrupt", "swap", "duplicate", "rst"}) {
        SCOPED_TRACE(name);
        SnapshotSender sender(card_, market_, {.rate = 1000});
        sim::SnapshotStream expected(market_, {});  // without anything that befalls it
        sender.impairments().set(name, 1);
        write(0x1000, 0xF);
        for (int i = 0; i < 5; ++i) {
            sender.step(kStart + i * kMillisecond);
        }
        write(0x1000, 0);
        sender.step(kStart + 10 * kMillisecond);
        static_cast<void>(take());
        // Up to the end of the cycle that was cut short, seen or not.
        while (expected.frames() < sender.stream().frames() || !expected.at_cycle_start()) {
            static_cast<void>(expected.next());
        }
        sender.impairments().set(name, 0);
        write(0x1000, 0xF);
        std::vector<std::string> frames;
        for (int i = 20; i < 320; ++i) {
            sender.step(kStart + i * kMillisecond);
            const std::vector<std::string> more = take();
            frames.insert(frames.end(), more.begin(), more.end());
        }
        ASSERT_GT(frames.size(), 256U);
        for (std::size_t i = 0; i < frames.size(); ++i) {
            ASSERT_EQ(frames[i], text_of(expected.next())) << i;
        }
    }
}

TEST_F(SimcardSnapshot, WaitsForRoomAndLosesNothing) {
    SnapshotSender sender(card_, market_, {.rate = std::nullopt});
    write(0x1000, 0xF);
    for (int i = 0; i < 1000; ++i) {
        sender.step(kStart + i * kMillisecond);
    }
    const std::uint64_t made = sender.stream().frames();
    EXPECT_EQ(take().size(), made);
    EXPECT_EQ(card_.memory().channels[0].card_to_host.lost.load(), 0U);
    EXPECT_LT(made, 4096U / 7);  // a full segment takes eight slots or so
    sender.step(kStart + 2000 * kMillisecond);
    EXPECT_GT(sender.stream().frames(), made);
}

TEST_F(SimcardSnapshot, WaitsForAReader) {
    SnapshotSender sender(card_, market_, {});
    write(0x1000, 0xF);
    reader_.reset();
    sender.step(kStart);
    EXPECT_EQ(sender.stream().frames(), 0U);
    reader_ = sim::CardToHostStream::open(sim::attach(0), 0);
    sender.step(kStart + 5 * kMillisecond);
    EXPECT_EQ(take().size(), 1U);
}

TEST_F(SimcardSnapshot, FramesThatAreLostOnTheirWayDoNotArrive) {
    SnapshotSender sender(card_, market_, {.rate = 1000});
    sender.impairments().set("lose", 0.5);
    write(0x1000, 0xF);
    std::size_t arrived = 0;
    for (int i = 0; i < 1000; ++i) {
        sender.step(kStart + i * kMillisecond);
        arrived += take().size();
    }
    const std::uint64_t lost = sender.impairments().struck(sim::Impairment::lose);
    EXPECT_GT(lost, 700U);
    EXPECT_NEAR(static_cast<double>(arrived), 1000, 3);
    EXPECT_EQ(sender.stream().frames(), arrived + lost);
}

TEST_F(SimcardSnapshot, CyclesAreThereForTheStatus) {
    SnapshotSender sender(card_, market_, {.rate = std::nullopt});
    write(0x1000, 0xF);
    for (int i = 0; i < 20; ++i) {
        sender.step(kStart + i * kMillisecond);
        static_cast<void>(take());
    }
    EXPECT_GE(card_.memory().exchange[SHFE_2PS].cycles.load(), 2U);
    EXPECT_GE(card_.memory().exchange[INE_2PS].cycles.load(), 2U);
    EXPECT_EQ(card_.memory().exchange[SHFE_4PS].cycles.load(), 0U);
}

}  // namespace
}  // namespace kova::app
