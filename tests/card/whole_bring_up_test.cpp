// A whole bring-up, from a start and from a receive call: every register and every line of it, and what a
// failing one leaves behind.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <fstream>
#include <sstream>

#include "card/bring_up_test.h"
#include "support/allocations.h"

namespace kova::test {
namespace {

using std::chrono::seconds;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

Strings from(const Strings& lines, std::size_t first) {
    return lines.size() < first ? Strings{}
                                : Strings(lines.begin() + static_cast<std::ptrdiff_t>(first), lines.end());
}

std::string text_of(const std::string& file) {
    return (std::ostringstream() << std::ifstream(file, std::ios::binary).rdbuf()).str();
}

/** A register and what is written to it. */
struct Written {
    std::uint32_t number;
    std::uint32_t value;
};

constexpr std::array<Written, 5> kOpening = {
    {{0x1000, 0xF}, {0x1F14, 0}, {0x1F15, 0}, {0x11112, 0xFFFFFFFF}, {0x21112, 0xFFFFFFFF}}};

constexpr std::array<Written, 32> kNetwork = {{
    {0x3001, 0x0102},     {0x3002, 0x03040506}, {0x3011, 0x0102},     {0x3012, 0x03040506},
    {0x3021, 0x0102},     {0x3022, 0x03040506}, {0x3031, 0x0102},     {0x3032, 0x03040506},
    {0x3003, 0x0A141E28}, {0x3013, 0x0A141E28}, {0x3023, 0x0A141E28}, {0x3033, 0x0A141E28},
    {0x3004, 40000},      {0x3014, 40000},      {0x3024, 40000},      {0x3034, 40000},
    {0x3005, 0x0A0B},     {0x3006, 0x0C0D0E0F}, {0x3015, 0x0A0B},     {0x3016, 0x0C0D0E10},
    {0x3025, 0x0A0B},     {0x3026, 0x0C0D0E11}, {0x3035, 0x0A0B},     {0x3036, 0x0C0D0E12},
    {0x3007, 0xC0A80102}, {0x3017, 0xC0A80102}, {0x3027, 0xC0A80102}, {0x3037, 0xC0A80102},
    {0x3008, 5000},       {0x3018, 5000},       {0x3028, 5000},       {0x3038, 5000},
}};

constexpr std::array<Written, 8> kDeepMulticasts = {{{0x21100, 0},
                                                     {0x21102, 0},
                                                     {0x21104, 0},
                                                     {0x21106, 0},
                                                     {0x21101, 0},
                                                     {0x21103, 0},
                                                     {0x21105, 0},
                                                     {0x21107, 0}}};

constexpr std::array<Written, 8> kClosing = {{{0x21001, 1},
                                              {0x21000, 0xFFFFFFFF},
                                              {0x11001, 1},
                                              {0x11000, 0xFFFFFFFF},
                                              {0x11005, 1},
                                              {0x11004, 0xFFFFFFFF},
                                              {0x21005, 1},
                                              {0x21004, 0xFFFFFFFF}}};

template <std::size_t N>
Strings traced(const std::array<Written, N>& writes) {
    Strings lines;
    for (const Written& write : writes) {
        lines.push_back(
            (std::ostringstream() << std::hex << "0x" << write.number << " = 0x" << write.value).str());
    }
    return lines;
}

template <std::size_t N>
Strings logged(const std::array<Written, N>& writes) {
    Strings lines;
    for (const Written& write : writes) {
        lines.push_back(wrote(write.number, write.value));
    }
    return lines;
}

class WholeBringUpTest : public BringUpTest {
 protected:
    WholeBringUpTest() {
        frames = SnapshotFrames().frames();
        sdk().stop();
    }

    /** The snapshot counts as taken: a bring-up goes on behind it. */
    void skip_snapshot() { EngineAccess::is_tcp_init_finished(*engine) = true; }

