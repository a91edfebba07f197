// A trading day from morning to night, in fast time: started before the market opens, its breaks, a lost packet
// in the afternoon, channel 0's process started anew in the night session.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "sim/card/attached_card.h"
#include "sim/card/registers.h"
#include "sim/exchange/listing.h"
#include "sim/exchange/market.h"
#include "support/card_index.h"
#include "support/fast_clock.h"
#include "support/own_day.h"
#include "support/process.h"
#include "support/receiver.h"
#include "support/simcard.h"
#include "wire/RegisterMap.h"

namespace kova::test {
namespace {

using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using ::testing::HasSubstr;

constexpr std::uint32_t kShfe = 16;
constexpr std::uint32_t kIne = 8;

// A minute of the local day and some seconds, so that nothing hangs on a second more or less.
constexpr seconds at(int hour, int minute) {
    return hours(hour) + minutes(minute) + seconds(20);
}

// The exchange opens at nine, ten minutes after the card was powered.
std::string scenario(const OwnDay& day) {
    return "date = " + day.text() +
           "\nseed = 7\nrate = 1\nopen_time = 09:00:00\nstart_delay = 600\n"
           "listing = { shfe = 16, ine = 8 }\ncard = { memory = 0 }\n";
}

constexpr const char* kManager =
    "shfe2ps=enabled\nine2ps=enabled\n"
    "[channel0]\ninsts=all\noptions=recv\n[channel1]\ninsts=all\noptions=recv\n";

std::vector<std::string> fields_of(const std::string& line) {
    std::istringstream rest(line);
    std::vector<std::string> fields;
    for (std::string field; std::getline(rest, field, ',');) {
        fields.push_back(field);
    }
    return fields;
}

int occurrences(const std::string& text, const std::string& part) {
    int count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

// What moves of an instrument in the course of the day.
struct State {
    std::uint64_t change = 0;
    std::uint64_t open_interest = 0;
    std::int64_t last_price = 0;
    std::uint64_t turnover = 0;
    std::uint64_t volume = 0;
    friend bool operator==(const State&, const State&) = default;
};

void PrintTo(const State& state, std::ostream* stream) {
    *stream << state.change << ',' << state.open_interest << ',' << state.last_price << ',' << state.turnover
            << ',' << state.volume;
}

// The library rounds prices of the snapshot by adding half a hundredth and cutting off the rest, so that those
// below zero, which only trade-at-settlement instruments have, come out one hundredth too high.
std::int64_t as_in_snapshot(std::int64_t price) {
    return price < 0 ? price + 1 : price;
}

// Of each instrument, by its change numbers.
using History = std::map<std::string, std::map<std::uint64_t, State>>;

// As the quotes of a receiver tell it, behind the opening.
History history_of(const Receiver& receiver, const std::map<std::string, State>& opening) {
    const std::vector<std::string> ids = receiver.column("inst_id");
    const std::vector<std::string> changes = receiver.column("change_no");
    const std::vector<std::string> interests = receiver.column("open_interest");
    const std::vector<std::string> prices = receiver.column("last_px");
    const std::vector<std::string> turnovers = receiver.column("turnover");
    const std::vector<std::string> volumes = receiver.column("volume");
    History history;
    for (const auto& [id, state] : opening) {
        history[id][state.change] = state;
    }
    for (std::size_t i = 0; i < volumes.size(); ++i) {
        const State state{.change = std::stoull(changes[i]),
                          .open_interest = std::stoull(interests[i]),
                          .last_price = as_in_snapshot(std::stoll(prices[i])),
                          .turnover = std::stoull(turnovers[i]),
                          .volume = std::stoull(volumes[i])};
        history[ids[i]][state.change] = state;
    }
    return history;
}

// As an instrument file tells it; checks everything in it that stays the same all day against the listing.
std::map<std::string, State> states_of(const std::vector<std::string>& lines, const sim::Listing& listing) {
    std::map<std::string, State> states;
    EXPECT_EQ(lines.size(), 1U + kShfe + kIne);
    EXPECT_EQ(lines.empty() ? "" : lines[0],
              "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,"
              "codec_price,vol_multiple,upper_limit_price,lower_limit_price");
    for (std::size_t i = 1; i < lines.size(); ++i) {
        const sim::Instrument& listed = listing.instruments()[i - 1];
        const std::vector<std::string> fields = fields_of(lines[i]);
        EXPECT_EQ(fields.size(), 12U) << lines[i];
        if (fields.size() != 12) {
            continue;
        }
        EXPECT_EQ(fields[0], std::to_string(listed.ref.inst_no));
        EXPECT_EQ(fields[1], listed.id());
        EXPECT_EQ(fields[7], std::to_string(listed.tick)) << lines[i];
        EXPECT_EQ(fields[8], std::to_string(listed.codec_price)) << lines[i];
        EXPECT_EQ(fields[9], std::to_string(listed.multiplier)) << lines[i];
        EXPECT_EQ(fields[10], std::to_string(as_in_snapshot(listed.upper_limit))) << lines[i];
        EXPECT_EQ(fields[11], std::to_string(as_in_snapshot(listed.lower_limit))) << lines[i];
        states[fields[1]] = {.change = std::stoull(fields[2]),
                             .open_interest = std::stoull(fields[3]),
                             .last_price = std::stoll(fields[4]),
                             .turnover = std::stoull(fields[5]),
                             .volume = std::stoull(fields[6])};
    }
    return states;
}

class WholeDay : public ::testing::Test {
 protected:
    void tell(const std::vector<std::string>& words) const {
        Process process = simcard_command("tell", card_.card(), words);
        ASSERT_EQ(process.exit_code(), 0) << process.error();
    }

    [[nodiscard]] sim::CardMemory& memory() {
        if (attached_ == nullptr) {
            attached_ = sim::attach(card_.card());
        }
        return attached_->memory();
    }

    // When the newest quote came, by the exchange's clock.
    [[nodiscard]] std::chrono::sys_seconds newest_quote() {
        std::uint64_t newest = 0;
        for (std::uint32_t feed = 0; feed < 4; ++feed) {
            newest = std::max(newest, sim::read_register(memory(), REG_LAST_UPDATE_TIME + feed));
        }
        return std::chrono::sys_seconds(seconds(newest));
    }

    // The day goes on until then, half an hour at most at a time.
    void go_to(seconds since_midnight) {
        const std::chrono::sys_seconds end = day_.at(since_midnight);
        ASSERT_GT(end, clock_.now());
        while (clock_.now() < end) {
            clock_.pass(std::min<FastClock::Nanoseconds>(end - clock_.now(), minutes(30)));
            const auto now = std::chrono::floor<seconds>(clock_.now());
            if (is_market_open_) {
                ASSERT_TRUE(eventually([&] { return newest_quote() >= now - seconds(5); }));
            }
        }
    }

    void open_market() {
        tell({"feed", "start", "shfe2ps"});
        tell({"feed", "start", "ine2ps"});
        is_market_open_ = true;
    }

    void close_market() {
        tell({"feed", "stop", "shfe2ps"});
        tell({"feed", "stop", "ine2ps"});
        is_market_open_ = false;
    }

    // From `begin` on no quotes come, which the card tells three minutes later, lane by lane. The library knows
    // from the time of the newest quote that this is a break.
    void take_break(int hour, int minute) {
        go_to(at(hour, minute));
        close_market();
        go_to(at(hour, minute + 3));
        const std::string minute_told = "ts[" + std::to_string(hour % 24) + "," + std::to_string(minute) + "]";
        const std::string told = "received pkt timeout event, ignore. event_data0=";
        const int before = occurrences(log(), told);
        tell({"event", "timeout", "shfe2ps"});
        tell({"event", "timeout", "ine2ps"});
        ASSERT_TRUE(eventually([&] { return occurrences(log(), told) == before + 2; })) << log();
        EXPECT_EQ(occurrences(log(), minute_told), 2) << log();
    }

    [[nodiscard]] bool is_up(std::uint64_t openings) {
        return memory().forwarding.openings.load() == openings &&
               sim::is_core_started(memory().registers, SHFE_2PS) &&
               sim::is_core_started(memory().registers, SHFE_4PS);
    }

    [[nodiscard]] bool quotes_go_on() {
        const auto taken = [this](std::uint32_t channel) {
            return memory().channels[channel].card_to_host.taken.load();
        };
        const std::uint64_t before0 = taken(0);
        const std::uint64_t before1 = taken(1);
        return clock_.eventually([&] { return taken(0) >= before0 + 5 && taken(1) >= before1 + 5; });
    }

    [[nodiscard]] std::string log() { return manager_->process().error(); }

    // As the market opens every instrument.
    [[nodiscard]] std::map<std::string, State> opening() const {
        const sim::Market market(listing_, {.seed = 7});
        std::map<std::string, State> states;
        for (const sim::Instrument& instrument : listing_.instruments()) {
            const KovaShfeMdType& opened = market.state(instrument.ref);
            states[std::string(instrument.id())] = {
                .change = opened.change_no,
                .open_interest = static_cast<std::uint64_t>(opened.open_interest),
                .last_price = as_in_snapshot(opened.last_px),
                .turnover = static_cast<std::uint64_t>(opened.turnover),
                .volume = opened.volume};
        }
        return states;
    }

    // Each row of a file is how the instrument stood when its snapshot was taken: as the quote of the same
    // change number where that was delivered, else between the quotes before and after.
    void expect_in_history(const std::map<std::string, State>& states, const History& history) {
        int found = 0;
        for (const auto& [id, state] : states) {
            SCOPED_TRACE(id);
            const auto instrument = history.find(id);
            ASSERT_NE(instrument, history.end());
            const auto after = instrument->second.upper_bound(state.change);
            ASSERT_NE(after, instrument->second.begin());
            const State& before = std::prev(after)->second;
            if (before.change == state.change) {
                EXPECT_EQ(state, before);
                ++found;
            }
            EXPECT_GE(state.volume, before.volume);
            EXPECT_GE(state.turnover, before.turnover);
            if (after != instrument->second.end()) {
                EXPECT_LE(state.volume, after->second.volume);
                EXPECT_LE(state.turnover, after->second.turnover);
            }
        }
        EXPECT_GE(found, 3);
    }

    OwnDay day_;
    FastClock clock_{day_.at(hours(8) + minutes(50))};
    ScenarioFile scenario_{scenario(day_)};
    sim::Listing listing_ = sim::Listing::make({.seed = 7, .date = day_.date(), .shfe = kShfe, .ine = kIne});
    Simcard card_{own_card(), {"--scenario", scenario_.path()}};
    sim::AttachedCard attached_;
    std::optional<Receiver> other_;
    std::optional<Receiver> manager_;
    bool is_market_open_ = false;
};

TEST_F(WholeDay, IsLivedThroughFromMorningToNight) {
    ASSERT_TRUE(card_.wait_until_on()) << card_.process().error();
    other_.emplace(card_.card(), 1);
    manager_.emplace(card_.card(), 0, std::vector<std::string>{}, kManager);
    ASSERT_TRUE(clock_.eventually([&] { return is_up(1); })) << log();
    EXPECT_EQ(states_of(lines_of(day_.morning_file()), listing_), opening());

    go_to(at(9, 0));
    is_market_open_ = true;
    ASSERT_TRUE(quotes_go_on());
    take_break(10, 15);
    go_to(at(10, 30));
    open_market();
    take_break(11, 30);
    go_to(at(13, 30));
    open_market();
    ASSERT_TRUE(quotes_go_on());
    EXPECT_EQ(memory().forwarding.openings.load(), 1U);

    go_to(at(14, 10));
    tell({"event", "lost", "shfe2ps"});
    ASSERT_TRUE(clock_.eventually([&] { return is_up(2); })) << log();
    ASSERT_TRUE(quotes_go_on());
    const std::vector<std::string> afternoon = lines_of(day_.morning_file());
    EXPECT_EQ(lines_of(day_.evening_file()), std::vector<std::string>{});
    take_break(15, 0);
    go_to(at(21, 0));
    open_market();
    ASSERT_TRUE(quotes_go_on());

    go_to(at(21, 30));
    manager_->process().send(SIGINT);
    ASSERT_EQ(manager_->process().exit_code(), 0) << log();
    EXPECT_EQ(memory().forwarding.openings.load(), 2U);
    manager_->start_again();
    ASSERT_TRUE(clock_.eventually([&] { return is_up(3); })) << log();
    ASSERT_TRUE(quotes_go_on());
    const std::vector<std::string> evening = lines_of(day_.evening_file());
    EXPECT_EQ(lines_of(day_.morning_file()), afternoon);
    take_break(26, 30);

    manager_->process().send(SIGINT);
    other_->process().send(SIGINT);
    EXPECT_EQ(manager_->process().exit_code(), 0) << log();
    EXPECT_EQ(other_->process().exit_code(), 0) << other_->process().error();
    EXPECT_EQ(memory().forwarding.openings.load(), 3U);
    EXPECT_EQ(other_->summary().at("channel_quotes"), channel_of(card_.status(), 1).at("taken"));
    EXPECT_EQ(other_->summary().at("backward"), 0);
    EXPECT_EQ(channel_of(card_.status(), 1).at("lost"), 0);
    const History history = history_of(*other_, opening());
    expect_in_history(states_of(afternoon, listing_), history);
    expect_in_history(states_of(evening, listing_), history);
}

}  // namespace
}  // namespace kova::test
