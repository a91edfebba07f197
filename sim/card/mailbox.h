/**
 * How somebody tells the program that powers a card to do something: one line of text, and one answer to it.
 *
 * One teller uses the mailbox at a time, the one that holds the lock of kTellerLockByte, which the kernel takes
 * from a teller that dies. The state says whose turn it is, and each step of it is one word:
 *
 *     kFree -> kAsked -> kTaken -> kAnswered or kRefused
 *              post      take      answer
 *
 * A request counts once it stands there whole. One that the card has not taken can be withdrawn, by the teller
 * that has lost its patience or by the next one when the teller has died; one that it has taken runs to its
 * end.
 */
#ifndef KOVA_SIM_CARD_MAILBOX_H
#define KOVA_SIM_CARD_MAILBOX_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kova::sim {

inline constexpr std::size_t kLongestCommand = 1024;
/** What is longer is cut. */
inline constexpr std::size_t kLongestAnswer = 4096;

enum class MailboxState : std::uint32_t { kFree = 0, kAsked = 1, kTaken = 2, kAnswered = 3, kRefused = 4 };

/** A text that another process may have written: its size means nothing until it has been bounded. */
template <std::size_t kCapacity>
struct MailboxText {
    std::uint32_t size;
    std::array<char, kCapacity> characters;
};

/** Lies in the card's memory; zeroed memory is a free one. */
struct CommandMailbox {
    std::atomic<MailboxState> state;
    MailboxText<kLongestCommand> command;
    MailboxText<kLongestAnswer> answer;
};

static_assert(std::atomic<MailboxState>::is_always_lock_free);

struct CommandReply {
    bool is_refused = false;
    std::string text;

    friend bool operator==(const CommandReply&, const CommandReply&) = default;
};

// The teller's side. It holds the lock meanwhile.

/** Asks, at most kLongestCommand characters. False while the card is still busy with an earlier request. */
[[nodiscard]] bool post_command(CommandMailbox& mailbox, std::string_view text);
/** The answer to what was asked, once there is one. */
[[nodiscard]] std::optional<CommandReply> collect_reply(const CommandMailbox& mailbox);
/** Takes the request back; false when the card has taken it already. */
bool withdraw_command(CommandMailbox& mailbox);

// The side of the program that powers the card.

/** The request that waits, if there is one; it has to be answered. */
[[nodiscard]] std::optional<std::string> take_command(CommandMailbox& mailbox);
void answer_command(CommandMailbox& mailbox, const CommandReply& reply);

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_MAILBOX_H
