/** A capture that the card sends again. */
#ifndef KOVA_APPS_KOVA_SIMCARD_REPLAY_H
#define KOVA_APPS_KOVA_SIMCARD_REPLAY_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kova_simcard/frame_sender.h"
#include "sim/capture/capture_file.h"
#include "sim/card/card.h"

namespace kova::app {

/** How many times as fast as it was recorded; nothing: as fast as the stream takes it. */
using ReplaySpeed = std::optional<double>;

constexpr double kSlowestReplay = 0.001;
constexpr double kFastestReplay = 1'000'000;

struct ReplayPlan {
    std::string name;  // of the capture, for people
    ReplaySpeed speed = 1;
    bool repeat = false;
};

struct ReplayTotals {
    std::uint64_t sent = 0;
    std::uint64_t too_long = 0;  // for the stream, so left out

    friend bool operator==(const ReplayTotals&, const ReplayTotals&) = default;
};

/**
 * Plays a capture from its beginning each time that the host opens forwarding, until that is closed or the
 * capture is over.
 *
 * It loses nothing: while the ring has no room, or nobody reads channel 0, it waits, and goes on from there
 * with the recorded times between the frames.
 */
class Replay final : public FrameSender {
 public:
    /** `card` must outlive it. */
    Replay(sim::Card& card, std::unique_ptr<sim::CaptureFile> capture, ReplayPlan plan);

    void step(std::int64_t now) override;
    [[nodiscard]] std::int64_t next() const override { return next_; }
    [[nodiscard]] std::vector<News> take_news() override;

    /** Since forwarding was opened last. */
    [[nodiscard]] const ReplayTotals& totals() const { return totals_; }

 private:
    [[nodiscard]] bool must_play(std::int64_t now);
    void begin(std::int64_t now);
    void play(std::int64_t now);
    [[nodiscard]] bool play_one(std::int64_t now);
    [[nodiscard]] bool fetch(std::int64_t now);
    [[nodiscard]] bool must_wait(std::int64_t now);
    [[nodiscard]] bool is_too_long() const;
    [[nodiscard]] bool has_room() const;
    void forward();
    void end();

    sim::Card& card_;
    std::unique_ptr<sim::CaptureFile> capture_;
    ReplayPlan plan_;
    std::uint64_t opening_ = 0;  // of forwarding that is played for
    bool is_playing_ = false;
    std::optional<sim::CaptureRecord> record_;  // the next one to send
    std::int64_t due_ = 0;                      // when it is
    std::int64_t next_ = 0;
    ReplayTotals totals_;
    std::vector<News> news_;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_REPLAY_H
