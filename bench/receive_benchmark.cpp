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
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "KovaShfeMdApi.h"
#include "bench/goals.h"
#include "bench/hand_made_chain.h"
#include "bench/repeats.h"
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

// What a run needs beside its receiver.
struct Setting {
    sim::Card* card;
    std::uint32_t channel;
    bool has_quotes;
};

template <typename Receiver>
double time_batch(Receiver& receiver, const Setting& setting) {
    if (setting.has_quotes) {
        push_batch(*setting.card, setting.channel);
    }
    int taken = 0;
    const double nanoseconds = static_cast<double>(time_section(receiver, taken)) * ns_per_tick();
    if (taken != (setting.has_quotes ? static_cast<int>(kBatch) : 0)) {
        throw std::runtime_error("a quote was missed");
    }
    benchmark::DoNotOptimize(receiver.sum());
    return nanoseconds;
}

enum class Side : std::uint8_t { kFloor, kLibrary };

// Library and floor change their channels from one repeat to the next: none of them keeps the better ring.
std::uint32_t channel_of(Side side, std::size_t repeat) {
    return kChannels[(side == Side::kLibrary) == (repeat % 2 == 1) ? 0 : 1];
}

template <typename Receiver>
Kind kind(const char* name, Side side, bool has_quotes, sim::Card& card, const std::string& folder) {
    return {name, kSections, [side, has_quotes, &card, &folder](std::size_t repeat) -> TimeSection {
                const Setting setting{
                    .card = &card, .channel = channel_of(side, repeat), .has_quotes = has_quotes};
                return [setting, receiver = std::make_shared<Receiver>(setting.channel, folder)] {
                    return time_batch(*receiver, setting);
                };
            }};
}

std::vector<Kind> make_kinds(sim::Card& card, const std::string& folder) {
    using enum Side;
    return {
        kind<BarePoll>("bare poll", kFloor, true, card, folder),
        kind<ChainCallback>("hand-made callback", kFloor, true, card, folder),
        kind<ChainFetch>("hand-made fetch", kFloor, true, card, folder),
        kind<CallbackMode>("callback", kLibrary, true, card, folder),
        kind<FetchMode>("fetch", kLibrary, true, card, folder),
        kind<BarePoll>("empty bare poll", kFloor, false, card, folder),
        kind<ChainCallback>("empty hand-made", kFloor, false, card, folder),
        kind<CallbackMode>("empty callback", kLibrary, false, card, folder),
        kind<FetchMode>("empty fetch", kLibrary, false, card, folder),
    };
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

Goals print_report(std::span<const Kind> kinds, const Costs& costs, std::size_t repeats) {
    constexpr auto kCalls = static_cast<double>(kBatch);
    std::printf("per call, median of %zu repeats [lowest highest]\n\n", repeats);
    for (const Kind& kind : kinds) {
        print_row(kind.name, costs.of(kind.name), kCalls, "ns");
    }
    std::printf("\ndifferences within a repeat\n\n");
    Goals goals;
    for (const Comparison& comparison : kComparisons) {
        const std::string name = std::string(comparison.kind) + " - " + comparison.floor;
        const std::vector<double> extra = costs.differences(comparison.kind, comparison.floor);
        print_row(name, extra, kCalls, "ns");
        if (comparison.limit_ns) {
            goals.at_most(name, median(extra) / kCalls, *comparison.limit_ns, "ns");
        }
    }
    std::printf("\n");
    goals.print(stdout);
    return goals;
}

int run_all(const RepeatOptions& options) {
    const TemporaryFolder folder;
    sim::Card card = sim::Card::power_on_privately(kCard, {.slots_log2 = kRingSlotsLog2});
    const std::vector<Kind> kinds = make_kinds(card, folder.path());
    const std::optional<Costs> costs = measure(kinds, options);
    if (!costs) {
        return 0;
    }
    const Goals goals = print_report(kinds, *costs, options.repeats);
    return options.is_checked && !goals.are_reached() ? 1 : 0;
}

}  // namespace
}  // namespace kova::bench

int main(int argc, char** argv) {
    return kova::bench::run_benchmark(argc, argv, kova::bench::kDefaultRepeats, kova::bench::run_all);
}
