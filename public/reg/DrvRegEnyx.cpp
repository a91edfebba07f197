#include "reg/DrvRegEnyx.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>

#include "log/CommonLog.h"
#include "reg/HwHandles.h"

namespace {

using CHwAcceleratorDescriptorPtr =
    std::unique_ptr<enyx_hw_accelerator_descriptor, CHwFreeDescriptor<enyx_hw_free_accelerator_descriptors>>;
using CHwMmioDescriptorPtr =
    std::unique_ptr<enyx_hw_mmio_descriptor, CHwFreeDescriptor<enyx_hw_free_mmio_descriptors>>;
using CHwMmioPtr = std::unique_ptr<enyx_hw_mmio, CHwDestroy<enyx_hw_mmio_destroy>>;
using CHwCoreTreePtr = std::unique_ptr<enyx_hw_core_tree, CHwDestroy<enyx_hw_destroy_tree>>;

/** The SDK's core lock for one access. */
class CHwCoreLock {
 public:
    explicit CHwCoreLock(enyx_hw_core* lpCore) : m_lpCore(lpCore) { enyx_hw_core_lock(m_lpCore); }
    ~CHwCoreLock() { enyx_hw_core_unlock(m_lpCore); }
    CHwCoreLock(const CHwCoreLock&) = delete;
    CHwCoreLock& operator=(const CHwCoreLock&) = delete;

 private:
    enyx_hw_core* m_lpCore;
};

/** Register `reg` whole: 32 bits at four times its number. */
constexpr enyx_hw_register_description DescribeRegister(uint32_t reg) {
    return {.byte_offset = uint64_t{reg} * 4, .bit_offset = 0, .bit_size = 32};
}

std::mutex REG_mutex;

}  // namespace

CDrvRegEnyx& CDrvRegEnyx::GetInstance() {
    static constinit CDrvRegEnyx drvRegEnyx;
    return drvRegEnyx;
}

int CDrvRegEnyx::Init(uint16_t nBusId, uint16_t nCoreId) {
    Destory();
    m_lpHwCore = nullptr;
    if (_GetCore(nBusId, nCoreId) == nullptr) {
        KOVA_LOG(LOG_ERROR, "_GetCore is nullptr!");
        return -1;
    }
    return 0;
}

enyx_hw_accelerator* CDrvRegEnyx::GetHwAccelerator(uint16_t nBusId) {
    return _DrvEnyxCoreGetAcc(nBusId);
}

int CDrvRegEnyx::WriteRegister(uint32_t reg, uint32_t value) {
    if (m_lpHwCore == nullptr) {
        KOVA_LOG(LOG_ERROR, "m_lpHwCore is nullptr, please check if the CDrvRegEnyx has been initialized");
        return -1;
    }
    const enyx_hw_register_description description = DescribeRegister(reg);
    int nResult = -1;
    {
        const CHwCoreLock lock(m_lpHwCore);
        nResult = enyx_hw_write(m_lpHwCore, &description, value);
    }
    if (nResult != 0) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_write failed");
        return -1;
    }
    KOVA_LOG(LOG_DEBUG_EX, "0x%04x: wrote 0x%08x (%u)", reg, value, value);
    return 0;
}

int CDrvRegEnyx::ReadRegister(uint32_t reg, uint64_t& val) {
    if (m_lpHwCore == nullptr) {
        KOVA_LOG(LOG_ERROR, "m_lpHwCore is nullptr, please check if the CDrvRegEnyx has been initialized");
        return -1;
    }
    const enyx_hw_register_description description = DescribeRegister(reg);
    uint64_t nValue = 0;  // what a failing read leaves here is nobody's value
    int nResult = -1;
    {
        const CHwCoreLock lock(m_lpHwCore);
        nResult = enyx_hw_read(m_lpHwCore, &description, &nValue);
    }
    if (nResult != 0) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_read failed");
        return -1;
    }
    val = nValue;
    const uint32_t nLow = static_cast<uint32_t>(nValue);
    KOVA_LOG(LOG_DEBUG_EX, "0x%04x: read 0x%08x (%u)", reg, nLow, nLow);
    return 0;
}

int CDrvRegEnyx::ReadRegister(uint32_t reg, uint32_t& val) {
    uint64_t nValue = 0;
    ReadRegister(reg, nValue);
    val = static_cast<uint32_t>(nValue);
    return 0;
}

