#include "kova_simcard/status.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <nlohmann/json.hpp>

#include "kova_simcard/status_text.h"
#include "sim/card/attached_card.h"
#include "sim/card/card.h"
#include "sim/card/registers.h"
#include "wire/RegisterMap.h"

namespace kova::app {
namespace {

constexpr std::uint32_t kCard = 3;

struct CardUnderTest {
    sim::Card card = sim::Card::power_on_privately(kCard, {.slots_log2 = 6});
    sim::AttachedCard client = sim::attach(kCard);

    [[nodiscard]] CardStatus status() const { return collect_status(*client); }
    std::unique_ptr<sim::CardToHostStream> open(std::uint32_t channel) {
        return sim::CardToHostStream::open(client, channel);
    }
    static int take(sim::CardToHostStream& stream) {
        return stream.poll([](const std::uint8_t*, std::uint32_t) {});
    }
};

SInstTableType row(const char* id, std::uint32_t config) {
    SInstTableType row{};
    row.config = config;
    std::strcpy(row.inst_id, id);
    return row;
}

CardStatus example() {
    CardStatus status;
    status.card = 5;
    status.process = 4711;
    status.since = 1'753'000'000;
    status.traffic = sim::TrafficState::kRunning;
    status.feeds = {FeedStatus{16384, 12, 7, 900, true, false, 3, 0},
                    FeedStatus{16384, 12, 7, 0, true, false, 0, 0},
                    FeedStatus{4096, 3, 1, 80, false, true, 0, 21, true, 42}, FeedStatus{4096, 0, 0, 0, false}};
    status.forwarding = {.is_open = true, .openings = 2, .forwarded = 5000, .withheld = 70};
    status.registers = {{"build_version", 4, 0x10121}, {"init_mask", 0x1000, 0}};
    status.channels = {{.channel = 0},
                       {.channel = 1,
                        .is_open = true,
                        .reader_process = 99,
                        .sent = 100,
                        .taken = 60,
                        .lost = 5,
                        .unheard = 6,
                        .abandoned = 30,
                        .waiting = 10},
                       {.channel = 2, .unheard = 8}};
    status.lock_recoveries = 1;
    status.unprotected_accesses = 2;
    return status;
}

TEST(SimcardStatus, FreshCardHasAnOwnerAndNothingElse) {
    const CardUnderTest test;
    const CardStatus status = test.status();
    EXPECT_EQ(status.card, kCard);
    EXPECT_EQ(status.process, static_cast<std::uint32_t>(getpid()));
    EXPECT_NEAR(static_cast<double>(status.since), static_cast<double>(std::time(nullptr)), 30);
    EXPECT_EQ(status.traffic, sim::TrafficState::kNone);
    ASSERT_EQ(status.channels.size(), 16U);
    for (const ChannelStatus& channel : status.channels) {
        EXPECT_FALSE(channel.is_open);
        EXPECT_EQ(channel.sent + channel.taken + channel.lost + channel.unheard + channel.abandoned, 0U);
    }
    EXPECT_EQ(status.feeds[SHFE_2PS].rows, 16384U);
    EXPECT_EQ(status.feeds[INE_4PS].rows, 4096U);
    EXPECT_EQ(status.feeds[SHFE_2PS].filled, 0U);
    EXPECT_FALSE(status.feeds[SHFE_2PS].is_started);
}

TEST(SimcardStatus, RowsAreFilledWithAnIdentifierAndSubscribedWithTheirBit) {
    CardUnderTest test;
    test.card.set_row(INE_2PS, 0, row("sc2701", INST_CONFIG_TAS));
    test.card.set_row(INE_2PS, 1, row("sc2702", INST_CONFIG_SUBSCRIBED));
    test.card.set_row(INE_2PS, 4095, row("sc2703", INST_CONFIG_SUBSCRIBED | 4));
    test.card.set_row(SHFE_4PS, 16383, row("cu2701", INST_CONFIG_SUBSCRIBED | 4));
    const CardStatus status = test.status();
    EXPECT_EQ(status.feeds[INE_2PS].filled, 3U);
    EXPECT_EQ(status.feeds[INE_2PS].subscribed, 2U);
    EXPECT_EQ(status.feeds[SHFE_4PS].filled, 1U);
    EXPECT_EQ(status.feeds[SHFE_4PS].subscribed, 1U);
    EXPECT_EQ(status.feeds[SHFE_2PS].filled, 0U);
    EXPECT_EQ(status.feeds[INE_4PS].filled, 0U);
}

TEST(SimcardStatus, EveryMessageOfAChannelIsAccounted) {
    CardUnderTest test;
    const KovaShfeMdType quote{};
    test.card.push_quote(2, quote);  // nobody has it open
    auto reader = test.open(2);
    for (int i = 0; i < 5; ++i) {
        test.card.push_quote(2, quote);
    }
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(CardUnderTest::take(*reader), 1);
    }
    reader.reset();  // three are left unread
    reader = test.open(2);
    for (int i = 0; i < 70; ++i) {  // 63 fit
        test.card.push_quote(2, quote);
    }
    while (CardUnderTest::take(*reader) == 1) {
    }
    for (int i = 0; i < 4; ++i) {
        test.card.push_quote(2, quote);
    }
    const ChannelStatus channel = test.status().channels[2];
    EXPECT_TRUE(channel.is_open);
    EXPECT_EQ(channel.reader_process, static_cast<std::uint32_t>(getpid()));
    EXPECT_EQ(channel.unheard, 1U);
    EXPECT_EQ(channel.sent, 5U + 63U + 4U);
    EXPECT_EQ(channel.lost, 7U);
    EXPECT_EQ(channel.taken, 2U + 63U);
    EXPECT_EQ(channel.abandoned, 3U);
    EXPECT_EQ(channel.waiting, 4U);
}

TEST(SimcardStatus, RegistersAndPacketsAreWhatTheHostWouldRead) {
    CardUnderTest test;
    sim::RegisterFile& registers = test.card.memory().registers;
    sim::preset_register(registers, REG_SHFE_INST_COUNT, 321);
    sim::preset_register(registers, REG_CORE_START + REG_CORE_STRIDE, 1);
    sim::count_packet(registers, INE_4PS);
    sim::count_packet(registers, INE_4PS);
    const CardStatus status = test.status();
    EXPECT_EQ(status.feeds[INE_4PS].packets, 2U);
    EXPECT_EQ(status.feeds[SHFE_2PS].packets, 0U);
    EXPECT_TRUE(status.feeds[SHFE_4PS].is_started);
    EXPECT_TRUE(status.feeds[INE_4PS].is_started);
    EXPECT_FALSE(status.feeds[SHFE_2PS].is_started);
    const auto count = std::ranges::find(status.registers, "shfe_inst_count", &RegisterStatus::name);
    ASSERT_NE(count, status.registers.end());
    EXPECT_EQ(count->number, 0x1F14U);
    EXPECT_EQ(count->value, 321U);
}

TEST(SimcardStatus, TablesTellWhetherTheyAreOpenAndWhatTheyRefused) {
    CardUnderTest test;
    sim::CardMemory& memory = test.card.memory();
    for (const FeedStatus& feed : test.status().feeds) {
        EXPECT_TRUE(feed.is_open);
        EXPECT_EQ(feed.refused_writes + feed.outside, 0U);
    }
    sim::write_register(memory, 0x11004, 4096 * 64);  // outside
    sim::write_register(memory, 0x11005, 1);
    sim::write_register(memory, 0x11004, 0xFFFFFFFF);  // closes INE 2PS
    sim::write_register(memory, 0x11004, 0);
    sim::write_register(memory, 0x11004, 1);
    const CardStatus status = test.status();
    EXPECT_FALSE(status.feeds[INE_2PS].is_open);
    EXPECT_EQ(status.feeds[INE_2PS].refused_writes, 2U);
    EXPECT_EQ(status.feeds[INE_2PS].outside, 1U);
    EXPECT_TRUE(status.feeds[INE_4PS].is_open);
}

TEST(SimcardStatus, ForwardingTellsWhatCameThrough) {
    CardUnderTest test;
    const auto reader = test.open(0);
    const std::vector<std::byte> frame(60);
    test.card.forward_frame(frame);
    sim::write_register(test.card.memory(), 0x1000, 0xF);
    test.card.forward_frame(frame);
    test.card.forward_frame(frame);
    const ForwardingStatus status = test.status().forwarding;
    EXPECT_TRUE(status.is_open);
    EXPECT_EQ(status.openings, 1U);
    EXPECT_EQ(status.forwarded, 2U);
    EXPECT_EQ(status.withheld, 1U);
}

TEST(SimcardStatus, PacketNumbersOfTheSnapshotAreShown) {
    CardUnderTest test;
    sim::write_register(test.card.memory(), 0x11110, 11);
    sim::write_register(test.card.memory(), 0x21110, 12);
    sim::write_register(test.card.memory(), 0x11111, 21);
    sim::write_register(test.card.memory(), 0x21111, 22);
    const CardStatus status = test.status();
    const auto value_of = [&status](const char* name) {
        const auto found = std::ranges::find(status.registers, name, &RegisterStatus::name);
        return found == status.registers.end() ? 0 : found->value;
    };
    EXPECT_EQ(value_of("shfe_packet_no_2ps"), 11U);
    EXPECT_EQ(value_of("shfe_packet_no_4ps"), 12U);
    EXPECT_EQ(value_of("ine_packet_no_2ps"), 21U);
    EXPECT_EQ(value_of("ine_packet_no_4ps"), 22U);
}

TEST(SimcardStatus, LookingChangesNothing) {
    CardUnderTest test;
    const auto reader = test.open(1);
    test.card.push_quote(1, KovaShfeMdType{});
    EXPECT_EQ(status_json(test.status()), status_json(test.status()));
    EXPECT_EQ(CardUnderTest::take(*reader), 1);
    EXPECT_EQ(CardUnderTest::take(*reader), 0);
}

TEST(SimcardStatusText, JsonHasEveryValueUnderItsName) {
    const nlohmann::json json = nlohmann::json::parse(status_json(example()));
    EXPECT_EQ(json.at("card"), 5);
    EXPECT_EQ(json.at("state"), "on");
    EXPECT_EQ(json.at("pid"), 4711);
    EXPECT_EQ(json.at("since"), "2025-07-20T08:26:40Z");
    EXPECT_EQ(json.at("traffic"), "running");
    ASSERT_EQ(json.at("channels").size(), 3U);
    EXPECT_EQ(json.at("channels").at(1), nlohmann::json::parse(R"({"channel": 1, "open": true, "pid": 99,
        "sent": 100, "taken": 60, "lost": 5, "unheard": 6, "abandoned": 30, "waiting": 10})"));
    EXPECT_EQ(json.at("lock"), nlohmann::json::parse(R"({"recoveries": 1, "unprotected": 2})"));
    EXPECT_EQ(json.at("packets"),
              nlohmann::json::parse(R"({"shfe_2ps": 900, "shfe_4ps": 0, "ine_2ps": 80, "ine_4ps": 0})"));
    EXPECT_EQ(json.at("tables").at("ine_2ps"),
              nlohmann::json::parse(R"({"rows": 4096, "filled": 3, "subscribed": 1, "open": true,
        "refused_writes": 0, "outside": 21})"));
    EXPECT_EQ(json.at("tables").at("shfe_2ps").at("open"), false);
    EXPECT_EQ(json.at("tables").at("shfe_2ps").at("refused_writes"), 3);
    EXPECT_EQ(json.at("forwarding"),
              nlohmann::json::parse(R"({"open": true, "openings": 2, "forwarded": 5000, "withheld": 70})"));
    EXPECT_EQ(json.at("cores").at("shfe_4ps"), "started");
    EXPECT_EQ(json.at("cores").at("ine_4ps"), "stopped");
    EXPECT_EQ(json.at("registers").at("build_version"), 65825);
    EXPECT_EQ(json.at("registers").at("init_mask"), 0);
    EXPECT_EQ(json.at("snapshot_cycles").at("ine_2ps"), 42);
    EXPECT_EQ(json.at("lines").at("ine_2ps"), "cut");
    EXPECT_EQ(json.at("lines").at("shfe_2ps"), "whole");
}

TEST(SimcardStatusText, JsonIsOneLine) {
    EXPECT_EQ(status_json(example()).find('\n'), std::string::npos);
}

TEST(SimcardStatusText, JsonOfNoCardSaysWhy) {
    EXPECT_EQ(status_json_of_no_card(7, "it is off"), R"({"card":7,"state":"off","reason":"it is off"})");
}

TEST(SimcardStatusText, TableShowsChannelsWithAHistory) {
    ::setenv("TZ", "UTC", 1);
    ::tzset();
    EXPECT_EQ(
        status_text(example()),
        "card 5: on, pid 4711, since 2025-07-20 08:26:40, traffic running\n"
        "\n"
        "feed         rows  filled  subscribed     packets  core    table    refused  outside  line   cycles\n"
        "shfe_2ps    16384      12           7         900  started closed         3        0  whole       0\n"
        "shfe_4ps    16384      12           7           0  started closed         0        0  whole       0\n"
        "ine_2ps      4096       3           1          80  stopped open           0       21  cut        42\n"
        "ine_4ps      4096       0           0           0  stopped open           0        0  whole       0\n"
        "\n"
        "snapshot forwarding: open, opened 2 times, 5000 frames forwarded, 70 withheld\n"
        "\n"
        "channel    reader        sent       taken  waiting      lost abandoned     unheard\n"
        "1              99         100          60       10         5        30           6\n"
        "2               -           0           0        0         0         0           8\n"
        "\n"
        "register                  number       value     decimal\n"
        "build_version                0x4     0x10121       65825\n"
        "(all others hold 0)\n"
        "\n"
        "register lock: 1 recoveries from killed clients, 2 accesses without it\n");
}

TEST(SimcardStatusText, TableSaysThatNothingHappenedYet) {
    CardStatus status = example();
    status.channels = {{.channel = 0}, {.channel = 1}};
    EXPECT_NE(status_text(status).find("(nothing on any channel yet)\n"), std::string::npos);
}

}  // namespace
}  // namespace kova::app
