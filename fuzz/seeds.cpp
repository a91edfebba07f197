// Writes the inputs that the fuzzers begin with and that the tests fuzz.TARGET run over: kova_fuzz_seeds FOLDER
//
// Each is named by what it leads to. Inputs found by a fuzzer may stand beside them.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "support/mdqp_message.h"
#include "support/snapshot_frame.h"

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using kova::test::ByteString;
using kova::test::dma_tcp_message;
using kova::test::MdqpMessage;
using kova::test::put_little16;
using kova::test::Segment;
using kova::test::snapshot_message;

/** Writes the inputs of one target. */
class Corpus {
 public:
    Corpus(const fs::path& folder, std::string_view target) : folder_(folder / target) {
        fs::create_directories(folder_);
    }

    void add(std::string_view name, const std::string& input) const {
        std::ofstream file(folder_ / name, std::ios::binary);
        file << input;
        if (!file.flush()) {
            throw std::runtime_error("cannot write " + (folder_ / name).string());
        }
    }
    void add(std::string_view name, const ByteString& input) const {
        add(name, std::string(input.begin(), input.end()));
    }

 private:
    fs::path folder_;
};

ByteString bytes_of(const MdqpMessage& message) {
    const auto bytes = message.bytes();
    return {bytes.begin(), bytes.end()};
}

constexpr double kNoValue = 1.7976931348623157e308;

