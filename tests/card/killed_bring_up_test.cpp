// The process of channel 0 is killed somewhere in its bring-up, whatever it holds; the next one comes up.
//
// A hundred seeds, each with a card, a victim and a successor of its own. A seed that fails is printed; with
// KOVA_KILL_SEED=N in the environment it runs alone.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "card/bring_up_test.h"
#include "card/forked_exchange.h"
#include "card/small_listing.h"
#include "card/steps.h"
#include "card/table_shortcut.h"
#include "sim/card/contract_tables.h"

namespace {

using kova::test::ByteString;
using kova::test::Clock;
using kova::test::ForkedExchange;
using kova::test::kSmallConfig;
using kova::test::kSmallInstrumentFile;
using kova::test::MdqpMessage;
using kova::test::Polls;
using kova::test::RegisterTraffic;
using kova::test::SnapshotFrames;
using kova::test::Step;
using kova::test::Steps;
using kova::test::TableShortcut;
using kova::test::wrong_rows_of_small_listing;

constexpr std::uint32_t kSeeds = 100;
constexpr std::uint32_t kParts = 4;
constexpr unsigned kLongestSeconds = 60;
// Locking, access and unlocking for each of the two registers of every word of the four tables.
constexpr std::uint64_t kTableSteps = 3 * 2 * 64 * (16384 + 16384 + 4096 + 4096);

/** Where a bring-up is, by the registers that it touches. */
enum Stage : std::size_t {
    kOpening,       // the SDK's objects, whether the card runs
    kProgramming,   // reset, memory, network
    kSnapshot,      // polls that bring it
    kTables,        // inside the last of these polls
    kVersions,      // and the checksum
    kFile,          // of the instruments
    kSubscription,  // of all channels
    kStart,         // limits, modes, closing of the tables, cores
    kStageCount,
};

constexpr std::array<const char*, kStageCount> kStageNames = {
    "the opening",  "the programming", "the snapshot",     "the tables",
    "the versions", "the file",        "the subscription", "the start"};

using StepCounts = std::array<std::uint64_t, kStageCount>;

/** Follows a bring-up step by step. */
class Progress {
 public:
    [[nodiscard]] Stage stage() const { return stage_; }

    void access(bool is_write, std::uint32_t number) {
        if (is_write) {
            go_on(number);
        }
        is_locked_ = true;
    }
    void step(Step step) {
        if (step == Step::kLine && stage_ == kVersions) {
            stage_ = kFile;
        }
        is_locked_ = step == Step::kUnlock;
    }
    void poll() { is_locked_ = false; }
    /** Whether the step at hand is made with the core lock held. */
    [[nodiscard]] bool is_locked() const { return is_locked_; }

 private:
    void go_on(std::uint32_t number) {
        constexpr std::uint32_t kLastMulticast = 0x21107;
        constexpr std::uint32_t kFirstTable = 0x11001;
        constexpr std::uint32_t kSoftVersion = 0x102;
        constexpr std::uint32_t kReadAddress = 0x11002;
        constexpr std::uint32_t kFirstLimit = 0x1005;
        switch (number) {
            case 0x10:
                stage_ = kProgramming;
                break;
            case kLastMulticast:
                stage_ = kSnapshot;
                break;
            case kFirstTable:
                stage_ = stage_ == kSnapshot ? kTables : stage_;
                break;
            case kSoftVersion:
                stage_ = kVersions;
                break;
            case kReadAddress:
                stage_ = kSubscription;
                break;
            case kFirstLimit:
                stage_ = kStart;
                break;
            default:
                break;
        }
    }