    // CRC-32C of the file that these lines give.
    static constexpr std::uint32_t kConfigCrc = 0xE7AA380A;
    static constexpr const char* kConfig =
        "log_level = 15\n"
        "shfe2ps = enabled\n"
        "ine2ps = enabled\n"
        "shfe2ps_ip_a = 239.3.41.1:21001\n"
        "shfe2ps_ip_b = 239.4.41.2:21002\n"
        "ine2ps_ip_a = 239.3.51.3:25003\n"
        "ine2ps_ip_b = 239.4.51.4:25004\n"
        "DSTMAC = 01:02:03:04:05:06\n"
        "DSTIP = 10.20.30.40\n"
        "DSTPORT = 40000\n"
        "SRCMAC = 0a:0b:0c:0d:0e:0f\n"
        "SRCIP = 192.168.1.2\n"
        "SRCPORT = 5000\n"
        "TARGETROUTE = 3\n"
        "price_protect_event_mask = 1\n"
        "shfe2ps_max_inst_no = 1001\n"
        "shfe4ps_max_inst_no = 1002\n"
        "ine2ps_max_inst_no = 1003\n"
        "ine4ps_max_inst_no = 1004\n"
        "last_tick_channel = 33\n"
        "repeat_quote_upload = 1\n"
        "model_sel = 0\n"
        "event_model_sel = 1\n"
        "[channel0]\n"
        "insts = cu\n"
        "[channel5]\n"
        "insts = sc2606";

    static inline const std::string kInstrumentFile =
        "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,codec_price,"
        "vol_multiple,upper_limit_price,lower_limit_price\n"
        "0,cu2606,42,77,10000,123450,12,1000,100,5,11000,9000\n"
        "1,al2607,0,0,0,0,0,500,100,5,0,0\n"
        "0,sc2606,0,0,0,0,0,10,100,1000,0,0\n";

    // Words of the three rows behind the first one, written or read.
    static Strings cu2606(const std::string& kind) {
        return at(
            "0x11000", kind,
            {"[1] 0x3e8",   "[2] 0x64",     "[3] 0x5",     "[4] 0x2a",    "[5] 0x1f4",   "[6..14] 0",
             "[15] 0x26ac", "[16] 0x3",     "[17..24] 0",  "[25] 0x2774", "[26] 0x4",    "[27] 0x4d",
             "[28] 0",      "[29] 0x1e23a", "[30] 0",      "[31] 0xc",    "[32] 0x2710", "[33] 0x36327563",
             "[34] 0x3630", "[35..36] 0",   "[37] 0x2af8", "[38] 0x2328", "[39] 0x7",    "[40] 0x1b8a",
             "[41] 0",      "[42] 0x8",     "[43] 0x1f59", "[44] 0",      "[45] 0x27d8", "[46] 0x2648"});
    }
    static Strings al2607(const std::string& kind) {
        return at("0x11000", kind,
                  {"[65] 0x1f4", "[66] 0x64", "[67] 0x5", "[68..96] 0", "[97] 0x36326c61", "[98] 0x3730"});
    }
    static Strings sc2606(const std::string& kind) {
        return at("0x11004", kind,
                  {"[1] 0xa", "[2] 0x64", "[3] 0x3e8", "[4..32] 0", "[33] 0x36326373", "[34] 0x3630"});
    }
    static Strings at(const std::string& table, const std::string& kind, Strings words) {
        for (std::string& word : words) {
            const std::size_t blank = word.find(' ');
            word = table + word.substr(0, blank) + " " + kind + word.substr(blank);
        }
        return words;
    }

    /** A channel is taken out of every row; the first words of cu2606 and sc2606 are what they are. */
    static Strings unsubscription(const std::string& cu2606_config, const std::string& sc2606_config) {
        return joined({{"0x1f14 -> 0x2", "0x1f15 -> 0x1"},
                       {"0x11000[0] -> " + cu2606_config},
                       cu2606("->"),
                       {"0x11000[47..63] -> 0", "0x11000[0] = " + cu2606_config, "0x11000[64] -> 0"},
                       al2607("->"),
                       {"0x11000[99..127] -> 0", "0x11000[64] = 0"},
                       {"0x21000[0..63] -> 0", "0x21000[0] = 0", "0x21000[64..127] -> 0", "0x21000[64] = 0"},
                       {"0x11004[0] -> " + sc2606_config},
                       sc2606("->"),
                       {"0x11004[35..63] -> 0", "0x11004[0] = " + sc2606_config},
                       {"0x21004[0..63] -> 0", "0x21004[0] = 0"}});
    }

