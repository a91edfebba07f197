#include "config/ReadConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/engine_access.h"
#include "support/log_run.h"

namespace {

using kova::test::LogRun;
using kova::test::run_apart;
using testing::ElementsAre;
using testing::ElementsAreArray;

/** Lets an engine read a file with this content; what it logged goes to standard output. */
std::unique_ptr<CKovaShfeMdApiImpl> engine_that_read(const std::string& content, int32_t expected = 0) {
    std::ofstream("kova.ini") << content;
    auto engine = EngineAccess::create();
    EngineAccess::config_file_name(*engine).UnSafeCopyFrom("kova.ini");
    EXPECT_EQ(EngineAccess::read_config(*engine), expected);
    return engine;
}

/** The configuration after a file with this content was read. */
std::unique_ptr<U50ConfigInfo> config_of(const std::string& content) {
    const kova::test::TempDir directory;
    const kova::test::WorkingDirectory inside(directory.path());
    const kova::test::StdoutCapture capture;
    return std::make_unique<U50ConfigInfo>(EngineAccess::config(*engine_that_read(content)));
}

/** The log lines that reading a file with this content writes, as "[D]text", in order. */
std::vector<std::string> lines_of(const std::string& content) {
    const LogRun run = run_apart([&content] { engine_that_read(content); });
    EXPECT_TRUE(run.ended_well());
    std::vector<std::string> lines;
    for (const std::string& text : kova::test::split_lines(run.console)) {
        const auto line = kova::test::parse_log_line(text);
        EXPECT_TRUE(line) << text;
        if (!line) {
            continue;
        }
        EXPECT_THAT(line->body, testing::StartsWith("[ReadConfig.cpp:"));
        const std::string operation = "][_ReadConfig]";
        const std::size_t end = line->body.find(operation);
        EXPECT_NE(end, std::string::npos) << line->body;
        lines.push_back(line->tag.substr(line->tag.size() - 3) + line->body.substr(end + operation.size()));
    }
    return lines;
}

/** Every key with a value that is not its default. */
constexpr const char* kEveryKey = R"([config]
log_level = 31
cpucore = 3
device = xilinx2:0
log_path = logs
shfe2ps = disabled
ine2ps = enabled
shfe2ps_ip_a = 239.0.0.1:1
shfe2ps_ip_b = 239.0.0.2:2
shfe4ps_ip_a = 239.0.0.3:3
shfe4ps_ip_b = 239.0.0.4:4
ine2ps_ip_a = 239.0.0.5:5
ine2ps_ip_b = 239.0.0.6:6
ine4ps_ip_a = 239.0.0.7:7
ine4ps_ip_b = 239.0.0.8:8
shfe2ps_topic_id = 11
shfe4ps_topic_id = 12
ine2ps_topic_id = 13
ine4ps_topic_id = -14
shfe2ps_snap_port = 21
shfe4ps_snap_port = 22
ine2ps_snap_port = 23
ine4ps_snap_port = 65535
shfe2ps_max_inst_no = 31
shfe4ps_max_inst_no = 32
ine2ps_max_inst_no = 33
ine4ps_max_inst_no = -34
last_tick_channel = 65535
board_id = -5
DSTMAC = 01:02:03:04:05:06
DSTIP = 10.0.0.1
DSTPORT = 41
SRCMAC = 11:12:13:14:15:16
SRCIP = 10.0.0.2
SRCPORT = 42
TARGETROUTE = 7
crc_mux_check = 1
repeat_quote_upload = 1
price_protect_event_mask = 4294967295
debug_flag = 1
error_instno = 51
error_case = 2
error_limit_parts = 65541
dma_sleep = -1
model_sel = 1
event_model_sel = 1
shield_price_check = 1
dma_data_flag = 1
wait_snap_timeout = 61
init_tcpcnt = 62
[channel0]
insts = cu,al
options = recv
[channel15]
insts = all
options = norecv
)";

}  // namespace

TEST(ReadConfig, FileThatCannotBeOpenedIsToldOnStandardOutputAlone) {
    const LogRun run = run_apart([] {
        const auto engine = EngineAccess::create();
        EngineAccess::config_file_name(*engine).UnSafeCopyFrom("nowhere/kova.ini");
        EXPECT_EQ(EngineAccess::read_config(*engine), -1);
        EXPECT_EQ(EngineAccess::config(*engine).wait_snap_timeout, 600);
        EXPECT_EQ(EngineAccess::config(*engine).enabled_mask.enabled_mask, 0);
        std::exit(testing::Test::HasFailure() ? 1 : 0);
    });
    EXPECT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "ReadConfig is nowhere/kova.ini failed \n");
    EXPECT_TRUE(run.files.empty());
}

