#include "bench/sdk_registers.h"

#include <stdexcept>

#include "bench/sdk_stream.h"

namespace kova::bench {

namespace {

constexpr std::uint16_t kRegisterCore = 474;

enyx_hw_mmio* open_mmio(enyx_hw_accelerator* accelerator) {
    enyx_hw_mmio_descriptor* descriptor = nullptr;
    if (enyx_hw_accelerator_enumerate_mmios(accelerator, nullptr, &descriptor, 1) != 1) {
        return nullptr;
    }
    enyx_hw_mmio* mmio = enyx_hw_mmio_create(descriptor);
    enyx_hw_free_mmio_descriptors(&descriptor, 1);
    return mmio;
}

}  // namespace

SdkRegisters::SdkRegisters(std::uint32_t card) : mmio_(open_mmio(open_accelerator(card))) {
    tree_ = mmio_ != nullptr ? enyx_hw_enumerate_cores(mmio_) : nullptr;
    if (tree_ == nullptr ||
        enyx_hw_core_enumerate(enyx_hw_core_tree_get_root(tree_), kRegisterCore, &core_, 1) != 1) {
        throw std::runtime_error("the card's registers cannot be opened");
    }
}

SdkRegisters::~SdkRegisters() {
    enyx_hw_mmio_destroy(mmio_);
    enyx_hw_destroy_tree(tree_);
}

}  // namespace kova::bench
