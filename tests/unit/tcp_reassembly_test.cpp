// From segments to whole messages: splits, orders, early frames, and where data is lost by rule.

#include "snapshot/TcpReassembly.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

#include "log/CommonLog.h"
#include "support/log_run.h"
#include "support/snapshot_frame.h"
#include "support/stdout_capture.h"
#include "support/temp_dir.h"

namespace {

using kova::test::ByteString;
using kova::test::ethernet_frame;
using kova::test::Segment;
using kova::test::snapshot_message;

using Messages = std::vector<ByteString>;

constexpr std::uint32_t kFirstSeq = 1000;

/** An open session that expects kFirstSeq, and what it hands over. */
class Session {
 public:
    Session() {
        session.frag_buf = new std::uint8_t[TCP_FRAG_BUF_SIZE]();
        session.init = 1;
        session.next_expt_seq = kFirstSeq;
    }
    ~Session() { ResetSession(session); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    bool take(const Segment& segment) { return take_frame(ethernet_frame(segment)); }
    bool take(std::uint32_t offset, const ByteString& payload) {
        return take(Segment{.seq = kFirstSeq + offset, .payload = payload});
    }
    bool take_frame(const ByteString& frame) { return take_frame(frame, frame.size()); }
    /** A frame of which only `length` bytes have come. */
    bool take_frame(const ByteString& frame, std::size_t length) {
        ByteString room = frame;
        room.resize(std::max<std::size_t>(frame.size(), MIN_FRAME_ROOM));
        std::fill(room.begin() + static_cast<std::ptrdiff_t>(length), room.end(), std::uint8_t{0});
        const STcpSegment read = ReadTcpSegment(room.data(), room.size());
        EXPECT_TRUE(read.isSound);
        return TakeSegment(session, read, room.data(), static_cast<std::uint32_t>(length),
                           {keep_message, &messages});
    }

    tcp_session_t session{};
    Messages messages;

 private:
    static void keep_message(const mdqp_t* message, void* messages) {
        static_cast<Messages*>(messages)->emplace_back(reinterpret_cast<const std::uint8_t*>(message),
                                                       sizeof(*message) + message->length);
    }
};

/** A message of this flag and total size, its body filled with one byte. */
ByteString message(std::uint8_t flag, std::size_t size, std::uint8_t fill) {
    return snapshot_message(flag, ByteString(size - 8, fill));
}

class TcpReassembly : public ::testing::Test {
 protected:
    /** What the log says while `action` runs, each line as "[level][function]message". */
    template <typename Action>
    static std::vector<std::string> logged(Action action) {
        kova::test::StdoutCapture capture;
        action();
        return kova::test::log_messages(capture.text());
    }

