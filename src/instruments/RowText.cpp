#include "instruments/RowText.h"

#include <cstdio>

#include "instruments/InstPattern.h"

SRowText FaultRowText(uint16_t nInstNo, const SInstTableType& refRow) {
    SRowText text;
    std::snprintf(text.szText, sizeof(text.szText),
                  "error_instno:%d,inst_id:%s,price_tick:%d,codec_price:%d,vol_multiple:%u,change_no:%u,"
                  "update_mill_sec:%u,updatetime:%u,bid5_price:%d,bid5_vol:%u,bid4_price:%d,bid4_vol:%u,"
                  "bid3_price:%d,bid3_vol:%u,bid2_price:%d,bid2_vol:%u,bid1_price:%d,bid1_vol:%u,"
                  "ask5_price:%d,ask5_vol:%u,ask4_price:%d,ask4_vol:%u,ask3_price:%d,ask3_vol:%u,"
                  "ask2_price:%d,ask2_vol:%u,ask1_price:%d,ask1_vol:%u,open_interest:%lu,turnover:%lu,"
                  "volume:%u,last_price:%d,upper_limit_price:%d,lower_limit_price:%d,bid_volume=%u,"
                  "bid_amount:%ld,ask_volume=%u,ask_amount:%ld",
                  nInstNo, InstId(refRow).data(), refRow.price_tick, refRow.codec_price, refRow.vol_multiple,
                  refRow.change_no, refRow.update_mill_sec, refRow.updatetime, refRow.bid5_price,
                  refRow.bid5_vol, refRow.bid4_price, refRow.bid4_vol, refRow.bid3_price, refRow.bid3_vol,
                  refRow.bid2_price, refRow.bid2_vol, refRow.bid1_price, refRow.bid1_vol, refRow.ask5_price,
                  refRow.ask5_vol, refRow.ask4_price, refRow.ask4_vol, refRow.ask3_price, refRow.ask3_vol,
                  refRow.ask2_price, refRow.ask2_vol, refRow.ask1_price, refRow.ask1_vol, refRow.open_interest,
                  refRow.turnover, refRow.volume, refRow.last_price, refRow.upper_limit_price,
                  refRow.lower_limit_price, refRow.bid_volume, refRow.bid_amount, refRow.ask_volume,
                  refRow.ask_amount);
    return text;
}

SRowText TableRowText(int nIndex, const SInstTableType& refRow) {
    SRowText text;
    std::snprintf(text.szText, sizeof(text.szText),
                  "index:%d,inst_id:%s,price_tick:%d,codec_price:%d,vol_multiple:%u,change_no:%u,"
                  "update_mill_sec:%u,updatetime:%u,bid5_price:%d,bid5_vol:%u,bid4_price:%d,bid4_vol:%u,"
                  "bid3_price:%d,bid3_vol:%u,bid2_price:%d,bid2_vol:%u,bid1_price:%d,bid1_vol:%u,"
                  "ask5_price:%d,ask5_vol:%u,ask4_price:%d,ask4_vol:%u,ask3_price:%d,ask3_vol:%u,"
                  "ask2_price:%d,ask2_vol:%u,ask1_price:%d,ask1_vol:%u,open_interest:%lu,turnover:%lu,"
                  "volume:%u,last_price:%d,upper_limit_price:%d,lower_limit_price:%d,bid_volume=%u,"
                  "bid_amount:%ld,ask_volume=%u,ask_amount:%ld,high_price:%d,low_price:%d.",
                  nIndex, InstId(refRow).data(), refRow.price_tick, refRow.codec_price, refRow.vol_multiple,
                  refRow.change_no, refRow.update_mill_sec, refRow.updatetime, refRow.bid5_price,
                  refRow.bid5_vol, refRow.bid4_price, refRow.bid4_vol, refRow.bid3_price, refRow.bid3_vol,
                  refRow.bid2_price, refRow.bid2_vol, refRow.bid1_price, refRow.bid1_vol, refRow.ask5_price,
                  refRow.ask5_vol, refRow.ask4_price, refRow.ask4_vol, refRow.ask3_price, refRow.ask3_vol,
                  refRow.ask2_price, refRow.ask2_vol, refRow.ask1_price, refRow.ask1_vol, refRow.open_interest,
                  refRow.turnover, refRow.volume, refRow.last_price, refRow.upper_limit_price,
                  refRow.lower_limit_price, refRow.bid_volume, refRow.bid_amount, refRow.ask_volume,
                  refRow.ask_amount, refRow.high_price, refRow.low_price);
    return text;
}
