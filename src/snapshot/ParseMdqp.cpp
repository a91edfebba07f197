// One whole message of the snapshot stream into the instrument rows.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <optional>

#include "engine/KovaShfeMdApiImpl.h"
#include "instruments/FeedInfo.h"
#include "log/CommonLog.h"
#include "snapshot/PriceConversion.h"
#include "snapshot/PriceLevels.h"
#include "wire/Mdqp.h"

namespace {

// Lines that would come once for every instrument are written once in the life of the process.
std::atomic<bool> shfe_cnt_flag = true;
std::atomic<bool> ine_cnt_flag = true;
std::atomic<bool> shfe_cnt_80_flag = true;
std::atomic<bool> ine_cnt_80_flag = true;

/** True the first time. */
bool Disarm(std::atomic<bool>& refFlag) {
    return refFlag.load(std::memory_order_relaxed) && refFlag.exchange(false, std::memory_order_relaxed);
}

// From here on a table is more than 80 percent full.
constexpr uint64_t SHFE_NEARLY_FULL = 12801;
constexpr uint64_t INE_NEARLY_FULL = 3201;

constexpr bool IsShfe(EMDQPDataType feed) {
    return feed == SHFE_2PS || feed == SHFE_4PS;
}

constexpr bool IsIne(EMDQPDataType feed) {
    return feed == INE_2PS || feed == INE_4PS;
}

/** The feed whose snapshot arrives on a port. */
std::optional<EMDQPDataType> FeedOfPort(const U50DstPort& refDstPort, uint16_t nPort) {
    for (size_t i = 0; i < FEED_INFO.size(); ++i) {
        if (refDstPort.*FEED_INFO[i].lpDstPort == nPort) {
            return static_cast<EMDQPDataType>(i);
        }
    }
    return std::nullopt;
}

/** One field of a message that lies whole in memory. */
struct SMdqpField {
    field_t header;
    const uint8_t* lpBody;
    size_t nRoom; /**< bytes from the body's start to the message's end */

    /** The body, or null when it reaches past the end of the message. */
    template <typename TBody>
    [[nodiscard]] const TBody* Body() const {
        return nRoom >= sizeof(TBody) ? reinterpret_cast<const TBody*>(lpBody) : nullptr;
    }
};

void LogNearlyFull(EMDQPDataType feed, uint64_t nCount) {
    constexpr const char* FUNCTION = "_ParseMdqp";
    const bool isShfe = IsShfe(feed);
    if (nCount < (isShfe ? SHFE_NEARLY_FULL : INE_NEARLY_FULL) ||
        !Disarm(isShfe ? shfe_cnt_80_flag : ine_cnt_80_flag)) {
        return;
    }
    switch (feed) {
        case SHFE_2PS:
            KOVA_LOG_AS(LOG_WARNING, FUNCTION, "shfe_inst_cnt_2ps is %lu, more than 80%% max cnt.", nCount);
            break;
        case SHFE_4PS:
            KOVA_LOG_AS(LOG_WARNING, FUNCTION, "shfe_inst_cnt_4ps is %lu, more than 80%% max cnt.", nCount);
            break;
        case INE_2PS:
            KOVA_LOG_AS(LOG_WARNING, FUNCTION, "ine_inst_cnt_2ps is %lu, more than 80%% max cnt. ", nCount);
            break;
        case INE_4PS:
            KOVA_LOG_AS(LOG_WARNING, FUNCTION, "ine_inst_cnt_4ps is %lu, more than 80%% max cnt. ", nCount);
            break;
    }
}

void LogFinished(EMDQPDataType feed, uint64_t nCount) {
    constexpr const char* FUNCTION = "_ParseMdqp";
    switch (feed) {
        case SHFE_2PS:
            KOVA_LOG_AS(LOG_INFO, FUNCTION, "shfe2ps init finished, total instruments:%lu", nCount);
            break;
        case SHFE_4PS:
            KOVA_LOG_AS(LOG_INFO, FUNCTION, "shfe4ps init finished, total instruments:%lu", nCount);
            break;
        case INE_2PS:
            KOVA_LOG_AS(LOG_INFO, FUNCTION, "ine2ps init finished, total instruments:%lu", nCount);
            break;
        case INE_4PS:
            KOVA_LOG_AS(LOG_INFO, FUNCTION, "ine4ps init finished, total instruments:%lu", nCount);
            break;
    }
}

/** Whether the feed has a table and the number is not behind its end. */
constexpr bool IsBelowTableEnd(EMDQPDataType feed, int32_t nInstNo) {
    return static_cast<size_t>(feed) < FEED_INFO.size() &&
           nInstNo < FEED_INFO[static_cast<size_t>(feed)].nRowCount;
}

/** Apart from the test, which is made for every field and belongs into the loop over them. */
[[gnu::cold, gnu::noinline]] void LogRefusedInstNo(EMDQPDataType feed, int32_t nInstNo) {
    constexpr const char* FUNCTION = "_ProtectInstNo";
    if (IsShfe(feed)) {
        if (Disarm(shfe_cnt_flag)) {
            KOVA_LOG_AS(LOG_WARNING, FUNCTION, "shfe inst_no[%d] is out of range [%d]", nInstNo,
                        static_cast<int>(INST_SHFE_TABLE_SIZE));
        }
        return;
    }
    if (IsIne(feed)) {
        if (Disarm(ine_cnt_flag)) {
            KOVA_LOG_AS(LOG_WARNING, FUNCTION, "ine inst_no[%d] is out of range  [%d]", nInstNo,
                        static_cast<int>(INST_INE_TABLE_SIZE));
        }
        return;
    }
    KOVA_LOG_AS(LOG_INFO, FUNCTION, "refMDQPDataType is error, %d.", feed);
}

/** All of the target is written, also for an empty text: the card gets the whole row. */
void CopyInstId(char (&szTarget)[16], const char (&szSource)[31]) {
    std::memcpy(szTarget, szSource, sizeof(szTarget) - 1);
    szTarget[sizeof(szTarget) - 1] = '\0';
}

/**
 * The number that a date's text begins with, as atoi reads it. Eight digits are read at once, for there is a
 * date with every instrument: first the digits of each pair are joined, then the pairs, then the halves.
 */
int32_t ParseDay(const char (&szDay)[9]) {
    uint64_t nDigits;
    std::memcpy(&nDigits, szDay, sizeof(nDigits));
    nDigits -= 0x3030303030303030;
    const bool isAllDigits = ((nDigits | (nDigits + 0x7676767676767676)) & 0x8080808080808080) == 0;
    if (!isAllDigits) [[unlikely]] {
        return CUstCharArray<sizeof(szDay)>::BuffCast(szDay).ToInt32();
    }
    nDigits = (nDigits * 10 + (nDigits >> 8)) & 0x00FF00FF00FF00FF;
    nDigits = (nDigits * 100 + (nDigits >> 16)) & 0x0000FFFF0000FFFF;
    return static_cast<int32_t>((nDigits * 10000 + (nDigits >> 32)) & 0xFFFFFFFF);
}

}  // namespace

