// Library and firmware check each other before anything is subscribed.

#include "bringup/SysVersion.h"

#include <arpa/inet.h>

#include <array>
#include <cstdio>
#include <map>
#include <string>

#include "engine/KovaShfeMdApiImpl.h"
#include "log/CommonLog.h"
#include "wire/RegisterMap.h"

namespace {

constexpr const char* CHK_SYS_VERSION = "Chk_SysVersion";

/** Software version and the least hardware version that it needs. */
using VersionMap = std::map<std::string, uint32_t>;

VersionMap MakeVerMap() {
    return {{SOFT_VERSION, 0x20260420}};
}

}  // namespace

uint32_t PackSoftVersion(const char* szVersion) noexcept {
    std::array<uint32_t, 4> arrPart = {};
    static_cast<void>(
        std::sscanf(szVersion, "%x.%x.%x.%x", &arrPart[0], &arrPart[1], &arrPart[2], &arrPart[3]));
    uint32_t cfgipNum = 0;
    for (size_t i = 0; i < arrPart.size(); ++i) {
        cfgipNum |= (arrPart[i] & 0xFF) << (8 * i);
    }
    return cfgipNum;
}

int CKovaShfeMdApiImpl::Chk_SysVersion() {
    m_VerReocrd = {SOFT_VERSION};
    _WriteSoftVersion();
    return _CheckHardwareVersion() && _CheckVerdict() ? 0 : -1;
}

void CKovaShfeMdApiImpl::_WriteSoftVersion() {
    const uint32_t cfgipNum = PackSoftVersion(SOFT_VERSION);
    KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "master channel addr 0x102, litte Endian  0x%08x.", cfgipNum);
    const uint32_t nBigEndian = htonl(cfgipNum);
    m_drvRegEnyx.WriteRegister(REG_SOFT_VERSION, nBigEndian);
    KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "master channel addr 0x102, big Endian  0x%08x.", nBigEndian);
}

bool CKovaShfeMdApiImpl::_CheckHardwareVersion() {
    uint32_t hwVersion = 0;
    m_drvRegEnyx.ReadRegister(REG_HW_VERSION, hwVersion);
    const VersionMap VerMap = MakeVerMap();
    const auto str_it = VerMap.find(SOFT_VERSION);
    if (str_it == VerMap.end()) {
        KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "soft version is error.");
        return false;
    }
    KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "str_it->second is %x, hwVersion is %x.", str_it->second, hwVersion);
    if (str_it->second > hwVersion) {
        KOVA_LOG_AS(LOG_ERROR, CHK_SYS_VERSION, "you will need to update your hardware version.");
        KOVA_LOG_AS(LOG_ERROR, CHK_SYS_VERSION, "soft version %s, hwVersion is %x > fpga hwVersion is %x.",
                    SOFT_VERSION, str_it->second, hwVersion);
        return false;
    }
    KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "hardware version check is success.");
    return true;
}

bool CKovaShfeMdApiImpl::_CheckVerdict() {
    uint32_t iCheckRst = 0;
    m_drvRegEnyx.ReadRegister(REG_VERSION_CHECK, iCheckRst);
    switch (iCheckRst) {
        case VERSION_NOT_WRITTEN:
            KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "soft version write is fail.");
            return false;
        case VERSION_ACCEPTED:
            KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "hardware and soft version check is success.");
            return true;
        case VERSION_TOO_OLD:
            KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "you will need to update your soft version.");
            KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "iCheckRst == %d, soft  error.", iCheckRst);
            return false;
        default:
            KOVA_LOG_AS(LOG_INFO, CHK_SYS_VERSION, "iCheckRst is %d error.", iCheckRst);
            return false;
    }
}
