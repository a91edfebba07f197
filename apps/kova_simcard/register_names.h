/** The card's registers by the names that people know them by. */
#ifndef KOVA_APPS_KOVA_SIMCARD_REGISTER_NAMES_H
#define KOVA_APPS_KOVA_SIMCARD_REGISTER_NAMES_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace kova::app {

struct NamedRegister {
    std::string name;
    std::uint32_t number = 0;
};

/** All of them but those of the contract tables, by their number. */
[[nodiscard]] std::span<const NamedRegister> named_registers();

/** The register of this name, or null. */
[[nodiscard]] const NamedRegister* find_register(std::string_view name);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_REGISTER_NAMES_H