int CKovaShfeMdApiImpl::_ParseMdqp(const mdqp_t* mdqp, unsigned short dstport,
                                   CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    const std::optional<EMDQPDataType> feed = FeedOfPort(refShfeMdApiImpl.m_u50DstPort, dstport);
    if (!feed) {
        const tcp_session_t& refSession = refShfeMdApiImpl.m_sessions[dstport];
        KOVA_LOG(LOG_DEBUG, "src_host[%u] src_port[%d] dst_host[%u] dst_port[%d] unknown.", refSession.src_host,
                 refSession.src_port, refSession.dst_host, refSession.dst_port);
        return -1;
    }
    const auto* const lpMessage = reinterpret_cast<const uint8_t*>(mdqp);
    const size_t nLength = mdqp->length;
    const size_t nEnd = nLength + sizeof(*mdqp);
    uint16_t field_id_before = 0;
    SMdqpField field;
    // The offset counts the message's header and the length does not: a field that begins in the last eight
    // bytes is none.
    for (size_t nOffset = sizeof(*mdqp); nOffset < nLength;
         nOffset += sizeof(field.header) + field.header.field_size) {
        std::memcpy(&field.header, lpMessage + nOffset, sizeof(field.header));
        field.lpBody = lpMessage + nOffset + sizeof(field.header);
        field.nRoom = nEnd - nOffset - sizeof(field.header);
        const uint16_t field_id_cur = field.header.field_id;
        const bool isNewRun = field_id_before != field_id_cur;
        switch (field_id_cur) {
            case MDQP_FIELD_INST_INFO:
                _DecodeInstInfo(field.Body<inst_info_t>(), *feed, refShfeMdApiImpl);
                break;
            case MDQP_FIELD_DEAL_INFO:
                _DecodeDealInfo(field.Body<deal_info_t>(), *feed, refShfeMdApiImpl);
                break;
            case MDQP_FIELD_PRICE_DETAIL:
                _DecodePriceDetail(field.Body<price_detail_t>(), *feed, refShfeMdApiImpl, dstport, isNewRun);
                break;
            case MDQP_FIELD_ORDER_STATISTICS:
                _DecodeOrderStatistics(field.Body<order_statistics_info_t>(), *feed, refShfeMdApiImpl);
                break;
            case MDQP_FIELD_PACKET_NO:
                if (const auto* lpPacketNo = field.Body<packet_no_t>(); lpPacketNo != nullptr) {
                    _FieldID1004(*lpPacketNo, *feed, refShfeMdApiImpl);
                }
                break;
            case MDQP_FIELD_0031:
            case MDQP_FIELD_0032:
            case MDQP_FIELD_SNAP:
            case MDQP_FIELD_1002:
            case MDQP_FIELD_1003:
                break;
            default:
                KOVA_LOG(LOG_ERROR, "unknown field id: %02x", field_id_cur);
                break;
        }
        field_id_before = field_id_cur;
    }
    if (mdqp->flag == MDQP_FLAG_LAST) {
        refShfeMdApiImpl._FinishFeed(*feed, dstport);
    }
    return 0;
}

