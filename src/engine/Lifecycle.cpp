// The engine from its construction to its end: start, stop, and everything a start does in its order.

#include <sched.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <new>

#include "engine/KovaShfeMdApiImpl.h"
#include "engine/NoThrow.h"
#include "log/CommonLog.h"
#include "wire/RegisterMap.h"

// With SOURCE_DATE_EPOCH in its environment the compiler takes date and time from there.
const CUstCharArray<1024> KOVA_U50_VERSION(__DATE__ " " __TIME__ " V1.1.1.33");

namespace {

/** Name of a channel's pair of streams on the card. */
CFPGADMANameType StreamName(int32_t nChannelId) {
    CFPGADMANameType refDMAName("CUSTOM_CHAN");
    refDMAName.Append(nChannelId).Append("_DATA");
    return refDMAName;
}

}  // namespace

CKovaShfeMdApi* CKovaShfeMdApi::CreateKovaShfeMdApi() {
    return new (std::nothrow) CKovaShfeMdApiImpl();
}

void CKovaShfeMdApi::DestroyKovaShfeMdApi(CKovaShfeMdApi& refKovaShfeMdApi) {
    // To the compiler a reference is never null: it would drop the test of its address that delete makes.
    CKovaShfeMdApi* volatile lpKovaShfeMdApi = std::addressof(refKovaShfeMdApi);
    delete lpKovaShfeMdApi;
}

CKovaShfeMdApiImpl::CKovaShfeMdApiImpl() noexcept
    : m_drvRegEnyx(CDrvRegEnyx::GetInstance()),
      m_writeDmaShot(*CWriteShot::GetInstance()),
      m_u50ConfigInfo(),
      m_u50InstTable(),
      m_u50InstCount(),
      m_sessions(),
      m_u50DstPort(),
      m_finishedMask() {}

CKovaShfeMdApiImpl::~CKovaShfeMdApiImpl() {
    for (tcp_session_t& refSession : m_sessions) {
        ResetSession(refSession);
    }
}

int32_t CKovaShfeMdApiImpl::KovaStart(CKovaShfeMdSpi& refKovaShfeMdSpi, const char* lpConfig) {
    if (lpConfig == nullptr) {
        std::printf("KovaStart error, lpConfig is nullptr");
        return -1;
    }
    std::atomic_ref<bool>(m_isStopflag).store(false, std::memory_order_relaxed);
    m_kovaShfeMdSpiOptional = CUSTOptional<CKovaShfeMdSpi>(refKovaShfeMdSpi);
    return _Start(lpConfig, CALL_BACK);
}

int32_t CKovaShfeMdApiImpl::KovaStart(const char* lpConfig) {
    if (lpConfig == nullptr) {
        KOVA_LOG(LOG_ERROR, "lpConfig is nullptr");
        return -1;
    }
    return _Start(lpConfig, BUFF_FETCH);
}

int32_t CKovaShfeMdApiImpl::KovaStop() {
    std::atomic_ref<bool>(m_isStopflag).store(true, std::memory_order_relaxed);
    return 0;
}

int32_t CKovaShfeMdApiImpl::_Start(const char* lpConfig, EUserDataType userDataType) {
    m_configFileName.UnSafeCopyFrom(lpConfig);
    m_u50UserData.lpMdApi = this;
    m_u50UserData.isQuote = false;
    m_u50UserData.userDataType = userDataType;
    if (CallNoThrow([this] { return Init(); }, -1) != 0) {
        KOVA_LOG_AS(LOG_ERROR, "KovaStart", "_Init error");
        return -2;
    }
    return 0;
}

int32_t CKovaShfeMdApiImpl::Init() {
    if (_ReadConfig() != 0) {
        std::puts("Init, _ReadConfig failed ");
        return -2;
    }
    KOVA_LOG(LOG_INFO, "KOVA_U50_VERSION[%s]", KOVA_U50_VERSION.data());
    CSignalProcess::InitSignal();
    CCommonLog::GetInstance()->SetLogLevel(m_u50ConfigInfo.log_level);
    _BindCpu();
    const uint16_t nBusId = static_cast<uint16_t>(m_u50ConfigInfo.bus_id);
    if (m_drvRegEnyx.Init(nBusId, REGISTER_CORE_ID) != 0) {
        KOVA_LOG(LOG_ERROR, "Reg Init failed");
        return -4;
    }
    if (m_drvDMAEnyx.Init(nBusId, StreamName(m_u50ConfigInfo.channel_id)) != 0) {
        KOVA_LOG(LOG_ERROR, "DMA Init failed");
        return -3;
    }
    _LogFpgaBuild();
    return _ChechAndKovaSubDmaUp();
}

int32_t CKovaShfeMdApiImpl::_BindCpu() {
    const int32_t nCpu = m_u50ConfigInfo.cpucore;
    if (nCpu == -1) {
        KOVA_LOG(LOG_WARNING, "could not set CPU[%d] affinity", nCpu);
        return -1;
    }
    cpu_set_t cpuSet;
    CPU_ZERO(&cpuSet);
    // A core that the set has no place for leaves it empty, and the kernel refuses the empty set.
    if (static_cast<uint32_t>(nCpu) < CPU_SETSIZE) {
        CPU_SET(static_cast<size_t>(nCpu), &cpuSet);
    }
    if (sched_setaffinity(0, sizeof(cpuSet), &cpuSet) != 0) {
        KOVA_LOG(LOG_WARNING, "set CPU[%d] affinity failed.", nCpu);
        return -1;
    }
    KOVA_LOG(LOG_DEBUG, "set CPU[%d] affinity successful.", nCpu);
    return 0;
}

void CKovaShfeMdApiImpl::_LogFpgaBuild() {
    const CLogLevelScope everything(LOG_EVERYTHING, m_u50ConfigInfo.log_level);
    uint32_t nBuildDate = 0;
    uint32_t nBuildVersion = 0;
    m_drvRegEnyx.ReadRegister(REG_BUILD_DATE, nBuildDate);
    m_drvRegEnyx.ReadRegister(REG_BUILD_VERSION, nBuildVersion);
    KOVA_LOG_AS(LOG_INFO, "Init", "FPGA COMPILE_DATE[%08x] COMPILE_VER[%08x]", nBuildDate, nBuildVersion);
}
