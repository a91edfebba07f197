#include "write_shot/WriteShot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "log/CommonLog.h"
#include "support/log_run.h"

namespace {

using kova::test::LogRun;
using kova::test::run_apart;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

/** The capture files of a run whose name ends so. */
std::vector<std::string> names_ending(const LogRun& run, const std::string& end) {
    std::vector<std::string> names;
    for (const auto& [name, content] : run.files) {
        if (name.ends_with(end)) {
            names.push_back(name);
        }
    }
    return names;
}

/** Content of the only file whose name ends so. */
std::string content_of(const LogRun& run, const std::string& end) {
    const std::vector<std::string> names = names_ending(run, end);
    return names.size() == 1 ? run.files.at(names[0]) : "<not one file>";
}

/** Seconds since 1970 of a local "YYYYMMDD_HHMMSS". */
time_t local_time_of(const std::string& text) {
    tm calendar{};
    EXPECT_EQ(std::sscanf(text.c_str(), "%4d%2d%2d_%2d%2d%2d", &calendar.tm_year, &calendar.tm_mon,
                          &calendar.tm_mday, &calendar.tm_hour, &calendar.tm_min, &calendar.tm_sec),
              6);
    calendar.tm_year -= 1900;
    calendar.tm_mon -= 1;
    calendar.tm_isdst = -1;
    return std::mktime(&calendar);
}

uint32_t word_at(const std::string& bytes, std::size_t offset) {
    uint32_t word = 0;
    EXPECT_LE(offset + sizeof(word), bytes.size());
    if (offset + sizeof(word) <= bytes.size()) {
        std::memcpy(&word, bytes.data() + offset, sizeof(word));
    }
    return word;
}

/** Standard error goes where standard output goes. */
void join_standard_error() {
    ::dup2(STDOUT_FILENO, STDERR_FILENO);
}

/** The process stands in a directory that is no more, where no file can be made; the log is open already. */
void stand_nowhere() {
    KOVA_LOG(LOG_INFO, "the log is open");
    std::filesystem::create_directory("gone");
    std::filesystem::current_path("gone");
    std::filesystem::remove("../gone");
}

/** What the run's log lines say, without file, line and time. */
std::vector<std::string> messages_of(const LogRun& run) {
    std::vector<std::string> messages;
    for (const std::string& body : kova::test::log_bodies(run.file())) {
        messages.push_back(body.substr(body.rfind("][") + 1));
    }
    return messages;
}

constexpr std::array<unsigned char, 4> kBytes = {0x00, 0x0f, 0xa0, 0xff};

const std::string kPcapHeader(
    "\xd4\xc3\xb2\xa1\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\xff\xff\x00\x00\x01\x00\x00\x00", 24);

}  // namespace

TEST(WriteShot, IsOneObject) {
    EXPECT_EQ(CWriteShot::GetInstance(), CWriteShot::GetInstance());
}

TEST(WriteShot, FirstCaptureIsNamedByItsLocalTimeAndOne) {
    const time_t before = std::time(nullptr);
    const LogRun run = run_apart([] {
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->CreateShotPcapLog();
    });
    const time_t after = std::time(nullptr);
    ASSERT_TRUE(run.ended_well());
    for (const std::string end : {".bin", ".pcap"}) {
        const std::vector<std::string> names = names_ending(run, end);
        ASSERT_EQ(names.size(), 1U);
        ASSERT_THAT(names[0], MatchesRegex("kova_u50_dma_[0-9]{8}_[0-9]{6}_1\\" + end));
        const time_t named = local_time_of(names[0].substr(13, 15));
        EXPECT_GE(named, before);
        EXPECT_LE(named, after);
    }
}

