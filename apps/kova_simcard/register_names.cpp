#include "kova_simcard/register_names.h"

#include <algorithm>
#include <vector>

#include "sim/exchange/snapshot_stream.h"
#include "wire/Feed.h"
#include "wire/RegisterMap.h"

namespace kova::app {

namespace {

const NamedRegister kOfTheCard[] = {
    {"build_version", REG_BUILD_VERSION},
    {"build_date", REG_BUILD_DATE},
    {"init_trigger", REG_INIT_TRIGGER},
    {"model_sel", REG_MODEL_SEL},
    {"hw_version", REG_HW_VERSION},
    {"soft_version", REG_SOFT_VERSION},
    {"version_check", REG_VERSION_CHECK},
    {"init_mask", REG_INIT_MASK},
    {"config_crc", REG_CONFIG_CRC},
    {"shfe_2ps_max_inst", REG_SHFE2PS_MAX_INST},
    {"shfe_4ps_max_inst", REG_SHFE4PS_MAX_INST},
    {"ine_2ps_max_inst", REG_INE2PS_MAX_INST},
    {"ine_4ps_max_inst", REG_INE4PS_MAX_INST},
    {"last_tick_channel", REG_LAST_TICK_CHANNEL},
    {"repeat_quote_upload", REG_REPEAT_QUOTE_UPLOAD},
    {"event_pkts", REG_EVENT_PKTS},
    {"shfe_2ps_pkts", REG_SHFE2PS_PKTS},
    {"ine_2ps_pkts", REG_INE2PS_PKTS},
    {"shfe_4ps_pkts", REG_SHFE4PS_PKTS},
    {"ine_4ps_pkts", REG_INE4PS_PKTS},
    {"price_protect_event_mask", REG_PRICE_PROTECT_EVENT_MASK},
    {"shfe_inst_count", REG_SHFE_INST_COUNT},
    {"ine_inst_count", REG_INE_INST_COUNT},
    {"status_0", REG_STATUS_0},
    {"status_1", REG_STATUS_1},
    {"hbm2_status", REG_HBM2_STATUS},
    {"last_update_shfe_2ps", REG_LAST_UPDATE_TIME + SHFE_2PS},
    {"last_update_shfe_4ps", REG_LAST_UPDATE_TIME + SHFE_4PS},
    {"last_update_ine_2ps", REG_LAST_UPDATE_TIME + INE_2PS},
    {"last_update_ine_4ps", REG_LAST_UPDATE_TIME + INE_4PS},
    {"route", REG_ROUTE},
};

// Of each of the four network groups.
const NamedRegister kOfAGroup[] = {
    {"dst_mac_hi", REG_DST_MAC_HI}, {"dst_mac_lo", REG_DST_MAC_LO}, {"dst_ip", REG_DST_IP},
    {"dst_port", REG_DST_PORT},     {"src_mac_hi", REG_SRC_MAC_HI}, {"src_mac_lo", REG_SRC_MAC_LO},
    {"src_ip", REG_SRC_IP},         {"src_port", REG_SRC_PORT},
};

// Of the 2PS core; the 4PS core repeats them.
const NamedRegister kOfACore[] = {
    {"shfe_group_a", REG_MCAST_IP},
    {"ine_group_a", REG_MCAST_IP + REG_MCAST_INE},
    {"shfe_group_port_a", REG_MCAST_PORT},
    {"ine_group_port_a", REG_MCAST_PORT + REG_MCAST_INE},
    {"shfe_group_b", REG_MCAST_IP + REG_MCAST_LINE_B},
    {"ine_group_b", REG_MCAST_IP + REG_MCAST_INE + REG_MCAST_LINE_B},
    {"shfe_group_port_b", REG_MCAST_PORT + REG_MCAST_LINE_B},
    {"ine_group_port_b", REG_MCAST_PORT + REG_MCAST_INE + REG_MCAST_LINE_B},
    {"shfe_packet_no", REG_SHFE_PACKET_NO},
    {"ine_packet_no", REG_INE_PACKET_NO},
    {"detect_interval", REG_DETECT_INTERVAL},
    {"core_start", REG_CORE_START},
    {"error_count", REG_CORE_ERROR_COUNT},
    {"error_count_b", REG_CORE_ERROR_COUNT_B},
};

std::vector<NamedRegister> all_registers() {
    constexpr std::uint32_t kGroups = 4;
    std::vector<NamedRegister> all(std::begin(kOfTheCard), std::end(kOfTheCard));
    for (std::uint32_t group = 0; group < kGroups; ++group) {
        for (const NamedRegister& each : kOfAGroup) {
            all.push_back(
                {each.name + "_" + std::to_string(group), each.number + group * REG_NETWORK_GROUP_STRIDE});
        }
    }
    for (const NamedRegister& each : kOfACore) {
        all.push_back({each.name + "_2ps", each.number});
        all.push_back({each.name + "_4ps", each.number + REG_CORE_STRIDE});
    }
    std::ranges::sort(all, {}, &NamedRegister::number);
    return all;
}

}  // namespace

std::span<const NamedRegister> named_registers() {
    static const std::vector<NamedRegister> all = all_registers();
    return all;
}

const NamedRegister* find_register(std::string_view name) {
    const std::span<const NamedRegister> all = named_registers();
    const auto found = std::ranges::find(all, name, &NamedRegister::name);
    return found == all.end() ? nullptr : &*found;
}

}  // namespace kova::app
