/**
 * One-way latency and throughput between two processes on two cores: the simulated card's stream, read through
 * the SDK's poll and through the shipped library, against a ring written by hand and against boost's queue.
 *
 * Every transport runs in each repeat, in an order that moves on, so that whatever the machine does beside this
 * hits all of them.
 */

#include <sched.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "bench/clock_skew.h"
#include "bench/goals.h"
#include "bench/latency_report.h"
#include "bench/sdk_stream.h"
#include "bench/transports.h"
#include "bench/two_processes.h"

namespace kova::bench {
namespace {

struct Options {
    Cores cores{.writer = -1, .reader = -1};
    std::size_t repeats = 11;
    std::size_t messages = 100'000;
    std::size_t flood_messages = 3'000'000;
    std::string curves;
    bool is_checked = false;
};

struct Contender {
    TransportResult result;
    std::function<void(const Plan&, RunArea&)> run;
};

template <typename Transport>
Contender contender(const std::string& name, Transport& transport) {
    return {.result = {.name = name, .latency_ns = {}, .flood = {}},
            .run = [&transport](const Plan& plan, RunArea& area) {
                if constexpr (requires { transport.reset(); }) {
                    transport.reset();
                }
                kova::bench::run(transport, plan, area);
            }};
}

// The first two cores that this process may use, unless told otherwise.
Cores choose_cores(Cores cores) {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (!CPU_ISSET(static_cast<std::size_t>(core), &allowed)) {
            continue;
        }
        if (cores.writer < 0 && core != cores.reader) {
            cores.writer = core;
        } else if (cores.reader < 0 && core != cores.writer) {
            cores.reader = core;
        }
    }
    if (cores.writer < 0 || cores.reader < 0 || cores.writer == cores.reader) {
        throw RunError("needs two cores");
    }
    return cores;
}

void measure_latency(Contender& contender, const Options& options, RunArea& area) {
    const Plan plan{.cores = options.cores, .messages = options.messages, .is_paced = true};
    contender.run(plan, area);
    contender.result.add_latencies({area.samples, options.messages});
}

void measure_flood(Contender& contender, const Options& options, RunArea& area) {
    const Plan plan{.cores = options.cores, .messages = options.flood_messages};
    contender.run(plan, area);
    const double nanoseconds = static_cast<double>(area.end_ticks - area.begin_ticks) * ns_per_tick();
    contender.result.flood.push_back(static_cast<double>(options.flood_messages) / nanoseconds * 1e3);
}

void measure(std::vector<Contender>& contenders, const Options& options) {
    const Shared<RunArea> area;
    const SharedMemory samples(options.messages * sizeof(std::uint64_t));
    area->samples = static_cast<std::uint64_t*>(samples.place());
    for (std::size_t repeat = 0; repeat < options.repeats; ++repeat) {
        std::fprintf(stderr, "\rrepeat %zu of %zu", repeat + 1, options.repeats);
        for (std::size_t i = 0; i < contenders.size(); ++i) {
            Contender& next = contenders[(repeat + i) % contenders.size()];
            measure_latency(next, options, *area);
            measure_flood(next, options, *area);
        }
    }
    std::fprintf(stderr, "\r%40s\r", "");
}

Goals judge(const TransportResult& stream, const TransportResult& hand_written, const TransportResult& boost) {
    constexpr double kMedian = 0.5;
    Goals goals;
    goals.at_most("stream / hand-written ring, p50", ratio(stream.at(kMedian), hand_written.at(kMedian)), 1.10,
                  "x");
    goals.at_most("stream / boost::lockfree::spsc_queue, p50", ratio(stream.at(kMedian), boost.at(kMedian)),
                  0.75, "x");
    goals.at_least("stream / hand-written ring, flood", ratio(stream.flood, hand_written.flood), 0.75, "x");
    return goals;
}

void write_curves(const std::string& path, const std::vector<TransportResult>& results) {
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) {
        throw RunError(path + " cannot be written");
    }
    print_curves(file, results);
    std::fclose(file);
}

int run_all(Options options) {
    options.cores = choose_cores(options.cores);
    constexpr std::uint32_t kCard = 0;
    constexpr std::uint32_t kChannel = 1;
    const TemporaryFolder folder;
    sim::Card card = sim::Card::power_on_privately(kCard, {.slots_log2 = kSlotsLog2});
    SdkPollTransport sdk_poll(card, kChannel);
    LibraryTransport library(card, kChannel, folder.path());
    HandWrittenTransport hand_written;
    BoostQueueTransport boost_pop(false);
    BoostQueueTransport boost_in_place(true);

    std::vector<Contender> contenders;
    contenders.push_back(contender("card stream, SDK poll", sdk_poll));
    contenders.push_back(contender("card stream, KovaRecv", library));
    contenders.push_back(contender("ring written by hand", hand_written));
    contenders.push_back(contender("boost::lockfree::spsc_queue pop", boost_pop));
    contenders.push_back(contender("boost spsc_queue consume_one", boost_in_place));
    measure(contenders, options);

    std::vector<TransportResult> results;
    for (Contender& each : contenders) {
        results.push_back(std::move(each.result));
    }
    std::printf("writer on core %d, reader on core %d, clocks %.0f ns apart\n", options.cores.writer,
                options.cores.reader, clock_skew_ns(options.cores));
    std::printf("%zu repeats of %zu paced and %zu flooding messages of %zu bytes; median [lowest highest]\n\n",
                options.repeats, options.messages, options.flood_messages, sizeof(U50QuoteMessage));
    print_table(stdout, results);
    const Goals goals = judge(results[0], results[2], results[3]);
    std::printf("\n");
    goals.print(stdout);
    if (!options.curves.empty()) {
        write_curves(options.curves, results);
    }
    return options.is_checked && !goals.are_reached() ? 1 : 0;
}

}  // namespace
}  // namespace kova::bench

int main(int argc, char** argv) {
    CLI::App app("One-way latency and throughput of the card's stream between two processes");
    kova::bench::Options options;
    app.add_option("--writer-core", options.cores.writer, "Core of the writing process");
    app.add_option("--reader-core", options.cores.reader, "Core of the reading process");
    app.add_option("--repeats", options.repeats, "Repeats of everything")->check(CLI::Range(1, 1000));
    app.add_option("--messages", options.messages, "Paced messages of a run")
        ->check(CLI::Range(1'000, 10'000'000));
    app.add_option("--flood", options.flood_messages, "Flooding messages of a run")
        ->check(CLI::Range(100'000, 1'000'000'000));
    app.add_option("--curves", options.curves, "File for the percentile curves");
    app.add_flag("--check", options.is_checked, "Fail when a goal is missed");
    CLI11_PARSE(app, argc, argv);
    try {
        return kova::bench::run_all(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "latency_benchmark: %s\n", error.what());
        return 2;
    }
}
