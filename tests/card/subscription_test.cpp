// Who receives what: every register access of subscribing and unsubscribing, every line.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "card/access_trace.h"
#include "card/engine_test.h"

namespace kova::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/** A feed's registers by their numbers. */
struct TableRegisters {
    std::uint32_t read_addr;
    std::uint32_t read_data;
    std::uint32_t write_addr;
    std::uint32_t write_data;
};
constexpr TableRegisters kShfe2ps = {0x11002, 0x11003, 0x11000, 0x11001};
constexpr TableRegisters kShfe4ps = {0x21002, 0x21003, 0x21000, 0x21001};
constexpr TableRegisters kIne2ps = {0x11006, 0x11007, 0x11004, 0x11005};
constexpr TableRegisters kIne4ps = {0x21006, 0x21007, 0x21004, 0x21005};

/** A row as the card has it: its config word, its identifier, and zeros. */
using CardRow = std::array<std::uint32_t, 64>;

CardRow card_row(std::uint32_t config, std::string_view inst_id) {
    CardRow row{};
    row[0] = config;
    std::array<char, 16> text{};
    inst_id.copy(text.data(), text.size());
    std::memcpy(&row[33], text.data(), text.size());
    return row;
}

/** The accesses that read one row of the card. */
AccessTrace row_read(const TableRegisters& registers, std::uint32_t row, const CardRow& words) {
    AccessTrace trace;
    for (std::uint32_t j = 0; j < 64; ++j) {
        trace.push_back(write_of(registers.read_addr, row * 64 + j));
        trace.push_back(read_of(registers.read_data, words.at(j)));
    }
    return trace;
}

/** The accesses of subscribing one row, the word read back included. */
AccessTrace row_subscribed(const TableRegisters& registers, std::uint32_t row, std::uint32_t before,
                           std::uint32_t value, std::uint32_t after) {
    return {write_of(registers.read_addr, row * 64), read_of(registers.read_data, before),
            write_of(registers.write_data, value),   write_of(registers.write_addr, row * 64),
            write_of(registers.read_addr, row * 64), read_of(registers.read_data, after)};
}

class SubscriptionTest : public EngineTest {
 protected:
    void SetUp() override {
        start_with_callback(5);
        EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x0F;
    }

    /** The card answers the reads of a whole row. */
    static void answer_row(const TableRegisters& registers, const CardRow& row) {
        sdk().answer_reads(registers.read_data, row);
    }
    /** The card answers the reads of one subscription: the word before, and the word read back. */
    static void answer_words(const TableRegisters& registers, std::vector<std::uint32_t> words) {
        sdk().answer_reads(registers.read_data, words);
    }
    U50ChannelInfo& channel(int number) { return EngineAccess::config(*engine).channelInfo[number]; }
};

// One row.

class SubscribeRowTest : public SubscriptionTest {
 protected:
    void SetUp() override {
        SubscriptionTest::SetUp();
        name(rows[2], "cu2401");
    }

    static void name(SInstTableType& row, std::string_view inst_id) {
        std::memset(row.inst_id, 0, sizeof(row.inst_id));
        inst_id.copy(row.inst_id, sizeof(row.inst_id));
    }
    void subscribe(const char* pattern, int channel_id = 0, bool is_enabled = true) {
        CUstCharArray<32> text;
        text.UnSafeCopyFrom(pattern);
        EXPECT_EQ(
            EngineAccess::subscribe(*engine, rows.data(), is_enabled, kShfe2ps.read_addr, kShfe2ps.read_data,
                                    kShfe2ps.write_addr, kShfe2ps.write_data, 2, channel_id, text),
            0);
    }
    /** Whether a pattern of channel 0 selects an identifier. */
    bool is_selected(const char* pattern, std::string_view inst_id) {
        name(rows[2], inst_id);
        sdk().start_recording();
        subscribe(pattern);
        return !sdk().register_accesses().empty();
    }

    std::vector<SInstTableType> rows = std::vector<SInstTableType>(3);
};

TEST_F(SubscribeRowTest, ASelectedRowTakesTheChannelsBitAndIsReadBack) {
    answer_words(kShfe2ps, {0x00000010, 0x80000012});
    subscribe("cu", 1);
    EXPECT_EQ(sdk().register_accesses(),
              (AccessTrace{write_of(0x11002, 128), read_of(0x11003, 0x00000010), write_of(0x11001, 0x80000012),
                           write_of(0x11000, 128), write_of(0x11002, 128), read_of(0x11003, 0x80000012)}));
    EXPECT_EQ(rows[2].config, 0x80000012U);
    EXPECT_THAT(new_log(), ElementsAre("[D][_ContractSubscribe]subscribe cu2401 128 2147483666",
                                       "[D][_ContractSubscribe]subscribe cu2401 128 2147483666"));
}