    static Strings expected_trace() {
        Strings subscriptions =
            joined({unsubscription("0", "0"),
                    {"0x11000[0] -> 0", "0x11000[0] = 0x80000001", "0x11000[0] -> 0x80000001"}});
        for (int channel = 1; channel < 16; ++channel) {
            subscriptions =
                joined({subscriptions, unsubscription("0x80000001", channel <= 5 ? "0" : "0x80000020")});
            if (channel == 5) {
                subscriptions =
                    joined({subscriptions,
                            {"0x11004[0] -> 0", "0x11004[0] = 0x80000020", "0x11004[0] -> 0x80000020"}});
            }
        }
        return joined(
            {// Whether the card runs already.
             {"0x1220 -> 0xa", "0x1230 -> 0x14", "0x1240 -> 0x1e", "0x1250 -> 0x28", "0x1207 -> 0x32"},
             {"0x1220 -> 0xb", "0x1230 -> 0x14", "0x1240 -> 0x1e", "0x1250 -> 0x28", "0x1207 -> 0x32"},
             {"0x1001 -> 0x0"},
             // The card.
             {"0x10 = 0x1", "0x1f11 = 0x1", "0x2032 -> 0x3"},
             traced(kOpening),
             {"0x3000 = 0x3"},
             traced(kNetwork),
             {"0x11100 = 0xef032901", "0x11102 = 0x5209", "0x11104 = 0xef042902", "0x11106 = 0x520a"},
             {"0x11101 = 0xef033303", "0x11103 = 0x61ab", "0x11105 = 0xef043304", "0x11107 = 0x61ac"},
             traced(kDeepMulticasts),
             // The snapshot.
             {"0x11110 = 0x1267", "0x1f14 = 0x2", "0x11111 = 0x32f", "0x11111 = 0x330", "0x1f15 = 0x1"},
             {"0x1000 = 0x0"},
             // The tables.
             {"0x11000[0] = 0"},
             cu2606("="),
             {"0x11000[47..64] = 0"},
             al2607("="),
             {"0x11000[99..1048575] = 0", "0x21000[0..1048575] = 0", "0x11004[0] = 0"},
             sc2606("="),
             {"0x11004[35..262143] = 0", "0x21004[0..262143] = 0"},
             // Versions and checksum, then the instrument file.
             {"0x102 = 0x1010133", "0x101 -> 0x20260420", "0x103 -> 0x1", "0x1001 = 0xe7aa380a"},
             {"0x1f14 -> 0x2", "0x1f15 -> 0x1"},
             subscriptions,
             // Limits, modes, start.
             {"0x1005 = 0x3e9", "0x1006 = 0x3ea", "0x1007 = 0x3eb", "0x1008 = 0x3ec", "0x1009 = 0x21"},
             {"0x1010 = 0x1", "0x100 = 0x0", "0x101 = 0x1"},
             traced(kClosing),
             {"0x11120 = 0x1", "0x21120 = 0x1"}});
    }