/** A message with one of everything. */
MdqpMessage full_message(std::uint8_t flag, std::int32_t inst_no) {
    MdqpMessage message(flag);
    message.packet_no(77)
        .inst_info(
            {.inst_id = "cu2606", .volume_multiple = 5, .price_tick = 10, .codec_price = 1, .inst_no = inst_no})
        .deal_info({.inst_no = inst_no,
                    .last_price = 78'000,
                    .volume = 12,
                    .turnover = 4.68e6,
                    .open_interest = 3000,
                    .highest_price = kNoValue,
                    .upper_limit_price = 90'000,
                    .lower_limit_price = 60'000,
                    .action_day = "20260420",
                    .update_mill_sec = 500,
                    .change_no = 9})
        .bid(inst_no, 77'990, 3)
        .bid(inst_no, 77'980, 4)
        .ask(inst_no, 78'010, 1)
        .ask(inst_no, 78'020, 2)
        .order_statistics(
            {.inst_no = inst_no, .bid_volume = 7, .bid_amount = 5e5, .ask_volume = 3, .ask_amount = kNoValue})
        .tail();
    return message;
}

void mdqp_messages(const fs::path& folder) {
    const Corpus corpus(folder, "mdqp_message");
    const auto input = [](std::uint8_t options, const MdqpMessage& message) {
        return ByteString{options} + bytes_of(message);
    };
    corpus.add("one_of_everything", input(0, full_message(0x11, 3)));
    corpus.add("last_message_of_each_feed", input(1, full_message(0x01, 0)));
    corpus.add("last_row_of_shfe", input(0, full_message(0x01, 16'383)));
    corpus.add("row_behind_ine", input(2, full_message(0x01, 4'096)));
    corpus.add("negative_row", input(3, full_message(0x01, -1)));
    corpus.add("foreign_port", input(4, full_message(0x01, 1)));
    corpus.add("body_reaches_past_the_end", input(0, MdqpMessage(0x11).field(0x0101, {1, 2, 3}).tail()));
    corpus.add("field_size_reaches_past_the_end",
               input(0, MdqpMessage(0x01).field_of_size(0x1002, 0xFFFF, {1, 2, 3, 4, 5, 6, 7, 8})));
    corpus.add("unknown_field", input(2, MdqpMessage(0x00).field(0x7777, {1, 2}).packet_no(1).tail()));
    corpus.add("header_alone", input(0, MdqpMessage(0x01)));
}

/** One message of the target tcp_handler. */
ByteString handled(std::uint8_t mode, std::uint16_t distance, const ByteString& bytes) {
    ByteString step{mode};
    put_little16(step, distance);
    put_little16(step, static_cast<std::uint32_t>(bytes.size()));
    return step + bytes;
}

constexpr std::uint8_t kPayload = 2;
constexpr std::uint8_t kSecondPort = 4;

ByteString opening(std::int16_t topic) {
    return bytes_of(MdqpMessage(0x11).snap(topic, 7).inst_info({.inst_id = "cu2606", .inst_no = 3}).tail());
}

void handler_runs(const fs::path& folder) {
    const Corpus corpus(folder, "tcp_handler");
    const ByteString all_feeds = {0x0F, 0, 0};
    const ByteString last = bytes_of(full_message(0x01, 3));
    const ByteString more = bytes_of(full_message(0x11, 4));
    corpus.add("snapshot_of_one_feed", ByteString{0xC1, 0, 0} + handled(kPayload, 0, opening(1000)) +
                                           handled(kPayload, 0, more) + handled(kPayload, 0, last) +
                                           handled(kPayload, 0, {}));
    corpus.add("snapshot_with_a_fault", ByteString{0xC1, 0x10, 0x41} + handled(kPayload, 0, opening(1000)) +
                                            handled(kPayload, 0, last) + handled(kPayload, 0, {}));
    const ByteString crossed = bytes_of(MdqpMessage(0x01).bid(3, 10, 1).ask(3, 5, 1).tail());
    corpus.add("snapshot_with_bad_prices", ByteString{0xC1, 0, 0} + handled(kPayload, 0, opening(1000)) +
                                               handled(kPayload, 0, crossed) + handled(kPayload, 0, {}));
    corpus.add("two_feeds_on_two_ports", all_feeds + handled(kPayload, 0, opening(5000)) +
                                             handled(kPayload | kSecondPort, 0, opening(5101)) +
                                             handled(kPayload, 0, last) +
                                             handled(kPayload | kSecondPort, 0, last));
    const auto half = static_cast<std::uint16_t>(more.size() / 2);
    corpus.add("early_frame",
               all_feeds + handled(kPayload, 0, opening(1000)) + handled(kPayload, half, more.substr(half)) +
                   handled(kPayload, half, more.substr(half)) + handled(kPayload, 0, more.substr(0, half)));
    corpus.add("opened_anew_while_a_frame_waits",
               all_feeds + handled(kPayload, 0, opening(1000)) + handled(kPayload, 999, more) +
                   handled(kPayload, 0, last) + handled(kPayload, 0, opening(5000)));
    corpus.add("reset", all_feeds + handled(kPayload, 0, opening(1000)) + handled(kPayload | 0x10, 0, {}) +
                            handled(kPayload, 0, opening(1000)));
    corpus.add("other_peer_padding_and_cut",
               all_feeds + handled(kPayload, 0, opening(1000)) + handled(kPayload | 0x20, 0, more) +
                   handled(kPayload | 0x40, 0, more) + handled(kPayload | 0x80, 9, more));
    const Segment odd{.seq = 5000,
                      .payload = opening(1000),
                      .ip_options = ByteString(8, 1),
                      .tcp_options = ByteString(12, 1),
                      .tcp_checksum = 0};
    corpus.add("headers_with_options", all_feeds + handled(1, 0, dma_tcp_message(odd)) +
                                           handled(0, 0, dma_tcp_message(Segment{.ip_length = 19})) +
                                           handled(1, 0, dma_tcp_message(Segment{.tcp_words = 15})) +
                                           handled(0, 0, ByteString(32, 0)) + handled(0, 0, {}));
    ByteString too_many = all_feeds + handled(kPayload, 0, opening(1000));
    for (std::uint16_t i = 0; i <= 500; ++i) {
        too_many += handled(kPayload, static_cast<std::uint16_t>(1000 - i), {});
    }
    corpus.add("501_early_frames", too_many);
}

void reassembly_runs(const fs::path& folder) {
    const Corpus corpus(folder, "reassembly");
    const ByteString first = snapshot_message(0x11, ByteString(12, 7));
    const ByteString second = snapshot_message(0x01, ByteString(22, 8));
    const ByteString stream = first + second;
    const auto in_order = [](const ByteString& bytes) {
        return ByteString{0, static_cast<std::uint8_t>(bytes.size())} + bytes;
    };
    const auto early = [](std::uint16_t distance, const ByteString& bytes) {
        ByteString step{1};
        put_little16(step, distance);
        step.push_back(static_cast<std::uint8_t>(bytes.size()));
        return step + bytes;
    };
    corpus.add("split_in_the_middle", ByteString{0} + in_order(stream.substr(0, 10)) +
                                          in_order(stream.substr(10, 20)) + in_order(stream.substr(30)));
    corpus.add("short_rest", ByteString{0} + in_order(stream.substr(0, 23)) + in_order(stream.substr(23)));
    corpus.add("reverse_order", ByteString{0} + early(30, stream.substr(30)) +
                                    early(10, stream.substr(10, 20)) + early(10, stream.substr(10, 20)) +
                                    in_order(stream.substr(0, 10)));
    corpus.add("refused_in_replay", ByteString{0} + early(20, first) + in_order(first) + in_order(second));
    corpus.add("outdated_and_again", ByteString{1} + in_order(stream) + ByteString{2, 10, 3, 1, 2, 3, 5});
    corpus.add("closed_by_the_last",
               ByteString{4} + in_order(stream) + in_order(first.substr(0, 9)) + in_order(first.substr(9)));
    // A message of 65,543 bytes that never ends, and 64 KiB of it.
    corpus.add("fragment_too_long", ByteString{0, 3, 0x11, 0xFF, 0xFF, 10, 6, 40, 9} + in_order(first));
    corpus.add("long_message_in_replay",
               ByteString{8} + ByteString{4, 88, 0, 100, 1} + ByteString{3, 0x11, 0x00, 0x20, 10});
    // A header that is nobody's stays behind a message and grows by 70 frames of 1480 bytes that waited.
    corpus.add("fragment_too_long_in_replay",
               ByteString{8} + ByteString{0x44, 28, 0, 35, 185} +
                   in_order(first + ByteString{0x77, 0x32, 0xFF, 0xFF, 0, 0, 0, 0}));
    corpus.add("501_early_frames", ByteString{8, 4, 100, 0, 255, 3});
    corpus.add("frames_with_options_padding_and_cut",
               ByteString{0, 0x38, 20} + first + ByteString{0x31, 5, 0, 4, 1, 2, 3, 4} + ByteString{7});
    corpus.add("numbers_wrap", ByteString{3, 6, 2, 0x11} + in_order(stream) + early(200, second));
}

void ini_texts(const fs::path& folder) {
    const Corpus corpus(folder, "ini_text");
    corpus.add(
        "every_kind_of_key",
        "# a comment\n[config]\nlog_level = 31\ndevice=xilinx0:0\nshfe2ps=enabled\nine2ps = enabled # on\n"
        "cpucore = -1\ndebug_flag = 1\nerror_limit_parts = 4\nprice_protect_event_mask = 4294967295\n"
        "shfe2ps_ip_a = 239.3.42.71:21000\nDSTMAC = 00:11:22:33:44:55\nlast_tick_channel = 65536\n"
        "[channel0]\ninsts = cu,ag2606,au2606C600\noptions = recv\n[channel15]\ninsts = all\n"s);
    corpus.add("odd_lines",
               "=\n =5\nkey\nkey=\n  [config]\n[config\n]config[\n[]\n# [config]\n[config]\r\n"
               "a = b = c\r\n\t b\t=\t \n[config]\nc=1\n\n[channel0]\ninsts"s);
    corpus.add("numbers_that_do_not_fit",
               "[config]\nlog_level=99999999999999999999\ncpucore=-99999999999999999999\ndma_sleep=4294967296\n"
               "detect_interval=0x10\nshfe2ps_snap_port=-1\nboard_id= +7seven\n"s);
    corpus.add("nuls_and_no_end", "[con\0fig]\nkey\0=\0value\n[config]\nlog_level = 1"s);
    corpus.add("empty", ""s);
    corpus.add("long_list", "[config]\nx=1\n[channel3]\ninsts = " + std::string(5000, 'c') + "\n" +
                                "device = " + std::string(300, '9') + "\n");
}

void inst_patterns(const fs::path& folder) {
    const Corpus corpus(folder, "inst_pattern");
    const std::string ids = "cu\ncu2606\ncu2606C78000\nau2606\nag2606P\nsc2606TAS\n\ncu2606C780001234\n";
    corpus.add("futures_only", "\0cu,ag2606,au2606C600,cu2606C78000\n"s + ids);
    corpus.add("with_options", "\2cu,cu2606,sc2606TAS,c,ag260\n"s + ids);
    corpus.add("everything", "\1all\n"s + ids);
    corpus.add("everything_with_options", "\3all\n"s + ids);
    corpus.add("empty_fields", "\0,,cu,,au,\n"s + ids);
    corpus.add("long_fields", "\0" + std::string(40, 'c') + "," + std::string(31, 'c') + "\n" + ids);
    corpus.add("identifiers_with_nuls", "\0cu,cu2606\ncu\0606\n\0\n"s);
}

std::string bin_header() {
    const std::string text = "***********Tcp shot start, 20260420_210000, shot cnt is 1.************";
    return text + std::string(256 - text.size(), '\0') + "\n";
}

std::string hex_line(const ByteString& message) {
    std::string line;
    for (const std::uint8_t byte : message) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        line += line.empty() ? "" : " ";
        line += {kDigits[byte >> 4U], kDigits[byte & 15U]};
    }
    return line + "\n";
}

void bin_files(const fs::path& folder) {
    const Corpus corpus(folder, "bin_file");
    const std::string segment = hex_line(dma_tcp_message(Segment{.seq = 1, .payload = {1, 2, 3}}));
    corpus.add("two_captures", bin_header() + segment + segment + bin_header() + segment);
    corpus.add("other_messages", bin_header() + hex_line({0, 0, 0, 0}) + "\n" + hex_line({2, 0}) + segment);
    corpus.add("cut_off", bin_header() + segment.substr(0, segment.size() - 1));
    corpus.add("no_digit", bin_header() + segment + "02 00 00 0g\n");
    corpus.add("no_blank", bin_header() + "02 00-00 00\n");
    corpus.add("blank_at_the_end", bin_header() + "02 00 00 00 \n");
    corpus.add("longest_message", bin_header() + hex_line(ByteString{2, 0, 0, 0} + ByteString(4092, 0xFF)));
    corpus.add("too_long", bin_header() + hex_line(ByteString(4097, 2)));
    corpus.add("no_header", segment);
}

std::string little(std::uint32_t value) {
    std::string bytes;
    for (int i = 0; i < 4; ++i, value >>= 8U) {
        bytes.push_back(static_cast<char>(value & 0xFFU));
    }
    return bytes;
}

std::string pcap_record(std::uint32_t seconds, std::uint32_t fraction, std::uint32_t said,
                        const std::string& frame) {
    return little(seconds) + little(fraction) + little(said) + little(said) + frame;
}

void pcap_files(const fs::path& folder) {
    const Corpus corpus(folder, "pcap_file");
    // Magic, version 2.4, zone, accuracy, longest record, link type.
    const std::string micro = "\xD4\xC3\xB2\xA1\2\0\4\0\0\0\0\0\0\0\0\0\xFF\xFF\0\0\1\0\0\0"s;
    const std::string nano = "\x4D\x3C\xB2\xA1\2\0\4\0\0\0\0\0\0\0\0\0\xFF\xFF\0\0\1\0\0\0"s;
    const std::string big = "\xA1\xB2\xC3\xD4\0\2\0\4\0\0\0\0\0\0\0\0\0\0\xFF\xFF\0\0\0\1"s;
    const ByteString bytes = kova::test::ethernet_frame(Segment{.seq = 1, .payload = {1, 2, 3}});
    const std::string frame(bytes.begin(), bytes.end());
    const auto size = static_cast<std::uint32_t>(frame.size());
    corpus.add("microseconds",
               micro + pcap_record(100, 999'999, size, frame) + pcap_record(101, 1, size, frame));
    corpus.add("nanoseconds", nano + pcap_record(100, 5, size, frame) + pcap_record(99, 4, size, frame));
    corpus.add("big_endian", big + "\0\0\0\x64\0\0\0\0\0\0\0\3\0\0\0\3one"s);
    corpus.add("times_out_of_range", nano + pcap_record(0, 0, 0, "") + pcap_record(~0U, ~0U, 0, ""));
    corpus.add("cut_off", micro + pcap_record(1, 1, size, frame.substr(0, 10)));
    corpus.add("size_that_cannot_be", micro + pcap_record(1, 1, 0xFFFFFFF0, frame));
    corpus.add("longer_than_the_longest",
               micro.substr(0, 16) + little(16) + little(1) + pcap_record(1, 1, size, frame));
    corpus.add("not_ethernet", micro.substr(0, 20) + little(101) + pcap_record(1, 1, size, frame));
    // A section header block and an interface description: the library reads the newer format too.
    corpus.add("newer_format", little(0x0A0D0D0A) + little(28) + little(0x1A2B3C4D) + "\1\0\0\0"s +
                                   little(~0U) + little(~0U) + little(28) + little(1) + little(20) +
                                   "\1\0\0\0"s + little(65'535) + little(20) + little(3) + little(20) +
                                   little(4) + "abcd" + little(20));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: kova_fuzz_seeds FOLDER\n");
        return 2;
    }
    const fs::path folder = argv[1];
    handler_runs(folder);
    mdqp_messages(folder);
    reassembly_runs(folder);
    ini_texts(folder);
    inst_patterns(folder);
    bin_files(folder);
    pcap_files(folder);
    return 0;
}
