#include "sim/capture/pcap_file.h"

#include <pcap/pcap.h>

#include <algorithm>
#include <array>
#include <cstdint>

namespace kova::sim {

namespace {

using namespace std::string_view_literals;

// The time of a record, whatever its two fields hold.
std::chrono::nanoseconds time_of(const pcap_pkthdr& header) {
    constexpr std::int64_t kLastSecond = 0xFFFFFFFF;
    const auto seconds = std::clamp<std::int64_t>(header.ts.tv_sec, 0, kLastSecond);
    // The reader was told to give nanoseconds here.
    const auto nanoseconds = std::clamp<std::int64_t>(header.ts.tv_usec, 0, 999'999'999);
    return std::chrono::seconds(seconds) + std::chrono::nanoseconds(nanoseconds);
}

}  // namespace

bool is_pcap_beginning(std::string_view bytes) {
    constexpr std::array kMagics{"\xD4\xC3\xB2\xA1"sv, "\xA1\xB2\xC3\xD4"sv, "\x4D\x3C\xB2\xA1"sv,
                                 "\xA1\xB2\x3C\x4D"sv};
    return std::ranges::find(kMagics, bytes) != kMagics.end();
}

void PcapFile::Closer::operator()(pcap* file) const {
    pcap_close(file);
}

PcapFile::PcapFile(std::filesystem::path path) : path_(std::move(path)) {
    rewind();
}

void PcapFile::rewind() {
    std::array<char, PCAP_ERRBUF_SIZE> reason{};
    file_.reset(
        pcap_open_offline_with_tstamp_precision(path_.c_str(), PCAP_TSTAMP_PRECISION_NANO, reason.data()));
    if (file_ == nullptr) {
        throw CaptureError(path_.string() + ": " + reason.data());
    }
    if (pcap_datalink(file_.get()) != DLT_EN10MB) {
        throw CaptureError(path_.string() + ": its records are not Ethernet frames (link type " +
                           std::to_string(pcap_datalink(file_.get())) + ")");
    }
    record_ = 0;
    last_time_.reset();
}

std::optional<CaptureRecord> PcapFile::next() {
    pcap_pkthdr* header = nullptr;
    const u_char* data = nullptr;
    const int result = pcap_next_ex(file_.get(), &header, &data);
    if (result == PCAP_ERROR_BREAK) {
        return std::nullopt;
    }
    ++record_;
    if (result != 1) {
        throw CaptureError(path_.string() + ": record " + std::to_string(record_) + ": " +
                           pcap_geterr(file_.get()));
    }
    return CaptureRecord{
        .kind = CaptureRecord::Kind::kFrame,
        .bytes = std::as_bytes(std::span(data, header->caplen)),
        .gap = gap_until(time_of(*header)),
    };
}

std::chrono::nanoseconds PcapFile::gap_until(std::chrono::nanoseconds time) {
    const std::chrono::nanoseconds gap = time - last_time_.value_or(time);
    last_time_ = time;
    return std::clamp(gap, std::chrono::nanoseconds(0), kLongestGap);
}

}  // namespace kova::sim
