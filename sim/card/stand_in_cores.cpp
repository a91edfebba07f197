/** Stand-in for the SDK object of cores and registers, on the simulated card. */

#include "sim/card/registers.h"
#include "sim/card/sdk_objects.h"

namespace {

using kova::sim::CardLockScope;
using kova::sim::CardMemory;
using kova::sim::create;
using kova::sim::destroy;
using kova::sim::must_fail;
using kova::sim::note;
using kova::sim::RegisterAccess;
using kova::sim::SdkCalls;
using kova::sim::unless_out_of_memory;

constexpr std::uint32_t kRegisterBytes = 4;

bool is_on(const CardMemory& memory) {
    return memory.identity.power.load(std::memory_order_relaxed) == kova::sim::PowerState::kOn;
}

// Whether the description means one whole register of the card. errno says what is wrong with it.
bool is_register(const enyx_hw_core& core, const enyx_hw_register_description& description) {
    if (!is_on(*core.memory)) {
        errno = ENODEV;
        return false;
    }
    const bool is_whole = description.byte_offset % kRegisterBytes == 0 && description.bit_offset == 0 &&
                          (description.bit_size == 32 || description.bit_size == 64);
    const bool is_inside = description.byte_offset / kRegisterBytes < kova::sim::kRegisterCount;
    if (core.register_core != nullptr || !is_whole || !is_inside) {
        errno = EINVAL;
        return false;
    }
    return true;
}

// Whether the caller holds the lock, as it has to for an access; counts one without. Asked before the access
// takes the lock itself.
bool is_locked_by_caller(const enyx_hw_core& core) {
    const bool is_locked = kova::sim::is_held_here(core.memory->lock);
    if (!is_locked) {
        core.memory->lock.unprotected.fetch_add(1, std::memory_order_relaxed);
    }
    return is_locked;
}

// Notes an access for whoever watches; true when it has to fail, errno set.
bool must_fail_access(const RegisterAccess& access) {
    if (!SdkCalls::is_watched()) [[likely]] {
        return false;
    }
    const int error =
        unless_out_of_memory([&] { return SdkCalls::of_this_process().enter_register(access); }, ENOMEM);
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

}  // namespace

enyx_hw_core_tree* enyx_hw_enumerate_cores(enyx_hw_mmio* mmio) {
    if (must_fail("enyx_hw_enumerate_cores")) {
        return nullptr;
    }
    CardMemory* const memory = &mmio->card->memory();
    enyx_hw_core_tree* const tree = create(
        "core_tree",
        enyx_hw_core_tree{.card = mmio->card, .root = {memory, nullptr}, .registers = {memory, nullptr}});
    if (tree != nullptr) {
        tree->root.register_core = &tree->registers;
    }
    return tree;
}

enyx_hw_core* enyx_hw_core_tree_get_root(enyx_hw_core_tree* tree) {
    if (must_fail("enyx_hw_core_tree_get_root")) {
        return nullptr;
    }
    return &tree->root;
}

void enyx_hw_destroy_tree(enyx_hw_core_tree* tree) {
    note("enyx_hw_destroy_tree");
    destroy("core_tree", tree);
}

// Every client resets the tree when it opens the card, so a reset changes nothing that others work with.
int enyx_hw_core_reset(enyx_hw_core*) {
    return must_fail("enyx_hw_core_reset") ? -1 : 0;
}

int enyx_hw_core_enumerate(enyx_hw_core* root, uint16_t hardware_id, enyx_hw_core** cores, size_t capacity) {
    if (must_fail("enyx_hw_core_enumerate", hardware_id)) {
        return -1;
    }
    if (hardware_id != kova::sim::kRegisterCore || root->register_core == nullptr || capacity == 0) {
        return 0;
    }
    cores[0] = root->register_core;
    return 1;
}

void enyx_hw_core_lock(enyx_hw_core* core) {
    note("enyx_hw_core_lock");
    kova::sim::acquire(core->memory->lock);
}

void enyx_hw_core_unlock(enyx_hw_core* core) {
    note("enyx_hw_core_unlock");
    kova::sim::release(core->memory->lock);
}

int enyx_hw_write(enyx_hw_core* core, const enyx_hw_register_description* description, uint64_t value) {
    if (must_fail("enyx_hw_write", description->byte_offset, value) || !is_register(*core, *description)) {
        return -1;
    }
    const auto number = static_cast<std::uint32_t>(description->byte_offset / kRegisterBytes);
    const bool is_locked = is_locked_by_caller(*core);
    const RegisterAccess access{.is_write = true, .number = number, .value = value, .is_locked = is_locked};
    if (must_fail_access(access)) {
        return -1;
    }
    const CardLockScope scope(core->memory->lock);
    kova::sim::write_register(*core->memory, number, static_cast<std::uint32_t>(value));
    return 0;
}

int enyx_hw_read(enyx_hw_core* core, const enyx_hw_register_description* description, uint64_t* value) {
    if (must_fail("enyx_hw_read", description->byte_offset) || !is_register(*core, *description)) {
        return -1;
    }
    const auto number = static_cast<std::uint32_t>(description->byte_offset / kRegisterBytes);
    const bool is_locked = is_locked_by_caller(*core);
    const CardLockScope scope(core->memory->lock);
    std::uint64_t held = kova::sim::read_register(*core->memory, number);
    if (SdkCalls::is_watched()) [[unlikely]] {
        held = SdkCalls::of_this_process().answer(number, held);
    }
    *value = description->bit_size == 32 ? static_cast<std::uint32_t>(held) : held;
    const RegisterAccess access{.is_write = false, .number = number, .value = *value, .is_locked = is_locked};
    return must_fail_access(access) ? -1 : 0;
}
