/**
 * What happens to frames on their way: loss, disorder, damage, and frames that somebody else sent.
 */
#ifndef KOVA_SIM_EXCHANGE_IMPAIRMENTS_H
#define KOVA_SIM_EXCHANGE_IMPAIRMENTS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "sim/exchange/chance.h"
#include "sim/exchange/frame_source.h"
#include "sim/exchange/random.h"
#include "sim/exchange/tcp_frame.h"

namespace kova::sim {

enum class Impairment : std::uint8_t {
    // What becomes of the frame. The first of these that strikes is all that happens to it.
    lose,        // it never arrives
    corrupt,     // a bit of its payload is wrong, so that its checksum fails; it is retransmitted
    retransmit,  // it is lost; the sender sends it again 64 to 256 frames later
    delay,       // it comes 2 to 32 frames later
    swap,        // it changes places with the next one
    duplicate,   // it comes twice
    // What the frame looks like.
    ip_options,   // 4 to 40 bytes of options in the IP header
    tcp_options,  // likewise in the TCP header
    padding,      // 1 to 46 bytes behind the IP packet
    // Frames that are put in before it.
    wrong_peer,  // one for the same port from another address, with the same sequence number and a payload of
                 // zeros
    rst,         // a reset without ACK on its connection, without payload
    rst_ack,     // a reset with ACK
};

/** Their names, in the order of Impairment. */
inline constexpr std::array<std::string_view, 12> kImpairmentNames = {
    "lose",       "corrupt",     "retransmit", "delay",      "swap", "duplicate",
    "ip_options", "tcp_options", "padding",    "wrong_peer", "rst",  "rst_ack"};

struct ImpairmentOptions {
    std::uint64_t seed = 1;
    /** How often each strikes, 0 to 1, by Impairment: the share of the frames of the source that it befalls. */
    std::array<double, kImpairmentNames.size()> rates{};
    /** Seeds of their own, by Impairment; the others follow from `seed`. */
    std::array<std::optional<std::uint64_t>, kImpairmentNames.size()> seeds{};
};

/**
 * A stage behind a source of frames.
 *
 * Each impairment has random numbers of its own: the same source and rates give the same frames, and a rate
 * that is changed does not change where the others strike, unless it takes a frame away from them. Two that
 * have the same seed strike different frames all the same. Frames that are no TCP segments pass through as they
 * are.
 *
 * A full segment that gets options is longer than an Ethernet frame of 1514 bytes, at most kMostFrameBytes.
 */
class Impairments final : public FrameSource {
 public:
    /** @param source must outlive the stage. Throws std::invalid_argument for a rate out of range. */
    explicit Impairments(FrameSource& source, const ImpairmentOptions& options = {});

    /**
     * The next frame that arrives. Pulls as many frames out of the source as it takes; one that loses all
     * frames gives an empty span after kMostLost of them.
     */
    std::span<const std::byte> next() override;

    /** Forgets the frames that are still on their way, as if they were lost: whoever waits for them is gone. */
    void forget_frames();

    /** The impairment of this name. Throws std::invalid_argument when there is none. */
    static Impairment find(std::string_view name);

    /**
     * Sets a rate by its impairment's name. With a seed its random numbers begin anew. Throws
     * std::invalid_argument for an unknown name and a bad rate.
     */
    void set(std::string_view name, double rate, std::optional<std::uint64_t> seed = {});
    void set(Impairment impairment, double rate, std::optional<std::uint64_t> seed = {});
    [[nodiscard]] double rate(Impairment impairment) const { return at(impairment).chance.rate(); }
    /** What its random numbers follow from. */
    [[nodiscard]] std::uint64_t seed(Impairment impairment) const { return at(impairment).seed; }

    /** How often it has struck. */
    [[nodiscard]] std::uint64_t struck(Impairment impairment) const { return at(impairment).count; }
    /** Frames that were taken from the source. */
    [[nodiscard]] std::uint64_t taken() const { return taken_; }

    static constexpr std::uint32_t kMostLost = 1000;

 private:
    struct Frame {
        std::array<std::byte, kMostFrameBytes> bytes;
        std::size_t size = 0;
    };
    using FramePointer = std::unique_ptr<Frame>;

    struct State {
        Chance chance{};
        std::uint64_t seed = 0;
        Random when{0};
        Random how{0};
        bool strikes = false;  // the frame at hand
        std::uint64_t count = 0;
    };

    /** A frame that is on its way for longer. */
    struct Held {
        std::uint64_t due = 0;  // arrives behind this frame of the source
        FramePointer frame{};
    };

    [[nodiscard]] const State& at(Impairment impairment) const {
        return states_[static_cast<std::size_t>(impairment)];
    }
    State& at(Impairment impairment) { return states_[static_cast<std::size_t>(impairment)]; }

    void reseed(Impairment impairment, std::uint64_t seed);
    void draw();
    bool strikes(Impairment impairment);
    std::uint32_t from_to(Impairment impairment, std::uint32_t least, std::uint32_t most);

    void pass(std::span<const std::byte> bytes);
    void inject(const TcpSegment& segment);
    FramePointer dressed(std::span<const std::byte> bytes, const TcpSegment& segment);
    void decide(FramePointer frame);
    void corrupt(Frame& frame);
    void hold(FramePointer frame, std::uint32_t frames);
    void release_due();

    FramePointer new_frame();
    FramePointer copy_of(std::span<const std::byte> bytes);
    FramePointer frame_of(const TcpSegment& segment);
    void give_back(FramePointer frame) { spare_.push_back(std::move(frame)); }

    FrameSource& source_;
    std::array<State, kImpairmentNames.size()> states_{};
    std::deque<FramePointer> arrived_;
    std::vector<Held> held_;           // in the order in which they were held
    std::vector<FramePointer> spare_;  // to be used again
    FramePointer current_;             // what next() gave last
    std::uint64_t swap_due_ = 0;       // when the frame that is being swapped arrives
    std::uint64_t taken_ = 0;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_IMPAIRMENTS_H
