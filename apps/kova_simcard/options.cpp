#include "kova_simcard/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <sstream>
#include <string_view>
#include <vector>

#include "kova_simcard/exit_codes.h"
#include "kova_simcard/rate.h"
#include "sim/card/mailbox.h"

namespace kova::app {

namespace {

std::optional<ReplaySpeed> parse_speed(std::string_view text) {
    if (text == "max") {
        return ReplaySpeed();
    }
    double speed = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, speed, std::chars_format::fixed);
    if (error != std::errc() || rest != end || !(speed >= kSlowestReplay && speed <= kFastestReplay)) {
        return std::nullopt;
    }
    return ReplaySpeed(speed);
}

CLI::Validator speed_validator() {
    return {[](const std::string& text) {
                return parse_speed(text) ? std::string()
                                         : "\"" + text + "\" is neither a number from 0.001 to 1000000 nor max";
            },
            "X|max"};
}

// A command travels as one line.
CLI::Validator word_validator() {
    return {[](const std::string& text) {
                const bool is_plain = std::ranges::none_of(text, [](char character) {
                    return character >= 0 && (character < ' ' || character == 127);
                });
                return is_plain ? std::string() : "a word has no control characters";
            },
            ""};
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

void add_replay(CLI::App& command, RunOptions& options, std::string& speed) {
    CLI::Option* const file = command.add_option(
        "--replay", options.replay, "Capture (.pcap or .bin) that the card forwards whenever that is opened");
    command.add_option("--replay-speed", speed, "How many times as fast as recorded, 1 if not given")
        ->check(speed_validator())
        ->needs(file);
    command.add_flag("--replay-repeat", options.replay_repeat, "Begin again when the capture is over")
        ->needs(file);
}

CLI::App* add_run(CLI::App& program, RunOptions& options, std::string& rate, std::string& speed) {
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
    add_replay(*command, options, speed);
    return command;
}

CLI::App* add_status(CLI::App& program, StatusOptions& options) {
    CLI::App* const command = program.add_subcommand("status", "Show a card and what its channels received");
    add_card(*command, options.card);
    command->add_flag("--json", options.json, "As JSON");
    return command;
}

CLI::App* add_tell(CLI::App& program, TellOptions& options, std::vector<std::string>& words) {
    CLI::App* const command = program.add_subcommand(
        "tell", "Tell the program that powers a card to do something; \"help\" lists what");
    add_card(*command, options.card);
    add_seconds(*command, "--wait", "Seconds to wait for the answer, 10 if not given",
                [&options](std::chrono::seconds seconds) { options.patience = seconds; });
    command->add_option("words", words, "What to do")->required()->check(word_validator());
    return command;
}

Command tell_command(TellOptions options, const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        options.command += (options.command.empty() ? "" : " ") + word;
    }
    if (options.command.size() > sim::kLongestCommand) {
        return Answer{kExitRefused,
                      "words: longer than " + std::to_string(sim::kLongestCommand) + " characters\n"};
    }
    return options;
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
    TellOptions tell;
    OffOptions off;
    std::string rate;
    std::string speed = "1";
    std::vector<std::string> words;
    CLI::App program("A simulated card, and the simulated exchange behind it", "kova-simcard");
    program.require_subcommand(1);
    const CLI::App* const run_command = add_run(program, run, rate, speed);
    const CLI::App* const status_command = add_status(program, status);
    const CLI::App* const tell_line = add_tell(program, tell, words);
    add_off(program, off);
    try {
        program.parse(argument_count, arguments);
    } catch (const CLI::ParseError& reason) {
        return answer_of(program, reason);
    }
    if (run_command->parsed()) {
        run.rate = parse_rate(rate);
        run.replay_speed = parse_speed(speed).value();
        return run;
    }
    if (status_command->parsed()) {
        return status;
    }
    if (tell_line->parsed()) {
        return tell_command(tell, words);
    }
    return off;
}

}  // namespace kova::app
