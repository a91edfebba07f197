/**
 * From an event of the card to the first quote behind the recovery, on a full listing: how much of that time is
 * waiting, how much goes into SDK calls, and how much the library takes for itself.
 *
 * The shipped library, called through its public header, on a card of this process whose exchange has a thread
 * of its own. Waits are real.
 */

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "KovaShfeMdApi.h"
#include "bench/channel_lists.h"
#include "bench/goals.h"
#include "bench/repeats.h"
#include "bench/sdk_stream.h"
#include "bench/sdk_watch.h"
#include "bench/silenced_output.h"
#include "bench/statistics.h"
#include "bench/stopwatch.h"
#include "kova_simcard/snapshot_sender.h"
#include "sim/card/in_process_card.h"
#include "sim/exchange/listing.h"
#include "sim/exchange/market.h"
#include "sim/exchange/pacer.h"
#include "wire/RegisterMap.h"

namespace kova::bench {
namespace {

constexpr std::size_t kDefaultRepeats = 7;
constexpr int kChannels = 16;
constexpr std::uint64_t kQuotesPerSecond = 1000;
constexpr std::chrono::seconds kMemoryDelay{2};
constexpr double kMostRestShare = 5;  // percent

using SteadyClock = std::chrono::steady_clock;

/** The card's side: its memory, the snapshots while they are asked for, quotes all the time. */
class Exchange {
 public:
    explicit Exchange(sim::Card& card)
        : card_(card),
          sender_(card, market_, {}),
          thread_([this](const std::stop_token& stop) { run(stop); }) {}

    [[nodiscard]] const sim::Listing& listing() const { return listing_; }

    /** Has the card raise an event; the ticks when it stands in the stream. Called by another thread. */
    std::uint64_t lose_packets() {
        raised_ = 0;
        is_event_wanted_ = true;
        while (raised_ == 0) {
            std::this_thread::yield();
        }
        return raised_;
    }

 private:
    void run(const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            const std::int64_t now = SteadyClock::now().time_since_epoch().count();
            card_.tick(now);
            if (is_event_wanted_.exchange(false)) {
                card_.push_event(sim::kEventChannel, sim::lost_event(SHFE_2PS));
                raised_ = ticks();
            }
            if (now >= sender_.next()) {
                sender_.step(now);
            }
            for (std::uint64_t due = pacer_.due(now); due > 0; --due) {
                const sim::Quote quote = market_.next();
                card_.route_quote(quote.feed, quote.record);
            }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }

    sim::Card& card_;
    sim::Listing listing_ = sim::Listing::make({});
    sim::Market market_{listing_};
    app::SnapshotSender sender_;
    sim::Pacer pacer_{kQuotesPerSecond};
    std::atomic<bool> is_event_wanted_ = false;
    std::atomic<std::uint64_t> raised_ = 0;
    std::jthread thread_;
};

/** Remembers when the first quote came behind the start of the cores. */
class FirstQuote final : public CKovaShfeMdSpi {
 public:
    std::int32_t OnKovaShfeMd(const KovaShfeMdType*) override {
        if (came == 0 && SdkWatch::are_cores_started()) {
            came = ticks_behind();
        }
        return 0;
    }

    std::uint64_t came = 0;
};

/** Milliseconds of one recovery. */
struct Split {
    double whole;
    double memory;    // waiting
    double snapshot;  // waiting for its frames
    double quote;     // waiting for one, once the cores run
    double sleeps;
    double sdk;        // the accesses, at a bare loop's prices
    double timed;      // the same, as the timed ones say
    double measuring;  // what watching the accesses takes
    double others;     // the processor was given to other programs
    double accesses;
    double interrupted;  // timed accesses that were
    double writes;
    double reads;
    double decoding;  // of the snapshot, of the rest
    double write_ns;  // of a bare access
    double read_ns;

