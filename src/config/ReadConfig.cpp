#include "config/ReadConfig.h"

#include <cstdio>

#include "engine/KovaShfeMdApiImpl.h"
#include "log/CommonLog.h"

namespace {

constexpr const char* SECTION = "config";
constexpr const char* OPERATION = "_ReadConfig";

struct SAddressKey {
    const char* szKey;
    const char* szDefault;
    CAddressType U50MultiIpAndPort::*lpField;
};

constexpr SAddressKey ADDRESS_KEYS[] = {
    {"shfe2ps_ip_a", "239.3.42.71:21000", &U50MultiIpAndPort::shfe2ps_ip_a},
    {"shfe2ps_ip_b", "239.4.42.72:21000", &U50MultiIpAndPort::shfe2ps_ip_b},
    {"shfe4ps_ip_a", "239.3.2.3:21101", &U50MultiIpAndPort::shfe4ps_ip_a},
    {"shfe4ps_ip_b", "239.4.2.4:21101", &U50MultiIpAndPort::shfe4ps_ip_b},
    {"ine2ps_ip_a", "239.3.52.71:25000", &U50MultiIpAndPort::ine2ps_ip_a},
    {"ine2ps_ip_b", "239.4.52.72:25000", &U50MultiIpAndPort::ine2ps_ip_b},
    {"ine4ps_ip_a", "239.3.151.91:25101", &U50MultiIpAndPort::ine4ps_ip_a},
    {"ine4ps_ip_b", "239.4.151.92:25101", &U50MultiIpAndPort::ine4ps_ip_b},
};

struct STopicKey {
    const char* szKey;
    int32_t nDefault;
    int32_t U50TopicID::*lpField;
};

constexpr STopicKey TOPIC_KEYS[] = {
    {"shfe2ps_topic_id", 1000, &U50TopicID::shfe2ps_topic_id},
    {"shfe4ps_topic_id", 1101, &U50TopicID::shfe4ps_topic_id},
    {"ine2ps_topic_id", 5000, &U50TopicID::ine2ps_topic_id},
    {"ine4ps_topic_id", 5101, &U50TopicID::ine4ps_topic_id},
};

struct SSnapPortKey {
    const char* szKey;
    uint16_t nDefault;
    uint16_t U50SnapTcpPort::*lpField;
};

constexpr SSnapPortKey SNAP_PORT_KEYS[] = {
    {"shfe2ps_snap_port", 33022, &U50SnapTcpPort::shfe2ps_snap_port},
    {"shfe4ps_snap_port", 22000, &U50SnapTcpPort::shfe4ps_snap_port},
    {"ine2ps_snap_port", 33022, &U50SnapTcpPort::ine2ps_snap_port},
    {"ine4ps_snap_port", 22000, &U50SnapTcpPort::ine4ps_snap_port},
};

struct SMaxInstNoKey {
    const char* szKey;
    int32_t nDefault;
    int32_t U50MaxInstNo::*lpField;
};

constexpr SMaxInstNoKey MAX_INST_NO_KEYS[] = {
    {"shfe2ps_max_inst_no", 81000, &U50MaxInstNo::shfe2ps_max_inst_no},
    {"shfe4ps_max_inst_no", 81101, &U50MaxInstNo::shfe4ps_max_inst_no},
    {"ine2ps_max_inst_no", 85000, &U50MaxInstNo::ine2ps_max_inst_no},
    {"ine4ps_max_inst_no", 85101, &U50MaxInstNo::ine4ps_max_inst_no},
};

/** Whether a feed is on. */
bool ReadEnabled(const CIniReader& refIni, const char* szKey, const char* szDefault) {
    return refIni.ReadString(SECTION, szKey, szDefault) == "enabled";
}

/** 1 alone is true. */
bool ReadFlag(const CIniReader& refIni, const char* szKey) {
    return refIni.ReadUInt16(SECTION, szKey, 0) == 1;
}

template <size_t N>
void ReadText(const CIniReader& refIni, const char* szKey, const char* szDefault, CUstCharArray<N>& refText) {
    refText.UnSafeCopyFrom(refIni.ReadString(SECTION, szKey, szDefault).c_str());
}

}  // namespace

