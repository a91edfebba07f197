#include "kova_simcard/traffic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

#include "kova_simcard/prepare.h"
#include "sim/card/attached_card.h"
#include "sim/card/contract_tables.h"
#include "sim/card/registers.h"
#include "sim/exchange/scenario.h"
#include "wire/RegisterMap.h"

namespace kova::app {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::uint32_t kCard = 4;
constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kSecond = 1'000'000'000;
// Nothing may depend on where the clock starts.
constexpr std::int64_t kStart = 123'456'789'012;

// Two products, channel 1 with all futures, channel 2 with copper's and the options on them.
constexpr const char* kScenario = R"(
seed = 7
listing = { shfe = 60, ine = 10 }
[channel.1]
instruments = ["all"]
[channel.2]
instruments = ["cu"]
options = true
)";

class SimcardTraffic : public ::testing::Test {
 protected:
    Traffic traffic(const TrafficPlan& plan) { return {card_, market_, plan}; }

    std::unique_ptr<sim::CardToHostStream> open(std::uint32_t channel) {
        return sim::CardToHostStream::open(sim::attach(kCard), channel);
    }

    // Lets the traffic run with a clock that goes exactly where it asks to, or `late` behind that. Returns the
    // times of the steps.
    static std::vector<std::int64_t> run(Traffic& traffic, std::int64_t until, std::int64_t late = 0) {
        std::vector<std::int64_t> times;
        for (std::int64_t now = kStart; now <= until; now = std::max(traffic.next(), now) + late) {
            times.push_back(now);
            traffic.step(now);
            if (traffic.state() == sim::TrafficState::kEnded) {
                break;
            }
        }
        return times;
    }

    sim::TrafficState told_state() const { return card_.memory().identity.traffic.load(); }

    sim::Scenario scenario_ = sim::Scenario::parse(kScenario, "test");
    sim::Listing listing_ = sim::Listing::make(scenario_.listing);
    sim::Selection selection_ = sim::select(scenario_, listing_);
    sim::Market market_{listing_, sim::market_options(scenario_, selection_)};
    sim::Card card_ = sim::Card::power_on_privately(kCard, {.slots_log2 = 14});
};

TEST_F(SimcardTraffic, SendsRateTimesDurationQuotes) {
    Traffic one = traffic({.rate = 1000, .duration = seconds(3)});
    run(one, kStart + 10 * kSecond);
    EXPECT_EQ(one.totals().quotes, 3000U);
    EXPECT_EQ(one.elapsed(), 3 * kSecond);
}

