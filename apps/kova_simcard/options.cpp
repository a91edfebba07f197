#include "kova_simcard/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <sstream>
#include <string_view>
#include <vector>

#include "kova_simcard/card_values.h"
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

CLI::Validator delay_validator() {
    return {[](const std::string& text) {
                return parse_memory_delay(text)
                           ? std::string()
                           : "\"" + text + "\" is neither seconds from 0 to 3600 nor never";
            },
            "S|never"};
}

CLI::Validator word_of_32_bits_validator() {
    return {[](const std::string& text) {
                return parse_hexadecimal(text) ? std::string()
                                               : "\"" + text + "\" is no hexadecimal number of 32 bits";
            },
            "0xYYYYMMDD"};
}

CLI::Validator version_validator() {
    return {[](const std::string& text) {
                return parse_software_version(text) ? std::string()
                                                    : "\"" + text + "\" is no version as 1.1.1.33";
            },
            "A.B.C.D"};
}

template <typename Store>
void add_seconds(CLI::App& command, const char* name, const char* help, Store store) {
    const auto take = [store](const std::uint32_t& value) { store(std::chrono::seconds(value)); };
    command.add_option_function<std::uint32_t>(name, take, help)->type_name("UINT");
}

// Values of the run command that are no plain numbers.
struct RunTexts {
    std::string rate;
    std::string snapshot_rate;
    std::string replay_speed = "1";
    std::string memory;
    std::string hardware_version;
    std::string least_software;
};

void add_replay(CLI::App& command, RunOptions& options, std::string& speed) {
    CLI::Option* const file = command.add_option(
        "--replay", options.replay, "Capture (.pcap or .bin) that the card forwards whenever that is opened");
    command.add_option("--replay-speed", speed, "How many times as fast as recorded, 1 if not given")
        ->check(speed_validator())
        ->needs(file);
    command.add_flag("--replay-repeat", options.replay_repeat, "Begin again when the capture is over")
        ->needs(file);
}

void add_card_properties(CLI::App& command, RunTexts& texts) {
    command
        .add_option(
            "--memory", texts.memory,
            "Seconds from an initialisation until the card's memory is ready, instead of the scenario's")
        ->check(delay_validator());
    command
        .add_option("--hardware-version", texts.hardware_version, "What the card says of its version, 20260420")
        ->check(word_of_32_bits_validator());
    command.add_option("--least-software", texts.least_software, "Oldest software that it accepts, 1.1.1.33")
        ->check(version_validator());
}

// What the validators have let through.
void take_texts(RunOptions& options, const RunTexts& texts) {
    options.rate = parse_rate(texts.rate);
    options.snapshot_rate = parse_rate(texts.snapshot_rate);
    options.replay_speed = parse_speed(texts.replay_speed).value();
    options.memory_delay = parse_memory_delay(texts.memory);
    options.hardware_version = parse_hexadecimal(texts.hardware_version).value_or(options.hardware_version);
    options.least_software = parse_software_version(texts.least_software).value_or(options.least_software);
}

CLI::App* add_run(CLI::App& program, RunOptions& options, RunTexts& texts) {
    CLI::App* const command =
        program.add_subcommand("run", "Power a card and let the simulated exchange send, until told to stop");
    add_card(*command, options.card);
    command->add_flag("--prepared", options.prepared,
                      "Fill the contract tables, subscribe the scenario's channels and start the cores");
    command->add_option("--scenario", options.scenario, "Scenario file; without one the default scenario");
    command->add_option("--rate", texts.rate, "Quotes a second, instead of the scenario's")
        ->check(rate_validator());
    command
        ->add_option("--snapshot-rate", texts.snapshot_rate,
                     "Frames of snapshots a second, instead of the scenario's")
        ->check(rate_validator());
    add_seconds(*command, "--seconds", "Seconds of traffic, instead of the scenario's; 0 is endless",
                [&options](std::chrono::seconds seconds) { options.seconds = seconds; });
    command->add_option("--slots-log2", options.slots_log2, "Slots of each channel's ring, as a power of two")
        ->capture_default_str();
    command->add_flag("--quiet", options.quiet, "No progress");
    add_card_properties(*command, texts);
    add_replay(*command, options, texts.replay_speed);
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
    RunTexts run_texts;
    std::vector<std::string> words;
    CLI::App program("A simulated card, and the simulated exchange behind it", "kova-simcard");
    program.require_subcommand(1);
    const CLI::App* const run_command = add_run(program, run, run_texts);
    const CLI::App* const status_command = add_status(program, status);
    const CLI::App* const tell_line = add_tell(program, tell, words);
    add_off(program, off);
    try {
        program.parse(argument_count, arguments);
    } catch (const CLI::ParseError& reason) {
        return answer_of(program, reason);
    }
    if (run_command->parsed()) {
        take_texts(run, run_texts);
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
