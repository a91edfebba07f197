// The registers of the contract tables. Their numbers are written out here, as a host has them.

#include "sim/card/contract_tables.h"

#include <gtest/gtest.h>

#include <atomic>
#include <ostream>
#include <string>
#include <thread>

#include "sim/card/card.h"
#include "sim/card/registers.h"

namespace kova::sim {
namespace {

struct TableRegisters {
    const char* name;
    EMDQPDataType feed;
    std::uint32_t write_address;
    std::uint32_t write_data;
    std::uint32_t read_address;
    std::uint32_t read_data;
    std::uint32_t last_word;

    friend void PrintTo(const TableRegisters& table, std::ostream* out) { *out << table.name; }
};

constexpr TableRegisters kShfe2ps{"shfe_2ps", SHFE_2PS, 0x11000, 0x11001, 0x11002, 0x11003, 1'048'575};
constexpr TableRegisters kShfe4ps{"shfe_4ps", SHFE_4PS, 0x21000, 0x21001, 0x21002, 0x21003, 1'048'575};
constexpr TableRegisters kIne2ps{"ine_2ps", INE_2PS, 0x11004, 0x11005, 0x11006, 0x11007, 262'143};
constexpr TableRegisters kIne4ps{"ine_4ps", INE_4PS, 0x21004, 0x21005, 0x21006, 0x21007, 262'143};
constexpr TableRegisters kAll[] = {kShfe2ps, kShfe4ps, kIne2ps, kIne4ps};

class CardUnderTest {
 public:
    void write(std::uint32_t number, std::uint32_t value) { write_register(card.memory(), number, value); }
    std::uint64_t read(std::uint32_t number) { return read_register(card.memory(), number); }

    void write_word(const TableRegisters& table, std::uint32_t address, std::uint32_t value) {
        write(table.write_data, value);
        write(table.write_address, address);
    }
    std::uint64_t read_word(const TableRegisters& table, std::uint32_t address) {
        write(table.read_address, address);
        return read(table.read_data);
    }
    void close(const TableRegisters& table) { write_word(table, 0xFFFFFFFF, 1); }

    const SInstTableType& row(EMDQPDataType feed, std::uint32_t number) {
        return table_rows(card.memory().tables, feed)[number];
    }
    const TablePort& port(EMDQPDataType feed) {
        return card.memory().table_ports[static_cast<std::size_t>(feed)];
    }

    Card card = Card::power_on_privately(0, {.slots_log2 = 6});
};

class ContractTables : public ::testing::Test, public CardUnderTest {};

class EachContractTable : public ::testing::TestWithParam<TableRegisters>, public CardUnderTest {};

INSTANTIATE_TEST_SUITE_P(Feeds, EachContractTable, ::testing::ValuesIn(kAll),
                         [](const auto& each) { return std::string(each.param.name); });

TEST_P(EachContractTable, WordThatWasWrittenIsReadBack) {
    write_word(GetParam(), 3 * 64 + 5, 0x12345678);
    EXPECT_EQ(read_word(GetParam(), 3 * 64 + 5), 0x12345678U);
    EXPECT_EQ(read_word(GetParam(), 3 * 64 + 4), 0U);
}

TEST_P(EachContractTable, WordStandsInItsRowOfItsOwnTableOnly) {
    write_word(GetParam(), 3 * 64 + 2, 4711);  // codec_price
    for (const TableRegisters& table : kAll) {
        EXPECT_EQ(row(table.feed, 3).codec_price, table.feed == GetParam().feed ? 4711 : 0) << table.name;
    }
}

TEST_P(EachContractTable, FirstAndLastWordBelongToIt) {
    write_word(GetParam(), 0, 0x80000001);
    write_word(GetParam(), GetParam().last_word, 77);
    EXPECT_EQ(row(GetParam().feed, 0).config, 0x80000001U);
    EXPECT_EQ(row(GetParam().feed, (GetParam().last_word - 63) / 64).reserved[16], 77);
    EXPECT_EQ(port(GetParam().feed).outside, 0U);
}

TEST_P(EachContractTable, AddressOutsideItIsIgnoredAndCounted) {
    write_word(GetParam(), GetParam().last_word, 77);
    ASSERT_EQ(read_word(GetParam(), GetParam().last_word), 77U);
    write_word(GetParam(), GetParam().last_word + 1, 88);
    write_word(GetParam(), 0xFFFFFFFE, 88);
    EXPECT_EQ(read_word(GetParam(), GetParam().last_word + 1), 0U);
    for (const TableRegisters& table : kAll) {
        EXPECT_EQ(row(table.feed, 0).config, 0U);
        EXPECT_EQ(port(table.feed).outside, table.feed == GetParam().feed ? 3U : 0U) << table.name;
    }
}

TEST_P(EachContractTable, ClosedOneIgnoresWritesAndCountsThem) {
    write_word(GetParam(), 64, 5);
    close(GetParam());
    write_word(GetParam(), 64, 6);
    write_word(GetParam(), 65, 6);
    EXPECT_EQ(row(GetParam().feed, 1).config, 5U);
    EXPECT_EQ(row(GetParam().feed, 1).price_tick, 0);
    EXPECT_EQ(port(GetParam().feed).refused_writes, 2U);
    EXPECT_EQ(port(GetParam().feed).outside, 0U);
}

TEST_P(EachContractTable, ClosedOneReadsZero) {
    write_word(GetParam(), 64, 5);
    ASSERT_EQ(read_word(GetParam(), 64), 5U);
    close(GetParam());
    EXPECT_EQ(read(GetParam().read_data), 0U);
    EXPECT_EQ(read_word(GetParam(), 64), 0U);
}

TEST_P(EachContractTable, ClosingOneLeavesTheOthersOpen) {
    close(GetParam());
    for (const TableRegisters& table : kAll) {
        EXPECT_EQ(is_table_open(card.memory(), table.feed), table.feed != GetParam().feed) << table.name;
        write_word(table, 7 * 64, 9);
        EXPECT_EQ(row(table.feed, 7).config, table.feed == GetParam().feed ? 0U : 9U) << table.name;
    }
}

TEST_P(EachContractTable, InitialisationOpensItAgainWithWhatItHeld) {
    write_word(GetParam(), 64, 5);
    close(GetParam());
    write(0x10, 0);
    EXPECT_EQ(read_word(GetParam(), 64), 0U);
    write(0x10, 1);
    EXPECT_EQ(read_word(GetParam(), 64), 5U);
    write_word(GetParam(), 64, 6);
    EXPECT_EQ(read_word(GetParam(), 64), 6U);
}

TEST_F(ContractTables, DataIsStoredByWritingTheAddressAndNotBefore) {
    write(0x11001, 42);
    EXPECT_EQ(row(SHFE_2PS, 0).config, 0U);
    write(0x11000, 0);
    EXPECT_EQ(row(SHFE_2PS, 0).config, 42U);
    write(0x11000, 64);  // the data register still holds it
    EXPECT_EQ(row(SHFE_2PS, 1).config, 42U);
}

TEST_F(ContractTables, DataRegistersOfTheTablesAreApart) {
    write(0x11001, 1);
    write(0x11005, 2);
    write(0x21001, 3);
    write(0x21005, 4);
    for (const std::uint32_t address : {0x11000U, 0x11004U, 0x21000U, 0x21004U}) {
        write(address, 64);
    }
    EXPECT_EQ(row(SHFE_2PS, 1).config, 1U);
    EXPECT_EQ(row(INE_2PS, 1).config, 2U);
    EXPECT_EQ(row(SHFE_4PS, 1).config, 3U);
    EXPECT_EQ(row(INE_4PS, 1).config, 4U);
}

TEST_F(ContractTables, PresentedWordIsTheOneAtTheTimeOfTheReadAddress) {
    write_word(kShfe2ps, 64, 5);
    EXPECT_EQ(read_word(kShfe2ps, 64), 5U);
    write_word(kShfe2ps, 64, 6);
    EXPECT_EQ(read(0x11003), 5U);
    EXPECT_EQ(read_word(kShfe2ps, 64), 6U);
}

TEST_F(ContractTables, ReadDataRegisterCannotBeWritten) {
    write_word(kIne2ps, 64, 5);
    EXPECT_EQ(read_word(kIne2ps, 64), 5U);
    write(0x11007, 99);
    EXPECT_EQ(read(0x11007), 5U);
}

TEST_F(ContractTables, ClosingAddressWithOtherDataIsOutside) {
    write_word(kShfe4ps, 0xFFFFFFFF, 0);
    write_word(kShfe4ps, 0xFFFFFFFF, 2);
    EXPECT_TRUE(is_table_open(card.memory(), SHFE_4PS));
    EXPECT_EQ(port(SHFE_4PS).outside, 2U);
}

TEST_F(ContractTables, ClosingTwiceIsNoError) {
    close(kIne4ps);
    close(kIne4ps);
    EXPECT_FALSE(is_table_open(card.memory(), INE_4PS));
    EXPECT_EQ(port(INE_4PS).refused_writes + port(INE_4PS).outside, 0U);
}

TEST_F(ContractTables, NeighboursOfTheirRegistersAreOrdinary) {
    for (const std::uint32_t number : {0x10FFFU, 0x11008U, 0x20FFFU, 0x21008U, 0x1000U, 0x1003U}) {
        EXPECT_FALSE(is_table_register(number)) << number;
        write(number, 123);
        EXPECT_EQ(read(number), 123U) << number;
    }
    for (std::uint32_t i = 0; i < 8; ++i) {
        EXPECT_TRUE(is_table_register(0x11000 + i));
        EXPECT_TRUE(is_table_register(0x21000 + i));
    }
}

TEST_F(ContractTables, SubscriptionByRegistersDirectsQuotes) {
    write(0x11120, 1);
    KovaShfeMdType quote{};
    quote.inst_no = 9;
    EXPECT_EQ(card.route_quote(SHFE_2PS, quote).unheard, 0U);
    write_word(kShfe2ps, 9 * 64, 0x80000028);  // channels 3 and 5, which nobody reads
    EXPECT_EQ(card.route_quote(SHFE_2PS, quote).unheard, 2U);
}

// A row's channels change while quotes of it are on their way: each goes by the old or by the new ones.
TEST_F(ContractTables, ThreadThatSubscribesNeverShowsHalfAWord) {
    write(0x11120, 1);
    write_word(kShfe2ps, 9 * 64, 0x80000028);
    std::atomic<bool> is_done{false};
    std::thread subscriber([&] {
        for (int i = 0; i < 20'000; ++i) {
            const CardLockScope scope(card.memory().lock);
            write_word(kShfe2ps, 9 * 64, i % 2 == 0 ? 0x80000050 : 0x80000028);
        }
        is_done = true;
    });
    KovaShfeMdType quote{};
    quote.inst_no = 9;
    std::uint32_t wrong = 0;
    while (!is_done) {
        wrong += card.route_quote(SHFE_2PS, quote).unheard == 2 ? 0U : 1U;
    }
    subscriber.join();
    EXPECT_EQ(wrong, 0U);
}

}  // namespace
}  // namespace kova::sim