    Stage stage_ = kOpening;
    bool is_locked_ = false;
};

/** The death of a victim: before this step of this stage, from 1; 0: it does not die. */
struct Death {
    Stage stage = kOpening;
    std::uint64_t step = 0;
};

/** What a process tells the one that started it, which outlives it. */
struct Report {
    StepCounts steps;
    bool was_locked;  // the core, by a step that was the last
    std::array<char, 400> failure;
};

class SharedReport {
 public:
    SharedReport()
        : report_(static_cast<Report*>(
              mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    ~SharedReport() { munmap(report_, sizeof(Report)); }
    SharedReport(const SharedReport&) = delete;
    SharedReport& operator=(const SharedReport&) = delete;

    Report* operator->() const { return report_; }
    void clear() const { *report_ = {}; }

 private:
    Report* report_;
};

std::string text_of(const std::string& file) {
    return (std::ostringstream() << std::ifstream(file, std::ios::binary).rdbuf()).str();
}

/** The snapshot that a victim gets, of instruments that its successor's has not. */
std::vector<ByteString> snapshot_of_victim() {
    kova::test::MessageFrames frames(100'000);
    const auto instrument = [](std::string_view id, std::int32_t number) {
        return kova::test::InstInfoField{
            .inst_id = id, .volume_multiple = 10, .price_tick = 1, .codec_price = 1, .inst_no = number};
    };
    frames.add(MdqpMessage(0x11)
                   .snap(1000, 1)
                   .packet_no(11)
                   .inst_info(instrument("ag2601", 0))
                   .inst_info(instrument("ag2602", 1))
                   .inst_info(instrument("cu2601", 2))
                   .inst_info(instrument("cu2602", 3)));
    frames.add(MdqpMessage(0x01).inst_info(instrument("zn2601", 4)).tail());
    frames.add(MdqpMessage(0x11).snap(5000, 1).packet_no(12).inst_info(instrument("bc2601", 0)));
    frames.add(MdqpMessage(0x01).inst_info(instrument("nr2601", 1)).tail());
    frames.add_empty();
    return frames.frames();
}

constexpr std::string_view kConfigOfVictim =
    "log_level = 1\n"
    "ine2ps = enabled\n"
    "[channel0]\n"
    "insts = all\n"
    "[channel3]\n"
    "insts = cu\n"
    "[channel9]\n"
    "insts = nr2601,bc";

class KilledBringUpTest : public kova::test::EngineTest, public ::testing::WithParamInterface<std::uint32_t> {
 protected:
    // A process watches accesses for nothing of its own here.
    KilledBringUpTest() { sdk().stop(); }

    /** How many steps each stage of a victim has when nobody kills it. */
    StepCounts count_steps() {
        kova::sim::InProcessCard fresh(kIndexOfCard);
        sdk().stop();
        EXPECT_EQ(run_victim(fresh, {}), 0);
        EXPECT_STREQ(report->failure.data(), "");
        report->steps[kTables] = kTableSteps;
        return report->steps;
    }

    /** A victim dies and a successor comes up. What failed, empty when nothing did. */
    std::string try_seed(std::uint32_t seed, const StepCounts& steps) {
        std::mt19937_64 random(seed);
        const Death death = choose_death(random, steps);
        kova::sim::InProcessCard fresh(kIndexOfCard);
        sdk().stop();
        if (random() % 2 == 0) {
            leave_remains(fresh);
        }
        const int status = run_victim(fresh, death);
        const std::string where =
            "killed before step " + std::to_string(death.step) + " of " + kStageNames[death.stage] + ": ";
        if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
            return where + "not killed, status " + std::to_string(status) + ", " + report->failure.data();
        }
        const bool was_locked = report->was_locked;
        killed_in_lock += was_locked ? 1 : 0;
        ++killed_in[death.stage];
        const int result = run_successor(fresh);
        if (result != 0) {
            return where + "status " + std::to_string(result) + ", " + report->failure.data();
        }
        const auto& lock = fresh->memory().lock;
        const std::uint64_t recoveries = lock.recoveries.load();
        if (recoveries != (was_locked ? 1U : 0U)) {
            return where + "the lock was recovered " + std::to_string(recoveries) + " times";
        }
        return lock.unprotected.load() == 0 ? "" : where + "accesses without the lock";
    }

    SharedReport report;
    kova::test::ClockedDay day;
    std::uint32_t killed_in_lock = 0;
    std::array<std::uint32_t, kStageCount> killed_in{};

 private:
    // The fixture's own card has index 0.
    static constexpr std::uint32_t kIndexOfCard = 1;

    // Each stage is as likely as any other, and so is each step of it, but for the tables: most of their steps
    // clear rows that nobody uses.
    static Death choose_death(std::mt19937_64& random, const StepCounts& steps) {
        constexpr std::uint64_t kStepsOfFewRows = 6 * 64 * 6;
        const auto stage = static_cast<Stage>(random() % kStageCount);
        const bool is_among_few = stage == kTables && random() % 4 != 0;
        return {.stage = stage, .step = 1 + random() % (is_among_few ? kStepsOfFewRows : steps[stage])};
    }

    /** A card that ran another day's listing. */
    static void leave_remains(kova::sim::InProcessCard& card) {
        std::memset(static_cast<void*>(&card->memory().tables), 0xA5, sizeof card->memory().tables);
        for (const std::uint32_t core : {0x11120U, 0x21120U}) {
            kova::sim::preset_register(card->memory().registers, core, 1);
        }
        for (const std::uint32_t count : {0x1F14U, 0x1F15U}) {
            kova::sim::preset_register(card->memory().registers, count, 4000);
        }
    }

    int run_victim(kova::sim::InProcessCard& fresh, const Death& death) {
        return run_apart([&] {
            const char* const path = config_of(kConfigOfVictim, "victim.ini");
            ForkedExchange exchange(fresh->memory(), snapshot_of_victim());
            TableShortcut::allow(death.stage == kTables ? nullptr : &fresh->memory());
            Progress progress;
            const auto step = [&] {
                if (++report->steps[progress.stage()] == death.step && progress.stage() == death.stage) {
                    report->was_locked = progress.is_locked();
                    ::kill(::getpid(), SIGKILL);
                }
            };
            RegisterTraffic::before_each([&](bool is_write, std::uint32_t number) {
                progress.access(is_write, number);
                step();
            });
            Steps::before_each([&](Step kind) {
                progress.step(kind);
                step();
            });
            Polls::before_each([&](std::uint64_t) {
                progress.poll();
                step();
                exchange.forward_next();
            });
            expect(engine->KovaStart(spi, path) == 0, "the victim's start failed; ");
        });
    }

    int run_successor(kova::sim::InProcessCard& fresh) {
        return run_apart([&] {
            const char* const path = config_of(kSmallConfig, "successor.ini");
            kova::sim::CardMemory& memory = fresh->memory();
            ForkedExchange exchange(memory, SnapshotFrames().frames());
            TableShortcut::allow(&memory);
            Polls::before_each([&](std::uint64_t) { exchange.forward_next(); });
            expect(engine->KovaStart(spi, path) == 0, "the start failed; ");
            expect(EngineAccess::init_count(*engine) == 0, "attempts failed; ");
            expect(EngineAccess::is_all_init_finished(*engine), "it is not brought up; ");
            tell(wrong_rows_of_small_listing(memory));
            for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
                expect(kova::sim::is_core_started(memory.registers, feed), "a core stands; ");
                expect(!kova::sim::is_table_open(memory, feed), "a table is open; ");
            }
            expect(!kova::sim::is_forwarding(memory.registers), "it still forwards; ");
            expect(memory.registers.written[0x1001] == kCrcOfSuccessor, "another checksum; ");
            expect(text_of(day.morning_file()) == kSmallInstrumentFile, "another instrument file; ");
            for (std::uint32_t number = 1; number <= 3; ++number) {
                exchange.quote(number);
                expect(engine->KovaRecv() == 1, "no quote; ");
            }
            expect(spi.change_numbers == std::vector<std::uint32_t>{1, 2, 3}, "other quotes; ");
            expect(engine->KovaRecv() == 0, "more than the quotes; ");
        });
    }

    /** Runs body in a process of its own and waits for its end; 0 when nothing failed in it. */
    int run_apart(const std::function<void()>& body) {
        report.clear();
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(kLongestSeconds);
            static_cast<void>(std::freopen("/dev/null", "w", stdout));
            Clock::move_per_poll(std::chrono::seconds(1));
            body();
            std::_Exit(report->failure[0] == '\0' ? 0 : 1);
        }
        int status = -1;
        return child > 0 && ::waitpid(child, &status, 0) == child ? status : -1;
    }

