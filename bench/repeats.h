/**
 * Several kinds of one thing, measured one after the other and that several times over: what a machine does to
 * one kind it does to the others of the same repeat too, so they are compared within a repeat.
 */
#ifndef KOVA_BENCH_REPEATS_H
#define KOVA_BENCH_REPEATS_H

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace kova::bench {

/** What these programs take beside the options of Google Benchmark. */
struct RepeatOptions {
    std::size_t repeats = 0;
    bool is_checked = false;  // fail when a goal is missed
    bool is_quiet = false;    // the summary only
};

/** Takes --repeats=N, --check and --summary out of the arguments and leaves the others. */
[[nodiscard]] RepeatOptions take_options(int& argc, char** argv, std::size_t default_repeats);

/** Nanoseconds of one timed section. Throws when something went otherwise than it should. */
using TimeSection = std::function<double()>;

/** One kind. */
struct Kind {
    std::string name;
    std::int64_t sections;  // timed sections of a run
    /** Begins the run of a repeat; what it returns owns what the run needs and lives as long as the run. */
    std::function<TimeSection(std::size_t repeat)> begin_run;
};

/** For Kind::begin_run, where every run is the same and needs nothing of its own. */
[[nodiscard]] inline std::function<TimeSection(std::size_t repeat)> every_run(TimeSection time_section) {
    return [time_section = std::move(time_section)](std::size_t /*repeat*/) { return time_section; };
}

/** What the kinds cost in each repeat: the median of a run's sections, in nanoseconds. */
class Costs {
 public:
    void add(const std::string& kind, double nanoseconds) { costs_[kind].push_back(nanoseconds); }

    [[nodiscard]] std::size_t kinds() const { return costs_.size(); }
    [[nodiscard]] const std::vector<double>& of(const std::string& kind) const { return costs_.at(kind); }
    /** How many times as much one kind cost as another, in each repeat. */
    [[nodiscard]] std::vector<double> ratios(const std::string& kind, const std::string& floor) const;
    /** How much more one kind cost than another, in nanoseconds, in each repeat. */
    [[nodiscard]] std::vector<double> differences(const std::string& kind, const std::string& floor) const;

 private:
    std::map<std::string, std::vector<double>> costs_;
};

/**
 * Runs every kind once in each repeat; every other repeat turns their order round.
 *
 * @return nothing when a filter has left kinds out. Throws std::runtime_error when a run failed.
 */
[[nodiscard]] std::optional<Costs> measure(std::span<const Kind> kinds, const RepeatOptions& options);

/** Prints a name and a median with its spread, in a unit of so many nanoseconds. */
void print_row(const std::string& name, const std::vector<double>& values, double divisor, const char* unit);

/** A goal about how many times as much one kind costs as another. */
struct RatioGoal {
    const char* kind;
    const char* floor;
    enum Relation { kAtMost, kAtLeast, kToRead } relation = kToRead;  // the last one is no goal
    double limit = 0;
};

class Goals;

/** Prints the ratios within the repeats and judges their medians. */
void judge(std::span<const RatioGoal> comparisons, const Costs& costs, Goals& goals);

/** What a benchmark's main() does: options, Google Benchmark, errors. @return what main() returns. */
int run_benchmark(int argc, char** argv, std::size_t default_repeats,
                  const std::function<int(const RepeatOptions&)>& run);

}  // namespace kova::bench

#endif  // KOVA_BENCH_REPEATS_H