TEST(ReadConfig, EmptyFileYieldsEveryDefault) {
    const auto config = config_of("");
    EXPECT_EQ(config->bus_id, 0);
    EXPECT_EQ(config->channel_id, 0);
    EXPECT_EQ(config->cpucore, -1);
    EXPECT_EQ(config->enabled_mask.enabled_mask, 1);
    EXPECT_EQ(config->enabled_mask.shfe2ps, 1);
    EXPECT_EQ(config->enabled_mask.shfe4ps, 0);
    EXPECT_EQ(config->enabled_mask.ine2ps, 0);
    EXPECT_EQ(config->enabled_mask.ine4ps, 0);
    EXPECT_STREQ(config->multiIpAndPort.shfe2ps_ip_a.data(), "239.3.42.71:21000");
    EXPECT_STREQ(config->multiIpAndPort.shfe2ps_ip_b.data(), "239.4.42.72:21000");
    EXPECT_STREQ(config->multiIpAndPort.shfe4ps_ip_a.data(), "239.3.2.3:21101");
    EXPECT_STREQ(config->multiIpAndPort.shfe4ps_ip_b.data(), "239.4.2.4:21101");
    EXPECT_STREQ(config->multiIpAndPort.ine2ps_ip_a.data(), "239.3.52.71:25000");
    EXPECT_STREQ(config->multiIpAndPort.ine2ps_ip_b.data(), "239.4.52.72:25000");
    EXPECT_STREQ(config->multiIpAndPort.ine4ps_ip_a.data(), "239.3.151.91:25101");
    EXPECT_STREQ(config->multiIpAndPort.ine4ps_ip_b.data(), "239.4.151.92:25101");
    EXPECT_EQ(config->topicID.shfe2ps_topic_id, 1000);
    EXPECT_EQ(config->topicID.shfe4ps_topic_id, 1101);
    EXPECT_EQ(config->topicID.ine2ps_topic_id, 5000);
    EXPECT_EQ(config->topicID.ine4ps_topic_id, 5101);
    EXPECT_EQ(config->snapTcpPort.shfe2ps_snap_port, 33022);
    EXPECT_EQ(config->snapTcpPort.shfe4ps_snap_port, 22000);
    EXPECT_EQ(config->snapTcpPort.ine2ps_snap_port, 33022);
    EXPECT_EQ(config->snapTcpPort.ine4ps_snap_port, 22000);
    EXPECT_EQ(config->maxInstNo.shfe2ps_max_inst_no, 81000);
    EXPECT_EQ(config->maxInstNo.shfe4ps_max_inst_no, 81101);
    EXPECT_EQ(config->maxInstNo.ine2ps_max_inst_no, 85000);
    EXPECT_EQ(config->maxInstNo.ine4ps_max_inst_no, 85101);
    EXPECT_EQ(config->last_tick_channel, 0U);
    EXPECT_EQ(config->detect_interval, 0xFFFFFFFFU);
    EXPECT_EQ(config->board_id, 0);
    EXPECT_EQ(config->log_level, 15);
    EXPECT_STREQ(config->DSTMAC.data(), "");
    EXPECT_STREQ(config->DSTIP.data(), "");
    EXPECT_EQ(config->DSTPORT, 0);
    EXPECT_STREQ(config->SRCMAC.data(), "");
    EXPECT_STREQ(config->SRCIP.data(), "");
    EXPECT_EQ(config->SRCPORT, 0);
    EXPECT_EQ(config->TARGETROUTE, 0);
    EXPECT_FALSE(config->debug_flag);
    EXPECT_EQ(config->error_instno, 0);
    EXPECT_EQ(config->error_case, 65535);
    EXPECT_EQ(config->error_limit_parts, 4);
    EXPECT_EQ(config->dma_sleep, 0U);
    EXPECT_FALSE(config->crc_mux_check);
    EXPECT_FALSE(config->repeat_quote_upload);
    EXPECT_EQ(config->price_protect_event_mask, 0x0C0C0C0CU);
    for (const U50ChannelInfo& channel : config->channelInfo) {
        EXPECT_STREQ(channel.insts.data(), "");
        EXPECT_FALSE(channel.options);
        EXPECT_FALSE(channel.recvall);
    }
    EXPECT_EQ(config->wait_snap_timeout, 600);
    EXPECT_EQ(config->init_tcpcnt, 3);
    EXPECT_EQ(config->log_path, "");
    EXPECT_FALSE(config->model_sel);
    EXPECT_FALSE(config->event_model_sel);
    EXPECT_FALSE(config->shield_price_check);
    EXPECT_FALSE(config->dma_data_flag);
}

