// One message of the snapshot stream into the rows, for each feed.
//
//     byte 0   bits 0 and 1 the feed, bit 2 the message comes on a port of nobody's
//     then     the message; a length that reaches past the input is cut to it

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "fuzz/engine_under_fuzz.h"
#include "fuzz/exact_copy.h"
#include "fuzz/input.h"
#include "fuzz/require.h"

namespace kova::fuzz {
namespace {

constexpr std::size_t kHeaderSize = 8;

/** Puts the length right where the message has less than it says. */
ExactBytes whole_message(std::span<const std::uint8_t> bytes) {
    const std::size_t said = bytes[2] + 256U * bytes[3];
    const std::size_t length = std::min(said, bytes.size() - kHeaderSize);
    ExactBytes message = exact_copy(bytes, kHeaderSize + length);
    message[2] = static_cast<std::uint8_t>(length);
    message[3] = static_cast<std::uint8_t>(length >> 8U);
    return message;
}

void listen(Engine& engine, unsigned feed, std::uint16_t port) {
    U50DstPort& ports = EngineAccess::dst_port(engine);
    const std::array<std::uint16_t*, 4> of_feed{&ports.port_shfe_2ps, &ports.port_shfe_4ps, &ports.port_ine_2ps,
                                                &ports.port_ine_4ps};
    *of_feed.at(feed) = port;
}

void require_rows_of(const Engine& engine, std::optional<unsigned> feed) {
    const U50InstTable& tables = EngineAccess::peek_inst_table(engine);
    const std::array<std::span<const SInstTableType>, 4> of_feed{
        tables.shfe2psInstTable.rows, tables.shfe4psInstTable.rows, tables.ine2psInstTable.rows,
        tables.ine4psInstTable.rows};
    for (unsigned i = 0; i < of_feed.size(); ++i) {
        require(i == feed || is_zero(of_feed.at(i).data(), of_feed.at(i).size_bytes()),
                "a message leaves the tables of other feeds alone");
    }
}

void run(Input input) {
    const Ending ending = ending_of(input, 64);
    const std::uint8_t options = input.byte();
    const auto bytes = input.rest();
    if (bytes.size() < kHeaderSize) {
        return;
    }
    const unsigned feed = options & 3U;
    const bool is_foreign = (options & 4U) != 0;
    Engine& engine = fresh_engine();
    listen(engine, feed, kPorts[0]);

    const ExactBytes message = whole_message(bytes);
    const int result = EngineAccess::parse_mdqp(engine, reinterpret_cast<const mdqp_t*>(message.get()),
                                                is_foreign ? kPorts[1] : kPorts[0]);
    require(result == (is_foreign ? -1 : 0), "a message is decoded on its feed's port only");
    const bool is_last = !is_foreign && message[0] == 0x01;
    require(EngineAccess::finished_mask(engine).enabled_mask == (is_last ? 1U << feed : 0U),
            "the last message alone ends its feed's snapshot, and no other's");
    require_sound_counts(engine);
    if (ending == Ending::kThrowAway) {
        require_rows_of(engine, is_foreign ? std::nullopt : std::optional(feed));
    }
    end_input(engine, ending);
}

}  // namespace
}  // namespace kova::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kova::fuzz::run({data, size});
    return 0;
}
