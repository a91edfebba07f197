/** A pcap file of Ethernet frames, with time stamps in microseconds or nanoseconds and of either byte order. */
#ifndef KOVA_SIM_CAPTURE_PCAP_FILE_H
#define KOVA_SIM_CAPTURE_PCAP_FILE_H

#include <filesystem>
#include <memory>
#include <string_view>

#include "sim/capture/capture_file.h"

struct pcap;

namespace kova::sim {

/** Whether a file that begins with these four bytes is one. */
[[nodiscard]] bool is_pcap_beginning(std::string_view bytes);

/**
 * What stands in the file is passed on as it is: a frame that was captured in part is as short as it was
 * captured, and what is no Ethernet frame, as in some captures of the library, comes all the same.
 */
class PcapFile final : public CaptureFile {
 public:
    /** Throws CaptureError. */
    explicit PcapFile(std::filesystem::path path);

    [[nodiscard]] std::optional<CaptureRecord> next() override;
    void rewind() override;
    [[nodiscard]] std::uint64_t skipped() const override { return 0; }

 private:
    struct Closer {
        void operator()(pcap* file) const;
    };

    [[nodiscard]] std::chrono::nanoseconds gap_until(std::chrono::nanoseconds time);

    std::filesystem::path path_;
    std::unique_ptr<pcap, Closer> file_;
    std::uint64_t record_ = 0;
    std::optional<std::chrono::nanoseconds> last_time_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CAPTURE_PCAP_FILE_H
