// Captures, built byte by byte.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "sim/capture/capture_file.h"
#include "support/temp_dir.h"

namespace kova::sim {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// 24 bytes: magic, version 2.4, zone, accuracy, longest record 65535, link type 1.
const std::string kMicroseconds = "\xD4\xC3\xB2\xA1\2\0\4\0\0\0\0\0\0\0\0\0\xFF\xFF\0\0\1\0\0\0"s;
const std::string kNanoseconds = "\x4D\x3C\xB2\xA1\2\0\4\0\0\0\0\0\0\0\0\0\xFF\xFF\0\0\1\0\0\0"s;
const std::string kBigEndian = "\xA1\xB2\xC3\xD4\0\2\0\4\0\0\0\0\0\0\0\0\0\0\xFF\xFF\0\0\0\1"s;

std::string little(std::uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i, value >>= 8) {
        bytes.push_back(static_cast<char>(value & 0xFF));
    }
    return bytes;
}

std::string pcap_record(std::uint32_t seconds, std::uint32_t fraction, const std::string& frame) {
    const auto size = static_cast<std::uint32_t>(frame.size());
    return little(seconds) + little(fraction) + little(size) + little(size) + frame;
}

// A line of 256 bytes and its end.
std::string bin_header(
    const std::string& text = "***********Tcp shot start, 20260420_210000, shot cnt is 1.************") {
    return text + std::string(256 - text.size(), '\0') + "\n";
}

struct Read {
    std::vector<std::string> records;
    std::vector<std::chrono::nanoseconds> gaps;
    std::vector<CaptureRecord::Kind> kinds;
    std::uint64_t skipped = 0;
    std::string error;  // where reading ended early
};

class Capture : public ::testing::Test {
 protected:
    std::string write(const std::string& content) {
        std::ofstream(path_, std::ios::binary) << content;
        return path_;
    }

    static Read read(CaptureFile& file) {
        Read result;
        while (const auto record = file.next()) {
            result.records.emplace_back(reinterpret_cast<const char*>(record->bytes.data()),
                                        record->bytes.size());
            result.gaps.push_back(record->gap);
            result.kinds.push_back(record->kind);
        }
        result.skipped = file.skipped();
        return result;
    }

    Read read(const std::string& content) {
        try {
            return read(*open_capture(write(content)));
        } catch (const CaptureError& error) {
            Read result;
            result.error = error.what();
            return result;
        }
    }

    // What is said of a file with this content, without its path.
    std::string error_of(const std::string& content) {
        const std::string error = read(content).error;
        EXPECT_TRUE(error.starts_with(path_)) << error;
        return error.substr(std::min(path_.size(), error.size()));
    }

    test::TempDir directory_;
    std::string path_ = (directory_.path() / "capture").string();
};

using PcapCapture = Capture;
using BinCapture = Capture;

