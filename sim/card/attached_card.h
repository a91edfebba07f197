/** A card as a client has it: what stands behind the SDK's opaque types. */
#ifndef KOVA_SIM_CARD_ATTACHED_CARD_H
#define KOVA_SIM_CARD_ATTACHED_CARD_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "sim/card/card_mapping.h"
#include "sim/card/card_memory.h"
#include "sim/card/stream_ring.h"

namespace kova::sim {

/** One attachment, shared by everything that a client opened through it. */
using AttachedCard = std::shared_ptr<const CardMapping>;

/** Attaches to the card with this index. Null and errno when there is none, or no memory. */
[[nodiscard]] AttachedCard attach(std::uint32_t index);

/** Channel that a stream name means: 7 for "CUSTOM_CHAN7_DATA". */
[[nodiscard]] std::optional<std::uint32_t> channel_of(std::string_view stream_name);

/** An open card-to-host stream: this process is the channel's reader until it is destroyed or ends. */
class alignas(kCacheLine) CardToHostStream {
 public:
    /** Null and errno when another open stream reads the channel, or the ring cannot have its memory. */
    [[nodiscard]] static std::unique_ptr<CardToHostStream> open(const AttachedCard& card,
                                                                std::uint32_t channel);
    ~CardToHostStream();
    CardToHostStream(const CardToHostStream&) = delete;
    CardToHostStream& operator=(const CardToHostStream&) = delete;

    [[nodiscard]] std::uint32_t mtu() const;

    template <typename Handler>
    int poll(Handler&& handler) {
        return reader_.poll(static_cast<Handler&&>(handler));
    }

 private:
    CardToHostStream(AttachedCard card, int lock_file, std::uint32_t channel);

    AttachedCard card_;
    int lock_file_;
    std::uint32_t channel_;
    RingReader reader_;
};

/** An open host-to-card stream: this process is the channel's sender until it is destroyed or ends. */
class HostToCardStream {
 public:
    /** Null and errno when another open stream sends on the channel, or the ring cannot have its memory. */
    [[nodiscard]] static std::unique_ptr<HostToCardStream> open(const AttachedCard& card,
                                                                std::uint32_t channel);
    ~HostToCardStream();
    HostToCardStream(const HostToCardStream&) = delete;
    HostToCardStream& operator=(const HostToCardStream&) = delete;

    [[nodiscard]] std::uint32_t mtu() const;

    /** 0, or the errno of what prevents it: EMSGSIZE, ENOMEM, ENOBUFS while earlier messages are not taken. */
    [[nodiscard]] int send(const void* data, std::uint32_t size);

 private:
    HostToCardStream(AttachedCard card, int lock_file, std::uint32_t channel);

    AttachedCard card_;
    int lock_file_;
    std::uint32_t channel_;
    RingWriter writer_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_ATTACHED_CARD_H
