/** Stand-in for the SDK object of accelerators and streams, on the simulated card. */

#include <array>
#include <list>
#include <mutex>

#include "sim/card/sdk_objects.h"

// What an open stream is, is known to this object alone.
struct enyx_hw_a2c_stream {
    std::unique_ptr<kova::sim::CardToHostStream> stream;
};

struct enyx_hw_c2a_stream {
    std::unique_ptr<kova::sim::HostToCardStream> stream;
};

namespace {

using kova::sim::AttachedCard;
using kova::sim::create;
using kova::sim::destroy;
using kova::sim::destroy_all;
using kova::sim::must_fail;
using kova::sim::note;
using kova::sim::unless_out_of_memory;

// Cards that an enumeration without an index looks for.
constexpr std::uint32_t kMostCards = 16;

// The SDK never releases an accelerator, so they live as long as the process.
struct Accelerators {
    std::mutex mutex;
    std::list<enyx_hw_accelerator> all;
};

Accelerators& accelerators() {
    static auto* const kept = new Accelerators;
    return *kept;
}

// The card behind an accelerator, attached anew when it was powered off and on since. Null and errno without
// one.
AttachedCard card_of(enyx_hw_accelerator& accelerator) {
    const std::lock_guard guard(accelerators().mutex);
    if (!accelerator.card->is_powered()) {
        AttachedCard card = kova::sim::attach(accelerator.index);
        if (card == nullptr) {
            return nullptr;
        }
        accelerator.card = std::move(card);
    }
    return accelerator.card;
}

// The accelerator with this index, on the card that has just been attached.
enyx_hw_accelerator* accelerator_of(std::uint32_t index, AttachedCard card) {
    Accelerators& kept = accelerators();
    const std::lock_guard guard(kept.mutex);
    for (enyx_hw_accelerator& accelerator : kept.all) {
        if (accelerator.index == index) {
            accelerator.card = std::move(card);
            return &accelerator;
        }
    }
    return &kept.all.emplace_back(enyx_hw_accelerator{index, std::move(card)});
}

// 1 when there is a card with this index, 0 when there is none, -1 and errno without memory.
int store_accelerator(std::uint32_t index, enyx_hw_accelerator_descriptor** descriptors, std::size_t stored) {
    if (kova::sim::attach(index) == nullptr) {
        return errno == ENOMEM ? -1 : 0;
    }
    descriptors[stored] = create("accelerator_descriptor", enyx_hw_accelerator_descriptor{index});
    return descriptors[stored] != nullptr ? 1 : -1;
}

// Channels that a filter means: by name, else by index, else all.
struct ChannelRange {
    std::uint32_t first = 0;
    std::uint32_t end = kova::sim::kChannelCount;
};

ChannelRange channels_of(const enyx_hw_filter* filter) {
    if (filter == nullptr || (!filter->name && !filter->index)) {
        return {};
    }
    const std::optional<std::uint32_t> channel =
        filter->name ? kova::sim::channel_of(*filter->name) : filter->index;
    if (!channel || *channel >= kova::sim::kChannelCount) {
        return {.first = 0, .end = 0};
    }
    return {.first = *channel, .end = *channel + 1};
}

template <typename Descriptor>
int enumerate_streams(std::string_view kind, enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
                      Descriptor** descriptors, std::size_t capacity) {
    if (accelerator == nullptr || descriptors == nullptr) {
        errno = EINVAL;
        return -1;
    }
    const ChannelRange channels = channels_of(filter);
    std::size_t stored = 0;
    for (std::uint32_t channel = channels.first; channel < channels.end && stored < capacity; ++channel) {
        descriptors[stored] = create(kind, Descriptor{accelerator, channel});
        if (descriptors[stored] == nullptr) {
            destroy_all(kind, descriptors, stored);
            return -1;
        }
        ++stored;
    }
    if (stored == 0) {
        errno = ENOENT;
    }
    return static_cast<int>(stored);
}

inline int poll(enyx_hw_a2c_stream& stream, enyx_hw_a2c_handler handler, void* opaque) {
    const int result = stream.stream->poll(
        [handler, opaque](const std::uint8_t* message, std::uint32_t size) { handler(message, size, opaque); });
    if (result < 0) [[unlikely]] {
        errno = EIO;
    }
    return result;
}

// Apart from the poll that nobody watches, so that it does not weigh on that one.
[[gnu::cold, gnu::noinline]] int poll_watched(enyx_hw_a2c_stream& stream, enyx_hw_a2c_handler handler,
                                              void* opaque) {
    return must_fail("enyx_hw_a2c_stream_poll_once") ? -1 : poll(stream, handler, opaque);
}

}  // namespace

