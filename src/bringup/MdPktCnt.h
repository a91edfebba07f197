/**
 * A sample of the card's packet counters: two of them tell whether the card receives.
 */
#ifndef KOVA_BRINGUP_MD_PKT_CNT_H
#define KOVA_BRINGUP_MD_PKT_CNT_H

#include <cstdint>

struct U50MdPktCnt {
    uint64_t shfe_2ps_pkts = 0;
    uint64_t en_2ps_pkts = 0; /**< of INE */
    uint64_t shfe_4ps_pkts = 0;
    uint64_t en_4ps_pkts = 0; /**< of INE */
    uint64_t shfe_event_pkts = 0;
};

/** Whether a packet of any feed came between the samples. */
[[nodiscard]] constexpr bool IsReceiving(const U50MdPktCnt& refBefore, const U50MdPktCnt& refAfter) noexcept {
    return refBefore.shfe_2ps_pkts != refAfter.shfe_2ps_pkts || refBefore.en_2ps_pkts != refAfter.en_2ps_pkts ||
           refBefore.shfe_4ps_pkts != refAfter.shfe_4ps_pkts || refBefore.en_4ps_pkts != refAfter.en_4ps_pkts;
}

#endif  // KOVA_BRINGUP_MD_PKT_CNT_H
