#include "kova_quotes/options.h"

#include <CLI/CLI.hpp>
#include <map>

#include "kova_quotes/exit_code.h"

namespace kova::app {

namespace {

constexpr const char* kDescription =
    "Receives the quotes of one card channel through libkova_u50.so and shows them.\n"
    "Quotes go to standard output, everything else, the library's log lines included, to standard error.";

constexpr const char* kFooter =
    "Formats: table shows prices in the exchange's units; csv and json carry every field of the record\n"
    "unchanged, prices in hundredths. On a terminal the table is limited to 20 rows a second and shows the\n"
    "latest quote of each instrument; everywhere else every quote is written.\n"
    "\n"
    "Summary (--summary): one JSON object with end (count, seconds, signal, output, failure), seconds,\n"
    "channel_quotes (all that came), displayed (after --instrument), quotes_per_second, best_second, gaps,\n"
    "missing, backward, untracked, instruments (an array of inst_id, quotes, first_change, last_change, gaps,\n"
    "missing, backward) and, with --stats, receive_calls.\n"
    "\n"
    "Statistics (--stats): each receive call is timed with the processor's time-stamp counter, without the "
    "time\n"
    "this program spends in the callback and without the cost of reading the counter. Quantiles are too high "
    "by\n"
    "at most 3.2 %, the maximum is exact.\n"
    "\n"
    "Exit codes: 0 normal end (also Ctrl-C), 1 start or output failed, 2 wrong command line, 3 receiving "
    "failed.";

/** The library keeps 255 characters of a path. */
constexpr std::size_t kMaxConfigPath = 255;

/** About 31 years; longer does not fit the clock's unit with room to spare. */
constexpr double kMaxSeconds = 1e9;

const std::map<std::string, Format> kFormats{
    {"table", Format::kTable}, {"csv", Format::kCsv}, {"json", Format::kJson}, {"none", Format::kNone}};

const std::map<std::string, Idle> kIdles{
    {"spin", Idle::kSpin}, {"yield", Idle::kYield}, {"sleep", Idle::kSleep}};

template <typename Value>
auto one_of(const std::map<std::string, Value>& names) {
    return [&names](const std::string& text) {
        if (names.contains(text)) {
            return std::string();
        }
        std::string all = "must be one of";
        for (const auto& [name, value] : names) {
            all += " " + name;
        }
        return all;
    };
}

std::string check_config(const std::string& path) {
    return !path.empty() && path.size() <= kMaxConfigPath ? "" : "the path must have 1 to 255 characters";
}

std::string check_count(const std::string& text) {
    std::uint64_t count = 0;
    return CLI::detail::lexical_cast(text, count) && count > 0 && text.front() != '-'
               ? ""
               : "must be a whole number above 0";
}

std::string check_seconds(const std::string& text) {
    double seconds = 0;
    return CLI::detail::lexical_cast(text, seconds) && seconds > 0 && seconds <= kMaxSeconds
               ? ""
               : "must be a number above 0, at most 1e9";
}

std::string check_instrument(const std::string& text) {
    return InstrumentId::of(std::string_view(text)) ? "" : "an identifier has 1 to 16 characters";
}

}  // namespace

CommandLine read_command_line(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    Options options;
    std::uint64_t count = 0;
    double seconds = 0;
    std::vector<std::string> instruments;
    std::string format = "table";
    std::string idle = "spin";

    CLI::App app{kDescription, "kova-quotes"};
    app.footer(kFooter);
    app.add_option("--config", options.config, "configuration file of the receiver (INI)")
        ->required()
        ->type_name("FILE")
        ->check(check_config);
    app.add_flag("--fetch", options.fetch, "fetch mode: quotes are copied out; otherwise a callback gets them");
    auto* count_option = app.add_option("--count", count, "end after exactly N displayed quotes")
                             ->type_name("N")
                             ->check(check_count);
    auto* seconds_option = app.add_option("--seconds", seconds, "end after N seconds, fractions allowed")
                               ->type_name("N")
                               ->check(check_seconds)
                               ->excludes(count_option);
    app.add_option("--instrument", instruments, "display and count this instrument only; may be repeated")
        ->type_name("ID")
        ->check(check_instrument);
    app.add_option("--format", format, "table, csv, json (one object a line) or none")
        ->type_name("FORMAT")
        ->default_str("table")
        ->check(one_of(kFormats));
    app.add_option("--idle", idle, "between empty polls: spin, yield the core, or sleep 1 ms")
        ->type_name("HOW")
        ->default_str("spin")
        ->check(one_of(kIdles));
    app.add_flag("--stats", options.stats,
                 "at the end tell rates, gaps by instrument and what receive calls cost");
    app.add_option("--summary", options.summary_file, "write the summary to this file as JSON")
        ->type_name("FILE");

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return {.options = std::nullopt,
                .exit_code = app.exit(error, out, err) == 0 ? kEndedNormally : kWrongUsage};
    }

    if (*count_option) {
        options.count = count;
    }
    if (*seconds_option) {
        options.duration =
            std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(seconds));
    }
    options.format = kFormats.at(format);
    options.idle = kIdles.at(idle);
    for (const std::string& text : instruments) {
        options.instruments.push_back(*InstrumentId::of(std::string_view(text)));
    }
    return {.options = std::move(options), .exit_code = kEndedNormally};
}

}  // namespace kova::app
