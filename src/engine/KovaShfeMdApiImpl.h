/**
 * The engine: one receiver of one card channel.
 *
 * Its operations stand in the order of its life, each section in files of its own:
 *
 *     1. Start and stop          engine/Lifecycle.cpp
 *     2. Receive                 engine/Receive.cpp           what runs for every call
 *                                engine/ReceiveCold.cpp       what a call does when it is not a quote
 *     3. Configuration           config/ReadConfig.cpp
 *     4. Bring-up                bringup/ChannelBringUp.cpp
 *     5. Snapshot                snapshot/TcpSession.cpp
 *     6. Integrity               integrity/FpgaEvents.cpp
 *
 * Everything runs on the application's receiving thread, except KovaStop() and the signal handler, which talk
 * to the loop through one flag each.
 */
#ifndef KOVA_ENGINE_KOVA_SHFE_MD_API_IMPL_H
#define KOVA_ENGINE_KOVA_SHFE_MD_API_IMPL_H

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "KovaShfeMdApi.h"
#include "config/U50ConfigInfo.h"
#include "crc/Crc32.h"
#include "dma/DrvDMAEnyx.h"
#include "engine/UserData.h"
#include "instruments/InstTable.h"
#include "reg/DrvRegEnyx.h"
#include "signal/SignalProcess.h"
#include "snapshot/DstPort.h"
#include "snapshot/TcpSession.h"
#include "util/USTOptional.h"
#include "util/UstCharArray.h"
#include "wire/DmaMessage.h"
#include "write_shot/WriteShot.h"

/** Date and time of the build, and the version. */
extern const CUstCharArray<1024> KOVA_U50_VERSION;

/** The channel whose process programs the card. */
constexpr int32_t MANAGER_CHANNEL = 0;

/** Hardware identifier of the core that carries the registers. */
constexpr uint16_t REGISTER_CORE_ID = 474;

/** Far too large for a stack: it holds the instrument tables and the TCP sessions. Only the factory makes one.
 */
class CKovaShfeMdApiImpl final : public CKovaShfeMdApi, public CSignalProcess {
 public:
    /** Touches neither the card nor any file. */
    CKovaShfeMdApiImpl() noexcept;
    ~CKovaShfeMdApiImpl() override;

    CKovaShfeMdApiImpl(const CKovaShfeMdApiImpl&) = delete;
    CKovaShfeMdApiImpl& operator=(const CKovaShfeMdApiImpl&) = delete;

    int32_t KovaRecvStart(CKovaShfeMdSpi& refKovaShfeMdSpi, const char* lpConfig) override;
    int32_t KovaStart(CKovaShfeMdSpi& refKovaShfeMdSpi, const char* lpConfig) override;
    int32_t KovaRecv() override;
    int32_t KovaStart(const char* lpConfig) override;
    int32_t KovaRecv(KovaShfeMdType& refSKovaShfeMd) override;
    int32_t KovaStop() override;

 private:
    friend struct EngineAccess;

    // 1. Start and stop.

    /** What both starts do once the mode is set: 0 or -2, with the line that says so. */
    int32_t _Start(const char* lpConfig, EUserDataType userDataType);

    /** The start-up sequence: 0; -2 configuration, -3 stream, -4 registers; otherwise what the bring-up
     * returned. */
    int32_t Init();

    /** Binds the calling thread to the configured core: 0 or -1. A start goes on either way. */
    int32_t _BindCpu();

    /** Logs the card's build registers whatever the configured level. */
    void _LogFpgaBuild();

    // 2. Receive. The hot path is what stands here without `cold`.

    [[nodiscard]] bool _IsStopping() noexcept {
        return CSignalProcess::IsExit() || std::atomic_ref<bool>(m_isStopflag).load(std::memory_order_relaxed);
    }
    [[nodiscard]] bool _IsBringUpDue() const noexcept {
        return m_u50ConfigInfo.channel_id == MANAGER_CHANNEL && !m_isAllInitFinished;
    }
    int32_t _PollOnce();

    /** Handler of the receive loop's polls; `user_data` is the engine's U50UserData. */
    static void _MdHandler(const unsigned char* msg, unsigned int len, void* user_data) noexcept;

    /** Handler that discards what the stream holds. */
    static void _MdClearHandler(const unsigned char* msg, unsigned int len, void* user_data) noexcept;

    /** Forgets the snapshot; always -1. */
    [[gnu::cold, gnu::noinline]] int32_t _RecvStopped();

    /** Brings channel 0 up again after the card lost its state: 0 or -1. Nothing is thrown. */
    [[gnu::cold, gnu::noinline]] int32_t _BringUpAgain();

    [[gnu::cold, gnu::noinline]] void _HandleEvent(const unsigned char* msg);
    [[gnu::cold, gnu::noinline]] static void _LogDroppedMessage(const char* szReason);

    // 3. Configuration.

    /** Fills m_u50ConfigInfo from the file m_configFileName: 0, or -1 when it cannot be opened. */
    int32_t _ReadConfig();

    // 4. Bring-up.

    /** Brings the card up unless it already runs this very configuration: 0 or -1. Other channels: 0 at once.
     */
    int32_t _ChechAndKovaSubDmaUp();

    /** Brings the card up; `configCrc` 0 leaves the checksum that the card keeps: 0 or -1. */
    int32_t _KovaSubDmaUp(uint32_t configCrc);

    // 5. Snapshot.

    /** Throws away everything that was taken from the snapshot stream. Costs next to nothing when there is
     * nothing. */
    static void _Cleandata(CKovaShfeMdApiImpl& refMdApi) noexcept;

    /** To be called before anything is written into m_sessions or m_u50InstTable: without it _Cleandata skips
     * them. */
    void _MarkSnapshotDirty() noexcept { m_isSnapshotDirty = true; }

    // 6. Integrity.

    /** Judges one event of the card; true when the card has lost its state, which is then forgotten here too.
     */
    bool _CheckLostUdpPktHandler(const U50Event& refEvent);

    /** Whether a feed's silence counts as lost packets: it does not in the regular breaks of the trading day.
     */
    [[nodiscard]] bool _IsTimeoutLost(const U50Event& refEvent);

    void _ForgetCardState();
    void _LogCardStatus();

    CUSTOptional<CKovaShfeMdSpi> m_kovaShfeMdSpiOptional;
    CConfigFileNameType m_configFileName;
    CDrvDMAEnyx m_drvDMAEnyx;
    CDrvRegEnyx& m_drvRegEnyx;
    CCrc32 m_crc32;
    CWriteShot& m_writeDmaShot;
    U50ConfigInfo m_u50ConfigInfo;
    U50InstTable m_u50InstTable;
    bool m_isTcpInitFinished = false;
    bool m_isHBM2InitFinished = false;
    bool m_isAllInitFinished = false;
    U50InstCount m_u50InstCount;
    tcp_session_t m_sessions[TCP_SESSION_COUNT];
    U50DstPort m_u50DstPort;
    UEnabledMask m_finishedMask;
    int32_t m_tradingDay = 0;
    U50UserData m_u50UserData;
    int32_t m_u50InitCnt = 0;
    std::vector<std::string> m_VerReocrd;
    std::set<std::string> m_setPriceErrorInstId;
    bool m_isStopflag = false;

    /** Something may stand in m_sessions or m_u50InstTable. */
    bool m_isSnapshotDirty = false;
};

#endif  // KOVA_ENGINE_KOVA_SHFE_MD_API_IMPL_H
