/**
 * The way of the snapshot from DMA messages to rows as one writes it down first: a zeroed work buffer and a
 * copy for every message, a second pair for its checksum, every payload through a buffer of the connection,
 * every field copied out of it, and the row filled member by member.
 *
 * In-order segments of one connection of one feed; nothing else is handled.
 */
#ifndef KOVA_BENCH_NAIVE_SNAPSHOT_H
#define KOVA_BENCH_NAIVE_SNAPSHOT_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "bench/plain_check_sum.h"
#include "wire/InstRow.h"
#include "wire/Mdqp.h"

namespace kova::bench {

class NaiveSnapshot {
 public:
    explicit NaiveSnapshot(CheckSum check_sum) : check_sum_(check_sum) {}

    void take(const std::uint8_t* message, std::uint32_t size);

    /** Forgets everything. */
    void reset();

    [[nodiscard]] const std::vector<SInstTableType>& rows() const { return rows_; }
    [[nodiscard]] std::uint64_t count() const { return count_; }
    [[nodiscard]] bool is_finished() const { return is_finished_; }

 private:
    void take_payload(const std::uint8_t* payload, std::uint32_t size);
    void parse(const std::uint8_t* message);
    void parse_field(const field_t& field, const std::uint8_t* body, bool is_new_run);
    void take_inst_info(const inst_info_t& info);
    void take_deal_info(const deal_info_t& deal);
    void take_price_detail(const price_detail_t& detail, bool is_new_run);
    void take_order_statistics(const order_statistics_info_t& statistics);

    CheckSum check_sum_;
    std::vector<SInstTableType> rows_ = std::vector<SInstTableType>(SHFE_TABLE_ROWS);
    std::vector<std::uint8_t> fragment_ = std::vector<std::uint8_t>(100'000);
    std::size_t fragment_size_ = 0;
    std::uint64_t count_ = 0;
    int trading_day_ = 0;
    bool is_finished_ = false;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_NAIVE_SNAPSHOT_H