TEST(WriteShot, SecondCaptureOfTheProcessHasTheSuffixTwoOnBothFiles) {
    const LogRun run = run_apart([] {
        CWriteShot* shot = CWriteShot::GetInstance();
        for (int capture = 0; capture < 2; ++capture) {
            shot->CloseShotBinLog();
            shot->CreateShotBinLog();
            shot->CloseShotPcapLog();
            shot->CreateShotPcapLog();
        }
    });
    ASSERT_TRUE(run.ended_well());
    EXPECT_EQ(names_ending(run, "_1.bin").size(), 1U);
    EXPECT_EQ(names_ending(run, "_2.bin").size(), 1U);
    EXPECT_EQ(names_ending(run, "_1.pcap").size(), 1U);
    EXPECT_EQ(names_ending(run, "_2.pcap").size(), 1U);
    EXPECT_THAT(content_of(run, "_2.bin"), HasSubstr(", shot cnt is 2.************"));
}

TEST(WriteShot, DumpGoesOnBehindAFileOfItsNameAndPcapFileReplacesIt) {
    const std::string earlier(1000, 'e');
    const LogRun run = run_apart([&] {
        // Whatever second it is when they are opened, the names are taken.
        const time_t now = std::time(nullptr);
        for (int ahead = 0; ahead < 60; ++ahead) {
            const time_t then = now + ahead;
            std::array<char, 32> time{};
            std::strftime(time.data(), time.size(), "%Y%m%d_%H%M%S", std::localtime(&then));
            const std::string name = std::string("kova_u50_dma_") + time.data() + "_1";
            std::ofstream(name + ".bin") << earlier;
            std::ofstream(name + ".pcap") << earlier;
        }
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->CreateShotPcapLog();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data(), 4);
        CWriteShot::GetInstance()->CloseShotPcapLog();
    });
    ASSERT_TRUE(run.ended_well());
    std::vector<std::string> changed;
    for (const std::string end : {".bin", ".pcap"}) {
        const std::vector<std::string> names = names_ending(run, end);
        EXPECT_EQ(names.size(), 60U);
        for (const std::string& name : names) {
            if (run.files.at(name) != earlier) {
                changed.push_back(run.files.at(name));
            }
        }
    }
    ASSERT_EQ(changed.size(), 2U);
    EXPECT_EQ(changed[0].substr(0, 1015), earlier + "***********Tcp ");
    EXPECT_EQ(changed[0].substr(1257), "00 0f a0 ff\n");
    EXPECT_EQ(changed[1], kPcapHeader);
}

TEST(WriteShot, CountersCountEachKindOfFile) {
    const LogRun run = run_apart([] {
        CWriteShot* shot = CWriteShot::GetInstance();
        CCommonLog::GetInstance()->SetLogLevel(LOG_ERROR);
        std::printf("%d %d\n", shot->GetBinShotCnt(), shot->GetPcapShotCnt());
        shot->CreateShotBinLog();
        shot->CreateShotBinLog();
        shot->CreateShotPcapLog();
        std::printf("%d %d\n", shot->GetBinShotCnt(), shot->GetPcapShotCnt());
    });
    EXPECT_EQ(run.console, "0 0\n2 1\n");
}

TEST(WriteShot, DumpBeginsWithAHeadingOf256BytesAndALineEnd) {
    const LogRun run = run_apart([] { CWriteShot::GetInstance()->CreateShotBinLog(); });
    const std::string dump = content_of(run, ".bin");
    const std::string time = names_ending(run, ".bin").at(0).substr(13, 15);
    const std::string heading = "***********Tcp shot start, " + time + ", shot cnt is 1.************";
    ASSERT_EQ(dump.size(), 257U);
    EXPECT_EQ(dump, heading + std::string(256 - heading.size(), '\0') + "\n");
}

TEST(WriteShot, EachMessageIsOneLineOfHexadecimalDigits) {
    const LogRun run = run_apart([] {
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data(), 4);
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data() + 1, 2);
    });
    EXPECT_EQ(content_of(run, ".bin").substr(257), "00 0f a0 ff\n0f a0\n");
}

