/** Something that sends snapshot frames through a card while it is on. */
#ifndef KOVA_APPS_KOVA_SIMCARD_FRAME_SENDER_H
#define KOVA_APPS_KOVA_SIMCARD_FRAME_SENDER_H

#include <cstdint>
#include <string>
#include <vector>

namespace kova::app {

/** A line for whoever watches the program. */
struct News {
    bool is_error = false;
    std::string text;

    friend bool operator==(const News&, const News&) = default;
};

/** Has no clock: whoever drives it says what time it is, in nanoseconds of a clock that never goes back. */
class FrameSender {
 public:
    virtual ~FrameSender() = default;

    /** Sends what is due and fits, a bounded number of frames. */
    virtual void step(std::int64_t now) = 0;
    /** When the next step has something to do: the time of the last one if at once. */
    [[nodiscard]] virtual std::int64_t next() const = 0;
    /** What has happened since it was asked last. */
    [[nodiscard]] virtual std::vector<News> take_news() = 0;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_FRAME_SENDER_H
