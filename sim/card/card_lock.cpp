#include "sim/card/card_lock.h"

#include <sys/random.h>

#include <cerrno>

namespace kova::sim {

namespace {

thread_local std::uint64_t own_number = 0;

// A number no other thread of any process has. A thread id would do but for a holder that was killed: its id
// may come again. A forked child is another thread, so it draws anew.
std::uint64_t this_thread() {
    static const int forgets_in_child = pthread_atfork(nullptr, nullptr, [] { own_number = 0; });
    static_cast<void>(forgets_in_child);
    while (own_number == 0) {
        static_cast<void>(getrandom(&own_number, sizeof own_number, 0));
    }
    return own_number;
}

}  // namespace

void format_lock(CardLock& lock) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    pthread_mutex_init(&lock.mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

void acquire(CardLock& lock) {
    if (pthread_mutex_lock(&lock.mutex) == EOWNERDEAD) {
        pthread_mutex_consistent(&lock.mutex);
        lock.recoveries.fetch_add(1, std::memory_order_relaxed);
    }
    lock.holder.store(this_thread(), std::memory_order_relaxed);
}

void release(CardLock& lock) {
    if (!is_held_here(lock)) {
        return;
    }
    lock.holder.store(0, std::memory_order_relaxed);
    pthread_mutex_unlock(&lock.mutex);
}

bool is_held_here(const CardLock& lock) {
    return lock.holder.load(std::memory_order_relaxed) == this_thread();
}

}  // namespace kova::sim