TEST_F(SubscribeRowTest, WhatIsReadBackIsToldAndStaysInMemory) {
    answer_words(kShfe2ps, {0, 0x1234});
    subscribe("cu");
    EXPECT_EQ(sdk().register_accesses(), row_subscribed(kShfe2ps, 2, 0, 0x80000001, 0x1234));
    EXPECT_EQ(rows[2].config, 0x1234U);
    EXPECT_THAT(new_log(), ElementsAre("[D][_ContractSubscribe]subscribe cu2401 128 2147483649",
                                       "[D][_ContractSubscribe]subscribe cu2401 128 4660"));
}

TEST_F(SubscribeRowTest, OnlyTheConfigWordOfTheRowChanges) {
    std::memset(&rows[2], 0x41, sizeof(rows[2]));
    name(rows[2], "cu2401");
    SInstTableType expected = rows[2];
    expected.config = 0x80000001;
    const std::vector<SInstTableType> others(rows);
    answer_words(kShfe2ps, {0, 0x80000001});
    subscribe("cu");
    EXPECT_EQ(std::memcmp(&rows[2], &expected, sizeof(expected)), 0);
    EXPECT_EQ(std::memcmp(rows.data(), others.data(), 2 * sizeof(SInstTableType)), 0);
}

TEST_F(SubscribeRowTest, TheWordOfTheCardCountsAndNotTheOneInMemory) {
    rows[2].config = 0xFFFF;
    answer_words(kShfe2ps, {0x0100, 0x80000101});
    subscribe("cu");
    EXPECT_EQ(sdk().register_accesses()[2], write_of(0x11001, 0x80000101));
}

TEST_F(SubscribeRowTest, EachChannelHasItsBit) {
    for (int channel_id = 0; channel_id < 16; ++channel_id) {
        channel(channel_id).insts.UnSafeCopyFrom("cu");
        sdk().start_recording();
        answer_words(kShfe2ps, {0, 0});
        subscribe("cu", channel_id);
        EXPECT_EQ(sdk().register_accesses().at(2), write_of(0x11001, 0x80000000 + (1U << channel_id)))
            << channel_id;
    }
    sdk().start_recording();
    answer_words(kShfe2ps, {0, 0});
    subscribe("cu", 15);
    EXPECT_EQ(sdk().register_accesses().at(2), write_of(0x11001, 0x80008000));
}

TEST_F(SubscribeRowTest, ATasInstrumentTakesItsFlag) {
    name(rows[2], "scTAS1");
    answer_words(kShfe2ps, {0x80000002, 0xC0000003});
    subscribe("sc");
    EXPECT_EQ(sdk().register_accesses(), row_subscribed(kShfe2ps, 2, 0x80000002, 0xC0000003, 0xC0000003));
    EXPECT_THAT(new_log(), ElementsAre("[D][_ContractSubscribe]subscribe scTAS1 128 3221225475",
                                       "[D][_ContractSubscribe]subscribe scTAS1 128 3221225475"));
}

TEST_F(SubscribeRowTest, AnotherInstrumentLosesTheFlagOfATasInstrument) {
    answer_words(kShfe2ps, {0xC0000002, 0x80000003});
    subscribe("cu");
    EXPECT_EQ(sdk().register_accesses(), row_subscribed(kShfe2ps, 2, 0xC0000002, 0x80000003, 0x80000003));
}

TEST_F(SubscribeRowTest, TasMayStandAnywhereInAnIdentifier) {
    EXPECT_TRUE(EngineAccess::is_tas_inst("sc2406TAS"));
    EXPECT_TRUE(EngineAccess::is_tas_inst("TAS"));
    EXPECT_TRUE(EngineAccess::is_tas_inst("aTASb"));
    EXPECT_FALSE(EngineAccess::is_tas_inst("sc2406tas"));
    EXPECT_FALSE(EngineAccess::is_tas_inst("scTA2406S"));
    EXPECT_FALSE(EngineAccess::is_tas_inst("TA"));
    EXPECT_FALSE(EngineAccess::is_tas_inst(""));
}

