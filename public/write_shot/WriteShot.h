/**
 * Capture files of the snapshot traffic, for diagnosis: a dump as text and a pcap file, in the working
 * directory.
 */
#ifndef KOVA_PUBLIC_WRITE_SHOT_WRITE_SHOT_H
#define KOVA_PUBLIC_WRITE_SHOT_WRITE_SHOT_H

#include <cstddef>
#include <cstdint>
#include <fstream>

/** First bytes of a pcap file, little-endian. */
struct PcapFileHeader {
    uint32_t magic_number = 0xA1B2C3D4; /**< time stamps in microseconds */
    uint16_t version_major = 2;
    uint16_t version_minor = 4;
    int32_t thiszone = 0;
    uint32_t sigfigs = 0;
    uint32_t snaplen = 65535;
    uint32_t network = 1; /**< Ethernet */
};
static_assert(sizeof(PcapFileHeader) == 24, "fixed by the file format");

/** What stands before each record of a pcap file. */
struct PcapPacketHeader {
    uint32_t ts_sec = 0;  /**< time of the host when it was written */
    uint32_t ts_usec = 0; /**< always 0 */
    uint32_t incl_len = 0;
    uint32_t orig_len = 0;
};
static_assert(sizeof(PcapPacketHeader) == 16, "fixed by the file format");

/**
 * The pair of capture files that is open. One thread only.
 *
 * Nothing here is reported back: a capture that fails must not disturb what is captured.
 */
class CWriteShot {
 public:
    /** The only one of the process. */
    static CWriteShot* GetInstance();

    CWriteShot(const CWriteShot&) = delete;
    CWriteShot& operator=(const CWriteShot&) = delete;

    /** Opens a new dump file and begins it with a line that says when; told in the log either way. */
    void CreateShotBinLog();

    /** Opens a new pcap file; a failure is told on standard error. */
    void CreateShotPcapLog();

    /** Adds one message to the dump: one line of hexadecimal bytes, flushed. */
    void WriteShotBinLog(const unsigned char* dma_data, size_t dma_len);

    /** Adds one frame to the pcap file; not flushed. */
    void WriteShotPcapLog(const unsigned char* dma_data, size_t dma_len);

    /** Closes the file if one is open. */
    void CloseShotBinLog();
    void CloseShotPcapLog();

    /** Number of captures begun so far, which is also the number in the open file's name. */
    [[nodiscard]] int32_t GetBinShotCnt() const { return m_bin_shot_cnt; }
    [[nodiscard]] int32_t GetPcapShotCnt() const { return m_pcap_shot_cnt; }

 private:
    CWriteShot() = default;
    ~CWriteShot() = default;

    std::ofstream m_dmaBinfileStream;
    std::ofstream m_dmaPcapfileStream;
    int32_t m_bin_shot_cnt = 0;
    int32_t m_pcap_shot_cnt = 0;
};

#endif  // KOVA_PUBLIC_WRITE_SHOT_WRITE_SHOT_H
