#include "write_shot/WriteShot.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <limits>

#include "log/CommonLog.h"

namespace {

constexpr size_t SHOT_TEXT_SIZE = 256;

/** Local date and time as they stand in names and headings. */
std::tm ShotTime() {
    const time_t tNow = std::time(nullptr);
    std::tm calendar{};
    localtime_r(&tNow, &calendar);
    calendar.tm_year += 1900;
    calendar.tm_mon += 1;
    return calendar;
}

/** The object's bytes as they lie in memory. */
template <typename T>
void WriteBytes(std::ofstream& refStream, const T& refObject) {
    refStream.write(reinterpret_cast<const char*>(&refObject), sizeof(T));
}

}  // namespace

CWriteShot* CWriteShot::GetInstance() {
    static CWriteShot writeShot;
    return &writeShot;
}

void CWriteShot::CreateShotBinLog() {
    const std::tm shotTime = ShotTime();
    ++m_bin_shot_cnt;
    char szName[SHOT_TEXT_SIZE] = {};
    std::snprintf(szName, sizeof(szName), "kova_u50_dma_%04d%02d%02d_%02d%02d%02d_%d.bin", shotTime.tm_year,
                  shotTime.tm_mon, shotTime.tm_mday, shotTime.tm_hour, shotTime.tm_min, shotTime.tm_sec,
                  m_bin_shot_cnt);

    CloseShotBinLog();
    m_dmaBinfileStream.open(szName, std::ios::out | std::ios::app);
    if (m_dmaBinfileStream.is_open()) {
        KOVA_LOG(LOG_INFO, "open dma file [%s] is success.", szName);
    } else {
        KOVA_LOG(LOG_INFO, "open dma file [%s] is fail.", szName);
    }

    // All of the buffer is written: readers of these files skip a heading of 256 bytes.
    char szHeading[SHOT_TEXT_SIZE] = {};
    std::snprintf(szHeading, sizeof(szHeading),
                  "***********Tcp shot start, %04d%02d%02d_%02d%02d%02d, shot cnt is %d.************",
                  shotTime.tm_year, shotTime.tm_mon, shotTime.tm_mday, shotTime.tm_hour, shotTime.tm_min,
                  shotTime.tm_sec, m_bin_shot_cnt);
    m_dmaBinfileStream.write(szHeading, sizeof(szHeading));
    m_dmaBinfileStream << std::endl;
}

void CWriteShot::CreateShotPcapLog() {
    const std::tm shotTime = ShotTime();
    ++m_pcap_shot_cnt;
    char szName[SHOT_TEXT_SIZE] = {};
    std::snprintf(szName, sizeof(szName), "kova_u50_dma_%04d%02d%02d_%02d%02d%02d_%d.pcap", shotTime.tm_year,
                  shotTime.tm_mon, shotTime.tm_mday, shotTime.tm_hour, shotTime.tm_min, shotTime.tm_sec,
                  m_pcap_shot_cnt);

    CloseShotPcapLog();
    m_dmaPcapfileStream.open(szName, std::ios::out | std::ios::binary);
    if (!m_dmaPcapfileStream.is_open()) {
        std::cerr << "Error opening file " << szName << std::endl;
        return;
    }
    WriteBytes(m_dmaPcapfileStream, PcapFileHeader{});
}

void CWriteShot::WriteShotBinLog(const unsigned char* dma_data, size_t dma_len) {
    constexpr const char* DIGITS = "0123456789abcdef";
    for (size_t i = 0; dma_data != nullptr && i < dma_len; ++i) {
        const char szByte[] = {' ', DIGITS[dma_data[i] >> 4], DIGITS[dma_data[i] & 15]};
        const bool isFirst = i == 0;
        m_dmaBinfileStream.write(szByte + (isFirst ? 1 : 0), isFirst ? 2 : 3);
    }
    m_dmaBinfileStream << std::endl;
}

void CWriteShot::WriteShotPcapLog(const unsigned char* dma_data, size_t dma_len) {
    if (!m_dmaPcapfileStream.is_open()) {
        std::cerr << "PCAP file is not open." << std::endl;
        return;
    }
    constexpr size_t MAX_LENGTH = std::numeric_limits<uint32_t>::max();
    const size_t nLength = dma_data == nullptr ? 0 : std::min(dma_len, MAX_LENGTH);
    PcapPacketHeader header;
    header.ts_sec = static_cast<uint32_t>(std::time(nullptr));
    header.incl_len = static_cast<uint32_t>(nLength);
    header.orig_len = header.incl_len;
    WriteBytes(m_dmaPcapfileStream, header);
    m_dmaPcapfileStream.write(reinterpret_cast<const char*>(dma_data), static_cast<std::streamsize>(nLength));
}

void CWriteShot::CloseShotBinLog() {
    if (m_dmaBinfileStream.is_open()) {
        m_dmaBinfileStream.close();
    }
}

void CWriteShot::CloseShotPcapLog() {
    if (m_dmaPcapfileStream.is_open()) {
        m_dmaPcapfileStream.close();
    }
}
