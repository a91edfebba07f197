// The receive loop on a card: both modes, every kind of message, stops, and what a broken caller gets.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <span>
#include <stdexcept>
#include <thread>

#include "card/engine_test.h"
#include "card/register_traffic.h"

namespace {

using kova::test::Polls;
using kova::test::quote_number;
using kova::test::RegisterTraffic;
using kova::test::Strings;
using ::testing::ElementsAre;

class ReceiveTest : public kova::test::EngineTest {
 protected:
    void push_message(std::uint32_t channel, std::uint32_t dma_type, std::size_t size) {
        std::array<std::byte, 256> message{};
        std::memcpy(message.data(), &dma_type, sizeof(dma_type));
        card->push(channel, std::span(message).first(size));
    }

    /** An engine of channel 0 whose stream is open and which believes itself brought up; it never can be. */
    void start_channel_zero() {
        EXPECT_EQ(engine->KovaStart(spi, config("init_tcpcnt = 0")), -2);
        EngineAccess::is_all_init_finished(*engine) = true;
        forget();
    }

    KovaShfeMdType record{};
};

bool is_same(const KovaShfeMdType& left, const KovaShfeMdType& right) {
    return std::memcmp(&left, &right, 176) == 0;
}

/** Calls a function with each quote. */
class ActingSpi : public CKovaShfeMdSpi {
 public:
    explicit ActingSpi(std::function<void(const KovaShfeMdType&)> action) : action_(std::move(action)) {}
    std::int32_t OnKovaShfeMd(const KovaShfeMdType* quote) override {
        action_(*quote);
        return 0;
    }

 private:
    std::function<void(const KovaShfeMdType&)> action_;
};

// Callback mode.

TEST_F(ReceiveTest, AQuoteReachesTheCallbackOncePerCall) {
    start_with_callback(3);
    card->push_quote(3, quote_number(1));
    card->push_quote(3, quote_number(2));
    EXPECT_EQ(engine->KovaRecv(), 1);
    EXPECT_THAT(spi.change_numbers, ElementsAre(1));
    EXPECT_EQ(engine->KovaRecv(), 1);
    EXPECT_THAT(spi.change_numbers, ElementsAre(1, 2));
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_THAT(spi.change_numbers, ElementsAre(1, 2));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ReceiveTest, TheCallbackGetsTheRecordWhereItLies) {
    start_with_callback(3);
    U50QuoteMessage message{{DMA_UDP, 184}, quote_number(7)};
    EngineAccess::md_handler(reinterpret_cast<const unsigned char*>(&message), 184,
                             &EngineAccess::user_data(*engine));
    ASSERT_EQ(spi.addresses.size(), 1U);
    EXPECT_EQ(static_cast<const void*>(spi.addresses[0]), reinterpret_cast<const std::byte*>(&message) + 8);
}

TEST_F(ReceiveTest, TheCallbackGetsEveryByteUnchanged) {
    KovaShfeMdType sent{};
    std::array<unsigned char, 176> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(i + 1);
    }
    bytes[172] = 1;  // the one bool
    std::memcpy(&sent, bytes.data(), 176);
    bool is_unchanged = false;
    ActingSpi comparing([&](const KovaShfeMdType& quote) { is_unchanged = is_same(quote, sent); });
    ASSERT_EQ(engine->KovaStart(comparing, config_of_channel(3)), 0);
    card->push_quote(3, sent);
    EXPECT_EQ(engine->KovaRecv(), 1);
    EXPECT_TRUE(is_unchanged);
}

TEST_F(ReceiveTest, TheQuoteCountsBeforeTheCallbackRuns) {
    bool was_quote = false;
    ActingSpi looking([&](const KovaShfeMdType&) { was_quote = EngineAccess::user_data(*engine).isQuote; });
    ASSERT_EQ(engine->KovaStart(looking, config_of_channel(3)), 0);
    card->push_quote(3, quote_number(1));
    EXPECT_EQ(engine->KovaRecv(), 1);
    EXPECT_TRUE(was_quote);
}

TEST_F(ReceiveTest, AQuoteWithoutACallbackObjectIsDropped) {
    start_with_callback(3);
    EngineAccess::spi(*engine) = {};
    card->push_quote(3, quote_number(1));
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_THAT(new_log(), ElementsAre("[E][_MdHandler]refMdSpi is nullptr"));
}

TEST_F(ReceiveTest, ACallbackThatThrowsEndsTheProcess) {
    ActingSpi throwing([](const KovaShfeMdType&) { throw std::runtime_error("thrown by the callback"); });
    ASSERT_EQ(engine->KovaStart(throwing, config_of_channel(3)), 0);
    card->push_quote(3, quote_number(1));
    EXPECT_DEATH(engine->KovaRecv(), "thrown by the callback");
}

