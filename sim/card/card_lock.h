/**
 * The lock that every register access of every process runs under.
 *
 * Robust: when a client is killed while it holds the lock, the next one gets it, and the card goes on. Every
 * change that the card's logic makes under the lock leaves usable registers at each instruction, so nothing has
 * to be repaired; the recovery is counted.
 */
#ifndef KOVA_SIM_CARD_CARD_LOCK_H
#define KOVA_SIM_CARD_CARD_LOCK_H

#include <pthread.h>

#include <atomic>
#include <cstdint>

namespace kova::sim {

struct CardLock {
    pthread_mutex_t mutex;
    std::atomic<std::uint64_t> holder;       // a number of the holding thread's own, 0 when free
    std::atomic<std::uint64_t> recoveries;   // holders that were killed
    std::atomic<std::uint64_t> unprotected;  // register accesses made without the lock
};

void format_lock(CardLock& lock);
void acquire(CardLock& lock);
void release(CardLock& lock);
/** Whether the calling thread holds the lock. */
[[nodiscard]] bool is_held_here(const CardLock& lock);

/** Holds the lock for a scope, unless the calling thread has it already. */
class CardLockScope {
 public:
    explicit CardLockScope(CardLock& lock) : lock_(is_held_here(lock) ? nullptr : &lock) {
        if (lock_ != nullptr) {
            acquire(*lock_);
        }
    }
    ~CardLockScope() {
        if (lock_ != nullptr) {
            release(*lock_);
        }
    }
    CardLockScope(const CardLockScope&) = delete;
    CardLockScope& operator=(const CardLockScope&) = delete;

 private:
    CardLock* lock_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_CARD_LOCK_H
