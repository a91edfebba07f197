// Captures that kova-simcard sends again, and commands to it while it runs.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "sim/card/attached_card.h"
#include "sim/card/registers.h"
#include "support/card_index.h"
#include "support/process.h"
#include "support/simcard.h"
#include "support/temp_dir.h"

namespace kova::test {
namespace {

using namespace std::string_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CaptureOnDisk {
 public:
    CaptureOnDisk(const std::string& name, const std::string& content)
        : path_((directory_.path() / name).string()) {
        std::ofstream(path_, std::ios::binary) << content;
    }
    [[nodiscard]] const std::string& path() const { return path_; }

 private:
    TempDir directory_;
    std::string path_;
};

// Header, then three records: seconds, microseconds, captured and original length, frame.
const std::string kPcap =
    "\xD4\xC3\xB2\xA1\2\0\4\0\0\0\0\0\0\0\0\0\xFF\xFF\0\0\1\0\0\0"
    "\x64\0\0\0\0\0\0\0\5\0\0\0\5\0\0\0first"
    "\x64\0\0\0\0\0\0\0\6\0\0\0\6\0\0\0second"
    "\x65\0\0\0\0\0\0\0\5\0\0\0\5\0\0\0third"s;

const std::string kBinHeader =
    "***********Tcp shot start, 20260420_210000, shot cnt is 1.************" + std::string(186, '\0') + "\n";

// Three instruments and no traffic to speak of.
constexpr const char* kScenario = "listing = { shfe = 3, ine = 0 }\nrate = 1\n";

// A client of channel 0, below the library.
class Client {
 public:
    explicit Client(std::uint32_t card)
        : card_(sim::attach(card)), stream_(sim::CardToHostStream::open(card_, 0)) {}

    void write(std::uint32_t number, std::uint32_t value) {
        const sim::CardLockScope scope(card_->memory().lock);
        sim::write_register(card_->memory(), number, value);
    }

    // Takes what is there.
    const std::vector<std::string>& messages() {
        while (stream_->poll([this](const std::uint8_t* data, std::uint32_t size) {
            messages_.emplace_back(reinterpret_cast<const char*>(data), size);
        }) == 1) {
        }
        return messages_;
    }
    bool gets(std::size_t count) {
        return eventually([&] { return messages().size() >= count; });
    }