TEST(ReadConfig, EveryKeyIsStored) {
    const kova::test::TempDir directory;
    const kova::test::WorkingDirectory inside(directory.path());
    std::ofstream("all.ini") << kEveryKey;
    CIniReader ini;
    ASSERT_TRUE(ini.ReadConfig("all.ini"));
    const auto config = std::make_unique<U50ConfigInfo>();
    ReadProcessKeys(ini, *config);
    ReadFeedKeys(ini, *config);
    ReadNetworkKeys(ini, *config);
    ReadSwitchKeys(ini, *config);
    ReadFaultKeys(ini, *config);
    ReadChannelKeys(ini, *config);
    ReadSnapshotKeys(ini, *config);
    EXPECT_EQ(config->log_level, 31);
    EXPECT_EQ(config->cpucore, 3);
    EXPECT_EQ(config->bus_id, 2);
    EXPECT_EQ(config->channel_id, 0);
    EXPECT_EQ(config->log_path, "logs");
    EXPECT_EQ(config->enabled_mask.enabled_mask, 4);
    EXPECT_STREQ(config->multiIpAndPort.shfe2ps_ip_a.data(), "239.0.0.1:1");
    EXPECT_STREQ(config->multiIpAndPort.shfe2ps_ip_b.data(), "239.0.0.2:2");
    EXPECT_STREQ(config->multiIpAndPort.shfe4ps_ip_a.data(), "239.0.0.3:3");
    EXPECT_STREQ(config->multiIpAndPort.shfe4ps_ip_b.data(), "239.0.0.4:4");
    EXPECT_STREQ(config->multiIpAndPort.ine2ps_ip_a.data(), "239.0.0.5:5");
    EXPECT_STREQ(config->multiIpAndPort.ine2ps_ip_b.data(), "239.0.0.6:6");
    EXPECT_STREQ(config->multiIpAndPort.ine4ps_ip_a.data(), "239.0.0.7:7");
    EXPECT_STREQ(config->multiIpAndPort.ine4ps_ip_b.data(), "239.0.0.8:8");
    EXPECT_EQ(config->topicID.shfe2ps_topic_id, 11);
    EXPECT_EQ(config->topicID.shfe4ps_topic_id, 12);
    EXPECT_EQ(config->topicID.ine2ps_topic_id, 13);
    EXPECT_EQ(config->topicID.ine4ps_topic_id, -14);
    EXPECT_EQ(config->snapTcpPort.shfe2ps_snap_port, 21);
    EXPECT_EQ(config->snapTcpPort.shfe4ps_snap_port, 22);
    EXPECT_EQ(config->snapTcpPort.ine2ps_snap_port, 23);
    EXPECT_EQ(config->snapTcpPort.ine4ps_snap_port, 65535);
    EXPECT_EQ(config->maxInstNo.shfe2ps_max_inst_no, 31);
    EXPECT_EQ(config->maxInstNo.shfe4ps_max_inst_no, 32);
    EXPECT_EQ(config->maxInstNo.ine2ps_max_inst_no, 33);
    EXPECT_EQ(config->maxInstNo.ine4ps_max_inst_no, -34);
    EXPECT_EQ(config->last_tick_channel, 65535U);
    EXPECT_EQ(config->detect_interval, 0xFFFFFFFFU);
    EXPECT_EQ(config->board_id, -5);
    EXPECT_STREQ(config->DSTMAC.data(), "01:02:03:04:05:06");
    EXPECT_STREQ(config->DSTIP.data(), "10.0.0.1");
    EXPECT_EQ(config->DSTPORT, 41);
    EXPECT_STREQ(config->SRCMAC.data(), "11:12:13:14:15:16");
    EXPECT_STREQ(config->SRCIP.data(), "10.0.0.2");
    EXPECT_EQ(config->SRCPORT, 42);
    EXPECT_EQ(config->TARGETROUTE, 7);
    EXPECT_TRUE(config->crc_mux_check);
    EXPECT_TRUE(config->repeat_quote_upload);
    EXPECT_EQ(config->price_protect_event_mask, 4294967295U);
    EXPECT_TRUE(config->debug_flag);
    EXPECT_EQ(config->error_instno, 51);
    EXPECT_EQ(config->error_case, 2);
    EXPECT_EQ(config->error_limit_parts, 5);
    EXPECT_EQ(config->dma_sleep, 4294967295U);
    EXPECT_TRUE(config->model_sel);
    EXPECT_TRUE(config->event_model_sel);
    EXPECT_TRUE(config->shield_price_check);
    EXPECT_TRUE(config->dma_data_flag);
    EXPECT_STREQ(config->channelInfo[0].insts.data(), "cu,al");
    EXPECT_TRUE(config->channelInfo[0].options);
    EXPECT_FALSE(config->channelInfo[0].recvall);
    EXPECT_STREQ(config->channelInfo[15].insts.data(), "all");
    EXPECT_FALSE(config->channelInfo[15].options);
    EXPECT_TRUE(config->channelInfo[15].recvall);
    EXPECT_EQ(config->wait_snap_timeout, 61);
    EXPECT_EQ(config->init_tcpcnt, 62);
}

