#include "kova_quotes/quote_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "apps/quotes_sample.h"

namespace kova::app {
namespace {

using namespace std::chrono_literals;

class QuoteWriterTest : public ::testing::Test {
 protected:
    QuoteWriterTest() : file_(::open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600)), output_(::dup(file_)) {}
    ~QuoteWriterTest() override { ::close(file_); }

    [[nodiscard]] std::string text() const {
        std::string text(1 << 20, '\0');
        text.resize(static_cast<std::size_t>(::pread(file_, text.data(), text.size(), 0)));
        return text;
    }

    // What two quotes become.
    std::string written(Format format) {
        const auto writer = make_quote_writer(format, output_);
        writer->begin();
        writer->write(make_quote("cu2509", 1, 100));
        writer->write(make_quote("al2509", 2, 200));
        writer->finish();
        return text();
    }

    int file_;
    QuoteOutput output_;
};

TEST_F(QuoteWriterTest, CsvIsAHeaderAndALineForEachQuote) {
    const std::string text = written(Format::kCsv);
    EXPECT_EQ(text.find("inst_no,inst_id,"), 0U);
    EXPECT_NE(text.find("\n0,cu2509,0,0,0,1,100,"), std::string::npos);
    EXPECT_NE(text.find("\n0,al2509,0,0,0,2,200,"), std::string::npos);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST_F(QuoteWriterTest, JsonIsALineForEachQuoteAndNothingElse) {
    const std::string text = written(Format::kJson);
    EXPECT_EQ(text.find("{\"inst_no\":0,\"inst_id\":\"cu2509\","), 0U);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

TEST_F(QuoteWriterTest, ATableForAFileHasOneHeaderEveryQuoteAndNoColour) {
    const auto writer = make_quote_writer(Format::kTable, output_);
    writer->begin();
    for (std::int32_t last = 1; last <= 1000; ++last) {
        writer->write(make_quote("cu2509", 1, last));
    }
    writer->finish();
    const std::string table = text();
    EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 1001);
    EXPECT_EQ(table.find("instrument"), table.rfind("instrument"));
    EXPECT_EQ(table.find('\x1b'), std::string::npos);
}

TEST_F(QuoteWriterTest, NothingIsWrittenBeforeTheReceiverHasStarted) {
    for (const Format format : {Format::kTable, Format::kCsv, Format::kJson, Format::kNone}) {
        make_quote_writer(format, output_);
        output_.flush();
        EXPECT_EQ(text(), "");
    }
}

TEST_F(QuoteWriterTest, NoneIsNothing) {
    EXPECT_EQ(written(Format::kNone), "");
}

TEST_F(QuoteWriterTest, WhatWasWrittenArrivesWithALaterTick) {
    const auto writer = make_quote_writer(Format::kJson, output_);
    writer->tick(1s);
    writer->write(make_quote("cu2509", 1));
    EXPECT_EQ(text(), "");
    writer->tick(1s + 1ms);
    EXPECT_NE(text(), "");
    const std::size_t size = text().size();
    writer->write(make_quote("cu2509", 2));
    writer->tick(1s + 50ms);
    EXPECT_EQ(text().size(), size);
    writer->tick(1s + 51ms);
    EXPECT_EQ(text().size(), 2 * size);
}

/** A pseudo-terminal, the table on its inner side. */
class OnATerminal : public ::testing::Test {
 protected:
    OnATerminal() : outer_(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        EXPECT_EQ(::grantpt(outer_), 0);
        EXPECT_EQ(::unlockpt(outer_), 0);
        inner_ = ::open(::ptsname(outer_), O_RDWR | O_NOCTTY | O_CLOEXEC);
        EXPECT_NE(inner_, -1);
    }
    ~OnATerminal() override { ::close(outer_); }

    // One rise of 0.05 as the terminal gets it.
    std::string shown() {
        QuoteOutput output(inner_);
        const auto writer = make_quote_writer(Format::kTable, output);
        writer->write(make_quote("cu2509", 1, 100));
        writer->write(make_quote("cu2509", 2, 105));
        output.flush();
        std::string text(4096, '\0');
        text.resize(static_cast<std::size_t>(::read(outer_, text.data(), text.size())));
        return text;
    }

    int outer_;
    int inner_ = -1;
};

TEST_F(OnATerminal, TheTableHasColoursAndFitsEightyColumnsWhenTheWidthIsUnknown) {
    ::setenv("TERM", "xterm", 1);
    ::unsetenv("NO_COLOR");
    const std::string text = shown();
    EXPECT_NE(text.find("\x1b[31m  +0.05\x1b[0m"), std::string::npos);
    EXPECT_NE(text.find("ask vol\x1b[0m\r\n"), std::string::npos);
}

TEST_F(OnATerminal, NoColourIsRespected) {
    ::setenv("TERM", "xterm", 1);
    ::setenv("NO_COLOR", "1", 1);
    EXPECT_EQ(shown().find('\x1b'), std::string::npos);
}

TEST_F(OnATerminal, ADumbTerminalGetsNoColour) {
    ::setenv("TERM", "dumb", 1);
    ::unsetenv("NO_COLOR");
    EXPECT_EQ(shown().find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace kova::app
