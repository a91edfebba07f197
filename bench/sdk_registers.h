/** The registers of a card through the SDK's calls and nothing else. */
#ifndef KOVA_BENCH_SDK_REGISTERS_H
#define KOVA_BENCH_SDK_REGISTERS_H

#include <enyx_hw.h>

#include <cstdint>

namespace kova::bench {

/** Opened as the library opens them. Throws std::runtime_error when they cannot be. */
class SdkRegisters {
 public:
    explicit SdkRegisters(std::uint32_t card);
    ~SdkRegisters();
    SdkRegisters(const SdkRegisters&) = delete;
    SdkRegisters& operator=(const SdkRegisters&) = delete;

    void write(std::uint32_t number, std::uint32_t value) const {
        const enyx_hw_register_description description = describe(number);
        enyx_hw_core_lock(core_);
        enyx_hw_write(core_, &description, value);
        enyx_hw_core_unlock(core_);
    }
    std::uint32_t read(std::uint32_t number) const {
        const enyx_hw_register_description description = describe(number);
        std::uint64_t value = 0;
        enyx_hw_core_lock(core_);
        enyx_hw_read(core_, &description, &value);
        enyx_hw_core_unlock(core_);
        return static_cast<std::uint32_t>(value);
    }

 private:
    static constexpr enyx_hw_register_description describe(std::uint32_t number) {
        return {.byte_offset = std::uint64_t{number} * 4, .bit_offset = 0, .bit_size = 32};
    }

    enyx_hw_mmio* mmio_ = nullptr;
    enyx_hw_core_tree* tree_ = nullptr;
    enyx_hw_core* core_ = nullptr;
};

}  // namespace kova::bench

#endif  // KOVA_BENCH_SDK_REGISTERS_H
