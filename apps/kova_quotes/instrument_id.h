/**
 * The identifier of an instrument as a record carries it.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_INSTRUMENT_ID_H
#define KOVA_APPS_KOVA_QUOTES_INSTRUMENT_ID_H

#include <array>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include "KovaShfeMdApi.h"

namespace kova::app {

/** Sixteen bytes, NUL-padded; one that fills all sixteen has no NUL. */
struct InstrumentId {
    std::array<char, sizeof(KovaShfeMdType::inst_id)> bytes{};

    /** The record's identifier; what stands behind its first NUL is left out. */
    static InstrumentId of(const KovaShfeMdType& quote) {
        InstrumentId id;
        std::memcpy(id.bytes.data(), quote.inst_id, ::strnlen(quote.inst_id, id.bytes.size()));
        return id;
    }

    /** Nothing for a text that no record can carry: empty, too long, or with a NUL. */
    static std::optional<InstrumentId> of(std::string_view text) {
        InstrumentId id;
        if (text.empty() || text.size() > id.bytes.size() || text.find('\0') != std::string_view::npos) {
            return std::nullopt;
        }
        std::memcpy(id.bytes.data(), text.data(), text.size());
        return id;
    }

    /** The identifier for people: bytes that are no printable ASCII become '?'. */
    [[nodiscard]] std::string printable() const {
        std::string text(bytes.data(), ::strnlen(bytes.data(), bytes.size()));
        for (char& c : text) {
            c = printable(c);
        }
        return text;
    }

    static char printable(char c) { return c >= ' ' && c <= '~' ? c : '?'; }

    friend bool operator==(const InstrumentId&, const InstrumentId&) = default;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_INSTRUMENT_ID_H