void CKovaShfeMdApiImpl::_FinishFeed(EMDQPDataType feed, uint16_t nPort) {
    const U50FeedInfo& refFeed = FEED_INFO[static_cast<size_t>(feed)];
    const uint64_t nCount = m_u50InstCount.*refFeed.lpInstCount;
    m_finishedMask.enabled_mask |= refFeed.nMaskBit;
    m_drvRegEnyx.WriteRegister(refFeed.nInstCountReg, static_cast<uint32_t>(nCount));
    LogFinished(feed, nCount);
    LogNearlyFull(feed, nCount);
    m_sessions[nPort].init = 0;
    m_u50DstPort.*refFeed.lpDstPort = 0;
}

int CKovaShfeMdApiImpl::_ProtectInstNo(const EMDQPDataType& refMDQPDataType, int& inst_no) {
    if (IsBelowTableEnd(refMDQPDataType, inst_no)) [[likely]] {
        return 1;
    }
    LogRefusedInstNo(refMDQPDataType, inst_no);
    return 0;
}

SInstTableType* CKovaShfeMdApiImpl::_FindInstRow(EMDQPDataType feed, int32_t nInstNo) {
    const U50FeedInfo& refFeed = FEED_INFO[static_cast<size_t>(feed)];
    if (nInstNo < 0 || nInstNo >= refFeed.nRowCount) {
        return nullptr;
    }
    m_snapshotDirt.AddRows(static_cast<size_t>(feed), nInstNo + 1);
    // The tables are counted through as one array of rows.
    auto* const lpRows = reinterpret_cast<SInstTableType*>(&m_u50InstTable);
    return lpRows + refFeed.nFirstRow + nInstNo;
}

void CKovaShfeMdApiImpl::_DecodeInstInfo(const inst_info_t* lpInstInfo, EMDQPDataType feed,
                                         CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    if (lpInstInfo == nullptr) {
        KOVA_LOG_AS(LOG_ERROR, "_ParseMdqp", "lpInstInfo is nullptr.");
        return;
    }
    int inst_no = lpInstInfo->inst_no;
    if (_ProtectInstNo(feed, inst_no) == 1) {
        _FieldID0101(*lpInstInfo, feed, refShfeMdApiImpl);
    }
}

void CKovaShfeMdApiImpl::_DecodeDealInfo(const deal_info_t* lpDealInfo, EMDQPDataType feed,
                                         CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    if (lpDealInfo == nullptr) {
        KOVA_LOG_AS(LOG_ERROR, "_ParseMdqp", "lpDealInfo is nullptr.");
        return;
    }
    int inst_no = lpDealInfo->inst_no;
    if (_ProtectInstNo(feed, inst_no) == 1) {
        _FieldID0102(*lpDealInfo, feed, refShfeMdApiImpl);
    }
}

void CKovaShfeMdApiImpl::_DecodePriceDetail(const price_detail_t* lpPriceDetail, EMDQPDataType feed,
                                            CKovaShfeMdApiImpl& refShfeMdApiImpl, int dstport, bool isNewRun) {
    if (lpPriceDetail == nullptr) {
        KOVA_LOG_AS(LOG_ERROR, "_ParseMdqp", "lpPriceFetail is nullptr.");
        return;
    }
    int inst_no = lpPriceDetail->inst_no;
    if (_ProtectInstNo(feed, inst_no) == 1) {
        _FieldID0103(*lpPriceDetail, feed, refShfeMdApiImpl, dstport, isNewRun);
    }
}

void CKovaShfeMdApiImpl::_DecodeOrderStatistics(const order_statistics_info_t* lpOrderStatistics,
                                                EMDQPDataType feed, CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    if (lpOrderStatistics == nullptr) {
        KOVA_LOG_AS(LOG_ERROR, "_ParseMdqp", "lpOrderStatisticsInfo is nullptr.");
        return;
    }
    int inst_no = lpOrderStatistics->inst_no;
    if (_ProtectInstNo(feed, inst_no) == 1) {
        _FieldID0104(*lpOrderStatistics, feed, refShfeMdApiImpl);
    }
}