TEST(WriteShot, MessageOfOneByteIsTwoDigitsWithoutABlank) {
    const LogRun run = run_apart([] {
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data() + 2, 1);
    });
    EXPECT_EQ(content_of(run, ".bin").substr(257), "a0\n");
}

TEST(WriteShot, MessageOfNoBytesIsAnEmptyLine) {
    const LogRun run = run_apart([] {
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data(), 0);
        CWriteShot::GetInstance()->WriteShotBinLog(nullptr, 8);
    });
    EXPECT_EQ(content_of(run, ".bin").substr(257), "\n\n");
}

TEST(WriteShot, EveryDumpLineReachesTheFileAtOnce) {
    const LogRun run = run_apart([] {
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data(), 4);
        std::_Exit(0);
    });
    EXPECT_EQ(content_of(run, ".bin").substr(257), "00 0f a0 ff\n");
}

TEST(WriteShot, DumpWhileClosedIsDiscarded) {
    const LogRun run = run_apart([] {
        join_standard_error();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data(), 4);
        CWriteShot::GetInstance()->CloseShotBinLog();
        CWriteShot::GetInstance()->CloseShotPcapLog();
    });
    EXPECT_TRUE(run.ended_well());
    EXPECT_EQ(run.console, "");
    EXPECT_TRUE(run.files.empty());
}

TEST(WriteShot, PcapFileWithoutTrafficIsItsHeaderAlone) {
    const LogRun run = run_apart([] {
        CWriteShot::GetInstance()->CreateShotPcapLog();
        CWriteShot::GetInstance()->CloseShotPcapLog();
        std::_Exit(0);
    });
    EXPECT_EQ(content_of(run, ".pcap"), kPcapHeader);
}

TEST(WriteShot, PcapRecordHasTimeWithoutMicrosecondsLengthsAndData) {
    const auto before = static_cast<uint32_t>(std::time(nullptr));
    const LogRun run = run_apart([] {
        CWriteShot::GetInstance()->CreateShotPcapLog();
        CWriteShot::GetInstance()->WriteShotPcapLog(kBytes.data(), 4);
        CWriteShot::GetInstance()->WriteShotPcapLog(kBytes.data(), 0);
        CWriteShot::GetInstance()->WriteShotPcapLog(nullptr, 7);
    });
    const auto after = static_cast<uint32_t>(std::time(nullptr));
    const std::string pcap = content_of(run, ".pcap");
    ASSERT_EQ(pcap.size(), 24U + 16 + 4 + 16 + 16);
    EXPECT_EQ(pcap.substr(0, 24), kPcapHeader);
    for (const std::size_t record : {24U, 44U, 60U}) {
        EXPECT_GE(word_at(pcap, record), before);
        EXPECT_LE(word_at(pcap, record), after);
        EXPECT_EQ(word_at(pcap, record + 4), 0U);
    }
    EXPECT_EQ(word_at(pcap, 24 + 8), 4U);
    EXPECT_EQ(word_at(pcap, 24 + 12), 4U);
    EXPECT_EQ(pcap.substr(40, 4), std::string("\x00\x0f\xa0\xff", 4));
    EXPECT_EQ(word_at(pcap, 44 + 8), 0U);
    EXPECT_EQ(word_at(pcap, 44 + 12), 0U);
    EXPECT_EQ(word_at(pcap, 60 + 8), 0U);
    EXPECT_EQ(word_at(pcap, 60 + 12), 0U);
}

TEST(WriteShot, PcapRecordWhileClosedIsToldOnStandardError) {
    const LogRun run = run_apart([] {
        join_standard_error();
        CWriteShot::GetInstance()->WriteShotPcapLog(kBytes.data(), 4);
    });
    EXPECT_EQ(run.console, "PCAP file is not open.\n");
    EXPECT_TRUE(run.files.empty());
}

