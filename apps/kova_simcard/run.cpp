#include "kova_simcard/run.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <ctime>
#include <exception>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "kova_simcard/clock.h"
#include "kova_simcard/commands.h"
#include "kova_simcard/exit_codes.h"
#include "kova_simcard/output.h"
#include "kova_simcard/prepare.h"
#include "kova_simcard/progress.h"
#include "kova_simcard/rate.h"
#include "kova_simcard/replay.h"
#include "kova_simcard/run_commands.h"
#include "kova_simcard/schedule.h"
#include "kova_simcard/snapshot_sender.h"
#include "kova_simcard/traffic.h"
#include "sim/capture/capture_file.h"
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
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
        sigaction(signal, &action, nullptr);
    }
}

sim::Scenario scenario_of(const RunOptions& options) {
    sim::Scenario scenario =
        options.scenario ? sim::Scenario::load(*options.scenario) : sim::Scenario::defaults();
    scenario.rate = options.rate.value_or(scenario.rate);
    scenario.snapshot_rate = options.snapshot_rate.value_or(scenario.snapshot_rate);
    if (options.seconds) {
        scenario.duration = *options.seconds;
    }
    return scenario;
}

sim::MemoryDelay memory_delay_of(const RunOptions& options, const sim::Scenario& scenario) {
    if (options.memory_delay) {
        return *options.memory_delay;
    }
    return scenario.card_memory ? sim::MemoryDelay(*scenario.card_memory) : sim::CardOptions{}.memory_delay;
}

sim::CardOptions card_options_of(const RunOptions& options, const sim::Scenario& scenario) {
    return {.slots_log2 = options.slots_log2,
            .memory_delay = memory_delay_of(options, scenario),
            .hardware_version = options.hardware_version,
            .least_software = options.least_software};
}

// The exchange's clock is the local one of its readers, who look whether the market has a break.
std::int64_t midnight_of(const std::chrono::year_month_day& date) {
    constexpr int kFirstYear = 1900;
    std::tm day{};
    day.tm_year = static_cast<int>(date.year()) - kFirstYear;
    day.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
    day.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
    day.tm_isdst = -1;
    return std::mktime(&day);
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
        write_text(stderr, fmt::format("{}:{}: no instrument of this listing answers to \"{}\"\n",
                                       options.scenario ? options.scenario->string() : "default",
                                       unmatched.entry.line, unmatched.entry.text));
    }
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

using FrameSenders = std::vector<std::unique_ptr<FrameSender>>;

// What goes on while the card is on.
struct Operation {
    sim::Card& card;
    Traffic& traffic;
    const sim::Market& market;
    const FrameSenders& frame_senders;
    const Commands& commands;
    Schedule& schedule;
    Progress& progress;
};

// Sends what is due; when there is more to do.
std::int64_t step(const Operation& operation, std::int64_t now) {
    operation.card.tick(now);
    operation.traffic.step(now);
    std::int64_t next = operation.traffic.next();
    for (const auto& sender : operation.frame_senders) {
        sender->step(now);
        next = std::min(next, sender->next());
    }
    return next;
}

void tell_news(const Operation& operation, const std::vector<News>& all_news) {
    for (const News& news : all_news) {
        if (news.is_error) {
            write_text(stderr, fmt::format("{}\n", news.text));
        } else {
            operation.progress.tell(news.text);
        }
    }
}

void tell_news(const Operation& operation) {
    for (const auto& sender : operation.frame_senders) {
        tell_news(operation, sender->take_news());
    }
}

void keep_house(const Operation& operation, std::int64_t now) {
    operation.card.close_streams_of_dead_readers();
    serve(operation.card.memory().mailbox, operation.commands);
    tell_news(operation, operation.schedule.step(now, operation.market.time(), operation.commands));
    tell_news(operation);
    operation.progress.update(sample_of(operation.card, operation.traffic, now));
}

// Until the card is to be powered off; who wants that.
std::string_view keep_on(const Operation& operation, Clock& clock) {
    std::int64_t housekeeping = clock.now();
    for (;;) {
        const std::int64_t now = clock.now();
        if (now >= housekeeping) {
            housekeeping = now + kHousekeepingInterval;
            keep_house(operation, now);
            if (operation.card.is_power_off_wanted()) {
                return "as asked";
            }
        }
        const std::int64_t due = step(operation, now);
        if (stop_signal != 0) {
            return "by a signal";
        }
        const std::int64_t next = std::min(due, housekeeping);
        if (next > now) {
            clock.sleep_until(next);
        }
    }
}

// Reads the capture whole, so that a damaged one is refused before a card is powered. Null without one.
std::unique_ptr<sim::CaptureFile> capture_of(const RunOptions& options) {
    if (!options.replay) {
        return nullptr;
    }
    auto capture = sim::open_capture(*options.replay);
    const sim::CaptureSummary summary = sim::check(*capture);
    if (summary.records == 0) {
        throw sim::CaptureError(
            fmt::format("{}: nothing of the snapshot stream is in it ({} messages of another kind)",
                        options.replay->string(), summary.skipped));
    }
    return capture;
}