enyx_hw_filter* enyx_hw_filter_create(void) {
    if (must_fail("enyx_hw_filter_create")) {
        return nullptr;
    }
    return create("filter", enyx_hw_filter{});
}

int enyx_hw_filter_set_index(enyx_hw_filter* filter, uint32_t index) {
    if (must_fail("enyx_hw_filter_set_index", index)) {
        return -1;
    }
    filter->index = index;
    return 0;
}

int enyx_hw_filter_set_name(enyx_hw_filter* filter, const char* name) {
    if (must_fail("enyx_hw_filter_set_name", name)) {
        return -1;
    }
    return unless_out_of_memory(
        [filter, name] {
            filter->name = name;
            return 0;
        },
        -1);
}

void enyx_hw_filter_destroy(enyx_hw_filter* filter) {
    note("enyx_hw_filter_destroy");
    destroy("filter", filter);
}

int enyx_hw_enumerate_accelerators(const enyx_hw_filter* filter, enyx_hw_accelerator_descriptor** descriptors,
                                   size_t capacity) {
    if (must_fail("enyx_hw_enumerate_accelerators", capacity)) {
        return -1;
    }
    const bool has_index = filter != nullptr && filter->index.has_value();
    const std::uint32_t first = has_index ? *filter->index : 0;
    const std::uint32_t end = has_index ? first + 1 : kMostCards;
    std::size_t stored = 0;
    for (std::uint32_t index = first; index < end && stored < capacity; ++index) {
        const int result = store_accelerator(index, descriptors, stored);
        if (result < 0) {
            destroy_all("accelerator_descriptor", descriptors, stored);
            return -1;
        }
        stored += static_cast<std::size_t>(result);
    }
    return static_cast<int>(stored);
}

void enyx_hw_free_accelerator_descriptors(enyx_hw_accelerator_descriptor** descriptors, size_t count) {
    note("enyx_hw_free_accelerator_descriptors", count);
    destroy_all("accelerator_descriptor", descriptors, count);
}

enyx_hw_accelerator* enyx_hw_accelerator_get(const enyx_hw_accelerator_descriptor* descriptor) {
    if (must_fail("enyx_hw_accelerator_get")) {
        return nullptr;
    }
    AttachedCard card = kova::sim::attach(descriptor->index);
    if (card == nullptr) {
        return nullptr;
    }
    return unless_out_of_memory([&] { return accelerator_of(descriptor->index, std::move(card)); });
}

int enyx_hw_accelerator_enumerate_mmios(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
                                        enyx_hw_mmio_descriptor** descriptors, size_t capacity) {
    if (must_fail("enyx_hw_accelerator_enumerate_mmios", capacity)) {
        return -1;
    }
    const bool means_first = filter == nullptr || filter->index.value_or(0) == 0;
    if (!means_first || capacity == 0) {
        errno = ENOENT;
        return 0;
    }
    descriptors[0] = create("mmio_descriptor", enyx_hw_mmio_descriptor{accelerator});
    return descriptors[0] != nullptr ? 1 : -1;
}

void enyx_hw_free_mmio_descriptors(enyx_hw_mmio_descriptor** descriptors, size_t count) {
    note("enyx_hw_free_mmio_descriptors", count);
    destroy_all("mmio_descriptor", descriptors, count);
}

enyx_hw_mmio* enyx_hw_mmio_create(const enyx_hw_mmio_descriptor* descriptor) {
    if (must_fail("enyx_hw_mmio_create")) {
        return nullptr;
    }
    AttachedCard card = card_of(*descriptor->accelerator);
    return card == nullptr ? nullptr : create("mmio", enyx_hw_mmio{std::move(card)});
}

