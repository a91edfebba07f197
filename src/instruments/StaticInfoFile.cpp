// The file that lists the day's instruments for operators and for other processes of the host.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <optional>

#include "engine/KovaShfeMdApiImpl.h"
#include "instruments/FeedInfo.h"
#include "instruments/StaticInfoText.h"
#include "log/CommonLog.h"
#include "util/FilePtr.h"
#include "wire/RegisterMap.h"

namespace {

constexpr uint32_t TOTAL_ROWS = sizeof(U50InstTable) / sizeof(SInstTableType);

/**
 * Opens the file for writing from its start; null unless it is or becomes a regular one. The folder belongs to
 * everybody, so what lies there under this name may be a trap.
 */
CFilePtr OpenRegularFile(const char* szFile) {
    // Not blocking: a pipe would wait for its reader.
    const int nFile = open(szFile, O_WRONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
    if (nFile < 0) {
        return nullptr;
    }
    struct stat status {};
    if (fstat(nFile, &status) != 0 || !S_ISREG(status.st_mode) || ftruncate(nFile, 0) != 0) {
        close(nFile);
        return nullptr;
    }
    CFilePtr file(fdopen(nFile, "w"));
    if (!file) {
        close(nFile);
    }
    return file;
}

/** Each line is in the file once it is written; false when it is not. */
bool WriteLine(FILE* lpFile, const char* szLine) {
    return std::fprintf(lpFile, "%s\n", szLine) > 0 && std::fflush(lpFile) == 0;
}

/** The feed of an exchange whose table is listed: 4PS before 2PS, and only a complete one. */
std::optional<EMDQPDataType> ListedFeed(uint8_t nFinishedMask, EMDQPDataType feed2ps, EMDQPDataType feed4ps) {
    for (const EMDQPDataType feed : {feed4ps, feed2ps}) {
        if ((nFinishedMask & FEED_INFO[static_cast<size_t>(feed)].nMaskBit) != 0) {
            return feed;
        }
    }
    return std::nullopt;
}

}  // namespace

int CKovaShfeMdApiImpl::_InstStaticInfoWriteFile() {
    const std::time_t nNow = std::time(nullptr);
    std::tm tmLocal = {};
    localtime_r(&nNow, &tmLocal);
    const CUstCharArray<64> fileName = StaticInfoFileName(tmLocal);
    uint32_t shfeInstCount = 0;
    uint32_t ineInstCount = 0;
    m_drvRegEnyx.ReadRegister(REG_SHFE_INST_COUNT, shfeInstCount);
    m_drvRegEnyx.ReadRegister(REG_INE_INST_COUNT, ineInstCount);
    if (shfeInstCount == 0 && ineInstCount == 0) {
        KOVA_LOG(LOG_WARNING, "shfeInstCount:%u, ineInstCount:%u, not write contract index file %s",
                 shfeInstCount, ineInstCount, fileName.data());
        return -1;
    }
    const CFilePtr file = OpenRegularFile(fileName.data());
    if (!file) {
        KOVA_LOG(LOG_WARNING, "open contract index file failed %s", fileName.data());
        return -1;
    }
    if (!WriteLine(file.get(), STATIC_INFO_HEADER) ||
        !_ListInstruments(file.get(), SHFE_2PS, SHFE_4PS, shfeInstCount) ||
        !_ListInstruments(file.get(), INE_2PS, INE_4PS, ineInstCount)) {
        KOVA_LOG(LOG_WARNING, "write contract index file failed %s", fileName.data());
        return -1;
    }
    return 0;
}

bool CKovaShfeMdApiImpl::_ListInstruments(FILE* lpFile, EMDQPDataType feed2ps, EMDQPDataType feed4ps,
                                          uint32_t nCount) {
    const std::optional<EMDQPDataType> feed = ListedFeed(m_finishedMask.enabled_mask, feed2ps, feed4ps);
    if (!feed) {
        return true;
    }
    const uint32_t nFirstRow = FEED_INFO[static_cast<size_t>(*feed)].nFirstRow;
    const auto* const lpRows = reinterpret_cast<const SInstTableType*>(&m_u50InstTable) + nFirstRow;
    // A card that has gone answers every read with ones.
    const uint32_t nRows = std::min(nCount, TOTAL_ROWS - nFirstRow);
    for (uint32_t i = 0; i < nRows; ++i) {
        if (!WriteLine(lpFile, StaticInfoLine(i, lpRows[i]).szText)) {
            return false;
        }
    }
    return true;
}
