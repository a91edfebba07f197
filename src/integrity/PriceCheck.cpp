#include "integrity/PriceCheck.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "engine/KovaShfeMdApiImpl.h"
#include "instruments/FeedInfo.h"
#include "instruments/InstPattern.h"
#include "log/CommonLog.h"

namespace {

constexpr const char* INST_PRICE_CHECK = "ShfeInstPriceCheck";

/** No price of the ladder has been seen yet. */
constexpr int NO_PRICE = std::numeric_limits<int>::max();

void LogBadPrices(const SInstTableType& refRow, int instIndex) {
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "inst_id [%s] inst_no[%d]", InstId(refRow).data(), instIndex);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "upper_price is [%8d]", refRow.upper_limit_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "lower_price is [%8d]", refRow.lower_limit_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "ask5_price is [%8d]", refRow.ask5_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "ask4_price is [%8d]", refRow.ask4_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "ask3_price is [%8d]", refRow.ask3_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "ask2_price is [%8d]", refRow.ask2_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "ask1_price is [%8d]", refRow.ask1_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "bid1_price is [%8d]", refRow.bid1_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "bid2_price is [%8d]", refRow.bid2_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "bid3_price is [%8d]", refRow.bid3_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "bid4_price is [%8d]", refRow.bid4_price);
    KOVA_LOG_AS(LOG_ERROR, INST_PRICE_CHECK, "bid5_price is [%8d]", refRow.bid5_price);
}

}  // namespace

int CheckPrice(const std::vector<int>& _price, const int& upper_limit_price, const int& lower_limit_price) {
    int iPrePrice = NO_PRICE;
    for (size_t i = 0; i < _price.size(); ++i) {
        const int nPrice = _price[i];
        if (nPrice == 0 && iPrePrice == NO_PRICE) {
            continue;
        }
        if (nPrice != 0 && (nPrice < lower_limit_price || nPrice > upper_limit_price)) {
            KOVA_LOG(LOG_WARNING,
                     "(price > up) or (price < lower), price is %d, up is %d, lower is %d, shfe2psInstTable "
                     "index is :%d",
                     nPrice, upper_limit_price, lower_limit_price, static_cast<int>(i));
            return PRICE_CHECK_OUT_OF_LIMITS;
        }
        if (nPrice > iPrePrice || (nPrice == iPrePrice && nPrice != 0)) {
            KOVA_LOG(LOG_WARNING, "The price is abnormal, price index is :%d ", static_cast<int>(i));
            return PRICE_CHECK_OUT_OF_ORDER;
        }
        iPrePrice = nPrice;
    }
    return 0;
}

int CKovaShfeMdApiImpl::ShfePriceCheck(CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    auto* const lpRows = reinterpret_cast<SInstTableType*>(&refShfeMdApiImpl.m_u50InstTable);
    const auto nMaxRows = static_cast<int>(INST_SHFE_TABLE_SIZE);
    for (int i = 0; i < nMaxRows; ++i) {
        for (const U50FeedInfo& refFeed : FEED_INFO) {
            const auto nCount = static_cast<int>(refShfeMdApiImpl.m_u50InstCount.*refFeed.lpInstCount);
            if (i >= std::min(nCount, refFeed.nRowCount)) {
                continue;
            }
            const int nResult = ShfeInstPriceCheck(lpRows + refFeed.nFirstRow, i, refShfeMdApiImpl);
            if (nResult != 0) {
                return nResult;
            }
        }
    }
    return 0;
}

int CKovaShfeMdApiImpl::ShfeInstPriceCheck(SInstTableType* PinstTable, int instIndex,
                                           CKovaShfeMdApiImpl& refShfeMdApiImpl) {
    const SInstTableType& refRow = PinstTable[instIndex];
    const std::string instId(InstId(refRow).data());
    if (isShfeTasInst(instId)) {
        return 0;
    }
    const std::vector<int> shfe_inst_2ps_price = {
        refRow.ask5_price, refRow.ask4_price, refRow.ask3_price, refRow.ask2_price, refRow.ask1_price,
        refRow.bid1_price, refRow.bid2_price, refRow.bid3_price, refRow.bid4_price, refRow.bid5_price};
    const int nResult = CheckPrice(shfe_inst_2ps_price, refRow.upper_limit_price, refRow.lower_limit_price);
    if (nResult == 0) {
        return 0;
    }
    refShfeMdApiImpl.m_setPriceErrorInstId.insert(instId);
    LogBadPrices(refRow, instIndex);
    return refShfeMdApiImpl.m_u50ConfigInfo.shield_price_check ? 0 : nResult;
}
