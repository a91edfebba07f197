#include "sim/card/card.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include "sim/card/attached_card.h"
#include "sim/card/registers.h"
#include "wire/DmaMessage.h"
#include "wire/RegisterMap.h"

namespace kova::sim {
namespace {

constexpr CardOptions kSmall{.slots_log2 = 6};

// Cards of this machine that no other test process uses.
std::uint32_t own_index(std::uint32_t n = 0) {
    return 1'000'000 + static_cast<std::uint32_t>(getpid()) * 4 + n;
}

bool memory_exists(std::uint32_t index) {
    const int file = shm_open(card_memory_name(index).data(), O_RDONLY, 0);
    if (file >= 0) {
        close(file);
    }
    return file >= 0;
}

KovaShfeMdType quote(std::uint32_t inst_no) {
    KovaShfeMdType record{};
    record.inst_no = inst_no;
    std::strcpy(record.inst_id, "cu2701");
    return record;
}

SInstTableType row(std::uint32_t config) {
    SInstTableType row{};
    row.config = config;
    return row;
}

void start_cores(Card& card) {
    preset_register(card.memory().registers, REG_CORE_START, 1);
    preset_register(card.memory().registers, REG_CORE_START + REG_CORE_STRIDE, 1);
}

TEST(CardPower, ACardThatIsOffIsNoSuchDevice) {
    EXPECT_EQ(attach(own_index()), nullptr);
    EXPECT_EQ(errno, ENODEV);
}

TEST(CardPower, APoweredCardIsFoundByIndexAndItsMemoryGoesWithIt) {
    {
        const Card card = Card::power_on(own_index(), kSmall);
        const AttachedCard client = attach(own_index());
        ASSERT_NE(client, nullptr);
        EXPECT_EQ(client->memory().identity.owner_process, static_cast<std::uint32_t>(getpid()));
        EXPECT_EQ(attach(own_index(1)), nullptr);
    }
    EXPECT_FALSE(memory_exists(own_index()));
    EXPECT_EQ(attach(own_index()), nullptr);
}

TEST(CardPower, ACardIsPoweredOnce) {
    const Card card = Card::power_on(own_index(), kSmall);
    EXPECT_THROW(Card::power_on(own_index(), kSmall), CardError);
    EXPECT_NE(attach(own_index()), nullptr);
}

TEST(CardPower, MemoryOfACardThatWasKilledIsNoCardAndIsReplaced) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const Card card = Card::power_on(own_index(), kSmall);
        kill(getpid(), SIGKILL);
    }
    // own_index() of the child is the child's.
    const std::uint32_t index = 1'000'000 + static_cast<std::uint32_t>(child) * 4;
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_TRUE(memory_exists(index));
    EXPECT_EQ(attach(index), nullptr);
    EXPECT_EQ(errno, ENODEV);
    {
        const Card card = Card::power_on(index, kSmall);
        EXPECT_TRUE(card.replaced_leftover());
        EXPECT_NE(attach(index), nullptr);
    }
    EXPECT_FALSE(memory_exists(index));
}

TEST(CardPower, AFreshCardReplacesNothing) {
    const Card card = Card::power_on(own_index(), kSmall);
    EXPECT_FALSE(card.replaced_leftover());
}

TEST(CardPower, MemoryOfAnotherLayoutIsRefused) {
    const Card card = Card::power_on(own_index(), kSmall);
    card.memory().identity.layout_version = kLayoutVersion + 1;
    EXPECT_EQ(attach(own_index()), nullptr);
    EXPECT_EQ(errno, EPROTO);
}

TEST(CardPower, ARingSizeThatNoMessageFitsIsRefused) {
    EXPECT_THROW(Card::power_on(own_index(), {.slots_log2 = 5}), CardError);
    EXPECT_THROW(Card::power_on(own_index(), {.slots_log2 = 23}), CardError);
    EXPECT_FALSE(memory_exists(own_index()));
}

