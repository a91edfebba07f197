/** A card that is not on, and the memory that it may have left behind. */
#ifndef KOVA_APPS_KOVA_SIMCARD_LEFTOVER_H
#define KOVA_APPS_KOVA_SIMCARD_LEFTOVER_H

#include <cstdint>
#include <string>

namespace kova::app {

/** Why attaching to the card failed with this errno, for people. */
[[nodiscard]] std::string why_not_on(std::uint32_t card, int error);

/** Whether there is memory under the card's name that nobody powers. */
[[nodiscard]] bool has_leftover(std::uint32_t card);

/** Removes it, unless somebody powers the card meanwhile; whether there was something to remove. */
bool remove_leftover(std::uint32_t card);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_LEFTOVER_H
