/** The exchange's snapshots on their way through a card, with what befalls them. */
#ifndef KOVA_APPS_KOVA_SIMCARD_SNAPSHOT_SENDER_H
#define KOVA_APPS_KOVA_SIMCARD_SNAPSHOT_SENDER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "kova_simcard/frame_sender.h"
#include "sim/card/card.h"
#include "sim/exchange/impairments.h"
#include "sim/exchange/market.h"
#include "sim/exchange/pacer.h"
#include "sim/exchange/snapshot_stream.h"

namespace kova::app {

struct SnapshotPlan {
    sim::Rate rate = 5000;  // frames a second; nothing: as fast as the stream takes them
    sim::SnapshotOptions snapshot{};
    sim::ImpairmentOptions impairments{};
};

/**
 * Sends snapshots while the host has forwarding open.
 *
 * Each opening is served from the beginning of a cycle: what is left of the one at hand passes unseen, as it
 * does on a line that a reader joins, and so does what an impairment has delayed of an earlier opening. The
 * connections go on meanwhile, so their sequence numbers do too.
 *
 * It loses nothing but what the impairments take: while the ring has no room, or nobody reads channel 0, it
 * waits, as a TCP sender does.
 */
class SnapshotSender final : public FrameSender {
 public:
    /** `card` and `market` must outlive it. Throws std::invalid_argument for options out of their range. */
    SnapshotSender(sim::Card& card, const sim::Market& market, const SnapshotPlan& plan);

    void step(std::int64_t now) override;
    [[nodiscard]] std::int64_t next() const override { return next_; }
    [[nodiscard]] std::vector<News> take_news() override;

    /** What befalls the frames; rates may be changed. */
    [[nodiscard]] sim::Impairments& impairments() { return impairments_; }
    [[nodiscard]] sim::SnapshotStream& stream() { return stream_; }

 private:
    [[nodiscard]] bool must_send();
    void open();
    void close();
    [[nodiscard]] bool has_reached_start();
    void send(std::int64_t now);
    void send_one();
    void note_packet_no();
    void report_cycles();

    sim::Card& card_;
    const sim::Market& market_;
    sim::Rate rate_;
    sim::SnapshotStream stream_;
    sim::Impairments impairments_;
    sim::Pacer pacer_;
    std::uint64_t opening_ = 0;  // of forwarding that is served
    bool is_sending_ = false;
    bool is_seeking_ = false;  // the start of a cycle
    std::uint64_t owed_ = 0;   // frames that are due and have not been sent
    std::uint64_t sent_ = 0;   // since forwarding was opened last
    std::int64_t next_ = 0;
    std::vector<News> news_;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_SIMCARD_SNAPSHOT_SENDER_H
