// A pcap file, as a replay reads it.

#include "sim/capture/pcap_file.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/capture_reading.h"
#include "fuzz/require.h"

namespace {

// What the pcap library lets through.
constexpr std::size_t kLongestFrame = 256 * 1024;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using kova::fuzz::require;
    const std::string_view content(reinterpret_cast<const char*>(data), size);
    const auto look_at = [content](const kova::sim::CaptureRecord& record) {
        require(record.kind == kova::sim::CaptureRecord::Kind::kFrame, "records are frames");
        require(record.bytes.size() <= kLongestFrame, "a frame takes a bounded amount of memory");
        const std::string_view frame(reinterpret_cast<const char*>(record.bytes.data()), record.bytes.size());
        require(content.find(frame) != std::string_view::npos, "a frame stands in the file");
    };
    kova::fuzz::read_twice<kova::sim::PcapFile>(data, size, look_at);
    return 0;
}
