// The receive path: everything here runs for every call or every quote, and nothing else does.
//
//     KovaRecv -> CDrvDMAEnyx::RecvOnce -> SDK poll -> _MdHandler -> OnKovaShfeMd, or the caller's buffer
//
// No lock, no allocation, no system call, no line. What is rare stands in ReceiveCold.cpp, so that neither its
// code nor its buffers weigh on this.

#include <cstddef>
#include <cstring>

#include "engine/KovaShfeMdApiImpl.h"

namespace {

/** Kind of a message, which may lie anywhere. */
inline uint32_t DmaTypeOf(const unsigned char* msg) {
    uint32_t nDmaType;
    std::memcpy(&nDmaType, msg, sizeof(nDmaType));
    return nDmaType;
}

}  // namespace

int32_t CKovaShfeMdApiImpl::KovaRecvStart(CKovaShfeMdSpi& refKovaShfeMdSpi, const char* lpConfig) {
    if (KovaStart(refKovaShfeMdSpi, lpConfig) != 0) {
        return -1;
    }
    while (KovaRecv() != -1) {
    }
    return 0;
}

int32_t CKovaShfeMdApiImpl::KovaRecv() {
    if (_IsStopping()) [[unlikely]] {
        return _RecvStopped();
    }
    if (_IsBringUpDue() && _BringUpAgain() != 0) [[unlikely]] {
        return -1;
    }
    return _PollOnce();
}

int32_t CKovaShfeMdApiImpl::KovaRecv(KovaShfeMdType& refSKovaShfeMd) {
    if (_IsStopping()) [[unlikely]] {
        return _RecvStopped();
    }
    if (_IsBringUpDue() && _BringUpAgain() != 0) [[unlikely]] {
        return -1;
    }
    m_u50UserData.lpMdData = &refSKovaShfeMd;
    return _PollOnce();
}

inline int32_t CKovaShfeMdApiImpl::_PollOnce() {
    m_u50UserData.isQuote = false;
    m_drvDMAEnyx.RecvOnce(reinterpret_cast<void*>(&_MdHandler), &m_u50UserData);
    return m_u50UserData.isQuote ? 1 : 0;
}

void CKovaShfeMdApiImpl::_MdHandler(const unsigned char* msg, unsigned int, void* user_data) noexcept {
    if (user_data == nullptr) [[unlikely]] {
        return _LogDroppedMessage("user_data is nullptr");
    }
    U50UserData& refUserData = *static_cast<U50UserData*>(user_data);
    auto* lpMdApi = static_cast<CKovaShfeMdApiImpl*>(refUserData.lpMdApi);
    const uint32_t nDmaType = DmaTypeOf(msg);
    if (nDmaType != DMA_UDP) [[unlikely]] {
        if (nDmaType == DMA_EVENT) {
            lpMdApi->_HandleEvent(msg);
        }
        return;
    }
    const unsigned char* lpQuote = msg + offsetof(U50QuoteMessage, quote);
    if (refUserData.userDataType == CALL_BACK) [[likely]] {
        bool bSuccess = false;
        CKovaShfeMdSpi* lpMdSpi = lpMdApi->m_kovaShfeMdSpiOptional.GetData(bSuccess);
        if (!bSuccess) [[unlikely]] {
            return _LogDroppedMessage("refMdSpi is nullptr");
        }
        refUserData.isQuote = true;
        lpMdSpi->OnKovaShfeMd(reinterpret_cast<const KovaShfeMdType*>(lpQuote));
        return;
    }
    if (refUserData.userDataType != BUFF_FETCH) [[unlikely]] {
        return;
    }
    if (refUserData.lpMdData == nullptr) [[unlikely]] {
        return _LogDroppedMessage("lpMdData is nullptr");
    }
    std::memcpy(refUserData.lpMdData, lpQuote, sizeof(KovaShfeMdType));
    refUserData.isQuote = true;
}

void CKovaShfeMdApiImpl::_MdClearHandler(const unsigned char*, unsigned int, void*) noexcept {}