TEST(CardPower, APrivateCardIsFoundInThisProcessOnly) {
    const Card card = Card::power_on_privately(3, kSmall);
    EXPECT_NE(attach(3), nullptr);
    EXPECT_FALSE(memory_exists(3));
}

TEST(CardStreams, NamesOfChannels) {
    EXPECT_EQ(channel_of("CUSTOM_CHAN0_DATA"), 0U);
    EXPECT_EQ(channel_of("CUSTOM_CHAN15_DATA"), 15U);
    for (const char* name :
         {"CUSTOM_CHAN16_DATA", "CUSTOM_CHAN_DATA", "CUSTOM_CHAN-1_DATA", "CUSTOM_CHAN01_DATA", "CUSTOM_CHAN1",
          "CUSTOM_CHAN1_DATAX", "", "CHAN1_DATA", "CUSTOM_CHAN1x_DATA"}) {
        EXPECT_EQ(channel_of(name), std::nullopt) << name;
    }
}

TEST(CardStreams, AChannelHasOneReaderAtATime) {
    const Card card = Card::power_on_privately(0, kSmall);
    const AttachedCard client = attach(0);
    auto first = CardToHostStream::open(client, 3);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(CardToHostStream::open(client, 3), nullptr);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_NE(CardToHostStream::open(client, 4), nullptr);
    first.reset();
    EXPECT_NE(CardToHostStream::open(client, 3), nullptr);
}

TEST(CardStreams, TheChannelOfAReaderThatWasKilledIsFreeAtOnce) {
    Card card = Card::power_on_privately(0, kSmall);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto stream = CardToHostStream::open(attach(0), 3);
        kill(getpid(), stream != nullptr ? SIGKILL : SIGTERM);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(WTERMSIG(status), SIGKILL);
    RingControl& control = card.memory().channels[3].card_to_host;
    EXPECT_EQ(control.reader >> 32, static_cast<std::uint64_t>(child));
    card.close_streams_of_dead_readers();
    EXPECT_EQ(control.reader, 0U);
    EXPECT_EQ(card.push_quote(3, quote(1)), PushResult::kUnheard);
    const auto stream = CardToHostStream::open(attach(0), 3);
    ASSERT_NE(stream, nullptr);
    card.close_streams_of_dead_readers();
    EXPECT_EQ(card.push_quote(3, quote(1)), PushResult::kSent);
}

TEST(CardStreams, AReaderKilledInsideAPollLeavesTheChannelUsable) {
    Card card = Card::power_on_privately(0, kSmall);
    int opened[2];
    ASSERT_EQ(pipe(opened), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const auto stream = CardToHostStream::open(attach(0), 3);
        static_cast<void>(write(opened[1], "o", 1));
        for (;;) {
            stream->poll([](const std::uint8_t*, std::uint32_t) { kill(getpid(), SIGKILL); });
        }
    }
    char byte = 0;
    ASSERT_EQ(read(opened[0], &byte, 1), 1);
    EXPECT_EQ(card.push_quote(3, quote(1)), PushResult::kSent);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(WTERMSIG(status), SIGKILL);
    const auto stream = CardToHostStream::open(attach(0), 3);
    ASSERT_NE(stream, nullptr);
    card.push_quote(3, quote(2));
    std::uint32_t inst_no = 0;
    EXPECT_EQ(stream->poll([&inst_no](const std::uint8_t* data, std::uint32_t) {
        std::memcpy(&inst_no, data + 8, sizeof inst_no);
    }),
              1);
    EXPECT_EQ(inst_no, 2U);
    EXPECT_EQ(card.memory().channels[3].card_to_host.abandoned, 1U);
    close(opened[0]);
    close(opened[1]);
}

TEST(CardStreams, AQuoteMessageIsTheHeaderAndTheRecord) {
    Card card = Card::power_on_privately(0, kSmall);
    const auto stream = CardToHostStream::open(attach(0), 1);
    card.push_quote(1, quote(258));
    std::string bytes;
    stream->poll([&bytes](const std::uint8_t* data, std::uint32_t size) {
        bytes.assign(reinterpret_cast<const char*>(data), size);
    });
    ASSERT_EQ(bytes.size(), 184U);
    EXPECT_EQ(bytes.substr(0, 12), std::string("\1\0\0\0\xB0\0\0\0\2\1\0\0", 12));
    EXPECT_EQ(bytes.substr(12, 7), std::string("cu2701\0", 7));
}

