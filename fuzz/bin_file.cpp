// A hex dump of the card's messages, as a replay reads it.

#include "sim/capture/bin_file.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "fuzz/capture_reading.h"
#include "fuzz/require.h"

namespace kova::fuzz {
namespace {

constexpr std::size_t kLongestMessage = 4096;

/** The line of a message. */
std::string line_of(std::span<const std::byte> message) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string line;
    for (const std::byte byte : message) {
        const auto value = std::to_integer<unsigned>(byte);
        line += {kDigits[value >> 4U], kDigits[value & 15U], ' '};
    }
    line.back() = '\n';
    return line;
}

/** Follows the records through the text that they come from. */
class Follower {
 public:
    explicit Follower(std::string_view text) : text_(text) {}

    void operator()(const sim::CaptureRecord& record) {
        require(record.kind == sim::CaptureRecord::Kind::kMessage, "records are whole messages");
        require(record.bytes.size() >= 4 && record.bytes.size() <= kLongestMessage,
                "a message has its type and is not too long");
        require(record.bytes[0] == std::byte{2} && record.bytes[1] == std::byte{0}, "only segments come");
        const std::string line = "\n" + line_of(record.bytes);
        std::size_t place = text_.find(line, place_);
        if (place == std::string_view::npos) {
            place = text_.find(line);  // the second reading begins
        }
        require(place != std::string_view::npos, "a message has a line");
        place_ = place + line.size() - 1;
    }

 private:
    std::string_view text_;
    std::size_t place_ = 0;
};

}  // namespace
}  // namespace kova::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using kova::fuzz::Follower;
    kova::fuzz::read_twice<kova::sim::BinFile>(data, size,
                                               Follower({reinterpret_cast<const char*>(data), size}));
    return 0;
}
