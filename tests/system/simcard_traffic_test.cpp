// What kova-simcard sends is what its clients get and what its status says.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <regex>
#include <set>
#include <string>

#include "KovaShfeMdApi.h"
#include "sim/card/attached_card.h"
#include "sim/card/registers.h"
#include "support/card_index.h"
#include "support/process.h"
#include "support/simcard.h"
#include "wire/DmaMessage.h"
#include "wire/RegisterMap.h"

namespace kova::test {
namespace {

constexpr const char* kScenario = R"(
seed = 11
listing = { shfe = 200, ine = 20 }
rate = 2000
duration = 1
start_delay = 2
[channel.1]
instruments = ["all"]
[channel.2]
instruments = ["cu", "sc"]
)";

// A client of one channel, below the library.
struct Reader {
    Reader(std::uint32_t card, std::uint32_t channel)
        : stream(sim::CardToHostStream::open(sim::attach(card), channel)) {}

    // Takes everything that is there.
    void drain() {
        const auto note = [this](const std::uint8_t* message, std::uint32_t size) {
            ASSERT_EQ(size, sizeof(U50QuoteMessage));
            U50QuoteMessage quote;
            std::memcpy(&quote, message, sizeof quote);
            EXPECT_EQ(quote.header.dma_type, DMA_UDP);
            ids.insert(quote.quote.inst_id);
            ++count;
        };
        while (stream->poll(note) == 1) {
        }
    }

