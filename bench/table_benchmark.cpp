/**
 * What the library adds to the register accesses of a bring-up: writing the four contract tables, and
 * subscribing the sixteen channels, beside the same accesses made bare, in the same order on the same card.
 *
 * White-box: the library's object files, on a card of this process.
 */

#include <benchmark/benchmark.h>

#include <algorithm>
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
#include <utility>
#include <vector>

#include "bench/channel_lists.h"
#include "bench/goals.h"
#include "bench/repeats.h"
#include "bench/sdk_registers.h"
#include "bench/sdk_stream.h"
#include "bench/silenced_output.h"
#include "bench/statistics.h"
#include "bench/stopwatch.h"
#include "bench/subscription_trace.h"
#include "instruments/FeedInfo.h"
#include "sim/card/in_process_card.h"
#include "sim/exchange/listing.h"
#include "support/engine_access.h"

namespace kova::bench {
namespace {

constexpr std::size_t kDefaultRepeats = 7;
constexpr int kChannels = U50ChannelInfo::CHANNEL_SIZE;
constexpr std::array kFeeds = {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS};

// Rows in use of each exchange's tables.
struct Rows {
    std::uint32_t shfe;
    std::uint32_t ine;

    [[nodiscard]] std::uint32_t of(EMDQPDataType feed) const {
        return feed == SHFE_2PS || feed == SHFE_4PS ? shfe : ine;
    }
};

// For the comparison of every single access: recording one takes half a kilobyte.
constexpr Rows kFewRows = {.shfe = 120, .ine = 40};

void require(bool is_so, const char* otherwise) {
    if (!is_so) {
        throw std::runtime_error(otherwise);
    }
}

SInstTableType row_of(const sim::Instrument& instrument) {
    SInstTableType row{};
    std::memcpy(row.inst_id, instrument.id_chars.data(), sizeof row.inst_id);
    row.price_tick = instrument.tick;
    row.codec_price = instrument.codec_price;
    row.vol_multiple = instrument.multiplier;
    row.last_price = instrument.pre_settlement;
    row.upper_limit_price = instrument.upper_limit;
    row.lower_limit_price = instrument.lower_limit;
    row.bid1_price = instrument.pre_settlement - instrument.tick;
    row.ask1_price = instrument.pre_settlement + instrument.tick;
    row.bid1_vol = row.ask1_vol = 10 + instrument.ref.inst_no % 90;
    return row;
}

class Tables {
 public:
    Tables() {
        sim::SdkCalls::of_this_process().stop();
        std::string log_path = folder_.path();
        CCommonLog::GetInstance()->SetLogPath(log_path);
        CCommonLog::GetInstance()->SetLogLevel(static_cast<ELOGLEVEL>(LOG_ERROR | LOG_WARNING | LOG_INFO));
        require(EngineAccess::registers(*engine_).Init(0, REGISTER_CORE_ID) == 0, "no registers");
        for (const EMDQPDataType feed : kFeeds) {
            std::ranges::transform(listing_.of(feed), in_memory(feed), row_of);
        }
        EngineAccess::inst_count(*engine_) = {rows_.shfe, rows_.shfe, rows_.ine, rows_.ine};
        U50ConfigInfo& config = EngineAccess::config(*engine_);
        config.enabled_mask.enabled_mask = 0x0F;
        for (int channel = 0; channel < kChannels; ++channel) {
            U50ChannelInfo& info = config.channelInfo[channel];
            info.insts.UnSafeCopyFrom(list_of_channel(channel, listing_.instruments()).c_str());
            info.recvall = channel == 0;
            info.options = channel % 4 == 0;
        }
    }

    [[nodiscard]] Rows rows() const { return rows_; }

    double time_writer() {
        return cpu_nanoseconds_of([this] { EngineAccess::write_contract_tables(*engine_); });
    }

    double time_bare_writer() {
        return cpu_nanoseconds_of([this] {
            for (const EMDQPDataType feed : kFeeds) {
                write_table(feed);
            }
        });
    }

    double time_subscription(int channel) {
        const SilencedOutput silenced;
        return cpu_nanoseconds_of([&] { EngineAccess::subscribe_manager(*engine_, channel); });
    }

    double time_bare_subscription(int channel) {
        return cpu_nanoseconds_of([&] { traces_[static_cast<std::size_t>(channel)].replay(registers_); });
    }