TEST(ReadConfig, LinesOfAnEmptyFile) {
    EXPECT_THAT(lines_of(""), ElementsAreArray({
                                  "[D]log_level[15]",
                                  "[D]cpucore[-1]",
                                  "[D]bus_id[0] channel_id[0]",
                                  "[D]enabled_mask[1]",
                                  "[D]shfe2ps_ip_a[239.3.42.71:21000]",
                                  "[D]shfe2ps_ip_b[239.4.42.72:21000]",
                                  "[D]shfe4ps_ip_a[239.3.2.3:21101]",
                                  "[D]shfe4ps_ip_b[239.4.2.4:21101]",
                                  "[D]ine2ps_ip_a[239.3.52.71:25000]",
                                  "[D]ine2ps_ip_b[239.4.52.72:25000]",
                                  "[D]ine4ps_ip_a[239.3.151.91:25101]",
                                  "[D]ine4ps_ip_b[239.4.151.92:25101]",
                                  "[D]shfe2ps_topic_id[1000]",
                                  "[D]shfe4ps_topic_id[1101]",
                                  "[D]ine2ps_topic_id[5000]",
                                  "[D]ine4ps_topic_id[5101]",
                                  "[D]shfe2ps_snap_port[33022]",
                                  "[D]shfe4ps_snap_port[22000]",
                                  "[D]ine2ps_snap_port[33022]",
                                  "[D]ine4ps_snap_port[22000]",
                                  "[D]shfe2ps_max_inst_no[81000]",
                                  "[D]shfe4ps_max_inst_no[81101]",
                                  "[D]ine2ps_max_inst_no[85000]",
                                  "[D]ine4ps_max_inst_no[85101]",
                                  "[D]last_tick_channel[0]",
                                  "[D]detect_interval[4294967295]",
                                  "[D]board_id[0]",
                                  "[D]DSTMAC[]",
                                  "[D]DSTIP[]",
                                  "[D]DSTPORT[0]",
                                  "[D]SRCMAC[]",
                                  "[D]SRCIP[]",
                                  "[D]SRCPORT[0]",
                                  "[D]TARGETROUTE[0]",
                                  "[D]crc_mux_check[0]",
                                  "[D]price_protect_event_mask[202116108]",
                                  "[D]repeat_quote_upload[0]",
                                  "[D]model_sel[0]",
                                  "[D]event_model_sel[0]",
                                  "[D]shield_price_check[0]",
                                  "[D]dma_data_flag[0]",
                                  "[I]wait_snap_timeout = [600]",
                                  "[I]init_tcpcnt = [3]",
                              }));
}

