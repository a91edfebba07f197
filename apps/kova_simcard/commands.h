/** What the program that powers a card can be told to do while it runs. */
#ifndef KOVA_APPS_KOVA_SIMCARD_COMMANDS_H
#define KOVA_APPS_KOVA_SIMCARD_COMMANDS_H

#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "sim/card/mailbox.h"

namespace kova::app {

/** Thrown by a command that cannot be done; its text is the answer. */
class CommandRefused : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/**
 * The commands by their first word. "help" is always there.
 *
 *     commands.add("rate", "N|max", "quotes a second", [&](Commands::Words words) {
 *         const Rate rate = ...  // or CommandRefused
 *         return [&, rate] { ... return std::string("answer"); };
 *     });
 */
class Commands {
 public:
    /** The words behind the first one. */
    using Words = std::span<const std::string_view>;
    /** Does it and says what it did. Called, if at all, before the words go. */
    using Action = std::function<std::string()>;
    /** Makes out what the words ask for, or refuses; does nothing yet. */
    using Parser = std::function<Action(Words)>;

    Commands();

    /** `arguments` and `summary` are what help shows. */
    void add(std::string name, std::string arguments, std::string summary, Parser parser);

    /** Does what the line asks for, words separated by blanks. Throws nothing that a command throws. */
    [[nodiscard]] sim::CommandReply perform(std::string_view line) const;
    /** Why the line would be refused whenever it comes; nothing when it is up to the card then. */
    [[nodiscard]] std::optional<std::string> fault_of(std::string_view line) const;

 private:
    struct Command {
        std::string name;
        std::string arguments;
        std::string summary;
        Parser parser;
    };

    [[nodiscard]] Action parse(std::span<const std::string_view> words) const;
    [[nodiscard]] const Command& find(std::string_view name) const;
    [[nodiscard]] std::string help() const;

    std::vector<Command> commands_;
};

/** Does what stands in the mailbox, if anything does. */
void serve(sim::CommandMailbox& mailbox, const Commands& commands);

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_COMMANDS_H