int32_t CKovaShfeMdApiImpl::_ReadConfig() {
    CIniReader iniReader;
    if (!iniReader.ReadConfig(m_configFileName.data())) {
        std::printf("ReadConfig is %s failed \n", m_configFileName.data());
        return -1;
    }

    ReadProcessKeys(iniReader, m_u50ConfigInfo);
    // The log takes its path only before its first line.
    CCommonLog::GetInstance()->SetLogPath(m_u50ConfigInfo.log_path);
    LogProcessKeys(m_u50ConfigInfo);
    // The card is the managing channel's business, and so are the keys that concern it.
    if (m_u50ConfigInfo.channel_id != MANAGER_CHANNEL) {
        return 0;
    }

    ReadFeedKeys(iniReader, m_u50ConfigInfo);
    ReadNetworkKeys(iniReader, m_u50ConfigInfo);
    ReadSwitchKeys(iniReader, m_u50ConfigInfo);
    ReadFaultKeys(iniReader, m_u50ConfigInfo);
    LogFaultKeys(m_u50ConfigInfo);
    LogFeedKeys(m_u50ConfigInfo);
    LogNetworkKeys(m_u50ConfigInfo);
    LogSwitchKeys(m_u50ConfigInfo);
    ReadChannelKeys(iniReader, m_u50ConfigInfo);
    ReadSnapshotKeys(iniReader, m_u50ConfigInfo);
    LogSnapshotKeys(m_u50ConfigInfo);
    return 0;
}

void ReadProcessKeys(const CIniReader& refIni, U50ConfigInfo& refConfig) {
    refConfig.log_level = static_cast<ELOGLEVEL>(refIni.ReadInt32(SECTION, "log_level", 15));
    refConfig.cpucore = refIni.ReadInt32(SECTION, "cpucore", -1);
    const std::string device = refIni.ReadString(SECTION, "device", "xilinx0:0");
    // A number that the text does not give stays what it was, so how many it gave does not matter.
    static_cast<void>(std::sscanf(device.c_str(), "xilinx%d:%d", &refConfig.bus_id, &refConfig.channel_id));
    refConfig.log_path = refIni.ReadString(SECTION, "log_path", "");
}

void LogProcessKeys(const U50ConfigInfo& refConfig) {
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "log_level[%d]", refConfig.log_level);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "cpucore[%d]", refConfig.cpucore);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "bus_id[%d] channel_id[%d]", refConfig.bus_id, refConfig.channel_id);
}

void ReadFeedKeys(const CIniReader& refIni, U50ConfigInfo& refConfig) {
    refConfig.enabled_mask.shfe2ps = ReadEnabled(refIni, "shfe2ps", "enabled");
    refConfig.enabled_mask.shfe4ps = 0;
    refConfig.enabled_mask.ine2ps = ReadEnabled(refIni, "ine2ps", "disabled");
    refConfig.enabled_mask.ine4ps = 0;
    for (const SAddressKey& refKey : ADDRESS_KEYS) {
        ReadText(refIni, refKey.szKey, refKey.szDefault, refConfig.multiIpAndPort.*refKey.lpField);
    }
    for (const STopicKey& refKey : TOPIC_KEYS) {
        refConfig.topicID.*refKey.lpField = refIni.ReadInt32(SECTION, refKey.szKey, refKey.nDefault);
    }
    for (const SSnapPortKey& refKey : SNAP_PORT_KEYS) {
        refConfig.snapTcpPort.*refKey.lpField = refIni.ReadUInt16(SECTION, refKey.szKey, refKey.nDefault);
    }
    for (const SMaxInstNoKey& refKey : MAX_INST_NO_KEYS) {
        refConfig.maxInstNo.*refKey.lpField = refIni.ReadInt32(SECTION, refKey.szKey, refKey.nDefault);
    }
    refConfig.last_tick_channel = refIni.ReadUInt32(SECTION, "last_tick_channel", 0) & 0xFFFF;
    refConfig.detect_interval = 0xFFFFFFFF;
}

