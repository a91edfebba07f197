#include "snapshot/TcpSegment.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/tcp.h>

#include <array>
#include <cstring>

#include "snapshot/TcpCheckSum.h"

namespace {

constexpr size_t ETHERNET_HEADER_SIZE = 14;
/** Of the checksum field, in the TCP header. */
constexpr size_t CHECK_OFFSET = 16;

/** Checksum over a segment too short to hold its checksum field, as far as that goes zeroed. */
uint16_t StubCheckSum(const STcpSegment& refSegment, uint64_t nPseudoHeader) {
    std::array<uint8_t, sizeof(tcphdr)> arrTcp = {};
    std::memcpy(arrTcp.data(), refSegment.lpTcp, refSegment.nTcpLength);
    arrTcp[CHECK_OFFSET] = 0;
    arrTcp[CHECK_OFFSET + 1] = 0;
    const uint64_t nSum = SumWords(arrTcp.data(), refSegment.nTcpLength);
    return static_cast<uint16_t>(~FoldSum(uint64_t{FoldSum(nSum)} + nPseudoHeader));
}

}  // namespace

size_t IpFrameEnd(const uint8_t* lpFrame) noexcept {
    uint16_t nIpLength;
    std::memcpy(&nIpLength, lpFrame + ETHERNET_HEADER_SIZE + offsetof(ip, ip_len), sizeof(nIpLength));
    return ETHERNET_HEADER_SIZE + ntohs(nIpLength);
}

STcpSegment ReadTcpSegment(const uint8_t* lpFrame, size_t nRoom) noexcept {
    ip ipHeader;
    std::memcpy(&ipHeader, lpFrame + ETHERNET_HEADER_SIZE, sizeof(ipHeader));
    const uint32_t nIpHeaderSize = 4 * ipHeader.ip_hl;
    const uint32_t nIpLength = ntohs(ipHeader.ip_len);
    tcphdr tcpHeader;
    const uint8_t* const lpTcp = lpFrame + ETHERNET_HEADER_SIZE + nIpHeaderSize;
    std::memcpy(&tcpHeader, lpTcp, sizeof(tcpHeader));
    const uint32_t nTcpHeaderSize = 4U * tcpHeader.doff;

    STcpSegment segment = {};
    segment.lpTcp = lpTcp;
    segment.nSrcHost = ipHeader.ip_src.s_addr;
    segment.nDstHost = ipHeader.ip_dst.s_addr;
    segment.nSeq = ntohl(tcpHeader.seq);
    segment.nSrcPort = ntohs(tcpHeader.source);
    segment.nDstPort = ntohs(tcpHeader.dest);
    segment.nCheck = tcpHeader.check;
    segment.nProtocol = ipHeader.ip_p;
    segment.isResetAck = tcpHeader.rst != 0 && tcpHeader.ack != 0;
    segment.isSound = nIpLength >= nIpHeaderSize + nTcpHeaderSize && ETHERNET_HEADER_SIZE + nIpLength <= nRoom;
    if (segment.isSound) {
        segment.nTcpLength = nIpLength - nIpHeaderSize;
        segment.lpPayload = lpTcp + nTcpHeaderSize;
        segment.nPayloadSize = segment.nTcpLength - nTcpHeaderSize;
    }
    return segment;
}

uint16_t SegmentCheckSum(const STcpSegment& refSegment) noexcept {
    // Addresses, protocol and length, as their bytes would lie in front of the segment.
    const uint64_t nPseudoHeader = uint64_t{refSegment.nSrcHost} + refSegment.nDstHost +
                                   htons(refSegment.nProtocol) +
                                   htons(static_cast<uint16_t>(refSegment.nTcpLength));
    if (refSegment.nTcpLength < sizeof(tcphdr)) {
        return StubCheckSum(refSegment, nPseudoHeader);
    }
    // The field itself counts as zero: to take it out of a one's-complement sum, add its complement.
    const uint64_t nSum = uint64_t{FoldSum(SumWords(refSegment.lpTcp, refSegment.nTcpLength))} +
                          static_cast<uint16_t>(~refSegment.nCheck) + nPseudoHeader;
    return static_cast<uint16_t>(~FoldSum(nSum));
}
