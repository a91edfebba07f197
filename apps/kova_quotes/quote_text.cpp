#include "kova_quotes/quote_text.h"

#include <charconv>
#include <concepts>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "kova_quotes/instrument_id.h"

namespace kova::app {

namespace {

/** Every field, in the order of the record. */
template <typename Visitor>
void visit_fields(const KovaShfeMdType& q, Visitor&& visit) {
    visit("inst_no", q.inst_no);
    visit("inst_id", InstrumentId::of(q));
    visit("update_time", q.update_time);
    visit("update_milli_sec", q.update_milli_sec);
    visit("type", q.type);
    visit("change_no", q.change_no);
    visit("last_px", q.last_px);
    visit("volume", q.volume);
    visit("turnover", q.turnover);
    visit("open_interest", q.open_interest);
    visit("bid1_px", q.bid1_px);
    visit("bid1_vol", q.bid1_vol);
    visit("bid2_px", q.bid2_px);
    visit("bid2_vol", q.bid2_vol);
    visit("bid3_px", q.bid3_px);
    visit("bid3_vol", q.bid3_vol);
    visit("bid4_px", q.bid4_px);
    visit("bid4_vol", q.bid4_vol);
    visit("bid5_px", q.bid5_px);
    visit("bid5_vol", q.bid5_vol);
    visit("ask1_px", q.ask1_px);
    visit("ask1_vol", q.ask1_vol);
    visit("ask2_px", q.ask2_px);
    visit("ask2_vol", q.ask2_vol);
    visit("ask3_px", q.ask3_px);
    visit("ask3_vol", q.ask3_vol);
    visit("ask4_px", q.ask4_px);
    visit("ask4_vol", q.ask4_vol);
    visit("ask5_px", q.ask5_px);
    visit("ask5_vol", q.ask5_vol);
    visit("bid_volume", q.bid_volume);
    visit("bid_amount", q.bid_amount);
    visit("ask_volume", q.ask_volume);
    visit("ask_amount", q.ask_amount);
    visit("high_price", q.high_price);
    visit("low_price", q.low_price);
    visit("max_inst_no", q.max_inst_no);
    // The card sets the byte, which need not be one that a bool may have.
    unsigned char last_tick_flag = 0;
    std::memcpy(&last_tick_flag, &q.last_tick_flag, sizeof last_tick_flag);
    visit("last_tick_flag", last_tick_flag != 0);
    visit("reverse0", q.reverse[0]);
    visit("reverse1", q.reverse[1]);
    visit("reverse2", q.reverse[2]);
}

/** Room for the longest 64-bit integer and its sign. */
constexpr std::ptrdiff_t kMaxDigits = 20;

char* put(char* out, std::string_view text) {
    std::memcpy(out, text.data(), text.size());
    return out + text.size();
}

template <std::integral T>
char* put_number(char* out, T value) {
    return std::to_chars(out, out + kMaxDigits, value).ptr;
}

/** Calls `put_byte` with each byte of the identifier, made printable. */
template <typename PutByte>
void for_each_byte(const InstrumentId& id, PutByte&& put_byte) {
    for (const char byte : id.bytes) {
        if (byte == '\0') {
            return;
        }
        put_byte(InstrumentId::printable(byte));
    }
}

class CsvFields {
 public:
    explicit CsvFields(char* out) : out_(out) {}

    void operator()(std::string_view /*name*/, const InstrumentId& id) {
        separate();
        bool is_quoted = false;
        for_each_byte(id, [&](char byte) { is_quoted |= byte == ',' || byte == '"'; });
        if (is_quoted) {
            *out_++ = '"';
        }
        for_each_byte(id, [&](char byte) {
            *out_++ = byte;
            if (byte == '"') {
                *out_++ = '"';
            }
        });
        if (is_quoted) {
            *out_++ = '"';
        }
    }

    void operator()(std::string_view /*name*/, bool value) {
        separate();
        *out_++ = value ? '1' : '0';
    }

    template <std::integral T>
    void operator()(std::string_view /*name*/, T value) {
        separate();
        out_ = put_number(out_, value);
    }

    char* end_line() {
        *out_++ = '\n';
        return out_;
    }

 private:
    void separate() {
        if (!is_first_) {
            *out_++ = ',';
        }
        is_first_ = false;
    }

    char* out_;
    bool is_first_ = true;
};

class CsvNames {
 public:
    explicit CsvNames(char* out) : out_(out) {}

    template <typename T>
    void operator()(std::string_view name, T /*value*/) {
        if (!is_first_) {
            *out_++ = ',';
        }
        is_first_ = false;
        out_ = put(out_, name);
    }

    char* end_line() {
        *out_++ = '\n';
        return out_;
    }

 private:
    char* out_;
    bool is_first_ = true;
};

class JsonFields {
 public:
    explicit JsonFields(char* out) : out_(out) { *out_++ = '{'; }

    void operator()(std::string_view name, const InstrumentId& id) {
        begin(name);
        *out_++ = '"';
        for_each_byte(id, [&](char byte) {
            if (byte == '"' || byte == '\\') {
                *out_++ = '\\';
            }
            *out_++ = byte;
        });
        *out_++ = '"';
    }

    void operator()(std::string_view name, bool value) {
        begin(name);
        out_ = put(out_, value ? "true" : "false");
    }

    template <std::integral T>
    void operator()(std::string_view name, T value) {
        begin(name);
        out_ = put_number(out_, value);
    }

    char* end_line() { return put(out_, "}\n"); }

 private:
    void begin(std::string_view name) {
        if (!is_first_) {
            *out_++ = ',';
        }
        is_first_ = false;
        *out_++ = '"';
        out_ = put(out_, name);
        out_ = put(out_, "\":");
    }

    char* out_;
    bool is_first_ = true;
};

}  // namespace

char* csv_header(char* out) {
    CsvNames names(out);
    visit_fields(KovaShfeMdType{}, names);
    return names.end_line();
}

char* csv_row(char* out, const KovaShfeMdType& quote) {
    CsvFields fields(out);
    visit_fields(quote, fields);
    return fields.end_line();
}

char* json_line(char* out, const KovaShfeMdType& quote) {
    JsonFields fields(out);
    visit_fields(quote, fields);
    return fields.end_line();
}

}  // namespace kova::app