TEST_F(SubscribeRowTest, ARowThatIsNotSelectedTouchesNothing) {
    subscribe("al");
    EXPECT_EQ(sdk().register_accesses(), AccessTrace{});
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(SubscribeRowTest, ADisabledFeedTouchesNothing) {
    channel(0).recvall = true;
    channel(0).options = true;
    subscribe("cu", 0, false);
    EXPECT_EQ(sdk().register_accesses(), AccessTrace{});
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(SubscribeRowTest, AProductSelectsItsFuturesAndItsOptionsOnlyOnRequest) {
    EXPECT_TRUE(is_selected("cu", "cu2401"));
    EXPECT_FALSE(is_selected("cu", "cu2401C60000"));
    EXPECT_FALSE(is_selected("cu", "al2401"));
    channel(0).options = true;
    EXPECT_TRUE(is_selected("cu", "cu2401C60000"));
    EXPECT_TRUE(is_selected("cu", "cu2401"));
}

TEST_F(SubscribeRowTest, AContractSelectsItselfAndItsOptionsOnlyOnRequest) {
    EXPECT_TRUE(is_selected("cu2401", "cu2401"));
    EXPECT_FALSE(is_selected("cu2401", "cu2401C60000"));
    channel(0).options = true;
    EXPECT_TRUE(is_selected("cu2401", "cu2401C60000"));
    EXPECT_FALSE(is_selected("cu2401", "cu2402C60000"));
}

TEST_F(SubscribeRowTest, AnyOtherLengthSelectsOnlyTheIdenticalIdentifier) {
    for (const bool is_wanting_options : {false, true}) {
        channel(0).options = is_wanting_options;
        EXPECT_TRUE(is_selected("cu24011", "cu24011"));
        EXPECT_FALSE(is_selected("cu24011", "cu240112"));
        EXPECT_TRUE(is_selected("b", "b"));
        EXPECT_FALSE(is_selected("b", "bu2406"));
    }
}

TEST_F(SubscribeRowTest, AnEmptyPatternSelectsARowWithoutAnIdentifier) {
    EXPECT_TRUE(is_selected("", ""));
    EXPECT_FALSE(is_selected("", "cu2401"));
}

TEST_F(SubscribeRowTest, AChannelThatReceivesAllSelectsEveryFuture) {
    channel(0).recvall = true;
    EXPECT_TRUE(is_selected("al", "cu2401"));
    EXPECT_TRUE(is_selected("all", "b"));
    EXPECT_FALSE(is_selected("cu", "cu24011"));
    channel(0).options = true;
    EXPECT_TRUE(is_selected("al", "cu2401C60000"));
}

TEST_F(SubscribeRowTest, TheSwitchesAreThoseOfTheChannel) {
    channel(1).recvall = true;
    EXPECT_FALSE(is_selected("al", "cu2401"));
    channel(1).options = true;
    EXPECT_FALSE(is_selected("cu", "cu2401C60000"));
}

TEST_F(SubscribeRowTest, AnInstrumentWithBadPricesIsNeverSelected) {
    EngineAccess::price_error_inst_ids(*engine) = {"cu2401", "0123456789abcdef"};
    EXPECT_FALSE(is_selected("cu", "cu2401"));
    EXPECT_FALSE(is_selected("cu2401", "cu2401"));
    EXPECT_TRUE(is_selected("cu", "cu2402"));
    channel(0).options = true;
    EXPECT_TRUE(is_selected("cu2401", "cu2401C60000"));
    channel(0).recvall = true;
    EXPECT_FALSE(is_selected("cu", "cu2401"));
    EXPECT_FALSE(is_selected("01", "0123456789abcdef"));
}

TEST_F(SubscribeRowTest, AnIdentifierWithoutANulEndsWithItsSixteenBytes) {
    rows[2].upper_limit_price = 0x00534154;  // "TAS" behind the identifier
    channel(0).options = true;
    name(rows[2], "0123456789abcdef");
    answer_words(kShfe2ps, {0, 0x80000001});
    subscribe("0123456789abcdef");
    EXPECT_EQ(sdk().register_accesses(), row_subscribed(kShfe2ps, 2, 0, 0x80000001, 0x80000001));
    EXPECT_THAT(new_log(), ElementsAre("[D][_ContractSubscribe]subscribe 0123456789abcdef 128 2147483649",
                                       "[D][_ContractSubscribe]subscribe 0123456789abcdef 128 2147483649"));
}

// Taking a channel out of a table.

class UnsubscribeTest : public SubscriptionTest {
 protected:
    void unsubscribe(int inst_count, int channel_id) {
        EXPECT_EQ(EngineAccess::unsubscribe(*engine, rows.data(), kIne4ps.read_addr, kIne4ps.read_data,
                                            kIne4ps.write_addr, kIne4ps.write_data, inst_count, channel_id),
                  0);
    }
    /** What one row leaves in the trace when the card's word is this one. */
    AccessTrace trace_of(std::uint32_t config, int channel_id) {
        sdk().start_recording();
        answer_row(kIne4ps, card_row(config, "sc2406"));
        unsubscribe(1, channel_id);
        AccessTrace trace = sdk().register_accesses();
        EXPECT_EQ(first_difference(AccessTrace(trace.begin(), trace.begin() + 128),
                                   row_read(kIne4ps, 0, card_row(config, "sc2406"))),
                  -1);
        trace.erase(trace.begin(), trace.begin() + 128);
        return trace;
    }

    std::vector<SInstTableType> rows = std::vector<SInstTableType>(3);
};

TEST_F(UnsubscribeTest, EachRowIsReadBackWholeAndLosesTheChannelsBit) {
    const CardRow first = card_row(0x80000006, "sc2406");
    const CardRow second = card_row(0x00000000, "nr2406");
    answer_row(kIne4ps, first);
    answer_row(kIne4ps, second);
    unsubscribe(2, 1);
    AccessTrace expected = row_read(kIne4ps, 0, first);
    append(expected, {write_of(0x21005, 0x80000004), write_of(0x21004, 0)});
    append(expected, row_read(kIne4ps, 1, second));
    append(expected, {write_of(0x21005, 0), write_of(0x21004, 64)});
    EXPECT_EQ(first_difference(sdk().register_accesses(), expected), -1);
    EXPECT_EQ(expected[0], write_of(0x21006, 0));
    EXPECT_EQ(expected[127], read_of(0x21007, 0));
    EXPECT_EQ(expected[130], write_of(0x21006, 64));
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(UnsubscribeTest, TheRowInMemoryIsWhatTheCardHeldBefore) {
    CardRow words{};
    for (std::uint32_t j = 0; j < 64; ++j) {
        words.at(j) = 0x01000000 + j;
    }
    words[0] = 0x80000001;
    std::memset(rows.data(), 0xEE, 3 * sizeof(SInstTableType));
    answer_row(kIne4ps, words);
    unsubscribe(1, 0);
    EXPECT_EQ(std::memcmp(rows.data(), words.data(), 256), 0);
    EXPECT_EQ(rows[0].config, 0x80000001U);
    EXPECT_EQ(rows[0].price_tick, 0x01000001);
    EXPECT_EQ(rows[0].reserved[16], 0x0100003F);
    EXPECT_EQ(rows[1].config, 0xEEEEEEEEU);
}

TEST_F(UnsubscribeTest, ARowWhoseLastChannelLeavesIsWrittenZeroAfterwards) {
    EXPECT_EQ(trace_of(0x80000008, 3),
              (AccessTrace{write_of(0x21005, 0x80000000), write_of(0x21005, 0), write_of(0x21004, 0)}));
}

TEST_F(UnsubscribeTest, ARowThatNobodyReceivedIsWrittenZeroAfterwards) {
    EXPECT_EQ(trace_of(0x80000000, 3),
              (AccessTrace{write_of(0x21005, 0x80000000), write_of(0x21005, 0), write_of(0x21004, 0)}));
}

TEST_F(UnsubscribeTest, ATasRowWhoseLastChannelLeavesKeepsItsFlags) {
    EXPECT_EQ(trace_of(0xC0000008, 3), (AccessTrace{write_of(0x21005, 0xC0000000), write_of(0x21004, 0)}));
}

TEST_F(UnsubscribeTest, OtherChannelsStay) {
    EXPECT_EQ(trace_of(0x8000FFFF, 15), (AccessTrace{write_of(0x21005, 0x80007FFF), write_of(0x21004, 0)}));
    EXPECT_EQ(trace_of(0x8000FFFF, 0), (AccessTrace{write_of(0x21005, 0x8000FFFE), write_of(0x21004, 0)}));
    EXPECT_EQ(trace_of(0x00000004, 3), (AccessTrace{write_of(0x21005, 0x00000004), write_of(0x21004, 0)}));
}

TEST_F(UnsubscribeTest, OnlyFiveBitsOfAChannelCount) {
    EXPECT_EQ(trace_of(0x80000006, 33), (AccessTrace{write_of(0x21005, 0x80000004), write_of(0x21004, 0)}));
    EXPECT_EQ(trace_of(0x80020002, 17), (AccessTrace{write_of(0x21005, 0x80000002), write_of(0x21004, 0)}));
}

TEST_F(UnsubscribeTest, WithoutRowsNothingIsTouched) {
    unsubscribe(0, 0);
    EXPECT_EQ(sdk().register_accesses(), AccessTrace{});
}

// A channel.

using SubscribeManagerTest = SubscriptionTest;

TEST_F(SubscribeManagerTest, AChannelWithoutAListLeavesAllTables) {
    card.preset(0x1F14, 2);
    card.preset(0x1F15, 1);
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0;  // it leaves disabled feeds as well
    const CardRow row = card_row(0x80000003, "cu2401");
    for (const TableRegisters& registers : {kShfe2ps, kShfe4ps, kIne2ps, kIne4ps}) {
        answer_row(registers, row);
        answer_row(registers, row);
    }
    EXPECT_EQ(EngineAccess::subscribe_manager(*engine, 1), 0);
    AccessTrace expected = {read_of(0x1F14, 2), read_of(0x1F15, 1)};
    append(expected, row_read(kShfe2ps, 0, row));
    append(expected, {write_of(0x11001, 0x80000001), write_of(0x11000, 0)});
    append(expected, row_read(kShfe2ps, 1, row));
    append(expected, {write_of(0x11001, 0x80000001), write_of(0x11000, 64)});
    append(expected, row_read(kShfe4ps, 0, row));
    append(expected, {write_of(0x21001, 0x80000001), write_of(0x21000, 0)});
    append(expected, row_read(kShfe4ps, 1, row));
    append(expected, {write_of(0x21001, 0x80000001), write_of(0x21000, 64)});
    append(expected, row_read(kIne2ps, 0, row));
    append(expected, {write_of(0x11005, 0x80000001), write_of(0x11004, 0)});
    append(expected, row_read(kIne4ps, 0, row));
    append(expected, {write_of(0x21005, 0x80000001), write_of(0x21004, 0)});
    EXPECT_EQ(first_difference(sdk().register_accesses(), expected), -1);
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(SubscribeManagerTest, RowsReadBackArePartOfTheSnapshotToForget) {
    card.preset(0x1F14, 1);
    card.preset(0x1F15, 0);
    answer_row(kShfe2ps, card_row(0x80000001, "cu2401"));
    EngineAccess::subscribe_manager(*engine, 0);
    EXPECT_TRUE(EngineAccess::is_snapshot_dirty(*engine));
    EXPECT_EQ(EngineAccess::peek_inst_table(*engine).shfe2psInstTable.rows[0].config, 0x80000001U);
    EngineAccess::clean_data(*engine);
    EXPECT_EQ(EngineAccess::peek_inst_table(*engine).shfe2psInstTable.rows[0].config, 0U);
}

/** A card with two SHFE rows and one INE row. */
class SmallTablesTest : public SubscriptionTest {
 protected:
    void SetUp() override {
        SubscriptionTest::SetUp();
        card.preset(0x1F14, 2);
        card.preset(0x1F15, 1);
        answer_row(kShfe2ps, card_row(0, "cu2401"));
        answer_row(kShfe2ps, card_row(0, "al2401"));
        answer_row(kShfe4ps, card_row(0, "cu2401"));
        answer_row(kShfe4ps, card_row(0, "al2401"));
        answer_row(kIne2ps, card_row(0, "sc2401"));
        answer_row(kIne4ps, card_row(0, "sc2401"));
    }

    /** What subscribing the channel leaves in the trace behind the unsubscribing. */
    AccessTrace subscribed(int channel_id, const char* insts) {
        channel(channel_id).insts.UnSafeCopyFrom(insts);
        EXPECT_EQ(EngineAccess::subscribe_manager(*engine, channel_id), 0);
        const AccessTrace trace = sdk().register_accesses();
        constexpr std::ptrdiff_t unsubscribing = 2 + 6 * 130;
        EXPECT_GE(trace.size(), static_cast<std::size_t>(unsubscribing));
        return {trace.begin() + unsubscribing, trace.end()};
    }
};

TEST_F(SmallTablesTest, RowsAreSubscribedRowByRowInBothFeedsOfAnExchange) {
    channel(2).recvall = true;
    // The second rows' reads follow those of the first.
    answer_words(kShfe2ps, {0, 0x80000004, 0x10, 0x80000014});
    answer_words(kShfe4ps, {1, 0x80000005, 0x20, 0x80000024});
    answer_words(kIne2ps, {2, 0x80000006});
    answer_words(kIne4ps, {8, 0x8000000C});
    AccessTrace expected = row_subscribed(kShfe2ps, 0, 0, 0x80000004, 0x80000004);
    append(expected, row_subscribed(kShfe4ps, 0, 1, 0x80000005, 0x80000005));
    append(expected, row_subscribed(kShfe2ps, 1, 0x10, 0x80000014, 0x80000014));
    append(expected, row_subscribed(kShfe4ps, 1, 0x20, 0x80000024, 0x80000024));
    append(expected, row_subscribed(kIne2ps, 0, 2, 0x80000006, 0x80000006));
    append(expected, row_subscribed(kIne4ps, 0, 8, 0x8000000C, 0x8000000C));
    EXPECT_EQ(subscribed(2, "all"), expected);
    EXPECT_THAT(new_log(),
                ElementsAre("[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[all]",
                            "[D][_ContractSubscribe]subscribe cu2401 0 2147483652",
                            "[D][_ContractSubscribe]subscribe cu2401 0 2147483652",
                            "[D][_ContractSubscribe]subscribe cu2401 0 2147483653",
                            "[D][_ContractSubscribe]subscribe cu2401 0 2147483653",
                            "[D][_ContractSubscribe]subscribe al2401 64 2147483668",
                            "[D][_ContractSubscribe]subscribe al2401 64 2147483668",
                            "[D][_ContractSubscribe]subscribe al2401 64 2147483684",
                            "[D][_ContractSubscribe]subscribe al2401 64 2147483684",
                            "[D][_ContractSubscribe]subscribe sc2401 0 2147483654",
                            "[D][_ContractSubscribe]subscribe sc2401 0 2147483654",
                            "[D][_ContractSubscribe]subscribe sc2401 0 2147483660",
                            "[D][_ContractSubscribe]subscribe sc2401 0 2147483660"));
}

TEST_F(SmallTablesTest, PatternsAreTakenInTheOrderOfTheList) {
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x05;
    answer_words(kShfe2ps, {0, 0x80000001, 0, 0x80000001});
    answer_words(kIne2ps, {0, 0x80000001});
    AccessTrace expected = row_subscribed(kIne2ps, 0, 0, 0x80000001, 0x80000001);
    append(expected, row_subscribed(kShfe2ps, 1, 0, 0x80000001, 0x80000001));
    append(expected, row_subscribed(kShfe2ps, 0, 0, 0x80000001, 0x80000001));
    EXPECT_EQ(subscribed(0, "sc2401,al,cu"), expected);
    EXPECT_THAT(
        new_log(),
        ElementsAre("[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[sc2401]",
                    "[D][_ContractSubscribe]subscribe sc2401 0 2147483649",
                    "[D][_ContractSubscribe]subscribe sc2401 0 2147483649",
                    "[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[al]",
                    "[D][_ContractSubscribe]subscribe al2401 64 2147483649",
                    "[D][_ContractSubscribe]subscribe al2401 64 2147483649",
                    "[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[cu]",
                    "[D][_ContractSubscribe]subscribe cu2401 0 2147483649",
                    "[D][_ContractSubscribe]subscribe cu2401 0 2147483649"));
}

TEST_F(SmallTablesTest, EachFeedHasItsBitOfTheMask) {
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x0A;
    channel(0).recvall = true;
    answer_words(kShfe4ps, {0, 0, 0, 0});
    answer_words(kIne4ps, {0, 0});
    AccessTrace expected = row_subscribed(kShfe4ps, 0, 0, 0x80000001, 0);
    append(expected, row_subscribed(kShfe4ps, 1, 0, 0x80000001, 0));
    append(expected, row_subscribed(kIne4ps, 0, 0, 0x80000001, 0));
    EXPECT_EQ(subscribed(0, "all"), expected);
}

TEST_F(SmallTablesTest, ARowThatSeveralPatternsSelectIsWrittenForEach) {
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x01;
    answer_words(kShfe2ps, {0, 0x80000008, 0x80000008, 0x80000008});
    AccessTrace expected = row_subscribed(kShfe2ps, 0, 0, 0x80000008, 0x80000008);
    append(expected, row_subscribed(kShfe2ps, 0, 0x80000008, 0x80000008, 0x80000008));
    EXPECT_EQ(subscribed(3, "cu,cu2401"), expected);
}

TEST_F(SmallTablesTest, AChannelThatReceivesAllIsWrittenOnceForEachPattern) {
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x04;
    channel(0).recvall = true;
    answer_words(kIne2ps, {0, 0x80000001, 0x80000001, 0x80000001, 0x80000001, 0x80000001});
    AccessTrace expected = row_subscribed(kIne2ps, 0, 0, 0x80000001, 0x80000001);
    append(expected, row_subscribed(kIne2ps, 0, 0x80000001, 0x80000001, 0x80000001));
    append(expected, row_subscribed(kIne2ps, 0, 0x80000001, 0x80000001, 0x80000001));
    EXPECT_EQ(subscribed(0, "cu,al,zn"), expected);
}

TEST_F(SmallTablesTest, AChannelThatReceivesAllWithoutAListReceivesNothing) {
    channel(0).recvall = true;
    channel(0).options = true;
    EXPECT_EQ(subscribed(0, ""), AccessTrace{});
    EXPECT_THAT(new_log(), IsEmpty());
}

TEST_F(SmallTablesTest, AnInstrumentWithBadPricesIsSkippedEvenByAChannelThatReceivesAll) {
    EngineAccess::price_error_inst_ids(*engine) = {"cu2401", "sc2401"};
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x05;
    channel(0).recvall = true;
    answer_words(kShfe2ps, {0, 0x80000001});
    EXPECT_EQ(subscribed(0, "all"), row_subscribed(kShfe2ps, 1, 0, 0x80000001, 0x80000001));
}

TEST_F(SmallTablesTest, AnInstrumentThatFailedTheCheckBehindTheShieldIsNotSubscribed) {
    SInstTableType& row = EngineAccess::inst_table(*engine).shfe4psInstTable.rows[0];
    std::memcpy(row.inst_id, "cu2401", 7);
    row.ask1_price = 5;
    row.bid1_price = 5;
    row.upper_limit_price = 10;
    EngineAccess::inst_count(*engine).shfe_inst_cnt_4ps = 1;
    EngineAccess::config(*engine).shield_price_check = true;
    EXPECT_EQ(EngineAccess::price_check(*engine), 0);
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x01;
    answer_words(kShfe2ps, {0, 0x80000001});
    EXPECT_EQ(subscribed(0, "cu,al"), row_subscribed(kShfe2ps, 1, 0, 0x80000001, 0x80000001));
}

TEST_F(SmallTablesTest, EmptyPatternsBetweenCommasAreToldAndSelectNothingThatHasAName) {
    EXPECT_EQ(subscribed(0, ",xx,,yy,"), AccessTrace{});
    EXPECT_THAT(new_log(),
                ElementsAre("[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[]",
                            "[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[xx]",
                            "[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[]",
                            "[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[yy]"));
}

TEST_F(SmallTablesTest, BlanksBelongToAPattern) {
    EXPECT_EQ(subscribed(0, "xx, cu"), AccessTrace{});
}

TEST_F(SmallTablesTest, PatternsAreCutToThirtyOneCharacters) {
    EXPECT_EQ(subscribed(0, "0123456789012345678901234567890123456789"), AccessTrace{});
    EXPECT_THAT(new_log(), ElementsAre("[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] "
                                       "listen_insts[0123456789012345678901234567890]"));
}

TEST_F(SubscribeManagerTest, AnOptionIsSubscribedOnlyByAChannelThatWantsOptions) {
    card.preset(0x1F14, 1);
    card.preset(0x1F15, 0);
    EngineAccess::config(*engine).enabled_mask.enabled_mask = 0x01;
    channel(3).insts.UnSafeCopyFrom("cu2401");
    channel(4).insts.UnSafeCopyFrom("cu2401");
    channel(4).options = true;
    const CardRow option = card_row(0, "cu2401C60000");
    AccessTrace unsubscribed = {read_of(0x1F14, 1), read_of(0x1F15, 0)};
    append(unsubscribed, row_read(kShfe2ps, 0, option));
    append(unsubscribed, {write_of(0x11001, 0), write_of(0x11000, 0)});
    append(unsubscribed, row_read(kShfe4ps, 0, option));
    append(unsubscribed, {write_of(0x21001, 0), write_of(0x21000, 0)});

    answer_row(kShfe2ps, option);
    answer_row(kShfe4ps, option);
    EngineAccess::subscribe_manager(*engine, 3);
    EXPECT_EQ(first_difference(sdk().register_accesses(), unsubscribed), -1);

    sdk().start_recording();
    answer_row(kShfe2ps, option);
    answer_words(kShfe2ps, {0, 0x80000010});
    answer_row(kShfe4ps, option);
    EngineAccess::subscribe_manager(*engine, 4);
    append(unsubscribed, row_subscribed(kShfe2ps, 0, 0, 0x80000010, 0x80000010));
    EXPECT_EQ(first_difference(sdk().register_accesses(), unsubscribed), -1);
}

// On the card's own tables.

TEST_F(SubscribeManagerTest, ChannelsComeAndGoInTheTablesOfTheCard) {
    card.preset(0x1F14, 3);
    card.preset(0x1F15, 1);
    sim::ContractTables& tables = card->memory().tables;
    std::memcpy(tables.shfe_2ps[0].inst_id, "cu2401", 7);
    std::memcpy(tables.shfe_2ps[1].inst_id, "cu2401C60000", 13);
    std::memcpy(tables.shfe_2ps[2].inst_id, "al2401", 7);
    std::memcpy(tables.shfe_4ps[2].inst_id, "al2401", 7);
    std::memcpy(tables.ine_2ps[0].inst_id, "scTAS1", 7);
    const auto words = [&tables] {
        return std::vector<std::uint32_t>{tables.shfe_2ps[0].config, tables.shfe_2ps[1].config,
                                          tables.shfe_2ps[2].config, tables.shfe_4ps[2].config,
                                          tables.ine_2ps[0].config};
    };
    channel(0).insts.UnSafeCopyFrom("cu");
    channel(7).insts.UnSafeCopyFrom("al2401,cu2401,sc");
    channel(7).options = true;
    for (int number = 0; number < 16; ++number) {
        EngineAccess::subscribe_manager(*engine, number);
    }
    EXPECT_THAT(words(), ElementsAre(0x80000081, 0x80000080, 0x80000080, 0x80000080, 0xC0000080));
    EXPECT_STREQ(EngineAccess::peek_inst_table(*engine).shfe2psInstTable.rows[1].inst_id, "cu2401C60000");

    channel(7).insts.UnSafeCopyFrom("");
    EngineAccess::subscribe_manager(*engine, 7);
    EXPECT_THAT(words(), ElementsAre(0x80000001, 0, 0, 0, 0xC0000000));
}

// Counts beyond the tables.

TEST_F(SubscribeManagerTest, TooManyShfeRowsAreCutToTheTable) {
    sdk().stop();  // millions of accesses are too many to keep
    card.preset(0x1F14, 20000);
    card.preset(0x1F15, 0);
    EXPECT_EQ(EngineAccess::subscribe_manager(*engine, 0), 0);
    EXPECT_THAT(new_log(), ElementsAre("[I][_ContractSubscribeManager]if shfeInstCount > 16384, set "
                                       "shfeInstCount = 16384."));
    EXPECT_EQ(card.written(0x11002), 1048575U);  // 16384 x 64 - 1
    EXPECT_EQ(card.written(0x21002), 1048575U);
    EXPECT_EQ(card.written(0x11000), 1048512U);  // 16383 x 64
    EXPECT_EQ(card.written(0x21000), 1048512U);
    EXPECT_EQ(card.written(0x11006), 0U);
}

TEST_F(SubscribeManagerTest, TooManyIneRowsAreCutToTheTable) {
    sdk().stop();
    card.preset(0x1F14, 0);
    card.preset(0x1F15, 0xFFFFFFFF);
    channel(0).insts.UnSafeCopyFrom("xx");
    EXPECT_EQ(EngineAccess::subscribe_manager(*engine, 0), 0);
    EXPECT_THAT(
        new_log(),
        ElementsAre("[I][_ContractSubscribeManager]if ineInstCount > 4096, set ineInstCount = 4096.",
                    "[I][_ContractSubscribeManager]shfeInstCount[0] ineInstCount[4096] listen_insts[xx]"));
    EXPECT_EQ(card.written(0x11006), 262143U);  // 4096 x 64 - 1
    EXPECT_EQ(card.written(0x21006), 262143U);
    EXPECT_EQ(card.written(0x11004), 262080U);  // 4095 x 64
    EXPECT_EQ(card.written(0x21004), 262080U);
    EXPECT_EQ(card.written(0x11002), 0U);
}

TEST_F(SubscribeManagerTest, ACountOfTheWholeTableIsNotTold) {
    sdk().stop();
    card.preset(0x1F14, 0);
    card.preset(0x1F15, 4096);
    EXPECT_EQ(EngineAccess::subscribe_manager(*engine, 0), 0);
    EXPECT_THAT(new_log(), IsEmpty());
    EXPECT_EQ(card.written(0x21006), 262143U);
}

}  // namespace
}  // namespace kova::test