    [[nodiscard]] double waits() const { return memory + snapshot + quote + sleeps; }
    [[nodiscard]] double rest() const { return whole - waits() - sdk - measuring - others; }
    /** Of a recovery that nobody else's program delays. */
    [[nodiscard]] double rest_share() const { return 100 * rest() / (whole - others); }
};

double milliseconds(double ticks) {
    return ticks * ns_per_tick() / 1e6;
}
double milliseconds(std::uint64_t begin, std::uint64_t end) {
    return milliseconds(static_cast<double>(end) - static_cast<double>(begin));
}

/** What accesses of the open tables cost in a loop that does nothing else, over many short loops. */
class LoopPrices {
 public:
    /** One more loop. */
    void add(const SdkAccessCalls& calls, enyx_hw_core* core, std::uint32_t first_word) {
        write_ns_ += cpu_nanoseconds_of([&] {
            for (std::uint32_t word = first_word; word < first_word + kWords; ++word) {
                write(calls, core, REG_SHFE_TABLE_WDATA, word);
                write(calls, core, REG_SHFE_TABLE_WADDR, word);
            }
        });
        pair_ns_ += cpu_nanoseconds_of([&] {
            for (std::uint32_t word = first_word; word < first_word + kWords; ++word) {
                write(calls, core, REG_SHFE_TABLE_RADDR, word);
                read(calls, core, REG_SHFE_TABLE_RDATA);
            }
        });
        words_ += kWords;
    }

    [[nodiscard]] double write_ns() const { return write_ns_ / (2 * words_); }
    [[nodiscard]] double read_ns() const { return pair_ns_ / words_ - write_ns(); }
    /** Milliseconds of so many accesses. */
    [[nodiscard]] double of(double writes, double reads) const {
        return (writes * write_ns() + reads * read_ns()) / 1e6;
    }

    static constexpr std::uint32_t kWords = 2048;

 private:
    static enyx_hw_register_description describe(std::uint32_t number) {
        return {.byte_offset = std::uint64_t{number} * 4, .bit_offset = 0, .bit_size = 32};
    }
    static void write(const SdkAccessCalls& calls, enyx_hw_core* core, std::uint32_t number,
                      std::uint32_t value) {
        const enyx_hw_register_description description = describe(number);
        calls.lock(core);
        calls.write(core, &description, value);
        calls.unlock(core);
    }
    static void read(const SdkAccessCalls& calls, enyx_hw_core* core, std::uint32_t number) {
        const enyx_hw_register_description description = describe(number);
        std::uint64_t value = 0;
        calls.lock(core);
        calls.read(core, &description, &value);
        calls.unlock(core);
    }

    double write_ns_ = 0;
    double pair_ns_ = 0;
    double words_ = 0;
};

/** The file that the library lists the day's instruments in, gone afterwards if it is this program's. */
class InstrumentFile {
 public:
    InstrumentFile() {
        for (const char* half : {"_am", "_pm"}) {
            const std::time_t now = std::time(nullptr);
            std::tm local{};
            localtime_r(&now, &local);
            std::array<char, 64> name{};
            std::strftime(name.data(), name.size(), "/tmp/.shfe_%Y%m%d", &local);
            const std::string path = std::string(name.data()) + half;
            if (!std::filesystem::exists(path)) {
                ours_.push_back(path);
            }
        }
    }
    ~InstrumentFile() {
        for (const std::string& path : ours_) {
            std::error_code ignored;
            std::filesystem::remove(path, ignored);
        }
    }
    InstrumentFile(const InstrumentFile&) = delete;
    InstrumentFile& operator=(const InstrumentFile&) = delete;

 private:
    std::vector<std::string> ours_;
};

class Recovery {
 public:
    Recovery() {
        sim::SdkCalls::of_this_process().stop();
        std::ofstream config(folder_.path() + "/recovery.ini");
        config << "[config]\nlog_level = 7\nine2ps = enabled\nwait_snap_timeout = 60\nlog_path = "
               << folder_.path() << "\n";
        for (int channel = 0; channel < kChannels; ++channel) {
            config << "[channel" << channel
                   << "]\ninsts = " << list_of_channel(channel, exchange_.listing().instruments())
                   << (channel % 4 == 0 ? "\noptions = recv\n" : "\n");
        }
    }

    /** The first bring-up. Throws std::runtime_error when it fails. */
    void start() {
        const SilencedOutput silenced;
        SdkWatch::restart();
        if (api_->KovaStart(spi_, (folder_.path() + "/recovery.ini").c_str()) != 0) {
            throw std::runtime_error("the start failed");
        }
        receive_first_quote();
    }

    Split recover() {
        const SilencedOutput silenced;
        SdkWatch::restart();
        bare_ = {};
        watched_ = {};
        SdkWatch::set_interlude([this] { price(); });
        spi_.came = 0;
        const std::uint64_t event = exchange_.lose_packets();
        receive_first_quote();
        return split(event);
    }

