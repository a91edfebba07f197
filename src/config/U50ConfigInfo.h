/**
 * What the engine is configured with. Filled from the configuration file by CKovaShfeMdApiImpl::_ReadConfig();
 * everything else reads it and never the file.
 */
#ifndef KOVA_CONFIG_U50_CONFIG_INFO_H
#define KOVA_CONFIG_U50_CONFIG_INFO_H

#include <cstdint>
#include <string>

#include "log/CommonLog.h"
#include "util/UstCharArray.h"

/** One bit for each feed: which feeds are on, which feeds' snapshots are complete. */
union UEnabledMask {
    uint8_t enabled_mask = 0;
    __extension__ struct {
        uint8_t shfe2ps : 1;
        uint8_t shfe4ps : 1;
        uint8_t ine2ps : 1;
        uint8_t ine4ps : 1;
        uint8_t reserved : 4;
    };
};
static_assert(sizeof(UEnabledMask) == 1);

/** Multicast groups "ip:port", the A and the B line of each feed. */
struct U50MultiIpAndPort {
    CAddressType shfe2ps_ip_a;
    CAddressType shfe2ps_ip_b;
    CAddressType shfe4ps_ip_a;
    CAddressType shfe4ps_ip_b;
    CAddressType ine2ps_ip_a;
    CAddressType ine2ps_ip_b;
    CAddressType ine4ps_ip_a;
    CAddressType ine4ps_ip_b;
};

/** Topic of each feed's stream. */
struct U50TopicID {
    int32_t shfe2ps_topic_id = 0;
    int32_t shfe4ps_topic_id = 0;
    int32_t ine2ps_topic_id = 0;
    int32_t ine4ps_topic_id = 0;
};

/** TCP port of each feed's snapshot stream. */
struct U50SnapTcpPort {
    uint16_t shfe2ps_snap_port = 0;
    uint16_t shfe4ps_snap_port = 0;
    uint16_t ine2ps_snap_port = 0;
    uint16_t ine4ps_snap_port = 0;
};

/** Highest instrument number of each feed. */
struct U50MaxInstNo {
    int32_t shfe2ps_max_inst_no = 0;
    int32_t shfe4ps_max_inst_no = 0;
    int32_t ine2ps_max_inst_no = 0;
    int32_t ine4ps_max_inst_no = 0;
};

/** What one channel receives. */
struct U50ChannelInfo {
    static constexpr int32_t CHANNEL_SIZE = 16;

    CInstrumentListType insts; /**< patterns of identifiers, separated by commas, or "all" */
    bool options = false;      /**< also option contracts: identifiers of more than 6 characters */
    bool recvall = false;      /**< every instrument, whatever the patterns say */
};

struct U50ConfigInfo {
    int32_t bus_id = 0;        /**< accelerator index of the card */
    int32_t channel_id = 0;    /**< 0 to 15; the process of channel 0 programs the card */
    int32_t cpucore = -1;      /**< core of the receiving thread; -1: not bound */
    UEnabledMask enabled_mask; /**< feeds that are on */
    U50MultiIpAndPort multiIpAndPort;
    U50TopicID topicID;
    U50SnapTcpPort snapTcpPort;
    U50MaxInstNo maxInstNo;
    uint32_t last_tick_channel = 0; /**< bit c: channel c; 16 bits */
    uint32_t detect_interval = 0;   /**< no key: 0xFFFFFFFF once read */
    int32_t board_id = 0;
    ELOGLEVEL log_level = static_cast<ELOGLEVEL>(15); /**< mask of levels; the log's own until one is read */
    CMACType DSTMAC;
    CIPType DSTIP;
    uint16_t DSTPORT = 0;
    CMACType SRCMAC;
    CIPType SRCIP;
    uint16_t SRCPORT = 0;
    int32_t TARGETROUTE = 0;
    bool debug_flag = false;
    uint16_t error_instno = 0;      /**< fault injection: row number */
    uint16_t error_case = 0;        /**< fault injection: kind */
    uint16_t error_limit_parts = 0; /**< fault injection: size of the error */
    uint32_t dma_sleep = 0;         /**< microseconds, with debug_flag */
    bool crc_mux_check = false;
    bool repeat_quote_upload = false;
    uint32_t price_protect_event_mask = 0xFFFFFFFF;
    U50ChannelInfo channelInfo[U50ChannelInfo::CHANNEL_SIZE];
    uint16_t wait_snap_timeout = 600; /**< seconds */
    uint16_t init_tcpcnt = 3;         /**< attempts to bring the card up */
    std::string log_path;             /**< directory of the log file */
    bool model_sel = false;
    bool event_model_sel = false;
    bool shield_price_check = false;
    bool dma_data_flag = false; /**< whether the snapshot traffic is captured */
};

#endif  // KOVA_CONFIG_U50_CONFIG_INFO_H
