/**
 * What an event of the card means. Plain functions over plain data; the engine acts on them.
 */
#ifndef KOVA_INTEGRITY_FPGA_EVENTS_H
#define KOVA_INTEGRITY_FPGA_EVENTS_H

#include <cstdint>

#include "wire/DmaMessage.h"

/** Kind of an event. One event may say several things; the earliest here counts. */
enum EFpgaEventType : int32_t {
    FPGA_EVENT_LOST_LANE = 0,   /**< packets lost, event_data0 */
    FPGA_EVENT_PRICE_ERROR = 1, /**< a price failed the card's own check, event_data1 */
    FPGA_EVENT_TIMEOUT = 2,     /**< a feed has been silent for too long, event_data0 */
    FPGA_EVENT_LOST_FEED = 3,   /**< packets lost, event_data3 */
    FPGA_EVENT_NONE = 4,        /**< nothing that the host has to act on */
};

/** Kind of this event. */
[[nodiscard]] EFpgaEventType ClassifyFpgaEvent(const U50Event& refEvent) noexcept;

/** Whether the feeds are silent by rule at this local time: around the sessions' starts, breaks and ends. */
[[nodiscard]] bool IsTradingBreak(uint32_t nHour, uint32_t nMinute) noexcept;

#endif  // KOVA_INTEGRITY_FPGA_EVENTS_H
