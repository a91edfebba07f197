#include "kova_quotes/terminal_table.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

#include "apps/quotes_sample.h"

namespace kova::app {
namespace {

using namespace std::chrono_literals;

/** The table writes into an unnamed file that the test reads. */
class TerminalTableTest : public ::testing::Test {
 protected:
    TerminalTableTest()
        : file_(::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)),
          output_(::dup(file_)),
          table_(output_, {.columns = 4, .has_colour = false}) {}
    ~TerminalTableTest() override { ::close(file_); }

    // The lines so far, of each row what stands behind the time, without padding.
    std::vector<std::string> lines() {
        output_.flush();
        std::string text(1 << 20, '\0');
        text.resize(static_cast<std::size_t>(::pread(file_, text.data(), text.size(), 0)));
        std::vector<std::string> lines;
        std::istringstream stream(text);
        for (std::string line; std::getline(stream, line);) {
            std::istringstream words(line.starts_with("00:00:00.000") ? line.substr(12) : line);
            std::string packed;
            for (std::string word; words >> word;) {
                packed += (packed.empty() ? "" : " ") + word;
            }
            lines.push_back(packed);
        }
        return lines;
    }

    int file_;
    QuoteOutput output_;
    TerminalTable table_;
};

TEST_F(TerminalTableTest, ASlowStreamIsShownQuoteByQuoteUnderAHeader) {
    table_.write(make_quote("cu2509", 1, 7812000));
    table_.write(make_quote("al2509", 1, 2050000));
    table_.write(make_quote("cu2509", 2, 7813000));
    EXPECT_EQ(lines(), (std::vector<std::string>{"time instrument last change", "cu2509 78120.00",
                                                 "al2509 20500.00", "cu2509 78130.00 +10.00"}));
}

TEST_F(TerminalTableTest, AFastStreamShowsTheLatestOfEachInstrumentAsItsTurnComes) {
    for (std::uint32_t change = 1; change <= 20; ++change) {
        table_.write(make_quote("cu2509", change, 100));
    }
    for (std::int32_t last = 101; last <= 150; ++last) {
        table_.write(make_quote("cu2509", 0, last));
        table_.write(make_quote("al2509", 0, 1000 + last));
    }
    EXPECT_EQ(lines().size(), 1U + 20);
    table_.tick(0s);
    EXPECT_EQ(lines().size(), 1U + 20);
    table_.tick(50ms);
    EXPECT_EQ(lines().back(), "cu2509 1.50 +0.50");
    table_.tick(99ms);
    EXPECT_EQ(lines().size(), 1U + 21);
    table_.tick(100ms);
    EXPECT_EQ(lines().back(), "al2509 11.50");
    table_.tick(10s);
    EXPECT_EQ(lines().size(), 1U + 22);
}

TEST_F(TerminalTableTest, QuotesThatWereReplacedAreToldAboveTheNextHeader) {
    table_.tick(0s);
    for (int change = 1; change <= 25; ++change) {
        table_.write(make_quote("cu2509", 1, 100));
    }
    // 20 shown at once, 4 replaced, 1 waiting: that one and 9 more fill the page of 30.
    table_.tick(10s);
    for (int change = 1; change <= 10; ++change) {
        table_.write(make_quote("cu2509", 1, 100));
    }
    const std::vector<std::string> text = lines();
    ASSERT_EQ(text.size(), 1U + 30 + 1 + 1 + 1);
    EXPECT_EQ(text[31], "(4 quotes not shown)");
    EXPECT_EQ(text[32], "time instrument last change");
    EXPECT_EQ(text[33], "cu2509 1.00");
}

TEST_F(TerminalTableTest, TheEndShowsTheLatestThatWaitAndTellsWhatItDoesNotShow) {
    for (int i = 0; i < 20; ++i) {
        table_.write(make_quote("cu2509", 1, 100));
    }
    // Five give way to later ones, and one quote of al24 is replaced.
    for (int i = 0; i < 25; ++i) {
        table_.write(make_quote(fmt::format("al{}", i), 1, 100));
    }
    table_.write(make_quote("al24", 2, 200));
    table_.finish();
    const std::vector<std::string> text = lines();
    ASSERT_EQ(text.size(), 1U + 30 + 1 + 1 + 10);
    EXPECT_EQ(text[21], "al5 1.00");
    EXPECT_EQ(text[31], "(6 quotes not shown)");
    EXPECT_EQ(text.back(), "al24 2.00");
}

TEST_F(TerminalTableTest, AnInstrumentThatGaveWayCanWaitAgain) {
    for (int i = 0; i < 20; ++i) {
        table_.write(make_quote("cu2509", 1, 100));
    }
    for (int i = 0; i < 21; ++i) {
        table_.write(make_quote(fmt::format("al{}", i), 1, 100));
    }
    table_.write(make_quote("al0", 2, 300));
    table_.finish();
    EXPECT_EQ(lines().back(), "al0 3.00");
}

TEST_F(TerminalTableTest, TheEndTellsWhatNoFurtherHeaderTold) {
    for (int i = 0; i < 22; ++i) {
        table_.write(make_quote("cu2509", 1, 100));
    }
    table_.finish();
    EXPECT_EQ(lines().back(), "(1 quote not shown)");
}

}  // namespace
}  // namespace kova::app
