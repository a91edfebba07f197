#include "snapshot/TcpSession.h"

#include <cstring>

#include "engine/KovaShfeMdApiImpl.h"

void ResetSession(tcp_session_t& refSession) noexcept {
    for (tcp_lost_buf_t* lpLostBuf = refSession.lost_buf_head; lpLostBuf != nullptr;) {
        tcp_lost_buf_t* lpNext = lpLostBuf->next;
        delete lpLostBuf;
        lpLostBuf = lpNext;
    }
    delete[] refSession.frag_buf;
    refSession = {};
}

void CKovaShfeMdApiImpl::_Cleandata(CKovaShfeMdApiImpl& refMdApi) noexcept {
    refMdApi.m_finishedMask.enabled_mask = 0;
    refMdApi.m_u50DstPort = {};
    refMdApi.m_u50InstCount = {};
    refMdApi.m_setPriceErrorInstId.clear();
    // An application may go on calling a stopped receiver in a loop, and the rest is 13 MB.
    if (!refMdApi.m_isSnapshotDirty) {
        return;
    }
    for (tcp_session_t& refSession : refMdApi.m_sessions) {
        ResetSession(refSession);
    }
    std::memset(&refMdApi.m_u50InstTable, 0, sizeof(refMdApi.m_u50InstTable));
    refMdApi.m_isSnapshotDirty = false;
}
