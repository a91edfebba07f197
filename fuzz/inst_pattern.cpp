// A channel's instrument list, and which identifiers it selects: compared with the rule told once more.
//
//     byte 0   bit 0 the channel receives everything, bit 1 options too
//     then     lines of text: the list, then identifiers

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/require.h"
#include "instruments/InstPattern.h"

namespace kova::fuzz {
namespace {

constexpr std::size_t kLongestList = 4095;
constexpr std::size_t kLongestPattern = 31;
constexpr std::size_t kIdentifierRoom = 16;

using Patterns = std::vector<std::string>;

std::string until_nul(std::string_view text, std::size_t most) {
    return std::string(text.substr(0, std::min(text.find('\0'), most)));
}

/** Commas end fields; what follows the last comma is one unless it is empty. */
Patterns expected_patterns(const std::string& list) {
    Patterns patterns;
    std::string field;
    for (const char character : list) {
        if (character == ',') {
            patterns.push_back(field.substr(0, kLongestPattern));
            field.clear();
        } else {
            field += character;
        }
    }
    if (!field.empty()) {
        patterns.push_back(field.substr(0, kLongestPattern));
    }
    return patterns;
}

Patterns patterns_of(const std::string& list) {
    CInstrumentListType array;
    array.UnSafeCopyFrom(list.c_str());
    require(array.Length() == list.size(), "a list of 4095 characters fits");
    std::vector<CUstCharArray<kLongestPattern + 1>> fields;
    array.SplitByChar(fields, ',');
    Patterns patterns;
    for (const auto& field : fields) {
        patterns.emplace_back(field.data(), field.Length());
    }
    return patterns;
}

bool begins_with(std::string_view id, std::string_view pattern) {
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (i >= id.size() || id[i] != pattern[i]) {
            return false;
        }
    }
    return true;
}

/**
 * Everything: futures, and the rest where options are wanted. A product or a contract: of that what begins with
 * the pattern. Any other pattern: the one instrument of that name.
 */
bool is_expected(std::string_view id, std::string_view pattern, bool is_all, bool is_options) {
    const bool is_named = pattern.size() != 2 && pattern.size() != 6;
    if (!is_all && is_named) {
        return id.size() == pattern.size() && begins_with(id, pattern);
    }
    const bool is_option = id.size() > 6;
    return (is_all || begins_with(id, pattern)) && (is_options || !is_option);
}

/** An identifier as a row of the card holds it, which may be full to its last byte. */
std::string identifier_of_row(std::string_view line) {
    SInstTableType row{};
    std::memcpy(row.inst_id, line.data(), std::min(line.size(), kIdentifierRoom));
    return InstId(row).data();
}

void run(Input input) {
    const unsigned options = input.byte();
    const bool is_all = (options & 1U) != 0;
    const bool is_options = (options & 2U) != 0;
    const std::string list = until_nul(input.line(), kLongestList);
    const Patterns patterns = patterns_of(list);
    require(patterns == expected_patterns(list), "the list is split at its commas");
    while (!input.empty()) {
        const std::string_view line = input.line();
        const std::string id = identifier_of_row(line);
        require(id == until_nul(line, kIdentifierRoom), "an identifier has at most 16 characters");
        for (const std::string& pattern : patterns) {
            require(
                IsInstSelected(id, pattern, is_all, is_options) == is_expected(id, pattern, is_all, is_options),
                "a pattern selects what the rule says");
        }
    }
}

}  // namespace
}  // namespace kova::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kova::fuzz::run({data, size});
    return 0;
}