// Fetch mode.

TEST_F(ReceiveTest, AQuoteIsCopiedIntoTheCallersRecord) {
    start_fetching(3);
    card->push_quote(3, quote_number(1));
    card->push_quote(3, quote_number(2));
    EXPECT_EQ(engine->KovaRecv(record), 1);
    EXPECT_TRUE(is_same(record, quote_number(1)));
    KovaShfeMdType another{};
    EXPECT_EQ(engine->KovaRecv(another), 1);
    EXPECT_TRUE(is_same(another, quote_number(2)));
    EXPECT_TRUE(is_same(record, quote_number(1)));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ReceiveTest, ExactlyOneHundredAndSeventySixBytesAreCopied) {
    start_fetching(3);
    std::array<unsigned char, 178> buffer{};
    buffer.fill(0xEE);
    KovaShfeMdType sent{};
    std::memset(&sent, 0x55, 176);
    sent.last_tick_flag = true;
    card->push_quote(3, sent);
    EXPECT_EQ(engine->KovaRecv(*reinterpret_cast<KovaShfeMdType*>(buffer.data() + 1)), 1);
    EXPECT_EQ(buffer[0], 0xEE);
    EXPECT_EQ(buffer[177], 0xEE);
    EXPECT_EQ(std::memcmp(buffer.data() + 1, &sent, 176), 0);
}

TEST_F(ReceiveTest, AnEmptyPollLeavesTheRecordAlone) {
    start_fetching(3);
    record = quote_number(9);
    EXPECT_EQ(engine->KovaRecv(record), 0);
    EXPECT_TRUE(is_same(record, quote_number(9)));
    EXPECT_EQ(Polls::count(), 1U);
}

TEST_F(ReceiveTest, AnEventLeavesTheRecordAlone) {
    start_fetching(3);
    record = quote_number(9);
    card->push_event(3, {1, 2, 3, 4, 5, 6});
    EXPECT_EQ(engine->KovaRecv(record), 0);
    EXPECT_TRUE(is_same(record, quote_number(9)));
}

TEST_F(ReceiveTest, FetchingWithoutARecordEverGivenDropsTheQuote) {
    start_fetching(3);
    card->push_quote(3, quote_number(1));
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_THAT(new_log(), ElementsAre("[E][_MdHandler]lpMdData is nullptr"));
}

// The wrong operation for the mode.

TEST_F(ReceiveTest, ReceivingWithoutARecordInFetchModeFillsTheLastOne) {
    start_fetching(3);
    EXPECT_EQ(engine->KovaRecv(record), 0);
    card->push_quote(3, quote_number(1));
    EXPECT_EQ(engine->KovaRecv(), 1);
    EXPECT_TRUE(is_same(record, quote_number(1)));
}

TEST_F(ReceiveTest, ReceivingIntoARecordInCallbackModeCallsBack) {
    start_with_callback(3);
    record = quote_number(9);
    card->push_quote(3, quote_number(1));
    EXPECT_EQ(engine->KovaRecv(record), 1);
    EXPECT_THAT(spi.change_numbers, ElementsAre(1));
    EXPECT_TRUE(is_same(record, quote_number(9)));
    EXPECT_EQ(EngineAccess::user_data(*engine).lpMdData, &record);
}

TEST_F(ReceiveTest, AnUnknownModeDropsTheQuoteSilently) {
    start_with_callback(3);
    EngineAccess::user_data(*engine).userDataType = static_cast<EUserDataType>(2);
    card->push_quote(3, quote_number(1));
    EXPECT_EQ(engine->KovaRecv(record), 0);
    EXPECT_THAT(spi.change_numbers, ElementsAre());
    EXPECT_EQ(new_log(), Strings{});
}

// What is no quote.

TEST_F(ReceiveTest, ASnapshotSegmentIsDroppedSilently) {
    start_with_callback(3);
    push_message(3, 2, 100);
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ReceiveTest, AMessageOfAnUnknownTypeIsDroppedSilently) {
    start_with_callback(3);
    push_message(3, 3, 184);
    push_message(3, 0xFFFFFFFF, 184);
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_THAT(spi.change_numbers, ElementsAre());
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ReceiveTest, APollThatFailsYieldsNothing) {
    start_with_callback(3);
    card->push_quote(3, quote_number(1));
    sdk().fail("enyx_hw_a2c_stream_poll_once", 1, EIO);
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_EQ(engine->KovaRecv(), 1);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ReceiveTest, AMessageWithoutUserDataIsDropped) {
    const U50QuoteMessage message{{DMA_UDP, 184}, quote_number(7)};
    EngineAccess::md_handler(reinterpret_cast<const unsigned char*>(&message), 184, nullptr);
    EXPECT_THAT(new_log(), ElementsAre("[E][_MdHandler]user_data is nullptr"));
}

