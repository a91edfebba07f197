/**
 * The process-wide way to the card's registers.
 *
 * A register number is a word index: register 0x10 lies at byte 0x40 of the core. Reads and writes may come
 * from any thread of any process that has the card open: the SDK's core lock serialises them one by one.
 * Opening and closing is for one thread, while nobody reads or writes.
 */
#ifndef KOVA_PUBLIC_REG_DRV_REG_ENYX_H
#define KOVA_PUBLIC_REG_DRV_REG_ENYX_H

#include <enyx_hw.h>

#include <cstdint>

class CDrvRegEnyx {
 public:
    /** The only instance. It is never closed by the process's end: the SDK's objects end with the process. */
    static CDrvRegEnyx& GetInstance();

    CDrvRegEnyx(const CDrvRegEnyx&) = delete;
    CDrvRegEnyx& operator=(const CDrvRegEnyx&) = delete;

    /**
     * Opens the registers of the first core with this hardware identifier and resets the whole core tree.
     *
     * What was open before is closed first. The accelerator is the one of the first call for ever after.
     *
     * @param nBusId index of the accelerator.
     * @return 0, or -1 with a line that says why.
     */
    int Init(uint16_t nBusId, uint16_t nCoreId);

    /** The opened accelerator, opened now if it is not; null with a line that says why. Owned by the SDK. */
    enyx_hw_accelerator* GetHwAccelerator(uint16_t nBusId);

    /** Writes one register: 0, or -1 when nothing is open or the card refuses. */
    int WriteRegister(uint32_t reg, uint32_t value);

    /** Reads one register, 32 bits wide; `val` is untouched on failure: 0 or -1. */
    int ReadRegister(uint32_t reg, uint64_t& val);

    /** Reads one register; a failed read yields the value 0. Always 0: callers judge the value. */
    int ReadRegister(uint32_t reg, uint32_t& val);

    /** Closes register space and core tree; the accelerator stays. No access until the next Init. */
    void Destory();

 private:
    constexpr CDrvRegEnyx() = default;

    enyx_hw_accelerator* _DrvEnyxCoreGetAcc(uint16_t nBusId);
    enyx_hw_core* _GetCore(uint16_t nBusId, uint16_t nCoreId);

    enyx_hw_accelerator* m_lpHwAccelerator = nullptr;
    enyx_hw_core* m_lpHwCore = nullptr;
    enyx_hw_mmio* m_lpMmio = nullptr;
    enyx_hw_core_tree* m_lpCoreTree = nullptr;
};

#endif  // KOVA_PUBLIC_REG_DRV_REG_ENYX_H