void CDrvRegEnyx::Destory() {
    const std::lock_guard lock(REG_mutex);
    if (m_lpMmio != nullptr) {
        enyx_hw_mmio_destroy(m_lpMmio);
        m_lpMmio = nullptr;
    }
    if (m_lpCoreTree != nullptr) {
        enyx_hw_destroy_tree(m_lpCoreTree);
        m_lpCoreTree = nullptr;
    }
}

enyx_hw_accelerator* CDrvRegEnyx::_DrvEnyxCoreGetAcc(uint16_t nBusId) {
    if (m_lpHwAccelerator != nullptr) {
        return m_lpHwAccelerator;
    }
    CHwFilterPtr filter(enyx_hw_filter_create());
    if (!filter) {
        KOVA_LOG(LOG_ERROR, "Could not create filter for DMA. err:%s", strerror(errno));
        return nullptr;
    }
    if (enyx_hw_filter_set_index(filter.get(), nBusId) != 0) {
        KOVA_LOG(LOG_ERROR, "Could not set filter id. err:%s", strerror(errno));
        return nullptr;
    }
    enyx_hw_accelerator_descriptor* lpDescriptor = nullptr;
    errno = 0;  // finding none is no error of the SDK's and may leave errno alone
    if (enyx_hw_enumerate_accelerators(filter.get(), &lpDescriptor, 1) != 1) {
        KOVA_LOG(LOG_ERROR, "Could not find accelerator. err:%s", strerror(errno));
        return nullptr;
    }
    const CHwAcceleratorDescriptorPtr descriptor(lpDescriptor);
    filter.reset();
    m_lpHwAccelerator = enyx_hw_accelerator_get(descriptor.get());
    if (m_lpHwAccelerator == nullptr) {
        KOVA_LOG(LOG_ERROR, "Could not get accelerator. err:%s", strerror(errno));
        return nullptr;
    }
    return m_lpHwAccelerator;
}

enyx_hw_core* CDrvRegEnyx::_GetCore(uint16_t nBusId, uint16_t nCoreId) {
    enyx_hw_accelerator* lpAccelerator = _DrvEnyxCoreGetAcc(nBusId);
    if (lpAccelerator == nullptr) {
        KOVA_LOG(LOG_ERROR, "Get accelerator Failed");
        return nullptr;
    }
    CHwFilterPtr filter(enyx_hw_filter_create());
    if (!filter) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_filter_create failed. err:%s", strerror(errno));
        return nullptr;
    }
    if (enyx_hw_filter_set_index(filter.get(), 0) != 0) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_filter_set_index failed. err:%s", strerror(errno));
        return nullptr;
    }
    enyx_hw_mmio_descriptor* lpDescriptor = nullptr;
    errno = 0;
    if (enyx_hw_accelerator_enumerate_mmios(lpAccelerator, filter.get(), &lpDescriptor, 1) != 1) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_accelerator_enumerate_mmios failed. err:%s", strerror(errno));
        return nullptr;
    }
    CHwMmioDescriptorPtr descriptor(lpDescriptor);
    filter.reset();

    // On every way out the register space goes before the tree, as in Destory: hence the order of the two
    // owners.
    CHwCoreTreePtr coreTree;
    CHwMmioPtr mmio(enyx_hw_mmio_create(descriptor.get()));
    if (!mmio) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_mmio_create failed. err:%s", strerror(errno));
        return nullptr;
    }
    descriptor.reset();
    coreTree.reset(enyx_hw_enumerate_cores(mmio.get()));
    if (!coreTree) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_enumerate_cores failed. err:%s", strerror(errno));
        return nullptr;
    }
    enyx_hw_core* lpRoot = enyx_hw_core_tree_get_root(coreTree.get());
    if (lpRoot == nullptr) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_core_tree_get_root failed. err:%s", strerror(errno));
        return nullptr;
    }
    enyx_hw_core_reset(lpRoot);
    enyx_hw_core* lpCore = nullptr;
    errno = 0;
    if (enyx_hw_core_enumerate(lpRoot, nCoreId, &lpCore, 1) < 1 || lpCore == nullptr) {
        KOVA_LOG(LOG_ERROR, "enyx_hw_core_enumerate failed. err:%s", strerror(errno));
        return nullptr;
    }
    m_lpMmio = mmio.release();
    m_lpCoreTree = coreTree.release();
    m_lpHwCore = lpCore;
    return m_lpHwCore;
}
