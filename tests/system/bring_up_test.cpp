// The life of a card from its power-on: brought up through the shipped library, as programs of their own. The
// library waits by the real clock here: three seconds to see whether the card runs, six for the card's memory.

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#include "sim/card/attached_card.h"
#include "support/card_index.h"
#include "support/fast_clock.h"
#include "support/own_day.h"
#include "support/process.h"
#include "support/receiver.h"
#include "support/simcard.h"

namespace kova::test {
namespace {

constexpr std::chrono::seconds kLongPatience{90};

constexpr const char* kScenario = "listing = { shfe = 64, ine = 16 }\nrate = 2000\n";

constexpr const char* kManager =
    "shfe2ps=enabled\nine2ps=enabled\n"
    "[channel0]\ninsts=all\noptions=recv\n"
    "[channel1]\ninsts=cu,sc\noptions=norecv\n";

// The instrument file that a bring-up writes; its name changes with the day and its half. For one test alone,
// which runs without a clock of ours: the others have days of their own, on which nothing but the date differs.
class InstrumentFile {
 public:
    InstrumentFile() : names_{name(), {}} {}
    ~InstrumentFile() {
        names_[1] = name();
        for (const std::string& each : names_) {
            std::filesystem::remove(each);
        }
    }
    InstrumentFile(const InstrumentFile&) = delete;
    InstrumentFile& operator=(const InstrumentFile&) = delete;

    [[nodiscard]] static int lines() {
        std::ifstream file(name());
        int count = 0;
        for (std::string line; std::getline(file, line);) {
            ++count;
        }
        return count;
    }

 private:
    static std::string name() {
        const std::time_t now = std::time(nullptr);
        std::tm local{};
        ::localtime_r(&now, &local);
        std::array<char, 64> text{};
        std::strftime(text.data(), text.size(),
                      local.tm_hour < 17 ? "/tmp/.shfe_%Y%m%d_am" : "/tmp/.shfe_%Y%m%d_pm", &local);
        return text.data();
    }

    std::array<std::string, 2> names_;  // at the beginning and at the end of the test
};

std::uint64_t taken(const Simcard& card, std::uint32_t channel) {
    const sim::AttachedCard attached = sim::attach(card.card());
    return attached == nullptr ? 0 : attached->memory().channels[channel].card_to_host.taken.load();
}

std::size_t quotes(const Receiver& receiver) {
    return receiver.column("inst_id").size();
}

// Everything that the card says was taken from the channel came out of the receiver.
void expect_exact(const nlohmann::json& status, std::uint32_t channel, Receiver& receiver) {
    EXPECT_EQ(receiver.process().exit_code(), 0) << receiver.process().error();
    EXPECT_EQ(receiver.summary().at("channel_quotes"), channel_of(status, channel).at("taken"));
    EXPECT_EQ(channel_of(status, channel).at("lost"), 0);
    EXPECT_EQ(receiver.summary().at("backward"), 0);
}

TEST(BringUp, FreshCardComesUpAndQuotesReachEveryChannel) {
    const InstrumentFile instruments;
    const ScenarioFile scenario(kScenario);
    Simcard card(own_card(), {"--scenario", scenario.path()});
    ASSERT_TRUE(card.wait_until_on()) << card.process().error();
    Receiver other(card.card(), 1);
    Receiver manager(card.card(), 0, {}, kManager);
    ASSERT_TRUE(eventually([&] { return taken(card, 1) >= 50 && quotes(manager) >= 50; }, kLongPatience))
        << manager.process().error();

    manager.process().send(SIGINT);
    other.process().send(SIGINT);
    EXPECT_EQ(manager.process().exit_code(), 0) << manager.process().error();
    EXPECT_EQ(other.process().exit_code(), 0) << other.process().error();
    const nlohmann::json status = card.status();
    expect_exact(status, 1, other);
    EXPECT_EQ(other.summary().at("gaps"), 0);
    EXPECT_EQ(manager.summary().at("gaps"), 0);
    EXPECT_EQ(other.products(), (std::set<std::string>{"cu", "sc"}));
    EXPECT_GT(manager.products().size(), 5U);
    EXPECT_EQ(InstrumentFile::lines(), 1 + 64 + 16);

    EXPECT_EQ(status.at("registers").at("hbm2_status"), 3);
    EXPECT_EQ(status.at("registers").at("version_check"), 1);
    EXPECT_NE(status.at("registers").at("config_crc"), 0);
    EXPECT_EQ(status.at("registers").at("event_pkts"), 1);
    EXPECT_EQ(status.at("tables").at("shfe_2ps").at("filled"), 64);
    EXPECT_EQ(status.at("tables").at("ine_2ps").at("filled"), 16);
    EXPECT_EQ(status.at("tables").at("shfe_2ps").at("open"), false);
    EXPECT_EQ(status.at("cores").at("ine_4ps"), "started");
    EXPECT_EQ(status.at("forwarding").at("open"), false);
    EXPECT_EQ(status.at("forwarding").at("openings"), 1);
    EXPECT_GE(status.at("snapshot_cycles").at("shfe_2ps"), 1);
}

TEST(BringUp, LostPacketIsRecoveredFromWhileTheOthersStay) {
    const OwnDay day;
    const FastClock clock(day.at(std::chrono::hours(9)));
    const ScenarioFile scenario(kScenario);
    Simcard card(own_card(), {"--scenario", scenario.path(), "--memory", "0"});
    ASSERT_TRUE(card.wait_until_on()) << card.process().error();
    Receiver other(card.card(), 1);
    Receiver manager(card.card(), 0, {}, kManager);
    ASSERT_TRUE(eventually([&] { return taken(card, 1) >= 50 && quotes(manager) >= 50; }, kLongPatience))
        << manager.process().error();

    Process tell = simcard_command("tell", card.card(), {"event", "lost", "shfe2ps"});
    EXPECT_EQ(tell.output(), "event 0x80 0x0 0x0 0x0 0x0 0x0 sent to channel 0\n");
    const auto is_up_again = [&] {
        const nlohmann::json status = card.status();
        return status.at("forwarding").at("openings") == 2 && status.at("cores").at("shfe_2ps") == "started";
    };
    ASSERT_TRUE(eventually(is_up_again, kLongPatience)) << manager.process().error();
    const std::uint64_t before = taken(card, 1);
    const std::size_t quotes_before = quotes(manager);
    ASSERT_TRUE(
        eventually([&] { return taken(card, 1) >= before + 50 && quotes(manager) >= quotes_before + 50; }));
    manager.process().send(SIGINT);
    other.process().send(SIGINT);
    EXPECT_EQ(manager.process().exit_code(), 0);
    EXPECT_EQ(other.process().exit_code(), 0);
    expect_exact(card.status(), 1, other);
    EXPECT_NE(manager.process().error().find("received lost pkt event, event_data0=00000080"),
              std::string::npos);
}

TEST(BringUp, CardOfAnOlderVersionIsRefused) {
    const OwnDay day;
    const FastClock clock(day.at(std::chrono::hours(9)));
    const ScenarioFile scenario(kScenario);
    Simcard card(own_card(), {"--scenario", scenario.path(), "--hardware-version", "0x20260419"});
    ASSERT_TRUE(card.wait_until_on()) << card.process().error();
    Receiver manager(card.card(), 0, {}, kManager);
    EXPECT_EQ(manager.process().exit_code(kLongPatience), 1);
    EXPECT_NE(manager.process().error().find("you will need to update your hardware version."),
              std::string::npos);
    EXPECT_EQ(card.status().at("cores").at("shfe_2ps"), "stopped");
}

}  // namespace
}  // namespace kova::test
