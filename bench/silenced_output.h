/** Keeps the lines that the library writes to standard output out of a report. */
#ifndef KOVA_BENCH_SILENCED_OUTPUT_H
#define KOVA_BENCH_SILENCED_OUTPUT_H

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace kova::bench {

/** Puts standard output away while it lives. Throws std::runtime_error when it cannot. */
class SilencedOutput {
 public:
    SilencedOutput() : kept_(dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (kept_ < 0 || nothing < 0 || dup2(nothing, STDOUT_FILENO) < 0) {
            throw std::runtime_error("standard output cannot be redirected");
        }
        close(nothing);
    }
    ~SilencedOutput() {
        dup2(kept_, STDOUT_FILENO);
        close(kept_);
    }
    SilencedOutput(const SilencedOutput&) = delete;
    SilencedOutput& operator=(const SilencedOutput&) = delete;

 private:
    int kept_;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_SILENCED_OUTPUT_H
