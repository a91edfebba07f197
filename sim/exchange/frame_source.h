/**
 * Where Ethernet frames come from: the exchange itself, or a stage behind it that does something to them.
 */
#ifndef KOVA_SIM_EXCHANGE_FRAME_SOURCE_H
#define KOVA_SIM_EXCHANGE_FRAME_SOURCE_H

#include <cstddef>
#include <span>

namespace kova::sim {

class FrameSource {
 public:
    FrameSource() = default;
    FrameSource(const FrameSource&) = delete;
    FrameSource& operator=(const FrameSource&) = delete;
    virtual ~FrameSource() = default;

    /** The next frame, from its Ethernet header on, without a check sequence. It holds until the next call. */
    virtual std::span<const std::byte> next() = 0;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_EXCHANGE_FRAME_SOURCE_H