    [[nodiscard]] const sim::Listing& listing() const { return exchange_.listing(); }

 private:
    // What an access costs at this very moment: a busy machine has other prices from one second to the next.
    void price() {
        bare_.add(SdkWatch::bare_calls(), priced_core_, priced_word_);
        watched_.add(SdkWatch::watched_calls(), priced_core_, priced_word_);
        priced_word_ = (priced_word_ + LoopPrices::kWords) % (SHFE_TABLE_ROWS * INST_ROW_WORDS);
    }

    void receive_first_quote() {
        while (spi_.came == 0) {
            if (api_->KovaRecv() < 0) {
                throw std::runtime_error("a bring-up failed");
            }
        }
    }

    static const SdkLandmark& find(bool is_write, std::uint32_t number,
                                   std::optional<std::uint64_t> value = {}) {
        for (const SdkLandmark& landmark : SdkWatch::landmarks()) {
            if (landmark.is_write == is_write && landmark.number == number &&
                value.value_or(landmark.value) == landmark.value) {
                return landmark;
            }
        }
        throw std::runtime_error("a recovery went another way than expected");
    }

    Split split(std::uint64_t event) const {
        const SdkLandmark& reset = find(true, REG_INIT_TRIGGER);
        const SdkLandmark& before_memory = find(true, REG_PRICE_PROTECT_EVENT_MASK);
        const SdkLandmark& opening = find(true, REG_INIT_MASK, INIT_MASK_FORWARD);
        const SdkLandmark& listening =
            find(true, REG_MCAST_PORT + REG_CORE_STRIDE + REG_MCAST_INE + REG_MCAST_LINE_B);
        const SdkLandmark& taken = find(true, REG_INIT_MASK, 0);
        const SdkLandmark& running = find(true, REG_CORE_START + REG_CORE_STRIDE);
        if (reset.begin > before_memory.begin || before_memory.begin > opening.begin ||
            opening.begin > listening.begin || listening.begin > taken.begin || taken.begin > running.begin) {
            throw std::runtime_error("a recovery went in another order than expected");
        }
        const SdkLandmark& behind_memory = *(&before_memory + 1);
        Split split{};
        const double interludes = milliseconds(static_cast<double>(SdkWatch::interludes().ticks));
        split.whole = milliseconds(event, spi_.came) - interludes;
        split.memory = milliseconds(before_memory.end, behind_memory.begin);
        split.decoding = milliseconds(listening.handler_ticks, taken.handler_ticks);
        split.snapshot = milliseconds(listening.end, taken.begin) - split.decoding;
        split.quote = milliseconds(running.end, spi_.came);
        split.sleeps = milliseconds(static_cast<double>(SdkWatch::slept()));
        split.timed = milliseconds(SdkWatch::writes().all_ticks() + SdkWatch::reads().all_ticks());
        split.writes = static_cast<double>(SdkWatch::writes().count);
        split.reads = static_cast<double>(SdkWatch::reads().count);
        split.accesses = split.writes + split.reads;
        split.interrupted = static_cast<double>(SdkWatch::writes().interrupted + SdkWatch::reads().interrupted);
        split.others = milliseconds(taken.begin, running.begin) - interludes - split.sleeps -
                       static_cast<double>(running.cpu_ns - taken.cpu_ns - SdkWatch::interludes().cpu_ns) / 1e6;
        split.sdk = bare_.of(split.writes, split.reads);
        split.measuring = watched_.of(split.writes, split.reads) - split.sdk;
        split.write_ns = bare_.write_ns();
        split.read_ns = bare_.read_ns();
        return split;
    }

    // The core of a card that nobody else uses; its tables are open.
    static enyx_hw_core* open_core(std::uint32_t card) {
        enyx_hw_filter* const filter = enyx_hw_filter_create();
        enyx_hw_accelerator_descriptor* accelerator = nullptr;
        enyx_hw_mmio_descriptor* mmio = nullptr;
        enyx_hw_core* core = nullptr;
        if (enyx_hw_filter_set_index(filter, card) != 0 ||
            enyx_hw_enumerate_accelerators(filter, &accelerator, 1) != 1 ||
            enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator_get(accelerator), nullptr, &mmio, 1) != 1 ||
            enyx_hw_core_enumerate(
                enyx_hw_core_tree_get_root(enyx_hw_enumerate_cores(enyx_hw_mmio_create(mmio))), 474, &core,
                1) != 1) {
            throw std::runtime_error("no registers");
        }
        return core;
    }

