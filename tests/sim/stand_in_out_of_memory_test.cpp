// The SDK's C functions where memory runs out.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>

#include "enyx_hw.h"
#include "sim/card/card.h"
#include "sim/card/sdk_calls.h"
#include "support/allocations.h"

namespace kova::sim {
namespace {

constexpr std::uint32_t kCard = 0;
constexpr const char* kStreamName = "CUSTOM_CHAN3_DATA";  // longer than what a string holds by itself
constexpr int kThrew = -1;

template <auto kDestroy>
struct Destroyed {
    template <typename Object>
    void operator()(Object* object) const {
        kDestroy(object);
    }
};

template <auto kFree>
struct Freed {
    template <typename Descriptor>
    void operator()(Descriptor* descriptor) const {
        kFree(&descriptor, 1);
    }
};

template <typename Object, auto kDestroy>
using Owned = std::unique_ptr<Object, Destroyed<kDestroy>>;
template <typename Descriptor, auto kFree>
using OwnedDescriptor = std::unique_ptr<Descriptor, Freed<kFree>>;

using Filter = Owned<enyx_hw_filter, enyx_hw_filter_destroy>;

int access_register(enyx_hw_accelerator* accelerator) {
    enyx_hw_mmio_descriptor* found = nullptr;
    if (enyx_hw_accelerator_enumerate_mmios(accelerator, nullptr, &found, 1) != 1) {
        return errno;
    }
    const OwnedDescriptor<enyx_hw_mmio_descriptor, enyx_hw_free_mmio_descriptors> descriptor(found);
    const Owned<enyx_hw_mmio, enyx_hw_mmio_destroy> mmio(enyx_hw_mmio_create(descriptor.get()));
    if (mmio == nullptr) {
        return errno;
    }
    const Owned<enyx_hw_core_tree, enyx_hw_destroy_tree> tree(enyx_hw_enumerate_cores(mmio.get()));
    if (tree == nullptr) {
        return errno;
    }
    enyx_hw_core* const root = enyx_hw_core_tree_get_root(tree.get());
    enyx_hw_core* core = nullptr;
    if (root == nullptr || enyx_hw_core_enumerate(root, 474, &core, 1) != 1) {
        return errno;
    }
    const enyx_hw_register_description description{.byte_offset = 0x40, .bit_offset = 0, .bit_size = 32};
    std::uint64_t value = 0;
    enyx_hw_core_lock(core);
    const bool is_done =
        enyx_hw_write(core, &description, 5) == 0 && enyx_hw_read(core, &description, &value) == 0;
    const int error = errno;
    enyx_hw_core_unlock(core);
    return is_done ? 0 : error;
}

int receive(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter) {
    enyx_hw_a2c_stream_descriptor* found = nullptr;
    if (enyx_hw_accelerator_enumerate_a2c_streams(accelerator, filter, &found, 1) != 1) {
        return errno;
    }
    const OwnedDescriptor<enyx_hw_a2c_stream_descriptor, enyx_hw_free_a2c_stream_descriptors> descriptor(found);
    const Owned<enyx_hw_a2c_stream, enyx_hw_a2c_stream_destroy> stream(
        enyx_hw_a2c_stream_create(descriptor.get(), nullptr));
    return stream != nullptr && enyx_hw_a2c_stream_poll_once(stream.get(), nullptr, nullptr) == 0 ? 0 : errno;
}

int send(enyx_hw_accelerator* accelerator, const enyx_hw_filter* filter) {
    enyx_hw_c2a_stream_descriptor* found = nullptr;
    if (enyx_hw_accelerator_enumerate_c2a_streams(accelerator, filter, &found, 1) != 1) {
        return errno;
    }
    const OwnedDescriptor<enyx_hw_c2a_stream_descriptor, enyx_hw_free_c2a_stream_descriptors> descriptor(found);
    const Owned<enyx_hw_c2a_stream, enyx_hw_c2a_stream_destroy> stream(
        enyx_hw_c2a_stream_create(descriptor.get(), nullptr));
    const std::array<std::byte, 600> message{};  // several slots of the ring
    return stream != nullptr && enyx_hw_c2a_stream_send(stream.get(), message.data(), message.size()) == 0
               ? 0
               : errno;
}

// What a client does with a card; ends at the first call that fails. 0, or that call's errno.
int use_card() {
    const Filter filter(enyx_hw_filter_create());
    if (filter == nullptr || enyx_hw_filter_set_index(filter.get(), kCard) != 0 ||
        enyx_hw_filter_set_name(filter.get(), kStreamName) != 0) {
        return errno;
    }
    enyx_hw_accelerator_descriptor* found = nullptr;
    if (enyx_hw_enumerate_accelerators(filter.get(), &found, 1) != 1) {
        return errno;
    }
    const OwnedDescriptor<enyx_hw_accelerator_descriptor, enyx_hw_free_accelerator_descriptors> descriptor(
        found);
    enyx_hw_accelerator* const accelerator = enyx_hw_accelerator_get(descriptor.get());
    if (accelerator == nullptr) {
        return errno;
    }
    if (const int error = access_register(accelerator); error != 0) {
        return error;
    }
    if (const int error = receive(accelerator, filter.get()); error != 0) {
        return error;
    }
    return send(accelerator, filter.get());
}

struct Outcome {
    bool has_failed = false;      // the allocation that was to
    int error = 0;                // of the client then
    int error_afterwards = 0;     // and with memory again
    std::int64_t kept = 0;        // allocations, after both
    std::size_t kinds_alive = 0;  // of SDK objects
};

enum class Watched { kNo, kYes };

// A client in a process that has not used the SDK before, whose n-th allocation fails.
Outcome outcome_of_failure(std::uint64_t n, Watched watched) {
    int ends[2] = {-1, -1};
    EXPECT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        const Card card = Card::power_on_privately(kCard, {.slots_log2 = 6});
        Outcome outcome;
        const auto use = [] {
            try {
                return use_card();
            } catch (...) {
                return kThrew;
            }
        };
        if (watched == Watched::kYes) {
            SdkCalls::of_this_process().start_recording();
        }
        const std::int64_t before = kova::test::Allocations::alive();
        {
            const kova::test::Allocations::FailNth failure(n, kova::test::Allocations::Sdk::kCounted);
            outcome.error = use();
            outcome.has_failed = failure.has_failed();
        }
        outcome.error_afterwards = use();
        SdkCalls::of_this_process().stop();
        outcome.kept = kova::test::Allocations::alive() - before;
        outcome.kinds_alive = SdkCalls::of_this_process().kinds_alive().size();
        _exit(write(ends[1], &outcome, sizeof outcome) == sizeof outcome ? 0 : 1);
    }
    Outcome outcome;
    close(ends[1]);
    EXPECT_EQ(read(ends[0], &outcome, sizeof outcome), ssize_t{sizeof outcome}) << "allocation " << n;
    close(ends[0]);
    EXPECT_EQ(waitpid(child, nullptr, 0), child);
    return outcome;
}

// What the SDK keeps for the process's life, like accelerators, it keeps whether an allocation failed or not.
void expect_every_failure_to_be_told(Watched watched) {
    const Outcome without = outcome_of_failure(0, watched);
    EXPECT_EQ(without.error, 0);
    std::uint64_t n = 1;
    for (;; ++n) {
        const Outcome outcome = outcome_of_failure(n, watched);
        EXPECT_EQ(outcome.error_afterwards, 0) << "allocation " << n;
        EXPECT_EQ(outcome.kept, without.kept) << "allocation " << n;
        EXPECT_EQ(outcome.kinds_alive, 0U) << "allocation " << n;
        if (!outcome.has_failed) {
            break;
        }
        if (watched == Watched::kNo) {
            EXPECT_EQ(outcome.error, ENOMEM) << "allocation " << n;
        } else {
            // Calls that cannot fail are noted as well as memory allows.
            EXPECT_TRUE(outcome.error == ENOMEM || outcome.error == 0) << "allocation " << n;
        }
    }
    EXPECT_GT(n, 10U);
}

TEST(StandInOutOfMemory, EveryFunctionTellsAndLeavesNothingBehind) {
    expect_every_failure_to_be_told(Watched::kNo);
}

TEST(StandInOutOfMemory, EveryFunctionTellsWhileItsCallsAreRecorded) {
    expect_every_failure_to_be_told(Watched::kYes);
}

}  // namespace
}  // namespace kova::sim
