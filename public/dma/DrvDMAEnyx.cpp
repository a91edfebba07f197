#include "dma/DrvDMAEnyx.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>

#include "log/CommonLog.h"
#include "reg/HwHandles.h"

namespace {

using CHwA2cDescriptorPtr =
    std::unique_ptr<enyx_hw_a2c_stream_descriptor, CHwFreeDescriptor<enyx_hw_free_a2c_stream_descriptors>>;
using CHwC2aDescriptorPtr =
    std::unique_ptr<enyx_hw_c2a_stream_descriptor, CHwFreeDescriptor<enyx_hw_free_c2a_stream_descriptors>>;

std::mutex DMA_mutex;

}  // namespace

CDrvDMAEnyx::CDrvDMAEnyx() noexcept : m_drvRegEnyx(CDrvRegEnyx::GetInstance()) {}

CDrvDMAEnyx::~CDrvDMAEnyx() {
    _CloseStreams();
}

int CDrvDMAEnyx::Init(uint16_t nBusId, const CFPGADMANameType& refDMAName) {
    Destory();
    m_lpAcc = m_drvRegEnyx.GetHwAccelerator(nBusId);
    if (m_lpAcc == nullptr) {
        KOVA_LOG(LOG_ERROR, "GetHwAccelerator failed!");
        return -1;
    }
    if (_InitDma(refDMAName) != 0) {
        KOVA_LOG(LOG_ERROR, "Init DMA failed!");
        return -1;
    }
    KOVA_LOG(LOG_INFO, "Init DMA success! DMAName:%s", refDMAName.data());
    return 0;
}

int CDrvDMAEnyx::Send(const void* data, uint32_t nSize) {
    if (nSize > m_nC2aMtu) {
        KOVA_LOG(LOG_ERROR, "send error, exceed c2amtu, sendsize:%u, mtu:%u", nSize, m_nC2aMtu);
        return -1;
    }
    if (m_lpC2a == nullptr || enyx_hw_c2a_stream_send(m_lpC2a, data, nSize) != 0) {
        KOVA_LOG(LOG_ERROR, "send error, enyx_hw_c2a_stream_send failed, sendsize:%u, mtu:%u", nSize,
                 m_nC2aMtu);
        return -1;
    }
    return 0;
}

void CDrvDMAEnyx::Destory() {
    const std::lock_guard lock(DMA_mutex);
    _CloseStreams();
}

int CDrvDMAEnyx::_InitDma(const CFPGADMANameType& refDMAName) {
    CHwFilterPtr filter(enyx_hw_filter_create());
    if (!filter) {
        KOVA_LOG(LOG_ERROR, "Could not create dma filter. err:%s", strerror(errno));
        return -1;
    }
    if (enyx_hw_filter_set_name(filter.get(), refDMAName.data()) != 0) {
        KOVA_LOG(LOG_ERROR, "Could not set dma filter name: %s. err:%s", refDMAName.data(), strerror(errno));
        return -1;
    }

    enyx_hw_a2c_stream_descriptor* lpA2cDescriptor = nullptr;
    errno = 0;  // finding none is no error of the SDK's and may leave errno alone
    if (enyx_hw_accelerator_enumerate_a2c_streams(m_lpAcc, filter.get(), &lpA2cDescriptor, 1) != 1) {
        KOVA_LOG(LOG_ERROR, "Could not find a2c stream. err:%s", strerror(errno));
        return -1;
    }
    CHwA2cDescriptorPtr a2cDescriptor(lpA2cDescriptor);
    m_lpA2c = enyx_hw_a2c_stream_create(a2cDescriptor.get(), nullptr);
    if (m_lpA2c == nullptr) {
        KOVA_LOG(LOG_ERROR, "Could not create a2c stream. err:%s", strerror(errno));
        return -1;
    }
    a2cDescriptor.reset();

    enyx_hw_c2a_stream_descriptor* lpC2aDescriptor = nullptr;
    errno = 0;
    if (enyx_hw_accelerator_enumerate_c2a_streams(m_lpAcc, filter.get(), &lpC2aDescriptor, 1) != 1) {
        KOVA_LOG(LOG_ERROR, "Could not find c2a stream. err:%s", strerror(errno));
        return -1;
    }
    CHwC2aDescriptorPtr c2aDescriptor(lpC2aDescriptor);
    m_lpC2a = enyx_hw_c2a_stream_create(c2aDescriptor.get(), nullptr);
    if (m_lpC2a == nullptr) {
        KOVA_LOG(LOG_ERROR, "Could not create c2a stream. err:%s", strerror(errno));
        return -1;
    }
    c2aDescriptor.reset();
    filter.reset();

    if (enyx_hw_a2c_stream_get_mtu(m_lpA2c, &m_nA2cMtu) != 0) {
        KOVA_LOG(LOG_ERROR, "Could not get a2c mtu. err:%s", strerror(errno));
        return -1;
    }
    if (enyx_hw_c2a_stream_get_mtu(m_lpC2a, &m_nC2aMtu) != 0) {
        KOVA_LOG(LOG_ERROR, "Could not get c2a mtu. err:%s", strerror(errno));
        return -1;
    }
    return 0;
}

void CDrvDMAEnyx::_CloseStreams() noexcept {
    if (m_lpA2c != nullptr) {
        enyx_hw_a2c_stream_destroy(m_lpA2c);
        m_lpA2c = nullptr;
    }
    if (m_lpC2a != nullptr) {
        enyx_hw_c2a_stream_destroy(m_lpC2a);
        m_lpC2a = nullptr;
    }
    m_nA2cMtu = 0;
    m_nC2aMtu = 0;
}