    std::unique_ptr<sim::CardToHostStream> stream;
    std::uint64_t count = 0;
    std::set<std::string> ids;
};

bool has_ended(const Simcard& simcard) {
    return simcard.status().at("traffic") == "ended";
}

std::uint64_t number(const nlohmann::json& channel, const char* key) {
    return channel.at(key).get<std::uint64_t>();
}

// Quotes that the exchange made, by what the card counted: at most 2000 with the scenario above, and less when
// the machine let it wait so long that it had to leave some out.
std::uint64_t quotes_made(const nlohmann::json& status) {
    return number(status.at("packets"), "shfe_2ps") + number(status.at("packets"), "ine_2ps");
}

TEST(SimcardTraffic, StatusAccountsForExactlyWhatTheReadersTook) {
    const ScenarioFile scenario(kScenario);
    Simcard simcard(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(simcard.wait_until_on()) << simcard.process().error();
    Reader all(own_card(), 1);
    Reader some(own_card(), 2);
    ASSERT_TRUE(eventually([&] {
        all.drain();
        some.drain();
        return has_ended(simcard);
    }));
    all.drain();
    some.drain();

    const nlohmann::json status = simcard.status();
    const nlohmann::json channel = channel_of(status, 1);
    EXPECT_EQ(channel.at("open"), true);
    EXPECT_EQ(channel.at("pid"), getpid());
    EXPECT_GT(all.count, 1000U);
    EXPECT_LE(all.count, 2000U);
    EXPECT_EQ(number(channel, "sent"), all.count);
    EXPECT_EQ(number(channel, "taken"), all.count);
    EXPECT_EQ(quotes_made(status), all.count);
    EXPECT_EQ(number(channel_of(status, 2), "sent"), some.count);
    EXPECT_EQ(number(channel_of(status, 2), "taken"), some.count);
    for (std::uint32_t i = 0; i < 16; ++i) {
        const nlohmann::json each = channel_of(status, i);
        EXPECT_EQ(number(each, "channel"), i);
        EXPECT_EQ(number(each, "lost") + number(each, "unheard") + number(each, "waiting"), 0U) << i;
        EXPECT_EQ(each.at("open"), i == 1 || i == 2);
    }
}

TEST(SimcardTraffic, ChannelsGetTheInstrumentsOfTheScenario) {
    const ScenarioFile scenario(kScenario);
    Simcard simcard(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(simcard.wait_until_on());
    Reader all(own_card(), 1);
    Reader some(own_card(), 2);
    ASSERT_TRUE(eventually([&] {
        all.drain();
        some.drain();
        return has_ended(simcard);
    }));
    const auto products_of = [](const Reader& reader) {
        std::set<std::string> products;
        for (const std::string& id : reader.ids) {
            products.insert(id.substr(0, 2));
        }
        return products;
    };
    EXPECT_EQ(products_of(some), (std::set<std::string>{"cu", "sc"}));
    EXPECT_GT(products_of(all).size(), 5U);
}

TEST(SimcardTraffic, MessagesLeftUnreadAreWaitingAndThenAbandoned) {
    const ScenarioFile scenario(kScenario);
    Simcard simcard(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(simcard.wait_until_on());
    auto reader = std::make_unique<Reader>(own_card(), 1);
    ASSERT_TRUE(eventually([&] { return has_ended(simcard); }));
    const std::uint64_t quotes = quotes_made(simcard.status());
    EXPECT_GT(quotes, 1000U);
    nlohmann::json channel = channel_of(simcard.status(), 1);
    EXPECT_EQ(number(channel, "sent"), quotes);
    EXPECT_EQ(number(channel, "taken"), 0U);
    EXPECT_EQ(number(channel, "waiting"), quotes);
    reader.reset();
    channel = channel_of(simcard.status(), 1);
    EXPECT_EQ(channel.at("open"), false);
    EXPECT_EQ(channel.at("pid"), 0);
    reader = std::make_unique<Reader>(own_card(), 1);
    reader->drain();
    EXPECT_EQ(reader->count, 0U);
    channel = channel_of(simcard.status(), 1);
    EXPECT_EQ(number(channel, "abandoned"), quotes);
    EXPECT_EQ(number(channel, "waiting"), 0U);
}

TEST(SimcardTraffic, FullRingLosesTheRest) {
    const ScenarioFile scenario(kScenario);
    Simcard simcard(own_card(), {"--prepared", "--scenario", scenario.path(), "--slots-log2", "6"});
    ASSERT_TRUE(simcard.wait_until_on());
    Reader reader(own_card(), 1);
    ASSERT_TRUE(eventually([&] { return has_ended(simcard); }));
    const nlohmann::json status = simcard.status();
    EXPECT_GT(quotes_made(status), 100U);
    EXPECT_EQ(number(channel_of(status, 1), "sent"), 63U);
    EXPECT_EQ(number(channel_of(status, 1), "lost"), quotes_made(status) - 63);
    reader.drain();
    EXPECT_EQ(reader.count, 63U);
}

TEST(SimcardTraffic, CardThatIsNotPreparedStaysSilentUntilAClientStartsTheCores) {
    // Whom the scenario would have subscribed does not matter then.
    const ScenarioFile scenario(
        "listing = { shfe = 20, ine = 0 }\nrate = 2000\n[channel.5]\ninstruments = [\"au\"]\n");
    Simcard simcard(own_card(), {"--scenario", scenario.path()});
    ASSERT_TRUE(simcard.wait_until_on());
    ASSERT_TRUE(eventually([&] { return simcard.status().at("traffic") == "running"; }));
    EXPECT_EQ(number(simcard.status().at("packets"), "shfe_2ps"), 0U);
    const sim::AttachedCard client = sim::attach(own_card());
    ASSERT_NE(client, nullptr);
    sim::CardMemory& memory = client->memory();
    for (std::uint32_t row = 0; row < 20; ++row) {
        sim::config_word(memory.tables, SHFE_2PS, row).store(INST_CONFIG_SUBSCRIBED | 1U << 3);
    }
    Reader reader(own_card(), 3);
    sim::write_register(memory, REG_CORE_START, 1);
    EXPECT_TRUE(eventually([&] {
        reader.drain();
        return reader.ids.size() > 10;
    }));
    EXPECT_EQ(number(channel_of(simcard.status(), 5), "unheard"), 0U);
}

TEST(SimcardTraffic, OptionsOfTheCommandLineReplaceTheScenarios) {
    const ScenarioFile scenario("rate = 5\nlisting = { shfe = 20, ine = 0 }\n");
    Simcard simcard(own_card(),
                    {"--prepared", "--scenario", scenario.path(), "--rate", "3000", "--seconds", "1"});
    ASSERT_TRUE(eventually([&] {
        const nlohmann::json status = simcard.status();
        return status.is_object() && status.value("traffic", "") == "ended";
    }));
    EXPECT_GT(quotes_made(simcard.status()), 1000U);
    EXPECT_LE(quotes_made(simcard.status()), 3000U);
    EXPECT_NE(simcard.process().output().find(", 3000 quotes/s for 1 s, prepared\n"), std::string::npos);
}

TEST(SimcardTraffic, ChannelOfAKilledReaderIsClosed) {
    Simcard simcard(own_card(), {"--prepared"});
    ASSERT_TRUE(simcard.wait_until_on());
    const pid_t reader = fork();
    if (reader == 0) {
        const auto stream = sim::CardToHostStream::open(sim::attach(simcard.card()), 6);
        pause();
        _exit(0);
    }
    EXPECT_TRUE(eventually([&] { return channel_of(simcard.status(), 6).at("open") == true; }));
    EXPECT_EQ(channel_of(simcard.status(), 6).at("pid"), reader);
    kill(reader, SIGKILL);
    waitpid(reader, nullptr, 0);
    EXPECT_TRUE(eventually([&] { return channel_of(simcard.status(), 6).at("open") == false; }));
    Reader next(own_card(), 6);
    EXPECT_TRUE(eventually([&] {
        next.drain();
        return next.count > 0;
    }));
}

TEST(SimcardTraffic, QuietCardPrintsNothing) {
    Simcard simcard(own_card(), {"--quiet"});
    ASSERT_TRUE(eventually([&] { return sim::attach(own_card()) != nullptr; }));
    EXPECT_EQ(simcard_command("off", own_card()).exit_code(), 0);
    EXPECT_EQ(simcard.process().exit_code(), 0);
    EXPECT_EQ(simcard.process().output(), "");
    EXPECT_EQ(simcard.process().error(), "");
}

TEST(SimcardScenario, BadOneIsRefusedWithItsLineAndTheReason) {
    const ScenarioFile scenario("seed = 1\n\nrate = \"fast\"\n");
    Process run = simcard_command("run", own_card(), {"--scenario", scenario.path()});
    EXPECT_EQ(run.exit_code(), 2);
    EXPECT_EQ(run.error().substr(0, scenario.path().size() + 9), scenario.path() + ":3: rate ") << run.error();
    EXPECT_EQ(run.output(), "");
    EXPECT_FALSE(has_card_memory(own_card()));
}

TEST(SimcardScenario, FileThatIsNotThereIsRefused) {
    Process run = simcard_command("run", own_card(), {"--scenario", "/nonexistent/scenario.toml"});
    EXPECT_EQ(run.exit_code(), 2);
    EXPECT_NE(run.error().find("/nonexistent/scenario.toml"), std::string::npos);
    EXPECT_FALSE(has_card_memory(own_card()));
}

TEST(SimcardScenario, EntryThatNoInstrumentAnswersToIsToldAndNoError) {
    const ScenarioFile scenario(
        "listing = { shfe = 0, ine = 5 }\n[channel.1]\ninstruments = [\"all\",\n \"cu\"]\n");
    Simcard simcard(own_card(), {"--scenario", scenario.path()});
    ASSERT_TRUE(simcard.wait_until_on());
    EXPECT_EQ(simcard.process().error(),
              scenario.path() + ":4: no instrument of this listing answers to \"cu\"\n");
}

TEST(SimcardCommandLine, MistakeIsRefusedWithAHint) {
    Process run = Process::run(KOVA_SIMCARD_PROGRAM, {"run", "--rate", "fast"});
    EXPECT_EQ(run.exit_code(), 2);
    EXPECT_EQ(run.output(), "");
    EXPECT_NE(run.error().find("\"fast\" is neither a whole number nor max"), std::string::npos);
}

}  // namespace
}  // namespace kova::test
