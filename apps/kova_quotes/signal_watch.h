/**
 * Tells whether SIGINT or SIGTERM ended the reception.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_SIGNAL_WATCH_H
#define KOVA_APPS_KOVA_QUOTES_SIGNAL_WATCH_H

#include <csignal>

namespace kova::app {

/**
 * The library's own handlers end the receive loop, but a loop that ends does not say why. This stands in front
 * of them from a successful start on, notes the signal and hands it on to them unchanged. One at a time.
 */
class SignalWatch {
 public:
    SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;
    /** Puts the library's handlers back. */
    ~SignalWatch();

    /** Whether a signal came since the construction of the latest watch. Any thread. */
    static bool seen();
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_SIGNAL_WATCH_H
