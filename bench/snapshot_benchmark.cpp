/**
 * What the way of the snapshot costs, from DMA messages in memory to the rows of the instruments: beside one
 * memcpy of the same bytes, and beside the same way as one writes it down first. Then its checksum beside the
 * plain loop, and a call of a stopped receiver, which throws a snapshot away.
 *
 * White-box: the library's object files, called through the handler that the card's polls call.
 */

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/goals.h"
#include "bench/naive_snapshot.h"
#include "bench/plain_check_sum.h"
#include "bench/repeats.h"
#include "bench/snapshot_stream.h"
#include "bench/statistics.h"
#include "bench/stopwatch.h"
#include "sim/card/in_process_card.h"
#include "snapshot/TcpCheckSum.h"
#include "support/engine_access.h"
#include "support/mdqp_message.h"
#include "support/snapshot_frame.h"

namespace kova::bench {
namespace {

constexpr std::size_t kDefaultRepeats = 31;
constexpr std::int32_t kInstruments = 16384;
constexpr std::int64_t kSnapshotSections = 3;

constexpr std::size_t kShortBuffer = 1460;
constexpr std::size_t kLongBuffer = 65536;
constexpr std::int64_t kCheckSumSections = 15;
constexpr std::size_t kCheckSumBytes = 1 << 20;  // of a section

constexpr std::int64_t kStoppedSections = 3;
constexpr std::size_t kStoppedCalls = 1000;  // of a section of the steady state

void require(bool is_so, const char* otherwise) {
    if (!is_so) {
        throw std::runtime_error(otherwise);
    }
}

// What lies in the caches when a section begins.
enum class Caches {
    kWarm,  // the messages, as a card's DMA leaves them, and what is written: as far as the last level holds
            // them
    kCold,  // neither of them
};

void flush(const void* memory, std::size_t size) {
    const auto* bytes = static_cast<const char*>(memory);
    for (std::size_t i = 0; i < size; i += 64) {
        _mm_clflush(bytes + i);
    }
    _mm_mfence();
}

// Reads every line of the memory.
void touch(const void* memory, std::size_t size) {
    const auto* bytes = static_cast<const volatile char*>(memory);
    for (std::size_t i = 0; i < size; i += 64) {
        static_cast<void>(bytes[i]);
    }
}

class SnapshotKinds {
 public:
    SnapshotKinds() {
        sim::SdkCalls::of_this_process().stop();
        CCommonLog::GetInstance()->SetLogLevel(static_cast<ELOGLEVEL>(0));
        require(EngineAccess::registers(*engine_).Init(0, REGISTER_CORE_ID) == 0, "no registers");
        U50ConfigInfo& config = EngineAccess::config(*engine_);
        // The second feed never comes, so the snapshot of the first one is never written to the card.
        config.enabled_mask.enabled_mask = 0x03;
        config.topicID = {.shfe2ps_topic_id = kSnapshotTopic,
                          .shfe4ps_topic_id = 1101,
                          .ine2ps_topic_id = 5000,
                          .ine4ps_topic_id = 5101};
        config.snapTcpPort = {.shfe2ps_snap_port = kSnapshotPort,
                              .shfe4ps_snap_port = 22000,
                              .ine2ps_snap_port = kSnapshotPort,
                              .ine4ps_snap_port = 22000};
        // What stands there before the first snapshot are pages that were never touched.
        EngineAccess::mark_snapshot_dirty(*engine_);
        EngineAccess::clean_data(*engine_);
    }

    [[nodiscard]] const SnapshotStream& stream() const { return stream_; }

    // Both ways fill the same rows, all of them.
    void check() {
        run_engine();
        for (const CheckSum check_sum : {&plain_check_sum, &vectorised_check_sum}) {
            NaiveSnapshot naive(check_sum);
            run_naive(naive);
            require(naive.is_finished() && naive.count() == kInstruments, "the naive way lost something");
            require(std::memcmp(&rows(), naive.rows().data(), sizeof(InstShfeTable)) == 0,
                    "the two ways fill different rows");
        }
        require(EngineAccess::finished_mask(*engine_).enabled_mask == 0x01 &&
                    EngineAccess::inst_count(*engine_).shfe_inst_cnt_2ps == kInstruments,
                "the engine lost something");
        EngineAccess::clean_data(*engine_);
    }

