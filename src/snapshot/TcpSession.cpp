#include "snapshot/TcpSession.h"

#include <cstddef>
#include <cstring>

#include "engine/KovaShfeMdApiImpl.h"
#include "instruments/FeedInfo.h"

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
    SSnapshotDirt& refDirt = refMdApi.m_snapshotDirt;
    for (uint32_t nPort = refDirt.nFirstPort; nPort < refDirt.nPortEnd; ++nPort) {
        ResetSession(refMdApi.m_sessions[nPort]);
    }
    auto* const lpRows = reinterpret_cast<SInstTableType*>(&refMdApi.m_u50InstTable);
    for (size_t i = 0; i < FEED_INFO.size(); ++i) {
        const auto nRowEnd = static_cast<size_t>(refDirt.arrRowEnd[i]);
        std::memset(lpRows + FEED_INFO[i].nFirstRow, 0, nRowEnd * sizeof(*lpRows));
    }
    refDirt = {};
}

void CKovaShfeMdApiImpl::_MarkSnapshotDirty() noexcept {
    for (size_t i = 0; i < FEED_INFO.size(); ++i) {
        m_snapshotDirt.AddRows(i, FEED_INFO[i].nRowCount);
    }
    m_snapshotDirt.AddSession(0);
    m_snapshotDirt.AddSession(TCP_SESSION_COUNT - 1);
}
