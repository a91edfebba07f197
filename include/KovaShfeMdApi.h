/**
 * Level-2 futures quotes of SHFE and INE from the FPGA card: the whole interface of libkova_u50.so.
 *
 * The life of a receiver, on one thread of the application's own:
 *
 *     CKovaShfeMdApi* api = CKovaShfeMdApi::CreateKovaShfeMdApi();
 *     if (api == nullptr) { ... out of memory ... }
 *     if (api->KovaStart(spi, "kova.ini") == 0) {
 *         while (api->KovaRecv() != -1) { }           // spins; each call polls the card once
 *     }
 *     CKovaShfeMdApi::DestroyKovaShfeMdApi(*api);
 *
 * The loop ends when any thread calls KovaStop(), or when the process receives SIGINT or SIGTERM: a start
 * installs handlers for both (and ignores SIGPIPE). No operation throws. The library starts no thread.
 *
 * The header compiles as C++11 and later. Its records and the order of its virtual operations are a binary
 * interface and never change within one SONAME.
 */
#ifndef KOVA_SHFE_MD_API_H
#define KOVA_SHFE_MD_API_H

#include <cstddef>
#include <cstdint>

#if defined(__GNUC__)
#define KOVA_SHFE_MD_EXPORT __attribute__((visibility("default")))
#else
#define KOVA_SHFE_MD_EXPORT
#endif

/**
 * One quote: the state of one instrument after one change, composed by the card and passed on unchanged.
 *
 * 176 bytes, little-endian, packed (`bid_amount` and everything behind it up to `ask_amount` is unaligned):
 *
 *     offset  0        4                20           24          26    28         32
 *             inst_no  inst_id[16]      update_time  milli_sec   type  change_no  last_px
 *     offset 36      40        48             56 ... 95            96 ... 135
 *             volume  turnover  open_interest  bid1..bid5 (px,vol)  ask1..ask5 (px,vol)
 *     offset 136         140         148         152         160         164        168
 *             bid_volume  bid_amount  ask_volume  ask_amount  high_price  low_price  max_inst_no
 *     offset 172             173
 *             last_tick_flag  reverse[3]
 *
 * The card defines the scale of prices and amounts, the library passes them on unchanged. Those of the
 * simulated card are hundredths of the exchange's, as the tables have them that a card starts from; its levels
 * without orders have price 0 and volume 0.
 */
#pragma pack(push, 1)
struct KovaShfeMdType {
    uint32_t inst_no;          /**< row of the instrument in its feed's contract table */
    char inst_id[16];          /**< instrument identifier, NUL-padded */
    uint32_t update_time;      /**< exchange time of the quote, in the card's encoding */
    uint16_t update_milli_sec; /**< milliseconds of that time, 0 to 999 */
    uint16_t type;             /**< kind of record, as the card sets it */
    uint32_t change_no;        /**< number of the change in the instrument's own stream; rises by one */
    int32_t last_px;           /**< last traded price */
    uint32_t volume;           /**< lots traded today */
    int64_t turnover;          /**< money traded today */
    int64_t open_interest;     /**< open lots */
    int32_t bid1_px;           /**< best bid price */
    uint32_t bid1_vol;         /**< best bid volume */
    int32_t bid2_px;
    uint32_t bid2_vol;
    int32_t bid3_px;
    uint32_t bid3_vol;
    int32_t bid4_px;
    uint32_t bid4_vol;
    int32_t bid5_px;
    uint32_t bid5_vol;
    int32_t ask1_px;   /**< best ask price */
    uint32_t ask1_vol; /**< best ask volume */
    int32_t ask2_px;
    uint32_t ask2_vol;
    int32_t ask3_px;
    uint32_t ask3_vol;
    int32_t ask4_px;
    uint32_t ask4_vol;
    int32_t ask5_px;
    uint32_t ask5_vol;
    uint32_t bid_volume;  /**< volume of all bids, also those deeper than five levels */
    int64_t bid_amount;   /**< price times volume of all bids; unaligned, copy it before taking its address */
    uint32_t ask_volume;  /**< volume of all asks */
    int64_t ask_amount;   /**< price times volume of all asks; unaligned */
    int32_t high_price;   /**< highest traded price of the day */
    int32_t low_price;    /**< lowest traded price of the day */
    uint32_t max_inst_no; /**< highest instrument number, as the card reports it */
    bool last_tick_flag;  /**< last-tick flag, as the card sets it */
    uint8_t reverse[3];   /**< reserved, zero */
};
#pragma pack(pop)

