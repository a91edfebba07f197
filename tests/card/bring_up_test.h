/**
 * What the tests of bring-up share: a card that does what a bring-up waits for, and the snapshot that it sends.
 */
#ifndef KOVA_TESTS_CARD_BRING_UP_TEST_H
#define KOVA_TESTS_CARD_BRING_UP_TEST_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "card/clocked_day.h"
#include "card/engine_test.h"
#include "card/register_traffic.h"
#include "support/mdqp_message.h"
#include "support/snapshot_frame.h"

namespace kova::test {

/** Messages on one connection of one port, each in a frame of its own. */
class MessageFrames {
 public:
    explicit MessageFrames(std::uint32_t seq) : seq_(seq) {}

    void add(const MdqpMessage& message) {
        const Bytes bytes = message.bytes();
        frames_.push_back(ethernet_frame({.seq = seq_, .payload = ByteString(bytes.begin(), bytes.end())}));
        seq_ += static_cast<std::uint32_t>(bytes.size());
    }

    /** A frame without data: a snapshot that is all there is looked at with whatever comes next. */
    void add_empty() { frames_.push_back(ethernet_frame({.seq = seq_})); }

    [[nodiscard]] const std::vector<ByteString>& frames() const { return frames_; }

 private:
    std::vector<ByteString> frames_;
    std::uint32_t seq_;
};

/** The frames of a snapshot of both 2PS feeds. */
class SnapshotFrames : public MessageFrames {
 public:
    SnapshotFrames() : MessageFrames(5000) {
        // 183 bytes and more each: a first message must have more than 44.
        add(MdqpMessage(0x11)
                .snap(1000, 7)
                .packet_no(4711)
                .inst_info({.inst_id = "cu2606",
                            .volume_multiple = 5,
                            .price_tick = 10,
                            .codec_price = 1,
                            .inst_no = 0})
                .deal_info({.inst_no = 0,
                            .last_price = 100,
                            .volume = 12,
                            .turnover = 1234.5,
                            .open_interest = 77,
                            .highest_price = 102,
                            .lowest_price = 98,
                            .upper_limit_price = 110,
                            .lower_limit_price = 90,
                            .action_day = "20310215",
                            .update_mill_sec = 500,
                            .change_no = 42})
                .bid(0, 99, 3)
                .ask(0, 101, 4)
                .order_statistics(
                    {.inst_no = 0, .bid_volume = 7, .bid_amount = 70.5, .ask_volume = 8, .ask_amount = 80.25})
                .tail());
        add(MdqpMessage(0x01)
                .inst_info({.inst_id = "al2607",
                            .volume_multiple = 5,
                            .price_tick = 5,
                            .codec_price = 1,
                            .inst_no = 1})
                .tail());
        add(MdqpMessage(0x11)
                .snap(5000, 9)
                .packet_no(815)
                .inst_info({.inst_id = "sc2606",
                            .volume_multiple = 1000,
                            .price_tick = 0.1,
                            .codec_price = 1,
                            .inst_no = 0})
                .tail());
        add(MdqpMessage(0x01).packet_no(816).tail());
        add_empty();
    }
};

/**
 * Channel 0 on a card whose memory is ready when it is asked, which accepts the library's version and which
 * sends, when asked to forward the stream, what `frames` holds: one frame before each poll. Each poll takes a
 * second.
 */
class BringUpTest : public EngineTest {
 protected:
    BringUpTest() {
        RegisterTraffic::answer(0x2032, {3});
        RegisterTraffic::answer(0x101, {0x20260420});
        RegisterTraffic::answer(0x103, {1});
        Clock::move_per_poll(std::chrono::seconds(1));
        Polls::before_each([this](std::uint64_t number) {
            forward_next_frame();
            if (on_poll) {
                on_poll(number);
            }
        });
    }
    ~BringUpTest() override {
        Clock::move_per_poll(std::chrono::seconds(0));
        Polls::before_each({});
        RegisterTraffic::reset();
    }

    /** Opens registers and stream of channel 0 and reads the configuration, without a bring-up. */
    void open(std::string_view lines) {
        EngineAccess::config_file_name(*engine).UnSafeCopyFrom(config(lines));
        ASSERT_EQ(EngineAccess::read_config(*engine), 0);
        EngineAccess::user_data(*engine).lpMdApi = engine.get();
        CCommonLog::GetInstance()->SetLogLevel(EngineAccess::config(*engine).log_level);
        ASSERT_EQ(EngineAccess::registers(*engine).Init(0, 474), 0);
        ASSERT_EQ(EngineAccess::dma(*engine).Init(0, CFPGADMANameType("CUSTOM_CHAN0_DATA")), 0);
        forget();
        // Calls and accesses of a bring-up are too many to be kept one by one.
        sdk().stop();
    }

    ClockedDay day;
    std::vector<ByteString> frames;
    std::function<void(std::uint64_t)> on_poll;

 private:
    void forward_next_frame() {
        if (card->forwarding_openings() != openings_) {
            openings_ = card->forwarding_openings();
            next_frame_ = 0;
        }
        if (card->is_forwarding() && next_frame_ < frames.size()) {
            card->forward_frame(std::as_bytes(std::span(frames[next_frame_++])));
        }
    }

    std::uint64_t openings_ = 0;
    std::size_t next_frame_ = 0;
};

/** Lines of several pieces, one after the other. */
inline Strings joined(std::initializer_list<Strings> pieces) {
    Strings all;
    for (const Strings& piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

/** The line of the log for a write at the level of register accesses. */
inline std::string wrote(std::uint32_t number, std::uint32_t value) {
    char line[80];
    std::snprintf(line, sizeof line, "[X][WriteRegister]0x%04x: wrote 0x%08x (%u)", number, value, value);
    return line;
}

/** The same for a read. */
inline std::string did_read(std::uint32_t number, std::uint32_t value) {
    char line[80];
    std::snprintf(line, sizeof line, "[X][ReadRegister]0x%04x: read 0x%08x (%u)", number, value, value);
    return line;
}

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_BRING_UP_TEST_H
