// A pcap file, as a replay reads it.

#include "sim/capture/pcap_file.h"

#include <cstddef>
#include <cstdint>

#include "fuzz/capture_reading.h"
#include "fuzz/require.h"

namespace {

// What the pcap library lets through.
constexpr std::size_t kLongestFrame = 256 * 1024;

void look_at(const kova::sim::CaptureRecord& record) {
    using kova::fuzz::require;
    require(record.kind == kova::sim::CaptureRecord::Kind::kFrame, "records are frames");
    require(record.bytes.size() <= kLongestFrame, "a frame takes a bounded amount of memory");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kova::fuzz::read_twice<kova::sim::PcapFile>(data, size, look_at);
    return 0;
}
