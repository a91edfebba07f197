/** What a program that powers a card writes for people. */
#ifndef KOVA_APPS_KOVA_SIMCARD_OUTPUT_H
#define KOVA_APPS_KOVA_SIMCARD_OUTPUT_H

#include <cstdio>
#include <string_view>

namespace kova::app {

/**
 * Writes the text at once. That nobody reads it any more is no failure here: the card has to be powered off in
 * order, which SIGPIPE brings about.
 */
void write_text(std::FILE* file, std::string_view text);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_OUTPUT_H
