/**
 * An input taken apart from front to back. Behind its end there are zeros, so that every input means something.
 */
#ifndef KOVA_FUZZ_INPUT_H
#define KOVA_FUZZ_INPUT_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kova::fuzz {

class Input {
 public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

    [[nodiscard]] bool empty() const { return rest_.empty(); }

    std::uint8_t byte() {
        const auto taken = bytes(1);
        return taken.empty() ? std::uint8_t{0} : taken[0];
    }
    /** Lowest byte first. */
    std::uint16_t word() {
        const std::uint32_t low = byte();
        return static_cast<std::uint16_t>(low | static_cast<std::uint32_t>(byte()) << 8U);
    }
    /** As many as there are, at most `count`. */
    std::span<const std::uint8_t> bytes(std::size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    std::span<const std::uint8_t> rest() { return bytes(rest_.size()); }

    /** A line of text without its end. */
    std::string_view line() {
        const auto text = as_text(rest_);
        const std::size_t end = std::min(text.find('\n'), text.size());
        const auto taken = as_text(bytes(end));
        bytes(1);
        return taken;
    }

    static std::string_view as_text(std::span<const std::uint8_t> bytes) {
        return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
    }

 private:
    std::span<const std::uint8_t> rest_;
};

}  // namespace kova::fuzz

#endif  // KOVA_FUZZ_INPUT_H
