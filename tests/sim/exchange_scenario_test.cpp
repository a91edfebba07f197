#include "sim/exchange/scenario.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "sim/exchange/product.h"
#include "support/temp_dir.h"

namespace kova::sim {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using testing::ElementsAre;

Scenario parse(const std::string& text) {
    return Scenario::parse(text, "test.toml");
}

std::vector<std::string> texts(const InstrumentChoice& choice) {
    std::vector<std::string> found;
    for (const InstrumentEntry& entry : choice.instruments) {
        found.push_back(entry.text);
    }
    return found;
}

// ---------------------------------------------------------------- defaults and values

TEST(Scenario, EmptyFileHasTheDefaults) {
    const Scenario scenario = parse("");
    EXPECT_EQ(scenario.name, "test.toml");
    EXPECT_EQ(scenario.listing.seed, 1U);
    EXPECT_EQ(scenario.listing.date, std::chrono::year{2024} / 11 / 18);
    EXPECT_EQ(scenario.listing.shfe, std::nullopt);
    EXPECT_EQ(scenario.listing.ine, std::nullopt);
    EXPECT_EQ(scenario.listing.limit_permille, std::nullopt);
    EXPECT_EQ(scenario.rate, 1000U);
    EXPECT_EQ(scenario.duration, milliseconds{0});
    EXPECT_EQ(scenario.start_delay, milliseconds{0});
    EXPECT_EQ(scenario.open_time, hours{9});
    EXPECT_EQ(scenario.trend, 0);
    EXPECT_THAT(texts(scenario.hot), testing::IsEmpty());
    for (const InstrumentChoice& channel : scenario.channels) {
        EXPECT_THAT(texts(channel), ElementsAre("all"));
        EXPECT_FALSE(channel.options);
    }
    EXPECT_THAT(scenario.snapshot.feeds, ElementsAre(SnapshotFeed::of(SHFE_2PS), SnapshotFeed::of(INE_2PS)));
    EXPECT_EQ(scenario.snapshot.order, SnapshotOrder::sequential);
    EXPECT_EQ(scenario.snapshot.message_bytes, 4096U);
    EXPECT_EQ(scenario.snapshot.long_message_bytes, 65535U);
    EXPECT_EQ(scenario.snapshot.middle_flag, 0x11);
    EXPECT_EQ(scenario.snapshot.segments.rule, SegmentRule::bulk);
    EXPECT_EQ(scenario.snapshot.segments.bytes, 1460U);
    EXPECT_EQ(scenario.snapshot.segments.split_at, std::nullopt);
    EXPECT_EQ(scenario.snapshot.segments.quirky_cuts, 0);
    EXPECT_EQ(scenario.snapshot.first_seq, std::nullopt);
    EXPECT_THAT(scenario.impairments.rates, testing::Each(0));
    EXPECT_EQ(scenario.impairments.seed, 1U);
    EXPECT_EQ(Scenario::defaults().name, "default");
    EXPECT_EQ(Scenario::defaults().rate, 1000U);
}

TEST(Scenario, EveryKeyIsRead) {
    const Scenario scenario = parse(R"(
seed = 42
date = 2025-03-17
rate = 250000
duration = 1.5
start_delay = 2
open_time = 21:00:00.250

[listing]
shfe = 100
ine = 20

[market]
limit_percent = 2.5
trend = -0.25

[hot]
instruments = ["rb2505"]
options = true
share = 0.8

[channel.3]
instruments = ["cu", "au2506", "sc*"]
options = true

[channel.15]
instruments = ["all"]

[snapshot]
feeds = ["ine4ps", "shfe2ps"]
order = "interleaved"
message_bytes = 60000
middle_flag = 0x00
segments = "packed"
segment_bytes = 1000
split_at = 70
quirky_cuts = 0.25
first_seq = 4294967295
ports = { shfe2ps = 33023, ine4ps = 65535 }
topics = { shfe2ps = 1001, ine4ps = 32767 }
long_messages = { ine4ps = 1000000 }
long_message_bytes = 60001

[snapshot.bad_prices]
crossed = ["cu2505"]
no_value = ["rb", "*TAS"]

[impairments]
seed = 7
lose = 0.001
swap = { rate = 0.5, seed = 9223372036854775807 }
rst_ack = 1
)");
    EXPECT_EQ(scenario.listing.seed, 42U);
    EXPECT_EQ(scenario.listing.date, std::chrono::year{2025} / 3 / 17);
    EXPECT_EQ(scenario.rate, 250000U);
    EXPECT_EQ(scenario.duration, milliseconds{1500});
    EXPECT_EQ(scenario.start_delay, milliseconds{2000});
    EXPECT_EQ(scenario.open_time, hours{21} + milliseconds{250});
    EXPECT_EQ(scenario.listing.shfe, 100U);
    EXPECT_EQ(scenario.listing.ine, 20U);
    EXPECT_EQ(scenario.listing.limit_permille, 25);
    EXPECT_EQ(scenario.trend, -0.25);
    EXPECT_THAT(texts(scenario.hot), ElementsAre("rb2505"));
    EXPECT_TRUE(scenario.hot.options);
    EXPECT_EQ(scenario.hot_share, 0.8);
    EXPECT_THAT(texts(scenario.channels[3]), ElementsAre("cu", "au2506", "sc*"));
    EXPECT_TRUE(scenario.channels[3].options);
    EXPECT_EQ(scenario.channels[3].instruments[2].line, 23U);
    EXPECT_THAT(texts(scenario.channels[15]), ElementsAre("all"));
    EXPECT_FALSE(scenario.channels[15].options);
    EXPECT_THAT(texts(scenario.channels[0]), testing::IsEmpty());

    const SnapshotOptions& snapshot = scenario.snapshot;
    ASSERT_EQ(snapshot.feeds.size(), 2U);
    EXPECT_EQ(snapshot.feeds[0].feed, INE_4PS);
    EXPECT_EQ(snapshot.feeds[0].client.port, 65535);
    EXPECT_EQ(snapshot.feeds[0].topic_id, 32767);
    EXPECT_EQ(snapshot.feeds[1].feed, SHFE_2PS);
    EXPECT_EQ(snapshot.feeds[1].client.port, 33023);
    EXPECT_EQ(snapshot.feeds[1].topic_id, 1001);
    EXPECT_EQ(snapshot.feeds[0].long_messages, 1000000U);
    EXPECT_EQ(snapshot.feeds[1].long_messages, 0U);
    EXPECT_EQ(snapshot.long_message_bytes, 60001U);
    EXPECT_EQ(snapshot.order, SnapshotOrder::interleaved);
    EXPECT_EQ(snapshot.message_bytes, 60000U);
    EXPECT_EQ(snapshot.middle_flag, 0);
    EXPECT_EQ(snapshot.segments.rule, SegmentRule::packed);
    EXPECT_EQ(snapshot.segments.bytes, 1000U);
    EXPECT_EQ(snapshot.segments.split_at, 70U);
    EXPECT_EQ(snapshot.segments.quirky_cuts, 0.25);
    EXPECT_EQ(snapshot.first_seq, 4294967295U);
    EXPECT_THAT(texts(scenario.bad_prices[0]), ElementsAre("cu2505"));
    EXPECT_THAT(texts(scenario.bad_prices[2]), ElementsAre("rb", "*TAS"));
    EXPECT_THAT(texts(scenario.bad_prices[1]), testing::IsEmpty());
    EXPECT_EQ(scenario.impairments.seed, 7U);
    EXPECT_EQ(scenario.impairments.rates[0], 0.001);
    EXPECT_EQ(scenario.impairments.rates[11], 1);
    EXPECT_EQ(scenario.impairments.rates[4], 0.5);
    EXPECT_EQ(scenario.impairments.rates[5], 0);
    EXPECT_EQ(scenario.impairments.seeds[0], std::nullopt);
    EXPECT_EQ(scenario.impairments.seeds[4], 9223372036854775807U);
}

TEST(Scenario, ImpairmentsFollowFromTheScenariosSeedUnlessTheyHaveTheirOwn) {
    EXPECT_EQ(parse("seed = 5\n[impairments]\nlose = 0.5").impairments.seed, 5U);
    EXPECT_EQ(parse("seed = 5").impairments.seed, 5U);
    EXPECT_EQ(parse("seed = 5\nimpairments.seed = 0").impairments.seed, 0U);
}

TEST(Scenario, RateMaxIsUnlimited) {
    EXPECT_EQ(parse("rate = \"max\"").rate, std::nullopt);
}

TEST(Scenario, ListingFullIsTheDefault) {
    EXPECT_EQ(parse("listing = \"full\"").listing.shfe, std::nullopt);
    EXPECT_EQ(parse("listing = { shfe = 10 }").listing.ine, std::nullopt);
    EXPECT_FALSE(parse("listing = { shfe = 10 }").listing.edges);
    EXPECT_TRUE(parse("listing = { shfe = 0, ine = 0, edges = true }").listing.edges);
    EXPECT_EQ(parse("listing.edges = true").listing.shfe, std::nullopt);
}

TEST(Scenario, AHotSetWithoutShareGetsHalf) {
    EXPECT_EQ(parse("[hot]\ninstruments = [\"rb\"]").hot_share, 0.5);
}

TEST(Scenario, EndsOfRangesAreAccepted) {
    EXPECT_EQ(parse("seed = 0").listing.seed, 0U);
    EXPECT_EQ(parse("seed = 9223372036854775807").listing.seed, 9223372036854775807U);
    EXPECT_EQ(parse("rate = 1").rate, 1U);
    EXPECT_EQ(parse("rate = 1000000000").rate, 1000000000U);
    EXPECT_EQ(parse("duration = 604800").duration, hours{24 * 7});
    EXPECT_EQ(parse("listing = { shfe = 16384, ine = 0 }").listing.shfe, 16384U);
    EXPECT_EQ(parse("market.trend = 1").trend, 1);
    EXPECT_EQ(parse("date = 2010-01-01").listing.date.year(), std::chrono::year{2010});
    EXPECT_EQ(parse("date = 2090-12-29").listing.date.year(), std::chrono::year{2090});
}

TEST(Scenario, IsReadFromAFile) {
    const test::TempDir dir;
    const std::filesystem::path file = dir.path() / "small.toml";
    std::ofstream(file) << "rate = 7\n";
    EXPECT_EQ(Scenario::load(file).rate, 7U);
    EXPECT_EQ(Scenario::load(file).name, file.string());
}

TEST(Scenario, AFileThatCannotBeReadIsRefused) {
    const test::TempDir dir;
    for (const std::filesystem::path& file : {dir.path(), dir.path() / "none.toml"}) {
        try {
            Scenario::load(file);
            ADD_FAILURE() << file;
        } catch (const ScenarioError& error) {
            EXPECT_EQ(error.what(), file.string() + ":0: cannot be read");
            EXPECT_EQ(error.line(), 0U);
        }
    }
}

// ---------------------------------------------------------------- refusals

struct Refusal {
    const char* text;
    const char* what;
};

class BadScenario : public testing::TestWithParam<Refusal> {};

TEST_P(BadScenario, IsRefusedWithLineAndReason) {
    try {
        parse(GetParam().text);
        ADD_FAILURE() << "accepted: " << GetParam().text;
    } catch (const ScenarioError& error) {
        EXPECT_STREQ(error.what(), GetParam().what);
        EXPECT_EQ(error.what(), "test.toml:" + std::to_string(error.line()) + ": " + error.reason());
    }
}

INSTANTIATE_TEST_SUITE_P(
    UnknownKeys, BadScenario,
    testing::Values(Refusal{"seed = 1\nsed = 2\n", "test.toml:2: unknown key \"sed\""},
                    Refusal{"\n\n[listing]\nine = 2\nshef = 3\n", "test.toml:5: unknown key \"shef\""},
                    Refusal{"[market]\nlimits = 3\n", "test.toml:2: unknown key \"limits\""},
                    Refusal{"[hot]\nweight = 3\n", "test.toml:2: unknown key \"weight\""},
                    Refusal{"[channel.1]\ninstruments = [\"cu\"]\noption = true\n",
                            "test.toml:3: unknown key \"option\""},
                    Refusal{"[snapshot]\nfeed = []", "test.toml:2: unknown key \"feed\""},
                    Refusal{"[snapshot.ports]\n\nshfe = 1", "test.toml:3: unknown key \"shfe\""},
                    Refusal{"[snapshot.topics]\nine2 = 1", "test.toml:2: unknown key \"ine2\""},
                    Refusal{"[snapshot.bad_prices]\ninf = [\"cu\"]", "test.toml:2: unknown key \"inf\""},
                    Refusal{"[impairments]\nlose = 0\nloss = 0.1", "test.toml:3: unknown key \"loss\""},
                    Refusal{"[impairments.lose]\nrate = 0\nsede = 1", "test.toml:3: unknown key \"sede\""},
                    Refusal{"[chanel.1]\ninstruments = [\"cu\"]\n", "test.toml:1: unknown key \"chanel\""}));

INSTANTIATE_TEST_SUITE_P(
    WrongTypes, BadScenario,
    testing::Values(
        Refusal{"seed = 1.5", "test.toml:1: seed must be a whole number from 0 to 9223372036854775807"},
        Refusal{"seed = \"1\"", "test.toml:1: seed must be a whole number from 0 to 9223372036854775807"},
        Refusal{"\ndate = \"2024-11-18\"", "test.toml:2: date must be a date as 2024-11-18"},
        Refusal{"rate = \"fast\"", "test.toml:1: rate must be \"max\" or a whole number from 1 to 1000000000"},
        Refusal{"rate = 1.5", "test.toml:1: rate must be \"max\" or a whole number from 1 to 1000000000"},
        Refusal{"rate = true", "test.toml:1: rate must be \"max\" or a whole number from 1 to 1000000000"},
        Refusal{"duration = \"1h\"",
                "test.toml:1: duration must be a number of seconds from 0 to 604800, a week"},
        Refusal{"start_delay = true",
                "test.toml:1: start_delay must be a number of seconds from 0 to 604800, a week"},
        Refusal{"open_time = 9", "test.toml:1: open_time must be a time of day as 09:00:00"},
        Refusal{"listing = 100",
                "test.toml:1: listing must be \"full\" or a table with the counts shfe and ine"},
        Refusal{"listing = \"small\"",
                "test.toml:1: listing must be \"full\" or a table with the counts shfe and ine"},
        Refusal{"market = 1", "test.toml:1: market must be a table"},
        Refusal{"hot = [\"cu\"]", "test.toml:1: hot must be a table"},
        Refusal{"channel = 3", "test.toml:1: channel must be a table"},
        Refusal{"channel.3 = \"cu\"", "test.toml:1: 3 must be a table"},
        Refusal{"[channel.3]\ninstruments = \"cu\"",
                "test.toml:2: instruments must be a list as [\"cu\", \"au2412\"]"},
        Refusal{"[channel.3]\ninstruments = [\n\"cu\",\n5]", "test.toml:4: instruments must be texts"},
        Refusal{"[channel.3]\noptions = 1", "test.toml:2: options must be true or false"},
        Refusal{"snapshot = true", "test.toml:1: snapshot must be a table"},
        Refusal{"impairments = 0.5", "test.toml:1: impairments must be a table"},
        Refusal{"snapshot.ports = 33022", "test.toml:1: ports must be a table"},
        Refusal{"snapshot.bad_prices.nan = \"cu\"", "test.toml:1: nan must be a list as [\"cu\", \"au2412\"]"},
        Refusal{"snapshot.feeds = \"ine2ps\"",
                "test.toml:1: feeds must be a list of shfe2ps, shfe4ps, ine2ps and ine4ps, each at most once"},
        Refusal{"snapshot.feeds = [2]",
                "test.toml:1: feeds must be a list of shfe2ps, shfe4ps, ine2ps and ine4ps, each at most once"},
        Refusal{"snapshot.order = 1", "test.toml:1: order must be one of \"sequential\" \"interleaved\""},
        Refusal{"[impairments]\nswap = \"often\"", "test.toml:2: swap must be a number from 0 to 1"}));

INSTANTIATE_TEST_SUITE_P(
    OutOfRange, BadScenario,
    testing::Values(
        Refusal{"seed = -1", "test.toml:1: seed must be a whole number from 0 to 9223372036854775807"},
        Refusal{"rate = 0", "test.toml:1: rate must be \"max\" or a whole number from 1 to 1000000000"},
        Refusal{"rate = 1000000001",
                "test.toml:1: rate must be \"max\" or a whole number from 1 to 1000000000"},
        Refusal{"duration = -1", "test.toml:1: duration must be a number of seconds from 0 to 604800, a week"},
        Refusal{"duration = nan", "test.toml:1: duration must be a number of seconds from 0 to 604800, a week"},
        Refusal{"duration = inf", "test.toml:1: duration must be a number of seconds from 0 to 604800, a week"},
        Refusal{"date = 2024-11-17", "test.toml:1: date must be a trading day, and that is a weekend"},
        Refusal{"date = 1999-11-17", "test.toml:1: date must lie in the years 2010 to 2090"},
        Refusal{"listing = { shfe = 16385 }", "test.toml:1: shfe must be a whole number from 0 to 16384"},
        Refusal{"[listing]\nine = 4097", "test.toml:2: ine must be a whole number from 0 to 4096"},
        Refusal{"[listing]\nine = 0\nshfe = 0", "test.toml:1: listing has no instrument"},
        Refusal{"[market]\nlimit_percent = 0", "test.toml:2: limit_percent must be a number from 0.1 to 50"},
        Refusal{"[market]\ntrend = 1.1", "test.toml:2: trend must be a number from -1 to 1"},
        Refusal{"[hot]\nshare = 2", "test.toml:2: share must be a number from 0 to 1"},
        Refusal{"snapshot.feeds = []",
                "test.toml:1: feeds must be a list of shfe2ps, shfe4ps, ine2ps and ine4ps, each at most once"},
        Refusal{"snapshot.feeds = [\"ine2ps\", \"ine2ps\"]",
                "test.toml:1: feeds must be a list of shfe2ps, shfe4ps, ine2ps and ine4ps, each at most once"},
        Refusal{"snapshot.feeds = [\"ine3ps\"]",
                "test.toml:1: feeds must be a list of shfe2ps, shfe4ps, ine2ps and ine4ps, each at most once"},
        Refusal{"snapshot.segments = \"single\"",
                "test.toml:1: segments must be one of \"bulk\" \"message\" \"packed\""},
        Refusal{"snapshot.segment_bytes = 63",
                "test.toml:1: segment_bytes must be a whole number from 64 to 1460"},
        Refusal{"snapshot.message_bytes = 523",
                "test.toml:1: message_bytes must be a whole number from 524 to 60000"},
        Refusal{"snapshot.middle_flag = 1", "test.toml:1: middle_flag must not be 1, which ends a snapshot"},
        Refusal{"snapshot.middle_flag = 256", "test.toml:1: middle_flag must be a whole number from 0 to 255"},
        Refusal{"snapshot.split_at = 0", "test.toml:1: split_at must be a whole number from 1 to 2147483647"},
        Refusal{"snapshot.first_seq = 4294967296",
                "test.toml:1: first_seq must be a whole number from 0 to 4294967295"},
        Refusal{"snapshot.quirky_cuts = 1.1", "test.toml:1: quirky_cuts must be a number from 0 to 1"},
        Refusal{"snapshot.ports.shfe2ps = 0", "test.toml:1: shfe2ps must be a whole number from 1 to 65535"},
        Refusal{"snapshot.topics.shfe2ps = 32768",
                "test.toml:1: shfe2ps must be a whole number from 0 to 32767"},
        Refusal{"snapshot.long_messages.ine2ps = 1000001",
                "test.toml:1: ine2ps must be a whole number from 0 to 1000000"},
        Refusal{"snapshot.long_message_bytes = 60000",
                "test.toml:1: long_message_bytes must be a whole number from 60001 to 65535"},
        Refusal{"snapshot.long_message_bytes = 65536",
                "test.toml:1: long_message_bytes must be a whole number from 60001 to 65535"},
        Refusal{"[snapshot]\nfeeds = [\"shfe2ps\"]\nports.ine2ps = 5",
                "test.toml:3: ine2ps is none of the feeds whose snapshots are sent"},
        Refusal{"snapshot.topics.shfe4ps = 5",
                "test.toml:1: shfe4ps is none of the feeds whose snapshots are sent"},
        Refusal{"snapshot.long_messages.ine4ps = 1",
                "test.toml:1: ine4ps is none of the feeds whose snapshots are sent"},
        Refusal{"[impairments]\n\nlose = 1.5", "test.toml:3: lose must be a number from 0 to 1"},
        Refusal{"[impairments]\nseed = -1",
                "test.toml:2: seed must be a whole number from 0 to 9223372036854775807"},
        Refusal{"[impairments]\n\nlose = { seed = 1 }", "test.toml:3: lose needs a rate"},
        Refusal{"[impairments.lose]\nrate = -0.1", "test.toml:2: rate must be a number from 0 to 1"},
        Refusal{"[impairments.lose]\nrate = 0.1\nseed = 1.5",
                "test.toml:3: seed must be a whole number from 0 to 9223372036854775807"},
        Refusal{"[channel.16]\ninstruments = []", "test.toml:1: channel \"16\" is none of 0 to 15"},
        Refusal{"[channel.-1]\ninstruments = []", "test.toml:1: channel \"-1\" is none of 0 to 15"},
        Refusal{"\n[channel.03]\ninstruments = []", "test.toml:2: channel \"03\" is none of 0 to 15"}));

INSTANTIATE_TEST_SUITE_P(
    Instruments, BadScenario,
    testing::Values(Refusal{"[channel.0]\ninstruments = [\"cu\",\n\"xx\"]",
                            "test.toml:3: \"xx\" names an unknown product, \"xx\""},
                    Refusal{"[channel.0]\ninstruments = [\"CU2501\"]",
                            "test.toml:2: \"CU2501\" names an unknown product, \"CU\""},
                    Refusal{"[channel.0]\ninstruments = [\"\"]",
                            "test.toml:2: \"\" is neither a product, an identifier nor a pattern"},
                    Refusal{"[channel.0]\ninstruments = [\"2501\"]",
                            "test.toml:2: \"2501\" is neither a product, an identifier nor a pattern"},
                    Refusal{"[channel.0]\ninstruments = [\"cu 2501\"]",
                            "test.toml:2: \"cu 2501\" is neither a product, an identifier nor a pattern"},
                    Refusal{"[channel.0]\ninstruments = [\"cu25\"]",
                            "test.toml:2: \"cu25\" is no identifier: cu with year and month is cu2501"},
                    Refusal{
                        "[channel.0]\ninstruments = [\"cu2501C750000000\"]",
                        "test.toml:2: \"cu2501C750000000\" is no identifier: cu with year and month is cu2501"},
                    Refusal{"[snapshot.bad_prices]\ncrossed = [\"cu\", \"cu25\"]",
                            "test.toml:2: \"cu25\" is no identifier: cu with year and month is cu2501"},
                    Refusal{"[hot]\ninstruments = [\"xx2501\"]",
                            "test.toml:2: \"xx2501\" names an unknown product, \"xx\""}));

class MalformedScenario : public testing::TestWithParam<Refusal> {};

/** The reader's own words follow the line. */
TEST_P(MalformedScenario, IsRefusedWithItsLine) {
    try {
        parse(GetParam().text);
        ADD_FAILURE() << "accepted: " << GetParam().text;
    } catch (const ScenarioError& error) {
        EXPECT_THAT(error.what(), testing::StartsWith(GetParam().what));
        EXPECT_GT(error.reason().size(), 10U);
        EXPECT_EQ(error.reason().find('\n'), std::string::npos);
    }
}

INSTANTIATE_TEST_SUITE_P(Toml, MalformedScenario,
                         testing::Values(Refusal{"seed = ", "test.toml:1: "},
                                         Refusal{"seed = 1\nseed = 2", "test.toml:2: "},
                                         Refusal{"seed = 1\n\nrate 5\n", "test.toml:3: "},
                                         Refusal{"[channel.3", "test.toml:1: "},
                                         Refusal{"date = 2024-02-30", "test.toml:1: "},
                                         Refusal{"seed = 9223372036854775808", "test.toml:1: "},
                                         Refusal{"[hot]\ninstruments = [\"cu\"", "test.toml:2: "},
                                         Refusal{"rate = \"\xff\"", "test.toml:1: "}));

TEST(Scenario, WhatTheReaderAssertsIsRefusedWithItsLine) {
    try {
        parse("seed = 1\n[channel.3]\ninstruments = [\n\"rb\",} \"ag\"]\noptions = true\n");
        ADD_FAILURE();
    } catch (const ScenarioError& error) {
        EXPECT_STREQ(error.what(), "test.toml:4: a value is malformed");
    }
}

// ---------------------------------------------------------------- selection

Listing full_listing() {
    return Listing::make({});
}

std::vector<std::string> ids_of(const std::vector<InstrumentRef>& refs, const Listing& listing) {
    std::vector<std::string> ids;
    for (const InstrumentRef ref : refs) {
        ids.emplace_back(listing.at(ref).id());
    }
    return ids;
}

std::vector<std::string> selected_by(const std::string& channel, const Listing& listing) {
    const Scenario scenario = parse("[channel.5]\n" + channel);
    return ids_of(select(scenario, listing).channels[5], listing);
}

TEST(Selection, AProductSelectsItsFutures) {
    EXPECT_THAT(selected_by("instruments = [\"au\"]", full_listing()),
                ElementsAre("au2412", "au2501", "au2502", "au2504", "au2506", "au2508", "au2510", "au2512"));
}

TEST(Selection, AProductWithOptionsSelectsOptionsAndTasToo) {
    const Listing listing = full_listing();
    const std::vector<std::string> ids = selected_by("instruments = [\"sc\"]\noptions = true", listing);
    EXPECT_THAT(ids, testing::IsSupersetOf({"sc2412", "sc2412TAS", "sc2501C550", "sc2501P550"}));
    for (const std::string& id : ids) {
        EXPECT_TRUE(id.starts_with("sc")) << id;
    }
    EXPECT_GT(ids.size(), 1000U);
}

TEST(Selection, AnIdentifierSelectsItselfAlone) {
    EXPECT_THAT(selected_by("instruments = [\"cu2501\"]\noptions = true", full_listing()),
                ElementsAre("cu2501"));
    EXPECT_THAT(selected_by("instruments = [\"cu2501C75000\"]", full_listing()), ElementsAre("cu2501C75000"));
}

TEST(Selection, APatternSelectsWhateverIdentifierFits) {
    EXPECT_THAT(selected_by("instruments = [\"??2501C7[56]000\"]", full_listing()),
                ElementsAre("cu2501C75000", "cu2501C76000"));
    EXPECT_THAT(selected_by("instruments = [\"*TAS\"]", full_listing()), ElementsAre("sc2412TAS", "sc2501TAS"));
}

TEST(Selection, AllSelectsEveryFuture) {
    const Listing listing = full_listing();
    EXPECT_EQ(selected_by("instruments = [\"all\"]\noptions = true", listing).size(),
              listing.instruments().size());
    std::size_t futures = 0;
    for (const Instrument& instrument : listing.instruments()) {
        futures += instrument.kind == InstrumentKind::future ? 1 : 0;
    }
    EXPECT_EQ(selected_by("instruments = [\"all\"]", listing).size(), futures);
}

TEST(Selection, EntriesThatOverlapSelectOnceInTheOrderOfTheListing) {
    EXPECT_THAT(
        selected_by("instruments = [\"zn2501\", \"au\", \"au2412\"]", full_listing()),
        ElementsAre("au2412", "au2501", "au2502", "au2504", "au2506", "au2508", "au2510", "au2512", "zn2501"));
}

TEST(Selection, ChannelsAreSeparateAndShownAsBits) {
    const Listing listing = full_listing();
    const Scenario scenario =
        parse("[channel.0]\ninstruments=[\"cu2501\"]\n[channel.15]\ninstruments=[\"cu2501\", \"sc2501\"]");
    const Selection selection = select(scenario, listing);
    EXPECT_THAT(ids_of(selection.channels[0], listing), ElementsAre("cu2501"));
    EXPECT_THAT(ids_of(selection.channels[15], listing), ElementsAre("cu2501", "sc2501"));
    EXPECT_THAT(selection.channels[7], testing::IsEmpty());
    EXPECT_THAT(ids_of(selection.heard, listing), ElementsAre("cu2501", "sc2501"));
    EXPECT_EQ(selection.channel_bits(listing, listing.find("cu2501")->ref), 0x8001U);
    EXPECT_EQ(selection.channel_bits(listing, listing.find("sc2501")->ref), 0x8000U);
    EXPECT_EQ(selection.channel_bits(listing, listing.find("au2412")->ref), 0U);
    EXPECT_EQ(selection.channels[15][1].feed, INE_2PS);
}

TEST(Selection, EntriesThatSelectNothingAreReported) {
    const Listing listing = full_listing();
    const Scenario scenario =
        parse("[hot]\ninstruments = [\"cu2501\", \"zz*\"]\n[channel.2]\ninstruments = [\n\"cu2401\",\n\"ad\"]");
    const Selection selection = select(scenario, listing);
    ASSERT_EQ(selection.unmatched.size(), 3U);
    EXPECT_EQ(selection.unmatched[0].channel, 2U);
    EXPECT_EQ(selection.unmatched[0].entry.text, "cu2401");
    EXPECT_EQ(selection.unmatched[0].entry.line, 5U);
    EXPECT_EQ(selection.unmatched[1].entry.text, "ad");
    EXPECT_EQ(selection.unmatched[1].entry.line, 6U);
    EXPECT_EQ(selection.unmatched[2].channel, std::nullopt);
    EXPECT_EQ(selection.unmatched[2].entry.text, "zz*");
    EXPECT_THAT(ids_of(selection.hot, listing), ElementsAre("cu2501"));
}

TEST(Selection, DefaultScenarioGivesEveryFutureToEveryChannel) {
    const Listing listing = full_listing();
    const Selection selection = select(Scenario::defaults(), listing);
    EXPECT_EQ(selection.channel_bits(listing, listing.find("cu2501")->ref), 0xFFFFU);
    EXPECT_EQ(selection.channel_bits(listing, listing.find("cu2501C75000")->ref), 0U);
}

TEST(Selection, BadPricesAreThoseOfTheInstrumentsSelected) {
    const Listing listing = full_listing();
    const Scenario scenario = parse(
        "seed = 6\nsnapshot.message_bytes = 999\n"
        "[snapshot.bad_prices]\nnan = [\"sc2501TAS\", \"zz*\"]\ncrossed = [\"cu2501\", \"*TAS\"]");
    const Selection selection = select(scenario, listing);
    const SnapshotOptions options = snapshot_options(scenario, selection);
    EXPECT_EQ(options.seed, 6U);
    EXPECT_EQ(options.message_bytes, 999U);
    std::vector<std::string> bad;
    for (const BadPrice& price : options.bad_prices) {
        bad.push_back(std::string(listing.at(price.ref).id()) + " " +
                      std::string(kPriceFaultNames[name_index(price.fault)]));
    }
    EXPECT_THAT(bad, ElementsAre("cu2501 crossed", "sc2412TAS crossed", "sc2501TAS crossed", "sc2501TAS nan"));
    ASSERT_EQ(selection.unmatched.size(), 1U);
    EXPECT_EQ(selection.unmatched[0].entry.text, "zz*");
    EXPECT_EQ(selection.unmatched[0].entry.line, 4U);
}

TEST(Selection, TheMarketMovesWhatIsHeard) {
    const Listing listing = full_listing();
    const Scenario scenario = parse(
        "seed = 9\nopen_time = 21:00:00\n[market]\ntrend = 0.5\n[hot]\ninstruments=[\"cu2501\"]\nshare = 0.9\n"
        "[channel.4]\ninstruments = [\"cu2501\", \"zn2501\"]");
    const MarketOptions options = market_options(scenario, select(scenario, listing));
    EXPECT_EQ(options.seed, 9U);
    EXPECT_EQ(options.open_time, hours{21});
    EXPECT_EQ(options.trend, 0.5);
    EXPECT_EQ(options.hot_share, 0.9);
    EXPECT_THAT(ids_of(options.moving, listing), ElementsAre("cu2501", "zn2501"));
    EXPECT_THAT(ids_of(options.hot, listing), ElementsAre("cu2501"));
}

// ---------------------------------------------------------------- the card and its events

std::string refusal(const std::string& text) {
    try {
        static_cast<void>(parse(text));
    } catch (const ScenarioError& error) {
        return error.what();
    }
    return "nothing";
}

TEST(ScenarioCard, MemoryTakesAsLongAsItSays) {
    EXPECT_EQ(parse("").card_memory, std::nullopt);
    EXPECT_EQ(parse("card.memory = 0.5").card_memory, CardMemoryDelay(milliseconds(500)));
    const Scenario never = parse("card.memory = \"never\"");
    ASSERT_TRUE(never.card_memory.has_value());
    EXPECT_EQ(*never.card_memory, std::nullopt);
    EXPECT_EQ(refusal("[card]\nmemory = -1"),
              "test.toml:2: memory must be a number of seconds from 0 to 3600, or \"never\"");
}

TEST(ScenarioCard, SnapshotsHaveARate) {
    EXPECT_EQ(parse("").snapshot_rate, Rate(5000));
    EXPECT_EQ(parse("snapshot.rate = 200").snapshot_rate, Rate(200));
    EXPECT_EQ(parse("snapshot.rate = \"max\"").snapshot_rate, Rate());
}

TEST(ScenarioCard, EventsAreToldAtSecondsOrAtTheExchangesTime) {
    const Scenario scenario = parse(
        "[[events]]\nat = 1.5\ntell = \"event lost 0\"\n"
        "[[events]]\nat = 09:30:00\ntell = \"feed stop ine2ps\"\n");
    ASSERT_EQ(scenario.events.size(), 2U);
    EXPECT_FALSE(scenario.events[0].is_exchange_time);
    EXPECT_EQ(scenario.events[0].at, milliseconds(1500));
    EXPECT_EQ(scenario.events[0].command, "event lost 0");
    EXPECT_EQ(scenario.events[0].line, 1U);
    EXPECT_TRUE(scenario.events[1].is_exchange_time);
    EXPECT_EQ(scenario.events[1].at, hours(9) + minutes(30));
    EXPECT_EQ(scenario.events[1].line, 4U);
}

TEST(ScenarioCard, EventsThatLackSomethingAreRefused) {
    EXPECT_EQ(refusal("[[events]]\nat = 1"), "test.toml:1: an event needs both at and tell");
    EXPECT_EQ(refusal("[[events]]\nat = 1\ntell = 5"), "test.toml:3: tell must be a text as \"event lost 0\"");
    EXPECT_EQ(refusal("events = 1"), "test.toml:1: events must be tables, each under [[events]]");
    EXPECT_EQ(refusal("[[events]]\nat = 1\ntell = \"x\"\nwhen = 2"), "test.toml:4: unknown key \"when\"");
}

}  // namespace
}  // namespace kova::sim