TEST_F(ReceiveTest, TheClearingHandlerDiscardsEverything) {
    start_with_callback(3);
    const U50QuoteMessage message{{DMA_UDP, 184}, quote_number(7)};
    EngineAccess::md_clear_handler(reinterpret_cast<const unsigned char*>(&message), 184,
                                   &EngineAccess::user_data(*engine));
    EXPECT_THAT(spi.change_numbers, ElementsAre());
    EXPECT_FALSE(EngineAccess::user_data(*engine).isQuote);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ReceiveTest, AnEventOfAnotherChannelIsTwoWarningsAndNothingElse) {
    start_with_callback(3);
    EngineAccess::is_all_init_finished(*engine) = true;
    EngineAccess::is_tcp_init_finished(*engine) = true;
    EngineAccess::finished_mask(*engine).enabled_mask = 5;
    card->push_event(3, {0x80, 2, 1, 4294967295, 5, 6});
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_THAT(
        new_log(),
        ElementsAre("[W][_MdHandler]channel3 got DMA_EVENT event_data0[128] event_data1[2] event_data2[1] "
                    "event_data3[4294967295] event_data4[5] event_data5[6]",
                    "[W][_MdHandler]channel3 receive DMA_EVENT event_data0[128] event_data1[2] "
                    "event_data2[1]"));
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_TRUE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_FALSE(EngineAccess::is_hbm2_init_finished(*engine));
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 5);
    EXPECT_EQ(sdk().register_accesses().size(), 0U);
}

// Channel 0.

TEST_F(ReceiveTest, TheFirstMemoryEventIsNotedAndGoesNoFurther) {
    start_channel_zero();
    card->push_event(0, {0x80, 0, 1, 0, 0, 0});
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_TRUE(EngineAccess::is_hbm2_init_finished(*engine));
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_THAT(
        new_log(),
        ElementsAre("[W][_MdHandler]channel0 got DMA_EVENT event_data0[128] event_data1[0] event_data2[1] "
                    "event_data3[0] event_data4[0] event_data5[0]",
                    "[I][_MdHandler]received HBM2 init event, event_data2=00000001"));
}

TEST_F(ReceiveTest, TheNextMemoryEventIsJudged) {
    start_channel_zero();
    card->push_event(0, {0, 0, 1, 0, 0, 0});
    card->push_event(0, {0x80, 0, 1, 0, 0, 0});
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    forget();
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
    const Strings log = new_log();
    ASSERT_GE(log.size(), 2U);
    EXPECT_EQ(log[1], "[W][_CheckLostUdpPktHandler]received lost pkt event, event_data0=00000080");
}

TEST_F(ReceiveTest, AnEventThatIsNoMemoryEventIsJudgedAtOnce) {
    start_channel_zero();
    card->push_event(0, {0, 1, 0xFFFFFFFE, 0, 0, 0});
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_FALSE(EngineAccess::is_hbm2_init_finished(*engine));
}

TEST_F(ReceiveTest, AnEventThatMeansNothingChangesNothing) {
    start_channel_zero();
    card->push_event(0, {0, 0, 0, 0, 0, 0});
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_EQ(new_log().size(), 1U);
}

TEST_F(ReceiveTest, ALostCardIsBroughtUpAgainBeforeThePollAndAFailureEndsTheCall) {
    start_channel_zero();
    EngineAccess::is_all_init_finished(*engine) = false;
    EngineAccess::finished_mask(*engine).enabled_mask = 5;
    card->push_quote(0, quote_number(1));
    const Strings failure = {"[D][_KovaSubDmaUp]channel0 FPGA Init......begin",
                             "[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 0",
                             "[E][KovaRecv]_KovaSubDmaUp is error"};
    EXPECT_EQ(engine->KovaRecv(), -1);
    EXPECT_EQ(new_log(), failure);
    EXPECT_EQ(engine->KovaRecv(record), -1);
    EXPECT_EQ(new_log(), failure);
    EXPECT_EQ(Polls::count(), 0U);
    // The snapshot is not thrown away here.
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 5);
    // Once the card is up the quote is there.
    EngineAccess::is_all_init_finished(*engine) = true;
    EXPECT_EQ(engine->KovaRecv(), 1);
}

