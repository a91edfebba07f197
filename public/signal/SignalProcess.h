/**
 * SIGINT and SIGTERM as a request to stop receiving.
 */
#ifndef KOVA_PUBLIC_SIGNAL_SIGNAL_PROCESS_H
#define KOVA_PUBLIC_SIGNAL_SIGNAL_PROCESS_H

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>

#include "log/CommonLog.h"

class CSignalProcess {
 public:
    /**
     * Installs the handler of SIGINT and SIGTERM and ignores SIGPIPE, for the whole process.
     *
     * Returns 0, or -1 with a LOG_ERROR line at the first signal that the system refuses.
     */
    static int32_t InitSignal();

    /** Sets m_isExit and writes one line; the process runs on. Any thread. */
    static void SignalHandler(int sigNo, siginfo_t* siginfo, void* context);

    /** Whether SIGINT or SIGTERM has arrived. Any thread. */
    [[nodiscard]] static bool IsExit() {
        return std::atomic_ref<bool>(m_isExit).load(std::memory_order_relaxed);
    }

    /** Set by the handler and never cleared; read through IsExit. */
    static inline bool m_isExit = false;
};

inline int32_t CSignalProcess::InitSignal() {
    // Built here, if nowhere before: the handler must not interrupt its construction.
    CCommonLog::GetInstance();

    struct sigaction stopAction {};
    stopAction.sa_flags = SA_SIGINFO;
    stopAction.sa_sigaction = SignalHandler;
    if (sigaction(SIGINT, &stopAction, nullptr) != 0) {
        KOVA_LOG(LOG_ERROR, "Failed to install SIGINT handle!");
        return -1;
    }
    if (sigaction(SIGTERM, &stopAction, nullptr) != 0) {
        KOVA_LOG(LOG_ERROR, "Failed to install SIGTERM handle!");
        return -1;
    }

    struct sigaction ignoreAction {};
    ignoreAction.sa_flags = SA_SIGINFO;
    ignoreAction.sa_handler = SIG_IGN;
    if (sigaction(SIGPIPE, &ignoreAction, nullptr) != 0) {
        KOVA_LOG(LOG_ERROR, "Failed to install SIGPIPE handle!");
        return -1;
    }
    return 0;
}

inline void CSignalProcess::SignalHandler(int sigNo, siginfo_t* /*siginfo*/, void* /*context*/) {
    const int nErrnoBefore = errno;
    // First the flag: the line may have to wait for its turn.
    std::atomic_ref<bool>(m_isExit).store(true, std::memory_order_relaxed);
    CCommonLog::GetInstance()->WriteLogInSignal(LOG_ERROR, "[%s:%d][%s][%d]received signal %d",
                                                LogFileBaseName(__FILE__), __LINE__, __func__, getpid(), sigNo);
    errno = nErrnoBefore;
}

#endif  // KOVA_PUBLIC_SIGNAL_SIGNAL_PROCESS_H
