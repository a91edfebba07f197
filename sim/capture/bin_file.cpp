#include "sim/capture/bin_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "wire/DmaMessage.h"

namespace kova::sim {

namespace {

constexpr std::size_t kHeaderBytes = 256;
constexpr std::string_view kHeaderBeginning = "***********Tcp shot start, ";
// No message of a card is longer.
constexpr std::size_t kLongestCapturedMessage = 4096;
constexpr std::size_t kCharactersPerByte = 3;
constexpr std::size_t kLongestLine = kLongestCapturedMessage * kCharactersPerByte - 1;

bool is_header(std::string_view line) {
    const std::size_t text_end = std::min(line.find('\0'), line.size());
    return line.size() == kHeaderBytes && line.starts_with(kHeaderBeginning) &&
           line.find_first_not_of('\0', text_end) == std::string_view::npos;
}

// 16 for what is no lowercase digit.
unsigned digit(char character) {
    if (character >= '0' && character <= '9') {
        return static_cast<unsigned>(character - '0');
    }
    return character >= 'a' && character <= 'f' ? static_cast<unsigned>(character - 'a') + 10 : 16;
}

bool is_snapshot_message(std::span<const std::byte> message) {
    std::uint32_t type = 0;
    if (message.size() < sizeof type) {
        return false;
    }
    std::memcpy(&type, message.data(), sizeof type);
    return type == DMA_TCP;
}

}  // namespace

bool is_bin_beginning(std::string_view bytes) {
    return bytes == "****";
}

BinFile::BinFile(std::filesystem::path path) : path_(std::move(path)), buffer_(kLongestLine + 2) {
    file_.open(path_, std::ios::binary);
    if (!file_) {
        throw CaptureError(path_.string() + ": " + std::strerror(errno));
    }
    rewind();
}

void BinFile::rewind() {
    file_.clear();
    file_.seekg(0);
    line_number_ = 0;
    skipped_ = 0;
    if (!read_line() || !is_header(line_)) {
        refuse("no beginning of a capture");
    }
}

std::optional<CaptureRecord> BinFile::next() {
    while (read_line()) {
        if (is_header(line_)) {
            continue;
        }
        parse_message();
        if (is_snapshot_message(message_)) {
            return CaptureRecord{.kind = CaptureRecord::Kind::kMessage, .bytes = message_, .gap = {}};
        }
        ++skipped_;
    }
    return std::nullopt;
}

bool BinFile::read_line() {
    file_.getline(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    const auto taken = static_cast<std::size_t>(file_.gcount());
    if (file_.eof() && taken == 0) {
        return false;
    }
    ++line_number_;
    if (file_.bad()) {
        refuse("it cannot be read");
    }
    if (file_.eof()) {
        refuse("cut off: it has no end");
    }
    if (file_.fail()) {
        refuse("longer than any message");
    }
    line_ = std::string_view(buffer_.data(), taken - 1);
    return true;
}

void BinFile::parse_message() {
    message_.clear();
    for (std::size_t column = 0; column < line_.size(); column += kCharactersPerByte) {
        const unsigned high = digit(line_[column]);
        const unsigned low = column + 1 < line_.size() ? digit(line_[column + 1]) : 16;
        if (high > 15 || low > 15) {
            refuse("no byte in lowercase digits at column " + std::to_string(column + 1));
        }
        const bool is_last = column + 2 == line_.size();
        if (!is_last && (line_[column + 2] != ' ' || column + 3 == line_.size())) {
            refuse("no blank between two bytes at column " + std::to_string(column + 3));
        }
        message_.push_back(static_cast<std::byte>(high << 4 | low));
    }
}

void BinFile::refuse(std::string_view reason) const {
    throw CaptureError(path_.string() + ":" + std::to_string(line_number_) + ": " + std::string(reason));
}

}  // namespace kova::sim
