#include "bringup/NetworkAddress.h"

#include <arpa/inet.h>

#include <cstdio>

MacBytes ParseMac(const char* szMac) noexcept {
    MacBytes mac = {};
    // It stops at the first byte that it cannot read, and the rest keeps its zeros.
    static_cast<void>(std::sscanf(szMac, "%02x:%02x:%02x:%02x:%02x:%02x", &mac[0], &mac[1], &mac[2], &mac[3],
                                  &mac[4], &mac[5]));
    return mac;
}

uint32_t MacHighWord(const MacBytes& refMac) noexcept {
    return (refMac[0] << 8 | refMac[1]) & 0xFFFF;
}

uint32_t MacLowWord(const MacBytes& refMac, uint32_t nAdded) noexcept {
    return (refMac[5] + nAdded) | refMac[4] << 8 | refMac[3] << 16 | refMac[2] << 24;
}

uint32_t ParseIp(const char* szIp) noexcept {
    return ntohl(inet_addr(szIp));
}
