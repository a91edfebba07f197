/**
 * The engine: one receiver of one card channel.
 *
 * Its operations stand in the order of its life, each section in files of its own:
 *
 *     1. Start and stop          engine/Lifecycle.cpp
 *     2. Receive                 engine/Receive.cpp           what runs for every call
 *                                engine/ReceiveCold.cpp       what a call does when it is not a quote
 *     3. Configuration           config/ReadConfig.cpp
 *     4. Bring-up                bringup/ChannelBringUp.cpp   the whole of it
 *                                bringup/InitFpga.cpp         the card and its snapshot
 *                                bringup/SysVersion.cpp       versions
 *     5. Snapshot                snapshot/TcpHandler.cpp      segments
 *                                snapshot/ParseMdqp.cpp       messages
 *                                snapshot/TcpSession.cpp      starting over
 *     6. Instruments             instruments/ContractTable.cpp
 *                                instruments/Subscription.cpp
 *                                instruments/StaticInfoFile.cpp
 *     7. Integrity               integrity/FpgaEvents.cpp     events of the card
 *                                integrity/PriceCheck.cpp     prices of the snapshot
 *
 * Everything runs on the application's receiving thread, except KovaStop() and the signal handler, which talk
 * to the loop through one flag each.
 */
#ifndef KOVA_ENGINE_KOVA_SHFE_MD_API_IMPL_H
#define KOVA_ENGINE_KOVA_SHFE_MD_API_IMPL_H

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "KovaShfeMdApi.h"
#include "bringup/MdPktCnt.h"
#include "config/U50ConfigInfo.h"
#include "crc/Crc32.h"
#include "dma/DrvDMAEnyx.h"
#include "engine/UserData.h"
#include "instruments/InstTable.h"
#include "reg/DrvRegEnyx.h"
#include "signal/SignalProcess.h"
#include "snapshot/DstPort.h"
#include "snapshot/SnapshotDirt.h"
#include "snapshot/TcpSegment.h"
#include "snapshot/TcpSession.h"
#include "util/USTOptional.h"
#include "util/UstCharArray.h"
#include "wire/DmaMessage.h"
#include "wire/Feed.h"
#include "wire/Mdqp.h"
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

    // One test each, without a branch between its terms: they run before every poll.
    [[nodiscard]] bool _IsStopping() noexcept {
        return (static_cast<int32_t>(CSignalProcess::IsExit()) |
                static_cast<int32_t>(std::atomic_ref<bool>(m_isStopflag).load(std::memory_order_relaxed))) != 0;
    }
    [[nodiscard]] bool _IsBringUpDue() const noexcept {
        static_assert(MANAGER_CHANNEL == 0);
        return (m_u50ConfigInfo.channel_id | static_cast<int32_t>(m_isAllInitFinished)) == 0;
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

    /** CRC-32C of the configuration file, start value as given: 0, or -1 to -5 with the line that says why. */
    int32_t _GetConfigCrc(uint32_t& configCrc);

    /** Whether the card was brought up with this configuration and receives without events. Takes 3 seconds. */
    bool _IsCardRunning(uint32_t configCrc);
    void _SamplePktCnt(U50MdPktCnt& refPktCnt);

    /** Brings the card up; `configCrc` 0 leaves the checksum that the card keeps: 0 or -1. */
    int32_t _KovaSubDmaUp(uint32_t configCrc);

    /** Begins new capture files if they are wanted. */
    void _StartCapture();
    int32_t _InitFpgaWithRetries();
    void _RememberConfigCrc(uint32_t configCrc);
    void _SubscribeChannels();
    void _WriteLimits();
    void _WriteModes();

    /** One attempt to initialise the card and to take its snapshot: 0; -1 given up, -2 no snapshot in time. */
    int _InitFpga();

    /** Whether the card's memory is ready after the time it is given. What the card sends meanwhile is
     * discarded.
     */
    bool _WaitForMemory();
    void _OpenSnapshot();
    void _WriteNetwork();
    void _WriteEachGroup(uint32_t nRegister, uint32_t nValue);
    void _WriteMulticasts();

    /** Writes the address of one multicast line, zeros for a disabled feed: 0, or -1 for a text without port.
     */
    int _SetRegIpAndPort(uint32_t ipReg, uint32_t portReg, const CAddressType& ipAndPort, bool isEnabled);
    int _WaitForSnapshot();

    /** Closes the tables for software and starts the feeds; always 0. */
    int _StartDmaUp();

    /** Whether library and card belong together: 0 or -1. */
    int Chk_SysVersion();
    void _WriteSoftVersion();
    bool _CheckHardwareVersion();
    bool _CheckVerdict();

    // 5. Snapshot.

    /**
     * Handler of the polls that wait for the snapshot; `user_data` is the engine. Takes one DMA message, of any
     * length and content. Nothing is thrown.
     */
    static void _TcpHandler(const unsigned char* lpPacket, unsigned int length, void* user_data);

    int32_t _TakeMessage(const uint8_t* lpPacket, uint32_t nLength);

    /** Writes the message into the capture files if they are wanted. */
    void _Capture(const uint8_t* lpPacket, uint32_t nLength);

    /** @param nRoom readable bytes; @param nLength length of the message, which may be more or less. */
    void _TakePacket(const uint8_t* lpPacket, uint32_t nRoom, uint32_t nLength);
    void _LogForeignMessage(const uint8_t* lpPacket) const;
    [[nodiscard]] bool _IsSnapshotPort(uint16_t nPort) const noexcept;

    /** Once every feed's snapshot is complete, checks it and writes it to the card; false: drop the segment. */
    bool _CompleteSnapshot();

    /** 0, or -1 when there is no memory. */
    static int _InitTcpSession(tcp_session_t& refSession, int dstPort);

    /** A segment of a connection that has shown no snapshot yet. */
    void _OpenSession(const STcpSegment& refSegment);

    /** Notes which feed's snapshot a session carries; false when nobody wants it. */
    bool _AcceptTopic(int32_t nTopicId, tcp_session_t& refSession);

    /** A segment of an open connection. */
    void _TakeSegment(const STcpSegment& refSegment, const uint8_t* lpFrame, uint32_t nLength);
    struct SDeliveryContext;

    /** Decodes a whole message, `length` + 8 bytes of memory: 0, or -1 when the port belongs to no feed. */
    static int _ParseMdqp(const mdqp_t* mdqp, unsigned short dstport, CKovaShfeMdApiImpl& refShfeMdApiImpl);

    /** The message that ended a feed's snapshot has been decoded. */
    void _FinishFeed(EMDQPDataType feed, uint16_t nPort);

    /** 1 when the feed's table has a row of this number or a lower one, 0 when not; tells the first time. */
    static int _ProtectInstNo(const EMDQPDataType& refMDQPDataType, int& inst_no);

    /** Row of an instrument, to be written; null when its feed's table has none. */
    [[nodiscard]] SInstTableType* _FindInstRow(EMDQPDataType feed, int32_t nInstNo);

    // A field whose body may reach past the message's end, which is null then.
    static void _DecodeInstInfo(const inst_info_t* lpInstInfo, EMDQPDataType feed,
                                CKovaShfeMdApiImpl& refShfeMdApiImpl);
    static void _DecodeDealInfo(const deal_info_t* lpDealInfo, EMDQPDataType feed,
                                CKovaShfeMdApiImpl& refShfeMdApiImpl);
    static void _DecodePriceDetail(const price_detail_t* lpPriceDetail, EMDQPDataType feed,
                                   CKovaShfeMdApiImpl& refShfeMdApiImpl, int dstport, bool isNewRun);
    static void _DecodeOrderStatistics(const order_statistics_info_t* lpOrderStatistics, EMDQPDataType feed,
                                       CKovaShfeMdApiImpl& refShfeMdApiImpl);

    // A whole field into its row; always 0.
    static int _FieldID0101(const inst_info_t& inst_info, const EMDQPDataType& refMDQPDataType,
                            CKovaShfeMdApiImpl& refShfeMdApiImpl);
    static int _FieldID0102(const deal_info_t& deal_info, const EMDQPDataType& refMDQPDataType,
                            CKovaShfeMdApiImpl& refShfeMdApiImpl);
    /** @param flag the first level of a run: the row's levels are emptied before. */
    static int _FieldID0103(const price_detail_t& price_detail, const EMDQPDataType& refMDQPDataType,
                            CKovaShfeMdApiImpl& refShfeMdApiImpl, int dstport, bool flag);
    static int _FieldID0104(const order_statistics_info_t& order_statistics,
                            const EMDQPDataType& refMDQPDataType, CKovaShfeMdApiImpl& refShfeMdApiImpl);
    static int _FieldID1004(const packet_no_t& packet_no, const EMDQPDataType& refMDQPDataType,
                            CKovaShfeMdApiImpl& refShfeMdApiImpl);
    void _TakeTradingDay(const char (&szActionDay)[9]);

    /** Throws away everything that was taken from the snapshot stream. Costs next to nothing when there is
     * nothing. */
    static void _Cleandata(CKovaShfeMdApiImpl& refMdApi) noexcept;

    /** To be called before anything is written anywhere into m_sessions or m_u50InstTable: _Cleandata skips
     * what m_snapshotDirt does not name. */
    void _MarkSnapshotDirty() noexcept;

    // 6. Instruments. Register arguments are one table's; counts and indices are rows.

    /** Writes all four tables to the card. */
    void _WriteContractTables();

    /** Writes one table to the card, rows from `instCount` on as zeros; always 0. */
    int _WriteContractTable(SInstTableType* refInstTable, bool isEnabled, uint32_t writeAddrReg,
                            uint32_t writeDataReg, int instCount, int instMaxCount);

    /** Makes the configured row wrong, when the configuration says so. */
    void _InjectFault(SInstTableType* refInstTable, int instCount);

    /** Makes the card send a channel exactly what its instrument list selects; always 0. */
    int _ContractSubscribeManager(int channelID);

    /** Rows in use of each exchange's tables, from the card, at most the tables' sizes. */
    void _ReadInstCounts(uint32_t& shfeInstCount, uint32_t& ineInstCount);
    void _SubscribePattern(EMDQPDataType feed2ps, EMDQPDataType feed4ps, int instCount, int channelID,
                           CUstCharArray<32>& refInstrument);

    /** Reads the rows back from the card and takes the channel out of them; always 0. */
    int _ContractUnsubscribe(SInstTableType* refInstTable, uint32_t readAddrReg, uint32_t readDataReg,
                             uint32_t writeAddrReg, uint32_t writeDataReg, int instCount, int channelID);

    /** Subscribes one row to the channel if the pattern selects it; always 0. */
    int _ContractSubscribe(SInstTableType* refInstTable, bool isEnabled, uint32_t readAddrReg,
                           uint32_t readDataReg, uint32_t writeAddrReg, uint32_t writeDataReg, int instIndex,
                           int channelID, CUstCharArray<32>& refInstrument);
    [[nodiscard]] bool _IsSubscribed(const SInstTableType& refRow, int channelID,
                                     const CUstCharArray<32>& refInstrument) const;

    /** Writes the file that lists the instruments: 0, or -1 with the line that says why. */
    int _InstStaticInfoWriteFile();

    /** Lists an exchange's instruments, if it has a complete snapshot; false when a line cannot be written. */
    bool _ListInstruments(FILE* lpFile, EMDQPDataType feed2ps, EMDQPDataType feed4ps, uint32_t nCount);

    /** Whether an identifier is that of a time-at-settlement instrument. */
    [[nodiscard]] static bool isShfeTasInst(const std::string& refShfeInstId);

    // 7. Integrity.

    /** Judges one event of the card; true when the card has lost its state, which is then forgotten here too.
     */
    bool _CheckLostUdpPktHandler(const U50Event& refEvent);

    /** Whether a feed's silence counts as lost packets: it does not in the regular breaks of the trading day.
     */
    [[nodiscard]] bool _IsTimeoutLost(const U50Event& refEvent);

    void _ForgetCardState();
    void _LogCardStatus();

    /** Checks the prices of every row of the snapshot: 0, or what the first bad row gave. */
    static int ShfePriceCheck(CKovaShfeMdApiImpl& refShfeMdApiImpl);

    /** Checks one row of a table: 0, or what CheckPrice gave. */
    static int ShfeInstPriceCheck(SInstTableType* PinstTable, int instIndex,
                                  CKovaShfeMdApiImpl& refShfeMdApiImpl);

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

    /** What _Cleandata has to clean. */
    SSnapshotDirt m_snapshotDirt;

    /** Memory ran out while the snapshot was taken. */
    bool m_isSnapshotFailed = false;
};

#endif  // KOVA_ENGINE_KOVA_SHFE_MD_API_IMPL_H