static_assert(sizeof(KovaShfeMdType) == 176, "the card writes 176 bytes");
static_assert(offsetof(KovaShfeMdType, update_time) == 20, "fixed by the card");
static_assert(offsetof(KovaShfeMdType, change_no) == 28, "fixed by the card");
static_assert(offsetof(KovaShfeMdType, turnover) == 40, "fixed by the card");
static_assert(offsetof(KovaShfeMdType, bid1_px) == 56, "fixed by the card");
static_assert(offsetof(KovaShfeMdType, ask1_px) == 96, "fixed by the card");
static_assert(offsetof(KovaShfeMdType, bid_amount) == 140, "fixed by the card");
static_assert(offsetof(KovaShfeMdType, ask_amount) == 152, "fixed by the card");
static_assert(offsetof(KovaShfeMdType, max_inst_no) == 168, "fixed by the card");
static_assert(offsetof(KovaShfeMdType, last_tick_flag) == 172, "fixed by the card");

/** What the application implements to be called with each quote (callback mode). */
class KOVA_SHFE_MD_EXPORT CKovaShfeMdSpi {
 public:
    /**
     * One quote, on the thread that runs KovaRecv() or KovaRecvStart(), inside that call.
     *
     * @param lpKovaShfeMd lies in the DMA buffer of the card and is valid only during the call: copy what is
     *        needed later. Never null.
     * @return ignored.
     *
     * It delays the next poll for as long as it runs and must not throw: an exception ends the process. It may
     * call KovaStop().
     */
    virtual int32_t OnKovaShfeMd(const KovaShfeMdType* lpKovaShfeMd) = 0;

    virtual ~CKovaShfeMdSpi() = default;
};

/**
 * A receiver of one card channel.
 *
 * One object, one channel, one process: registers, log and signal handlers exist once in a process, so a second
 * channel, and above all a second card, wants a process of its own. It is used by one thread: start and receive
 * on the same thread, since the start binds it to the configured core. KovaStop() alone may be called from any
 * thread.
 *
 * Two modes, chosen by the start and not to be mixed: callback (`KovaStart(spi, config)` or `KovaRecvStart`,
 * then `KovaRecv()`) and fetch (`KovaStart(config)`, then `KovaRecv(record)`).
 */
class KOVA_SHFE_MD_EXPORT CKovaShfeMdApi {
 public:
    /**
     * Creates a receiver; touches neither the card nor any file.
     *
     * @return the receiver, to be given back to DestroyKovaShfeMdApi; null when memory is exhausted.
     */
    static CKovaShfeMdApi* CreateKovaShfeMdApi();

    /**
     * Destroys a receiver and closes its stream. Call it after the receive loop has returned.
     *
     * @param refKovaShfeMdApi what CreateKovaShfeMdApi returned; a reference to nothing is ignored.
     */
    static void DestroyKovaShfeMdApi(CKovaShfeMdApi& refKovaShfeMdApi);

    /**
     * Starts in callback mode and receives until stopped, spinning on the calling thread.
     *
     * @param refKovaShfeMdSpi called with each quote; not owned, must outlive the loop.
     * @param lpConfig path of the configuration file (INI).
     * @return -1 if the start failed; otherwise 0 once the loop has ended.
     */
    virtual int32_t KovaRecvStart(CKovaShfeMdSpi& refKovaShfeMdSpi, const char* lpConfig) = 0;

    /**
     * Starts in callback mode: reads the configuration, opens the log, the card and the channel's stream, and
     * binds the calling thread to the configured core. Undoes an earlier KovaStop().
     *
     * @param refKovaShfeMdSpi called with each quote; not owned, must outlive the receiver's use of it.
     * @param lpConfig path of the configuration file (INI), cut to 255 characters.
     * @return 0 started; -1 `lpConfig` is null; -2 anything else, told in the log.
     */
    virtual int32_t KovaStart(CKovaShfeMdSpi& refKovaShfeMdSpi, const char* lpConfig) = 0;

    /**
     * Polls the card once in callback mode; never waits.
     *
     * @return 1 a quote was handed to the callback; 0 nothing, or something that is no quote; call again.
     *         -1 the receiver is stopped, or the card could not be brought up: leave the loop.
     */
    virtual int32_t KovaRecv() = 0;

    /**
     * Starts in fetch mode. Unlike the callback form it does not undo an earlier KovaStop().
     *
     * @param lpConfig as above.
     * @return as above.
     */
    virtual int32_t KovaStart(const char* lpConfig) = 0;

    /**
     * Polls the card once in fetch mode; never waits.
     *
     * @param refSKovaShfeMd receives the quote when the result is 1 and is untouched otherwise. Its address is
     *        kept until the next call of this operation, so it must outlive that.
     * @return as for KovaRecv().
     */
    virtual int32_t KovaRecv(KovaShfeMdType& refSKovaShfeMd) = 0;

    /**
     * Makes every following receive call return -1. Safe from any thread and from the callback.
     *
     * @return 0.
     */
    virtual int32_t KovaStop() = 0;

    virtual ~CKovaShfeMdApi() = default;
};

#endif  // KOVA_SHFE_MD_API_H