TEST(ReadConfig, LinesOfAFileWithEveryKey) {
    const std::string no_path = std::string(kEveryKey).replace(std::string(kEveryKey).find("logs"), 4, ".");
    EXPECT_THAT(lines_of(no_path), ElementsAreArray({
                                       "[D]log_level[31]",
                                       "[D]cpucore[3]",
                                       "[D]bus_id[2] channel_id[0]",
                                       "[W]error_instno[51]",
                                       "[W]error_case[2]",
                                       "[W]error_limit_parts[5]",
                                       "[W]dma_sleep[-1]",
                                       "[D]enabled_mask[4]",
                                       "[D]shfe2ps_ip_a[239.0.0.1:1]",
                                       "[D]shfe2ps_ip_b[239.0.0.2:2]",
                                       "[D]shfe4ps_ip_a[239.0.0.3:3]",
                                       "[D]shfe4ps_ip_b[239.0.0.4:4]",
                                       "[D]ine2ps_ip_a[239.0.0.5:5]",
                                       "[D]ine2ps_ip_b[239.0.0.6:6]",
                                       "[D]ine4ps_ip_a[239.0.0.7:7]",
                                       "[D]ine4ps_ip_b[239.0.0.8:8]",
                                       "[D]shfe2ps_topic_id[11]",
                                       "[D]shfe4ps_topic_id[12]",
                                       "[D]ine2ps_topic_id[13]",
                                       "[D]ine4ps_topic_id[-14]",
                                       "[D]shfe2ps_snap_port[21]",
                                       "[D]shfe4ps_snap_port[22]",
                                       "[D]ine2ps_snap_port[23]",
                                       "[D]ine4ps_snap_port[65535]",
                                       "[D]shfe2ps_max_inst_no[31]",
                                       "[D]shfe4ps_max_inst_no[32]",
                                       "[D]ine2ps_max_inst_no[33]",
                                       "[D]ine4ps_max_inst_no[-34]",
                                       "[D]last_tick_channel[65535]",
                                       "[D]detect_interval[4294967295]",
                                       "[D]board_id[-5]",
                                       "[D]DSTMAC[01:02:03:04:05:06]",
                                       "[D]DSTIP[10.0.0.1]",
                                       "[D]DSTPORT[41]",
                                       "[D]SRCMAC[11:12:13:14:15:16]",
                                       "[D]SRCIP[10.0.0.2]",
                                       "[D]SRCPORT[42]",
                                       "[D]TARGETROUTE[7]",
                                       "[D]crc_mux_check[1]",
                                       "[D]price_protect_event_mask[4294967295]",
                                       "[D]repeat_quote_upload[1]",
                                       "[D]model_sel[1]",
                                       "[D]event_model_sel[1]",
                                       "[D]shield_price_check[1]",
                                       "[D]dma_data_flag[1]",
                                       "[I]wait_snap_timeout = [61]",
                                       "[I]init_tcpcnt = [62]",
                                   }));
}

TEST(ReadConfig, LogPathIsTakenBeforeTheFirstLine) {
    const LogRun run = run_apart([] {
        std::filesystem::create_directory("logs");
        engine_that_read("[config]\nlog_path = logs\n");
        std::filesystem::remove("kova.ini");
    });
    ASSERT_EQ(run.files.size(), 1U);
    EXPECT_THAT(run.files.begin()->first, testing::StartsWith("logs/kova_u50_"));
    EXPECT_EQ(run.files.begin()->second, run.console);
    EXPECT_THAT(run.console, testing::HasSubstr("_ReadConfig]log_level[15]"));
}

TEST(ReadConfig, OtherChannelTakesFourKeysAndKeepsItsConstructorsValues) {
    std::string content = kEveryKey;
    content.replace(content.find("xilinx2:0"), 9, "xilinx1:2");
    const auto config = config_of(content);
    EXPECT_EQ(config->log_level, 31);
    EXPECT_EQ(config->cpucore, 3);
    EXPECT_EQ(config->bus_id, 1);
    EXPECT_EQ(config->channel_id, 2);
    EXPECT_EQ(config->log_path, "logs");

    EXPECT_EQ(config->enabled_mask.enabled_mask, 0);
    EXPECT_STREQ(config->multiIpAndPort.shfe2ps_ip_a.data(), "");
    EXPECT_STREQ(config->multiIpAndPort.ine4ps_ip_b.data(), "");
    EXPECT_EQ(config->topicID.shfe2ps_topic_id, 0);
    EXPECT_EQ(config->snapTcpPort.shfe2ps_snap_port, 0);
    EXPECT_EQ(config->maxInstNo.shfe2ps_max_inst_no, 0);
    EXPECT_EQ(config->last_tick_channel, 0U);
    EXPECT_EQ(config->detect_interval, 0U);
    EXPECT_EQ(config->board_id, 0);
    EXPECT_STREQ(config->DSTMAC.data(), "");
    EXPECT_EQ(config->DSTPORT, 0);
    EXPECT_STREQ(config->SRCIP.data(), "");
    EXPECT_EQ(config->TARGETROUTE, 0);
    EXPECT_FALSE(config->crc_mux_check);
    EXPECT_FALSE(config->repeat_quote_upload);
    EXPECT_EQ(config->price_protect_event_mask, 0xFFFFFFFFU);
    EXPECT_FALSE(config->debug_flag);
    EXPECT_EQ(config->error_case, 0);
    EXPECT_EQ(config->error_limit_parts, 0);
    EXPECT_EQ(config->dma_sleep, 0U);
    EXPECT_FALSE(config->model_sel);
    EXPECT_FALSE(config->dma_data_flag);
    EXPECT_STREQ(config->channelInfo[0].insts.data(), "");
    EXPECT_FALSE(config->channelInfo[0].options);
    EXPECT_FALSE(config->channelInfo[15].recvall);
    EXPECT_EQ(config->wait_snap_timeout, 600);
    EXPECT_EQ(config->init_tcpcnt, 3);
}