    double time_engine(Caches caches) {
        EngineAccess::clean_data(*engine_);
        prepare(caches, &rows(), sizeof(InstShfeTable));
        const double time = cpu_nanoseconds_of([this] { run_engine(); });
        require(EngineAccess::finished_mask(*engine_).enabled_mask == 0x01, "the snapshot did not end");
        return time;
    }

    double time_memcpy(Caches caches) {
        std::memset(copy_.data(), 0, copy_.size());
        prepare(caches, copy_.data(), copy_.size());
        return cpu_nanoseconds_of([this] {
            std::memcpy(copy_.data(), stream_.memory.data(), stream_.memory.size());
            benchmark::ClobberMemory();
        });
    }

    double time_naive(NaiveSnapshot& naive, Caches caches) {
        naive.reset();
        prepare(caches, naive.rows().data(), naive.rows().size() * sizeof(SInstTableType));
        const double time = cpu_nanoseconds_of([&] { run_naive(naive); });
        require(naive.is_finished(), "the snapshot did not end");
        return time;
    }

    // After the snapshot of one feed, or when all four tables are full.
    double time_first_stopped_call(bool is_all) {
        EngineAccess::clean_data(*engine_);
        run_engine();
        if (is_all) {
            fill_other_tables();
        }
        EngineAccess::is_stop_flag(*engine_) = true;
        int result = 0;
        const double time = cpu_nanoseconds_of([&] { result = engine_->KovaRecv(); });
        require(result == -1 && EngineAccess::inst_count(*engine_).shfe_inst_cnt_2ps == 0 &&
                    rows().rows[kInstruments - 1].price_tick == 0,
                "the stopped call left something of the snapshot");
        return time;
    }

    double time_stopped_call() {
        EngineAccess::is_stop_flag(*engine_) = true;
        static_cast<void>(engine_->KovaRecv());
        std::int64_t result = 0;
        const double time = nanoseconds_of([&] {
            for (std::size_t i = 0; i < kStoppedCalls; ++i) {
                result += engine_->KovaRecv();
            }
        });
        require(result == -static_cast<std::int64_t>(kStoppedCalls), "the receiver was not stopped");
        return time / static_cast<double>(kStoppedCalls);
    }

 private:
    [[nodiscard]] const InstShfeTable& rows() const {
        return EngineAccess::peek_inst_table(*engine_).shfe2psInstTable;
    }

    void prepare(Caches caches, const void* target, std::size_t size) const {
        if (caches == Caches::kCold) {
            flush(stream_.memory.data(), stream_.memory.size());
            flush(target, size);
        } else {
            touch(target, size);
            touch(stream_.memory.data(), stream_.memory.size());
        }
    }

    void run_engine() {
        for (const SnapshotStream::Message& message : stream_.messages) {
            EngineAccess::tcp_handler(stream_.begin(message), message.size, engine_.get());
        }
    }
    // As far as the engine is concerned: their last rows, and the connection of the other port.
    void fill_other_tables() {
        U50DstPort& ports = EngineAccess::dst_port(*engine_);
        ports = {.port_shfe_2ps = 1, .port_shfe_4ps = 2, .port_ine_2ps = 3, .port_ine_4ps = 4};
        for (std::uint16_t port = 2; port <= 4; ++port) {
            const std::int32_t last = port == 2 ? 16383 : 4095;
            const test::Bytes message =
                test::MdqpMessage(0x11).price_detail({.inst_no = last, .price = 1, .volume = 1}).tail().bytes();
            EngineAccess::parse_mdqp(*engine_, reinterpret_cast<const mdqp_t*>(message.data()), port);
        }
        const test::ByteString segment =
            test::dma_tcp_message(test::Segment{.payload = {0}, .dst_port = 22000});
        EngineAccess::tcp_handler(segment.data(), static_cast<unsigned>(segment.size()), engine_.get());
        require(EngineAccess::peek_inst_table(*engine_).ine4psInstTable.rows[4095].bid1_vol == 1,
                "the other tables are empty");
    }
    void run_naive(NaiveSnapshot& naive) const {
        for (const SnapshotStream::Message& message : stream_.messages) {
            naive.take(stream_.begin(message), message.size);
        }
    }

