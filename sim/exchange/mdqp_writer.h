/**
 * The messages of the snapshot stream as the simulated exchange writes them.
 *
 * Prices and amounts go out as the exchange counts them, not in hundredths. What the exchange does not have is
 * kNoValue.
 */
#ifndef KOVA_SIM_EXCHANGE_MDQP_WRITER_H
#define KOVA_SIM_EXCHANGE_MDQP_WRITER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "KovaShfeMdApi.h"
#include "sim/exchange/listing.h"
#include "wire/Mdqp.h"

namespace kova::sim {

/** A price that the exchange does not have: the largest finite double. */
inline constexpr double kNoValue = std::numeric_limits<double>::max();

/** Most bytes of a message's body. */
inline constexpr std::size_t kMostMdqpBody = 65535;

/** All that a snapshot says of one instrument. */
struct InstrumentFields {
    inst_info_t info{};
    deal_info_t deal{};
    std::array<price_detail_t, 10> level_space{};  // bids best first, then asks best first
    std::size_t level_count = 0;
    order_statistics_info_t orders{};

    [[nodiscard]] std::span<price_detail_t> levels() { return std::span(level_space).first(level_count); }
    [[nodiscard]] std::span<const price_detail_t> levels() const {
        return std::span(level_space).first(level_count);
    }
    /** Bytes in a message, field headers included. */
    [[nodiscard]] std::size_t bytes() const;
};

/** @param state of the instrument, as its market has it; never traded when its volume is 0. */
InstrumentFields fields_of(const Listing& listing, const Instrument& instrument, const KovaShfeMdType& state);

/**
 * Appends messages to a run of bytes.
 *
 * A reader that holds a field's place in the whole message against `length`, which leaves the header out, never
 * sees a field that begins in the last 8 bytes. So the last field of a message has to have more than 4 bytes.
 */
class MdqpWriter {
 public:
    /** @param out must outlive the writer. */
    explicit MdqpWriter(std::vector<std::byte>& out) : out_(out), begin_(out.size()) {}

    void begin(std::uint8_t flag);

    template <typename Body>
    void field(EMdqpFieldId id, const Body& body) {
        field_header(id, sizeof body);
        append(&body, sizeof body);
    }
    /** A field of `size` bytes that say nothing. */
    void filler(EMdqpFieldId id, std::size_t size);
    /** The fields of one instrument. Those of its levels are one run. */
    void instrument(const InstrumentFields& fields);

    /** Ends the message. Throws std::length_error when its body is too long. */
    void end();

    /** Bytes of the message so far, its header included. */
    [[nodiscard]] std::size_t bytes() const { return out_.size() - begin_; }

 private:
    void field_header(EMdqpFieldId id, std::size_t size);
    void append(const void* bytes, std::size_t count);

    std::vector<std::byte>& out_;
    std::size_t begin_;
};

/**
 * The message that opens a snapshot: 58 bytes. Readers want more than 44 in the first segment, even if that
 * holds nothing else.
 */
void write_opening(std::vector<std::byte>& out, std::int16_t topic_id, std::int32_t snap_no);

/** The message that ends a snapshot. `packet_no` is the packet of the incremental stream that it belongs to. */
void write_closing(std::vector<std::byte>& out, std::int32_t packet_no);

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_MDQP_WRITER_H
