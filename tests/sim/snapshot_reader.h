/**
 * What the tests read frames and messages with: every offset written out here, nothing of the code under test.
 */
#ifndef KOVA_TESTS_SIM_SNAPSHOT_READER_H
#define KOVA_TESTS_SIM_SNAPSHOT_READER_H

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "wire/InstRow.h"

namespace kova::sim::test {

using Bytes = std::vector<std::uint8_t>;

inline Bytes bytes_of(std::span<const std::byte> from) {
    Bytes bytes;
    std::ranges::transform(from, std::back_inserter(bytes),
                           [](std::byte b) { return std::to_integer<std::uint8_t>(b); });
    return bytes;
}

/** Bytes from hexadecimal digits; blanks are skipped. */
inline Bytes hex(const std::string& text) {
    std::string digits;
    std::ranges::copy_if(text, std::back_inserter(digits), [](char c) { return c != ' ' && c != '\n'; });
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

inline Bytes part(const Bytes& bytes, std::size_t offset, std::size_t count) {
    const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

/** A little-endian value. */
template <typename Value>
Value little(const Bytes& bytes, std::size_t offset) {
    Value value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

/** A big-endian number of `count` bytes. */
inline std::uint32_t big(const Bytes& bytes, std::size_t offset, std::size_t count) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        value = value << 8U | bytes.at(offset + i);
    }
    return value;
}

/** Sum of 16-bit words with the carries added: 0xFFFF over anything that holds its own right checksum. */
inline std::uint32_t folded_sum(const Bytes& bytes, std::uint32_t sum = 0) {
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        sum += i % 2 == 0 ? std::uint32_t{bytes[i]} << 8U : bytes[i];
    }
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFFU) + (sum >> 16U);
    }
    return sum;
}

struct ReadFrame {
    std::uint32_t source = 0;
    std::uint32_t destination = 0;
    std::uint32_t source_port = 0;
    std::uint32_t port = 0;
    std::uint32_t seq = 0;
    std::uint32_t flags = 0;
    std::size_t ip_options = 0;
    std::size_t tcp_options = 0;
    std::size_t padding = 0;
    bool is_ip_sum_right = false;
    bool is_tcp_sum_right = false;
    Bytes payload;
};

inline ReadFrame read_frame(const Bytes& frame) {
    ReadFrame read;
    const std::size_t ip = (frame.at(14) & 0x0FU) * 4U;
    const std::size_t total = big(frame, 16, 2);
    const std::size_t tcp = 14 + ip;
    const std::size_t tcp_header = (frame.at(tcp + 12) >> 4U) * 4U;
    read.source = big(frame, 26, 4);
    read.destination = big(frame, 30, 4);
    read.source_port = big(frame, tcp, 2);
    read.port = big(frame, tcp + 2, 2);
    read.seq = big(frame, tcp + 4, 4);
    read.flags = frame.at(tcp + 13);
    read.ip_options = ip - 20;
    read.tcp_options = tcp_header - 20;
    read.padding = frame.size() - 14 - total;
    read.is_ip_sum_right = folded_sum(part(frame, 14, ip)) == 0xFFFF;
    const std::uint32_t pseudo_header =
        folded_sum(part(frame, 26, 8)) + 6 + static_cast<std::uint32_t>(total - ip);
    read.is_tcp_sum_right = folded_sum(part(frame, tcp, total - ip), pseudo_header) == 0xFFFF;
    read.payload = part(frame, tcp + tcp_header, total - ip - tcp_header);
    return read;
}

struct ReadField {
    std::uint16_t id = 0;
    std::size_t offset = 0;  // in the message
    Bytes body;
};

struct ReadMessage {
    std::uint8_t flag = 0;
    std::uint64_t offset = 0;  // in the stream that was read
    std::size_t size = 0;
    std::vector<ReadField> fields{};

    [[nodiscard]] const ReadField* find(std::uint16_t id) const {
        const auto found = std::ranges::find(fields, id, &ReadField::id);
        return found == fields.end() ? nullptr : &*found;
    }
};