    sim::InProcessCard card_;
    std::unique_ptr<CKovaShfeMdApiImpl> engine_ = EngineAccess::create();
    SnapshotStream stream_ = make_snapshot_stream(kInstruments);
    std::vector<std::uint8_t> copy_ = std::vector<std::uint8_t>(stream_.memory.size());
};

std::vector<std::uint8_t> check_sum_buffer(std::size_t size) {
    std::vector<std::uint8_t> buffer(size);
    std::uint32_t state = 1;
    for (std::uint8_t& byte : buffer) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return buffer;
}

std::uint16_t library_check_sum(const void* buffer, std::size_t size) noexcept {
    return TcpCheckSum(buffer, static_cast<int>(size));
}

// Nanoseconds of one checksum.
double time_check_sum(const std::vector<std::uint8_t>& buffer, CheckSum check_sum) {
    const std::size_t calls = kCheckSumBytes / buffer.size();
    const double time = nanoseconds_of([&] {
        for (std::size_t i = 0; i < calls; ++i) {
            const void* bytes = buffer.data();
            benchmark::DoNotOptimize(bytes);
            std::uint16_t sum = check_sum(bytes, buffer.size());
            benchmark::DoNotOptimize(sum);
        }
    });
    return time / static_cast<double>(calls);
}

struct CheckSumKind {
    const char* name;
    std::size_t size;
    CheckSum check_sum;
};

constexpr std::array kCheckSumKinds = {
    CheckSumKind{"TcpCheckSum, 1460 bytes", kShortBuffer, library_check_sum},
    CheckSumKind{"plain loop, 1460 bytes", kShortBuffer, plain_check_sum},
    CheckSumKind{"vectorised loop, 1460 bytes", kShortBuffer, vectorised_check_sum},
    CheckSumKind{"TcpCheckSum, 64 KiB", kLongBuffer, library_check_sum},
    CheckSumKind{"plain loop, 64 KiB", kLongBuffer, plain_check_sum},
    CheckSumKind{"vectorised loop, 64 KiB", kLongBuffer, vectorised_check_sum},
};

constexpr const char* kFirstStopped = "stopped call, a full feed there";
constexpr const char* kAllStopped = "stopped call, four full tables there";
constexpr const char* kStopped = "stopped call, nothing there";

constexpr std::array kComparisons = {
    RatioGoal{"handler", "memcpy", RatioGoal::kAtMost, 4.0},
    RatioGoal{"handler", "naive", RatioGoal::kAtMost, 0.5},
    RatioGoal{"handler", "naive, vectorised checksum"},
    RatioGoal{"handler, cold", "memcpy, cold", RatioGoal::kAtMost, 4.0},
    RatioGoal{"handler, cold", "naive, cold", RatioGoal::kAtMost, 0.5},
    RatioGoal{"plain loop, 1460 bytes", "TcpCheckSum, 1460 bytes", RatioGoal::kAtLeast, 4.0},
    RatioGoal{"plain loop, 64 KiB", "TcpCheckSum, 64 KiB", RatioGoal::kAtLeast, 4.0},
    RatioGoal{"vectorised loop, 1460 bytes", "TcpCheckSum, 1460 bytes"},
    RatioGoal{"vectorised loop, 64 KiB", "TcpCheckSum, 64 KiB"},
};

std::vector<Kind> snapshot_kinds(SnapshotKinds& snapshot, NaiveSnapshot& naive, NaiveSnapshot& vectorised) {
    using enum Caches;
    const std::int64_t n = kSnapshotSections;
    return {
        {"handler", n, every_run([&] { return snapshot.time_engine(kWarm); })},
        {"memcpy", n, every_run([&] { return snapshot.time_memcpy(kWarm); })},
        {"naive", n, every_run([&] { return snapshot.time_naive(naive, kWarm); })},
        {"naive, vectorised checksum", n, every_run([&] { return snapshot.time_naive(vectorised, kWarm); })},
        {"handler, cold", n, every_run([&] { return snapshot.time_engine(kCold); })},
        {"memcpy, cold", n, every_run([&] { return snapshot.time_memcpy(kCold); })},
        {"naive, cold", n, every_run([&] { return snapshot.time_naive(naive, kCold); })},
        {kFirstStopped, kStoppedSections, every_run([&] { return snapshot.time_first_stopped_call(false); })},
        {kAllStopped, kStoppedSections, every_run([&] { return snapshot.time_first_stopped_call(true); })},
        {kStopped, kStoppedSections, every_run([&] { return snapshot.time_stopped_call(); })},
    };
}

void add_check_sum_kinds(std::vector<Kind>& kinds) {
    for (const CheckSumKind& kind : kCheckSumKinds) {
        kinds.push_back({kind.name, kCheckSumSections,
                         every_run([buffer = check_sum_buffer(kind.size), check_sum = kind.check_sum] {
                             return time_check_sum(buffer, check_sum);
                         })});
    }
}

void check_check_sums() {
    for (const std::size_t size : {kShortBuffer, kShortBuffer + 1, kLongBuffer}) {
        const std::vector<std::uint8_t> buffer = check_sum_buffer(size);
        const std::uint16_t expected = plain_check_sum(buffer.data(), size);
        require(library_check_sum(buffer.data(), size) == expected &&
                    vectorised_check_sum(buffer.data(), size) == expected,
                "the checksums differ");
    }
}

void print_check_sums(const Costs& costs) {
    for (const CheckSumKind& kind : kCheckSumKinds) {
        std::vector<double> speeds;
        for (const double nanoseconds : costs.of(kind.name)) {
            speeds.push_back(static_cast<double>(kind.size) / nanoseconds);
        }
        print_row(kind.name, speeds, 1, "GB/s");
    }
}

Goals print_report(std::span<const Kind> kinds, const SnapshotStream& stream, const Costs& costs,
                   std::size_t repeats) {
    std::printf(
        "%d instruments, %zu bytes of messages in %zu segments; median of %zu repeats [lowest highest]\n\n",
        kInstruments, stream.payload_bytes, stream.messages.size(), repeats);
    for (const Kind& kind : kinds.first(kinds.size() - kCheckSumKinds.size())) {
        print_row(kind.name, costs.of(kind.name), 1e3, "us");
    }
    print_check_sums(costs);
    std::printf("\nratios within a repeat\n\n");
    Goals goals;
    judge(kComparisons, costs, goals);
    for (const char* kind : {kFirstStopped, kAllStopped, kStopped}) {
        goals.at_most(kind, median(costs.of(kind)) / 1e3, 1000, "us");
    }
    std::printf("\n");
    goals.print(stdout);
    return goals;
}

int run_all(const RepeatOptions& options) {
    check_check_sums();
    SnapshotKinds snapshot;
    snapshot.check();
    NaiveSnapshot naive(plain_check_sum);
    NaiveSnapshot vectorised(vectorised_check_sum);
    std::vector<Kind> kinds = snapshot_kinds(snapshot, naive, vectorised);
    add_check_sum_kinds(kinds);
    const std::optional<Costs> costs = measure(kinds, options);
    if (!costs) {
        return 0;
    }
    const Goals goals = print_report(kinds, snapshot.stream(), *costs, options.repeats);
    return options.is_checked && !goals.are_reached() ? 1 : 0;
}

}  // namespace
}  // namespace kova::bench

int main(int argc, char** argv) {
    return kova::bench::run_benchmark(argc, argv, kova::bench::kDefaultRepeats, kova::bench::run_all);
}
