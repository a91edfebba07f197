/**
 * The pair of DMA streams of one channel: card to host, which carries quotes, events and snapshot segments,
 * and host to card.
 *
 * One object belongs to one thread, the one that receives.
 */
#ifndef KOVA_PUBLIC_DMA_DRV_DMA_ENYX_H
#define KOVA_PUBLIC_DMA_DRV_DMA_ENYX_H

#include <enyx_hw.h>

#include <cstdint>

#include "reg/DrvRegEnyx.h"
#include "util/UstCharArray.h"

class CDrvDMAEnyx final {
 public:
    CDrvDMAEnyx() noexcept;

    /** Closes the streams. */
    virtual ~CDrvDMAEnyx();

    CDrvDMAEnyx(const CDrvDMAEnyx&) = delete;
    CDrvDMAEnyx& operator=(const CDrvDMAEnyx&) = delete;

    /**
     * Opens both streams of this name; what was open before is closed first.
     *
     * A stream that was opened before a later step failed stays open until the next Init, Destory or the
     * destructor.
     *
     * @param nBusId index of the accelerator, used if none was opened yet.
     * @return 0, or -1 with a line that says why.
     */
    virtual int Init(uint16_t nBusId, const CFPGADMANameType& refDMAName);

    /** Sends one message to the card, at most the stream's MTU: 0, or -1 with a line that says why. */
    virtual int Send(const void* data, uint32_t nSize);

    /**
     * Polls the card once and never waits. Takes no lock, allocates nothing, writes no line.
     *
     * @param func enyx_hw_a2c_handler, called with the message where it lies, its length and `param`.
     * @return what the SDK's poll returned: messages handed over, or -1; -1 too when no stream is open.
     */
    virtual int RecvOnce(void* func, void* param) {
        if (m_lpA2c == nullptr) [[unlikely]] {
            return -1;
        }
        return enyx_hw_a2c_stream_poll_once(m_lpA2c, reinterpret_cast<enyx_hw_a2c_handler>(func), param);
    }

    /** Closes the streams; harmless when nothing is open. */
    virtual void Destory();

 private:
    int _InitDma(const CFPGADMANameType& refDMAName);
    void _CloseStreams() noexcept;

    enyx_hw_accelerator* m_lpAcc = nullptr;
    enyx_hw_a2c_stream* m_lpA2c = nullptr;
    enyx_hw_c2a_stream* m_lpC2a = nullptr;
    uint32_t m_nA2cMtu = 0;
    uint32_t m_nC2aMtu = 0;
    CDrvRegEnyx& m_drvRegEnyx;
};

#endif  // KOVA_PUBLIC_DMA_DRV_DMA_ENYX_H
