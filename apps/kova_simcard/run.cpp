#include "kova_simcard/run.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <optional>

#include "kova_simcard/clock.h"
#include "kova_simcard/exit_codes.h"
#include "kova_simcard/prepare.h"
#include "kova_simcard/progress.h"
#include "kova_simcard/traffic.h"
#include "sim/exchange/listing.h"
#include "sim/exchange/market.h"
#include "sim/exchange/scenario.h"

namespace kova::app {

namespace {

constexpr std::int64_t kHousekeepingInterval = 50'000'000;

volatile std::sig_atomic_t stop_signal = 0;

void note_stop_signal(int signal) {
    stop_signal = signal;
}

// A signal ends a sleep at once; one that arrives just before a sleep waits for the next housekeeping.
void watch_stop_signals() {
    struct sigaction action {};
    action.sa_handler = note_stop_signal;
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
}

sim::Scenario scenario_of(const RunOptions& options) {
    sim::Scenario scenario =
        options.scenario ? sim::Scenario::load(*options.scenario) : sim::Scenario::defaults();
    scenario.rate = options.rate.value_or(scenario.rate);
    if (options.seconds) {
        scenario.duration = *options.seconds;
    }
    return scenario;
}

// A card that is not prepared is subscribed by its clients, to whatever they like.
sim::MarketOptions market_options_of(const RunOptions& options, const sim::Scenario& scenario,
                                     const sim::Selection& selection) {
    sim::MarketOptions market = sim::market_options(scenario, selection);
    if (!options.prepared) {
        market.moving.clear();
    }
    return market;
}

void warn_of_unmatched(const RunOptions& options, const sim::Selection& selection) {
    for (const sim::UnmatchedEntry& unmatched : selection.unmatched) {
        fmt::print(stderr, "{}:{}: no instrument of this listing answers to \"{}\"\n",
                   options.scenario ? options.scenario->string() : "default", unmatched.entry.line,
                   unmatched.entry.text);
    }
}

std::string rate_text(sim::Rate rate) {
    return rate ? fmt::format("{} quotes/s", *rate) : "quotes as fast as they go";
}

std::string start_text(const sim::Card& card, const RunOptions& options, const sim::Scenario& scenario,
                       const sim::Listing& listing) {
    return fmt::format(
        "card {} is on (pid {}): {} SHFE and {} INE instruments, scenario \"{}\", {}{}{}", card.index(),
        getpid(), listing.count(SHFE_2PS), listing.count(INE_2PS), scenario.name, rate_text(scenario.rate),
        scenario.duration.count() == 0
            ? std::string()
            : fmt::format(" for {:g} s", std::chrono::duration<double>(scenario.duration).count()),
        options.prepared ? ", prepared" : "");
}

std::uint32_t channels_open(const sim::Card& card) {
    const auto& channels = card.memory().channels;
    return static_cast<std::uint32_t>(std::ranges::count_if(channels, [](const sim::ChannelStreams& streams) {
        return streams.card_to_host.reader.load(std::memory_order_relaxed) != 0;
    }));
}

ProgressSample sample_of(const sim::Card& card, const Traffic& traffic, std::int64_t now) {
    return {.now = now,
            .elapsed = traffic.elapsed(),
            .traffic = traffic.state(),
            .totals = traffic.totals(),
            .channels_open = channels_open(card)};
}

// Until the card is to be powered off; who wants that.
std::string_view keep_on(sim::Card& card, Traffic& traffic, Clock& clock, Progress& progress) {
    std::int64_t housekeeping = clock.now();
    for (;;) {
        const std::int64_t now = clock.now();
        traffic.step(now);
        if (now >= housekeeping) {
            housekeeping = now + kHousekeepingInterval;
            card.close_streams_of_dead_readers();
            progress.update(sample_of(card, traffic, now));
            if (card.is_power_off_wanted()) {
                return "as asked";
            }
        }
        if (stop_signal != 0) {
            return "by a signal";
        }
        const std::int64_t next = std::min(traffic.next(), housekeeping);
        if (next > now) {
            clock.sleep_until(next);
        }
    }
}

void power(const RunOptions& options, const sim::Scenario& scenario) {
    const sim::Listing listing = sim::Listing::make(scenario.listing);
    const sim::Selection selection = sim::select(scenario, listing);
    warn_of_unmatched(options, selection);
    sim::Market market(listing, market_options_of(options, scenario, selection));
    Progress progress(stdout, progress_kind(stdout, options.quiet));
    std::optional<sim::Card> card = sim::Card::power_on(options.card, {.slots_log2 = options.slots_log2});
    if (card->replaced_leftover()) {
        progress.tell(fmt::format("card {}: replaced the memory of a card that had died", options.card));
    }
    if (options.prepared) {
        prepare(*card, market, selection);
    }
    progress.tell(start_text(*card, options, scenario, listing));
    MonotonicClock clock;
    Traffic traffic(*card, market,
                    {.rate = scenario.rate,
                     .start_delay = scenario.start_delay,
                     .duration = scenario.duration,
                     .open_time = scenario.open_time});
    const std::string_view reason = keep_on(*card, traffic, clock, progress);
    const ProgressSample last = sample_of(*card, traffic, clock.now());
    card.reset();
    progress.end(last, fmt::format("card {} is off {}", options.card, reason));
}

}  // namespace

int run(const RunOptions& options) {
    watch_stop_signals();
    try {
        power(options, scenario_of(options));
        return kExitDone;
    } catch (const sim::ScenarioError& error) {
        fmt::print(stderr, "{}\n", error.what());
        return kExitRefused;
    } catch (const std::invalid_argument& error) {
        fmt::print(stderr, "{}: {}\n", options.scenario ? options.scenario->string() : "default", error.what());
        return kExitRefused;
    } catch (const std::exception& error) {
        fmt::print(stderr, "{}\n", error.what());
        return kExitFailed;
    }
}

}  // namespace kova::app