TEST_F(SimcardTraffic, SendsThemAllAlsoWhenEachStepIsLate) {
    Traffic one = traffic({.rate = 700, .duration = seconds(2)});
    run(one, kStart + 10 * kSecond, 130'000);
    EXPECT_EQ(one.totals().quotes, 1400U);
}

TEST_F(SimcardTraffic, LowRateStepsOncePerQuoteAtItsTime) {
    Traffic one = traffic({.rate = 4, .duration = seconds(1)});
    const std::vector<std::int64_t> times = run(one, kStart + 2 * kSecond);
    EXPECT_EQ(times,
              (std::vector<std::int64_t>{kStart, kStart + 250 * kMillisecond, kStart + 500 * kMillisecond,
                                         kStart + 750 * kMillisecond, kStart + 1000 * kMillisecond}));
    EXPECT_EQ(one.totals().quotes, 4U);
}

TEST_F(SimcardTraffic, HighRateComesInBurstsAMillisecondApart) {
    Traffic one = traffic({.rate = 50'000, .duration = seconds(1)});
    const std::vector<std::int64_t> times = run(one, kStart + 2 * kSecond);
    EXPECT_EQ(times.size(), 1001U);
    EXPECT_EQ(times[1] - times[0], kMillisecond);
    EXPECT_EQ(one.totals().quotes, 50'000U);
}

TEST_F(SimcardTraffic, UnlimitedRateAlwaysHasSomethingToDo) {
    Traffic one = traffic({.rate = std::nullopt});
    one.step(kStart);
    EXPECT_EQ(one.next(), kStart);
    one.step(kStart + 5);
    EXPECT_EQ(one.next(), kStart + 5);
    const std::uint64_t quotes = one.totals().quotes;
    one.step(kStart + 5);
    EXPECT_GT(one.totals().quotes, quotes);
}

TEST_F(SimcardTraffic, RateTooHighForBurstsNeverPauses) {
    Traffic one = traffic({.rate = 20'000'000});
    one.step(kStart);
    EXPECT_LT(one.next(), kStart + 1000);
}

TEST_F(SimcardTraffic, BurstAfterALongDelayLeavesRoomInARing) {
    Traffic one = traffic({.rate = 1'000'000});
    one.step(kStart);
    const std::uint64_t quotes = one.totals().quotes;
    one.step(kStart + 5 * kSecond);
    EXPECT_EQ(one.totals().quotes - quotes, 16384U / 4);
}

TEST_F(SimcardTraffic, NothingIsSentBeforeTheDelayIsOver) {
    Traffic one = traffic({.rate = 1000, .start_delay = milliseconds(1500)});
    one.step(kStart);
    EXPECT_EQ(told_state(), sim::TrafficState::kNone);
    EXPECT_EQ(one.next(), kStart + 1500 * kMillisecond);
    one.step(kStart + 1499 * kMillisecond);
    EXPECT_EQ(one.totals().quotes, 0U);
    one.step(kStart + 1500 * kMillisecond);
    EXPECT_EQ(one.totals().quotes, 1U);
    EXPECT_EQ(told_state(), sim::TrafficState::kRunning);
}

TEST_F(SimcardTraffic, SilenceFollowsTheDuration) {
    Traffic one = traffic({.rate = 1000, .start_delay = milliseconds(500), .duration = seconds(1)});
    run(one, kStart + 5 * kSecond);
    EXPECT_EQ(one.state(), sim::TrafficState::kEnded);
    EXPECT_EQ(told_state(), sim::TrafficState::kEnded);
    one.step(kStart + 60 * kSecond);
    EXPECT_EQ(one.totals().quotes, 1000U);
    EXPECT_GT(one.next(), kStart + 1000 * kSecond);
}

TEST_F(SimcardTraffic, WithoutADurationItGoesOn) {
    Traffic one = traffic({.rate = 1});
    run(one, kStart + 100'000 * kSecond);
    EXPECT_EQ(one.state(), sim::TrafficState::kRunning);
    EXPECT_EQ(one.totals().quotes, 100'001U);
}

TEST_F(SimcardTraffic, ExchangeTimeStartsAtTheOpeningAndRunsWithTheClock) {
    Traffic one = traffic({.rate = 10, .start_delay = seconds(5), .open_time = std::chrono::hours(21)});
    one.step(kStart);
    one.step(kStart + 5 * kSecond);
    EXPECT_EQ(market_.time(), std::chrono::hours(21));
    one.step(kStart + 65 * kSecond + 250 * kMillisecond);
    EXPECT_EQ(market_.time(), std::chrono::hours(21) + milliseconds(60'250));
}

TEST_F(SimcardTraffic, NothingGetsThroughACardThatIsNotPrepared) {
    const auto reader = open(1);
    Traffic one = traffic({.rate = 1000, .duration = seconds(1)});
    run(one, kStart + 2 * kSecond);
    EXPECT_EQ(one.totals().quotes, 1000U);
    EXPECT_EQ(one.totals().sent + one.totals().lost + one.totals().unheard, 0U);
}

TEST_F(SimcardTraffic, EveryQuoteIsSentToExactlyItsChannels) {
    prepare(card_, market_, selection_);
    const auto all = open(1);
    const auto copper = open(2);
    Traffic one = traffic({.rate = 1000, .duration = seconds(2)});
    run(one, kStart + 5 * kSecond);
    std::uint64_t on_all = 0;
    std::uint64_t on_copper = 0;
    const auto id_of = [](const std::uint8_t* message) {
        return std::string(reinterpret_cast<const KovaShfeMdType*>(message + 8)->inst_id);
    };
    while (all->poll([&](const std::uint8_t* message, std::uint32_t) {
        EXPECT_LE(id_of(message).size(), 6U);  // futures only
        ++on_all;
    }) == 1) {
    }
    while (copper->poll([&](const std::uint8_t* message, std::uint32_t) {
        EXPECT_EQ(id_of(message).substr(0, 2), "cu");
        ++on_copper;
    }) == 1) {
    }
    EXPECT_GT(on_all, 0U);
    EXPECT_GT(on_copper, 0U);
    EXPECT_EQ(one.totals().sent, on_all + on_copper);
    EXPECT_EQ(one.totals().lost, 0U);
    EXPECT_EQ(one.totals().unheard, 0U);
}

TEST_F(SimcardTraffic, ReaderThatTakesNothingLosesWhatItsRingCannotHold) {
    prepare(card_, market_, selection_);
    const auto all = open(1);
    Traffic one = traffic({.rate = 100'000, .duration = seconds(1)});
    run(one, kStart + 2 * kSecond);
    EXPECT_EQ(one.totals().sent, 16383U);
    EXPECT_GT(one.totals().lost, 0U);
    EXPECT_GT(one.totals().unheard, 0U);  // channel 2
}

TEST_F(SimcardTraffic, UnlimitedRateWaitsForAReaderThatIsBehind) {
    prepare(card_, market_, selection_);
    const auto all = open(1);
    Traffic one = traffic({.rate = std::nullopt});
    std::int64_t now = kStart;
    for (int i = 0; i < 1000; ++i) {
        one.step(++now);
    }
    const std::uint64_t sent = one.totals().sent;
    EXPECT_GT(sent, 15'000U);
    EXPECT_EQ(one.totals().lost, 0U);
    EXPECT_GT(one.next(), now);
    std::uint64_t taken = 0;
    while (all->poll([&](const std::uint8_t*, std::uint32_t) { ++taken; }) == 1) {
    }
    EXPECT_EQ(taken, sent);
    one.step(++now);
    EXPECT_GT(one.totals().sent, sent);
}

TEST_F(SimcardTraffic, UnlimitedRateWaitsForNobodyWhoStandsStill) {
    prepare(card_, market_, selection_);
    const auto all = open(1);
    Traffic one = traffic({.rate = std::nullopt});
    for (std::int64_t now = kStart; now < kStart + 1000; ++now) {
        one.step(now);
    }
    ASSERT_EQ(one.totals().lost, 0U);
    for (std::int64_t now = kStart + 1000; now < kStart + kSecond; now += kMillisecond) {
        one.step(now);
    }
    EXPECT_EQ(one.totals().sent, 16383U);
    EXPECT_GT(one.totals().lost, 100'000U);
}

TEST_F(SimcardTraffic, NewRateHoldsAtOnce) {
    Traffic one = traffic({.rate = 1});
    one.step(kStart);
    ASSERT_EQ(one.next(), kStart + kSecond);
    one.set_rate(1000);
    EXPECT_LE(one.next(), kStart);
    const std::uint64_t quotes = one.totals().quotes;
    for (std::int64_t now = kStart + kMillisecond; now <= kStart + kSecond; now = one.next()) {
        one.step(now);
    }
    EXPECT_EQ(one.totals().quotes - quotes, 1000U);
}

TEST_F(SimcardTraffic, NewRateDoesNotEndTheDelayBeforeTheStart) {
    Traffic one = traffic({.rate = 1, .start_delay = seconds(1)});
    one.step(kStart);
    one.set_rate(1000);
    EXPECT_EQ(one.next(), kStart + kSecond);
    one.step(kStart + kMillisecond);
    EXPECT_EQ(one.totals().quotes, 0U);
}

TEST_F(SimcardTraffic, NewRateMayBeUnlimited) {
    Traffic one = traffic({.rate = 1});
    one.step(kStart);
    one.set_rate(std::nullopt);
    one.step(kStart + 1);
    EXPECT_GT(one.totals().quotes, 100U);
    EXPECT_EQ(one.next(), kStart + 1);
}

TEST_F(SimcardTraffic, PreparedCardLooksAsAfterABringUp) {
    prepare(card_, market_, selection_);
    sim::CardMemory& memory = card_.memory();
    EXPECT_EQ(sim::read_register(memory, REG_SHFE_INST_COUNT), 60U);
    EXPECT_EQ(sim::read_register(memory, REG_INE_INST_COUNT), 10U);
    for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
        EXPECT_TRUE(sim::is_core_started(memory.registers, feed));
        EXPECT_FALSE(sim::is_table_open(memory, feed));
    }
    for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS}) {
        EXPECT_NE(sim::table_rows(memory.tables, feed)[59].inst_id[0], '\0');
        EXPECT_EQ(sim::table_rows(memory.tables, feed)[60].inst_id[0], '\0');
    }
    for (const EMDQPDataType feed : {INE_2PS, INE_4PS}) {
        EXPECT_NE(sim::table_rows(memory.tables, feed)[9].inst_id[0], '\0');
        EXPECT_EQ(sim::table_rows(memory.tables, feed)[10].inst_id[0], '\0');
    }
}

// The lock tells who takes it: one whose holder has died is recovered by the next.
TEST_F(SimcardTraffic, CardIsPreparedUnderItsLock) {
    std::thread([this] { sim::acquire(card_.memory().lock); }).join();
    prepare(card_, market_, selection_);
    EXPECT_EQ(card_.memory().lock.recoveries, 1U);
}

TEST_F(SimcardTraffic, PreparedRowsNameTheChannelsOfTheScenario) {
    prepare(card_, market_, selection_);
    std::uint32_t copper_futures = 0;
    for (const sim::Instrument& instrument : listing_.instruments()) {
        const SInstTableType& row =
            sim::table_rows(card_.memory().tables, instrument.ref.feed)[instrument.ref.inst_no];
        ASSERT_EQ(std::string(row.inst_id), instrument.id());
        const bool is_future = instrument.id().size() == 6;
        const bool is_copper = instrument.id().starts_with("cu");
        EXPECT_EQ((row.config & 2) != 0, is_future) << instrument.id();
        EXPECT_EQ((row.config & 4) != 0, is_copper) << instrument.id();
        EXPECT_EQ((row.config & INST_CONFIG_SUBSCRIBED) != 0, is_future || is_copper) << instrument.id();
        EXPECT_EQ(row.config & 0xFFF9, 0U) << instrument.id();
        copper_futures += is_copper && is_future ? 1U : 0U;
    }
    EXPECT_GT(copper_futures, 0U);
}

}  // namespace
}  // namespace kova::app
