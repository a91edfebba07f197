/**
 * A file with a capture of the snapshot stream, read record by record.
 *
 * Two kinds of files are known, and told apart by how they begin: a pcap file of Ethernet frames, and the hex
 * dump of whole card messages that the library writes. Nothing in a file is trusted: whatever it holds, reading
 * it takes a bounded amount of memory and ends with its records or with a CaptureError.
 */
#ifndef KOVA_SIM_CAPTURE_CAPTURE_FILE_H
#define KOVA_SIM_CAPTURE_CAPTURE_FILE_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace kova::sim {

/** What is wrong with a capture: file, line or record number, and reason. */
class CaptureError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

struct CaptureRecord {
    enum class Kind {
        kFrame,    // an Ethernet frame
        kMessage,  // a whole message of the card, its header included
    };

    Kind kind = Kind::kFrame;
    /** Valid until the next record is read. */
    std::span<const std::byte> bytes;
    /** Since the record before; 0 for the first one, and where the file has no times or they go back. */
    std::chrono::nanoseconds gap{};
};

/** Longest time that a capture is taken to have been silent: keeps a damaged time from silencing a replay. */
inline constexpr std::chrono::nanoseconds kLongestGap = std::chrono::hours(24);

class CaptureFile {
 public:
    virtual ~CaptureFile() = default;

    /** The next record; nothing at the end. Throws CaptureError where the file is damaged. */
    [[nodiscard]] virtual std::optional<CaptureRecord> next() = 0;
    /** Goes back to the beginning. */
    virtual void rewind() = 0;
    /** Records passed over since the beginning, which are not of the snapshot stream. */
    [[nodiscard]] virtual std::uint64_t skipped() const = 0;
};

/** Opens a capture of either kind. Throws CaptureError when it is none, without having read all of it. */
[[nodiscard]] std::unique_ptr<CaptureFile> open_capture(const std::filesystem::path& path);

struct CaptureSummary {
    std::uint64_t records = 0;
    std::uint64_t skipped = 0;

    friend bool operator==(const CaptureSummary&, const CaptureSummary&) = default;
};

/** Reads a capture to its end and goes back to its beginning. Throws CaptureError where it is damaged. */
CaptureSummary check(CaptureFile& capture);

}  // namespace kova::sim

#endif  // KOVA_SIM_CAPTURE_CAPTURE_FILE_H
