#include "kova_simcard/progress.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace kova::app {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

class TextFile {
 public:
    TextFile() : file_(open_memstream(&text_, &size_)) {}
    ~TextFile() {
        std::fclose(file_);
        std::free(text_);
    }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;

    [[nodiscard]] std::FILE* file() const { return file_; }
    [[nodiscard]] std::string text() const {
        std::fflush(file_);
        return {text_, size_};
    }

 private:
    char* text_ = nullptr;
    std::size_t size_ = 0;
    std::FILE* file_;
};

// A thousand quotes a second, each sent to two channels.
ProgressSample sample(std::int64_t milliseconds, sim::TrafficState traffic = sim::TrafficState::kRunning) {
    const auto quotes = static_cast<std::uint64_t>(milliseconds);
    return {.now = 77 * kSecond + milliseconds * 1'000'000,
            .elapsed = milliseconds * 1'000'000,
            .traffic = traffic,
            .totals = {.quotes = quotes, .sent = 2 * quotes, .lost = 3, .unheard = 0},
            .channels_open = 2};
}

TEST(SimcardProgress, LineTellsTimeRateAndCounts) {
    ProgressSample one = sample(3'723'000);
    EXPECT_EQ(progress_text(one, 1000.4),
              "running 01:02:03  1000 quotes/s  sent 7446000  lost 3  2 channels open");
    one.channels_open = 1;
    EXPECT_EQ(progress_text(one, 0), "running 01:02:03  0 quotes/s  sent 7446000  lost 3  1 channel open");
}

TEST(SimcardProgress, PlainLinesComeEveryTenSeconds) {
    const TextFile file;
    Progress progress(file.file(), Progress::Kind::kLines);
    for (std::int64_t milliseconds = 0; milliseconds <= 25'000; milliseconds += 50) {
        progress.update(sample(milliseconds));
    }
    EXPECT_EQ(file.text(),
              "running 00:00:10  1000 quotes/s  sent 20000  lost 3  2 channels open\n"
              "running 00:00:20  1000 quotes/s  sent 40000  lost 3  2 channels open\n");
}

TEST(SimcardProgress, TerminalLineIsRewrittenTwiceASecond) {
    const TextFile file;
    Progress progress(file.file(), Progress::Kind::kTerminal);
    for (std::int64_t milliseconds = 0; milliseconds <= 1'200; milliseconds += 50) {
        progress.update(sample(milliseconds));
    }
    EXPECT_EQ(file.text(),
              "\r\x1b[Krunning 00:00:00  1000 quotes/s  sent 1000  lost 3  2 channels open"
              "\r\x1b[Krunning 00:00:01  1000 quotes/s  sent 2000  lost 3  2 channels open");
}

TEST(SimcardProgress, ToldLineReplacesTheTerminalLine) {
    const TextFile file;
    Progress progress(file.file(), Progress::Kind::kTerminal);
    progress.update(sample(0));
    progress.update(sample(500));
    progress.tell("card 1 is off");
    progress.tell("really");
    EXPECT_EQ(file.text(),
              "\r\x1b[Krunning 00:00:00  1000 quotes/s  sent 1000  lost 3  2 channels open"
              "\r\x1b[Kcard 1 is off\nreally\n");
}

TEST(SimcardProgress, EndOfTrafficIsToldOnceWithTheRateOfAllOfIt) {
    const TextFile file;
    Progress progress(file.file(), Progress::Kind::kLines);
    progress.update(sample(0));
    progress.update(sample(4'000, sim::TrafficState::kEnded));
    progress.update(sample(4'000, sim::TrafficState::kEnded));
    EXPECT_EQ(file.text(), "ended 00:00:04  1000 quotes/s  sent 8000  lost 3  2 channels open\n");
}

TEST(SimcardProgress, LastLineSumsUp) {
    const TextFile file;
    Progress progress(file.file(), Progress::Kind::kLines);
    progress.end(sample(4'200), "card 9 is off as asked");
    EXPECT_EQ(file.text(), "card 9 is off as asked: 4200 quotes in 4.2 s, sent 8400, lost 3, unheard 0\n");
}

TEST(SimcardProgress, QuietTellsNothing) {
    const TextFile file;
    Progress progress(file.file(), Progress::Kind::kNone);
    progress.tell("a line");
    progress.update(sample(0));
    progress.update(sample(60'000, sim::TrafficState::kEnded));
    progress.end(sample(60'000), "off");
    EXPECT_EQ(file.text(), "");
}

TEST(SimcardProgress, FileThatIsNoTerminalGetsPlainLines) {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::tmpfile(), std::fclose);
    EXPECT_EQ(progress_kind(file.get(), false), Progress::Kind::kLines);
    EXPECT_EQ(progress_kind(file.get(), true), Progress::Kind::kNone);
}

}  // namespace
}  // namespace kova::app
