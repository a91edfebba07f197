// The instrument file as it lies on the disk: which instruments, under which name, over what.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "card/bring_up_test.h"

namespace {

using kova::test::RegisterTraffic;
using kova::test::Strings;

const std::string kHeading =
    "contract_no,contract_name,change_no,open_interest,last_price,turnover,volume,price_tick,codec_price,"
    "vol_multiple,upper_limit_price,lower_limit_price";

void name_row(SInstTableType& row, const char* inst_id) {
    std::memcpy(row.inst_id, inst_id, strnlen(inst_id, sizeof row.inst_id));
}

class StaticInfoFileTest : public kova::test::BringUpTest {
 protected:
    StaticInfoFileTest() {
        open("log_level = 15");
        U50InstTable& tables = EngineAccess::inst_table(*engine);
        name_row(tables.shfe2psInstTable.rows[0], "cu2");
        name_row(tables.shfe4psInstTable.rows[0], "cu4");
        name_row(tables.ine2psInstTable.rows[0], "sc2");
        name_row(tables.ine4psInstTable.rows[0], "sc4");
    }

    int write(std::uint32_t shfe_count, std::uint32_t ine_count, unsigned finished_mask) {
        RegisterTraffic::answer(0x1F14, {shfe_count});
        RegisterTraffic::answer(0x1F15, {ine_count});
        EngineAccess::finished_mask(*engine).enabled_mask = static_cast<std::uint8_t>(finished_mask);
        return EngineAccess::write_static_info_file(*engine);
    }

    static std::string text_of(const std::string& file) {
        return (std::ostringstream() << std::ifstream(file, std::ios::binary).rdbuf()).str();
    }
    static Strings lines_of(const std::string& file) { return kova::test::split_lines(text_of(file)); }

    /** Refuses to write over what lies in the file's place. */
    void expect_refused() {
        new_log();
        EXPECT_EQ(write(1, 1, 5), -1);
        EXPECT_EQ(new_log(), Strings{"[W][_InstStaticInfoWriteFile]open contract index file failed " + file});
    }

