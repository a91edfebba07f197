// A hex dump of the card's messages, as a replay reads it.

#include "sim/capture/bin_file.h"

#include <cstddef>
#include <cstdint>

#include "fuzz/capture_reading.h"
#include "fuzz/require.h"

namespace {

constexpr std::size_t kLongestMessage = 4096;

void look_at(const kova::sim::CaptureRecord& record) {
    using kova::fuzz::require;
    require(record.kind == kova::sim::CaptureRecord::Kind::kMessage, "records are whole messages");
    require(record.bytes.size() >= 4 && record.bytes.size() <= kLongestMessage,
            "a message has its type and is not too long");
    require(record.bytes[0] == std::byte{2} && record.bytes[1] == std::byte{0}, "only segments come");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kova::fuzz::read_twice<kova::sim::BinFile>(data, size, look_at);
    return 0;
}
