#include "kova_simcard/schedule.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kova::app {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::int64_t kPowerOn = 500 * kSecond;

Commands echo() {
    Commands commands;
    commands.add("say", "WORD", "says it",
                 [](Commands::Words words) { return [word = std::string(words.front())] { return word; }; });
    return commands;
}

TEST(SimcardSchedule, EventsHappenOnceEachAtItsTime) {
    Schedule schedule({{.at = 2s, .command = "say b"}, {.at = 0s, .command = "say a"}});
    EXPECT_THAT(schedule.step(kPowerOn, 0ms, echo()), ElementsAre(News{false, "a"}));
    EXPECT_THAT(schedule.step(kPowerOn + 2 * kSecond - 1, 0ms, echo()), IsEmpty());
    EXPECT_THAT(schedule.step(kPowerOn + 2 * kSecond, 0ms, echo()), ElementsAre(News{false, "b"}));
    EXPECT_THAT(schedule.step(kPowerOn + 9 * kSecond, 0ms, echo()), IsEmpty());
}

TEST(SimcardSchedule, TimesOfDayAreTheExchanges) {
    Schedule schedule({{.is_exchange_time = true, .at = 9h + 30min, .command = "say half"}});
    EXPECT_THAT(schedule.step(kPowerOn, 9h, echo()), IsEmpty());
    EXPECT_THAT(schedule.step(kPowerOn, 9h + 30min, echo()), ElementsAre(News{false, "half"}));
}

TEST(SimcardSchedule, RefusedOneIsAnErrorWithItsLine) {
    Schedule schedule({{.command = "shout", .line = 12}});
    EXPECT_THAT(
        schedule.step(kPowerOn, 0ms, echo()),
        ElementsAre(News{true, "event of line 12, \"shout\": no such command: \"shout\"; help lists them"}));
}

}  // namespace
}  // namespace kova::app
