#include "kova_simcard/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kova::app {

namespace {

std::vector<std::string_view> words_of(std::string_view line) {
    std::vector<std::string_view> words;
    while (!line.empty()) {
        const std::size_t end = std::min(line.find(' '), line.size());
        if (end != 0) {
            words.push_back(line.substr(0, end));
        }
        line.remove_prefix(std::min(end + 1, line.size()));
    }
    return words;
}

}  // namespace

Commands::Commands() {
    commands_.push_back({.name = "help", .arguments = {}, .summary = "this list", .parser = {}});
}

void Commands::add(std::string name, std::string arguments, std::string summary, Parser parser) {
    commands_.push_back({std::move(name), std::move(arguments), std::move(summary), std::move(parser)});
}

sim::CommandReply Commands::perform(std::string_view line) const {
    const std::vector<std::string_view> words = words_of(line);
    try {
        return {.is_refused = false, .text = parse(words)()};
    } catch (const std::exception& reason) {
        return {.is_refused = true, .text = reason.what()};
    }
}

std::optional<std::string> Commands::fault_of(std::string_view line) const {
    try {
        static_cast<void>(parse(words_of(line)));
        return std::nullopt;
    } catch (const std::exception& reason) {
        return reason.what();
    }
}

Commands::Action Commands::parse(std::span<const std::string_view> words) const {
    const Command& command = find(words.empty() ? std::string_view() : words.front());
    // Only help has none: a copy of these commands must not show those of the original.
    return command.parser ? command.parser(words.subspan(1)) : [this] { return help(); };
}

const Commands::Command& Commands::find(std::string_view name) const {
    const auto found = std::ranges::find(commands_, name, &Command::name);
    if (found == commands_.end()) {
        throw CommandRefused(fmt::format("no such command: \"{}\"; help lists them", name));
    }
    return *found;
}

std::string Commands::help() const {
    constexpr std::size_t kGap = 2;
    std::size_t width = 0;
    for (const Command& command : commands_) {
        width = std::max(width, command.name.size() + 1 + command.arguments.size());
    }
    std::string text;
    for (const Command& command : commands_) {
        const std::string usage = command.name + " " + command.arguments;
        text += fmt::format("{}{:<{}}{}", text.empty() ? "" : "\n", usage, width + kGap, command.summary);
    }
    return text;
}

void serve(sim::CommandMailbox& mailbox, const Commands& commands) {
    if (const std::optional<std::string> line = sim::take_command(mailbox)) {
        sim::answer_command(mailbox, commands.perform(*line));
    }
}

}  // namespace kova::app
