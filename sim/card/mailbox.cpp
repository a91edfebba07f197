#include "sim/card/mailbox.h"

#include <algorithm>

namespace kova::sim {

namespace {

template <std::size_t kCapacity>
void put(MailboxText<kCapacity>& place, std::string_view text) {
    const std::size_t size = std::min(text.size(), kCapacity);
    std::copy_n(text.data(), size, place.characters.data());
    place.size = static_cast<std::uint32_t>(size);
}

template <std::size_t kCapacity>
std::string text_in(const MailboxText<kCapacity>& place) {
    const std::size_t size = place.size;
    return {place.characters.data(), std::min(size, kCapacity)};
}

bool exchange(CommandMailbox& mailbox, MailboxState from, MailboxState to) {
    return mailbox.state.compare_exchange_strong(from, to, std::memory_order_acq_rel);
}

}  // namespace

bool post_command(CommandMailbox& mailbox, std::string_view text) {
    // What is still asked comes from a teller that has died.
    withdraw_command(mailbox);
    if (mailbox.state.load(std::memory_order_acquire) == MailboxState::kTaken) {
        return false;
    }
    put(mailbox.command, text);
    mailbox.state.store(MailboxState::kAsked, std::memory_order_release);
    return true;
}

std::optional<CommandReply> collect_reply(const CommandMailbox& mailbox) {
    const MailboxState state = mailbox.state.load(std::memory_order_acquire);
    if (state != MailboxState::kAnswered && state != MailboxState::kRefused) {
        return std::nullopt;
    }
    return CommandReply{.is_refused = state == MailboxState::kRefused, .text = text_in(mailbox.answer)};
}

bool withdraw_command(CommandMailbox& mailbox) {
    return exchange(mailbox, MailboxState::kAsked, MailboxState::kFree);
}

std::optional<std::string> take_command(CommandMailbox& mailbox) {
    if (!exchange(mailbox, MailboxState::kAsked, MailboxState::kTaken)) {
        return std::nullopt;
    }
    return text_in(mailbox.command);
}

void answer_command(CommandMailbox& mailbox, const CommandReply& reply) {
    put(mailbox.answer, reply.text);
    mailbox.state.store(reply.is_refused ? MailboxState::kRefused : MailboxState::kAnswered,
                        std::memory_order_release);
}

}  // namespace kova::sim