 private:
    sim::AttachedCard card_;
    std::unique_ptr<sim::CardToHostStream> stream_;
    std::vector<std::string> messages_;
};

bool says(Simcard& simcard, const std::string& text) {
    return eventually([&] { return simcard.process().output().find(text) != std::string::npos; });
}

TEST(SimcardReplay, PcapComesFrameByFrameOnceForwardingIsOpen) {
    const ScenarioFile scenario(kScenario);
    const CaptureOnDisk capture("snapshot.pcap", kPcap);
    Simcard simcard(own_card(), {"--scenario", scenario.path(), "--replay", capture.path()});
    ASSERT_TRUE(simcard.wait_until_on()) << simcard.process().error();
    Client client(own_card());
    ASSERT_TRUE(eventually([&] { return simcard.status().at("traffic") == "running"; }));
    EXPECT_THAT(client.messages(), IsEmpty());

    client.write(0x1000, 0xF);
    ASSERT_TRUE(client.gets(3));
    EXPECT_THAT(client.messages(),
                ElementsAre("\2\0\0\0\x09\0\0\0\0\0\0\0first"s, "\2\0\0\0\x0A\0\0\0\0\0\0\0second"s,
                            "\2\0\0\0\x09\0\0\0\0\0\0\0third"s));
    ASSERT_TRUE(
        says(simcard, "replay of " + capture.path() + " is over: 3 sent, 0 too long, 0 of another kind\n"));
    const nlohmann::json status = simcard.status();
    EXPECT_EQ(status.at("forwarding"),
              nlohmann::json::parse(R"({"open": true, "openings": 1, "forwarded": 3, "withheld": 0})"));

    client.write(0x10, 1);
    client.write(0x1000, 0xF);
    ASSERT_TRUE(client.gets(6));
    EXPECT_EQ(client.messages()[3], "\2\0\0\0\x09\0\0\0\0\0\0\0first"s);
}

TEST(SimcardReplay, DumpOfMessagesRepeatsAtFullSpeed) {
    const ScenarioFile scenario(kScenario);
    const CaptureOnDisk capture("snapshot.bin", kBinHeader + "00 00 00 00 18\n02 00 00 00 07 61\n" +
                                                    kBinHeader + "02 00 00 00 07 62\n");
    Simcard simcard(own_card(), {"--scenario", scenario.path(), "--replay", capture.path(), "--replay-speed",
                                 "max", "--replay-repeat"});
    ASSERT_TRUE(simcard.wait_until_on()) << simcard.process().error();
    Client client(own_card());
    client.write(0x1000, 0xF);
    ASSERT_TRUE(client.gets(50'000));
    for (std::size_t i = 0; i < client.messages().size(); ++i) {
        ASSERT_EQ(client.messages()[i], i % 2 == 0 ? "\2\0\0\0\7a"s : "\2\0\0\0\7b"s) << i;
    }
    client.write(0x1000, 0);
    EXPECT_EQ(simcard.status().at("channels").at(0).at("lost"), 0);
    EXPECT_EQ(simcard_command("off", own_card()).exit_code(), 0);
}

TEST(SimcardReplay, DamagedCaptureIsRefusedBeforeTheCardIsOn) {
    const CaptureOnDisk cut("cut.pcap", kPcap.substr(0, kPcap.size() - 1));
    Process run = simcard_command("run", own_card(), {"--replay", cut.path()});
    EXPECT_EQ(run.exit_code(), 2);
    EXPECT_TRUE(run.error().starts_with(cut.path() + ": record 3: ")) << run.error();
    EXPECT_EQ(run.output(), "");
    EXPECT_FALSE(has_card_memory(own_card()));

    const CaptureOnDisk other("other.bin", kBinHeader + "00 00 00 00\n");
    Process of_nothing = simcard_command("run", own_card(), {"--replay", other.path()});
    EXPECT_EQ(of_nothing.exit_code(), 2);
    EXPECT_EQ(of_nothing.error(),
              other.path() + ": nothing of the snapshot stream is in it (1 messages of another kind)\n");
}

TEST(SimcardTell, EventReachesTheReaderOfChannelZero) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on());
    Client client(own_card());
    Process tell = simcard_command("tell", own_card(), {"event", "0x80", "0", "1", "0", "0", "0"});
    EXPECT_EQ(tell.exit_code(), 0);
    EXPECT_EQ(tell.output(), "event 0x80 0x0 0x1 0x0 0x0 0x0 sent to channel 0\n");
    EXPECT_EQ(tell.error(), "");
    EXPECT_THAT(client.messages(),
                ElementsAre("\0\0\0\0\x18\0\0\0\x80\0\0\0\0\0\0\0\1\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0"s));
}

TEST(SimcardTell, RateChangesWhatTheExchangeSends) {
    const ScenarioFile scenario("listing = { shfe = 3, ine = 0 }\nrate = 1\n");
    Simcard simcard(own_card(), {"--prepared", "--scenario", scenario.path()});
    ASSERT_TRUE(simcard.wait_until_on());
    EXPECT_EQ(simcard_command("tell", own_card(), {"rate", "20000"}).output(), "20000 quotes/s\n");
    EXPECT_TRUE(eventually([&] { return simcard.status().at("packets").at("shfe_2ps") > 1000; }));
}

TEST(SimcardTell, RefusalIsAnErrorOfTheProgram) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on());
    Process tell = simcard_command("tell", own_card(), {"rate", "fast"});
    EXPECT_EQ(tell.exit_code(), 1);
    EXPECT_EQ(tell.output(), "");
    EXPECT_EQ(tell.error(), "rate takes a whole number from 1 to 1000000000, or max\n");
    EXPECT_EQ(simcard_command("tell", own_card(), {"help"}).exit_code(), 0);
}

TEST(SimcardTell, CardThatIsOffCannotBeTold) {
    Process tell = simcard_command("tell", own_card(), {"help"});
    EXPECT_EQ(tell.exit_code(), 1);
    EXPECT_EQ(tell.error(), "card " + std::to_string(own_card()) + ": it is off\n");
}

TEST(SimcardTell, ProgramThatStandsStillIsGivenUp) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on());
    simcard.process().send(SIGSTOP);
    Process tell = simcard_command("tell", own_card(), {"--wait", "0", "help"});
    EXPECT_EQ(tell.exit_code(), 1);
    EXPECT_EQ(tell.error(), "card " + std::to_string(own_card()) +
                                ": its program does not answer; it will not do it any more\n");
    simcard.process().send(SIGCONT);
    EXPECT_EQ(simcard_command("tell", own_card(), {"help"}).exit_code(), 0);
}

TEST(SimcardTell, ManyTellersAllGetTheirAnswer) {
    Simcard simcard(own_card());
    ASSERT_TRUE(simcard.wait_until_on());
    std::vector<Process> tellers;
    for (int rate = 101; rate <= 108; ++rate) {
        tellers.push_back(Process::start(KOVA_SIMCARD_PROGRAM, {"tell", "--card", std::to_string(own_card()),
                                                                "rate", std::to_string(rate)}));
    }
    // One of them never gets to hear it, and disturbs nobody.
    tellers.back().send(SIGKILL);
    for (int rate = 101; rate <= 107; ++rate) {
        Process& teller = tellers[static_cast<std::size_t>(rate - 101)];
        EXPECT_EQ(teller.exit_code(), 0) << teller.error();
        EXPECT_EQ(teller.output(), std::to_string(rate) + " quotes/s\n");
    }
}

}  // namespace
}  // namespace kova::test
