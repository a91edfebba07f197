// The pair of streams of one channel, on a card.

#include "dma/DrvDMAEnyx.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <optional>

#include "card/engine_test.h"

namespace {

using kova::test::Strings;

/** Messages handed over by a poll. */
struct Received {
    std::vector<std::uint32_t> sizes;
    static void handler(const std::uint8_t*, std::uint32_t size, void* user) {
        static_cast<Received*>(user)->sizes.push_back(size);
    }
};

class DrvDMAEnyxTest : public kova::test::EngineTest {
 protected:
    DrvDMAEnyxTest() {
        // The card's accelerator is open already, as in a start.
        EXPECT_NE(CDrvRegEnyx::GetInstance().GetHwAccelerator(0), nullptr);
        forget();
    }

    int poll() { return dma->RecvOnce(reinterpret_cast<void*>(&Received::handler), &received); }

    const CFPGADMANameType name{"CUSTOM_CHAN5_DATA"};
    std::optional<CDrvDMAEnyx> dma{std::in_place};
    Received received;
};

const Strings kOpening = {
    "enyx_hw_filter_create()",
    "enyx_hw_filter_set_name(CUSTOM_CHAN5_DATA)",
    "enyx_hw_accelerator_enumerate_a2c_streams(1)",
    "enyx_hw_a2c_stream_create(5)",
    "enyx_hw_free_a2c_stream_descriptors(1)",
    "enyx_hw_accelerator_enumerate_c2a_streams(1)",
    "enyx_hw_c2a_stream_create(5)",
    "enyx_hw_free_c2a_stream_descriptors(1)",
    "enyx_hw_filter_destroy()",
    "enyx_hw_a2c_stream_get_mtu()",
    "enyx_hw_c2a_stream_get_mtu()",
};

const Strings kClosing = {"enyx_hw_a2c_stream_destroy()", "enyx_hw_c2a_stream_destroy()"};

TEST_F(DrvDMAEnyxTest, OpeningFindsBothStreamsByNameAndAsksTheirMtus) {
    EXPECT_EQ(dma->Init(0, name), 0);
    EXPECT_EQ(sdk().calls(), kOpening);
    EXPECT_EQ(sdk().kinds_alive(), (Strings{"a2c_stream", "c2a_stream"}));
    EXPECT_EQ(new_log(), (Strings{"[I][Init]Init DMA success! DMAName:CUSTOM_CHAN5_DATA"}));
}

TEST_F(DrvDMAEnyxTest, DestructionClosesBothStreams) {
    EXPECT_EQ(dma->Init(0, name), 0);
    forget();
    dma.reset();
    EXPECT_EQ(sdk().calls(), kClosing);
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

TEST_F(DrvDMAEnyxTest, DestructionOfAnUnopenedPairAsksNothingOfTheCard) {
    dma.reset();
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(DrvDMAEnyxTest, ClosingTwiceIsHarmless) {
    EXPECT_EQ(dma->Init(0, name), 0);
    forget();
    dma->Destory();
    dma->Destory();
    EXPECT_EQ(sdk().calls(), kClosing);
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

TEST_F(DrvDMAEnyxTest, OpeningAgainClosesFirst) {
    EXPECT_EQ(dma->Init(0, name), 0);
    forget();
    EXPECT_EQ(dma->Init(0, name), 0);
    Strings expected = kClosing;
    expected.insert(expected.end(), kOpening.begin(), kOpening.end());
    EXPECT_EQ(sdk().calls(), expected);
    EXPECT_EQ(sdk().alive("a2c_stream"), 1);
    EXPECT_EQ(sdk().alive("c2a_stream"), 1);
}

TEST_F(DrvDMAEnyxTest, OpeningAfterClosingWorks) {
    EXPECT_EQ(dma->Init(0, name), 0);
    dma->Destory();
    EXPECT_EQ(dma->Init(0, name), 0);
    card->push_quote(5, kova::test::quote_number(1));
    EXPECT_EQ(poll(), 1);
}

TEST_F(DrvDMAEnyxTest, ANameOfNoStreamIsAFailure) {
    EXPECT_EQ(dma->Init(0, CFPGADMANameType("CUSTOM_CHAN16_DATA")), -1);
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_TRUE(log[0].starts_with("[E][_InitDma]Could not find a2c stream. err:")) << log[0];
    EXPECT_EQ(log[1], "[E][Init]Init DMA failed!");
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

TEST_F(DrvDMAEnyxTest, PollingHandsOverOneMessageACall) {
    EXPECT_EQ(dma->Init(0, name), 0);
    forget();
    EXPECT_EQ(poll(), 0);
    card->push_quote(5, kova::test::quote_number(1));
    card->push_event(5, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(poll(), 1);
    EXPECT_EQ(poll(), 0);
    EXPECT_EQ(received.sizes, (std::vector<std::uint32_t>{184, 32}));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(DrvDMAEnyxTest, PollingReturnsWhatTheSdkReturned) {
    EXPECT_EQ(dma->Init(0, name), 0);
    sdk().fail("enyx_hw_a2c_stream_poll_once", 1, EIO);
    EXPECT_EQ(poll(), -1);
}

TEST_F(DrvDMAEnyxTest, PollingWithoutAStreamDoesNotReachTheSdk) {
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(dma->Init(0, name), 0);
    dma->Destory();
    EXPECT_EQ(poll(), -1);
    EXPECT_EQ(kova::test::Polls::count(), 0U);
}

TEST_F(DrvDMAEnyxTest, SendingIsBoundedByTheMtuWhichIsAllowed) {
    EXPECT_EQ(dma->Init(0, name), 0);
    forget();
    const std::array<unsigned char, 1025> bytes{};
    EXPECT_EQ(dma->Send(bytes.data(), 1024), 0);
    EXPECT_EQ(dma->Send(bytes.data(), 1025), -1);
    EXPECT_EQ(sdk().calls(), (Strings{"enyx_hw_c2a_stream_send(1024)"}));
    EXPECT_EQ(new_log(), (Strings{"[E][Send]send error, exceed c2amtu, sendsize:1025, mtu:1024"}));
    const auto message = card->take_from_host(5);
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(message->size(), 1024U);
}

TEST_F(DrvDMAEnyxTest, SendingBeforeOpeningFails) {
    const unsigned char byte = 0;
    EXPECT_EQ(dma->Send(&byte, 1), -1);
    EXPECT_EQ(dma->Send(&byte, 0), -1);
    EXPECT_EQ(new_log(), (Strings{"[E][Send]send error, exceed c2amtu, sendsize:1, mtu:0",
                                  "[E][Send]send error, enyx_hw_c2a_stream_send failed, sendsize:0, mtu:0"}));
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(DrvDMAEnyxTest, ClosingForgetsTheMtu) {
    EXPECT_EQ(dma->Init(0, name), 0);
    dma->Destory();
    forget();
    const unsigned char byte = 0;
    EXPECT_EQ(dma->Send(&byte, 1), -1);
    EXPECT_EQ(new_log(), (Strings{"[E][Send]send error, exceed c2amtu, sendsize:1, mtu:0"}));
    EXPECT_EQ(sdk().calls(), Strings{});
}

TEST_F(DrvDMAEnyxTest, ARefusedSendIsLogged) {
    EXPECT_EQ(dma->Init(0, name), 0);
    forget();
    const std::array<unsigned char, 8> bytes{};
    sdk().fail("enyx_hw_c2a_stream_send", 1, EIO);
    EXPECT_EQ(dma->Send(bytes.data(), 8), -1);
    EXPECT_EQ(new_log(),
              (Strings{"[E][Send]send error, enyx_hw_c2a_stream_send failed, sendsize:8, mtu:1024"}));
}

/** One call of the SDK that fails while the streams are opened. */
struct OpeningFailure {
    const char* function;
    std::string line;
    Strings last_calls;  // from the failing one on
    Strings still_open;  // what the next opening or the destructor releases
};

void PrintTo(const OpeningFailure& failure, std::ostream* out) {
    *out << failure.function;
}

class DrvDMAEnyxFailureTest : public DrvDMAEnyxTest, public ::testing::WithParamInterface<OpeningFailure> {};

TEST_P(DrvDMAEnyxFailureTest, IsToldWithItsReasonAndReleasesTheRest) {
    const OpeningFailure& failure = GetParam();
    sdk().fail(failure.function, 1, EACCES);
    EXPECT_EQ(dma->Init(0, name), -1);
    EXPECT_EQ(new_log(), (Strings{"[E][_InitDma]" + failure.line + " err:Permission denied",
                                  "[E][Init]Init DMA failed!"}));
    const Strings calls = sdk().calls();
    ASSERT_GE(calls.size(), failure.last_calls.size());
    EXPECT_EQ(Strings(calls.end() - static_cast<std::ptrdiff_t>(failure.last_calls.size()), calls.end()),
              failure.last_calls);
    EXPECT_EQ(sdk().kinds_alive(), failure.still_open);
    dma.reset();
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

TEST_P(DrvDMAEnyxFailureTest, IsOverWithTheNextOpening) {
    sdk().fail(GetParam().function, 1, EACCES);
    EXPECT_EQ(dma->Init(0, name), -1);
    EXPECT_EQ(dma->Init(0, name), 0);
    EXPECT_EQ(sdk().alive("a2c_stream"), 1);
    EXPECT_EQ(sdk().alive("c2a_stream"), 1);
    EXPECT_EQ(sdk().kinds_alive(), (Strings{"a2c_stream", "c2a_stream"}));
}

INSTANTIATE_TEST_SUITE_P(
    EachCall, DrvDMAEnyxFailureTest,
    ::testing::Values(
        OpeningFailure{
            "enyx_hw_filter_create", "Could not create dma filter.", {"enyx_hw_filter_create()"}, {}},
        OpeningFailure{"enyx_hw_filter_set_name",
                       "Could not set dma filter name: CUSTOM_CHAN5_DATA.",
                       {"enyx_hw_filter_set_name(CUSTOM_CHAN5_DATA)", "enyx_hw_filter_destroy()"},
                       {}},
        OpeningFailure{"enyx_hw_accelerator_enumerate_a2c_streams",
                       "Could not find a2c stream.",
                       {"enyx_hw_accelerator_enumerate_a2c_streams(1)", "enyx_hw_filter_destroy()"},
                       {}},
        OpeningFailure{"enyx_hw_a2c_stream_create",
                       "Could not create a2c stream.",
                       {"enyx_hw_a2c_stream_create(5)", "enyx_hw_free_a2c_stream_descriptors(1)",
                        "enyx_hw_filter_destroy()"},
                       {}},
        OpeningFailure{"enyx_hw_accelerator_enumerate_c2a_streams",
                       "Could not find c2a stream.",
                       {"enyx_hw_accelerator_enumerate_c2a_streams(1)", "enyx_hw_filter_destroy()"},
                       {"a2c_stream"}},
        OpeningFailure{"enyx_hw_c2a_stream_create",
                       "Could not create c2a stream.",
                       {"enyx_hw_c2a_stream_create(5)", "enyx_hw_free_c2a_stream_descriptors(1)",
                        "enyx_hw_filter_destroy()"},
                       {"a2c_stream"}},
        OpeningFailure{"enyx_hw_a2c_stream_get_mtu",
                       "Could not get a2c mtu.",
                       {"enyx_hw_filter_destroy()", "enyx_hw_a2c_stream_get_mtu()"},
                       {"a2c_stream", "c2a_stream"}},
        OpeningFailure{
            "enyx_hw_c2a_stream_get_mtu",
            "Could not get c2a mtu.",
            {"enyx_hw_filter_destroy()", "enyx_hw_a2c_stream_get_mtu()", "enyx_hw_c2a_stream_get_mtu()"},
            {"a2c_stream", "c2a_stream"}}),
    [](const ::testing::TestParamInfo<OpeningFailure>& test) { return std::string(test.param.function); });

class DrvDMAEnyxWithoutCardTest : public kova::test::EngineTest {};

TEST_F(DrvDMAEnyxWithoutCardTest, NoAcceleratorIsAFailure) {
    CDrvDMAEnyx dma;
    EXPECT_EQ(dma.Init(15, CFPGADMANameType("CUSTOM_CHAN5_DATA")), -1);
    const Strings log = new_log();
    ASSERT_EQ(log.size(), 2U);
    EXPECT_TRUE(log[0].starts_with("[E][_DrvEnyxCoreGetAcc]Could not find accelerator. err:")) << log[0];
    EXPECT_EQ(log[1], "[E][Init]GetHwAccelerator failed!");
    EXPECT_EQ(sdk().kinds_alive(), Strings{});
}

}  // namespace
