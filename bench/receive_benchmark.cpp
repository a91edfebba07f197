/**
 * What a receive call of the shipped library costs on top of the bare poll that it cannot do without: both
 * modes against a loop of the SDK's poll with a trivial handler, and a call that finds nothing against such a
 * poll. Beside them a hand-made chain of the same calls and nothing else, to tell what calls cost on this
 * machine.
 *
 * Everything runs in one thread of one process, on a private card. Quotes are pushed in batches between the
 * timed sections and are still in the second-level cache when they are received. Each repeat measures every
 * kind once; from one repeat to the next, the order of the kinds and the channels of library and bare loop are
 * swapped.
 */

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "KovaShfeMdApi.h"
#include "bench/goals.h"
#include "bench/hand_made_chain.h"
#include "bench/sample_message.h"
#include "bench/sdk_stream.h"
#include "bench/silenced_output.h"
#include "bench/statistics.h"
#include "bench/tsc_clock.h"
#include "sim/card/card.h"

namespace kova::bench {
namespace {

constexpr std::uint32_t kCard = 0;
constexpr std::array<std::uint32_t, 2> kChannels = {1, 2};
constexpr std::uint32_t kRingSlotsLog2 = 9;  // 96 KiB
constexpr std::size_t kBatch = 400;          // quotes, or empty calls, of a timed section
constexpr std::int64_t kSections = 2'000;
constexpr std::size_t kDefaultRepeats = 21;

// Counter in which a run hands over the median of its sections.
constexpr const char* kPerCall = "ns_per_call";

// The kinds of receiver: each takes one message a call, if there is one, and adds its change number to a sum.

class BarePoll {
 public:
    BarePoll(std::uint32_t channel, const std::string& /*folder*/) : stream_(kCard, channel) {}
    int receive() { return enyx_hw_a2c_stream_poll_once(stream_.get(), take, &sum_); }
    [[nodiscard]] std::uint64_t sum() const { return sum_; }

 private:
    static void take(const std::uint8_t* message, std::uint32_t /*size*/, void* sum) {
        std::uint32_t change_no = 0;
        std::memcpy(&change_no,
                    message + offsetof(U50QuoteMessage, quote) + offsetof(KovaShfeMdType, change_no),
                    sizeof change_no);
        *static_cast<std::uint64_t*>(sum) += change_no;
    }

    SdkStream stream_;
    std::uint64_t sum_ = 0;
};

// A hand-made chain that hands each quote to a callback.
class ChainCallback final : public CKovaShfeMdSpi {
 public:
    ChainCallback(std::uint32_t channel, const std::string& /*folder*/) : stream_(kCard, channel) {}
    int receive() { return chain_->receive(); }
    [[nodiscard]] std::uint64_t sum() const { return sum_; }

    std::int32_t OnKovaShfeMd(const KovaShfeMdType* quote) override {
        sum_ += quote->change_no;
        return 0;
    }

 private:
    std::uint64_t sum_ = 0;
    SdkStream stream_;
    std::unique_ptr<HandMadeChain> chain_ = HandMadeChain::make(stream_.get(), *this);
};

// A hand-made chain that copies each quote.
class ChainFetch final : public CKovaShfeMdSpi {
 public:
    ChainFetch(std::uint32_t channel, const std::string& /*folder*/) : stream_(kCard, channel) {}
    int receive() {
        const int result = chain_->receive(quote_);
        sum_ += quote_.change_no;
        return result;
    }
    [[nodiscard]] std::uint64_t sum() const { return sum_; }

    std::int32_t OnKovaShfeMd(const KovaShfeMdType* /*quote*/) override { return 0; }

 private:
    alignas(64) KovaShfeMdType quote_{};
    std::uint64_t sum_ = 0;
    SdkStream stream_;
    std::unique_ptr<HandMadeChain> chain_ = HandMadeChain::make(stream_.get(), *this);
};

struct DestroyApi {
    void operator()(CKovaShfeMdApi* api) const { CKovaShfeMdApi::DestroyKovaShfeMdApi(*api); }
};
using Api = std::unique_ptr<CKovaShfeMdApi, DestroyApi>;

template <typename Start>
Api start_api(std::uint32_t channel, const std::string& folder, Start&& start) {
    const std::string config = write_library_config(folder, kCard, channel);
    const SilencedOutput silenced;
    Api api(CKovaShfeMdApi::CreateKovaShfeMdApi());
    if (api == nullptr || start(*api, config.c_str()) != 0) {
        throw std::runtime_error("the library does not start");
    }
    return api;
}

class CallbackMode final : public CKovaShfeMdSpi {
 public:
    CallbackMode(std::uint32_t channel, const std::string& folder)
        : api_(start_api(channel, folder, [this](CKovaShfeMdApi& api, const char* config) {
              return api.KovaStart(*this, config);
          })) {}
    int receive() { return api_->KovaRecv(); }
    [[nodiscard]] std::uint64_t sum() const { return sum_; }