TEST(CardStreams, AnEventMessageHasSixWords) {
    Card card = Card::power_on_privately(0, kSmall);
    const auto stream = CardToHostStream::open(attach(0), 0);
    card.push_event(0, {1, 2, 3, 4, 5, 0x80});
    std::string bytes;
    stream->poll([&bytes](const std::uint8_t* data, std::uint32_t size) {
        bytes.assign(reinterpret_cast<const char*>(data), size);
    });
    EXPECT_EQ(bytes, std::string("\0\0\0\0\x18\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0\4\0\0\0\5\0\0\0\x80\0\0\0", 32));
}

TEST(CardStreams, AMessageBeyondTheMtuIsRefused) {
    Card card = Card::power_on_privately(0, kSmall);
    const std::vector<std::byte> longest(kCardToHostMtu);
    const std::vector<std::byte> longer(kCardToHostMtu + 1);
    EXPECT_EQ(card.push(0, longest), PushResult::kUnheard);
    EXPECT_THROW(card.push(0, longer), CardError);
}

TEST(CardStreams, WhatTheHostSendsReachesTheCard) {
    Card card = Card::power_on_privately(0, kSmall);
    const auto stream = HostToCardStream::open(attach(0), 2);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(card.take_from_host(2), std::nullopt);
    EXPECT_EQ(stream->send("hello", 5), 0);
    const auto message = card.take_from_host(2);
    ASSERT_TRUE(message.has_value());
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(message->data()), message->size()), "hello");
    const std::string longest(kHostToCardMtu + 1, 'x');
    EXPECT_EQ(stream->send(longest.data(), kHostToCardMtu), 0);
    EXPECT_EQ(stream->send(longest.data(), kHostToCardMtu + 1), EMSGSIZE);
}

TEST(CardStreams, ACardThatTakesNothingMakesASendFail) {
    const Card card = Card::power_on_privately(0, kSmall);
    const auto stream = HostToCardStream::open(attach(0), 2);
    for (int i = 0; i < 255; ++i) {
        ASSERT_EQ(stream->send("hello", 5), 0);
    }
    EXPECT_EQ(stream->send("hello", 5), ENOBUFS);
}

class CardRouting : public ::testing::Test {
 protected:
    Card card_ = Card::power_on_privately(0, kSmall);
    AttachedCard client_ = attach(0);
    std::unique_ptr<CardToHostStream> one_ = CardToHostStream::open(client_, 1);
    std::unique_ptr<CardToHostStream> fifteen_ = CardToHostStream::open(client_, 15);

    static int take(CardToHostStream& stream) {
        return stream.poll([](const std::uint8_t*, std::uint32_t) {});
    }
};

