#include "kova_simcard/off.h"

#include <fmt/format.h>

#include <cerrno>

#include "kova_simcard/clock.h"
#include "kova_simcard/exit_codes.h"
#include "kova_simcard/leftover.h"
#include "sim/card/attached_card.h"

namespace kova::app {

namespace {

constexpr std::int64_t kLookInterval = 5'000'000;

// The owner's lock goes last, behind the name.
bool waits_in_vain(const sim::CardMapping& card, std::chrono::nanoseconds patience) {
    MonotonicClock clock;
    const std::int64_t deadline = clock.now() + patience.count();
    while (sim::is_byte_locked(card.file(), sim::kOwnerLockByte)) {
        const std::int64_t now = clock.now();
        if (now >= deadline) {
            return true;
        }
        clock.sleep_until(now + kLookInterval);
    }
    return false;
}

int without_card(std::uint32_t card, int error) {
    if (error != ENODEV) {
        fmt::print(stderr, "card {}: {}\n", card, why_not_on(card, error));
        return kExitFailed;
    }
    if (remove_leftover(card)) {
        fmt::print("card {}: its program was killed; removed the memory that it left behind\n", card);
        return kExitDone;
    }
    fmt::print(stderr, "card {}: it is off already\n", card);
    return kExitFailed;
}

}  // namespace

int power_off(const OffOptions& options) {
    const sim::AttachedCard card = sim::attach(options.card);
    if (card == nullptr) {
        return without_card(options.card, errno);
    }
    sim::CardIdentity& identity = card->memory().identity;
    identity.power_off_wanted.store(1, std::memory_order_relaxed);
    if (waits_in_vain(*card, options.patience)) {
        fmt::print(stderr, "card {}: pid {} has not powered it off within {} s\n", options.card,
                   identity.owner_process, options.patience.count());
        return kExitFailed;
    }
    if (identity.power.load(std::memory_order_acquire) == sim::PowerState::kOn) {
        remove_leftover(options.card);
        fmt::print("card {}: its program was killed meanwhile; removed the memory that it left behind\n",
                   options.card);
        return kExitDone;
    }
    fmt::print("card {} is off\n", options.card);
    return kExitDone;
}

}  // namespace kova::app