int CKovaShfeMdApiImpl::_FieldID0101(const inst_info_t& inst_info, const EMDQPDataType& refMDQPDataType,
                                     CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    const int32_t nInstNo = inst_info.inst_no;
    SInstTableType* const lpRow = refShfeMdApiImpl._FindInstRow(refMDQPDataType, nInstNo);
    if (lpRow == nullptr) {
        return 0;
    }
    uint64_t& refCount =
        refShfeMdApiImpl.m_u50InstCount.*FEED_INFO[static_cast<size_t>(refMDQPDataType)].lpInstCount;
    refCount = std::max(refCount, static_cast<uint64_t>(nInstNo) + 1);
    lpRow->price_tick = ToCents(inst_info.price_tick);
    lpRow->codec_price = ToCents(inst_info.codec_price);
    lpRow->vol_multiple = static_cast<uint32_t>(inst_info.volume_multiple);
    CopyInstId(lpRow->inst_id, inst_info.inst_id);
    return 0;
}

int CKovaShfeMdApiImpl::_FieldID0102(const deal_info_t& deal_info, const EMDQPDataType& refMDQPDataType,
                                     CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    SInstTableType* const lpRow = refShfeMdApiImpl._FindInstRow(refMDQPDataType, deal_info.inst_no);
    if (lpRow == nullptr) {
        return 0;
    }
    refShfeMdApiImpl._TakeTradingDay(deal_info.action_day);
    lpRow->last_price = ToCents(deal_info.last_price);
    lpRow->upper_limit_price = ToCents(deal_info.upper_limit_price);
    lpRow->lower_limit_price = ToCents(deal_info.lower_limit_price);
    lpRow->high_price = ToCents(deal_info.highest_price);
    lpRow->low_price = ToCents(deal_info.lowest_price);
    lpRow->turnover = ToCentsUint64(deal_info.turnover);
    lpRow->open_interest = ToLots(deal_info.open_interest);
    lpRow->change_no = static_cast<uint32_t>(deal_info.change_no);
    lpRow->update_mill_sec = static_cast<uint32_t>(deal_info.update_mill_sec);
    lpRow->volume = static_cast<uint32_t>(deal_info.volume);
    return 0;
}

void CKovaShfeMdApiImpl::_TakeTradingDay(const char (&szActionDay)[9]) {
    m_tradingDay = std::max(m_tradingDay, ParseDay(szActionDay));
}

int CKovaShfeMdApiImpl::_FieldID0103(const price_detail_t& price_detail, const EMDQPDataType& refMDQPDataType,
                                     CKovaShfeMdApiImpl& refShfeMdApiImpl, int, bool flag) {
    SInstTableType* const lpRow = refShfeMdApiImpl._FindInstRow(refMDQPDataType, price_detail.inst_no);
    if (lpRow == nullptr) {
        return 0;
    }
    const int32_t nPrice = ToCents(price_detail.price);
    const auto nVolume = static_cast<uint32_t>(price_detail.volume);
    if (flag) {
        ClearPriceLevels(*lpRow);
    }
    if (price_detail.direction == MDQP_DIRECTION_BID) {
        PutBidLevel(*lpRow, nPrice, nVolume);
    } else if (price_detail.direction == MDQP_DIRECTION_ASK) {
        PutAskLevel(*lpRow, nPrice, nVolume);
    }
    return 0;
}

int CKovaShfeMdApiImpl::_FieldID0104(const order_statistics_info_t& order_statistics,
                                     const EMDQPDataType& refMDQPDataType,
                                     CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    SInstTableType* const lpRow = refShfeMdApiImpl._FindInstRow(refMDQPDataType, order_statistics.inst_no);
    if (lpRow == nullptr) {
        return 0;
    }
    lpRow->bid_volume = static_cast<uint32_t>(order_statistics.bid_volume);
    lpRow->bid_amount = ToCentsInt64(order_statistics.bid_amount);
    lpRow->ask_volume = static_cast<uint32_t>(order_statistics.ask_volume);
    lpRow->ask_amount = ToCentsInt64(order_statistics.ask_amount);
    return 0;
}

int CKovaShfeMdApiImpl::_FieldID1004(const packet_no_t& packet_no, const EMDQPDataType& refMDQPDataType,
                                     CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    refShfeMdApiImpl.m_drvRegEnyx.WriteRegister(FEED_INFO[static_cast<size_t>(refMDQPDataType)].nPacketNoReg,
                                                static_cast<uint32_t>(packet_no.packet_no));
    return 0;
}