    static Strings expected_log() {
        Strings subscriptions;
        for (int channel = 0; channel < 16; ++channel) {
            const std::string line = "[I][_KovaSubDmaUp]channel" + std::to_string(channel) + " subscribe ";
            Strings selected;
            if (channel == 0) {
                selected = {"[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[cu]",
                            "[D][_ContractSubscribe]subscribe cu2606 0 2147483649",
                            "[D][_ContractSubscribe]subscribe cu2606 0 2147483649"};
            } else if (channel == 5) {
                selected = {
                    "[I][_ContractSubscribeManager]shfeInstCount[2] ineInstCount[1] listen_insts[sc2606]",
                    "[D][_ContractSubscribe]subscribe sc2606 0 2147483680",
                    "[D][_ContractSubscribe]subscribe sc2606 0 2147483680"};
            }
            subscriptions = joined({subscriptions, {line + "start..."}, selected, {line + "end"}});
        }
        const std::string empty_levels =
            "bid5_price:0,bid5_vol:0,bid4_price:0,bid4_vol:0,bid3_price:0,bid3_vol:0,bid2_price:0,bid2_vol:0,";
        const std::string empty_asks =
            "ask5_price:0,ask5_vol:0,ask4_price:0,ask4_vol:0,ask3_price:0,ask3_vol:0,ask2_price:0,ask2_vol:0,";
        const std::string without_deals =
            "change_no:0,update_mill_sec:0,updatetime:0," + empty_levels + "bid1_price:0,bid1_vol:0," +
            empty_asks +
            "ask1_price:0,ask1_vol:0,open_interest:0,turnover:0,volume:0,last_price:0,upper_limit_price:0,"
            "lower_limit_price:0,bid_volume=0,bid_amount:0,ask_volume=0,ask_amount:0,high_price:0,low_price:0.";
        return joined(
            {{did_read(0x1220, 10), did_read(0x1230, 20), did_read(0x1240, 30), did_read(0x1250, 40),
              did_read(0x1207, 50)},
             {did_read(0x1220, 11), did_read(0x1230, 20), did_read(0x1240, 30), did_read(0x1250, 40),
              did_read(0x1207, 50)},
             {did_read(0x1001, 0)},
             {"[D][_KovaSubDmaUp]channel0 FPGA Init......begin"},
             {wrote(0x10, 1), wrote(0x1F11, 1), did_read(0x2032, 3)},
             {"[I][_InitFpga]HBM2 init successful."},
             logged(kOpening),
             {wrote(0x3000, 3), "[I][_InitFpga]route[3]"},
             logged(kNetwork),
             {"[I][_SetRegIpAndPort]69888[239.3.41.1] 69890[21001]", wrote(0x11100, 0xEF032901),
              wrote(0x11102, 21001)},
             {"[I][_SetRegIpAndPort]69892[239.4.41.2] 69894[21002]", wrote(0x11104, 0xEF042902),
              wrote(0x11106, 21002)},
             {"[I][_SetRegIpAndPort]69889[239.3.51.3] 69891[25003]", wrote(0x11101, 0xEF033303),
              wrote(0x11103, 25003)},
             {"[I][_SetRegIpAndPort]69893[239.4.51.4] 69895[25004]", wrote(0x11105, 0xEF043304),
              wrote(0x11107, 25004)},
             logged(kDeepMulticasts),
             {"[I][_InitFpga]listening tcp basement data"},
             {"[D][_InitTcpSession] dstPort:33022 frag_buf:<address>"},
             {"[D][_TcpHandler]mdqp packet. TCP dst port: 33022", "[D][_TcpHandler]topic ID: 1000, snap No: 7"},
             {"[I][_ParseMdqp]shfe2ps init finished, total instruments:2"},
             {"[D][_TcpHandler]mdqp packet. TCP dst port: 33022", "[D][_TcpHandler]topic ID: 5000, snap No: 9"},
             {"[I][_ParseMdqp]ine2ps init finished, total instruments:1"},
             {wrote(0x1000, 0)},
             {"[D][_WriteContractTable]index:0,inst_id:cu2606,price_tick:1000,codec_price:100,vol_multiple:5,"
              "change_no:42,update_mill_sec:500,updatetime:0," +
              empty_levels + "bid1_price:9900,bid1_vol:3," + empty_asks +
              "ask1_price:10100,ask1_vol:4,open_interest:77,turnover:123450,volume:12,last_price:10000,"
              "upper_limit_price:11000,lower_limit_price:9000,bid_volume=7,bid_amount:7050,ask_volume=8,"
              "ask_amount:8025,high_price:10200,low_price:9800."},
             {"[D][_WriteContractTable]index:1,inst_id:al2607,price_tick:500,codec_price:100,vol_multiple:5," +
              without_deals},
             {"[D][_WriteContractTable]index:0,inst_id:sc2606,price_tick:10,codec_price:100,"
              "vol_multiple:1000," +
              without_deals},
             {"[I][_InitFpga]tcp init finished, start listening udp data"},
             {"[I][Chk_SysVersion]master channel addr 0x102, litte Endian  0x33010101.",
              "[I][Chk_SysVersion]master channel addr 0x102, big Endian  0x01010133.",
              "[I][Chk_SysVersion]str_it->second is 20260420, hwVersion is 20260420.",
              "[I][Chk_SysVersion]hardware version check is success.",
              "[I][Chk_SysVersion]hardware and soft version check is success."},
             {wrote(0x1001, kConfigCrc), "[D][_KovaSubDmaUp]channel0 update_reg configCrc[3886692362]"},
             {"[D][_KovaSubDmaUp]channel0 FPGA Init......end"},
             subscriptions,
             {wrote(0x1005, 1001), wrote(0x1006, 1002), wrote(0x1007, 1003), wrote(0x1008, 1004),
              wrote(0x1009, 33)},
             {"[I][_KovaSubDmaUp]shfe2ps_max_inst_no[1001] shfe4ps_max_inst_no[1002] "
              "ine2ps_max_inst_no[1003] ine4ps_max_inst_no[1004] lastTickChannel[33]"},
             {wrote(0x1010, 1), wrote(0x100, 0), wrote(0x101, 1)},
             {"[I][_StartDmaUp]channel0 close read/write channle"},
             logged(kClosing),
             {"[I][_StartDmaUp]channel0 logical start", wrote(0x11120, 1), wrote(0x21120, 1)}});
    }

