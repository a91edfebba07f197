#include "sim/card/stream_ring.h"
#include "support/allocations.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace kova::sim {
namespace {

constexpr std::uint32_t kSlotsLog2 = 6;
constexpr std::uint32_t kReaderProcess = 4711;

// A stream in memory of this process.
class Stream {
 public:
    Stream() : slots_(std::make_unique<RingSlot[]>((std::size_t{1} << kSlotsLog2) + kOverhangSlots)) {
        std::memset(static_cast<void*>(slots_.get()), 0,
                    ((std::size_t{1} << kSlotsLog2) + kOverhangSlots) * kSlotBytes);
        format_ring(control, kSlotsLog2, kLongestMessage);
    }

    [[nodiscard]] RingWriter writer() { return {control, slots_.get()}; }
    [[nodiscard]] std::unique_ptr<RingReader> reader() {
        return std::make_unique<RingReader>(control, slots_.get(), kReaderProcess);
    }
    [[nodiscard]] RingSlot* slots() { return slots_.get(); }

    RingControl control{};

 private:
    std::unique_ptr<RingSlot[]> slots_;
};

PushResult push(RingWriter& writer, std::string_view text) {
    return writer.push(std::as_bytes(std::span(text)));
}

std::string poll(RingReader& reader) {
    std::string text = "nothing";
    reader.poll([&text](const std::uint8_t* data, std::uint32_t size) {
        text.assign(reinterpret_cast<const char*>(data), size);
    });
    return text;
}

TEST(StreamRing, AQuoteMessageTakesOneSlotAndOneByteMoreTakesTwo) {
    EXPECT_EQ(slots_of(0), 1U);
    EXPECT_EQ(slots_of(184), 1U);
    EXPECT_EQ(slots_of(185), 2U);
    EXPECT_EQ(slots_of(kLongestMessage), 22U);
}

TEST(StreamRing, DeliversMessagesInOrderWhereTheyLie) {
    Stream stream;
    RingWriter writer = stream.writer();
    const auto reader = stream.reader();
    EXPECT_EQ(push(writer, "one"), PushResult::kSent);
    EXPECT_EQ(push(writer, "two"), PushResult::kSent);
    const std::uint8_t* place = nullptr;
    EXPECT_EQ(reader->poll([&place](const std::uint8_t* data, std::uint32_t) { place = data; }), 1);
    EXPECT_EQ(place, reinterpret_cast<const std::uint8_t*>(stream.slots()) + 8);
    EXPECT_EQ(poll(*reader), "two");
    EXPECT_EQ(poll(*reader), "nothing");
}

TEST(StreamRing, AnEmptyPollReturnsZeroAndCallsNobody) {
    Stream stream;
    const auto reader = stream.reader();
    bool called = false;
    EXPECT_EQ(reader->poll([&called](const std::uint8_t*, std::uint32_t) { called = true; }), 0);
    EXPECT_FALSE(called);
}

TEST(StreamRing, AFullRingLosesTheNewestAndKeepsTheOldest) {
    Stream stream;
    RingWriter writer = stream.writer();
    const auto reader = stream.reader();
    for (int i = 0; i < 63; ++i) {
        ASSERT_EQ(push(writer, std::to_string(i)), PushResult::kSent);
    }
    EXPECT_EQ(push(writer, "newest"), PushResult::kLost);
    EXPECT_EQ(push(writer, "newer still"), PushResult::kLost);
    EXPECT_EQ(stream.control.lost, 2U);
    EXPECT_EQ(stream.control.sent, 63U);
    for (int i = 0; i < 63; ++i) {
        ASSERT_EQ(poll(*reader), std::to_string(i));
    }
    EXPECT_EQ(poll(*reader), "nothing");
    EXPECT_EQ(push(writer, "after"), PushResult::kSent);
    EXPECT_EQ(poll(*reader), "after");
}

TEST(StreamRing, MessagesWithoutAReaderAreUnheardAndNotSent) {
    Stream stream;
    RingWriter writer = stream.writer();
    EXPECT_EQ(push(writer, "early"), PushResult::kUnheard);
    const auto reader = stream.reader();
    EXPECT_EQ(poll(*reader), "nothing");
    EXPECT_EQ(stream.control.unheard, 1U);
    EXPECT_EQ(stream.control.sent, 0U);
}

TEST(StreamRing, AReaderOpensBehindWhatAnEarlierOneLeft) {
    Stream stream;
    RingWriter writer = stream.writer();
    {
        const auto first = stream.reader();
        push(writer, "taken");
        push(writer, "left");
        push(writer, "left too");
        ASSERT_EQ(poll(*first), "taken");
    }
    const auto second = stream.reader();
    EXPECT_EQ(poll(*second), "nothing");
    push(writer, "new");
    EXPECT_EQ(poll(*second), "new");
    EXPECT_EQ(poll(*second), "nothing");
    EXPECT_EQ(stream.control.sent, 4U);
    EXPECT_EQ(stream.control.taken, 2U);
    EXPECT_EQ(stream.control.abandoned, 2U);
}

TEST(StreamRing, AReaderThatHasClosedTouchesNothingOfItsSuccessor) {
    Stream stream;
    RingWriter writer = stream.writer();
    auto first = stream.reader();
    push(writer, "taken");
    ASSERT_EQ(poll(*first), "taken");
    first->close();
    const auto second = stream.reader();
    for (int i = 0; i < 40; ++i) {
        push(writer, "m");
        ASSERT_EQ(poll(*second), "m");
    }
    EXPECT_EQ(poll(*second), "nothing");
    first.reset();
    EXPECT_EQ(stream.control.consumed, 41U);
    EXPECT_EQ(stream.control.taken, 41U);
    EXPECT_EQ(stream.control.reader >> 32, kReaderProcess);
    // Everything has been taken, so the ring has room in all slots but the one that stays free.
    for (int i = 0; i < 63; ++i) {
        ASSERT_EQ(push(writer, "m"), PushResult::kSent);
    }
}

TEST(StreamRing, TakenIsExactOnceTheReaderHasFoundNothing) {
    Stream stream;
    RingWriter writer = stream.writer();
    const auto reader = stream.reader();
    for (int i = 0; i < 5; ++i) {
        push(writer, "m");
        poll(*reader);
    }
    EXPECT_EQ(poll(*reader), "nothing");
    EXPECT_EQ(stream.control.taken, 5U);
    EXPECT_EQ(stream.control.consumed, 5U);
}

TEST(StreamRing, TheReaderIsNamedWhileItHasTheStreamOpen) {
    Stream stream;
    EXPECT_EQ(stream.control.reader, 0U);
    auto reader = stream.reader();
    EXPECT_EQ(stream.control.reader >> 32, kReaderProcess);
    reader.reset();
    EXPECT_EQ(stream.control.reader, 0U);
}

TEST(StreamRing, LongMessagesLieInOnePieceAlsoAcrossTheEnd) {
    Stream stream;
    RingWriter writer = stream.writer();
    const auto reader = stream.reader();
    // 22 slots each: the third starts at slot 44 and runs over the end at 64.
    for (char letter = 'a'; letter < 'z'; ++letter) {
        const std::string text(kLongestMessage, letter);
        ASSERT_EQ(push(writer, text), PushResult::kSent);
        ASSERT_EQ(poll(*reader), text);
    }
}

TEST(StreamRing, BytesOfALongMessageAreNeverTakenForAMessage) {
    Stream stream;
    RingWriter writer = stream.writer();
    const auto reader = stream.reader();
    // Every word of the message is the number of the next lap, so that each slot it ran over looks written
    // then.
    std::array<std::uint32_t, kLongestMessage / 4> words{};
    for (std::uint32_t lap = 1; lap < 20; ++lap) {
        words.fill(lap + 1);
        ASSERT_EQ(writer.push(std::as_bytes(std::span(words))), PushResult::kSent);
        ASSERT_EQ(poll(*reader).size(), kLongestMessage);
        for (int i = 0; i < 42; ++i) {
            ASSERT_EQ(poll(*reader), "nothing");
            ASSERT_EQ(push(writer, "short"), PushResult::kSent);
            ASSERT_EQ(poll(*reader), "short");
            ASSERT_EQ(poll(*reader), "nothing");
        }
    }
}

TEST(StreamRing, AWriterWithoutMemoryForALongMessageHasWrittenNothing) {
    Stream stream;
    RingWriter writer = stream.writer();
    const auto reader = stream.reader();
    std::array<std::uint32_t, kLongestMessage / 4> words{};
    words.fill(1);  // the first lap
    {
        const kova::test::Allocations::FailNth failure(1, kova::test::Allocations::Sdk::kCounted);
        EXPECT_THROW(writer.push(std::as_bytes(std::span(words))), std::bad_alloc);
    }
    EXPECT_EQ(push(writer, "short"), PushResult::kSent);
    EXPECT_EQ(poll(*reader), "short");
    EXPECT_EQ(poll(*reader), "nothing");
}

TEST(StreamRing, AMessageLongerThanAnyIsRefusedByTheReader) {
    Stream stream;
    RingWriter writer = stream.writer();
    const auto reader = stream.reader();
    push(writer, "fine");
    stream.slots()[0].size = kLongestMessage + 1;
    EXPECT_EQ(reader->poll([](const std::uint8_t*, std::uint32_t) { FAIL(); }), -1);
}

TEST(StreamRing, AWriterGoesOnWhereAnEarlierOneStopped) {
    Stream stream;
    const auto reader = stream.reader();
    {
        RingWriter first = stream.writer();
        push(first, "one");
        push(first, std::string(600, 'x'));
    }
    RingWriter second = stream.writer();
    push(second, "two");
    EXPECT_EQ(poll(*reader), "one");
    EXPECT_EQ(poll(*reader), std::string(600, 'x'));
    EXPECT_EQ(poll(*reader), "two");
    EXPECT_EQ(stream.control.sent, 3U);
}

TEST(StreamRing, AWriterKilledWhileItFillsAMessageLeavesNothingBehind) {
    Stream stream;
    const auto reader = stream.reader();
    struct Killed {};  // the exception leaves the writer as a kill would
    RingWriter first = stream.writer();
    push(first, "one");
    EXPECT_THROW(first.push(300, [](std::byte*) { throw Killed(); }), Killed);
    RingWriter second = stream.writer();
    push(second, "two");
    EXPECT_EQ(poll(*reader), "one");
    EXPECT_EQ(poll(*reader), "two");
    EXPECT_EQ(poll(*reader), "nothing");
}

TEST(StreamRing, AWriterKilledBeforeTheTailHasSentItsMessage) {
    Stream stream;
    const auto reader = stream.reader();
    RingWriter first = stream.writer();
    push(first, "one");
    push(first, "two");
    stream.control.tail = 1;  // as it was before the second message's tail was stored
    stream.control.sent = 1;
    RingWriter second = stream.writer();
    push(second, "three");
    EXPECT_EQ(poll(*reader), "one");
    EXPECT_EQ(poll(*reader), "two");
    EXPECT_EQ(poll(*reader), "three");
    EXPECT_EQ(stream.control.sent, 3U);
}

// Messages of every length through a small ring, against a reader on another thread.
TEST(StreamRingThreaded, EveryMessageIsDeliveredWholeOrCountedLost) {
    Stream stream;
    constexpr std::uint64_t kEnough = 20'000;
    const auto reader = stream.reader();
    std::atomic<bool> done{false};
    std::uint64_t pushed = 0;
    std::uint64_t sent = 0;
    std::thread writing([&] {
        RingWriter writer = stream.writer();
        std::minstd_rand random(7);
        for (; sent < kEnough; ++pushed) {
            const std::size_t size = random() % 10 == 0 ? 8 + random() % 3000 : 184;
            const auto result = writer.push(size, [&pushed, size](std::byte* place) {
                std::memset(place, static_cast<int>(pushed & 0xFF), size);
                std::memcpy(place, &pushed, sizeof pushed);
            });
            sent += result == PushResult::kSent ? 1 : 0;
        }
        done = true;
    });
    std::uint64_t taken = 0;
    std::uint64_t last = 0;
    bool whole = true;
    const auto check = [&](const std::uint8_t* data, std::uint32_t size) {
        std::uint64_t number = 0;
        std::memcpy(&number, data, sizeof number);
        whole = whole && (taken == 0 || number > last);
        for (std::uint32_t i = sizeof number; i < size; ++i) {
            whole = whole && data[i] == (number & 0xFF);
        }
        last = number;
        ++taken;
    };
    for (bool was_done = false; !was_done;) {
        was_done = done;
        while (reader->poll(check) == 1) {
        }
    }
    writing.join();
    EXPECT_TRUE(whole);
    EXPECT_EQ(taken, sent);
    EXPECT_EQ(stream.control.taken, taken);
    EXPECT_EQ(stream.control.lost, pushed - sent);
}

TEST(StreamRingThreaded, EveryMessageIsAccountedForWhileReadersComeAndGo) {
    Stream stream;
    std::atomic<bool> done{false};
    std::thread writing([&] {
        RingWriter writer = stream.writer();
        for (int i = 0; i < 300'000; ++i) {
            push(writer, "message");
        }
        done = true;
    });
    std::uint64_t taken = 0;
    while (!done) {
        const auto reader = stream.reader();
        for (int i = 0; i < 1000; ++i) {
            taken += static_cast<std::uint64_t>(reader->poll([](const std::uint8_t*, std::uint32_t) {}));
        }
    }
    writing.join();
    const auto last = stream.reader();
    EXPECT_EQ(stream.control.taken, taken);
    EXPECT_EQ(stream.control.sent, stream.control.taken + stream.control.abandoned);
    EXPECT_EQ(stream.control.sent + stream.control.lost + stream.control.unheard, 300'000U);
}

}  // namespace
}  // namespace kova::sim
