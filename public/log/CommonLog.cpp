#include "log/CommonLog.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstring>
#include <new>
#include <string_view>

#include "log/CalendarTime.h"

namespace {

constexpr std::string_view LINE_END = "\033[0m \n";

/** Room for the longest message with the wrapper of a call site around it. */
constexpr size_t LINE_SIZE = 8192;

/**
 * Keeps SIGINT and SIGTERM from this thread while it lives.
 *
 * Their handler writes a line itself, so it must never interrupt a thread that holds the log's mutex. This
 * includes the handler: the one signal would interrupt the other's.
 */
class CSignalBlock {
 public:
    CSignalBlock() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, &m_signalsBefore);
    }
    ~CSignalBlock() { pthread_sigmask(SIG_SETMASK, &m_signalsBefore, nullptr); }
    CSignalBlock(const CSignalBlock&) = delete;
    CSignalBlock& operator=(const CSignalBlock&) = delete;

 private:
    sigset_t m_signalsBefore;
};

const char* LogColor(ELOGLEVEL logLevel) {
    switch (logLevel) {
        case LOG_ERROR:
            return "\033[31;1m [E]";
        case LOG_WARNING:
            return "\033[33;1m [W]";
        case LOG_INFO:
            return "\033[32;1m [I]";
        case LOG_DEBUG:
            return "\033[37;1m [D]";
        case LOG_DEBUG_EX:
            return "\033[34;1m [X]";
        default:
            return "\033[34;1m [N]";
    }
}

/** What snprintf put into nSize bytes, whatever it would have liked to put there. */
size_t Written(int nResult, size_t nSize) {
    return nResult < 0 ? 0 : std::min(static_cast<size_t>(nResult), nSize - 1);
}

/** Composes a whole line; of a message that is too long the end is cut, never the end of the line. */
__attribute__((format(printf, 4, 0))) std::string_view ComposeLine(char (&szLine)[LINE_SIZE],
                                                                   ELOGLEVEL logLevel, const std::tm& refTime,
                                                                   const char* fmt, va_list args) {
    size_t nLength =
        Written(snprintf(szLine, LINE_SIZE, "%s [%04d%02d%02d][%02d:%02d:%02d][%lu] ", LogColor(logLevel),
                         refTime.tm_year + 1900, refTime.tm_mon + 1, refTime.tm_mday, refTime.tm_hour,
                         refTime.tm_min, refTime.tm_sec, pthread_self()),
                LINE_SIZE);
    const size_t nRoom = LINE_SIZE - LINE_END.size() - nLength;
    nLength += Written(vsnprintf(szLine + nLength, nRoom, fmt, args), nRoom);
    memcpy(szLine + nLength, LINE_END.data(), LINE_END.size());
    return {szLine, nLength + LINE_END.size()};
}

/** Composes the file's name; false with errno set when no file can have it. */
bool ComposeFileName(char (&szFile)[PATH_MAX], const std::string& refLogPath, const std::tm& refTime) {
    const int nYear = refTime.tm_year + 1900;
    const int nMonth = refTime.tm_mon + 1;
    const int nLength =
        refLogPath.empty()
            ? snprintf(szFile, PATH_MAX, "kova_u50_%04d%02d%02d_%02d%02d%02d.log", nYear, nMonth,
                       refTime.tm_mday, refTime.tm_hour, refTime.tm_min, refTime.tm_sec)
            : snprintf(szFile, PATH_MAX, "%s/kova_u50_%04d%02d%02d_%02d%02d%02d.log", refLogPath.c_str(), nYear,
                       nMonth, refTime.tm_mday, refTime.tm_hour, refTime.tm_min, refTime.tm_sec);
    if (nLength < 0 || nLength >= PATH_MAX) {
        errno = ENAMETOOLONG;
        return false;
    }
    return true;
}

/** One write of everything; what a full, broken or closed destination refuses is lost. */
void WriteWhole(int nFd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t nWritten = write(nFd, text.data(), text.size());
        if (nWritten > 0) {
            text.remove_prefix(static_cast<size_t>(nWritten));
        } else if (nWritten == 0 || errno != EINTR) {
            return;
        }
    }
}

void WriteOpenFailure(const char* lpReason, int nError) {
    char szFailure[256];
    const int nLength =
        snprintf(szFailure, sizeof(szFailure), "fopen failed with error: %s (errno: %d)\n", lpReason, nError);
    WriteWhole(fileno(stdout), {szFailure, Written(nLength, sizeof(szFailure))});
}

std::tm LocalTime(time_t nTime) {
    std::tm localTime{};
    localtime_r(&nTime, &localTime);
    return localTime;
}

}  // namespace

