#include "sim/capture/capture_file.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <system_error>

#include "sim/capture/bin_file.h"
#include "sim/capture/pcap_file.h"

namespace kova::sim {

namespace {

// A file that can be read twice, and whose opening does not wait for anybody.
void require_regular_file(const std::filesystem::path& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status)) {
        throw CaptureError(path.string() + ": " + (error ? error.message() : std::strerror(ENOENT)));
    }
    if (!std::filesystem::is_regular_file(status)) {
        throw CaptureError(path.string() + ": no regular file");
    }
}

std::string beginning_of(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string beginning(4, '\0');
    file.read(beginning.data(), static_cast<std::streamsize>(beginning.size()));
    beginning.resize(static_cast<std::size_t>(file.gcount()));
    return beginning;
}

}  // namespace

std::unique_ptr<CaptureFile> open_capture(const std::filesystem::path& path) {
    require_regular_file(path);
    const std::string beginning = beginning_of(path);
    if (is_pcap_beginning(beginning)) {
        return std::make_unique<PcapFile>(path);
    }
    if (is_bin_beginning(beginning)) {
        return std::make_unique<BinFile>(path);
    }
    throw CaptureError(path.string() + ": neither a pcap file nor a dump of card messages");
}

CaptureSummary check(CaptureFile& capture) {
    CaptureSummary summary;
    while (capture.next()) {
        ++summary.records;
    }
    summary.skipped = capture.skipped();
    capture.rewind();
    return summary;
}

}  // namespace kova::sim
