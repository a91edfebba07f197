/**
 * TOML as the exchange reads it. Nothing else includes the reader: how its assertions are compiled must be the
 * same everywhere.
 */
#ifndef KOVA_SIM_EXCHANGE_TOML_FILE_H
#define KOVA_SIM_EXCHANGE_TOML_FILE_H

#include <cstdint>
#include <string>
#include <string_view>

namespace kova::sim {

/** An assertion of the reader that a file broke. */
struct BrokenAssertion {};

[[noreturn]] void throw_broken_assertion();

}  // namespace kova::sim

// Some malformed files, `[1,}` for one, break assertions of the reader: they would end a debug build and are
// promises to the optimiser in a release build. Here they are refusals in both.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(expression) ((expression) ? static_cast<void>(0) : ::kova::sim::throw_broken_assertion())
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

namespace kova::sim {

/** Why a text is no TOML. */
struct TomlError {
    std::uint32_t line;  // 1 for the first
    std::string reason;  // one line
};

/** Throws TomlError. */
toml::table read_toml(std::string_view text);

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_TOML_FILE_H