    const std::string file = day.morning_file();
};

TEST_F(StaticInfoFileTest, AHeadingThenSHFEThenINEEachCountedFromZero) {
    U50InstTable& tables = EngineAccess::inst_table(*engine);
    SInstTableType& row = tables.shfe2psInstTable.rows[1];
    name_row(row, "al2607");
    row.change_no = 1;
    row.open_interest = 2;
    row.last_price = -3;
    row.turnover = 4;
    row.volume = 5;
    row.price_tick = 6;
    row.codec_price = 7;
    row.vol_multiple = 8;
    row.upper_limit_price = 9;
    row.lower_limit_price = -10;
    EXPECT_EQ(write(2, 1, 5), 0);
    EXPECT_EQ(text_of(file), kHeading +
                                 "\n0,cu2,0,0,0,0,0,0,0,0,0,0"
                                 "\n1,al2607,1,2,-3,4,5,6,7,8,9,-10"
                                 "\n0,sc2,0,0,0,0,0,0,0,0,0,0\n");
    EXPECT_FALSE(std::filesystem::exists(day.evening_file()));
    EXPECT_EQ(new_log(), Strings{});
}

TEST_F(StaticInfoFileTest, TheCountsAreReadSHFEFirst) {
    RegisterTraffic::start_recording();
    EXPECT_EQ(write(2, 1, 5), 0);
    EXPECT_EQ(RegisterTraffic::stop_recording(), (Strings{"0x1f14 -> 0x2", "0x1f15 -> 0x1"}));
}

TEST_F(StaticInfoFileTest, OthersOfTheHostMayReadTheFile) {
    const mode_t before = ::umask(022);
    EXPECT_EQ(write(1, 1, 5), 0);
    ::umask(before);
    EXPECT_EQ(std::filesystem::status(file).permissions(), static_cast<std::filesystem::perms>(0644));
}

// The name.

TEST_F(StaticInfoFileTest, At1659ItIsTheMorningsFile) {
    day.set_time(16, 59);
    EXPECT_EQ(write(1, 0, 5), 0);
    EXPECT_TRUE(std::filesystem::exists(day.morning_file()));
    EXPECT_FALSE(std::filesystem::exists(day.evening_file()));
}

TEST_F(StaticInfoFileTest, At1700ItIsTheEveningsFile) {
    day.set_time(17, 0);
    EXPECT_EQ(write(1, 0, 5), 0);
    EXPECT_FALSE(std::filesystem::exists(day.morning_file()));
    EXPECT_TRUE(std::filesystem::exists(day.evening_file()));
}

TEST_F(StaticInfoFileTest, TheDateIsTheLocalOne) {
    day.set_time(0, 30);  // the evening before in UTC
    EXPECT_EQ(write(1, 0, 5), 0);
    EXPECT_TRUE(std::filesystem::exists(day.morning_file()));
}

// The counts.

TEST_F(StaticInfoFileTest, WithoutAnyInstrumentNothingIsWritten) {
    EXPECT_EQ(write(0, 0, 15), -1);
    EXPECT_EQ(new_log(), Strings{"[W][_InstStaticInfoWriteFile]shfeInstCount:0, ineInstCount:0, not write "
                                 "contract index file " +
                                 file});
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(StaticInfoFileTest, WithoutAnyInstrumentAnEarlierFileStays) {
    std::ofstream(file) << "earlier\n";
    EXPECT_EQ(write(0, 0, 15), -1);
    EXPECT_EQ(text_of(file), "earlier\n");
}

TEST_F(StaticInfoFileTest, ACardThatCannotBeReadHasNoInstruments) {
    sdk().fail("enyx_hw_read", 1, EIO);
    sdk().fail("enyx_hw_read", 2, EIO);
    EXPECT_EQ(write(7, 7, 15), -1);
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(StaticInfoFileTest, INEAloneIsCountedFromZero) {
    EXPECT_EQ(write(0, 5, 5), 0);
    EXPECT_EQ(lines_of(file),
              (Strings{kHeading, "0,sc2,0,0,0,0,0,0,0,0,0,0", "1,,0,0,0,0,0,0,0,0,0,0",
                       "2,,0,0,0,0,0,0,0,0,0,0", "3,,0,0,0,0,0,0,0,0,0,0", "4,,0,0,0,0,0,0,0,0,0,0"}));
}

TEST_F(StaticInfoFileTest, CountsAboveTheFeedsTableAreUsedAsTheyAre) {
    name_row(EngineAccess::inst_table(*engine).shfe4psInstTable.rows[0], "behind");
    EXPECT_EQ(write(16385, 0, 1), 0);
    const Strings lines = lines_of(file);
    ASSERT_EQ(lines.size(), 1U + 16385U);
    EXPECT_EQ(lines.back(), "16384,behind,0,0,0,0,0,0,0,0,0,0");
}

TEST_F(StaticInfoFileTest, ACardThatAnswersOnesDoesNotSendTheReaderBehindTheTables) {
    name_row(EngineAccess::inst_table(*engine).ine4psInstTable.rows[4095], "last");
    EXPECT_EQ(write(0xFFFFFFFF, 0xFFFFFFFF, 5), 0);
    const Strings lines = lines_of(file);
    // From the first row of SHFE 2PS, and of INE 2PS, to the last one of INE 4PS.
    ASSERT_EQ(lines.size(), 1U + 40960U + 8192U);
    EXPECT_EQ(lines[40960], "40959,last,0,0,0,0,0,0,0,0,0,0");
    EXPECT_EQ(lines[40961], "0,sc2,0,0,0,0,0,0,0,0,0,0");
    EXPECT_EQ(lines.back(), "8191,last,0,0,0,0,0,0,0,0,0,0");
    EXPECT_EQ(write(0xFFFFFFFF, 0xFFFFFFFF, 10), 0);
    EXPECT_EQ(lines_of(file).size(), 1U + 24576U + 4096U);
}

// The tables.

TEST_F(StaticInfoFileTest, OfAnExchangesCompleteFeeds4PSIsListedBefore2PS) {
    const Strings shfe = {"", "cu2", "cu4", "cu4"};  // by the two bits of SHFE
    const Strings ine = {"", "sc2", "sc4", "sc4"};   // by the two bits of INE
    for (unsigned mask = 0; mask < 16; ++mask) {
        std::string expected = kHeading + "\n";
        for (const std::string& name : {shfe[mask % 4], ine[mask / 4]}) {
            expected += name.empty() ? "" : "0," + name + ",0,0,0,0,0,0,0,0,0,0\n";
        }
        EXPECT_EQ(write(1, 1, mask), 0) << mask;
        EXPECT_EQ(text_of(file), expected) << mask;
    }
}

TEST_F(StaticInfoFileTest, WithSHFE4PSAloneCompleteINEIsAbsent) {
    EXPECT_EQ(write(1, 5, 2), 0);
    EXPECT_EQ(lines_of(file), (Strings{kHeading, "0,cu4,0,0,0,0,0,0,0,0,0,0"}));
}

// What lies in the file's place.

TEST_F(StaticInfoFileTest, AnEarlierFileOfTheHalfDayIsOverwritten) {
    EXPECT_EQ(write(100, 100, 5), 0);
    day.set_time(16, 0);
    EXPECT_EQ(write(1, 0, 5), 0);
    EXPECT_EQ(lines_of(file), (Strings{kHeading, "0,cu2,0,0,0,0,0,0,0,0,0,0"}));
}

TEST_F(StaticInfoFileTest, ASymbolicLinkIsNotFollowed) {
    std::ofstream("precious") << "precious";
    std::filesystem::create_symlink(std::filesystem::absolute("precious"), file);
    expect_refused();
    EXPECT_EQ(text_of("precious"), "precious");
    EXPECT_TRUE(std::filesystem::is_symlink(file));
}

TEST_F(StaticInfoFileTest, ASymbolicLinkToNothingIsNotFollowed) {
    std::filesystem::create_symlink(std::filesystem::absolute("not-yet"), file);
    expect_refused();
    EXPECT_FALSE(std::filesystem::exists("not-yet"));
}

TEST_F(StaticInfoFileTest, ASymbolicLinkToADeviceIsNotFollowed) {
    std::filesystem::create_symlink("/dev/full", file);
    expect_refused();
}

TEST_F(StaticInfoFileTest, ADirectoryIsNotTheFile) {
    std::filesystem::create_directory(file);
    expect_refused();
    EXPECT_TRUE(std::filesystem::is_directory(file));
}

TEST_F(StaticInfoFileTest, APipeWithoutAReaderIsNotWaitedFor) {
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    expect_refused();
}

TEST_F(StaticInfoFileTest, APipeWithAReaderGetsNothing) {
    ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0);
    const int reader = ::open(file.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    expect_refused();
    char byte = 0;
    EXPECT_EQ(::read(reader, &byte, 1), 0);
    ::close(reader);
}

TEST_F(StaticInfoFileTest, NothingStaysOpen) {
    const auto open_files = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    EXPECT_EQ(write(1, 1, 5), 0);
    const auto before = open_files();
    EXPECT_EQ(write(1, 1, 5), 0);
    EXPECT_EQ(write(0, 0, 5), -1);
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
    expect_refused();
    EXPECT_EQ(open_files(), before);
}

// A disk that is full: no file may grow above a limit.

/** No file of the process grows above a size while it lives. */
class FileSizeLimit {
 public:
    explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        rlimit limit = before_;
        limit.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, handler_);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

 private:
    rlimit before_{};
    void (*handler_)(int);
};

TEST_F(StaticInfoFileTest, AFileThatCannotBeWrittenWholeIsAFailure) {
    new_log();
    {
        const FileSizeLimit limit(65536);  // far above the log, far below the list
        EXPECT_EQ(write(16384, 0, 5), -1);
    }
    EXPECT_EQ(new_log(), Strings{"[W][_InstStaticInfoWriteFile]write contract index file failed " + file});
}

}  // namespace
