#include "kova_simcard/options.h"

#include <gtest/gtest.h>

#include <vector>

namespace kova::app {
namespace {

Command parse(const std::vector<const char*>& arguments) {
    std::vector<const char*> line{"kova-simcard"};
    line.insert(line.end(), arguments.begin(), arguments.end());
    return parse_command_line(static_cast<int>(line.size()), line.data());
}

RunOptions parse_run(const std::vector<const char*>& arguments) {
    const Command command = parse(arguments);
    EXPECT_TRUE(std::holds_alternative<RunOptions>(command));
    return std::holds_alternative<RunOptions>(command) ? std::get<RunOptions>(command) : RunOptions{};
}

// The exit code that the command line alone leads to; -1 when it is a command.
int exit_code(const std::vector<const char*>& arguments) {
    const Command command = parse(arguments);
    const auto* const answer = std::get_if<Answer>(&command);
    return answer == nullptr ? -1 : answer->exit_code;
}

TEST(SimcardOptions, RunWithoutOptionsLeavesEverythingToTheScenario) {
    const RunOptions run = parse_run({"run"});
    EXPECT_EQ(run.card, 0U);
    EXPECT_FALSE(run.prepared);
    EXPECT_FALSE(run.scenario.has_value());
    EXPECT_FALSE(run.rate.has_value());
    EXPECT_FALSE(run.seconds.has_value());
    EXPECT_EQ(run.slots_log2, 14U);
    EXPECT_FALSE(run.quiet);
    EXPECT_FALSE(run.replay.has_value());
    EXPECT_FALSE(run.replay_repeat);
}

TEST(SimcardOptions, RunTakesEveryOption) {
    const RunOptions run = parse_run({"run", "--card", "7", "--prepared", "--scenario", "a.toml", "--rate",
                                      "2500", "--seconds", "3", "--slots-log2", "8", "--quiet"});
    EXPECT_EQ(run.card, 7U);
    EXPECT_TRUE(run.prepared);
    EXPECT_EQ(run.scenario, std::filesystem::path("a.toml"));
    EXPECT_EQ(run.rate, sim::Rate(2500));
    EXPECT_EQ(run.seconds, std::chrono::seconds(3));
    EXPECT_EQ(run.slots_log2, 8U);
    EXPECT_TRUE(run.quiet);
}

TEST(SimcardOptions, RateMaxIsGivenButHasNoNumber) {
    const RunOptions run = parse_run({"run", "--rate", "max"});
    ASSERT_TRUE(run.rate.has_value());
    EXPECT_FALSE(run.rate->has_value());
}

TEST(SimcardOptions, ZeroSecondsAreGiven) {
    EXPECT_EQ(parse_run({"run", "--seconds", "0"}).seconds, std::chrono::seconds(0));
}

TEST(SimcardOptions, RateThatIsNoRateIsRefused) {
    EXPECT_EQ(exit_code({"run", "--rate", "0"}), 2);
    EXPECT_EQ(exit_code({"run", "--rate", "fast"}), 2);
    EXPECT_EQ(exit_code({"run", "--rate", "-5"}), 2);
    EXPECT_EQ(exit_code({"run", "--rate", "10x"}), 2);
    EXPECT_EQ(exit_code({"run", "--rate", "1000000001"}), 2);
    EXPECT_EQ(exit_code({"run", "--rate", "1000000000"}), -1);
}

TEST(SimcardOptions, ReplayIsAtRecordedSpeedAndOnceIfNothingElseIsSaid) {
    const RunOptions run = parse_run({"run", "--replay", "a.pcap"});
    EXPECT_EQ(run.replay, std::filesystem::path("a.pcap"));
    EXPECT_EQ(run.replay_speed, ReplaySpeed(1));
    EXPECT_FALSE(run.replay_repeat);
}

TEST(SimcardOptions, ReplayTakesASpeedAndRepeats) {
    const RunOptions run = parse_run({"run", "--replay", "a.bin", "--replay-speed", "2.5", "--replay-repeat"});
    EXPECT_EQ(run.replay_speed, ReplaySpeed(2.5));
    EXPECT_TRUE(run.replay_repeat);
    EXPECT_FALSE(parse_run({"run", "--replay", "a.bin", "--replay-speed", "max"}).replay_speed.has_value());
}

TEST(SimcardOptions, ReplaySpeedThatIsNoneIsRefused) {
    for (const char* speed : {"0", "-1", "fast", "1x", "", "nan", "inf", "0.0001", "1000001", "1e3"}) {
        EXPECT_EQ(exit_code({"run", "--replay", "a.bin", "--replay-speed", speed}), 2) << speed;
    }
    EXPECT_EQ(exit_code({"run", "--replay", "a.bin", "--replay-speed", "1000000"}), -1);
}

TEST(SimcardOptions, ReplayOptionsWithoutACaptureAreRefused) {
    EXPECT_EQ(exit_code({"run", "--replay-speed", "2"}), 2);
    EXPECT_EQ(exit_code({"run", "--replay-repeat"}), 2);
}

TEST(SimcardOptions, CardIsAsTheDefaultsAreUnlessSaidOtherwise) {
    const RunOptions run = parse_run({"run"});
    EXPECT_FALSE(run.memory_delay.has_value());
    EXPECT_FALSE(run.snapshot_rate.has_value());
    EXPECT_EQ(run.hardware_version, 0x20260420U);
    EXPECT_EQ(run.least_software, 0x01010133U);
    const RunOptions other = parse_run({"run", "--memory", "0.5", "--hardware-version", "0x20270101",
                                        "--least-software", "1.2.0.1", "--snapshot-rate", "700"});
    EXPECT_EQ(other.memory_delay, sim::MemoryDelay(std::chrono::milliseconds(500)));
    EXPECT_EQ(other.hardware_version, 0x20270101U);
    EXPECT_EQ(other.least_software, 0x01020001U);
    EXPECT_EQ(other.snapshot_rate, sim::Rate(700));
    const RunOptions never = parse_run({"run", "--memory", "never"});
    ASSERT_TRUE(never.memory_delay.has_value());
    EXPECT_FALSE(never.memory_delay->has_value());
}

TEST(SimcardOptions, PropertiesThatNoCardHasAreRefused) {
    EXPECT_EQ(exit_code({"run", "--memory", "soon"}), 2);
    EXPECT_EQ(exit_code({"run", "--hardware-version", "new"}), 2);
    EXPECT_EQ(exit_code({"run", "--least-software", "1.1"}), 2);
    EXPECT_EQ(exit_code({"run", "--snapshot-rate", "0"}), 2);
}

TEST(SimcardOptions, TellTakesWordsForAProgram) {
    const Command command = parse({"tell", "--card", "3", "--wait", "2", "event", "1", "0x2"});
    ASSERT_TRUE(std::holds_alternative<TellOptions>(command));
    const TellOptions& tell = std::get<TellOptions>(command);
    EXPECT_EQ(tell.card, 3U);
    EXPECT_EQ(tell.command, "event 1 0x2");
    EXPECT_EQ(tell.patience, std::chrono::seconds(2));
    EXPECT_EQ(std::get<TellOptions>(parse({"tell", "help"})).patience, std::chrono::seconds(10));
}

TEST(SimcardOptions, TellRefusesWhatIsNoLine) {
    EXPECT_EQ(exit_code({"tell"}), 2);
    EXPECT_EQ(exit_code({"tell", "rate\n5"}), 2);
    EXPECT_EQ(exit_code({"tell", std::string(1025, 'x').c_str()}), 2);
    EXPECT_EQ(exit_code({"tell", std::string(1024, 'x').c_str()}), -1);
}

TEST(SimcardOptions, StatusAndOffNameTheirCard) {
    const Command status = parse({"status", "--card", "3", "--json"});
    ASSERT_TRUE(std::holds_alternative<StatusOptions>(status));
    EXPECT_EQ(std::get<StatusOptions>(status).card, 3U);
    EXPECT_TRUE(std::get<StatusOptions>(status).json);
    const Command off = parse({"off", "--card", "4"});
    ASSERT_TRUE(std::holds_alternative<OffOptions>(off));
    EXPECT_EQ(std::get<OffOptions>(off).card, 4U);
    EXPECT_EQ(std::get<OffOptions>(off).patience, std::chrono::seconds(10));
    EXPECT_EQ(std::get<OffOptions>(parse({"off", "--wait", "2"})).patience, std::chrono::seconds(2));
}

TEST(SimcardOptions, HelpIsAnAnswerAndNoError) {
    const Command command = parse({"--help"});
    ASSERT_TRUE(std::holds_alternative<Answer>(command));
    EXPECT_EQ(std::get<Answer>(command).exit_code, 0);
    EXPECT_NE(std::get<Answer>(command).text.find("status"), std::string::npos);
}

TEST(SimcardOptions, UnknownCommandLinesAreRefused) {
    EXPECT_EQ(exit_code({}), 2);
    EXPECT_EQ(exit_code({"start"}), 2);
    EXPECT_EQ(exit_code({"run", "--fast"}), 2);
    EXPECT_EQ(exit_code({"status", "--card", "first"}), 2);
    EXPECT_EQ(exit_code({"status", "--card", "-1"}), 2);
    EXPECT_EQ(exit_code({"run", "off"}), 2);
}

}  // namespace
}  // namespace kova::app