std::unique_ptr<Replay> replay_of(const RunOptions& options, sim::Card& card,
                                  std::unique_ptr<sim::CaptureFile> capture) {
    return std::make_unique<Replay>(
        card, std::move(capture),
        ReplayPlan{
            .name = options.replay->string(), .speed = options.replay_speed, .repeat = options.replay_repeat});
}

void add_card_commands(Commands& commands, sim::Card& card) {
    add_event_command(commands, card);
    add_feed_command(commands, card);
    add_memory_command(commands, card);
    add_register_command(commands, card);
    add_power_cycle_command(commands, card);
}

TrafficPlan traffic_plan_of(const sim::Scenario& scenario) {
    return {.rate = scenario.rate,
            .start_delay = scenario.start_delay,
            .duration = scenario.duration,
            .open_time = scenario.open_time,
            .midnight = midnight_of(scenario.listing.date)};
}

// What is sent through a card, and what that and the card can be told.
struct Exchange {
    // Without a capture the snapshots are the exchange's own, unless they are to be replayed.
    Exchange(const RunOptions& options, const sim::Scenario& scenario, const sim::Selection& selection,
             sim::Market& market, sim::Card& card, std::unique_ptr<sim::CaptureFile> capture)
        : traffic(card, market, traffic_plan_of(scenario)) {
        add_rate_command(commands, traffic);
        add_card_commands(commands, card);
        if (capture != nullptr) {
            frame_senders.push_back(replay_of(options, card, std::move(capture)));
        } else if (!options.replay) {
            auto sender =
                std::make_unique<SnapshotSender>(card, market,
                                                 SnapshotPlan{.rate = scenario.snapshot_rate,
                                                              .snapshot = snapshot_options(scenario, selection),
                                                              .impairments = scenario.impairments});
            add_snapshot_commands(commands, *sender);
            frame_senders.push_back(std::move(sender));
        }
    }

    Traffic traffic;
    FrameSenders frame_senders;
    Commands commands;
};

// Refuses events that tell what could never be done, on a card that nobody sees: hours may pass until they are
// due.
void check_events(const RunOptions& options, const sim::Scenario& scenario, const sim::Selection& selection,
                  sim::Market& market) {
    constexpr std::uint32_t kFewSlots = 6;
    sim::Card card = sim::Card::power_on_privately(options.card, {.slots_log2 = kFewSlots});
    const Exchange exchange(options, scenario, selection, market, card, nullptr);
    for (const sim::ScheduledEvent& event : scenario.events) {
        if (const std::optional<std::string> fault = exchange.commands.fault_of(event.command)) {
            throw sim::ScenarioError(scenario.name, event.line,
                                     fmt::format("tell \"{}\": {}", event.command, *fault));
        }
    }
}

// Lets the exchange send through a card that is on, until it is to be powered off.
void operate(const RunOptions& options, const sim::Scenario& scenario, sim::Market& market, Exchange& exchange,
             std::optional<sim::Card>& card, Progress& progress) {
    MonotonicClock clock;
    Schedule schedule(scenario.events);
    const Operation operation{*card,    exchange.traffic, market, exchange.frame_senders, exchange.commands,
                              schedule, progress};
    const std::string_view reason = keep_on(operation, clock);
    tell_news(operation);
    const ProgressSample last = sample_of(*card, exchange.traffic, clock.now());
    card.reset();
    progress.end(last, fmt::format("card {} is off {}", options.card, reason));
}

void power(const RunOptions& options, const sim::Scenario& scenario) {
    std::unique_ptr<sim::CaptureFile> capture = capture_of(options);
    const sim::Listing listing = sim::Listing::make(scenario.listing);
    const sim::Selection selection = sim::select(scenario, listing);
    warn_of_unmatched(options, selection);
    sim::Market market(listing, market_options_of(options, scenario, selection));
    check_events(options, scenario, selection, market);
    Progress progress(stdout, progress_kind(stdout, options.quiet));
    std::optional<sim::Card> card = sim::Card::power_on(options.card, card_options_of(options, scenario));
    if (card->replaced_leftover()) {
        progress.tell(fmt::format("card {}: replaced the memory of a card that had died", options.card));
    }
    if (options.prepared) {
        prepare(*card, market, selection);
    }
    progress.tell(start_text(*card, options, scenario, listing));
    Exchange exchange(options, scenario, selection, market, *card, std::move(capture));
    operate(options, scenario, market, exchange, card, progress);
}

}  // namespace

int run(const RunOptions& options) {
    watch_stop_signals();
    try {
        power(options, scenario_of(options));
        return kExitDone;
    } catch (const sim::ScenarioError& error) {
        write_text(stderr, fmt::format("{}\n", error.what()));
        return kExitRefused;
    } catch (const sim::CaptureError& error) {
        write_text(stderr, fmt::format("{}\n", error.what()));
        return kExitRefused;
    } catch (const std::invalid_argument& error) {
        write_text(stderr, fmt::format("{}: {}\n", options.scenario ? options.scenario->string() : "default",
                                       error.what()));
        return kExitRefused;
    } catch (const std::exception& error) {
        write_text(stderr, fmt::format("{}\n", error.what()));
        return kExitFailed;
    }
}

}  // namespace kova::app
