/**
 * Identifiers of instruments, and which of them a pattern of an instrument list selects.
 */
#ifndef KOVA_INSTRUMENTS_INST_PATTERN_H
#define KOVA_INSTRUMENTS_INST_PATTERN_H

#include <cstddef>
#include <string_view>

#include "util/UstCharArray.h"
#include "wire/InstRow.h"

/** Identifiers of futures have at most this many characters; longer ones are option contracts and TAS. */
constexpr size_t FUTURE_ID_LENGTH = 6;

/** A row's identifier with a NUL behind it: rows are read back from the card, which may hold anything. */
using CInstIdType = CUstCharArray<sizeof(SInstTableType::inst_id) + 1>;

[[nodiscard]] inline CInstIdType InstId(const SInstTableType& refRow) {
    CInstIdType instId;
    instId._MyCopy(CInstIdType::BuffCast(refRow.inst_id));
    return instId;
}

/**
 * Whether a channel's pattern selects an instrument.
 *
 * @param pattern of 2 (a product) or 6 characters (a contract) it is a prefix, of any other length the
 * identifier.
 * @param isAll the channel receives everything, whatever the pattern.
 * @param isOptions the channel also receives identifiers of more than FUTURE_ID_LENGTH characters; an
 * identifier that is named in full needs no leave.
 */
[[nodiscard]] bool IsInstSelected(std::string_view instId, std::string_view pattern, bool isAll,
                                  bool isOptions) noexcept;

#endif  // KOVA_INSTRUMENTS_INST_PATTERN_H