    /** The lines behind the one about the card's build; an address in memory is replaced. */
    Strings log_of_bring_up() {
        const Strings all = new_log();
        std::size_t first = 0;
        while (first < all.size() && !all[first].starts_with("[I][Init]FPGA COMPILE_DATE")) {
            ++first;
        }
        Strings lines = from(all, first + 1);
        for (std::string& line : lines) {
            if (const std::size_t address = line.find("frag_buf:0x"); address != std::string::npos) {
                line = line.substr(0, address) + "frag_buf:<address>";
            }
        }
        return lines;
    }

    /** An engine whose card has been brought up, for which no snapshot was needed. */
    void start_without_snapshot(std::string_view lines) {
        skip_snapshot();
        ASSERT_EQ(engine->KovaStart(spi, config(lines)), 0);
        ASSERT_TRUE(EngineAccess::is_all_init_finished(*engine));
        new_log();
    }
};

TEST_F(WholeBringUpTest, AStartBringsTheCardUpRegisterByRegisterAndLineByLine) {
    RegisterTraffic::answer(0x1220, {10, 11});
    RegisterTraffic::answer(0x1230, {20});
    RegisterTraffic::answer(0x1240, {30});
    RegisterTraffic::answer(0x1250, {40});
    RegisterTraffic::answer(0x1207, {50});
    RegisterTraffic::answer(0x1001, {0});
    const auto slept = Clock::slept();
    RegisterTraffic::start_recording();
    EXPECT_EQ(engine->KovaStart(spi, config(kConfig)), 0);
    const Strings trace = RegisterTraffic::stop_recording();
    ASSERT_GE(trace.size(), 2U);
    EXPECT_THAT(trace[0], StartsWith("0x5 -> "));
    EXPECT_THAT(trace[1], StartsWith("0x4 -> "));
    EXPECT_EQ(from(trace, 2), expected_trace());
    EXPECT_EQ(log_of_bring_up(), expected_log());
    EXPECT_EQ(text_of(day.morning_file()), kInstrumentFile);

    EXPECT_EQ(Clock::slept() - slept, seconds(3));
    EXPECT_EQ(Polls::count(), 6U + 5U);
    EXPECT_EQ(EngineAccess::init_count(*engine), 0);
    EXPECT_EQ(EngineAccess::trading_day(*engine), 20310215);
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 5);
    EXPECT_TRUE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_TRUE(EngineAccess::is_hbm2_init_finished(*engine));
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    card->push_quote(0, quote_number(1));
    EXPECT_EQ(engine->KovaRecv(), 1);
}

TEST_F(WholeBringUpTest, AfterAnEventTheNextReceiveBringsTheCardUpAgainAndKeepsItsChecksum) {
    start_without_snapshot("log_level = 3\nine2ps = enabled\n[channel5]\ninsts = sc2606");
    std::ofstream(day.morning_file()) << "an earlier and longer file" << std::string(1000, '.') << "\n";
    card->push_event(0, {0x80, 0, 0, 0, 0, 0});
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_FALSE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_FALSE(EngineAccess::is_tcp_init_finished(*engine));
    new_log();

    bool is_checksum_touched = false;
    std::uint64_t attempts = 0;
    RegisterTraffic::before_each([&](bool is_write, std::uint32_t number) {
        is_checksum_touched = is_checksum_touched || number == 0x1001;
        attempts += is_write && number == 0x10 ? 1 : 0;
    });
    EXPECT_EQ(engine->KovaRecv(), 0);
    EXPECT_EQ(attempts, 1U);
    EXPECT_FALSE(is_checksum_touched);
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
    EXPECT_EQ(EngineAccess::init_count(*engine), 0);
    EXPECT_THAT(new_log(), Not(Contains(HasSubstr("is error"))));
    EXPECT_EQ(text_of(day.morning_file()), kInstrumentFile);
    EXPECT_EQ(card->memory().tables.ine_2ps[0].config, 0x80000020U);
    // And then it receives.
    card->push_quote(0, quote_number(1));
    EXPECT_EQ(engine->KovaRecv(), 1);
    EXPECT_EQ(attempts, 1U);
}

TEST_F(WholeBringUpTest, AfterAnEventAFetchingReceiveBringsTheCardUpAgainToo) {
    skip_snapshot();
    ASSERT_EQ(engine->KovaStart(config("log_level = 3\ninit_tcpcnt = 0")), 0);
    card->push_event(0, {0, 1, 0, 0, 0, 0});
    KovaShfeMdType record{};
    EXPECT_EQ(engine->KovaRecv(record), 0);
    new_log();
    EXPECT_EQ(engine->KovaRecv(record), -1);
    EXPECT_EQ(new_log(),
              (Strings{"[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 0", "[E][KovaRecv]_KovaSubDmaUp is error"}));
    skip_snapshot();
    card->push_quote(0, quote_number(5));
    EXPECT_EQ(engine->KovaRecv(record), 1);
    EXPECT_EQ(record.change_no, 5U);
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
}

TEST_F(WholeBringUpTest, AStartWhoseBringUpFailsIsAFailedStart) {
    EXPECT_EQ(engine->KovaStart(spi, config("init_tcpcnt = 0")), -2);
    const Strings log = new_log();
    ASSERT_GE(log.size(), 3U);
    EXPECT_EQ(from(log, log.size() - 3),
              (Strings{"[D][_KovaSubDmaUp]channel0 FPGA Init......begin",
                       "[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 0", "[E][KovaStart]_Init error"}));
}

// Failing again and again, in an application that goes on calling.

TEST_F(WholeBringUpTest, AReceiveThatFindsNoSnapshotFailsAndAThousandOfThemLeaveNothingBehind) {
    start_without_snapshot("log_level = 3\ninit_tcpcnt = 1\nwait_snap_timeout = 0");
    frames.clear();
    Clock::move_per_poll(seconds(10));
    EngineAccess::is_tcp_init_finished(*engine) = false;
    EngineAccess::is_all_init_finished(*engine) = false;
    EXPECT_EQ(engine->KovaRecv(), -1);
    const Strings log = new_log();
    ASSERT_GE(log.size(), 3U);
    EXPECT_EQ(from(log, log.size() - 3),
              (Strings{"[W][_KovaSubDmaUp]channel0 u50 Init time out Cnt == 1",
                       "[W][_KovaSubDmaUp]channel0 m_u50InitCnt > 1", "[E][KovaRecv]_KovaSubDmaUp is error"}));
    const Strings objects = sdk().kinds_alive();
    const std::int64_t streams = sdk().alive("a2c_stream");
    const std::int64_t allocated = Allocations::alive();
    for (int i = 0; i < 1000; ++i) {
        EngineAccess::init_count(*engine) = 0;
        ASSERT_EQ(engine->KovaRecv(), -1);
    }
    EXPECT_EQ(Allocations::alive(), allocated);
    EXPECT_EQ(sdk().kinds_alive(), objects);
    EXPECT_EQ(sdk().alive("a2c_stream"), streams);
}

TEST_F(WholeBringUpTest, AReceiveThatFindsAWrongVersionFailsAndAThousandOfThemLeaveNothingBehind) {
    start_without_snapshot("log_level = 3");
    RegisterTraffic::answer(0x101, {0x2026041F});
    EngineAccess::is_all_init_finished(*engine) = false;
    EXPECT_EQ(engine->KovaRecv(), -1);
    EXPECT_EQ(new_log(),
              (Strings{"[E][Chk_SysVersion]you will need to update your hardware version.",
                       "[E][Chk_SysVersion]soft version 1.1.1.33, hwVersion is 20260420 > fpga hwVersion is "
                       "2026041f.",
                       "[E][_KovaSubDmaUp]check version is fail.", "[E][KovaRecv]_KovaSubDmaUp is error"}));
    const Strings objects = sdk().kinds_alive();
    const std::int64_t allocated = Allocations::alive();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(engine->KovaRecv(), -1);
    }
    EXPECT_EQ(Allocations::alive(), allocated);
    EXPECT_EQ(sdk().kinds_alive(), objects);
    EXPECT_EQ(EngineAccess::version_record(*engine).size(), 1U);
}

