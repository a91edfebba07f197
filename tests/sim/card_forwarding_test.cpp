// Snapshot frames on their way through the card.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "sim/card/attached_card.h"
#include "sim/card/card.h"
#include "sim/card/registers.h"

namespace kova::sim {
namespace {

std::vector<std::byte> bytes(const std::string& text) {
    const auto* first = reinterpret_cast<const std::byte*>(text.data());
    return {first, first + text.size()};
}

class CardForwarding : public ::testing::Test {
 protected:
    void write(std::uint32_t number, std::uint32_t value) { write_register(card_.memory(), number, value); }

    // The next message of channel 0; "none" without one.
    std::string take() {
        std::string message = "none";
        reader_->poll([&message](const std::uint8_t* data, std::uint32_t size) {
            message.assign(reinterpret_cast<const char*>(data), size);
        });
        return message;
    }

    Card card_ = Card::power_on_privately(0, {.slots_log2 = 6});
    std::unique_ptr<CardToHostStream> reader_ = CardToHostStream::open(attach(0), 0);
};

TEST_F(CardForwarding, IsClosedOnAFreshCard) {
    EXPECT_FALSE(card_.is_forwarding());
    EXPECT_EQ(card_.forward_frame(bytes("frame")), Forwarded::kClosed);
    EXPECT_EQ(take(), "none");
    EXPECT_EQ(card_.memory().forwarding.withheld, 1U);
    EXPECT_EQ(card_.memory().forwarding.forwarded, 0U);
}

TEST_F(CardForwarding, FrameComesBehindTwelveBytes) {
    write(0x1000, 0xF);
    EXPECT_EQ(card_.forward_frame(bytes("frame")), Forwarded::kSent);
    EXPECT_EQ(take(), std::string("\2\0\0\0\x09\0\0\0\0\0\0\0frame", 17));
    EXPECT_EQ(take(), "none");
    EXPECT_EQ(card_.memory().forwarding.forwarded, 1U);
}

TEST_F(CardForwarding, LongFrameComesWhole) {
    write(0x1000, 0xF);
    const std::string frame = std::string(1500, 'a') + std::string(14, 'z');
    EXPECT_EQ(card_.forward_frame(bytes(frame)), Forwarded::kSent);
    const std::string message = take();
    ASSERT_EQ(message.size(), 12U + 1514);
    EXPECT_EQ(message.substr(0, 12), std::string("\2\0\0\0\xEE\x05\0\0\0\0\0\0", 12));
    EXPECT_EQ(message.substr(12), frame);
}

TEST_F(CardForwarding, MessageOfACaptureComesAsItIs) {
    write(0x1000, 0xF);
    const std::string message("\2\0\0\0\x77\0\0\0wordframe", 17);
    EXPECT_EQ(card_.forward_message(bytes(message)), Forwarded::kSent);
    EXPECT_EQ(take(), message);
    write(0x1000, 0);
    EXPECT_EQ(card_.forward_message(bytes(message)), Forwarded::kClosed);
    EXPECT_EQ(take(), "none");
}

TEST_F(CardForwarding, OnlyFifteenOpensIt) {
    for (const std::uint32_t value : {1U, 7U, 0x1FU, 0xFFFFFFFFU}) {
        write(0x1000, value);
        EXPECT_FALSE(card_.is_forwarding()) << value;
    }
    write(0x1000, 0xF);
    EXPECT_TRUE(card_.is_forwarding());
    write(0x1000, 0);
    EXPECT_FALSE(card_.is_forwarding());
}

TEST_F(CardForwarding, EveryOpeningIsCountedOnce) {
    EXPECT_EQ(card_.forwarding_openings(), 0U);
    write(0x1000, 0xF);
    write(0x1000, 0xF);
    EXPECT_EQ(card_.forwarding_openings(), 1U);
    write(0x1000, 0);
    write(0x1000, 0xF);
    EXPECT_EQ(card_.forwarding_openings(), 2U);
}

TEST_F(CardForwarding, InitialisationEndsIt) {
    write(0x1000, 0xF);
    write(0x10, 1);
    EXPECT_FALSE(card_.is_forwarding());
    EXPECT_EQ(read_register(card_.memory(), 0x1000), 0U);
    write(0x1000, 0xF);
    EXPECT_EQ(card_.forwarding_openings(), 2U);
}

TEST_F(CardForwarding, FrameThatNoMessageHoldsIsRefused) {
    write(0x1000, 0xF);
    EXPECT_EQ(card_.forward_frame(std::vector<std::byte>(4084)), Forwarded::kSent);
    EXPECT_EQ(card_.forward_frame(std::vector<std::byte>(4085)), Forwarded::kTooLong);
    EXPECT_EQ(card_.forward_message(std::vector<std::byte>(4097)), Forwarded::kTooLong);
    EXPECT_EQ(take().size(), 4096U);
    EXPECT_EQ(take(), "none");
}

TEST_F(CardForwarding, WithoutAReaderFramesAreUnheard) {
    write(0x1000, 0xF);
    reader_.reset();
    EXPECT_TRUE(card_.has_room_for_frame(4084));
    EXPECT_EQ(card_.forward_frame(bytes("frame")), Forwarded::kUnheard);
    EXPECT_EQ(card_.memory().forwarding.forwarded, 0U);
    EXPECT_EQ(card_.memory().channels[0].card_to_host.unheard, 1U);
}

// A ring of 64 slots of 192 bytes, one of which stays free: 4084 bytes take 22 of them.
TEST_F(CardForwarding, RoomIsToldBeforeAFrameIsLost) {
    write(0x1000, 0xF);
    const std::vector<std::byte> longest(4084);
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(card_.has_room_for_frame(longest.size()));
        EXPECT_EQ(card_.forward_frame(longest), Forwarded::kSent);
    }
    EXPECT_FALSE(card_.has_room_for_frame(longest.size()));
    EXPECT_TRUE(card_.has_room_for_frame(100));
    EXPECT_EQ(card_.forward_frame(longest), Forwarded::kLost);
    EXPECT_EQ(card_.memory().channels[0].card_to_host.lost, 1U);
    take();
    take();
    EXPECT_EQ(take(), "none");
    EXPECT_TRUE(card_.has_room_for_frame(longest.size()));
    EXPECT_EQ(card_.forward_frame(longest), Forwarded::kSent);
}

TEST_F(CardForwarding, PacketNumbersOfTheSnapshotAreKept) {
    write(0x11110, 11);
    write(0x11111, 22);
    write(0x21110, 33);
    write(0x21111, 44);
    EXPECT_EQ(read_register(card_.memory(), 0x11110), 11U);
    EXPECT_EQ(read_register(card_.memory(), 0x11111), 22U);
    EXPECT_EQ(read_register(card_.memory(), 0x21110), 33U);
    EXPECT_EQ(read_register(card_.memory(), 0x21111), 44U);
}

}  // namespace
}  // namespace kova::sim