void LogFeedKeys(const U50ConfigInfo& refConfig) {
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "enabled_mask[%d]", refConfig.enabled_mask.enabled_mask);
    const U50MultiIpAndPort& refAddresses = refConfig.multiIpAndPort;
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe2ps_ip_a[%s]", refAddresses.shfe2ps_ip_a.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe2ps_ip_b[%s]", refAddresses.shfe2ps_ip_b.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe4ps_ip_a[%s]", refAddresses.shfe4ps_ip_a.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe4ps_ip_b[%s]", refAddresses.shfe4ps_ip_b.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine2ps_ip_a[%s]", refAddresses.ine2ps_ip_a.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine2ps_ip_b[%s]", refAddresses.ine2ps_ip_b.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine4ps_ip_a[%s]", refAddresses.ine4ps_ip_a.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine4ps_ip_b[%s]", refAddresses.ine4ps_ip_b.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe2ps_topic_id[%d]", refConfig.topicID.shfe2ps_topic_id);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe4ps_topic_id[%d]", refConfig.topicID.shfe4ps_topic_id);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine2ps_topic_id[%d]", refConfig.topicID.ine2ps_topic_id);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine4ps_topic_id[%d]", refConfig.topicID.ine4ps_topic_id);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe2ps_snap_port[%d]", refConfig.snapTcpPort.shfe2ps_snap_port);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe4ps_snap_port[%d]", refConfig.snapTcpPort.shfe4ps_snap_port);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine2ps_snap_port[%d]", refConfig.snapTcpPort.ine2ps_snap_port);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine4ps_snap_port[%d]", refConfig.snapTcpPort.ine4ps_snap_port);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe2ps_max_inst_no[%d]", refConfig.maxInstNo.shfe2ps_max_inst_no);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shfe4ps_max_inst_no[%d]", refConfig.maxInstNo.shfe4ps_max_inst_no);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine2ps_max_inst_no[%d]", refConfig.maxInstNo.ine2ps_max_inst_no);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "ine4ps_max_inst_no[%d]", refConfig.maxInstNo.ine4ps_max_inst_no);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "last_tick_channel[%u]", refConfig.last_tick_channel);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "detect_interval[%u]", refConfig.detect_interval);
}

void ReadNetworkKeys(const CIniReader& refIni, U50ConfigInfo& refConfig) {
    refConfig.board_id = refIni.ReadInt32(SECTION, "board_id", 0);
    ReadText(refIni, "DSTMAC", "", refConfig.DSTMAC);
    ReadText(refIni, "DSTIP", "", refConfig.DSTIP);
    refConfig.DSTPORT = refIni.ReadUInt16(SECTION, "DSTPORT", 0);
    ReadText(refIni, "SRCMAC", "", refConfig.SRCMAC);
    ReadText(refIni, "SRCIP", "", refConfig.SRCIP);
    refConfig.SRCPORT = refIni.ReadUInt16(SECTION, "SRCPORT", 0);
    refConfig.TARGETROUTE = refIni.ReadInt32(SECTION, "TARGETROUTE", 0);
}

void LogNetworkKeys(const U50ConfigInfo& refConfig) {
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "board_id[%d]", refConfig.board_id);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "DSTMAC[%s]", refConfig.DSTMAC.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "DSTIP[%s]", refConfig.DSTIP.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "DSTPORT[%d]", refConfig.DSTPORT);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "SRCMAC[%s]", refConfig.SRCMAC.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "SRCIP[%s]", refConfig.SRCIP.data());
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "SRCPORT[%d]", refConfig.SRCPORT);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "TARGETROUTE[%d]", refConfig.TARGETROUTE);
}

