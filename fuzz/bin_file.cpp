// A hex dump of the card's messages, as a replay reads it: compared with the format told once more.

#include "sim/capture/bin_file.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/capture_reading.h"
#include "fuzz/require.h"

namespace kova::fuzz {
namespace {

constexpr std::size_t kHeaderSize = 256;
constexpr std::string_view kHeaderText = "***********Tcp shot start, ";
constexpr std::size_t kLongestMessage = 4096;

bool is_header(std::string_view line) {
    const std::size_t end = line.find_last_not_of('\0') + 1;
    return line.size() == kHeaderSize && line.substr(0, kHeaderText.size()) == kHeaderText &&
           line.substr(0, end).find('\0') == std::string_view::npos;
}

std::string hex_of(const std::string& bytes) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string line;
    for (const char byte : bytes) {
        const auto value = static_cast<std::uint8_t>(byte);
        line += {kDigits[value >> 4U], kDigits[value & 15U], ' '};
    }
    return line.substr(0, line.empty() ? 0 : line.size() - 1);
}

/** The one message whose line this is. */
std::optional<std::string> message_of(std::string_view line) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < line.size(); i += 3) {
        unsigned value = 0;
        for (const char digit : line.substr(i, 2)) {
            value = 16 * value + static_cast<unsigned>(digit >= 'a' ? digit - 'a' + 10 : digit - '0');
        }
        bytes += static_cast<char>(value);
    }
    if (bytes.size() > kLongestMessage || hex_of(bytes) != line) {
        return std::nullopt;
    }
    return bytes;
}

struct Expected {
    std::vector<std::string> messages;
    bool is_capture = false;
    bool is_damaged = false;
};

Expected expected_of(std::string_view text) {
    Expected expected;
    while (!text.empty() && !expected.is_damaged) {
        const std::size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (end == std::string_view::npos) {
            expected.is_damaged = true;
        } else if (is_header(line)) {
            expected.is_capture = true;
        } else if (!expected.is_capture) {
            return expected;
        } else if (const auto message = message_of(line); !message) {
            expected.is_damaged = true;
        } else if (message->substr(0, 4) == std::string("\2\0\0\0", 4)) {
            expected.messages.push_back(*message);
        }
    }
    return expected;
}

void run(const std::uint8_t* data, std::size_t size) {
    const Expected expected = expected_of({reinterpret_cast<const char*>(data), size});
    std::vector<std::string> messages;
    const auto keep = [&messages](const sim::CaptureRecord& record) {
        require(record.kind == sim::CaptureRecord::Kind::kMessage, "records are whole messages");
        messages.emplace_back(reinterpret_cast<const char*>(record.bytes.data()), record.bytes.size());
    };
    const auto reading = read_twice<sim::BinFile>(data, size, keep);
    require(reading.has_value() == expected.is_capture, "a capture begins with a header");
    if (!reading) {
        return;
    }
    require(reading->is_damaged == expected.is_damaged, "damage is noticed, and nothing else is");
    require(reading->records == expected.messages.size(), "each message in front of the damage comes");
    messages.resize(expected.messages.size());
    require(messages == expected.messages, "a message is what its line says");
}

}  // namespace
}  // namespace kova::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kova::fuzz::run(data, size);
    return 0;
}
