#include "kova_simcard/options.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <sstream>
#include <string_view>

#include "kova_simcard/exit_codes.h"

namespace kova::app {

namespace {

constexpr std::string_view kUnlimited = "max";

std::optional<sim::Rate> parse_rate(std::string_view text) {
    if (text == kUnlimited) {
        return sim::Rate();
    }
    std::uint64_t rate = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, rate);
    if (error != std::errc() || rest != end || rate == 0 || rate > sim::kMaxRate) {
        return std::nullopt;
    }
    return sim::Rate(rate);
}

CLI::Validator rate_validator() {
    return {[](const std::string& text) {
                return parse_rate(text) ? std::string() : "\"" + text + "\" is neither a whole number nor max";
            },
            "1.." + std::to_string(sim::kMaxRate) + "|max"};
}

void add_card(CLI::App& command, std::uint32_t& card) {
    command.add_option("--card", card, "Index of the card")->capture_default_str();
}

template <typename Store>
void add_seconds(CLI::App& command, const char* name, const char* help, Store store) {
    const auto take = [store](const std::uint32_t& value) { store(std::chrono::seconds(value)); };
    command.add_option_function<std::uint32_t>(name, take, help)->type_name("UINT");
}

CLI::App* add_run(CLI::App& program, RunOptions& options, std::string& rate) {
    CLI::App* const command =
        program.add_subcommand("run", "Power a card and let the simulated exchange send, until told to stop");
    add_card(*command, options.card);
    command->add_flag("--prepared", options.prepared,
                      "Fill the contract tables, subscribe the scenario's channels and start the cores");
    command->add_option("--scenario", options.scenario, "Scenario file; without one the default scenario");
    command->add_option("--rate", rate, "Quotes a second, instead of the scenario's")->check(rate_validator());
    add_seconds(*command, "--seconds", "Seconds of traffic, instead of the scenario's; 0 is endless",
                [&options](std::chrono::seconds seconds) { options.seconds = seconds; });
    command->add_option("--slots-log2", options.slots_log2, "Slots of each channel's ring, as a power of two")
        ->capture_default_str();
    command->add_flag("--quiet", options.quiet, "No progress");
    return command;
}

CLI::App* add_status(CLI::App& program, StatusOptions& options) {
    CLI::App* const command = program.add_subcommand("status", "Show a card and what its channels received");
    add_card(*command, options.card);
    command->add_flag("--json", options.json, "As JSON");
    return command;
}

CLI::App* add_off(CLI::App& program, OffOptions& options) {
    CLI::App* const command = program.add_subcommand("off", "Power a card off, and wait until it is");
    add_card(*command, options.card);
    add_seconds(*command, "--wait", "Seconds to wait until the card is off, 10 if not given",
                [&options](std::chrono::seconds seconds) { options.patience = seconds; });
    return command;
}

Answer answer_of(const CLI::App& program, const CLI::ParseError& reason) {
    std::ostringstream text;
    const bool is_refused = program.exit(reason, text, text) != 0;
    return {is_refused ? kExitRefused : kExitDone, text.str()};
}

}  // namespace

Command parse_command_line(int argument_count, const char* const* arguments) {
    RunOptions run;
    StatusOptions status;
    OffOptions off;
    std::string rate;
    CLI::App program("A simulated card, and the simulated exchange behind it", "kova-simcard");
    program.require_subcommand(1);
    const CLI::App* const run_command = add_run(program, run, rate);
    const CLI::App* const status_command = add_status(program, status);
    add_off(program, off);
    try {
        program.parse(argument_count, arguments);
    } catch (const CLI::ParseError& reason) {
        return answer_of(program, reason);
    }
    if (run_command->parsed()) {
        run.rate = parse_rate(rate);
        return run;
    }
    if (status_command->parsed()) {
        return status;
    }
    return off;
}

}  // namespace kova::app
