#include "kova_simcard/commands.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "kova_simcard/run_commands.h"
#include "sim/card/attached_card.h"
#include "sim/card/registers.h"
#include "sim/exchange/scenario.h"
#include "sim/snapshot_reader.h"

namespace kova::app {
namespace {

namespace test = sim::test;

using sim::CommandReply;

Commands::Action joined(Commands::Words words) {
    std::string text;
    for (const std::string_view word : words) {
        text += "[" + std::string(word) + "]";
    }
    return [text] { return text; };
}

Commands example() {
    Commands commands;
    commands.add("show", "WORDS...", "shows its words", joined);
    commands.add("fail", "", "does not work",
                 [](Commands::Words) { return []() -> std::string { throw CommandRefused("not today"); }; });
    commands.add("choke", "", "does not understand",
                 [](Commands::Words) -> Commands::Action { throw CommandRefused("what?"); });
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
                                                       "fail           does not work\n"
                                                       "choke          does not understand"}));
}

TEST(SimcardCommands, FaultsAreFoundWithoutDoingAnything) {
    EXPECT_EQ(example().fault_of("show a"), std::nullopt);
    EXPECT_EQ(example().fault_of("help"), std::nullopt);
    EXPECT_EQ(example().fault_of("fail"), std::nullopt);
    EXPECT_EQ(example().fault_of("choke"), "what?");
    EXPECT_EQ(example().perform("choke"), (CommandReply{true, "what?"}));
    EXPECT_EQ(example().fault_of("sho a"), "no such command: \"sho\"; help lists them");
    EXPECT_EQ(example().fault_of(""), "no such command: \"\"; help lists them");
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
        add_feed_command(commands_, card_);
        add_memory_command(commands_, card_);
        add_register_command(commands_, card_);
        add_power_cycle_command(commands_, card_);
        add_snapshot_commands(commands_, sender_);
    }

    CommandReply perform(const std::string& line) const { return commands_.perform(line); }

    sim::Scenario scenario_ = sim::Scenario::parse("listing = { shfe = 5, ine = 0 }", "test");
    sim::Listing listing_ = sim::Listing::make(scenario_.listing);
    sim::Market market_{listing_, sim::market_options(scenario_, sim::select(scenario_, listing_))};
    sim::Card card_ = sim::Card::power_on_privately(0, {.slots_log2 = 6});
    Traffic traffic_{card_, market_, {.rate = 1, .duration = std::chrono::seconds(10)}};
    SnapshotSender sender_{card_, market_, {}};
    Commands commands_;
};

TEST_F(SimcardRunCommands, RateChangesTheTraffic) {
    traffic_.step(0);
    EXPECT_EQ(perform("rate 50"), (CommandReply{false, "50 quotes/s"}));
    traffic_.step(1);
    EXPECT_EQ(traffic_.next(), 20'000'001);
    EXPECT_EQ(perform("rate max"), (CommandReply{false, "quotes as fast as they go"}));
}

