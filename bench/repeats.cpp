#include "bench/repeats.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "bench/goals.h"
#include "bench/statistics.h"

namespace kova::bench {

namespace {

// Counter in which a run hands over the median of its sections.
constexpr const char* kPerSection = "ns_per_section";

bool take_option(std::string_view argument, RepeatOptions& options) {
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

void run_kind(benchmark::State& state, const Kind& kind, std::size_t repeat) {
    std::vector<double> sections;
    TimeSection time_section;
    for ([[maybe_unused]] auto section : state) {
        try {
            if (!time_section) {
                time_section = kind.begin_run(repeat);
            }
            sections.push_back(time_section());
        } catch (const std::exception& error) {
            state.SkipWithError(error.what());
            break;
        }
        state.SetIterationTime(sections.back() * 1e-9);
    }
    // Of the sections the median: an interruption hits one of them, not all.
    state.counters[kPerSection] = sections.empty() ? 0 : median(sections);
}

// Keeps what each kind cost, and shows the runs as they are made unless only a summary is wanted.
class Collector final : public benchmark::ConsoleReporter {
 public:
    explicit Collector(bool is_quiet) : ConsoleReporter(OO_Tabular), is_quiet_(is_quiet) {}

    bool ReportContext(const Context& context) override {
        return is_quiet_ || ConsoleReporter::ReportContext(context);
    }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const auto found = run.counters.find(kPerSection);
            if (run.error_occurred || found == run.counters.end()) {
                error_ = run.benchmark_name() + ": " + run.error_message;
            } else {
                costs_.add(run.run_name.function_name, found->second.value);
            }
        }
        if (!is_quiet_) {
            ConsoleReporter::ReportRuns(runs);
        }
    }

    [[nodiscard]] const std::string& error() const { return error_; }
    [[nodiscard]] const Costs& costs() const { return costs_; }

 private:
    bool is_quiet_;
    Costs costs_;
    std::string error_;
};

}  // namespace

RepeatOptions take_options(int& argc, char** argv, std::size_t default_repeats) {
    RepeatOptions options{.repeats = default_repeats};
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (!take_option(argv[i], options)) {
            argv[kept++] = argv[i];
        }
    }
    argc = kept;
    return options;
}

std::vector<double> Costs::ratios(const std::string& kind, const std::string& floor) const {
    std::vector<double> result;
    std::ranges::transform(of(kind), of(floor), std::back_inserter(result), std::divides<>());
    return result;
}

std::vector<double> Costs::differences(const std::string& kind, const std::string& floor) const {
    std::vector<double> result;
    std::ranges::transform(of(kind), of(floor), std::back_inserter(result), std::minus<>());
    return result;
}

std::optional<Costs> measure(std::span<const Kind> kinds, const RepeatOptions& options) {
    for (std::size_t repeat = 0; repeat < options.repeats; ++repeat) {
        for (std::size_t i = 0; i < kinds.size(); ++i) {
            const Kind& kind = kinds[repeat % 2 == 1 ? kinds.size() - 1 - i : i];
            benchmark::RegisterBenchmark(
                kind.name.c_str(), [&kind, repeat](benchmark::State& state) { run_kind(state, kind, repeat); })
                ->Iterations(kind.sections)
                ->UseManualTime()
                ->Unit(benchmark::kMicrosecond);
        }
    }
    Collector collected(options.is_quiet);
    benchmark::RunSpecifiedBenchmarks(&collected);
    if (!collected.error().empty()) {
        throw std::runtime_error(collected.error());
    }
    return collected.costs().kinds() == kinds.size() ? std::optional(collected.costs()) : std::nullopt;
}

void print_row(const std::string& name, const std::vector<double>& values, double divisor, const char* unit) {
    const Spread shown = spread(values);
    std::printf("%-52s %9.2f [%.2f %.2f] %s\n", name.c_str(), shown.median / divisor, shown.lowest / divisor,
                shown.highest / divisor, unit);
}

void judge(std::span<const RatioGoal> comparisons, const Costs& costs, Goals& goals) {
    for (const RatioGoal& comparison : comparisons) {
        const std::string name = std::string(comparison.kind) + " / " + comparison.floor;
        const std::vector<double> ratios = costs.ratios(comparison.kind, comparison.floor);
        print_row(name, ratios, 1, "x");
        if (comparison.relation == RatioGoal::kAtMost) {
            goals.at_most(name, median(ratios), comparison.limit, "x");
        } else if (comparison.relation == RatioGoal::kAtLeast) {
            goals.at_least(name, median(ratios), comparison.limit, "x");
        }
    }
}

int run_benchmark(int argc, char** argv, std::size_t default_repeats,
                  const std::function<int(const RepeatOptions&)>& run) {
    try {
        const RepeatOptions options = take_options(argc, argv, default_repeats);
        benchmark::Initialize(&argc, argv);
        return benchmark::ReportUnrecognizedArguments(argc, argv) ? 2 : run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
        return 2;
    }
}

}  // namespace kova::bench
