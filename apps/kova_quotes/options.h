/**
 * The command line of kova-quotes.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_OPTIONS_H
#define KOVA_APPS_KOVA_QUOTES_OPTIONS_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "kova_quotes/instrument_id.h"

namespace kova::app {

enum class Format { kTable, kCsv, kJson, kNone };

/** What happens between two empty polls. */
enum class Idle { kSpin, kYield, kSleep };

struct Options {
    std::string config;
    bool fetch = false;
    std::optional<std::uint64_t> count;               /**< end after so many displayed quotes */
    std::optional<std::chrono::nanoseconds> duration; /**< end after so long */
    std::vector<InstrumentId> instruments;            /**< none: all */
    Format format = Format::kTable;
    bool stats = false;
    Idle idle = Idle::kSpin;
    std::string summary_file; /**< empty: none */
};

/** Either options to run with or a code to exit with. */
struct CommandLine {
    std::optional<Options> options;
    int exit_code = 0;
};

/** Reads the command line; help goes to `out`, what is wrong with it to `err` with exit code 2. */
CommandLine read_command_line(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_OPTIONS_H
