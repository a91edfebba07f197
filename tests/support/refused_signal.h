/**
 * A signal whose handler the system refuses to install. To be included by one file of a program.
 */
#ifndef KOVA_TESTS_SUPPORT_REFUSED_SIGNAL_H
#define KOVA_TESTS_SUPPORT_REFUSED_SIGNAL_H

#include <cerrno>
#include <csignal>

#include "support/next_definition.h"

namespace kova::test {

/** 0 for none. */
inline int refused_signal = 0;

}  // namespace kova::test

/** Stands before the system's own, so that a refusal can be had. */
extern "C" int sigaction(int signal, const struct sigaction* action, struct sigaction* before) noexcept {
    using Action = int(int, const struct sigaction*, struct sigaction*);
    static Action* const next = kova::test::next_definition<Action>("sigaction");
    if (signal == kova::test::refused_signal) {
        errno = EINVAL;
        return -1;
    }
    return next(signal, action, before);
}

#endif  // KOVA_TESTS_SUPPORT_REFUSED_SIGNAL_H