TEST(ReadConfig, OtherChannelWritesThreeLines) {
    EXPECT_THAT(lines_of("[config]\ndevice = xilinx1:2\ndebug_flag = 1\n"),
                ElementsAre("[D]log_level[15]", "[D]cpucore[-1]", "[D]bus_id[1] channel_id[2]"));
}

TEST(ReadConfig, DeviceThatDoesNotMatchLeavesTheNumbersAsTheyWere) {
    EXPECT_EQ(config_of("[config]\ndevice = card1:2\n")->bus_id, 0);
    EXPECT_EQ(config_of("[config]\ndevice = card1:2\n")->channel_id, 0);
    EXPECT_EQ(config_of("[config]\ndevice =\n")->bus_id, 0);
    const auto half = config_of("[config]\ndevice = xilinx3\n");
    EXPECT_EQ(half->bus_id, 3);
    EXPECT_EQ(half->channel_id, 0);
    EXPECT_EQ(config_of("[config]\ndevice = xilinx4:x\n")->bus_id, 4);
    EXPECT_EQ(config_of("[config]\ndevice = xilinx0:-1\n")->channel_id, -1);
}

TEST(ReadConfig, FeedThatIsNotEnabledToTheLetterIsOff) {
    EXPECT_EQ(config_of("[config]\nshfe2ps = Enabled\n")->enabled_mask.enabled_mask, 0);
    EXPECT_EQ(config_of("[config]\nshfe2ps = enabledx\n")->enabled_mask.enabled_mask, 0);
    EXPECT_EQ(config_of("[config]\nshfe2ps = 1\n")->enabled_mask.enabled_mask, 0);
    EXPECT_EQ(config_of("[config]\nshfe2ps =\n")->enabled_mask.enabled_mask, 0);
    EXPECT_EQ(config_of("[config]\nine2ps = ENABLED\n")->enabled_mask.enabled_mask, 1);
}

TEST(ReadConfig, FeedsOf4psHaveNoKey) {
    EXPECT_EQ(config_of("[config]\nshfe4ps = enabled\nine4ps = enabled\nine2ps = enabled\n")
                  ->enabled_mask.enabled_mask,
              5);
}

TEST(ReadConfig, FlagIsOnForExactlyOne) {
    EXPECT_FALSE(config_of("[config]\ncrc_mux_check = 2\n")->crc_mux_check);
    EXPECT_FALSE(config_of("[config]\ncrc_mux_check = true\n")->crc_mux_check);
    EXPECT_FALSE(config_of("[config]\ncrc_mux_check = -1\n")->crc_mux_check);
    EXPECT_FALSE(config_of("[config]\ncrc_mux_check =\n")->crc_mux_check);
    EXPECT_TRUE(config_of("[config]\ncrc_mux_check = 1x\n")->crc_mux_check);
    EXPECT_TRUE(config_of("[config]\ncrc_mux_check = 65537\n")->crc_mux_check);
}

TEST(ReadConfig, LastTickChannelKeepsSixteenBits) {
    EXPECT_EQ(config_of("[config]\nlast_tick_channel = 65537\n")->last_tick_channel, 1U);
    EXPECT_EQ(config_of("[config]\nlast_tick_channel = -1\n")->last_tick_channel, 65535U);
}

TEST(ReadConfig, DetectIntervalHasNoKey) {
    EXPECT_EQ(config_of("[config]\ndetect_interval = 5\n")->detect_interval, 0xFFFFFFFFU);
}