 private:
    const kova::test::TempDir directory_;
    const kova::test::WorkingDirectory working_directory_{directory_.path()};
};

// Splits.

TEST_F(TcpReassembly, AMessageOverThreeSegmentsIsHandedOverOnceAfterTheThird) {
    const ByteString whole = message(0x11, 60, 7);
    Session session;
    session.take(0, whole.substr(0, 20));
    session.take(20, whole.substr(20, 20));
    EXPECT_TRUE(session.messages.empty());
    EXPECT_EQ(session.session.frag_flag, 1);
    EXPECT_EQ(session.session.frag_buf_offset, 40U);
    session.take(40, whole.substr(40));
    EXPECT_EQ(session.messages, Messages{whole});
    EXPECT_EQ(session.session.frag_flag, 0);
    EXPECT_EQ(session.session.frag_buf_offset, 0U);
}

TEST_F(TcpReassembly, SeveralMessagesOfOneSegmentComeInTheirOrder) {
    const Messages all = {message(0x11, 20, 1), message(0x00, 30, 2), message(0x01, 8, 0)};
    Session session;
    session.take(0, all[0] + all[1] + all[2]);
    EXPECT_EQ(session.messages, all);  // only the first one's header is looked at
}

class SplitOffset : public TcpReassembly, public ::testing::WithParamInterface<std::size_t> {};

// Three messages of 20, 30 and 25 bytes, the bodies zero, in two segments.
TEST_P(SplitOffset, OfThreeMessagesEndsAsItMust) {
    const ByteString first = message(0x11, 20, 0);
    const ByteString second = message(0x11, 30, 0);
    const ByteString third = message(0x01, 25, 0);
    const ByteString stream = first + second + third;
    const std::size_t offset = GetParam();

    Messages expected = {first, second, third};
    if (offset == 1) {
        expected = {};  // the one byte is no header, and what follows starts with its second byte
    } else if (offset >= 23 && offset <= 27) {
        // The first message's length stands where the second's should: the second is cut to 20 bytes, its next
        // 8 zeros are a message, and the next header says 0x3201 bytes.
        ByteString cut = first;
        expected = {first, cut, ByteString(8, 0)};
    } else if (offset == 51 || offset == 52) {
        ByteString disguised = third;
        disguised[0] = 0x11;  // the flag of the message before
        expected = {first, second, disguised};
    } else if (offset >= 53 && offset <= 57) {
        expected = {first, second};  // with the second's length the third is not yet whole
    }

    Session session;
    session.take(0, stream.substr(0, offset));
    session.take(static_cast<std::uint32_t>(offset), stream.substr(offset));
    EXPECT_EQ(session.messages, expected);
    EXPECT_EQ(session.session.next_expt_seq, kFirstSeq + 75);
}

INSTANTIATE_TEST_SUITE_P(Every, SplitOffset, ::testing::Range<std::size_t>(1, 75));

TEST_F(TcpReassembly, InAFragmentAShortTailIsKeptAsItIs) {
    const ByteString first = message(0x11, 40, 1);
    const ByteString second = message(0x01, 50, 2);
    for (std::uint32_t tail = 1; tail < 8; ++tail) {
        Session session;
        session.take(0, first.substr(0, 10));
        session.take(10, first.substr(10) + second.substr(0, tail));
        EXPECT_EQ(session.session.frag_buf_offset, tail);
        session.take(40 + tail, second.substr(tail));
        EXPECT_EQ(session.messages, (Messages{first, second})) << tail;
    }
}

TEST_F(TcpReassembly, WhatStartsWithNoMessageIsDropped) {
    Session session;
    session.take(0, message(0x00, 20, 1));
    session.take(20, ByteString{0x11, 0x31, 12, 0, 0, 0, 0, 0});
    session.take(28, ByteString{});
    EXPECT_TRUE(session.messages.empty());
    EXPECT_EQ(session.session.frag_flag, 0);
    EXPECT_EQ(session.session.next_expt_seq, kFirstSeq + 28);
}

TEST_F(TcpReassembly, AFragmentWithoutAMessagesHeaderGrowsAndYieldsNothing) {
    const ByteString first = message(0x11, 20, 1);
    const ByteString odd = message(0x00, 40, 2);
    Session session;
    session.take(0, first + odd.substr(0, 10));
    session.take(30, odd.substr(10) + first);
    EXPECT_EQ(session.messages, Messages{first});
    EXPECT_EQ(session.session.frag_flag, 1);
    EXPECT_EQ(session.session.frag_buf_offset, 60U);
}

// Long messages.

void expect_given_up(const tcp_session_t& session) {
    EXPECT_EQ(session.init, 0);
    EXPECT_EQ(session.frag_flag, 0);
    EXPECT_EQ(session.frag_buf_offset, 0U);
    EXPECT_EQ(session.frag_buf, nullptr);
    EXPECT_EQ(session.lost_flag, 0);
    EXPECT_EQ(session.lost_buf_size, 0U);
    EXPECT_EQ(session.lost_buf_head, nullptr);
}

/** Takes a message in segments of 1000 bytes. */
void take_long(Session& session, const ByteString& whole) {
    for (std::size_t i = 0; i < whole.size(); i += 1000) {
        session.take(static_cast<std::uint32_t>(i), whole.substr(i, 1000));
    }
}

TEST_F(TcpReassembly, AMessageOf60000BytesIsHandedOver) {
    const ByteString whole = message(0x11, 60000, 5);
    Session session;
    take_long(session, whole);
    EXPECT_EQ(session.messages, Messages{whole});
}

TEST_F(TcpReassembly, AFragmentOf64KiBGivesTheSessionUp) {
    const ByteString whole = message(0x11, 65536, 5);
    Session session;
    const auto lines = logged([&] {
        take_long(session, whole.substr(0, 65535));
        EXPECT_EQ(session.session.frag_buf_offset, 65535U);
        session.take(70000, ByteString(10, 1));
        session.take(71000, ByteString(10, 1));
        session.take(65535, whole.substr(65535));
    });
    EXPECT_EQ(lines, std::vector<std::string>{"[W][_TcpHandler]ignore tcp message!"});
    EXPECT_TRUE(session.messages.empty());
    expect_given_up(session.session);
}

TEST_F(TcpReassembly, InAReplayAFragmentMayGrowTo100000BytesAndNotFurther) {
    for (const bool is_too_long : {false, true}) {
        Session session;
        // A fragment of 65535 bytes that never becomes a message: its first byte is no flag.
        take_long(session, message(0x11, 8 + 65535, 0).substr(0, 65535));
        session.session.frag_buf[0] = 0x02;
        // One byte is missing; behind it wait 34 frames of 1000 bytes and one that fills the buffer, or more.
        for (std::uint32_t i = 0; i < 34; ++i) {
            session.take(65536 + i * 1000, ByteString(1000, 0));
        }
        session.take(65536 + 34000, ByteString(is_too_long ? 465 : 464, 0));
        // The byte would end it all if it came live; an early frame lets it come in the replay.
        session.session.next_expt_seq = kFirstSeq + 65534;
        session.take(65535, ByteString(1, 0));
        session.session.next_expt_seq = kFirstSeq + 65535;
        session.take(65535, ByteString{});
        EXPECT_EQ(session.session.init, is_too_long ? 0 : 1);
        EXPECT_EQ(session.session.frag_buf_offset, is_too_long ? 0U : 100000U);
        EXPECT_EQ(session.session.frag_buf == nullptr, is_too_long);
        EXPECT_EQ(session.session.lost_buf_head, nullptr);
        EXPECT_EQ(session.session.lost_flag, 0);
    }
}

TEST_F(TcpReassembly, AFragmentThatGrowsTooLongInAReplayTakesTheFramesBehindItAlong) {
    Session session;
    const ByteString behind = message(0x01, 20, 3);
    take_long(session, message(0x11, 8 + 65535, 0).substr(0, 65535));
    session.session.frag_buf[0] = 0x02;  // no message: it grows until it is too long
    // One byte is missing; what waits behind it fills the buffer's 100000 bytes and then is one byte too much.
    for (std::uint32_t i = 0; i < 34; ++i) {
        session.take(65536 + i * 1000, ByteString(1000, 0));
    }
    session.take(99536, ByteString(464, 0));
    session.take(100000, ByteString(1, 0));
    // Behind that wait messages that could be taken.
    session.take(100001, behind);
    session.take(100021, behind);
    session.take(100500, behind);  // behind a gap
    session.session.next_expt_seq = kFirstSeq + 65534;
    session.take(65535, ByteString(1, 0));
    session.session.next_expt_seq = kFirstSeq + 65535;
    const auto lines = logged([&] { session.take(65535, ByteString{}); });
    EXPECT_EQ(lines, std::vector<std::string>{"[W][_TcpHandler]ignore tcp message!"});
    EXPECT_TRUE(session.messages.empty());
    expect_given_up(session.session);
    // Where the connection was given up: behind the frame that was too much.
    EXPECT_EQ(session.session.next_expt_seq, kFirstSeq + 100001);
}

// Orders.

TEST_F(TcpReassembly, ASegmentBeforeTheExpectedOneIsDroppedWithoutAWord) {
    Session session;
    const auto lines = logged([&] {
        session.take(Segment{.seq = kFirstSeq - 1, .payload = message(0x01, 20, 1)});
        session.take(Segment{.seq = 0, .payload = message(0x01, 20, 1)});
    });
    EXPECT_TRUE(lines.empty());
    EXPECT_TRUE(session.messages.empty());
    EXPECT_EQ(session.session.next_expt_seq, kFirstSeq);
}

class SegmentCount : public TcpReassembly, public ::testing::WithParamInterface<std::size_t> {};

// Segments that begin inside messages, as bulk TCP cuts them: the order they arrive in does not matter.
TEST_P(SegmentCount, InEveryOrderYieldsEveryMessageOnce) {
    const Messages all = {message(0x11, 50, 1), message(0x11, 33, 2), message(0x11, 61, 3),
                          message(0x11, 40, 4), message(0x11, 90, 5), message(0x01, 26, 6)};
    const ByteString stream = std::accumulate(all.begin(), all.end(), ByteString{});
    ASSERT_EQ(stream.size(), 300U);
    // The first 20 bytes are there; the rest is cut into as many segments as asked for.
    const std::vector<std::vector<std::size_t>> cuts = {{},
                                                        {300},
                                                        {120, 300},
                                                        {70, 160, 300},
                                                        {70, 110, 200, 300},
                                                        {35, 95, 130, 230, 300},
                                                        {35, 70, 110, 160, 220, 300}};
    const std::vector<std::size_t>& ends = cuts[GetParam()];
    std::vector<std::size_t> order(ends.size());
    std::iota(order.begin(), order.end(), 0);
    do {
        Session session;
        session.take(0, stream.substr(0, 20));
        for (const std::size_t i : order) {
            const std::size_t begin = i == 0 ? 20 : ends[i - 1];
            session.take(static_cast<std::uint32_t>(begin), stream.substr(begin, ends[i] - begin));
        }
        ASSERT_EQ(session.messages, all) << ::testing::PrintToString(order);
        ASSERT_EQ(session.session.lost_flag, 0);
        ASSERT_EQ(session.session.lost_buf_size, 0U);
        ASSERT_EQ(session.session.lost_buf_head, nullptr);
        ASSERT_EQ(session.session.next_expt_seq, kFirstSeq + 300);
    } while (std::ranges::next_permutation(order).found);
}

INSTANTIATE_TEST_SUITE_P(UpToSix, SegmentCount, ::testing::Range<std::size_t>(1, 7));

// Segments that each are a message: what waited early is refused unless it ends the snapshot.
TEST_F(TcpReassembly, AnEarlySegmentThatStartsAMessageIsLost) {
    const ByteString a = message(0x11, 20, 1);
    const ByteString b = message(0x11, 20, 2);
    const ByteString c = message(0x11, 20, 3);
    const auto in_order = [&](std::vector<int> order) {
        const Messages all = {a, b, c};
        Session session;
        for (const int i : order) {
            session.take(static_cast<std::uint32_t>(i) * 20, all[static_cast<std::size_t>(i)]);
        }
        return session.messages;
    };
    EXPECT_EQ(in_order({0, 1, 2}), (Messages{a, b, c}));
    EXPECT_EQ(in_order({0, 2, 1}), (Messages{a, b}));
    EXPECT_EQ(in_order({1, 0, 2}), (Messages{a, c}));
    EXPECT_EQ(in_order({1, 2, 0}), (Messages{a}));
    EXPECT_EQ(in_order({2, 0, 1}), (Messages{a, b}));
    EXPECT_EQ(in_order({2, 1, 0}), (Messages{a}));
}

TEST_F(TcpReassembly, AnEarlySegmentWithTheLastMessageIsNotLost) {
    const ByteString a = message(0x11, 20, 1);
    const ByteString last = message(0x01, 20, 2);
    Session session;
    session.take(20, last);
    session.take(0, a);
    EXPECT_EQ(session.messages, (Messages{a, last}));
    EXPECT_EQ(session.session.lost_flag, 0);
}

TEST_F(TcpReassembly, ARefusedEarlySegmentEndsTheReplayAndLeavesWhatFollowsWaiting) {
    Session session;
    const auto lines = logged([&] {
        session.take(20, message(0x11, 20, 2));
        session.take(40, message(0x01, 20, 3));
        session.take(0, message(0x11, 20, 1));
    });
    EXPECT_EQ(lines, std::vector<std::string>{"[E][_TcpHandler]not a mdqp header, check program logic"});
    EXPECT_EQ(session.messages, Messages{message(0x11, 20, 1)});
    EXPECT_EQ(session.session.next_expt_seq, kFirstSeq + 40);
    EXPECT_EQ(session.session.lost_flag, 1);
    EXPECT_EQ(session.session.lost_buf_size, 2U);  // counted until a replay comes to the list's end
    ASSERT_NE(session.session.lost_buf_head, nullptr);
    EXPECT_EQ(session.session.lost_buf_head->next, nullptr);
}

TEST_F(TcpReassembly, ARefusedLiveSegmentStillTakesUpWhatWaitsBehindIt) {
    const ByteString last = message(0x01, 20, 2);
    Session session;
    session.take(20, last);
    const auto lines = logged([&] { session.take(0, ByteString(20, 0x77)); });
    EXPECT_EQ(lines, std::vector<std::string>{});
    EXPECT_EQ(session.messages, Messages{last});
    EXPECT_EQ(session.session.next_expt_seq, kFirstSeq + 40);
    EXPECT_EQ(session.session.lost_flag, 0);
    EXPECT_EQ(session.session.lost_buf_size, 0U);
    EXPECT_EQ(session.session.lost_buf_head, nullptr);
}

TEST_F(TcpReassembly, InAReplayAShortTailIsTakenFromTheMessageBeforeIt) {
    // The early segment completes a fragment and ends 4 bytes into the next message.
    const ByteString first = message(0x11, 30, 1);
    const ByteString second = message(0x01, 40, 0);
    Session session;
    session.take(20, first.substr(20) + second.substr(0, 4));
    session.take(0, first.substr(0, 20));
    EXPECT_EQ(session.messages, Messages{first});
    EXPECT_EQ(session.session.frag_buf_offset, 4U);
    EXPECT_EQ(ByteString(session.session.frag_buf, 4), first.substr(0, 4));
}

TEST_F(TcpReassembly, WaitingForMoreInsideAReplayGoesOnWithTheNextFrame) {
    const ByteString whole = message(0x01, 100, 9);
    Session session;
    session.take(50, whole.substr(50, 25));
    session.take(75, whole.substr(75));
    session.take(25, whole.substr(25, 25));
    session.take(0, whole.substr(0, 25));
    EXPECT_EQ(session.messages, Messages{whole});
    EXPECT_EQ(session.session.lost_flag, 0);
}

TEST_F(TcpReassembly, TheReplayStopsAtTheNextGap) {
    const ByteString whole = message(0x01, 100, 9);
    Session session;
    session.take(25, whole.substr(25, 25));
    session.take(75, whole.substr(75));
    session.take(0, whole.substr(0, 25));
    EXPECT_EQ(session.session.next_expt_seq, kFirstSeq + 50);
    EXPECT_EQ(session.session.lost_flag, 1);
    EXPECT_EQ(session.session.lost_buf_size, 2U);
    session.take(50, whole.substr(50, 25));
    EXPECT_EQ(session.messages, Messages{whole});
    EXPECT_EQ(session.session.lost_buf_size, 0U);
}

TEST_F(TcpReassembly, AnEarlyFrameThatWasRetransmittedMeanwhileIsSkipped) {
    const ByteString whole = message(0x01, 100, 9);
    Session session;
    session.take(40, whole.substr(40, 20));
    session.take(0, whole.substr(0, 80));  // covers it
    EXPECT_EQ(session.session.lost_buf_head, nullptr);
    EXPECT_EQ(session.session.lost_flag, 0);
    session.take(80, whole.substr(80));
    EXPECT_EQ(session.messages, Messages{whole});
}

TEST_F(TcpReassembly, AfterAReplayAnotherGapStartsAFreshList) {
    const ByteString whole = message(0x01, 100, 9);
    Session session;
    session.take(20, whole.substr(20, 20));
    session.take(0, whole.substr(0, 20));
    EXPECT_EQ(session.session.lost_buf_size, 0U);
    session.take(60, whole.substr(60));
    EXPECT_EQ(session.session.lost_buf_size, 1U);
    session.take(40, whole.substr(40, 20));
    EXPECT_EQ(session.messages, Messages{whole});
}

// The list of early frames.

/** Sequence numbers of the early frames, forwards; the links backwards are checked. */
std::vector<std::uint32_t> waiting(const tcp_session_t& session) {
    std::vector<std::uint32_t> offsets;
    const tcp_lost_buf_t* before = nullptr;
    for (const tcp_lost_buf_t* frame = session.lost_buf_head; frame != nullptr; frame = frame->next) {
        EXPECT_EQ(frame->before, before);
        const std::uint8_t* seq = frame->buf + 38;
        offsets.push_back(
            (std::uint32_t{seq[0]} << 24 | std::uint32_t{seq[1]} << 16 | std::uint32_t{seq[2]} << 8 | seq[3]) -
            kFirstSeq);
        before = frame;
    }
    return offsets;
}

using Offsets = std::vector<std::uint32_t>;

TEST_F(TcpReassembly, EarlyFramesStandInTheOrderOfTheirSequenceNumbers) {
    Session session;
    for (const std::uint32_t offset : {50U, 20U, 40U, 60U, 30U, 10U}) {
        session.take(offset, ByteString(5, 1));
    }
    EXPECT_EQ(waiting(session.session), (Offsets{10, 20, 30, 40, 50, 60}));
    EXPECT_EQ(session.session.lost_buf_size, 6U);
    EXPECT_EQ(session.session.lost_flag, 1);
}

TEST_F(TcpReassembly, FramesThatStayBehindAReplayAreLinkedAsIfNoneHadStoodInFront) {
    const ByteString whole = message(0x01, 100, 9);
    const auto take = [&](Session& session, std::uint32_t begin, std::uint32_t end) {
        session.take(begin, whole.substr(begin, end - begin));
    };
    Session session;
    take(session, 15, 18);  // outdated when the gap closes
    take(session, 20, 40);
    take(session, 60, 70);
    take(session, 80, 100);
    take(session, 0, 20);
    EXPECT_EQ(waiting(session.session), (Offsets{60, 80}));
    EXPECT_EQ(session.session.lost_buf_size, 4U);
    // What comes now finds its place among them, in front as well as between.
    take(session, 60, 70);  // the first one again
    take(session, 50, 60);
    take(session, 70, 80);
    EXPECT_EQ(waiting(session.session), (Offsets{50, 60, 70, 80}));
    EXPECT_EQ(session.session.lost_buf_size, 6U);
    take(session, 40, 50);
    EXPECT_EQ(session.messages, Messages{whole});
    EXPECT_EQ(session.session.lost_buf_head, nullptr);
}

TEST_F(TcpReassembly, FramesThatStayBehindARefusedOneAreLinkedAsIfItHadNotStoodInFront) {
    Session session;
    session.take(20, message(0x11, 20, 2));  // refused in the replay
    session.take(40, message(0x01, 20, 3));
    session.take(80, message(0x01, 20, 4));
    session.take(0, message(0x11, 20, 1));
    EXPECT_EQ(waiting(session.session), (Offsets{40, 80}));
    session.take(60, message(0x01, 20, 5));
    session.take(50, ByteString(1, 0));
    EXPECT_EQ(waiting(session.session), (Offsets{40, 50, 60, 80}));
    EXPECT_EQ(session.session.lost_buf_size, 5U);
}

TEST_F(TcpReassembly, AFrameIsKeptAsItCame) {
    Session session;
    const ByteString frame =
        ethernet_frame({.seq = kFirstSeq + 9, .payload = {1, 2, 3}, .padding = 3, .padding_byte = 8});
    session.take_frame(frame);
    ASSERT_NE(session.session.lost_buf_head, nullptr);
    EXPECT_EQ(session.session.lost_buf_head->len, frame.size());
    EXPECT_EQ(ByteString(session.session.lost_buf_head->buf, frame.size()), frame);
    EXPECT_EQ(ByteString(session.session.lost_buf_head->buf + frame.size(), 1600 - frame.size()),
              ByteString(1600 - frame.size(), 0));
}

TEST_F(TcpReassembly, ADuplicateOfTheFirstEarlyFrameIsNotKept) {
    Session session;
    session.take(10, ByteString(5, 1));
    session.take(20, ByteString(5, 1));
    session.take(10, ByteString(5, 1));
    EXPECT_EQ(waiting(session.session), (Offsets{10, 20}));
    EXPECT_EQ(session.session.lost_buf_size, 2U);
}

TEST_F(TcpReassembly, ADuplicateOfALaterEarlyFrameBecomesItsNeighbour) {
    Session session;
    session.take(10, ByteString(5, 1));
    session.take(20, ByteString(5, 1));
    session.take(20, ByteString(5, 2));
    EXPECT_EQ(waiting(session.session), (Offsets{10, 20, 20}));
    EXPECT_EQ(session.session.lost_buf_size, 3U);
}

TEST_F(TcpReassembly, EachEarlyFramePassedOnTheWayIsALine) {
    Session session;
    for (const std::uint32_t offset : {10U, 20U, 30U, 40U}) {
        session.take(offset, ByteString(5, 1));
    }
    const std::string line = "[E][_TcpHandler]free the cache of packet loss.";
    EXPECT_EQ(logged([&] { session.take(5, ByteString(1, 1)); }), std::vector<std::string>{});
    EXPECT_EQ(logged([&] { session.take(7, ByteString(1, 1)); }), std::vector<std::string>{});
    // 5 7 10 20 30 40: from 5 on, three are passed before 30's place, and all five before the end.
    EXPECT_EQ(logged([&] { session.take(25, ByteString(1, 1)); }), std::vector<std::string>(3, line));
    EXPECT_EQ(logged([&] { session.take(50, ByteString(1, 1)); }), std::vector<std::string>(6, line));
}

TEST_F(TcpReassembly, The500thEarlyFrameIsKeptAndThe501stIsTooMany) {
    CCommonLog::GetInstance()->SetLogLevel(LOG_WARNING);
    Session session;
    for (std::uint32_t i = 500; i > 0; --i) {
        ASSERT_TRUE(session.take(i * 10, ByteString(5, 1))) << i;
        ASSERT_EQ(session.session.lost_buf_size, 501 - i);
    }
    const auto lines = logged([&] { EXPECT_FALSE(session.take(6000, ByteString(5, 1))); });
    EXPECT_EQ(lines, std::vector<std::string>{"[W][_TcpHandler]break tcp seq detected. expt: 1000, Got: 7000"});
}

TEST_F(TcpReassembly, AnEarlyFrameOf1600BytesIsKeptAndALongerOneIsDropped) {
    Session session;
    session.take(10, ByteString(1600 - 54, 1));
    EXPECT_EQ(session.session.lost_buf_size, 1U);
    const auto lines = logged([&] { EXPECT_TRUE(session.take(5000, ByteString(1601 - 54, 1))); });
    EXPECT_EQ(lines, std::vector<std::string>{
                         "[W][_TcpHandler]early frame of 1601 bytes is too long to be kept, dropped"});
    EXPECT_EQ(session.session.lost_buf_size, 1U);
    // In order it is taken, however long.
    session.take(0, message(0x01, 1900, 1));
    EXPECT_EQ(session.messages.size(), 1U);
}

TEST_F(TcpReassembly, AShortFrameWhoseIpHeaderReachesPast1600BytesIsDroppedWithThatLength) {
    Session session;
    // The IP header speaks of 1586 bytes, which with the Ethernet header are 1600, or of one more.
    const ByteString reaches_to_1600 = ethernet_frame({.seq = kFirstSeq + 10, .payload = ByteString(1546, 1)});
    const ByteString reaches_to_1601 =
        ethernet_frame({.seq = kFirstSeq + 5000, .payload = ByteString(1547, 1)});
    EXPECT_EQ(logged([&] { EXPECT_TRUE(session.take_frame(reaches_to_1600, 800)); }),
              std::vector<std::string>{});
    EXPECT_EQ(session.session.lost_buf_size, 1U);
    EXPECT_EQ(
        logged([&] { EXPECT_TRUE(session.take_frame(reaches_to_1601, 800)); }),
        std::vector<std::string>{"[W][_TcpHandler]early frame of 1601 bytes is too long to be kept, dropped"});
    EXPECT_EQ(session.session.lost_buf_size, 1U);
}

TEST_F(TcpReassembly, SequenceNumbersAreComparedAsTheyAre) {
    // Behind a wrap every segment is older than what is expected.
    Session session;
    session.session.next_expt_seq = 0xFFFFFFF6;
    const ByteString whole = message(0x11, 20, 1);
    session.take(Segment{.seq = 0xFFFFFFF6, .payload = whole});
    EXPECT_EQ(session.session.next_expt_seq, 10U);
    session.take(Segment{.seq = 10, .payload = whole});
    EXPECT_EQ(session.messages, (Messages{whole, whole}));
    session.session.next_expt_seq = 0xFFFFFFF6;
    session.take(Segment{.seq = 10, .payload = whole});
    EXPECT_EQ(session.messages.size(), 2U);
}

// Opening payloads.

TEST(OpeningPayload, NeedsMoreThan44BytesAndTheHeaderOfASnapshotsFirstMessage) {
    ByteString payload = snapshot_message(0x11, ByteString(37, 0));
    EXPECT_TRUE(IsOpeningPayload(payload.data(), 45));
    EXPECT_FALSE(IsOpeningPayload(payload.data(), 44));
    payload[0] = 0x01;
    EXPECT_FALSE(IsOpeningPayload(payload.data(), 45));
    payload[0] = 0x11;
    payload[1] = 0x33;
    EXPECT_FALSE(IsOpeningPayload(payload.data(), 45));
}

/** All snapshot fields that a scan of the payload finds. */
std::vector<std::pair<int, int>> snap_fields(const ByteString& payload) {
    std::vector<std::pair<int, int>> fields;
    std::uint32_t offset = 8;
    while (const auto snap =
               NextSnapField(payload.data(), static_cast<std::uint32_t>(payload.size()), offset)) {
        fields.emplace_back(int{snap->topic_id}, int{snap->snap_no});
    }
    return fields;
}

const ByteString kSnapField = {0x01, 0x10, 6, 0, 0xE8, 0x03, 7, 0, 0, 0};  // topic 1000, snapshot 7

TEST(OpeningPayload, ItsSnapshotFieldIsFoundBehindOthers) {
    const ByteString other = {0x02, 0x10, 3, 0, 1, 2, 3};
    EXPECT_EQ(snap_fields(snapshot_message(0x11, other + kSnapField + other)),
              (std::vector<std::pair<int, int>>{{1000, 7}}));
    EXPECT_EQ(snap_fields(snapshot_message(0x11, kSnapField + kSnapField)).size(), 2U);
}

TEST(OpeningPayload, AFieldOfAnotherSizeIsNoSnapshotField) {
    EXPECT_TRUE(snap_fields(snapshot_message(0x11, {0x01, 0x10, 7, 0, 0xE8, 0x03, 7, 0, 0, 0, 0})).empty());
    EXPECT_TRUE(snap_fields(snapshot_message(0x11, {0x01, 0x10, 5, 0, 0xE8, 0x03, 7, 0, 0})).empty());
}

TEST(OpeningPayload, ASnapshotFieldThatTheEndCutsOffEndsTheScan) {
    ByteString payload = snapshot_message(0x11, kSnapField);
    for (std::size_t size = 8; size < payload.size(); ++size) {
        EXPECT_TRUE(snap_fields(payload.substr(0, size)).empty()) << size;
    }
    EXPECT_EQ(snap_fields(payload).size(), 1U);
}

TEST(OpeningPayload, AFieldThatReachesPastTheEndEndsTheScan) {
    EXPECT_TRUE(snap_fields(snapshot_message(0x11, ByteString{0x02, 0x10, 0xFF, 0xFF} + kSnapField)).empty());
}

}  // namespace