TEST(WriteShot, OpenedDumpIsToldInTheLog) {
    const LogRun run = run_apart([] { CWriteShot::GetInstance()->CreateShotBinLog(); });
    const std::string name = names_ending(run, ".bin").at(0);
    const auto line = kova::test::parse_log_line(kova::test::split_lines(run.console).at(0));
    ASSERT_TRUE(line);
    EXPECT_EQ(line->tag, "\x1b[32;1m [I]");
    EXPECT_THAT(line->body, MatchesRegex("\\[WriteShot.cpp:[0-9]+\\]\\[CreateShotBinLog\\]open dma file \\[" +
                                         name + "\\] is success\\."));
}

TEST(WriteShot, OpenedPcapFileIsToldNowhere) {
    const LogRun run = run_apart([] {
        join_standard_error();
        CWriteShot::GetInstance()->CreateShotPcapLog();
    });
    EXPECT_EQ(run.console, "");
}

TEST(WriteShot, DumpThatCannotBeOpenedIsToldAsInformationAndDiscardsWhatFollows) {
    const LogRun run = run_apart([] {
        stand_nowhere();
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data(), 4);
    });
    EXPECT_TRUE(run.ended_well());
    EXPECT_THAT(messages_of(run),
                ElementsAre("[stand_nowhere]the log is open",
                            MatchesRegex("\\[CreateShotBinLog\\]open dma file "
                                         "\\[kova_u50_dma_[0-9]{8}_[0-9]{6}_1\\.bin\\] is fail\\.")));
    EXPECT_THAT(run.console, HasSubstr(" [I] ["));
}

TEST(WriteShot, PcapFileThatCannotBeOpenedIsToldOnStandardError) {
    const LogRun run = run_apart([] {
        stand_nowhere();
        join_standard_error();
        CCommonLog::GetInstance()->SetLogLevel(LOG_ERROR);
        CWriteShot::GetInstance()->CreateShotPcapLog();
        CWriteShot::GetInstance()->WriteShotPcapLog(kBytes.data(), 4);
    });
    EXPECT_TRUE(run.ended_well());
    const std::vector<std::string> lines = kova::test::split_lines(run.console);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[1], MatchesRegex("Error opening file kova_u50_dma_[0-9]{8}_[0-9]{6}_1\\.pcap"));
    EXPECT_EQ(lines[2], "PCAP file is not open.");
}

TEST(WriteShot, CaptureWorksAgainAfterOneThatFailed) {
    const LogRun run = run_apart([] {
        const std::filesystem::path home = std::filesystem::current_path();
        stand_nowhere();
        join_standard_error();
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->CreateShotPcapLog();
        std::filesystem::current_path(home);
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->CreateShotPcapLog();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data(), 4);
        CWriteShot::GetInstance()->WriteShotPcapLog(kBytes.data(), 4);
    });
    EXPECT_EQ(content_of(run, "_2.bin").substr(257), "00 0f a0 ff\n");
    EXPECT_EQ(content_of(run, "_2.pcap").size(), 24U + 16 + 4);
}

TEST(WriteShot, CaptureThatIsNotClosedGivesWayToTheNext) {
    const LogRun run = run_apart([] {
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->CreateShotPcapLog();
        CWriteShot::GetInstance()->CreateShotBinLog();
        CWriteShot::GetInstance()->CreateShotPcapLog();
        CWriteShot::GetInstance()->WriteShotBinLog(kBytes.data(), 4);
        CWriteShot::GetInstance()->WriteShotPcapLog(kBytes.data(), 4);
    });
    EXPECT_EQ(content_of(run, "_1.bin").size(), 257U);
    EXPECT_EQ(content_of(run, "_1.pcap").size(), 24U);
    EXPECT_EQ(content_of(run, "_2.bin").substr(257), "00 0f a0 ff\n");
    EXPECT_EQ(content_of(run, "_2.pcap").size(), 24U + 16 + 4);
}