void ReadSwitchKeys(const CIniReader& refIni, U50ConfigInfo& refConfig) {
    refConfig.crc_mux_check = ReadFlag(refIni, "crc_mux_check");
    refConfig.repeat_quote_upload = ReadFlag(refIni, "repeat_quote_upload");
    refConfig.price_protect_event_mask = refIni.ReadUInt32(SECTION, "price_protect_event_mask", 0x0C0C0C0C);
    refConfig.debug_flag = ReadFlag(refIni, "debug_flag");
    refConfig.model_sel = ReadFlag(refIni, "model_sel");
    refConfig.event_model_sel = ReadFlag(refIni, "event_model_sel");
    refConfig.shield_price_check = ReadFlag(refIni, "shield_price_check");
    refConfig.dma_data_flag = ReadFlag(refIni, "dma_data_flag");
}

void LogSwitchKeys(const U50ConfigInfo& refConfig) {
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "crc_mux_check[%d]", refConfig.crc_mux_check);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "price_protect_event_mask[%u]", refConfig.price_protect_event_mask);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "repeat_quote_upload[%d]", refConfig.repeat_quote_upload);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "model_sel[%d]", refConfig.model_sel);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "event_model_sel[%d]", refConfig.event_model_sel);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "shield_price_check[%d]", refConfig.shield_price_check);
    KOVA_LOG_AS(LOG_DEBUG, OPERATION, "dma_data_flag[%d]", refConfig.dma_data_flag);
}

void ReadFaultKeys(const CIniReader& refIni, U50ConfigInfo& refConfig) {
    refConfig.error_instno = refIni.ReadUInt16(SECTION, "error_instno", 0);
    refConfig.error_case = refIni.ReadUInt16(SECTION, "error_case", 65535);
    refConfig.error_limit_parts = static_cast<uint16_t>(refIni.ReadInt32(SECTION, "error_limit_parts", 4));
    refConfig.dma_sleep = static_cast<uint32_t>(refIni.ReadInt32(SECTION, "dma_sleep", 0));
}

void LogFaultKeys(const U50ConfigInfo& refConfig) {
    if (!refConfig.debug_flag) {
        return;
    }
    KOVA_LOG_AS(LOG_WARNING, OPERATION, "error_instno[%d]", refConfig.error_instno);
    KOVA_LOG_AS(LOG_WARNING, OPERATION, "error_case[%d]", refConfig.error_case);
    KOVA_LOG_AS(LOG_WARNING, OPERATION, "error_limit_parts[%d]", refConfig.error_limit_parts);
    KOVA_LOG_AS(LOG_WARNING, OPERATION, "dma_sleep[%d]", static_cast<int32_t>(refConfig.dma_sleep));
}

void ReadChannelKeys(const CIniReader& refIni, U50ConfigInfo& refConfig) {
    for (int32_t i = 0; i < U50ChannelInfo::CHANNEL_SIZE; ++i) {
        U50ChannelInfo& refChannel = refConfig.channelInfo[i];
        CUstCharArray<64> section("channel");
        section.Append(i);
        refChannel.insts.UnSafeCopyFrom(refIni.ReadString(section.data(), "insts", "").c_str());
        refChannel.options = refIni.ReadString(section.data(), "options", "norecv") == "recv";
        refChannel.recvall = refChannel.insts.Comp("all") == 0;
    }
}

void ReadSnapshotKeys(const CIniReader& refIni, U50ConfigInfo& refConfig) {
    refConfig.wait_snap_timeout = refIni.ReadUInt16(SECTION, "wait_snap_timeout", 600);
    refConfig.init_tcpcnt = refIni.ReadUInt16(SECTION, "init_tcpcnt", 3);
}

void LogSnapshotKeys(const U50ConfigInfo& refConfig) {
    KOVA_LOG_AS(LOG_INFO, OPERATION, "wait_snap_timeout = [%d]", refConfig.wait_snap_timeout);
    KOVA_LOG_AS(LOG_INFO, OPERATION, "init_tcpcnt = [%d]", refConfig.init_tcpcnt);
}
