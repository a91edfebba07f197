// What a quote may cost: no allocation, no lock, no system call, no log line.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "card/engine_test.h"
#include "card/hot_path_watch.h"

namespace {

using kova::test::can_watch_hot_path;
using kova::test::HotPathVerdict;
using kova::test::quote_number;
using kova::test::watch_hot_path;

constexpr std::uint32_t kQuotes = 1000;

/** Takes note of each quote in no time, and does one thing more if it is told to. */
class LightSpi : public CKovaShfeMdSpi {
 public:
    std::int32_t OnKovaShfeMd(const KovaShfeMdType* quote) override {
        sum += quote->change_no;
        if (also_do != nullptr) {
            also_do();
        }
        return 0;
    }

    std::uint64_t sum = 0;
    void (*also_do)() = nullptr;
};

class QuotePathTest : public ::testing::Test {
 protected:
    void SetUp() override {
        if (!can_watch_hot_path()) {
            GTEST_SKIP() << "the sanitizer's runtime allocates, locks and calls the system itself";
        }
        std::ofstream("kova.ini") << "[config]\ndevice = xilinx0:3\nlog_level = 31\n";
    }

    void push_quotes() {
        // The first poll resolves what is resolved once.
        EXPECT_EQ(engine->KovaRecv(), 0);
        sdk().stop();  // recording calls takes memory and locks
        for (std::uint32_t number = 1; number <= kQuotes; ++number) {
            ASSERT_EQ(card->push_quote(3, quote_number(number)), kova::sim::PushResult::kSent);
        }
    }

    /** Receives all quotes in callback mode while watched. */
    HotPathVerdict watch_callbacks() {
        EXPECT_EQ(engine->KovaStart(spi, "kova.ini"), 0);
        push_quotes();
        return watch_hot_path([this] {
            for (std::uint32_t i = 0; i < kQuotes; ++i) {
                if (engine->KovaRecv() != 1) {
                    return false;
                }
            }
            return engine->KovaRecv() == 0 && spi.sum == 500500;
        });
    }

    static kova::sim::SdkCalls& sdk() { return kova::sim::InProcessCard::calls(); }

    kova::test::TempDir directory;
    kova::test::WorkingDirectory working_directory{directory.path()};
    kova::sim::InProcessCard card{0, {.slots_log2 = 12}};
    LightSpi spi;
    std::unique_ptr<CKovaShfeMdApiImpl> engine = EngineAccess::create();
};

TEST_F(QuotePathTest, AQuoteInCallbackModeCostsNothingElse) {
    EXPECT_EQ(watch_callbacks(), HotPathVerdict::kClean);
}

TEST_F(QuotePathTest, AQuoteInFetchModeCostsNothingElse) {
    EXPECT_EQ(engine->KovaStart("kova.ini"), 0);
    push_quotes();
    const HotPathVerdict verdict = watch_hot_path([this] {
        std::uint64_t sum = 0;
        KovaShfeMdType record;
        for (std::uint32_t i = 0; i < kQuotes; ++i) {
            if (engine->KovaRecv(record) != 1) {
                return false;
            }
            sum += record.change_no;
        }
        return engine->KovaRecv(record) == 0 && sum == 500500;
    });
    EXPECT_EQ(verdict, HotPathVerdict::kClean);
}

// The watch itself.

TEST_F(QuotePathTest, AnAllocationWouldBeNoticed) {
    spi.also_do = [] {
        static std::unique_ptr<int> kept;
        kept = std::make_unique<int>(1);
    };
    EXPECT_EQ(watch_callbacks(), HotPathVerdict::kAllocated);
}

TEST_F(QuotePathTest, ALockWouldBeNoticed) {
    spi.also_do = [] {
        static std::mutex mutex;
        const std::lock_guard guard(mutex);
    };
    EXPECT_EQ(watch_callbacks(), HotPathVerdict::kLocked);
}

TEST_F(QuotePathTest, ASystemCallWouldBeNoticed) {
    spi.also_do = [] { static_cast<void>(::getppid()); };
    EXPECT_EQ(watch_callbacks(), HotPathVerdict::kSystemCall);
}

TEST_F(QuotePathTest, ALogLineWouldBeNoticed) {
    spi.also_do = [] { KOVA_LOG(LOG_DEBUG_EX, "a line"); };
    EXPECT_EQ(watch_callbacks(), HotPathVerdict::kSystemCall);
}

TEST_F(QuotePathTest, AMissingQuoteWouldBeNoticed) {
    EXPECT_EQ(engine->KovaStart(spi, "kova.ini"), 0);
    push_quotes();
    for (std::uint32_t i = 0; i < kQuotes; ++i) {
        EXPECT_EQ(engine->KovaRecv(), 1);
    }
    EXPECT_EQ(watch_hot_path([this] { return engine->KovaRecv() == 1; }), HotPathVerdict::kWrongResult);
}

}  // namespace
