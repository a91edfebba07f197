// Reassembly against the stream that was sent: however a stream is cut, reordered and repeated on its way, its
// messages come out whole, once and in order. Thousands of ways, from one seed; a way that fails is made small.
//
// Left out is what is lost by rule: no cut lies 0 to 7 bytes behind a message's start, no more than 500
// segments are on their way, numbers do not wrap, and the first segment comes first.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <numeric>
#include <optional>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "log/CommonLog.h"
#include "snapshot/TcpReassembly.h"
#include "support/snapshot_frame.h"
#include "support/temp_dir.h"

namespace {

using kova::test::ByteString;
using kova::test::ethernet_frame;
using kova::test::Segment;
using kova::test::snapshot_message;

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kLongestSegment = 1400;
constexpr std::size_t kMostSegments = 500;
constexpr std::uint32_t kFirstSeq = 1'000'000;

using Numbers = std::vector<std::size_t>;
using Messages = std::vector<ByteString>;

/** One stream and its way. */
struct Case {
    Numbers message_sizes;
    Numbers cuts;      // offsets in the stream, ascending
    Numbers arrivals;  // segments as they come, by their place in the stream; begins with 0

    [[nodiscard]] std::size_t stream_size() const {
        return std::accumulate(message_sizes.begin(), message_sizes.end(), std::size_t{0});
    }
    [[nodiscard]] std::size_t segment_count() const { return cuts.size() + 1; }
    [[nodiscard]] std::size_t begin_of(std::size_t segment) const {
        return segment == 0 ? 0 : cuts.at(segment - 1);
    }
    [[nodiscard]] std::size_t end_of(std::size_t segment) const {
        return segment < cuts.size() ? cuts[segment] : stream_size();
    }
};

std::ostream& operator<<(std::ostream& out, const Case& a_case) {
    const auto print = [&out](const char* name, const Numbers& numbers) {
        out << name;
        for (const std::size_t number : numbers) {
            out << ' ' << number;
        }
        out << '\n';
    };
    print("messages of", a_case.message_sizes);
    print("cut at", a_case.cuts);
    print("segments come in the order", a_case.arrivals);
    return out;
}

/** Whether a cut leaves at least a message's header in front of it. */
bool is_allowed_cut(const Numbers& message_sizes, std::size_t cut) {
    std::size_t begin = 0;
    for (const std::size_t size : message_sizes) {
        if (cut < begin + size) {
            return cut >= begin + kHeaderSize;
        }
        begin += size;
    }
    return false;
}

bool is_allowed(const Case& a_case) {
    if (a_case.message_sizes.empty() || a_case.arrivals.empty() || a_case.arrivals.front() != 0) {
        return false;
    }
    for (const std::size_t cut : a_case.cuts) {
        if (!is_allowed_cut(a_case.message_sizes, cut)) {
            return false;
        }
    }
    Numbers arrived = a_case.arrivals;
    std::ranges::sort(arrived);
    const auto repeated = std::ranges::unique(arrived);
    arrived.erase(repeated.begin(), repeated.end());
    if (arrived.size() != a_case.segment_count() || arrived.back() + 1 != a_case.segment_count()) {
        return false;
    }
    for (std::size_t i = 0; i < a_case.segment_count(); ++i) {
        if (a_case.end_of(i) - a_case.begin_of(i) > kLongestSegment) {
            return false;
        }
    }
    return a_case.arrivals.size() <= kMostSegments;
}

/** What is sent. No two bodies are the same, and the last message ends the snapshot. */
Messages sent_messages(const Numbers& sizes) {
    Messages messages;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        ByteString body(sizes[i] - kHeaderSize, 0);
        for (std::size_t j = 0; j < body.size(); ++j) {
            body[j] = static_cast<std::uint8_t>(37 * i + j + 1);
        }
        messages.push_back(snapshot_message(i + 1 < sizes.size() ? 0x11 : 0x01, body));
    }
    return messages;
}

class Receiver {
 public:
    Receiver() {
        session_.frag_buf = new std::uint8_t[TCP_FRAG_BUF_SIZE]();
        session_.init = 1;
        session_.next_expt_seq = kFirstSeq;
    }
    ~Receiver() { ResetSession(session_); }
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    void take(std::size_t offset, const ByteString& payload) {
        const ByteString frame = ethernet_frame(
            {.seq = kFirstSeq + static_cast<std::uint32_t>(offset), .payload = payload, .tcp_checksum = 0});
        ByteString room = frame;
        room.resize(std::max<std::size_t>(frame.size(), MIN_FRAME_ROOM));
        const auto length = static_cast<std::uint32_t>(frame.size());
        is_in_step_ = TakeSegment(session_, ReadTcpSegment(room.data(), room.size()), room.data(), length,
                                  {keep, this}) &&
                      is_in_step_;
    }

    [[nodiscard]] const Messages& messages() const { return messages_; }
    /** Nothing waits any more, nothing was given up. */
    [[nodiscard]] bool is_done() const {
        return is_in_step_ && session_.frag_flag == 0 && session_.lost_flag == 0 &&
               session_.lost_buf_head == nullptr;
    }