// Memory that runs out.

TEST_F(WholeBringUpTest, UpToTheTablesAStartFailsByTheLackOfAnySingleAllocationAndThrowsNothing) {
    const char* const path = config("log_level = 1\nine2ps = enabled\ninit_tcpcnt = 1\nwait_snap_timeout = 9");
    int failed_starts = 0;
    bool has_failed = true;
    for (std::uint64_t n = 1; has_failed; ++n) {
        EngineAccess::init_count(*engine) = 0;
        int result = 0;
        {
            const Allocations::FailNth lack(n);
            ASSERT_NO_THROW(result = engine->KovaStart(spi, path)) << n;
            has_failed = lack.has_failed();
        }
        if (EngineAccess::is_tcp_init_finished(*engine)) {
            break;  // what lacked was needed behind the tables
        }
        ASSERT_TRUE(has_failed) << n;
        EXPECT_EQ(result, -2) << n;
        ++failed_starts;
    }
    EXPECT_GT(failed_starts, 20);
    Strings log = new_log();
    EXPECT_GE(std::erase(log, "[E][KovaStart]_Init error"), 20U);
    EXPECT_THAT(log, Contains("[E][_TcpHandler]memory exhausted, snapshot given up"));
    EXPECT_THAT(log, Contains("[E][_InitTcpSession]failed to allocate memcory for fragment memory."));
    EXPECT_THAT(log, Contains("[E][_GetConfigCrc]Error allocating memory for file[kova.ini] [4294967293]."));
    engine.reset();
    EXPECT_EQ(sdk().kinds_alive(), (Strings{"core_tree", "mmio"}));
    EXPECT_EQ(sdk().alive("core_tree"), 1);
}

