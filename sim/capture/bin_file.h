/**
 * The hex dump of card messages that the library writes: text, one capture after the other.
 *
 *     a capture   a line of 256 bytes that begins with asterisks, NUL bytes behind its text
 *                 one line for each message: its bytes as two lowercase digits each, a blank between them
 *
 * Each line ends with a line feed, the last one too: a line without one was cut off.
 */
#ifndef KOVA_SIM_CAPTURE_BIN_FILE_H
#define KOVA_SIM_CAPTURE_BIN_FILE_H

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

#include "sim/capture/capture_file.h"

namespace kova::sim {

/** Whether a file that begins with these four bytes is one. */
[[nodiscard]] bool is_bin_beginning(std::string_view bytes);

/** Gives the messages of the snapshot stream, DMA_TCP; others are passed over and counted. */
class BinFile final : public CaptureFile {
 public:
    /** Throws CaptureError. */
    explicit BinFile(std::filesystem::path path);

    [[nodiscard]] std::optional<CaptureRecord> next() override;
    void rewind() override;
    [[nodiscard]] std::uint64_t skipped() const override { return skipped_; }

 private:
    [[nodiscard]] bool read_line();
    void parse_message();
    [[noreturn]] void refuse(std::string_view reason) const;

    std::filesystem::path path_;
    std::ifstream file_;
    std::vector<char> buffer_;
    std::string_view line_;  // in the buffer, without its end
    std::uint64_t line_number_ = 0;
    std::vector<std::byte> message_;
    std::uint64_t skipped_ = 0;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CAPTURE_BIN_FILE_H
