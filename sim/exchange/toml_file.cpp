#include "sim/exchange/toml_file.h"

#include <algorithm>
#include <optional>

namespace kova::sim {

namespace {

std::string one_line(std::string_view text) {
    std::string line(text);
    std::ranges::replace(line, '\n', ' ');
    return line;
}

/** Nothing when the text breaks an assertion of the reader. */
std::optional<toml::table> try_to_read(std::string_view text) {
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        throw TomlError{.line = error.source().begin.line, .reason = one_line(error.description())};
    } catch (const BrokenAssertion&) {
        return std::nullopt;
    }
}

/** The first line of which the reader breaks an assertion; an assertion does not say where. */
std::uint32_t broken_line(std::string_view text) {
    std::uint32_t line = 1;
    for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n', end + 1)) {
        try {
            if (!try_to_read(text.substr(0, end))) {
                break;
            }
        } catch (const TomlError&) {
            // What is cut off here goes on behind.
        }
        ++line;
    }
    return line;
}

}  // namespace

void throw_broken_assertion() {
    throw BrokenAssertion{};
}

toml::table read_toml(std::string_view text) {
    if (std::optional<toml::table> table = try_to_read(text)) {
        return std::move(*table);
    }
    throw TomlError{.line = broken_line(text), .reason = "a value is malformed"};
}

}  // namespace kova::sim