TEST_F(WholeBringUpTest, BehindTheTablesAStartFailsByTheLackOfAnySingleAllocationAndThrowsNothing) {
    const char* const path = config("log_level = 1\n[channel5]\ninsts = sc2606,cu\n[channel15]\ninsts = all");
    skip_snapshot();
    int failed_starts = 0;
    bool has_failed = true;
    for (std::uint64_t n = 1; has_failed; ++n) {
        EngineAccess::is_all_init_finished(*engine) = false;
        EngineAccess::version_record(*engine) = {};
        int result = 0;
        {
            const Allocations::FailNth lack(n);
            ASSERT_NO_THROW(result = engine->KovaStart(spi, path)) << n;
            has_failed = lack.has_failed();
        }
        EXPECT_EQ(result, has_failed ? -2 : 0) << n;
        EXPECT_EQ(EngineAccess::is_all_init_finished(*engine), !has_failed) << n;
        failed_starts += has_failed ? 1 : 0;
    }
    EXPECT_GT(failed_starts, 20);
    engine.reset();
    EXPECT_EQ(sdk().kinds_alive(), (Strings{"core_tree", "mmio"}));
}

TEST_F(WholeBringUpTest, AReceiveFailsByTheLackOfAnySingleAllocationAndThrowsNothing) {
    start_without_snapshot("log_level = 1\n[channel5]\ninsts = sc2606,cu");
    int failed_calls = 0;
    bool has_failed = true;
    for (std::uint64_t n = 1; has_failed; ++n) {
        EngineAccess::is_all_init_finished(*engine) = false;
        new_log();
        int result = 0;
        {
            const Allocations::FailNth lack(n);
            ASSERT_NO_THROW(result = engine->KovaRecv()) << n;
            has_failed = lack.has_failed();
        }
        EXPECT_EQ(result, has_failed ? -1 : 0) << n;
        EXPECT_EQ(EngineAccess::is_all_init_finished(*engine), !has_failed) << n;
        const Strings log = new_log();
        EXPECT_EQ(!log.empty() && log.back() == "[E][KovaRecv]_KovaSubDmaUp is error", has_failed) << n;
        failed_calls += has_failed ? 1 : 0;
    }
    EXPECT_GT(failed_calls, 2);
}

}  // namespace
}  // namespace kova::test