 private:
    static void keep(const mdqp_t* message, void* receiver) {
        static_cast<Receiver*>(receiver)->messages_.emplace_back(reinterpret_cast<const std::uint8_t*>(message),
                                                                 sizeof(*message) + message->length);
    }

    tcp_session_t session_{};
    Messages messages_;
    bool is_in_step_ = true;
};

bool fails(const Case& a_case) {
    const Messages sent = sent_messages(a_case.message_sizes);
    const ByteString stream = std::accumulate(sent.begin(), sent.end(), ByteString{});
    Receiver receiver;
    for (const std::size_t segment : a_case.arrivals) {
        const std::size_t begin = a_case.begin_of(segment);
        receiver.take(begin, stream.substr(begin, a_case.end_of(segment) - begin));
    }
    return receiver.messages() != sent || !receiver.is_done();
}

// Making a case small.

Case without_arrival(Case a_case, std::size_t place) {
    a_case.arrivals.erase(a_case.arrivals.begin() + static_cast<std::ptrdiff_t>(place));
    return a_case;
}

Case with_arrivals_swapped(Case a_case, std::size_t place) {
    std::swap(a_case.arrivals.at(place), a_case.arrivals.at(place + 1));
    return a_case;
}

/** Two segments become one, which comes when the first of them came. */
Case without_cut(Case a_case, std::size_t cut) {
    a_case.cuts.erase(a_case.cuts.begin() + static_cast<std::ptrdiff_t>(cut));
    std::erase(a_case.arrivals, cut + 1);
    for (std::size_t& segment : a_case.arrivals) {
        segment -= segment > cut ? 1 : 0;
    }
    return a_case;
}

Case with_cut_at(Case a_case, std::size_t cut, std::size_t offset) {
    a_case.cuts.at(cut) = offset;
    return a_case;
}

/** A message loses its end, or goes altogether; cuts in what is gone go too. */
Case with_message_cut_down(Case a_case, std::size_t message, std::size_t size) {
    const auto sizes = a_case.message_sizes.begin();
    const auto place = sizes + static_cast<std::ptrdiff_t>(message);
    const std::size_t gone_from = std::accumulate(sizes, place, size);
    const std::size_t gone_until = gone_from + *place - size;
    for (std::size_t i = a_case.cuts.size(); i-- > 0;) {
        if (a_case.cuts[i] >= gone_until) {
            a_case.cuts[i] -= gone_until - gone_from;
        } else if (a_case.cuts[i] >= gone_from) {
            a_case = without_cut(std::move(a_case), i);
        }
    }
    const auto cut_down = a_case.message_sizes.begin() + static_cast<std::ptrdiff_t>(message);
    if (size == 0) {
        a_case.message_sizes.erase(cut_down);
    } else {
        *cut_down = size;
    }
    return a_case;
}

using Variants = std::vector<Case>;

/** Everything that is a little simpler; what saves most comes first. */
Variants simpler(const Case& a_case) {
    Variants variants;
    for (std::size_t i = 0; i < a_case.message_sizes.size(); ++i) {
        const std::size_t size = a_case.message_sizes[i];
        variants.push_back(with_message_cut_down(a_case, i, 0));
        if (size > kHeaderSize + 1) {
            variants.push_back(with_message_cut_down(a_case, i, kHeaderSize + (size - kHeaderSize) / 2));
            variants.push_back(with_message_cut_down(a_case, i, size - 1));
        }
    }
    for (std::size_t i = 0; i < a_case.cuts.size(); ++i) {
        const std::size_t begin = a_case.begin_of(i);
        const std::size_t end = a_case.end_of(i);
        variants.push_back(without_cut(a_case, i));
        if (end - begin > 1) {
            variants.push_back(with_cut_at(a_case, i, begin + (end - begin) / 2));
            variants.push_back(with_cut_at(a_case, i, end - 1));
        }
    }
    for (std::size_t i = 1; i < a_case.arrivals.size(); ++i) {
        variants.push_back(without_arrival(a_case, i));
    }
    for (std::size_t i = 1; i + 1 < a_case.arrivals.size(); ++i) {
        if (a_case.arrivals[i] > a_case.arrivals[i + 1]) {
            variants.push_back(with_arrivals_swapped(a_case, i));
        }
    }
    return variants;
}

/** The smallest case that can be reached by simple steps all of which fail. */
Case shrink(Case failing, const std::function<bool(const Case&)>& is_failing) {
    for (;;) {
        const Variants variants = simpler(failing);
        const auto next = std::ranges::find_if(
            variants, [&](const Case& variant) { return is_allowed(variant) && is_failing(variant); });
        if (next == variants.end()) {
            return failing;
        }
        failing = *next;
    }
}

// Making cases up.

class CaseMaker {
 public:
    explicit CaseMaker(std::uint32_t seed) : random_(seed) {}