void enyx_hw_mmio_destroy(enyx_hw_mmio* mmio) {
    note("enyx_hw_mmio_destroy");
    destroy("mmio", mmio);
}

int enyx_hw_accelerator_enumerate_a2c_streams(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
                                              enyx_hw_a2c_stream_descriptor** descriptors, size_t capacity) {
    if (must_fail("enyx_hw_accelerator_enumerate_a2c_streams", capacity)) {
        return -1;
    }
    return enumerate_streams("a2c_stream_descriptor", accelerator, filter, descriptors, capacity);
}

void enyx_hw_free_a2c_stream_descriptors(enyx_hw_a2c_stream_descriptor** descriptors, size_t count) {
    note("enyx_hw_free_a2c_stream_descriptors", count);
    destroy_all("a2c_stream_descriptor", descriptors, count);
}

enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(const enyx_hw_a2c_stream_descriptor* descriptor, const void*) {
    if (must_fail("enyx_hw_a2c_stream_create", descriptor->channel)) {
        return nullptr;
    }
    const AttachedCard card = card_of(*descriptor->accelerator);
    auto stream = card == nullptr ? nullptr : kova::sim::CardToHostStream::open(card, descriptor->channel);
    return stream == nullptr ? nullptr : create("a2c_stream", enyx_hw_a2c_stream{std::move(stream)});
}

int enyx_hw_a2c_stream_get_mtu(enyx_hw_a2c_stream* stream, uint32_t* mtu) {
    if (must_fail("enyx_hw_a2c_stream_get_mtu")) {
        return -1;
    }
    *mtu = stream->stream->mtu();
    return 0;
}

int enyx_hw_a2c_stream_poll_once(enyx_hw_a2c_stream* stream, enyx_hw_a2c_handler handler, void* opaque) {
    if (kova::sim::SdkCalls::is_watched()) [[unlikely]] {
        return poll_watched(*stream, handler, opaque);
    }
    return poll(*stream, handler, opaque);
}

void enyx_hw_a2c_stream_destroy(enyx_hw_a2c_stream* stream) {
    note("enyx_hw_a2c_stream_destroy");
    destroy("a2c_stream", stream);
}

int enyx_hw_accelerator_enumerate_c2a_streams(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter,
                                              enyx_hw_c2a_stream_descriptor** descriptors, size_t capacity) {
    if (must_fail("enyx_hw_accelerator_enumerate_c2a_streams", capacity)) {
        return -1;
    }
    return enumerate_streams("c2a_stream_descriptor", accelerator, filter, descriptors, capacity);
}

void enyx_hw_free_c2a_stream_descriptors(enyx_hw_c2a_stream_descriptor** descriptors, size_t count) {
    note("enyx_hw_free_c2a_stream_descriptors", count);
    destroy_all("c2a_stream_descriptor", descriptors, count);
}

enyx_hw_c2a_stream* enyx_hw_c2a_stream_create(const enyx_hw_c2a_stream_descriptor* descriptor, const void*) {
    if (must_fail("enyx_hw_c2a_stream_create", descriptor->channel)) {
        return nullptr;
    }
    const AttachedCard card = card_of(*descriptor->accelerator);
    auto stream = card == nullptr ? nullptr : kova::sim::HostToCardStream::open(card, descriptor->channel);
    return stream == nullptr ? nullptr : create("c2a_stream", enyx_hw_c2a_stream{std::move(stream)});
}

int enyx_hw_c2a_stream_get_mtu(enyx_hw_c2a_stream* stream, uint32_t* mtu) {
    if (must_fail("enyx_hw_c2a_stream_get_mtu")) {
        return -1;
    }
    *mtu = stream->stream->mtu();
    return 0;
}

int enyx_hw_c2a_stream_send(enyx_hw_c2a_stream* stream, const void* data, uint32_t size) {
    if (must_fail("enyx_hw_c2a_stream_send", size)) {
        return -1;
    }
    const int error = stream->stream->send(data, size);
    if (error != 0) {
        errno = error;
    }
    return error == 0 ? 0 : -1;
}

void enyx_hw_c2a_stream_destroy(enyx_hw_c2a_stream* stream) {
    note("enyx_hw_c2a_stream_destroy");
    destroy("c2a_stream", stream);
}
