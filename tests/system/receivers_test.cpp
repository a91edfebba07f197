// Applications that receive through the shipped library, as processes of their own.

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <deque>
#include <memory>
#include <set>
#include <string>

#include "sim/card/attached_card.h"
#include "support/card_index.h"
#include "support/process.h"
#include "support/receiver.h"
#include "support/simcard.h"

namespace kova::test {
namespace {

// One product a channel, channel 0 included.
constexpr const char* kProducts[16] = {"cu", "al", "zn", "pb", "ni", "sn", "au", "ag",
                                       "rb", "hc", "ss", "fu", "bu", "ru", "sp", "sc"};

std::string product_per_channel(int rate) {
    std::string text = "listing = \"full\"\nrate = " + std::to_string(rate) + "\n";
    for (int channel = 0; channel < 16; ++channel) {
        text += "[channel." + std::to_string(channel) + "]\ninstruments = [\"" + kProducts[channel] + "\"]\n";
    }
    return text;
}

std::uint64_t number(const nlohmann::json& channel, const char* key) {
    return channel.at(key).get<std::uint64_t>();
}

// Looked up in the card's memory: a status program for each look would keep the machine from its work.
std::uint64_t taken(const Simcard& card, std::uint32_t channel) {
    const sim::AttachedCard attached = sim::attach(card.card());
    return attached == nullptr ? 0 : attached->memory().channels[channel].card_to_host.taken.load();
}

bool has_taken(const Simcard& card, std::uint32_t channel, std::uint64_t quotes) {
    return taken(card, channel) >= quotes;
}

// Whether the receiver got everything that the card says was taken from its channel, without a gap.
void expect_exact(const Simcard& card, std::uint32_t channel, const Receiver& receiver) {
    const nlohmann::json counted = channel_of(card.status(), channel);
    const nlohmann::json summary = receiver.summary();
    ASSERT_TRUE(summary.is_object());
    EXPECT_EQ(summary.at("channel_quotes").get<std::uint64_t>(), number(counted, "taken"));
    EXPECT_EQ(summary.at("gaps").get<int>(), 0);
    EXPECT_EQ(summary.at("backward").get<int>(), 0);
    EXPECT_EQ(number(counted, "lost"), 0U);
    EXPECT_EQ(receiver.column("inst_id").size(), number(counted, "taken"));
}

TEST(Receivers, SixteenAtOnceEachGetExactlyTheirQuotes) {
    const ScenarioFile scenario(product_per_channel(4000));
    Simcard card(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(card.wait_until_on());
    std::deque<Receiver> receivers;
    for (std::uint32_t channel = 1; channel < 16; ++channel) {
        receivers.emplace_back(card.card(), channel);
    }
    // Through the library channel 0 would bring the card up anew, so its stream is read bare.
    const auto channel0 = sim::CardToHostStream::open(sim::attach(card.card()), 0);
    ASSERT_NE(channel0, nullptr);
    std::uint64_t taken0 = 0;
    const auto drain0 = [&] {
        while (channel0->poll([](const std::uint8_t*, std::uint32_t) {}) == 1) {
            ++taken0;
        }
        return taken0;
    };
    for (std::uint32_t channel = 1; channel < 16; ++channel) {
        ASSERT_TRUE(eventually([&] { return drain0() > 0 && has_taken(card, channel, 50); })) << channel;
    }
    for (Receiver& receiver : receivers) {
        receiver.process().send(SIGINT);
        EXPECT_EQ(receiver.process().exit_code(), 0) << receiver.process().error();
    }
    drain0();
    EXPECT_EQ(number(channel_of(card.status(), 0), "taken"), taken0);
    for (std::uint32_t channel = 1; channel < 16; ++channel) {
        SCOPED_TRACE(channel);
        expect_exact(card, channel, receivers[channel - 1]);
        EXPECT_EQ(receivers[channel - 1].products(), std::set<std::string>{kProducts[channel]});
    }
}

TEST(Receivers, TwoCardsAtOnceServeTheirOwnReceivers) {
    const ScenarioFile copper("listing = { shfe = 100, ine = 0 }\n[channel.1]\ninstruments = [\"cu\"]\n");
    const ScenarioFile crude("listing = { shfe = 0, ine = 100 }\n[channel.1]\ninstruments = [\"sc\"]\n");
    Simcard first(own_card(0), {"--prepared", "--scenario", copper.path()});
    Simcard second(own_card(1), {"--prepared", "--scenario", crude.path()});
    ASSERT_TRUE(first.wait_until_on() && second.wait_until_on());
    Receiver of_first(first.card(), 1);
    Receiver of_second(second.card(), 1);
    ASSERT_TRUE(eventually([&] { return has_taken(first, 1, 20) && has_taken(second, 1, 20); }));
    of_first.process().send(SIGINT);
    of_second.process().send(SIGINT);
    EXPECT_EQ(of_first.process().exit_code(), 0);
    EXPECT_EQ(of_second.process().exit_code(), 0);
    expect_exact(first, 1, of_first);
    expect_exact(second, 1, of_second);
    EXPECT_EQ(of_first.products(), std::set<std::string>{"cu"});
    EXPECT_EQ(of_second.products(), std::set<std::string>{"sc"});
}

TEST(Receivers, FetchModeGetsTheSameQuotes) {
    const ScenarioFile scenario(product_per_channel(2000));
    Simcard card(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(card.wait_until_on());
    Receiver receiver(card.card(), 3, {"--fetch"});
    ASSERT_TRUE(eventually([&] { return has_taken(card, 3, 20); }));
    receiver.process().send(SIGINT);
    EXPECT_EQ(receiver.process().exit_code(), 0);
    expect_exact(card, 3, receiver);
}

TEST(Receivers, OneThatWantsSoManyQuotesEndsWithThem) {
    const ScenarioFile scenario(product_per_channel(2000));
    Simcard card(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(card.wait_until_on());
    Receiver receiver(card.card(), 3, {"--count", "25"});
    EXPECT_EQ(receiver.process().exit_code(), 0);
    EXPECT_EQ(receiver.column("change_no").size(), 25U);
}

class ReceiverSignal : public ::testing::TestWithParam<int> {};

TEST_P(ReceiverSignal, EndsTheLoopWithASummaryAndNoFailure) {
    const ScenarioFile scenario(product_per_channel(2000));
    Simcard card(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(card.wait_until_on());
    Receiver receiver(card.card(), 3);
    ASSERT_TRUE(eventually([&] { return has_taken(card, 3, 20); }));
    receiver.process().send(GetParam());
    EXPECT_EQ(receiver.process().exit_code(), 0);
    EXPECT_EQ(receiver.summary().at("end"), "signal");
    const std::string line = "[" + std::to_string(receiver.process().pid()) + "]received signal " +
                             std::to_string(GetParam()) + "\033[0m \n";
    EXPECT_NE(receiver.process().error().find(line), std::string::npos);
    EXPECT_EQ(channel_of(card.status(), 3).at("open"), false);
}

INSTANTIATE_TEST_SUITE_P(Stop, ReceiverSignal, ::testing::Values(SIGINT, SIGTERM));

TEST(Receivers, ABrokenPipeSignalDoesNotEndTheProcess) {
    const ScenarioFile scenario(product_per_channel(2000));
    Simcard card(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(card.wait_until_on());
    Receiver receiver(card.card(), 3);
    ASSERT_TRUE(eventually([&] { return has_taken(card, 3, 20); }));
    receiver.process().send(SIGPIPE);
    const std::uint64_t before = taken(card, 3);
    EXPECT_TRUE(eventually([&] { return has_taken(card, 3, before + 20); }));
    receiver.process().send(SIGINT);
    EXPECT_EQ(receiver.process().exit_code(), 0);
    expect_exact(card, 3, receiver);
}

TEST(Receivers, OneThatIsKilledLeavesItsChannelToTheNext) {
    const ScenarioFile scenario(product_per_channel(2000));
    Simcard card(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(card.wait_until_on());
    for (int round = 0; round < 5; ++round) {
        Receiver killed(card.card(), 3);
        const std::uint64_t before = taken(card, 3);
        ASSERT_TRUE(eventually([&] { return has_taken(card, 3, before + 5); }));
        killed.process().send(SIGKILL);
        EXPECT_EQ(killed.process().ending_signal(), SIGKILL);
    }
    Receiver next(card.card(), 3, {"--count", "20"});
    EXPECT_EQ(next.process().exit_code(), 0) << next.process().error();
    EXPECT_EQ(next.summary().at("gaps").get<int>(), 0);
}

TEST(Receivers, ASecondOneOfAChannelIsRefusedAndTheFirstGoesOn) {
    const ScenarioFile scenario(product_per_channel(2000));
    Simcard card(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(card.wait_until_on());
    Receiver first(card.card(), 3);
    ASSERT_TRUE(eventually([&] { return has_taken(card, 3, 1); }));
    Receiver second(card.card(), 3);
    EXPECT_EQ(second.process().exit_code(), 1);
    EXPECT_NE(second.process().error().find("Could not create a2c stream. err:Device or resource busy"),
              std::string::npos);
    first.process().send(SIGINT);
    EXPECT_EQ(first.process().exit_code(), 0);
    expect_exact(card, 3, first);
}

TEST(Receivers, WithoutACardTheStartFailsAndSaysSo) {
    Receiver receiver(own_card(), 3);
    EXPECT_EQ(receiver.process().exit_code(), 1);
    EXPECT_NE(receiver.process().error().find("Could not find accelerator. err:No such device"),
              std::string::npos);
}

}  // namespace
}  // namespace kova::test
