/** Goals of a benchmark: what a measured value must not exceed, or must reach. */
#ifndef KOVA_BENCH_GOALS_H
#define KOVA_BENCH_GOALS_H

#include <cstdio>
#include <string>
#include <vector>

namespace kova::bench {

class Goals {
 public:
    void at_most(const std::string& what, double value, double limit, const char* unit) {
        add(what, value, limit, unit, "at most", value <= limit);
    }
    void at_least(const std::string& what, double value, double limit, const char* unit) {
        add(what, value, limit, unit, "at least", value >= limit);
    }

    [[nodiscard]] bool are_reached() const { return are_reached_; }

    void print(std::FILE* out) const {
        for (const std::string& line : lines_) {
            std::fprintf(out, "%s\n", line.c_str());
        }
    }

 private:
    void add(const std::string& what, double value, double limit, const char* unit, const char* relation,
             bool is_reached) {
        char line[160];
        std::snprintf(line, sizeof line, "%-8s %-52s %7.2f %-3s (%s %.2f)", is_reached ? "reached" : "MISSED",
                      what.c_str(), value, unit, relation, limit);
        lines_.emplace_back(line);
        are_reached_ = are_reached_ && is_reached;
    }

    std::vector<std::string> lines_;
    bool are_reached_ = true;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_GOALS_H