    // Both writers leave the same in the card.
    void check_writers() {
        EngineAccess::write_contract_tables(*engine_);
        const std::vector<std::byte> written = card_tables();
        std::memset(&card_->memory().tables, 0xFF, sizeof(card_->memory().tables));
        time_bare_writer();
        require(card_tables() == written, "the two ways write different tables");
        require(std::memcmp(sim::table_rows(card_->memory().tables, INE_4PS), in_memory(INE_4PS),
                            rows_.ine * sizeof(SInstTableType)) == 0,
                "the tables in the card are not those in memory");
    }

    // Brings the card to where a second bring-up finds it, and takes down what each channel asks for there.
    void take_traces() {
        set_counts(kFewRows);
        subscribe_all();
        for (int channel = 0; channel < kChannels; ++channel) {
            check_trace(channel);
        }
        set_counts(rows_);
        subscribe_all();
        for (int channel = 0; channel < kChannels; ++channel) {
            traces_.push_back(trace_of(channel, rows_));
        }
        const std::vector<std::byte> subscribed = card_tables();
        for (int channel = 0; channel < kChannels; ++channel) {
            time_bare_subscription(channel);
        }
        require(card_tables() == subscribed, "the bare accesses subscribe something else");
    }

 private:
    [[nodiscard]] SInstTableType* in_memory(EMDQPDataType feed) {
        auto* const rows = reinterpret_cast<SInstTableType*>(&EngineAccess::inst_table(*engine_));
        return rows + FEED_INFO[static_cast<std::size_t>(feed)].nFirstRow;
    }

    [[nodiscard]] std::vector<std::byte> card_tables() {
        const auto& tables = card_->memory().tables;
        const auto* const bytes = reinterpret_cast<const std::byte*>(&tables);
        return {bytes, bytes + sizeof tables};
    }

    // The rows in use from memory, the others as zeros.
    void write_table(EMDQPDataType feed) {
        const U50FeedInfo& info = FEED_INFO[static_cast<std::size_t>(feed)];
        const auto* const words = reinterpret_cast<const char*>(in_memory(feed));
        const std::uint32_t used = rows_.of(feed) * INST_ROW_WORDS;
        const std::uint32_t end = static_cast<std::uint32_t>(info.nRowCount) * INST_ROW_WORDS;
        for (std::uint32_t address = 0; address < used; ++address) {
            std::uint32_t word = 0;
            std::memcpy(&word, words + address * sizeof word, sizeof word);
            registers_.write(info.table.nWriteData, word);
            registers_.write(info.table.nWriteAddr, address);
        }
        for (std::uint32_t address = used; address < end; ++address) {
            registers_.write(info.table.nWriteData, 0);
            registers_.write(info.table.nWriteAddr, address);
        }
    }

    void set_counts(const Rows& rows) {
        card_.preset(REG_SHFE_INST_COUNT, rows.shfe);
        card_.preset(REG_INE_INST_COUNT, rows.ine);
    }

    void subscribe_all() {
        for (int channel = 0; channel < kChannels; ++channel) {
            time_subscription(channel);
        }
    }

    // What a channel that is subscribed already asks for when it is subscribed again.
    SubscriptionTrace trace_of(int channel, const Rows& rows) {
        SubscriptionTrace trace;
        for (const EMDQPDataType feed : kFeeds) {
            const SInstTableType* const in_card = sim::table_rows(card_->memory().tables, feed);
            for (std::uint32_t row = 0; row < rows.of(feed); ++row) {
                trace.add_removal(feed, row, in_card[row].config & ~(1U << static_cast<unsigned>(channel)));
            }
        }
        std::vector<CUstCharArray<32>> patterns;
        EngineAccess::config(*engine_).channelInfo[channel].insts.SplitByChar(patterns, ',');
        for (CUstCharArray<32>& pattern : patterns) {
            add_pattern(trace, channel, pattern, rows);
        }
        return trace;
    }

    void add_pattern(SubscriptionTrace& trace, int channel, CUstCharArray<32>& pattern, const Rows& rows) {
        sim::SdkCalls& calls = sim::SdkCalls::of_this_process();
        calls.start_recording();
        for (const auto& [feed_2ps, feed_4ps] : {std::pair(SHFE_2PS, SHFE_4PS), std::pair(INE_2PS, INE_4PS)}) {
            for (std::uint32_t row = 0; row < rows.of(feed_2ps); ++row) {
                subscribe(feed_2ps, row, channel, pattern);
                subscribe(feed_4ps, row, channel, pattern);
            }
        }
        trace.add_recorded(calls.register_accesses());
        calls.stop();
    }