    Case make() {
        Case made;
        const std::size_t messages = 1 + below(below(4) == 0 ? 40 : 6);
        const std::size_t longest = below(20) == 0 ? 4000 : 120;
        for (std::size_t i = 0; i < messages; ++i) {
            made.message_sizes.push_back(kHeaderSize + 1 + below(longest));
        }
        cut(made, below(20) == 0 ? kLongestSegment : 10 + below(150));
        made.arrivals.resize(made.segment_count());
        std::iota(made.arrivals.begin(), made.arrivals.end(), std::size_t{0});
        reorder(made.arrivals);
        repeat_some(made.arrivals);
        return made;
    }

 private:
    std::size_t below(std::size_t bound) { return random_() % bound; }

    /** Segments of at most this size, or more where no cut is allowed. */
    void cut(Case& made, std::size_t longest) {
        const std::size_t size = made.stream_size();
        std::size_t begin = 0;
        for (;;) {
            std::size_t end = begin + 1 + below(longest);
            while (end < size && !is_allowed_cut(made.message_sizes, end)) {
                ++end;
            }
            if (end >= size) {
                return;
            }
            made.cuts.push_back(end);
            begin = end;
        }
    }

    /** Segments overtake each other: by a few places, or all over the stream. */
    void reorder(Numbers& arrivals) {
        const std::size_t reach = below(3) == 0 ? arrivals.size() : 1 + below(8);
        for (std::size_t i = 1; i < arrivals.size(); ++i) {
            const std::size_t last = std::min(arrivals.size() - 1, i + below(reach));
            std::swap(arrivals[i], arrivals[last]);
        }
    }

    void repeat_some(Numbers& arrivals) {
        const std::size_t count = below(3) == 0 ? below(arrivals.size() + 1) : 0;
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t segment = arrivals[below(arrivals.size())];
            const std::size_t place = 1 + below(arrivals.size());
            arrivals.insert(arrivals.begin() + static_cast<std::ptrdiff_t>(place), segment);
        }
    }

    std::mt19937 random_;
};

class TcpReassemblyDifferential : public ::testing::Test {
 protected:
    // A line for each early frame passed would be most of the work.
    TcpReassemblyDifferential() { CCommonLog::GetInstance()->SetLogLevel(static_cast<ELOGLEVEL>(0)); }

 private:
    const kova::test::TempDir directory_;
    const kova::test::WorkingDirectory working_directory_{directory_.path()};
};

TEST_F(TcpReassemblyDifferential, AStreamSurvivesEveryOrderRepetitionAndSegmentation) {
    constexpr std::uint32_t kCases = 3000;
    std::uint32_t tried = 0;
    std::uint32_t out_of_order = 0;
    for (std::uint32_t seed = 1; tried < kCases; ++seed) {
        const Case a_case = CaseMaker(seed).make();
        if (!is_allowed(a_case)) {
            continue;
        }
        ++tried;
        out_of_order += std::ranges::is_sorted(a_case.arrivals) ? 0U : 1U;
        ASSERT_FALSE(fails(a_case)) << "seed " << seed << ", smallest case:\n" << shrink(a_case, fails);
    }
    EXPECT_GT(out_of_order, kCases / 2) << "most of the cases try something";
}

// The way to a small failing case, and what the cases leave out.

TEST_F(TcpReassemblyDifferential, AFailingCaseIsMadeAsSmallAsItGets) {
    const Case big{
        .message_sizes = {20, 30, 25, 40}, .cuts = {10, 30, 45, 60, 90}, .arrivals = {0, 5, 3, 3, 4, 2, 1, 2}};
    ASSERT_TRUE(is_allowed(big));
    // Fails whenever any segment overtakes another one.
    const auto overtaking = [](const Case& a_case) { return !std::ranges::is_sorted(a_case.arrivals); };
    const Case small = shrink(big, overtaking);
    // Three segments, and no byte that is not needed for them: a header and one more, cut behind the header.
    EXPECT_EQ(small.message_sizes, (Numbers{9, 9}));
    EXPECT_EQ(small.cuts, (Numbers{8, 17}));
    EXPECT_EQ(small.arrivals, (Numbers{0, 2, 1}));
    // One more step in any direction mends it.
    for (const Case& variant : simpler(small)) {
        EXPECT_FALSE(is_allowed(variant) && overtaking(variant)) << variant;
    }
}

TEST_F(TcpReassemblyDifferential, CutsThatLoseDataByRuleAreLeftOut) {
    const Numbers sizes = {20, 30};
    Numbers allowed;
    for (std::size_t cut = 0; cut <= 50; ++cut) {
        if (is_allowed_cut(sizes, cut)) {
            allowed.push_back(cut);
        }
    }
    Numbers expected(12 + 22);
    std::iota(expected.begin(), expected.begin() + 12, std::size_t{8});
    std::iota(expected.begin() + 12, expected.end(), std::size_t{28});
    EXPECT_EQ(allowed, expected);
}

}  // namespace