    std::int32_t OnKovaShfeMd(const KovaShfeMdType* quote) override {
        sum_ += quote->change_no;
        return 0;
    }

 private:
    std::uint64_t sum_ = 0;
    Api api_;
};

class FetchMode {
 public:
    FetchMode(std::uint32_t channel, const std::string& folder)
        : api_(start_api(channel, folder,
                         [](CKovaShfeMdApi& api, const char* config) { return api.KovaStart(config); })) {}
    int receive() {
        const int result = api_->KovaRecv(quote_);
        sum_ += quote_.change_no;
        return result;
    }
    [[nodiscard]] std::uint64_t sum() const { return sum_; }

 private:
    alignas(64) KovaShfeMdType quote_{};
    std::uint64_t sum_ = 0;
    Api api_;
};

void push_batch(sim::Card& card, std::uint32_t channel) {
    KovaShfeMdType quote = sample_message().quote;
    for (std::size_t i = 0; i < kBatch; ++i) {
        quote.change_no = static_cast<std::uint32_t>(i);
        card.push_quote(channel, quote);
    }
}

// Ticks of one timed section. `kBatch` calls; `taken` counts those that took a message.
template <typename Receiver>
std::uint64_t time_section(Receiver& receiver, int& taken) {
    _mm_lfence();
    const std::uint64_t begin = ticks();
    _mm_lfence();
    for (std::size_t i = 0; i < kBatch; ++i) {
        taken += receiver.receive();
    }
    const std::uint64_t end = ticks_behind();
    _mm_lfence();
    return end - begin;
}

struct Setting {
    sim::Card* card;
    const std::string* folder;
    std::uint32_t channel;
    bool has_quotes;
};

template <typename Receiver>
void measure(benchmark::State& state, const Setting& setting) {
    Receiver receiver(setting.channel, *setting.folder);
    const int expected = setting.has_quotes ? static_cast<int>(kBatch) : 0;
    std::vector<double> sections;
    sections.reserve(kSections);
    for ([[maybe_unused]] auto section : state) {
        if (setting.has_quotes) {
            push_batch(*setting.card, setting.channel);
        }
        int taken = 0;
        const double nanoseconds = static_cast<double>(time_section(receiver, taken)) * ns_per_tick();
        if (taken != expected) {
            state.SkipWithError("a quote was missed");
            break;
        }
        state.SetIterationTime(nanoseconds * 1e-9);
        sections.push_back(nanoseconds / static_cast<double>(kBatch));
    }
    benchmark::DoNotOptimize(receiver.sum());
    // Of the sections the median: an interruption hits one of them, not all.
    state.counters[kPerCall] = sections.empty() ? 0 : median(sections);
}

using Measurement = void (*)(benchmark::State&, const Setting&);

struct Kind {
    const char* name;
    Measurement measurement;
    bool is_library;
    bool has_quotes;
};

constexpr std::array kKinds = {
    Kind{"bare poll", measure<BarePoll>, false, true},
    Kind{"hand-made callback", measure<ChainCallback>, false, true},
    Kind{"hand-made fetch", measure<ChainFetch>, false, true},
    Kind{"callback", measure<CallbackMode>, true, true},
    Kind{"fetch", measure<FetchMode>, true, true},
    Kind{"empty bare poll", measure<BarePoll>, false, false},
    Kind{"empty hand-made", measure<ChainCallback>, false, false},
    Kind{"empty callback", measure<CallbackMode>, true, false},
    Kind{"empty fetch", measure<FetchMode>, true, false},
};

void register_repeat(std::size_t repeat, sim::Card& card, const std::string& folder) {
    for (std::size_t i = 0; i < kKinds.size(); ++i) {
        const bool is_swapped = repeat % 2 == 1;
        const Kind& kind = kKinds[is_swapped ? kKinds.size() - 1 - i : i];
        const Setting setting{.card = &card,
                              .folder = &folder,
                              .channel = kChannels[kind.is_library == is_swapped ? 0 : 1],
                              .has_quotes = kind.has_quotes};
        benchmark::RegisterBenchmark(kind.name, [setting, measurement = kind.measurement](
                                                    benchmark::State& state) { measurement(state, setting); })
            ->Iterations(kSections)
            ->UseManualTime();
    }
}

// Keeps what each kind cost in each repeat, and shows the runs as they are made unless only a summary is
// wanted.
class Collector final : public benchmark::ConsoleReporter {
 public:
    explicit Collector(bool is_quiet) : ConsoleReporter(OO_Tabular), is_quiet_(is_quiet) {}