TEST_F(SimcardRunCommands, FaultsOfEachCommandAreFoundBeforeItsTime) {
    for (const char* line :
         {"rate 0", "event lost", "event 1 2 3 4 5 x", "feed stop dce", "memory later", "register nothing",
          "register 0x10 x", "power-cycle now", "impair eat 1", "impair lose 2", "impair lose 1 x",
          "quirky_cuts 2", "prices wrong gold", "prices nan gold", "long_messages shfe4ps 1"}) {
        EXPECT_TRUE(commands_.fault_of(line)) << line;
    }
    const std::string inst_id(listing_.at({.feed = SHFE_2PS, .inst_no = 3}).id());
    for (const std::string line :
         {"rate 5", "event lost 0", "event 1 2 3 4 5 6", "feed stop ine2ps", "memory 5", "register 0x1001 7",
          "power-cycle", "impair lose 1 5", "impairments", "quirky_cuts 1", "long_messages ine2ps 3"}) {
        EXPECT_EQ(commands_.fault_of(line), std::nullopt) << line;
    }
    EXPECT_EQ(commands_.fault_of("prices nan " + inst_id), std::nullopt);
    // Nothing of it has been done.
    EXPECT_EQ(sim::read_register(card_.memory(), 0x1001), 0U);
    EXPECT_EQ(sender_.impairments().rate(sim::Impairment::lose), 0);
    EXPECT_FALSE(card_.is_line_cut(INE_2PS));
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

TEST_F(SimcardRunCommands, FeedIsSilentUntilItIsStartedAgain) {
    sim::preset_register(card_.memory().registers, 0x11120, 1);
    const auto packets = [this] { return sim::read_register(card_.memory(), 0x1220); };
    EXPECT_EQ(perform("feed stop shfe2ps"), (CommandReply{false, "shfe2ps is silent"}));
    traffic_.step(0);
    traffic_.step(2'000'000'000);
    EXPECT_EQ(packets(), 0U);
    EXPECT_GT(traffic_.totals().cut_off, 0U);
    EXPECT_EQ(perform("feed start shfe2ps"), (CommandReply{false, "shfe2ps goes on"}));
    traffic_.step(4'000'000'000);
    EXPECT_GT(packets(), 0U);
    EXPECT_EQ(perform("feed stop dce"),
              (CommandReply{true, "\"dce\" is none of the feeds shfe2ps, shfe4ps, ine2ps, ine4ps, or 0 to 3"}));
    EXPECT_TRUE(perform("feed shfe2ps").is_refused);
}

TEST_F(SimcardRunCommands, RegistersAreReadAndSetByNameAndNumber) {
    EXPECT_EQ(perform("register error_count_4ps 17"),
              (CommandReply{false, "register 0x22015 holds 0x11 (17)"}));
    EXPECT_EQ(sim::read_register(card_.memory(), 0x22015), 17U);
    EXPECT_EQ(perform("register 0x22015"), (CommandReply{false, "register 0x22015 holds 0x11 (17)"}));
    EXPECT_EQ(perform("register last_update_ine_2ps 5"),
              (CommandReply{false, "register 0x2042 holds 0x5 (5)"}));
    EXPECT_TRUE(perform("register 0x24000").is_refused);
    EXPECT_TRUE(perform("register nothing 5").is_refused);
}

TEST_F(SimcardRunCommands, MemoryAndPowerAreTheCards) {
    EXPECT_EQ(perform("memory 1.5"), (CommandReply{false, "the memory gets ready in 1.5 s"}));
    EXPECT_EQ(card_.memory().behaviour.memory_delay.load(), 1'500'000'000);
    EXPECT_EQ(perform("memory never"), (CommandReply{false, "the memory never gets ready"}));
    EXPECT_LT(card_.memory().behaviour.memory_delay.load(), 0);
    EXPECT_TRUE(perform("memory later").is_refused);
    sim::write_register(card_.memory(), 0x1001, 5);
    EXPECT_EQ(perform("power-cycle"), (CommandReply{false, "the card has forgotten everything"}));
    EXPECT_EQ(sim::read_register(card_.memory(), 0x1001), 0U);
}

TEST_F(SimcardRunCommands, ImpairmentsAreSetAndListed) {
    EXPECT_EQ(perform("impair lose 0.25"), (CommandReply{false, "lose strikes 0.25 of the frames"}));
    const std::string list = perform("impairments").text;
    EXPECT_NE(list.find("\nlose              0.25           0  1\n"), std::string::npos) << list;
    EXPECT_EQ(perform("impair swap 1 77"), (CommandReply{false, "swap strikes 1 of the frames, by seed 77"}));
    const std::string again = perform("impairments").text;
    EXPECT_NE(again.find("\nswap                 1           0  77\n"), std::string::npos) << again;
    EXPECT_EQ(perform("impair swap 1 -1"),
              (CommandReply{true, "\"-1\" is no whole number from 0 to 9223372036854775807"}));
    EXPECT_TRUE(perform("impair swap 1 9223372036854775808").is_refused);
    EXPECT_TRUE(perform("impair swap 1 2 3").is_refused);
    EXPECT_TRUE(perform("impair lose 2").is_refused);
    EXPECT_TRUE(perform("impair eat 0.1").is_refused);
    EXPECT_EQ(perform("quirky_cuts 0.5"),
              (CommandReply{false, "0.5 of the messages are cut in the next one's header"}));
    EXPECT_TRUE(perform("quirky_cuts x").is_refused);
}

TEST_F(SimcardRunCommands, LongMessagesComeInTheCyclesThatFollow) {
    // Lengths of the messages of the next cycle of the first feed, behind its opening one.
    const auto lengths = [this] {
        std::vector<std::uint32_t> found;
        while (sender_.stream().next_feed() != SHFE_2PS || !sender_.stream().at_cycle_start()) {
            static_cast<void>(sender_.stream().next());
        }
        test::Bytes payloads;
        do {
            const test::ReadFrame frame = test::read_frame(test::bytes_of(sender_.stream().next()));
            payloads.insert(payloads.end(), frame.payload.begin(), frame.payload.end());
        } while (!sender_.stream().at_cycle_start());
        for (std::size_t at = 58; at + 8 <= payloads.size();) {
            found.push_back(payloads[at + 2] + 256U * payloads[at + 3]);
            at += 8 + found.back();
        }
        return found;
    };
    const std::vector<std::uint32_t> usual = lengths();
    ASSERT_EQ(usual.size(), 2U);
    EXPECT_EQ(perform("long_messages shfe2ps 2 60001"),
              (CommandReply{false, "the next 2 cycles of shfe2ps have a message of 60001 bytes"}));
    EXPECT_EQ(lengths(), (std::vector<std::uint32_t>{60001, 24}));
    EXPECT_EQ(lengths(), (std::vector<std::uint32_t>{60001, 24}));
    EXPECT_EQ(lengths(), usual);
    EXPECT_EQ(perform("long_messages 0 1"),
              (CommandReply{false, "the next 1 cycles of shfe2ps have a message of 65535 bytes"}));
    EXPECT_EQ(lengths(), (std::vector<std::uint32_t>{65535, 24}));
    EXPECT_EQ(perform("long_messages shfe2ps 1 60000"),
              (CommandReply{true, "\"60000\" is no whole number from 60001 to 65535"}));
    EXPECT_EQ(perform("long_messages shfe2ps 1000001"),
              (CommandReply{true, "\"1000001\" is no whole number from 0 to 1000000"}));
    EXPECT_EQ(perform("long_messages shfe4ps 1"), (CommandReply{true, "no snapshots of shfe4ps are sent"}));
    EXPECT_TRUE(perform("long_messages shfe2ps").is_refused);
    EXPECT_EQ(lengths(), usual);
}

TEST_F(SimcardRunCommands, PricesOfInstrumentsGoBadAndGetRightAgain) {
    // The instruments are listed in one message: a cycle of five is that, an opening and a closing one.
    const auto last_price = [this] {
        test::Bytes payloads;
        do {
            const test::ReadFrame frame = test::read_frame(test::bytes_of(sender_.stream().next()));
            payloads.insert(payloads.end(), frame.payload.begin(), frame.payload.end());
        } while (!sender_.stream().at_cycle_start());
        test::RowReader reader;
        reader.read(test::read_messages(payloads));
        return reader.rows.empty() ? -1 : reader.rows.at(3).last_price;
    };
    const std::string inst_id(listing_.at({.feed = SHFE_2PS, .inst_no = 3}).id());
    const auto right = last_price();
    EXPECT_GT(right, 0);
    EXPECT_EQ(perform("prices negative " + inst_id),
              (CommandReply{false, "snapshots have prices negative of " + inst_id}));
    static_cast<void>(last_price());  // the other exchange's cycle
    EXPECT_EQ(last_price(), -right);
    EXPECT_EQ(perform("prices right " + inst_id).is_refused, false);
    static_cast<void>(last_price());
    EXPECT_EQ(last_price(), right);
    EXPECT_EQ(perform("prices wrong " + inst_id),
              (CommandReply{true,
                            "\"wrong\" is none of right, crossed, beyond_limits, no_value, nan, infinite, "
                            "negative"}));
    EXPECT_EQ(perform("prices nan gold"), (CommandReply{true, "no such instrument: gold"}));
    EXPECT_EQ(perform("prices nan"),
              (CommandReply{true, "prices takes what is wrong with them, and instruments"}));
}

}  // namespace
}  // namespace kova::app
