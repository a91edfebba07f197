/**
 * The process-wide log of the library: each line goes to standard output and to one file.
 *
 * Code of the library writes its lines through KOVA_LOG, which tests the level before it formats anything, so
 * that a masked line costs one AND.
 */
#ifndef KOVA_PUBLIC_LOG_COMMON_LOG_H
#define KOVA_PUBLIC_LOG_COMMON_LOG_H

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <string_view>

/** Level of a line, one bit each. A mask of levels travels in the same type. */
enum ELOGLEVEL : int32_t {
    LOG_ERROR = 1,
    LOG_WARNING = 2,
    LOG_INFO = 4,
    LOG_DEBUG = 8,
    LOG_DEBUG_EX = 16,
};

/** Mask that lets every level through. */
constexpr ELOGLEVEL LOG_EVERYTHING = static_cast<ELOGLEVEL>(31);

class CCommonLog {
 public:
    /** The log of the process, built on first use; no thread needs a lock for it. */
    static CCommonLog* GetInstance();

    CCommonLog(const CCommonLog&) = delete;
    CCommonLog& operator=(const CCommonLog&) = delete;

    /** Sets the mask of enabled levels. Any thread. */
    void SetLogLevel(ELOGLEVEL logLevel);

    /** Sets the directory of the log file; only the first call counts, and only before the first line. */
    void SetLogPath(std::string& refLogPath);

    /** Whether a line of this level would be written. */
    [[nodiscard]] bool IsEnabled(ELOGLEVEL logLevel) {
        return (logLevel & std::atomic_ref<int32_t>(m_logLevel).load(std::memory_order_relaxed)) != 0;
    }

    /**
     * Writes one line if its level is enabled. Any thread; lines of several threads never interleave.
     *
     * A line that would not fit is cut. Nothing is reported back: a file that cannot be opened is told on
     * standard output and tried again with the next line.
     */
    void WriteLog(ELOGLEVEL logLevel, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

    /** WriteLog for the signal handler: neither localtime nor stdio, whose locks the interrupted code may hold.
     */
    void WriteLogInSignal(ELOGLEVEL logLevel, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

 private:
    CCommonLog() = default;
    ~CCommonLog() = default;

    /** The open file or null. It is opened once and never closed. */
    FILE* _LogHandler();

    /** Opens the file, unless it is open, named by refTime. False: told on standard output. */
    bool _OpenLogFile(const std::tm& refTime);

    /** Writes a line from the signal handler while no file is open. Under m_mutexLog. */
    void _WriteWithoutFile(const std::tm& refTime, std::string_view line);

    int32_t m_logLevel = LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG;
    FILE* m_logHandler = nullptr;
    std::mutex m_mutexLog;
    std::string m_log_path;
    bool m_log_flag = false;
    /**
     * Serialises the opening of the file; never taken by the signal handler. Under m_mutexLog a thread makes
     * system calls only: the handler waits for that mutex on a thread that may hold a lock of malloc, of stdio
     * or of localtime.
     */
    std::mutex m_mutexOpen;
    /** Seconds east of UTC, kept by the last ordinary line for lines from the signal handler. */
    std::atomic<long> m_nUtcOffset = 0;
};

/** Sets the mask of enabled levels for as long as it lives: register programming is logged whatever is
 * configured.
 */
class CLogLevelScope {
 public:
    CLogLevelScope(ELOGLEVEL logLevel, ELOGLEVEL afterwards) : m_afterwards(afterwards) {
        CCommonLog::GetInstance()->SetLogLevel(logLevel);
    }
    ~CLogLevelScope() { CCommonLog::GetInstance()->SetLogLevel(m_afterwards); }
    CLogLevelScope(const CLogLevelScope&) = delete;
    CLogLevelScope& operator=(const CLogLevelScope&) = delete;

 private:
    ELOGLEVEL m_afterwards;
};

/** The text after the last '/' of a source file's path. */
inline const char* LogFileBaseName(const char* lpFile) {
    const char* const lpSlash = strrchr(lpFile, '/');
    return lpSlash != nullptr ? lpSlash + 1 : lpFile;
}

/**
 * Composes a message in a 4096-byte buffer and writes it as "[file:line][function]message".
 *
 * Not called directly: KOVA_LOG tests the level first.
 */
void LogMessage(ELOGLEVEL logLevel, const char* lpFile, int32_t nLine, const char* lpFunction, const char* fmt,
                ...) __attribute__((format(printf, 5, 6), cold, noinline));

/** Writes one line on behalf of the calling function. */
#define KOVA_LOG(level, ...) KOVA_LOG_AS(level, __func__, __VA_ARGS__)

/** Writes one line on behalf of the operation named, for the smaller functions split off from it. */
#define KOVA_LOG_AS(level, function, ...)                                 \
    do {                                                                  \
        if (CCommonLog::GetInstance()->IsEnabled(level)) [[unlikely]] {   \
            LogMessage(level, __FILE__, __LINE__, function, __VA_ARGS__); \
        }                                                                 \
    } while (false)

#endif  // KOVA_PUBLIC_LOG_COMMON_LOG_H