    bool ReportContext(const Context& context) override {
        return is_quiet_ || ConsoleReporter::ReportContext(context);
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto found = run.counters.find(kPerCall);
            if (run.error_occurred || found == run.counters.end()) {
                failed_ = true;
                std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
            } else {
                costs_[run.run_name.function_name].push_back(found->second.value);
            }
        }
        if (!is_quiet_) {
            ConsoleReporter::ReportRuns(runs);
        }
    }

    [[nodiscard]] bool failed() const { return failed_; }
    // Not so when a filter has left kinds out.
    [[nodiscard]] bool has_every_kind() const { return costs_.size() == kKinds.size(); }
    [[nodiscard]] const std::vector<double>& costs(const std::string& kind) const { return costs_.at(kind); }

 private:
    bool is_quiet_;
    std::map<std::string, std::vector<double>> costs_;
    bool failed_ = false;
};

std::vector<double> differences(const std::vector<double>& costs, const std::vector<double>& floor) {
    std::vector<double> result;
    for (std::size_t i = 0; i < costs.size(); ++i) {
        result.push_back(costs[i] - floor[i]);
    }
    return result;
}

void print_row(const char* name, const std::vector<double>& values) {
    const Spread shown = spread(values);
    std::printf("%-34s %6.2f [%.2f %.2f]\n", name, shown.median, shown.lowest, shown.highest);
}

struct Comparison {
    const char* kind;
    const char* floor;
    std::optional<double> limit_ns = std::nullopt;  // none: to read the others by
};

constexpr std::array kComparisons = {
    Comparison{"callback", "bare poll", 2.0},
    Comparison{"fetch", "bare poll", 2.5},
    Comparison{"empty callback", "empty bare poll", 1.2},
    Comparison{"empty fetch", "empty bare poll", 1.2},
    Comparison{"hand-made callback", "bare poll"},
    Comparison{"hand-made fetch", "bare poll"},
    Comparison{"empty hand-made", "empty bare poll"},
};

Goals print_report(const Collector& collected, std::size_t repeats) {
    std::printf("ns per call, median of %zu repeats [lowest highest]\n\n", repeats);
    for (const Kind& kind : kKinds) {
        print_row(kind.name, collected.costs(kind.name));
    }
    std::printf("\ndifferences within a repeat\n\n");
    Goals goals;
    for (const Comparison& comparison : kComparisons) {
        const std::string name = std::string(comparison.kind) + " - " + comparison.floor;
        const std::vector<double> extra =
            differences(collected.costs(comparison.kind), collected.costs(comparison.floor));
        print_row(name.c_str(), extra);
        if (comparison.limit_ns) {
            goals.at_most(name, median(extra), *comparison.limit_ns, "ns");
        }
    }
    std::printf("\n");
    goals.print(stdout);
    return goals;
}

// What this program takes beside the options of Google Benchmark.
struct Options {
    std::size_t repeats = kDefaultRepeats;
    bool is_checked = false;  // fail when a goal is missed
    bool is_quiet = false;    // the summary only
};

// Takes one of our options; false when it is none.
bool take_option(std::string_view argument, Options& options) {
    constexpr std::string_view kRepeats = "--repeats=";
    if (argument.starts_with(kRepeats)) {
        options.repeats = std::stoul(std::string(argument.substr(kRepeats.size())));
    } else if (argument == "--check") {
        options.is_checked = true;
    } else if (argument == "--summary") {
        options.is_quiet = true;
    } else {
        return false;
    }
    return true;
}

// Takes our options out of the arguments and leaves the others to Google Benchmark.
Options take_options(int& argc, char** argv) {
    Options options;
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (!take_option(argv[i], options)) {
            argv[kept++] = argv[i];
        }
    }
    argc = kept;
    return options;
}

int run_all(const Options& options) {
    const TemporaryFolder folder;
    sim::Card card = sim::Card::power_on_privately(kCard, {.slots_log2 = kRingSlotsLog2});
    for (std::size_t repeat = 0; repeat < options.repeats; ++repeat) {
        register_repeat(repeat, card, folder.path());
    }
    Collector collected(options.is_quiet);
    benchmark::RunSpecifiedBenchmarks(&collected);
    if (collected.failed()) {
        return 2;
    }
    if (!collected.has_every_kind()) {
        return 0;
    }
    const Goals goals = print_report(collected, options.repeats);
    return options.is_checked && !goals.are_reached() ? 1 : 0;
}

}  // namespace
}  // namespace kova::bench

int main(int argc, char** argv) {
    try {
        const kova::bench::Options options = kova::bench::take_options(argc, argv);
        benchmark::Initialize(&argc, argv);
        return benchmark::ReportUnrecognizedArguments(argc, argv) ? 2 : kova::bench::run_all(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "receive_benchmark: %s\n", error.what());
        return 2;
    }
}
