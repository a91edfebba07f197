/** Memory of a card whose program was killed. */
#ifndef KOVA_APPS_KOVA_SIMCARD_LEFTOVER_H
#define KOVA_APPS_KOVA_SIMCARD_LEFTOVER_H

#include <cstdint>

namespace kova::app {

/** Whether there is memory under the card's name that nobody powers. */
[[nodiscard]] bool has_leftover(std::uint32_t card);

/** Removes it, unless somebody powers the card meanwhile; whether there was something to remove. */
bool remove_leftover(std::uint32_t card);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_LEFTOVER_H