TEST_F(ReceiveTest, AStopComesBeforeTheBringUp) {
    start_channel_zero();
    EngineAccess::is_all_init_finished(*engine) = false;
    engine->KovaStop();
    EXPECT_EQ(engine->KovaRecv(), -1);
    EXPECT_EQ(engine->KovaRecv(record), -1);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ReceiveTest, AnotherChannelIsNeverBroughtUpFromHere) {
    start_with_callback(3);
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_EQ(EngineAccess::bring_up(*engine, 1), 0);
    EXPECT_EQ(EngineAccess::check_and_bring_up(*engine), 0);
    EXPECT_EQ(new_log(), Strings{});
}

// Stops.

TEST_F(ReceiveTest, EveryCallAfterAStopResetsTheSnapshot) {
    start_with_callback(3);
    engine->KovaStop();
    for (int i = 0; i < 3; ++i) {
        EngineAccess::finished_mask(*engine).enabled_mask = 15;
        EngineAccess::session(*engine, 33022).init = 1;
        EXPECT_EQ(i % 2 == 0 ? engine->KovaRecv() : engine->KovaRecv(record), -1);
        EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0);
        EXPECT_EQ(EngineAccess::peek_session(*engine, 33022).init, 0);
    }
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ReceiveTest, AStopFromTheCallbackLetsTheCallFinish) {
    ActingSpi stopping([&](const KovaShfeMdType&) { engine->KovaStop(); });
    ASSERT_EQ(engine->KovaStart(stopping, config_of_channel(3)), 0);
    card->push_quote(3, quote_number(1));
    card->push_quote(3, quote_number(2));
    EXPECT_EQ(engine->KovaRecv(), 1);
    EXPECT_EQ(engine->KovaRecv(), -1);
}

// The blocking loop.

TEST_F(ReceiveTest, TheLoopReceivesUntilItIsStopped) {
    std::vector<std::uint32_t> numbers;
    ActingSpi stopping([&](const KovaShfeMdType& quote) {
        numbers.push_back(quote.change_no);
        if (quote.change_no == 3) {
            engine->KovaStop();
        }
    });
    // The card sends after some empty polls.
    Polls::before_each([&](std::uint64_t number) {
        if (number % 5 == 0) {
            card->push_quote(3, quote_number(static_cast<std::uint32_t>(number / 5)));
        }
    });
    EXPECT_EQ(engine->KovaRecvStart(stopping, config_of_channel(3)), 0);
    EXPECT_THAT(numbers, ElementsAre(1, 2, 3));
    EXPECT_EQ(Polls::count(), 15U);
}

TEST_F(ReceiveTest, TheLoopEndsWithoutAnErrorWhenTheCardCannotBeBroughtUpAgain) {
    // The checksum of this configuration lies in the card, packets flow: the start leaves the card alone.
    const char* const path = config("crc_mux_check = 1\ninit_tcpcnt = 0\nboard_id = 8");
    RegisterTraffic::answer(0x1001, {0xB8552D7B});
    RegisterTraffic::answer(0x1220, {1, 2});
    Polls::before_each([&](std::uint64_t number) {
        if (number == 1) {
            card->push_event(0, {0, 1, 0, 0, 0, 0});
        }
    });
    EXPECT_EQ(engine->KovaRecvStart(spi, path), 0);
    EXPECT_EQ(Polls::count(), 1U);
    EXPECT_EQ(new_log().back(), "[E][KovaRecv]_KovaSubDmaUp is error");
}

TEST_F(ReceiveTest, TheLoopDoesNotBeginWhenTheStartFails) {
    EXPECT_EQ(engine->KovaRecvStart(spi, "missing.ini"), -1);
    EXPECT_EQ(engine->KovaRecvStart(spi, nullptr), -1);
    EXPECT_EQ(engine->KovaRecvStart(spi, config("device = xilinx7:3")), -1);
    EXPECT_EQ(Polls::count(), 0U);
}

TEST_F(ReceiveTest, TheLoopEndsByASignal) {
    Polls::before_each([](std::uint64_t number) {
        if (number == 10) {
            std::raise(SIGTERM);
        }
    });
    EXPECT_EQ(engine->KovaRecvStart(spi, config_of_channel(3)), 0);
    EXPECT_EQ(Polls::count(), 10U);
}

TEST_F(ReceiveTest, TheLoopEndsWhenAnotherThreadStopsIt) {
    std::atomic<bool> is_receiving{false};
    ActingSpi telling([&](const KovaShfeMdType&) { is_receiving = true; });
    Polls::before_each([&](std::uint64_t number) {
        if (number == 1) {
            card->push_quote(3, quote_number(1));
        }
    });
    const char* const path = config_of_channel(3);
    std::thread stopper([&] {
        while (!is_receiving) {
            std::this_thread::yield();
        }
        engine->KovaStop();
    });
    EXPECT_EQ(engine->KovaRecvStart(telling, path), 0);
    stopper.join();
    EXPECT_TRUE(is_receiving);
}

}  // namespace