    static const char* config_of(std::string_view lines, const char* path) {
        std::ofstream(path) << "[config]\ndevice = xilinx" << kIndexOfCard << ":0\n" << lines << "\n";
        return path;
    }

    // Into memory that outlives the process.
    void tell(const std::string& failure) {
        std::strncat(report->failure.data(), failure.c_str(),
                     report->failure.size() - 1 - std::strlen(report->failure.data()));
    }
    void expect(bool holds, const char* otherwise) {
        if (!holds) {
            tell(otherwise);
        }
    }

    // CRC-32C of the successor's file, begun with 0 and not inverted.
    static constexpr std::uint32_t kCrcOfSuccessor = 0xD04A3C50;
};

TEST_P(KilledBringUpTest, TheNextStartSucceeds) {
    const char* const wanted = std::getenv("KOVA_KILL_SEED");
    const std::uint32_t per_part = kSeeds / kParts;
    std::uint32_t seed = GetParam() * per_part;
    std::uint32_t end = seed + per_part;
    if (wanted != nullptr) {
        seed = static_cast<std::uint32_t>(std::strtoul(wanted, nullptr, 10));
        end = seed / per_part == GetParam() ? seed + 1 : seed;
    }
    if (seed == end) {
        GTEST_SKIP() << "the seed belongs to another part";
    }
    const StepCounts steps = count_steps();
    ASSERT_FALSE(HasFailure());
    for (std::size_t stage = 0; stage < kStageCount; ++stage) {
        ASSERT_GT(steps[stage], 0U) << kStageNames[stage];
    }
    for (; seed < end; ++seed) {
        const std::string failure = try_seed(seed, steps);
        ASSERT_EQ(failure, "") << "KOVA_KILL_SEED=" << seed;
    }
    for (std::size_t stage = 0; wanted == nullptr && stage < kStageCount; ++stage) {
        RecordProperty(std::string("killed in ") + kStageNames[stage], static_cast<int>(killed_in[stage]));
    }
    RecordProperty("killed with the lock held", static_cast<int>(killed_in_lock));
}

INSTANTIATE_TEST_SUITE_P(Quarter, KilledBringUpTest, ::testing::Range(0U, kParts));

}  // namespace
