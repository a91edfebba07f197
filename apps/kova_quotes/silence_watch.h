/**
 * Notices a stream that stays silent.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_SILENCE_WATCH_H
#define KOVA_APPS_KOVA_QUOTES_SILENCE_WATCH_H

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace kova::app {

/** Speaks after kFirstWord without a displayed quote, then each time the silence has doubled, at least each
 * minute. */
class SilenceWatch {
 public:
    static constexpr std::chrono::seconds kFirstWord{5};
    static constexpr std::chrono::seconds kLongestPause{60};

    explicit SilenceWatch(std::chrono::nanoseconds now) : silent_since_(now) {}

    /**
     * @param received all quotes so far.
     * @param displayed those of the chosen instruments.
     * @return what there is to say, if anything.
     */
    std::optional<std::string> check(std::chrono::nanoseconds now, std::uint64_t received,
                                     std::uint64_t displayed);

 private:
    std::chrono::nanoseconds silent_since_;
    std::chrono::nanoseconds next_word_after_{kFirstWord};
    std::uint64_t received_then_ = 0;
    std::uint64_t displayed_then_ = 0;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_SILENCE_WATCH_H
