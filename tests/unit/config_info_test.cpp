#include "config/U50ConfigInfo.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "instruments/InstTable.h"
#include "snapshot/DstPort.h"

TEST(EnabledMask, FeedsAreBitsOfOneByteFromTheLowestOn) {
    UEnabledMask mask;
    EXPECT_EQ(mask.enabled_mask, 0);
    mask.shfe2ps = 1;
    EXPECT_EQ(mask.enabled_mask, 0x01);
    mask.shfe4ps = 1;
    EXPECT_EQ(mask.enabled_mask, 0x03);
    mask.ine2ps = 1;
    EXPECT_EQ(mask.enabled_mask, 0x07);
    mask.ine4ps = 1;
    EXPECT_EQ(mask.enabled_mask, 0x0F);
    mask.reserved = 15;
    EXPECT_EQ(mask.enabled_mask, 0xFF);
    EXPECT_EQ(sizeof(UEnabledMask), 1U);
}

TEST(EnabledMask, ByteSetsTheFeeds) {
    UEnabledMask mask;
    mask.enabled_mask = 0x14;
    EXPECT_EQ(mask.shfe2ps, 0);
    EXPECT_EQ(mask.shfe4ps, 0);
    EXPECT_EQ(mask.ine2ps, 1);
    EXPECT_EQ(mask.ine4ps, 0);
    EXPECT_EQ(mask.reserved, 1);
}

TEST(ConfigInfo, StartsWithItsConstructorsValues) {
    const auto config = std::make_unique<U50ConfigInfo>();
    EXPECT_EQ(config->bus_id, 0);
    EXPECT_EQ(config->channel_id, 0);
    EXPECT_EQ(config->cpucore, -1);
    EXPECT_EQ(config->enabled_mask.enabled_mask, 0);
    for (const CAddressType* address :
         {&config->multiIpAndPort.shfe2ps_ip_a, &config->multiIpAndPort.shfe2ps_ip_b,
          &config->multiIpAndPort.shfe4ps_ip_a, &config->multiIpAndPort.shfe4ps_ip_b,
          &config->multiIpAndPort.ine2ps_ip_a, &config->multiIpAndPort.ine2ps_ip_b,
          &config->multiIpAndPort.ine4ps_ip_a, &config->multiIpAndPort.ine4ps_ip_b, &config->DSTMAC,
          &config->DSTIP, &config->SRCMAC, &config->SRCIP}) {
        EXPECT_STREQ(address->data(), "");
    }
    EXPECT_EQ(config->snapTcpPort.shfe2ps_snap_port, 0);
    EXPECT_EQ(config->snapTcpPort.ine4ps_snap_port, 0);
    EXPECT_EQ(config->maxInstNo.shfe2ps_max_inst_no, 0);
    EXPECT_EQ(config->maxInstNo.ine4ps_max_inst_no, 0);
    EXPECT_EQ(config->last_tick_channel, 0U);
    EXPECT_EQ(config->detect_interval, 0U);
    EXPECT_EQ(config->log_level, 15);
    EXPECT_FALSE(config->debug_flag);
    EXPECT_EQ(config->error_instno, 0);
    EXPECT_EQ(config->error_case, 0);
    EXPECT_EQ(config->error_limit_parts, 0);
    EXPECT_EQ(config->dma_sleep, 0U);
    EXPECT_FALSE(config->crc_mux_check);
    EXPECT_FALSE(config->repeat_quote_upload);
    EXPECT_EQ(config->price_protect_event_mask, 0xFFFFFFFFU);
    EXPECT_EQ(config->wait_snap_timeout, 600);
    EXPECT_EQ(config->init_tcpcnt, 3);
    EXPECT_EQ(config->log_path, "");
    EXPECT_FALSE(config->model_sel);
    EXPECT_FALSE(config->event_model_sel);
    EXPECT_FALSE(config->shield_price_check);
    EXPECT_FALSE(config->dma_data_flag);
}

TEST(ConfigInfo, HasSixteenChannelsThatReceiveNothing) {
    const auto config = std::make_unique<U50ConfigInfo>();
    EXPECT_EQ(U50ChannelInfo::CHANNEL_SIZE, 16);
    EXPECT_EQ(std::size(config->channelInfo), 16U);
    for (const U50ChannelInfo& channel : config->channelInfo) {
        EXPECT_STREQ(channel.insts.data(), "");
        EXPECT_FALSE(channel.options);
        EXPECT_FALSE(channel.recvall);
    }
}

TEST(InstTable, FourTablesStandBackToBack) {
    EXPECT_EQ(sizeof(InstShfeTable), 4194304U);
    EXPECT_EQ(sizeof(InstIneTable), 1048576U);
    EXPECT_EQ(offsetof(U50InstTable, shfe2psInstTable), 0U);
    EXPECT_EQ(offsetof(U50InstTable, shfe4psInstTable), 4194304U);
    EXPECT_EQ(offsetof(U50InstTable, ine2psInstTable), 8388608U);
    EXPECT_EQ(offsetof(U50InstTable, ine4psInstTable), 9437184U);
    EXPECT_EQ(sizeof(U50InstTable), 10485760U);
}

TEST(InstCount, StartsAtZero) {
    const U50InstCount count;
    EXPECT_EQ(count.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(count.shfe_inst_cnt_4ps, 0U);
    EXPECT_EQ(count.ine_inst_cnt_2ps, 0U);
    EXPECT_EQ(count.ine_inst_cnt_4ps, 0U);
}

TEST(DstPort, StartsAtZero) {
    const U50DstPort port;
    EXPECT_EQ(port.port_shfe_2ps, 0);
    EXPECT_EQ(port.port_shfe_4ps, 0);
    EXPECT_EQ(port.port_ine_2ps, 0);
    EXPECT_EQ(port.port_ine_4ps, 0);
}
