/** What the SDK's opaque types are on the simulated card. Only the two stand-ins know. */
#ifndef KOVA_SIM_CARD_SDK_OBJECTS_H
#define KOVA_SIM_CARD_SDK_OBJECTS_H

#include <cerrno>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "enyx_hw.h"
#include "sim/card/attached_card.h"
#include "sim/card/out_of_memory.h"
#include "sim/card/sdk_calls.h"

struct enyx_hw_filter {
    std::optional<std::uint32_t> index;
    std::optional<std::string> name;
};

struct enyx_hw_accelerator_descriptor {
    std::uint32_t index;
};

struct enyx_hw_accelerator {
    std::uint32_t index;
    kova::sim::AttachedCard card;
};

struct enyx_hw_mmio_descriptor {
    enyx_hw_accelerator* accelerator;
};

struct enyx_hw_mmio {
    kova::sim::AttachedCard card;
};

struct enyx_hw_core {
    kova::sim::CardMemory* memory;
    enyx_hw_core* register_core;  // of the root: the core with the registers; null in that one
};

struct enyx_hw_core_tree {
    kova::sim::AttachedCard card;
    enyx_hw_core root;
    enyx_hw_core registers;
};

struct enyx_hw_a2c_stream_descriptor {
    enyx_hw_accelerator* accelerator;
    std::uint32_t channel;
};

struct enyx_hw_c2a_stream_descriptor {
    enyx_hw_accelerator* accelerator;
    std::uint32_t channel;
};

namespace kova::sim {

inline std::string text_of(std::string_view value) {
    return std::string(value);
}
inline std::string text_of(std::uint64_t value) {
    return std::to_string(value);
}

/** What must_fail does while somebody watches. Apart, so that its text does not weigh on an unwatched poll. */
template <typename... Arguments>
[[nodiscard, gnu::cold, gnu::noinline]] bool must_watched_call_fail(std::string_view function,
                                                                    const Arguments&... arguments) {
    const auto enter = [&] {
        std::string text;
        if (SdkCalls::is_recording_calls()) {
            ((text += (text.empty() ? "" : ", ") + text_of(arguments)), ...);
        }
        return SdkCalls::of_this_process().enter(function, text);
    };
    const int error = unless_out_of_memory(enter, ENOMEM);
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

/** Notes a call for whoever watches; true when it has to fail, errno set. */
template <typename... Arguments>
[[nodiscard]] bool must_fail(std::string_view function, const Arguments&... arguments) {
    return SdkCalls::is_watched() && must_watched_call_fail(function, arguments...);
}

/** The same for a call that cannot fail. */
template <typename... Arguments>
void note(std::string_view function, const Arguments&... arguments) {
    static_cast<void>(must_fail(function, arguments...));
}

/** A new object, counted as alive. Null and ENOMEM when there is no memory for it. */
template <typename Object>
[[nodiscard]] Object* create(std::string_view kind, Object&& value) {
    return unless_out_of_memory([&] {
        auto object = std::make_unique<Object>(std::move(value));
        SdkCalls::of_this_process().created(kind);
        return object.release();
    });
}

template <typename Object>
void destroy(std::string_view kind, Object* object) {
    if (object != nullptr) {
        delete object;
        SdkCalls::of_this_process().destroyed(kind);
    }
}

/** Frees what an enumeration stored. */
template <typename Descriptor>
void destroy_all(std::string_view kind, Descriptor** descriptors, std::size_t count) {
    for (std::size_t i = 0; descriptors != nullptr && i < count; ++i) {
        destroy(kind, std::exchange(descriptors[i], nullptr));
    }
}

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_SDK_OBJECTS_H
