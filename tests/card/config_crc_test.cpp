// The checksum of the configuration file, and every way in which there is none.

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "card/bring_up_test.h"
#include "support/allocations.h"
#include "support/next_definition.h"

namespace {

bool is_reading_short = false;

}  // namespace

/** Reads of files by this program, which can be made to end a byte early. */
extern "C" __attribute__((visibility("default"))) std::size_t fread(void* buffer, std::size_t size,
                                                                    std::size_t count, FILE* file) {
    using Read = std::size_t(void*, std::size_t, std::size_t, FILE*);
    static Read* const read = kova::test::next_definition<Read>("fread");
    return read(buffer, size, is_reading_short && count > 0 ? count - 1 : count, file);
}

namespace {

using kova::test::Allocations;
using kova::test::Clock;
using kova::test::RegisterTraffic;
using kova::test::Strings;

class ConfigCrcTest : public kova::test::BringUpTest {
 protected:
    ConfigCrcTest() { open("log_level = 15"); }

    int crc_of(std::string_view content) {
        std::ofstream("kova.ini", std::ios::binary) << content;
        return EngineAccess::config_crc(*engine, crc);
    }

    std::uint32_t crc = 0;
};

TEST_F(ConfigCrcTest, TheWholeFileCountsFromTheStartValueThatIsGiven) {
    EXPECT_EQ(crc_of("123456789"), 0);
    EXPECT_EQ(crc, 0x58E3FA20U);
    crc = 0xFFFFFFFF;
    EXPECT_EQ(crc_of("123456789"), 0);
    EXPECT_EQ(crc ^ 0xFFFFFFFF, 0xE3069283U);
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(ConfigCrcTest, BytesThatEndATextDoNotEndTheFile) {
    EXPECT_EQ(crc_of(std::string_view("\1\0\0\0\0\0\0\0", 8)), 0);
    EXPECT_EQ(crc, 0x493C7D27U);
}

TEST_F(ConfigCrcTest, AMissingFileIsTold) {
    std::filesystem::remove("kova.ini");
    EXPECT_EQ(EngineAccess::config_crc(*engine, crc), -1);
    EXPECT_EQ(new_log(), Strings{"[E][_GetConfigCrc]Error opening file [kova.ini] [4294967295]."});
    EXPECT_EQ(crc, 0U);
}

TEST_F(ConfigCrcTest, AnEmptyFileIsTold) {
    EXPECT_EQ(crc_of(""), -2);
    EXPECT_EQ(new_log(), Strings{"[E][_GetConfigCrc]file is empty [kova.ini] [4294967294]."});
}

TEST_F(ConfigCrcTest, AFileWithoutMemoryForItIsTold) {
    // A byte more than the file is asked for.
    EXPECT_EQ(crc_of(std::string(99998, 'x')), 0);
    {
        const Allocations::FailLarge exhausted(100000);
        EXPECT_EQ(EngineAccess::config_crc(*engine, crc), 0);
    }
    EXPECT_EQ(crc_of(std::string(99999, 'x')), 0);
    {
        const Allocations::FailLarge exhausted(100000);
        EXPECT_EQ(EngineAccess::config_crc(*engine, crc), -3);
    }
    EXPECT_EQ(new_log(), Strings{"[E][_GetConfigCrc]Error allocating memory for file[kova.ini] [4294967293]."});
}

TEST_F(ConfigCrcTest, AFileThatCannotBeReadWholeIsTold) {
    is_reading_short = true;
    EXPECT_EQ(crc_of("123456789"), -4);
    is_reading_short = false;
    EXPECT_EQ(new_log(), Strings{"[E][_GetConfigCrc]error reading certificate file[kova.ini] [4294967292]."});
    EXPECT_EQ(crc, 0U);
}

TEST_F(ConfigCrcTest, NothingStaysOpenOrAllocated) {
    const auto open_files = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    EXPECT_EQ(crc_of("123456789"), 0);
    const auto files = open_files();
    const std::int64_t allocated = Allocations::alive();
    EXPECT_EQ(crc_of("123456789"), 0);
    EXPECT_EQ(crc_of(""), -2);
    is_reading_short = true;
    EXPECT_EQ(crc_of("123456789"), -4);
    is_reading_short = false;
    EXPECT_EQ(Allocations::alive(), allocated);
    EXPECT_EQ(open_files(), files);
}

TEST_F(ConfigCrcTest, AStartWithoutItIsAFailureBeforeTheCardIsAsked) {
    crc_of("");
    new_log();
    const auto slept = Clock::slept();
    RegisterTraffic::start_recording();
    EXPECT_EQ(EngineAccess::check_and_bring_up(*engine), -1);
    EXPECT_EQ(RegisterTraffic::stop_recording(), Strings{});
    EXPECT_EQ(Clock::slept(), slept);
    EXPECT_EQ(new_log(), (Strings{"[E][_GetConfigCrc]file is empty [kova.ini] [4294967294].",
                                  "[E][_ChechAndKovaSubDmaUp]Error opening file [kova.ini]."}));
    std::filesystem::remove("kova.ini");
    EXPECT_EQ(EngineAccess::check_and_bring_up(*engine), -1);
    EXPECT_EQ(new_log(), (Strings{"[E][_GetConfigCrc]Error opening file [kova.ini] [4294967295].",
                                  "[E][_ChechAndKovaSubDmaUp]Error opening file [kova.ini]."}));
}

}  // namespace