    void subscribe(EMDQPDataType feed, std::uint32_t row, int channel, CUstCharArray<32>& pattern) {
        const U50TableRegisters& table = FEED_INFO[static_cast<std::size_t>(feed)].table;
        EngineAccess::subscribe(*engine_, in_memory(feed), true, table.nReadAddr, table.nReadData,
                                table.nWriteAddr, table.nWriteData, static_cast<int>(row), channel, pattern);
    }

    // Access for access, the trace is what the library does once it has read the counts.
    void check_trace(int channel) {
        sim::SdkCalls& calls = sim::SdkCalls::of_this_process();
        const std::vector<sim::RegisterAccess> expected = trace_of(channel, kFewRows).accesses();
        calls.start_recording();
        time_subscription(channel);
        std::vector<sim::RegisterAccess> made = calls.register_accesses();
        calls.stop();
        made.erase(made.begin(), made.begin() + 2);
        for (sim::RegisterAccess& access : made) {
            access.value = access.is_write ? access.value : 0;
        }
        require(made == expected, "the library makes other accesses than the bare ones");
    }

    TemporaryFolder folder_;
    sim::InProcessCard card_;
    SdkRegisters registers_{0};
    sim::Listing listing_ = sim::Listing::make({});
    Rows rows_ = {.shfe = listing_.count(SHFE_2PS), .ine = listing_.count(INE_2PS)};
    std::unique_ptr<CKovaShfeMdApiImpl> engine_ = EngineAccess::create();
    std::vector<SubscriptionTrace> traces_;
};

constexpr const char* kWriter = "table writer";
constexpr const char* kBareWriter = "bare register writes";
constexpr const char* kSubscription = "subscription of 16 channels";
constexpr const char* kBareSubscription = "bare register accesses";

// The parts of a subscription are measured channel by channel, library and bare in turn, so that what the
// machine does for a second hits both.
std::string of_channel(const char* kind, int channel) {
    return std::string(kind) + ", " + std::to_string(channel);
}

std::vector<Kind> make_kinds(Tables& tables) {
    std::vector<Kind> kinds = {
        {kWriter, 1, every_run([&] { return tables.time_writer(); })},
        {kBareWriter, 1, every_run([&] { return tables.time_bare_writer(); })},
    };
    for (int channel = 0; channel < kChannels; ++channel) {
        kinds.push_back({of_channel(kSubscription, channel), 1,
                         every_run([&tables, channel] { return tables.time_subscription(channel); })});
        kinds.push_back({of_channel(kBareSubscription, channel), 1,
                         every_run([&tables, channel] { return tables.time_bare_subscription(channel); })});
    }
    return kinds;
}

// The costs with the channels of each repeat added up.
Costs sum_of_channels(const Costs& costs, std::size_t repeats) {
    Costs sums;
    for (const char* kind : {kWriter, kBareWriter}) {
        for (const double nanoseconds : costs.of(kind)) {
            sums.add(kind, nanoseconds);
        }
    }
    for (const char* kind : {kSubscription, kBareSubscription}) {
        for (std::size_t repeat = 0; repeat < repeats; ++repeat) {
            double sum = 0;
            for (int channel = 0; channel < kChannels; ++channel) {
                sum += costs.of(of_channel(kind, channel)).at(repeat);
            }
            sums.add(kind, sum);
        }
    }
    return sums;
}

constexpr std::array kComparisons = {
    RatioGoal{kWriter, kBareWriter, RatioGoal::kAtMost, 1.2},
    RatioGoal{kSubscription, kBareSubscription, RatioGoal::kAtMost, 1.5},
};

int run_all(const RepeatOptions& options) {
    Tables tables;
    tables.check_writers();
    tables.take_traces();
    const std::vector<Kind> kinds = make_kinds(tables);
    const std::optional<Costs> measured = measure(kinds, options);
    if (!measured) {
        return 0;
    }
    const Costs costs = sum_of_channels(*measured, options.repeats);
    std::printf("%u rows of SHFE and %u of INE, twice; median of %zu repeats [lowest highest]\n\n",
                tables.rows().shfe, tables.rows().ine, options.repeats);
    for (const char* kind : {kWriter, kBareWriter, kSubscription, kBareSubscription}) {
        print_row(kind, costs.of(kind), 1e6, "ms");
    }
    std::printf("\nratios within a repeat\n\n");
    Goals goals;
    judge(kComparisons, costs, goals);
    std::printf("\n");
    goals.print(stdout);
    return options.is_checked && !goals.are_reached() ? 1 : 0;
}

}  // namespace
}  // namespace kova::bench

int main(int argc, char** argv) {
    return kova::bench::run_benchmark(argc, argv, kova::bench::kDefaultRepeats, kova::bench::run_all);
}
