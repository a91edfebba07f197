#include "kova_quotes/options.h"

#include <gtest/gtest.h>

#include <sstream>
#include <vector>

namespace kova::app {
namespace {

struct Reading {
    CommandLine line;
    std::string out;
    std::string err;
};

Reading read(const std::vector<const char*>& options) {
    std::vector<const char*> arguments{"kova-quotes"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    std::ostringstream out;
    std::ostringstream err;
    CommandLine line = read_command_line(static_cast<int>(arguments.size()), arguments.data(), out, err);
    return {std::move(line), out.str(), err.str()};
}

void expect_refused(const std::vector<const char*>& arguments, const std::string& reason) {
    const Reading reading = read(arguments);
    EXPECT_FALSE(reading.line.options);
    EXPECT_EQ(reading.line.exit_code, 2);
    EXPECT_EQ(reading.out, "");
    EXPECT_NE(reading.err.find(reason), std::string::npos) << reading.err;
}

TEST(QuotesOptions, AConfigurationAloneShowsATableOfEverythingWithoutEnd) {
    const auto options = read({"--config", "kova.ini"}).line.options;
    ASSERT_TRUE(options);
    EXPECT_EQ(options->config, "kova.ini");
    EXPECT_FALSE(options->fetch);
    EXPECT_FALSE(options->count);
    EXPECT_FALSE(options->duration);
    EXPECT_TRUE(options->instruments.empty());
    EXPECT_EQ(options->format, Format::kTable);
    EXPECT_FALSE(options->stats);
    EXPECT_EQ(options->idle, Idle::kSpin);
    EXPECT_EQ(options->summary_file, "");
}

TEST(QuotesOptions, EveryOptionIsTaken) {
    const auto options =
        read({"--config", "a.ini", "--fetch", "--count", "7", "--instrument", "cu2509", "al2509",
              "--instrument", "zn2509", "--format", "csv", "--stats", "--idle", "sleep", "--summary", "s.json"})
            .line.options;
    ASSERT_TRUE(options);
    EXPECT_TRUE(options->fetch);
    EXPECT_EQ(options->count, 7U);
    ASSERT_EQ(options->instruments.size(), 3U);
    EXPECT_EQ(options->instruments[2], *InstrumentId::of(std::string_view("zn2509")));
    EXPECT_EQ(options->format, Format::kCsv);
    EXPECT_TRUE(options->stats);
    EXPECT_EQ(options->idle, Idle::kSleep);
    EXPECT_EQ(options->summary_file, "s.json");
}

TEST(QuotesOptions, TheOtherFormatsAndIdleWaysHaveTheirNames) {
    EXPECT_EQ(read({"--config", "a", "--format", "json"}).line.options->format, Format::kJson);
    EXPECT_EQ(read({"--config", "a", "--format", "none"}).line.options->format, Format::kNone);
    EXPECT_EQ(read({"--config", "a", "--format", "table"}).line.options->format, Format::kTable);
    EXPECT_EQ(read({"--config", "a", "--idle", "yield"}).line.options->idle, Idle::kYield);
    EXPECT_EQ(read({"--config", "a", "--idle", "spin"}).line.options->idle, Idle::kSpin);
}

TEST(QuotesOptions, SecondsMayHaveAFraction) {
    EXPECT_EQ(read({"--config", "a", "--seconds", "1.5"}).line.options->duration,
              std::chrono::milliseconds(1500));
}

TEST(QuotesOptions, WrongCommandLinesAreRefusedWithTheReason) {
    expect_refused({}, "--config is required");
    expect_refused({"--config", ""}, "--config: the path must have 1 to 255 characters");
    const std::string long_path(256, 'x');
    expect_refused({"--config", long_path.c_str()}, "--config: the path must have 1 to 255 characters");
    expect_refused({"--config", "a", "--count", "0"}, "--count: must be a whole number above 0");
    expect_refused({"--config", "a", "--count", "-3"}, "--count: must be a whole number above 0");
    expect_refused({"--config", "a", "--count", "1.5"}, "--count: must be a whole number above 0");
    expect_refused({"--config", "a", "--seconds", "0"}, "--seconds: must be a number above 0");
    expect_refused({"--config", "a", "--seconds", "nan"}, "--seconds: must be a number above 0");
    expect_refused({"--config", "a", "--seconds", "1e300"}, "--seconds: must be a number above 0");
    expect_refused({"--config", "a", "--seconds", "1", "--count", "1"}, "--count excludes --seconds");
    expect_refused({"--config", "a", "--instrument", "0123456789abcdefg"}, "1 to 16 characters");
    expect_refused({"--config", "a", "--format", "xml"}, "--format: must be one of csv json none table");
    expect_refused({"--config", "a", "--format", "7"}, "--format");
    expect_refused({"--config", "a", "--format", "1"}, "--format");
    expect_refused({"--config", "a", "--idle", "doze"}, "--idle: must be one of sleep spin yield");
    expect_refused({"--config", "a", "--what"}, "--what");
}

TEST(QuotesOptions, HelpGoesToStandardOutputAndIsNoMistake) {
    const Reading reading = read({"--help"});
    EXPECT_FALSE(reading.line.options);
    EXPECT_EQ(reading.line.exit_code, 0);
    EXPECT_EQ(reading.err, "");
    for (const char* option : {"--config", "--fetch", "--count", "--seconds", "--instrument", "--format",
                               "--idle", "--stats", "--summary", "Exit codes"}) {
        EXPECT_NE(reading.out.find(option), std::string::npos) << option;
    }
}

}  // namespace
}  // namespace kova::app
