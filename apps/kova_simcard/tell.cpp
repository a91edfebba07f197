#include "kova_simcard/tell.h"

#include <fmt/format.h>

#include <cerrno>
#include <optional>

#include "kova_simcard/exit_codes.h"
#include "kova_simcard/leftover.h"
#include "sim/card/attached_card.h"

namespace kova::app {

namespace {

constexpr std::int64_t kLookInterval = 2'000'000;

// The mailbox is this teller's while it lives.
class MailboxTurn {
 public:
    explicit MailboxTurn(int file) : file_(file) {}
    ~MailboxTurn() { sim::unlock_byte(file_, sim::kTellerLockByte); }
    MailboxTurn(const MailboxTurn&) = delete;
    MailboxTurn& operator=(const MailboxTurn&) = delete;

 private:
    int file_;
};

// Looks until there is what it looks for, the time is over or the card is off; whether it is there.
template <typename Look>
bool wait_for(const sim::CardMapping& card, std::int64_t deadline, Clock& clock, Look look) {
    while (!look()) {
        const std::int64_t now = clock.now();
        if (!card.is_powered()) {
            throw Unanswered("it was powered off meanwhile");
        }
        if (now >= deadline) {
            return false;
        }
        clock.sleep_until(now + kLookInterval);
    }
    return true;
}

}  // namespace

sim::CommandReply ask(const sim::CardMapping& card, std::string_view command, std::chrono::nanoseconds patience,
                      Clock& clock) {
    const std::int64_t deadline = clock.now() + patience.count();
    sim::CommandMailbox& mailbox = card.memory().mailbox;
    if (!wait_for(card, deadline, clock,
                  [&] { return sim::try_lock_byte(card.file(), sim::kTellerLockByte); })) {
        throw Unanswered("somebody else is telling it something all the time");
    }
    const MailboxTurn turn(card.file());
    if (!wait_for(card, deadline, clock, [&] { return sim::post_command(mailbox, command); })) {
        throw Unanswered("its program is busy with what somebody else has told it");
    }
    std::optional<sim::CommandReply> reply;
    const auto look = [&] { return (reply = sim::collect_reply(mailbox)).has_value(); };
    if (!wait_for(card, deadline, clock, look) && !sim::withdraw_command(mailbox) && !look()) {
        throw Unanswered("its program has begun to do it, but not answered");
    }
    if (!reply) {
        throw Unanswered("its program does not answer; it will not do it any more");
    }
    return *reply;
}

int tell(const TellOptions& options) {
    const sim::AttachedCard card = sim::attach(options.card);
    if (card == nullptr) {
        fmt::print(stderr, "card {}: {}\n", options.card, why_not_on(options.card, errno));
        return kExitFailed;
    }
    try {
        MonotonicClock clock;
        const sim::CommandReply reply = ask(*card, options.command, options.patience, clock);
        fmt::print(reply.is_refused ? stderr : stdout, "{}\n", reply.text);
        return reply.is_refused ? kExitFailed : kExitDone;
    } catch (const Unanswered& reason) {
        fmt::print(stderr, "card {}: {}\n", options.card, reason.what());
        return kExitFailed;
    }
}

}  // namespace kova::app
