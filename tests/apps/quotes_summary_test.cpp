#include "kova_quotes/summary.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "apps/quotes_sample.h"
#include "apps/quotes_scripted_api.h"
#include "support/temp_dir.h"

namespace kova::app {
namespace {

InstrumentId id_of(std::string_view text) {
    return *InstrumentId::of(text);
}

Summary sample() {
    Summary summary;
    summary.end = End::kSeconds;
    summary.seconds = 2.5;
    summary.channel_quotes = 1234567;
    summary.displayed = 1000;
    summary.best_second = 600000;
    summary.gaps = 2;
    summary.missing = 13;
    summary.backward = 1;
    summary.instruments = {
        {.id = id_of("cu2509"), .changes = {.quotes = 1234000, .first_change = 5, .last_change = 1234004}},
        {.id = id_of("al2509"),
         .changes = {
             .quotes = 567, .first_change = 1, .last_change = 580, .gaps = 2, .missing = 13, .backward = 1}}};
    return summary;
}

ReceiveCosts sample_costs() {
    return {.with_quote = {.calls = 1234567, .p50 = 20.5, .p90 = 25, .p99 = 40, .p99_9 = 100, .max = 54321},
            .empty = {.calls = 0},
            .clock = 12.25};
}

TEST(Summary, TheTextTellsCountsRateAndGaps) {
    EXPECT_EQ(summary_text(sample(), false),
              "1,234,567 quotes in 2.5 s, 493,827 a second, 1,000 displayed: the time is over\n"
              "2 instruments, 2 gaps in the change numbers, 13 missing, 1 backward\n");
}

TEST(Summary, TheTextOfOneQuoteWithoutGapsIsInTheSingular) {
    Summary summary;
    summary.end = End::kCount;
    summary.seconds = 1;
    summary.channel_quotes = summary.displayed = 1;
    summary.instruments = {{.id = id_of("cu2509"), .changes = {.quotes = 1}}};
    EXPECT_EQ(summary_text(summary, false),
              "1 quote in 1.0 s, 1 a second, 1 displayed: all that were asked for\n"
              "1 instrument, no gap in the change numbers\n");
}

TEST(Summary, TheTextNamesChosenInstrumentsWithoutAQuote) {
    Summary summary = sample();
    summary.silent = {id_of("zn2509"), id_of("pb2509")};
    EXPECT_NE(summary_text(summary, false).find("\nno quote of zn2509 pb2509\n"), std::string::npos);
}

TEST(Summary, TheTextTellsQuotesThatCouldNotBeWatched) {
    Summary summary = sample();
    summary.untracked = 3;
    EXPECT_NE(summary_text(summary, false).find(" (3 quotes of further instruments not watched)\n"),
              std::string::npos);
}

TEST(Summary, StatisticsTellTheBusiestSecondGapsByInstrumentAndCosts) {
    Summary summary = sample();
    summary.costs = sample_costs();
    EXPECT_EQ(summary_text(summary, true),
              "1,234,567 quotes in 2.5 s, 493,827 a second, 1,000 displayed: the time is over\n"
              "2 instruments, 2 gaps in the change numbers, 13 missing, 1 backward\n"
              "busiest second: 600,000 quotes\n"
              "gaps by instrument\n"
              "  instrument             quotes        first         last      gaps      missing  backward\n"
              "  al2509                    567            1          580         2           13         1\n"
              "receive calls, nanoseconds without the callback and the clock (12.2 a reading pair)\n"
              "                           calls       p50       p90       p99     p99.9           max\n"
              "  with a quote         1,234,567        21        25        40       100        54,321\n"
              "  empty                        0\n");
}

TEST(Summary, TheWorstGapsComeFirstAndOnlyTwentyAreToldOneByOne) {
    Summary summary;
    for (std::uint64_t i = 1; i <= 23; ++i) {
        summary.instruments.push_back(
            {.id = id_of(fmt::format("x{}", i)), .changes = {.quotes = 2, .gaps = 1, .missing = i}});
    }
    const std::string text = summary_text(summary, true);
    EXPECT_NE(text.find("\n  x4 "), std::string::npos);
    EXPECT_EQ(text.find("\n  x3 "), std::string::npos);
    EXPECT_LT(text.find("\n  x23 "), text.find("\n  x22 "));
    EXPECT_NE(text.find("\n  and 3 more\n"), std::string::npos);
}

TEST(Summary, TheJsonHasEveryNumber) {
    Summary summary = sample();
    summary.costs = sample_costs();
    EXPECT_EQ(summary_json(summary), R"({
  "end": "seconds",
  "seconds": 2.5,
  "channel_quotes": 1234567,
  "displayed": 1000,
  "quotes_per_second": 493826.8,
  "best_second": 600000.0,
  "gaps": 2,
  "missing": 13,
  "backward": 1,
  "untracked": 0,
  "instruments": [
    {
      "inst_id": "cu2509",
      "quotes": 1234000,
      "first_change": 5,
      "last_change": 1234004,
      "gaps": 0,
      "missing": 0,
      "backward": 0
    },
    {
      "inst_id": "al2509",
      "quotes": 567,
      "first_change": 1,
      "last_change": 580,
      "gaps": 2,
      "missing": 13,
      "backward": 1
    }
  ],
  "receive_calls": {
    "with_quote": {
      "calls": 1234567,
      "p50_ns": 20.5,
      "p90_ns": 25.0,
      "p99_ns": 40.0,
      "p99_9_ns": 100.0,
      "max_ns": 54321.0
    },
    "empty": {
      "calls": 0,
      "p50_ns": 0.0,
      "p90_ns": 0.0,
      "p99_ns": 0.0,
      "p99_9_ns": 0.0,
      "max_ns": 0.0
    },
    "clock_ns": 12.25
  }
}
)");
}

TEST(Summary, WithoutStatisticsTheJsonHasNoCostsAndWithoutQuotesAnEmptyArray) {
    const std::string json = summary_json(Summary{});
    EXPECT_EQ(json.find("receive_calls"), std::string::npos);
    EXPECT_NE(json.find("\"instruments\": []"), std::string::npos);
    EXPECT_NE(json.find("\"end\": \"failure\""), std::string::npos);
}

TEST(Summary, AnIdentifierThatIsNoTextDoesNotSpoilTheJson) {
    Summary summary;
    summary.instruments = {{.id = id_of("a\xff\"b"), .changes = {}}};
    EXPECT_NE(summary_json(summary).find(R"("inst_id": "a?\"b")"), std::string::npos);
}

TEST(Summary, TheEndsHaveTheirNames) {
    Summary summary;
    const auto name = [&summary](End end) {
        summary.end = end;
        const std::string json = summary_json(summary);
        return json.substr(4, json.find(',') - 4);
    };
    EXPECT_EQ(name(End::kCount), "\"end\": \"count\"");
    EXPECT_EQ(name(End::kSignal), "\"end\": \"signal\"");
    EXPECT_EQ(name(End::kOutput), "\"end\": \"output\"");
}

TEST(Summary, ComesFromWhatTheLoopDid) {
    ScriptedApi api;
    for (const std::uint32_t change : {7U, 8U, 11U, 2U}) {
        api.quote(make_quote("cu2509", change));
    }
    api.quote(make_quote("al2509", 1));
    Options options;
    options.config = "kova.ini";
    options.count = 4;
    options.instruments = {id_of("cu2509"), id_of("zn2509")};
    QuoteOutput output(-1);
    const auto writer = make_quote_writer(Format::kNone, output);
    QuoteIntake intake(options.instruments, *writer);
    std::chrono::nanoseconds now{0};
    ReceiveLoop loop(api, options, intake, *writer,
                     {.now = [&now] { return now += std::chrono::milliseconds(500); },
                      .is_signalled = [] { return false; },
                      .pause = [](Idle) {},
                      .tell_user = [](std::string_view) {}});
    ASSERT_EQ(loop.start(), 0);
    const End end = loop.run();
    const Summary summary = summarise(end, loop, intake);
    EXPECT_EQ(summary.end, End::kCount);
    EXPECT_DOUBLE_EQ(summary.seconds, 0.5);
    EXPECT_EQ(summary.channel_quotes, 4U);
    EXPECT_EQ(summary.displayed, 4U);
    EXPECT_EQ(summary.gaps, 1U);
    EXPECT_EQ(summary.missing, 2U);
    EXPECT_EQ(summary.backward, 1U);
    ASSERT_EQ(summary.instruments.size(), 1U);
    EXPECT_EQ(summary.instruments[0].changes.first_change, 7U);
    EXPECT_EQ(summary.instruments[0].changes.last_change, 2U);
    ASSERT_EQ(summary.silent.size(), 1U);
    EXPECT_EQ(summary.silent[0], id_of("zn2509"));
    EXPECT_FALSE(summary.costs);
}

TEST(Summary, TheFileIsReplaced) {
    const kova::test::TempDir directory;
    const std::string path = directory.path() / "summary.json";
    std::ofstream(path) << std::string(100000, 'x');
    EXPECT_EQ(write_summary(path, sample()), "");
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    EXPECT_EQ(text.str(), summary_json(sample()));
}

TEST(Summary, AFileThatCannotBeWrittenIsToldInWords) {
    const kova::test::TempDir directory;
    EXPECT_EQ(write_summary(directory.path() / "none" / "summary.json", sample()), "No such file or directory");
    EXPECT_EQ(write_summary("/dev/full", sample()), "No space left on device");
}

}  // namespace
}  // namespace kova::app