    static constexpr sim::CardOptions kOptions{.memory_delay = kMemoryDelay};

    TemporaryFolder folder_;
    InstrumentFile instrument_file_;
    sim::InProcessCard card_{0, kOptions};
    Exchange exchange_{card_.card()};
    FirstQuote spi_;
    std::unique_ptr<CKovaShfeMdApi, void (*)(CKovaShfeMdApi*)> api_{
        CKovaShfeMdApi::CreateKovaShfeMdApi(),
        [](CKovaShfeMdApi* api) { CKovaShfeMdApi::DestroyKovaShfeMdApi(*api); }};
    sim::InProcessCard priced_card_{1, kOptions};
    enyx_hw_core* const priced_core_ = open_core(1);
    LoopPrices bare_;
    LoopPrices watched_;
    std::uint32_t priced_word_ = 0;
};

template <typename Value>
std::vector<double> all(const std::vector<Split>& splits, Value&& value) {
    std::vector<double> values;
    for (const Split& split : splits) {
        values.push_back(value(split));
    }
    return values;
}

// One part of the whole, in milliseconds and percent.
template <typename Value>
void print_part(const char* name, const std::vector<Split>& splits, Value&& value) {
    const Spread shown = spread(all(splits, value));
    const double share =
        median(all(splits, [&](const Split& split) { return 100 * value(split) / split.whole; }));
    std::printf("%-44s %9.2f [%.2f %.2f] ms %7.2f %%\n", name, shown.median, shown.lowest, shown.highest,
                share);
}

void print_splits(const std::vector<Split>& splits) {
    print_part("event to first quote", splits, [](const Split& split) { return split.whole; });
    print_part("waiting for the card's memory", splits, [](const Split& split) { return split.memory; });
    print_part("waiting for the snapshot", splits, [](const Split& split) { return split.snapshot; });
    print_part("waiting for a quote", splits, [](const Split& split) { return split.quote; });
    print_part("sleeps", splits, [](const Split& split) { return split.sleeps; });
    print_part("inside SDK calls", splits, [](const Split& split) { return split.sdk; });
    print_part("watching them", splits, [](const Split& split) { return split.measuring; });
    print_part("other programs on the core", splits, [](const Split& split) { return split.others; });
    print_part("the rest", splits, [](const Split& split) { return split.rest(); });
    print_part("  of it: the handler, before the tables", splits,
               [](const Split& split) { return split.decoding; });
    print_part("SDK calls as timed in place, to compare", splits,
               [](const Split& split) { return split.timed; });
    std::printf(
        "\n%.1f million register accesses; one in %llu timed, %.0f of them interrupted and left out; "
        "timing shows %.1f ns around nothing\n",
        median(all(splits, [](const Split& split) { return split.accesses; })) / 1e6,
        static_cast<unsigned long long>(SdkWatch::kStride),
        median(all(splits, [](const Split& split) { return split.interrupted; })), SdkWatch::ns_of_nothing());
    std::printf("in a bare loop a write takes %.1f ns, a read %.1f ns\n\n",
                median(all(splits, [](const Split& split) { return split.write_ns; })),
                median(all(splits, [](const Split& split) { return split.read_ns; })));
}

int run_all(const RepeatOptions& options) {
    Recovery recovery;
    recovery.start();
    std::vector<Split> splits;
    for (std::size_t i = 0; i < options.repeats; ++i) {
        splits.push_back(recovery.recover());
    }
    std::printf(
        "%u instruments of SHFE and %u of INE, 16 channels; median of %zu recoveries [lowest highest] and "
        "its share\n\n",
        recovery.listing().count(SHFE_2PS), recovery.listing().count(INE_2PS), options.repeats);
    print_splits(splits);
    const double rest_share = median(all(splits, [](const Split& split) { return split.rest_share(); }));
    Goals goals;
    goals.at_most("the rest of a recovery", rest_share, kMostRestShare, "%");
    // What is left over cannot be less than nothing: below it, the parts are priced too high.
    goals.at_least("the rest of a recovery", rest_share, 0, "%");
    goals.print(stdout);
    return options.is_checked && !goals.are_reached() ? 1 : 0;
}

}  // namespace
}  // namespace kova::bench

int main(int argc, char** argv) {
    return kova::bench::run_benchmark(argc, argv, kova::bench::kDefaultRepeats, kova::bench::run_all);
}