/** Takes the messages apart; what is left at the end is not looked at. */
inline std::vector<ReadMessage> read_messages(const Bytes& stream) {
    std::vector<ReadMessage> messages;
    for (std::size_t at = 0; at + 8 <= stream.size();) {
        ReadMessage message{
            .flag = stream[at], .offset = at, .size = 8U + little<std::uint16_t>(stream, at + 2)};
        if (stream[at + 1] != 0x32 || at + message.size > stream.size()) {
            break;
        }
        for (std::size_t field = 8; field + 4 <= message.size;) {
            const std::size_t size = little<std::uint16_t>(stream, at + field + 2);
            message.fields.push_back({.id = little<std::uint16_t>(stream, at + field),
                                      .offset = field,
                                      .body = part(stream, at + field + 4, size)});
            field += 4 + size;
        }
        at += message.size;
        messages.push_back(std::move(message));
    }
    return messages;
}

inline std::int64_t hundredths(double value) {
    return value == 0x1.fffffffffffffp+1023 ? 0 : std::llround(value * 100);
}

/** Puts a feed's messages into rows, by instrument number. */
class RowReader {
 public:
    void read(const std::vector<ReadMessage>& messages) {
        for (const ReadMessage& message : messages) {
            for (const ReadField& field : message.fields) {
                read(field);
            }
        }
    }

    std::map<std::int32_t, SInstTableType> rows;

 private:
    void read(const ReadField& field) {
        const Bytes& body = field.body;
        const auto cents = [&](std::size_t offset) { return hundredths(little<double>(body, offset)); };
        const auto price = [&](std::size_t offset) { return static_cast<std::int32_t>(cents(offset)); };
        if (field.id == 0x0101) {
            SInstTableType& row = rows[little<std::int32_t>(body, 108)];
            row = {};
            std::memcpy(row.inst_id, body.data(), 15);
            row.vol_multiple = little<std::uint32_t>(body, 72);
            row.price_tick = price(92);
            row.codec_price = price(100);
        } else if (field.id == 0x0102) {
            SInstTableType& row = rows[little<std::int32_t>(body, 0)];
            row.last_price = price(4);
            row.volume = little<std::uint32_t>(body, 12);
            row.turnover = static_cast<std::uint64_t>(cents(16));
            row.open_interest = static_cast<std::uint64_t>(little<double>(body, 24));
            row.high_price = price(32);
            row.low_price = price(40);
            row.upper_limit_price = price(72);
            row.lower_limit_price = price(80);
            row.update_mill_sec = little<std::uint32_t>(body, 146);
            row.change_no = little<std::uint32_t>(body, 150);
            bids_ = asks_ = 0;
        } else if (field.id == 0x0103) {
            SInstTableType& row = rows[little<std::int32_t>(body, 0)];
            const bool is_bid = body[4] == '0';
            // From level 5 to level 1, the two words of each.
            const std::size_t level = 4 - (is_bid ? bids_++ : asks_++);
            const std::size_t at = (is_bid ? 28U : 68U) + 8 * level;
            const std::int32_t level_price = price(5);
            std::memcpy(reinterpret_cast<std::uint8_t*>(&row) + at, &level_price, 4);
            std::memcpy(reinterpret_cast<std::uint8_t*>(&row) + at + 4, body.data() + 13, 4);
        } else if (field.id == 0x0104) {
            SInstTableType& row = rows[little<std::int32_t>(body, 0)];
            row.bid_volume = little<std::uint32_t>(body, 4);
            row.bid_amount = cents(8);
            row.ask_volume = little<std::uint32_t>(body, 16);
            row.ask_amount = cents(20);
        }
    }

    std::size_t bids_ = 0;  // levels of the instrument at hand
    std::size_t asks_ = 0;
};

}  // namespace kova::sim::test

#endif  // KOVA_TESTS_SIM_SNAPSHOT_READER_H
