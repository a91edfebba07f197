/**
 * A capture read to its end, twice, as a replay does.
 */
#ifndef KOVA_FUZZ_CAPTURE_READING_H
#define KOVA_FUZZ_CAPTURE_READING_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "fuzz/memory_file.h"
#include "fuzz/require.h"
#include "sim/capture/capture_file.h"

namespace kova::fuzz {

struct CaptureReading {
    std::uint64_t records = 0;
    std::uint64_t skipped = 0;
    std::uint64_t sum = 0;  // of all bytes: they can be read
    std::chrono::nanoseconds gaps{};
    bool is_damaged = false;

    friend bool operator==(const CaptureReading&, const CaptureReading&) = default;
};

/** Reads to the end or to the damage; `look_at` sees each record. */
template <typename LookAt>
CaptureReading read_through(sim::CaptureFile& capture, const LookAt& look_at) {
    CaptureReading reading;
    try {
        while (const auto record = capture.next()) {
            ++reading.records;
            for (const std::byte byte : record->bytes) {
                reading.sum = reading.sum * 31 + static_cast<std::uint8_t>(byte);
            }
            require(record->gap.count() >= 0 && record->gap <= sim::kLongestGap, "a gap is at most a day");
            reading.gaps += record->gap;
            look_at(*record);
        }
    } catch (const sim::CaptureError&) {
        reading.is_damaged = true;
    }
    reading.skipped = capture.skipped();
    return reading;
}

/** Capture: a kind of capture, opened by its path. Nothing when these bytes are none. */
template <typename Capture, typename LookAt>
std::optional<CaptureReading> read_twice(const std::uint8_t* data, std::size_t size, const LookAt& look_at) {
    static const MemoryFile file;
    file.write(data, size);
    try {
        Capture capture(file.path());
        const CaptureReading first = read_through(capture, look_at);
        capture.rewind();
        require(read_through(capture, look_at) == first, "the second reading is as the first");
        return first;
    } catch (const sim::CaptureError&) {
        return std::nullopt;
    }
}

}  // namespace kova::fuzz

#endif  // KOVA_FUZZ_CAPTURE_READING_H