CCommonLog* CCommonLog::GetInstance() {
    // Never destroyed: a signal or a destructor may still write a line while the process ends.
    alignas(CCommonLog) static unsigned char s_storage[sizeof(CCommonLog)];
    static CCommonLog* const s_lpLog = new (s_storage) CCommonLog;
    return s_lpLog;
}

void CCommonLog::SetLogLevel(ELOGLEVEL logLevel) {
    const CSignalBlock signalBlock;
    const std::lock_guard lock(m_mutexLog);
    std::atomic_ref<int32_t>(m_logLevel).store(logLevel, std::memory_order_relaxed);
}

void CCommonLog::SetLogPath(std::string& refLogPath) {
    std::string strLogPath = refLogPath;
    const CSignalBlock signalBlock;
    const std::lock_guard lock(m_mutexLog);
    if (!m_log_flag) {
        m_log_path.swap(strLogPath);
        m_log_flag = true;
    }
}

void CCommonLog::WriteLog(ELOGLEVEL logLevel, const char* fmt, ...) {
    if (!IsEnabled(logLevel)) {
        return;
    }
    const CSignalBlock signalBlock;
    const std::tm localTime = LocalTime(time(nullptr));
    m_nUtcOffset.store(localTime.tm_gmtoff, std::memory_order_relaxed);

    char szLine[LINE_SIZE];
    va_list args;
    va_start(args, fmt);
    const std::string_view line = ComposeLine(szLine, logLevel, localTime, fmt, args);
    va_end(args);

    // What the application has printed before this line stands before it.
    fflush(stdout);
    if (!_OpenLogFile(localTime)) {
        return;
    }
    const std::lock_guard lock(m_mutexLog);
    WriteWhole(fileno(stdout), line);
    WriteWhole(fileno(_LogHandler()), line);
}

void CCommonLog::WriteLogInSignal(ELOGLEVEL logLevel, const char* fmt, ...) {
    if (!IsEnabled(logLevel)) {
        return;
    }
    const CSignalBlock signalBlock;
    const std::tm localTime = CalendarTime(time(nullptr), m_nUtcOffset.load(std::memory_order_relaxed));

    char szLine[LINE_SIZE];
    va_list args;
    va_start(args, fmt);
    const std::string_view line = ComposeLine(szLine, logLevel, localTime, fmt, args);
    va_end(args);

    const std::lock_guard lock(m_mutexLog);
    if (FILE* const lpLogHandler = _LogHandler(); lpLogHandler != nullptr) {
        WriteWhole(fileno(stdout), line);
        WriteWhole(fileno(lpLogHandler), line);
    } else {
        _WriteWithoutFile(localTime, line);
    }
}

FILE* CCommonLog::_LogHandler() {
    return std::atomic_ref<FILE*>(m_logHandler).load(std::memory_order_acquire);
}

bool CCommonLog::_OpenLogFile(const std::tm& refTime) {
    if (_LogHandler() != nullptr) {
        return true;
    }
    const std::lock_guard lockOpen(m_mutexOpen);
    if (_LogHandler() != nullptr) {
        return true;
    }
    char szFile[PATH_MAX];
    bool isNamed = false;
    {
        const std::lock_guard lock(m_mutexLog);
        isNamed = ComposeFileName(szFile, m_log_path, refTime);
    }
    FILE* const lpFile = isNamed ? fopen(szFile, "ae") : nullptr;
    if (lpFile == nullptr) {
        const int nError = errno;
        char szReason[128];
        const char* const lpReason = strerror_r(nError, szReason, sizeof(szReason));
        const std::lock_guard lock(m_mutexLog);
        WriteOpenFailure(lpReason, nError);
        return false;
    }
    std::atomic_ref<FILE*>(m_logHandler).store(lpFile, std::memory_order_release);
    return true;
}

void CCommonLog::_WriteWithoutFile(const std::tm& refTime, std::string_view line) {
    char szFile[PATH_MAX];
    const int nFd = ComposeFileName(szFile, m_log_path, refTime)
                        ? open(szFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666)
                        : -1;
    if (nFd < 0) {
        const int nError = errno;
        const char* const lpReason = strerrordesc_np(nError);
        WriteOpenFailure(lpReason != nullptr ? lpReason : "Unknown error", nError);
        return;
    }
    WriteWhole(fileno(stdout), line);
    WriteWhole(nFd, line);
    close(nFd);
}

void LogMessage(ELOGLEVEL logLevel, const char* lpFile, int32_t nLine, const char* lpFunction, const char* fmt,
                ...) {
    char szLog[4096];
    va_list args;
    va_start(args, fmt);
    if (vsnprintf(szLog, sizeof(szLog), fmt, args) < 0) {
        szLog[0] = '\0';
    }
    va_end(args);
    CCommonLog::GetInstance()->WriteLog(logLevel, "[%s:%d][%s]%s", LogFileBaseName(lpFile), nLine, lpFunction,
                                        szLog);
}
