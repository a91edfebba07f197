/**
 * How many quotes are due: a rate against a clock, without a clock of its own.
 */
#ifndef KOVA_SIM_EXCHANGE_PACER_H
#define KOVA_SIM_EXCHANGE_PACER_H

#include <cstdint>
#include <optional>

namespace kova::sim {

/** Quotes a second, 1 to kMaxRate; nothing means as fast as the stream takes them. */
using Rate = std::optional<std::uint64_t>;

constexpr std::uint64_t kMaxRate = 1'000'000'000;

/**
 * Doles out quotes at an even rate.
 *
 * Somebody who comes late gets what has become due meanwhile, at most `burst` at a time; what lies further back
 * is forgiven rather than sent in one heap.
 */
class Pacer {
 public:
    /** @param burst most quotes at a time, at least 1; also what an unlimited rate gives each time. */
    explicit Pacer(Rate rate, std::uint64_t burst = 256);

    /**
     * How many quotes are due; the caller sends them all.
     *
     * @param now_ns a clock that never goes back; the first call starts it and gives the first quote.
     */
    std::uint64_t due(std::int64_t now_ns);

    /** When the next quote is due, on the same clock; the present with an unlimited rate. Call due() first. */
    [[nodiscard]] std::int64_t next_ns() const;

 private:
    Rate rate_;
    std::uint64_t burst_;
    bool started_ = false;
    std::int64_t origin_ns_ = 0;
    std::int64_t now_ns_ = 0;
    std::uint64_t given_ = 0;  // since the origin, the forgiven ones included
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_PACER_H