TEST_F(PcapCapture, FramesComeWithTheTimeBetweenThem) {
    const Read result = read(kMicroseconds + pcap_record(100, 999'999, "one") + pcap_record(101, 1, "two") +
                             pcap_record(101, 1, "three"));
    EXPECT_THAT(result.records, ElementsAre("one", "two", "three"));
    EXPECT_THAT(result.gaps, ElementsAre(0ns, 2000ns, 0ns));
    EXPECT_THAT(result.kinds, ElementsAre(CaptureRecord::Kind::kFrame, CaptureRecord::Kind::kFrame,
                                          CaptureRecord::Kind::kFrame));
    EXPECT_EQ(result.skipped, 0U);
}

TEST_F(PcapCapture, NanosecondsAreKept) {
    const Read result = read(kNanoseconds + pcap_record(100, 999'999'999, "one") + pcap_record(103, 2, "two"));
    EXPECT_THAT(result.gaps, ElementsAre(0ns, 2'000'000'003ns));
}

TEST_F(PcapCapture, OtherByteOrderIsRead) {
    const Read result =
        read(kBigEndian + "\0\0\0\x64\0\0\0\0\0\0\0\3\0\0\0\3one"s + "\0\0\0\x65\0\0\0\0\0\0\0\3\0\0\0\3two"s);
    EXPECT_THAT(result.records, ElementsAre("one", "two"));
    EXPECT_THAT(result.gaps, ElementsAre(0ns, 1s));
}

TEST_F(PcapCapture, TimeThatGoesBackIsNoTime) {
    const Read result =
        read(kMicroseconds + pcap_record(100, 0, "a") + pcap_record(99, 0, "b") + pcap_record(99, 5, "c"));
    EXPECT_THAT(result.gaps, ElementsAre(0ns, 0ns, 5000ns));
}

TEST_F(PcapCapture, TimeThatIsDamagedIsBounded) {
    const Read result = read(kMicroseconds + pcap_record(0, 0, "a") + pcap_record(0x7FFFFFFF, 0xFFFFFFFF, "b") +
                             pcap_record(0xFFFFFFFF, 0, "c") + pcap_record(0xFFFFFFFF, 0x80000000, "d"));
    EXPECT_THAT(result.gaps, ElementsAre(0ns, 24h, 0ns, 0ns));
}

TEST_F(PcapCapture, FrameCapturedInPartIsAsShortAsItWasCaptured) {
    const Read result = read(kMicroseconds + little(1) + little(0) + little(3) + little(1500) + "abc");
    EXPECT_THAT(result.records, ElementsAre("abc"));
}

TEST_F(PcapCapture, EmptyRecordIsARecord) {
    const Read result = read(kMicroseconds + pcap_record(1, 0, "") + pcap_record(1, 0, "a"));
    EXPECT_THAT(result.records, ElementsAre("", "a"));
}

TEST_F(PcapCapture, WithoutRecordsItIsEmpty) {
    EXPECT_THAT(read(kMicroseconds).records, IsEmpty());
    EXPECT_EQ(read(kMicroseconds).error, "");
}

TEST_F(PcapCapture, AnyLongestRecordOfItsHeaderWillDo) {
    for (const char* longest : {"\x60\0\0\0", "\xFF\xFF\xFF\x7F", "\0\0\4\0"}) {
        std::string header = kMicroseconds;
        header.replace(16, 4, longest, 4);
        EXPECT_THAT(read(header + pcap_record(1, 0, "abc")).records, ElementsAre("abc"));
    }
}

TEST_F(PcapCapture, OtherLinkTypeIsRefused) {
    std::string header = kMicroseconds;
    header[20] = 101;
    const std::string error = error_of(header);
    EXPECT_TRUE(error.starts_with(": its records are not Ethernet frames (link type ")) << error;
}

TEST_F(PcapCapture, CutOffRecordIsRefusedWithItsNumber) {
    const std::string whole = kMicroseconds + pcap_record(1, 0, "one") + pcap_record(1, 0, "two");
    for (const std::size_t cut : {1U, 3U, 10U, 18U}) {
        const std::string error = error_of(whole.substr(0, whole.size() - cut));
        EXPECT_TRUE(error.starts_with(": record 2: ")) << cut << error;
    }
}

TEST_F(PcapCapture, RecordOfAbsurdLengthIsRefusedWithItsNumber) {
    const std::string error =
        error_of(kMicroseconds + little(1) + little(0) + little(0xFFFFFFFF) + little(0xFFFFFFFF) + "abc");
    EXPECT_TRUE(error.starts_with(": record 1: ")) << error;
}

TEST_F(PcapCapture, CutOffHeaderIsRefused) {
    for (const std::size_t size : {4U, 5U, 23U}) {
        EXPECT_NE(read(kMicroseconds.substr(0, size)).error, "") << size;
    }
}

TEST_F(PcapCapture, IsReadAgainFromItsBeginning) {
    const auto file = open_capture(write(kMicroseconds + pcap_record(1, 0, "one") + pcap_record(3, 0, "two")));
    EXPECT_THAT(read(*file).records, ElementsAre("one", "two"));
    file->rewind();
    const Read again = read(*file);
    EXPECT_THAT(again.records, ElementsAre("one", "two"));
    EXPECT_THAT(again.gaps, ElementsAre(0ns, 2s));
}

TEST_F(BinCapture, LineIsAMessage) {
    const Read result =
        read(bin_header() + "02 00 00 00 05 00 00 00 00 00 00 00 ff\n02 00 00 00 0a 1b c9 de\n");
    EXPECT_THAT(result.records, ElementsAre("\2\0\0\0\5\0\0\0\0\0\0\0\xFF"s, "\2\0\0\0\x0A\x1B\xC9\xDE"s));
    EXPECT_THAT(result.gaps, ElementsAre(0ns, 0ns));
    EXPECT_THAT(result.kinds, ElementsAre(CaptureRecord::Kind::kMessage, CaptureRecord::Kind::kMessage));
}

TEST_F(BinCapture, MessagesOfOtherKindsArePassedOverAndCounted) {
    const Read result = read(bin_header() + "00 00 00 00 18 00 00 00\n02 00 00 00\n01 00 00 00\n02 01 00 00\n");
    EXPECT_THAT(result.records, ElementsAre("\2\0\0\0"s));
    EXPECT_EQ(result.skipped, 3U);
}

TEST_F(BinCapture, MessageWithoutAWholeTypeIsPassedOver) {
    const Read result = read(bin_header() + "\n02\n02 00 00\n");
    EXPECT_THAT(result.records, IsEmpty());
    EXPECT_EQ(result.skipped, 3U);
    EXPECT_EQ(result.error, "");
}

TEST_F(BinCapture, CapturesMayFollowEachOther) {
    const Read result =
        read(bin_header() + "02 00 00 00 01\n" + bin_header() + bin_header() + "02 00 00 00 02\n");
    EXPECT_THAT(result.records, ElementsAre("\2\0\0\0\1"s, "\2\0\0\0\2"s));
}

TEST_F(BinCapture, IsReadAgainFromItsBeginning) {
    const auto file = open_capture(write(bin_header() + "00 00 00 00\n02 00 00 00 01\n"));
    EXPECT_THAT(read(*file).records, ElementsAre("\2\0\0\0\1"s));
    file->rewind();
    const Read again = read(*file);
    EXPECT_THAT(again.records, ElementsAre("\2\0\0\0\1"s));
    EXPECT_EQ(again.skipped, 1U);
}

TEST_F(BinCapture, LineThatIsNoMessageIsRefusedWithItsNumber) {
    const std::string good = bin_header() + "02 00 00 00\n";
    for (const char* line : {"02 00 00 0", "02 00 00 00 ", "02  00", "0200", "02 0G", "02 0A", " 02", "02\r",
                             "0x02", "02,00", "Tcp shot start", "*"}) {
        const std::string error = error_of(good + line + "\n02 00 00 00\n");
        EXPECT_TRUE(error.starts_with(":3: no b")) << line << error;
    }
    EXPECT_EQ(error_of(good + "02 00 00 0G\n"), ":3: no byte in lowercase digits at column 10");
    EXPECT_EQ(error_of(good + "02 0000\n"), ":3: no blank between two bytes at column 6");
}

TEST_F(BinCapture, LongestMessageIsReadAndALongerOneRefused) {
    std::string line = "02 00 00 00";
    for (int i = 4; i < 4096; ++i) {
        line += " ab";
    }
    const Read result = read(bin_header() + line + "\n");
    ASSERT_EQ(result.records.size(), 1U);
    EXPECT_EQ(result.records[0].size(), 4096U);
    EXPECT_EQ(result.records[0].substr(4), std::string(4092, '\xAB'));
    EXPECT_EQ(error_of(bin_header() + line + " ab\n"), ":2: longer than any message");
    EXPECT_EQ(error_of(bin_header() + std::string(1'000'000, 'a')), ":2: longer than any message");
}

TEST_F(BinCapture, LineWithoutItsEndIsCutOff) {
    EXPECT_EQ(error_of(bin_header() + "02 00 00 00\n02 00 00"), ":3: cut off: it has no end");
}

TEST_F(BinCapture, DamagedHeaderIsRefused) {
    EXPECT_EQ(error_of(bin_header().substr(1)), ":1: no beginning of a capture");
    EXPECT_EQ(error_of("****\n"), ":1: no beginning of a capture");
    std::string header = bin_header();
    header[200] = 'x';
    EXPECT_EQ(error_of(header), ":1: no beginning of a capture");
    EXPECT_EQ(error_of(bin_header() + header), ":2: no byte in lowercase digits at column 1");
}

TEST_F(Capture, FileOfNeitherKindIsRefused) {
    for (const std::string& content : {""s, "ab"s, "02 00 00 00\n"s, "\x0A\x0D\x0D\x0A\x1C\0\0\0"s}) {
        EXPECT_EQ(error_of(content), ": neither a pcap file nor a dump of card messages");
    }
}

TEST_F(Capture, WhatIsNoFileIsRefusedWithoutWaiting) {
    const auto reason = [](const std::string& path) {
        try {
            static_cast<void>(open_capture(path));
        } catch (const CaptureError& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_EQ(reason(path_), path_ + ": No such file or directory");
    EXPECT_EQ(reason(directory_.path()), directory_.path().string() + ": no regular file");
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(reason(path_), path_ + ": no regular file");
}

TEST_F(Capture, CheckCountsAndGoesBack) {
    const auto file = open_capture(write(bin_header() + "00 00 00 00\n02 00 00 00\n02 00 00 00 01\n"));
    EXPECT_EQ(check(*file), (CaptureSummary{.records = 2, .skipped = 1}));
    EXPECT_EQ(read(*file).records.size(), 2U);
    const auto damaged = open_capture(write(bin_header() + "02 00 00 00\nx\n"));
    EXPECT_THROW(check(*damaged), CaptureError);
}

}  // namespace
}  // namespace kova::sim