TEST_F(CardRouting, AQuoteGoesToExactlyTheChannelsInItsRow) {
    start_cores(card_);
    card_.set_row(SHFE_2PS, 7, row(0x8000'8002));
    const Routed routed = card_.route_quote(SHFE_2PS, quote(7));
    EXPECT_EQ(routed.sent, 2U);
    EXPECT_EQ(take(*one_), 1);
    EXPECT_EQ(take(*one_), 0);
    EXPECT_EQ(take(*fifteen_), 1);
    card_.set_row(SHFE_2PS, 7, row(0x8000'0002));
    card_.route_quote(SHFE_2PS, quote(7));
    EXPECT_EQ(take(*one_), 1);
    EXPECT_EQ(take(*fifteen_), 0);
}

TEST_F(CardRouting, EachFeedHasATableOfItsOwn) {
    start_cores(card_);
    card_.set_row(SHFE_2PS, 7, row(0x2));
    EXPECT_EQ(card_.route_quote(SHFE_4PS, quote(7)).sent, 0U);
    EXPECT_EQ(card_.route_quote(INE_2PS, quote(7)).sent, 0U);
    EXPECT_EQ(card_.route_quote(INE_4PS, quote(7)).sent, 0U);
    card_.set_row(INE_4PS, 4095, row(0x2));
    EXPECT_EQ(card_.route_quote(INE_4PS, quote(4095)).sent, 1U);
}

TEST_F(CardRouting, NothingFlowsBeforeTheCoreIsStarted) {
    card_.set_row(SHFE_2PS, 7, row(0x2));
    card_.set_row(SHFE_4PS, 7, row(0x2));
    EXPECT_EQ(card_.route_quote(SHFE_2PS, quote(7)).sent, 0U);
    EXPECT_EQ(read_register(card_.memory(), REG_SHFE2PS_PKTS), 0U);
    write_register(card_.memory(), REG_CORE_START, 1);
    EXPECT_EQ(card_.route_quote(SHFE_2PS, quote(7)).sent, 1U);
    EXPECT_EQ(card_.route_quote(SHFE_4PS, quote(7)).sent, 0U);
    write_register(card_.memory(), REG_CORE_START + REG_CORE_STRIDE, 1);
    EXPECT_EQ(card_.route_quote(SHFE_4PS, quote(7)).sent, 1U);
}

TEST_F(CardRouting, AnInitialisationStopsTheFeedsAndKeepsTheChecksum) {
    card_.set_row(SHFE_2PS, 7, row(0x2));
    write_register(card_.memory(), REG_CORE_START, 1);
    write_register(card_.memory(), REG_CONFIG_CRC, 0xE3069283);
    write_register(card_.memory(), REG_INIT_TRIGGER, 1);
    EXPECT_EQ(card_.route_quote(SHFE_2PS, quote(7)).sent, 0U);
    EXPECT_EQ(read_register(card_.memory(), REG_CONFIG_CRC), 0xE3069283U);
}

TEST_F(CardRouting, PacketsAreCountedPerFeed) {
    start_cores(card_);
    card_.route_quote(SHFE_2PS, quote(1));
    card_.route_quote(INE_2PS, quote(1));
    card_.route_quote(INE_2PS, quote(2));
    EXPECT_EQ(read_register(card_.memory(), REG_SHFE2PS_PKTS), 1U);
    EXPECT_EQ(read_register(card_.memory(), REG_INE2PS_PKTS), 2U);
    EXPECT_EQ(read_register(card_.memory(), REG_SHFE4PS_PKTS), 0U);
    EXPECT_EQ(read_register(card_.memory(), REG_INE4PS_PKTS), 0U);
}

TEST_F(CardRouting, AnInstrumentNumberBeyondItsTableGoesNowhere) {
    start_cores(card_);
    EXPECT_EQ(card_.route_quote(INE_2PS, quote(4096)).sent, 0U);
    EXPECT_EQ(card_.route_quote(SHFE_2PS, quote(0xFFFFFFFF)).sent, 0U);
    EXPECT_THROW(card_.set_row(INE_2PS, 4096, row(0)), CardError);
}

TEST_F(CardRouting, LossesAndUnheardQuotesAreCountedPerChannel) {
    start_cores(card_);
    card_.set_row(SHFE_2PS, 7, row(0x6));
    Routed total;
    for (int i = 0; i < 70; ++i) {
        const Routed routed = card_.route_quote(SHFE_2PS, quote(7));
        total.sent += routed.sent;
        total.lost += routed.lost;
        total.unheard += routed.unheard;
    }
    EXPECT_EQ(total.sent, 63U);
    EXPECT_EQ(total.lost, 7U);
    EXPECT_EQ(total.unheard, 70U);
    EXPECT_EQ(card_.memory().channels[1].card_to_host.lost, 7U);
    EXPECT_EQ(card_.memory().channels[2].card_to_host.unheard, 70U);
}

}  // namespace
}  // namespace kova::sim
