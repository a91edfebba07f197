#include "kova_quotes/silence_watch.h"

#include <fmt/format.h>

#include <algorithm>

namespace kova::app {

std::optional<std::string> SilenceWatch::check(std::chrono::nanoseconds now, std::uint64_t received,
                                               std::uint64_t displayed) {
    const std::chrono::nanoseconds silence = now - silent_since_;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(silence).count();
    if (displayed != displayed_then_) {
        const bool had_spoken = next_word_after_ > kFirstWord;
        silent_since_ = now;
        next_word_after_ = kFirstWord;
        received_then_ = received;
        displayed_then_ = displayed;
        return had_spoken ? std::optional(fmt::format("quotes again after {} s", seconds)) : std::nullopt;
    }
    if (silence < next_word_after_) {
        return std::nullopt;
    }
    next_word_after_ += std::min<std::chrono::nanoseconds>(next_word_after_, kLongestPause);
    const std::uint64_t others = received - received_then_;
    return others == 0
               ? fmt::format("no quote for {} s", seconds)
               : fmt::format("no quote of the chosen instruments for {} s ({} of others)", seconds, others);
}

}  // namespace kova::app