TEST(ReadConfig, FaultLinesComeWithDebugFlagOnly) {
    EXPECT_THAT(lines_of("[config]\nerror_instno = 5\n"),
                testing::Not(testing::Contains(testing::HasSubstr("error_"))));
    EXPECT_THAT(lines_of("[config]\ndebug_flag = 1\n"), testing::Contains("[W]error_case[65535]"));
}

TEST(ReadConfig, ChannelThatReceivesAllWithOptions) {
    const auto config = config_of("[channel3]\ninsts = all\noptions = recv\n");
    EXPECT_TRUE(config->channelInfo[3].recvall);
    EXPECT_TRUE(config->channelInfo[3].options);
    EXPECT_STREQ(config->channelInfo[3].insts.data(), "all");
    EXPECT_FALSE(config->channelInfo[2].recvall);
    EXPECT_FALSE(config->channelInfo[4].recvall);
}

TEST(ReadConfig, ListThatBeginsWithAllAndGoesOnIsNotAll) {
    EXPECT_FALSE(config_of("[channel3]\ninsts = all,cu\n")->channelInfo[3].recvall);
    EXPECT_FALSE(config_of("[channel3]\ninsts = allx\n")->channelInfo[3].recvall);
    EXPECT_FALSE(config_of("[channel3]\ninsts = al\n")->channelInfo[3].recvall);
    EXPECT_FALSE(config_of("[channel3]\ninsts = ALL\n")->channelInfo[3].recvall);
}

TEST(ReadConfig, OptionsAreOnForExactlyRecv) {
    EXPECT_FALSE(config_of("[channel3]\noptions = Recv\n")->channelInfo[3].options);
    EXPECT_FALSE(config_of("[channel3]\noptions = recvx\n")->channelInfo[3].options);
    EXPECT_FALSE(config_of("[channel3]\noptions =\n")->channelInfo[3].options);
}

TEST(ReadConfig, ChannelSectionsGoFrom0To15) {
    std::string content;
    for (int channel = 0; channel <= 16; ++channel) {
        content += "[channel" + std::to_string(channel) + "]\ninsts = i" + std::to_string(channel) + "\n";
    }
    const auto config = config_of(content);
    EXPECT_STREQ(config->channelInfo[0].insts.data(), "i0");
    EXPECT_STREQ(config->channelInfo[1].insts.data(), "i1");
    EXPECT_STREQ(config->channelInfo[9].insts.data(), "i9");
    EXPECT_STREQ(config->channelInfo[10].insts.data(), "i10");
    EXPECT_STREQ(config->channelInfo[15].insts.data(), "i15");
}

TEST(ReadConfig, LongTextsAreCut) {
    const auto config =
        config_of("[config]\nSRCMAC = " + std::string(300, 'm') + "\nine4ps_ip_b = " + std::string(256, 'a') +
                  "\n[channel0]\ninsts = " + std::string(5000, 'i') + "\n");
    EXPECT_EQ(std::string(config->SRCMAC.data()), std::string(255, 'm'));
    EXPECT_EQ(std::string(config->multiIpAndPort.ine4ps_ip_b.data()), std::string(255, 'a'));
    EXPECT_EQ(std::string(config->channelInfo[0].insts.data()), std::string(4095, 'i'));
}

TEST(ReadConfig, NumbersAreCutToTheirFields) {
    const auto config = config_of(
        "[config]\nDSTPORT = 70000\nerror_limit_parts = 65540\ndma_sleep = -2\nwait_snap_timeout = -1\n"
        "shfe2ps_snap_port = 65536\nprice_protect_event_mask = 4294967297\n");
    EXPECT_EQ(config->DSTPORT, 4464);
    EXPECT_EQ(config->error_limit_parts, 4);
    EXPECT_EQ(config->dma_sleep, 4294967294U);
    EXPECT_EQ(config->wait_snap_timeout, 65535);
    EXPECT_EQ(config->snapTcpPort.shfe2ps_snap_port, 0);
    EXPECT_EQ(config->price_protect_event_mask, 1U);
}

TEST(ReadConfig, MalformedNumbersAreWhatTheyBeginWith) {
    const auto config = config_of("[config]\ncpucore = two\nshfe2ps_topic_id = 12abc\n");
    EXPECT_EQ(config->cpucore, 0);
    EXPECT_EQ(config->topicID.shfe2ps_topic_id, 12);
}
