/**
 * What the tests of the engine on a card share: a directory of the test's own, a card, the log, the time.
 *
 * Each test case runs in a process of its own: the log's file and the registers' gateway exist once a process.
 */
#ifndef KOVA_TESTS_CARD_ENGINE_TEST_H
#define KOVA_TESTS_CARD_ENGINE_TEST_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "card/clock.h"
#include "sim/card/in_process_card.h"
#include "support/engine_access.h"
#include "support/log_run.h"
#include "support/temp_dir.h"

namespace kova::test {

using Strings = std::vector<std::string>;

/** Lines of the log file of the working directory, each as "[level][function]message". */
inline Strings read_log() {
    Strings lines;
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        // Captures are named alike.
        const std::string name = entry.path().filename().string();
        if (!name.starts_with("kova_u50_") || name.starts_with("kova_u50_dma_")) {
            continue;
        }
        std::ostringstream text;
        text << std::ifstream(entry.path(), std::ios::binary).rdbuf();
        for (std::string& line : log_messages(text.str())) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

/** A quote whose fields tell its number. */
inline KovaShfeMdType quote_number(std::uint32_t number) {
    KovaShfeMdType quote{};
    quote.inst_no = number;
    quote.change_no = number;
    quote.last_px = static_cast<std::int32_t>(number) * 100;
    quote.bid_amount = static_cast<std::int64_t>(number) * 1000;
    return quote;
}

/** A callback object that keeps what it is given. */
class RecordingSpi : public CKovaShfeMdSpi {
 public:
    std::int32_t OnKovaShfeMd(const KovaShfeMdType* record) override {
        addresses.push_back(record);
        change_numbers.push_back(record->change_no);
        return -1;  // ignored
    }

    std::vector<const KovaShfeMdType*> addresses;
    std::vector<std::uint32_t> change_numbers;
};

class EngineTest : public ::testing::Test {
 protected:
    EngineTest() {
        ::setenv("TZ", "CST-8", 1);
        ::tzset();
    }
    ~EngineTest() override { Polls::before_each({}); }

    /** Writes a configuration file whose section "config" has these lines, and gives its path. */
    static const char* config(std::string_view lines) {
        std::ofstream("kova.ini") << "[config]\n" << lines << "\n";
        return "kova.ini";
    }
    /** The configuration of a channel that only receives. */
    static const char* config_of_channel(std::uint32_t channel) {
        return config("device = xilinx0:" + std::to_string(channel));
    }

    /** Lines since the last call. */
    Strings new_log() {
        Strings lines = read_log();
        Strings fresh(lines.begin() + static_cast<std::ptrdiff_t>(log_lines_seen_), lines.end());
        log_lines_seen_ = lines.size();
        return fresh;
    }

    /** Starts the engine in callback mode and forgets what it logged and asked of the SDK. */
    void start_with_callback(std::uint32_t channel) {
        ASSERT_EQ(engine->KovaStart(spi, config_of_channel(channel)), 0);
        forget();
    }
    void start_fetching(std::uint32_t channel) {
        ASSERT_EQ(engine->KovaStart(config_of_channel(channel)), 0);
        forget();
    }
    void forget() {
        new_log();
        sim::InProcessCard::calls().start_recording();
    }

    static sim::SdkCalls& sdk() { return sim::InProcessCard::calls(); }

    TempDir directory;
    WorkingDirectory working_directory{directory.path()};
    sim::InProcessCard card;
    RecordingSpi spi;
    std::unique_ptr<CKovaShfeMdApiImpl> engine = EngineAccess::create();

 private:
    std::size_t log_lines_seen_ = 0;
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_ENGINE_TEST_H
