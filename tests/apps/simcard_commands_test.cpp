#include "kova_simcard/commands.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "kova_simcard/run_commands.h"
#include "sim/card/attached_card.h"
#include "sim/exchange/scenario.h"

namespace kova::app {
namespace {

using sim::CommandReply;

std::string joined(Commands::Words words) {
    std::string text;
    for (const std::string_view word : words) {
        text += "[" + std::string(word) + "]";
    }
    return text;
}

Commands example() {
    Commands commands;
    commands.add("show", "WORDS...", "shows its words", joined);
    commands.add("fail", "", "does not work",
                 [](Commands::Words) -> std::string { throw CommandRefused("not today"); });
    return commands;
}

TEST(SimcardCommands, FirstWordChoosesAndTheOthersAreItsArguments) {
    EXPECT_EQ(example().perform("show a b"), (CommandReply{false, "[a][b]"}));
    EXPECT_EQ(example().perform("  show   a "), (CommandReply{false, "[a]"}));
    EXPECT_EQ(example().perform("show"), (CommandReply{false, ""}));
}

TEST(SimcardCommands, RefusalIsTheAnswer) {
    EXPECT_EQ(example().perform("fail"), (CommandReply{true, "not today"}));
}

TEST(SimcardCommands, UnknownCommandIsRefused) {
    EXPECT_EQ(example().perform("stop now"),
              (CommandReply{true, "no such command: \"stop\"; help lists them"}));
    EXPECT_EQ(example().perform(""), (CommandReply{true, "no such command: \"\"; help lists them"}));
}

TEST(SimcardCommands, HelpListsThemAll) {
    EXPECT_EQ(example().perform("help"), (CommandReply{false,
                                                       "help           this list\n"
                                                       "show WORDS...  shows its words\n"
                                                       "fail           does not work"}));
}

TEST(SimcardCommands, MailboxIsServedOncePerCommand) {
    const auto mailbox = std::make_unique<sim::CommandMailbox>();
    serve(*mailbox, example());
    EXPECT_EQ(sim::collect_reply(*mailbox), std::nullopt);
    ASSERT_TRUE(sim::post_command(*mailbox, "show a"));
    serve(*mailbox, example());
    EXPECT_EQ(sim::collect_reply(*mailbox), (CommandReply{false, "[a]"}));
}

class SimcardRunCommands : public ::testing::Test {
 protected:
    void SetUp() override {
        add_rate_command(commands_, traffic_);
        add_event_command(commands_, card_);
    }

    CommandReply perform(const std::string& line) const { return commands_.perform(line); }

    sim::Scenario scenario_ = sim::Scenario::parse("listing = { shfe = 5, ine = 0 }", "test");
    sim::Listing listing_ = sim::Listing::make(scenario_.listing);
    sim::Market market_{listing_, sim::market_options(scenario_, sim::select(scenario_, listing_))};
    sim::Card card_ = sim::Card::power_on_privately(0, {.slots_log2 = 6});
    Traffic traffic_{card_, market_, {.rate = 1, .duration = std::chrono::seconds(10)}};
    Commands commands_;
};

TEST_F(SimcardRunCommands, RateChangesTheTraffic) {
    traffic_.step(0);
    EXPECT_EQ(perform("rate 50"), (CommandReply{false, "50 quotes/s"}));
    traffic_.step(1);
    EXPECT_EQ(traffic_.next(), 20'000'001);
    EXPECT_EQ(perform("rate max"), (CommandReply{false, "quotes as fast as they go"}));
}

TEST_F(SimcardRunCommands, RateThatIsNoneIsRefused) {
    for (const char* line : {"rate", "rate 0", "rate fast", "rate 5 6", "rate -1"}) {
        EXPECT_EQ(perform(line), (CommandReply{true, "rate takes a whole number from 1 to 1000000000, or max"}))
            << line;
    }
}

TEST_F(SimcardRunCommands, RateOfTrafficThatHasEndedIsRefused) {
    traffic_.step(0);
    traffic_.step(10'000'000'000);
    EXPECT_EQ(perform("rate 5"), (CommandReply{true, "the traffic has ended"}));
}

TEST_F(SimcardRunCommands, EventGoesToChannelZero) {
    const auto reader = sim::CardToHostStream::open(sim::attach(0), 0);
    EXPECT_EQ(perform("event 1 0x2 3 0xffffffff 5 128"),
              (CommandReply{false, "event 0x1 0x2 0x3 0xffffffff 0x5 0x80 sent to channel 0"}));
    std::string message;
    EXPECT_EQ(reader->poll([&message](const std::uint8_t* data, std::uint32_t size) {
        message.assign(reinterpret_cast<const char*>(data), size);
    }),
              1);
    EXPECT_EQ(message,
              std::string("\0\0\0\0\x18\0\0\0\1\0\0\0\2\0\0\0\3\0\0\0\xFF\xFF\xFF\xFF\5\0\0\0\x80\0\0\0", 32));
}

TEST_F(SimcardRunCommands, EventThatNobodyGetsIsRefused) {
    EXPECT_EQ(perform("event 1 2 3 4 5 6"),
              (CommandReply{true, "nobody has channel 0 open: the event is lost"}));
    const auto reader = sim::CardToHostStream::open(sim::attach(0), 0);
    for (int i = 0; i < 63; ++i) {
        ASSERT_FALSE(perform("event 1 2 3 4 5 6").is_refused);
    }
    EXPECT_EQ(perform("event 1 2 3 4 5 6"), (CommandReply{true, "channel 0 has no room: the event is lost"}));
}

constexpr const char* kNoEvent = "event takes six words, or lost, price or timeout and a lane";

TEST_F(SimcardRunCommands, EventOfOtherWordsIsRefused) {
    const auto reader = sim::CardToHostStream::open(sim::attach(0), 0);
    EXPECT_EQ(perform("event 1 2 3 4 5"), (CommandReply{true, kNoEvent}));
    EXPECT_EQ(perform("event 1 2 3 4 5 6 7"), (CommandReply{true, kNoEvent}));
    EXPECT_EQ(perform("event lost"), (CommandReply{true, kNoEvent}));
    EXPECT_EQ(perform("event gone 0"), (CommandReply{true, kNoEvent}));
    for (const std::string word : {"x", "0x", "-1", "4294967296", "0x100000000", "1.5", "0X1"}) {
        EXPECT_EQ(perform("event 1 2 3 4 5 " + word),
                  (CommandReply{true, "\"" + word + "\" is no word of 32 bits, decimal or 0x"}));
    }
    EXPECT_EQ(reader->poll([](const std::uint8_t*, std::uint32_t) {}), 0);
}

}  // namespace
}  // namespace kova::app
