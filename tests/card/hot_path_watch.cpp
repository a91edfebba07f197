#include "card/hot_path_watch.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "support/allocations.h"
#include "support/next_definition.h"

namespace {

std::atomic<std::uint64_t> malloc_count{0};
std::atomic<std::uint64_t> lock_count{0};

}  // namespace

// The C library's allocator under names of its own, and locks with a counter in front.
#if !KOVA_TEST_IS_SANITIZED

#define KOVA_INTERPOSED extern "C" __attribute__((visibility("default")))

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* memory, std::size_t size);

KOVA_INTERPOSED void* malloc(std::size_t size) noexcept {
    malloc_count.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

KOVA_INTERPOSED void* calloc(std::size_t count, std::size_t size) noexcept {
    malloc_count.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

KOVA_INTERPOSED void* realloc(void* memory, std::size_t size) noexcept {
    malloc_count.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(memory, size);
}

KOVA_INTERPOSED int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static auto* const lock = kova::test::next_definition<int(pthread_mutex_t*)>("pthread_mutex_lock");
    lock_count.fetch_add(1, std::memory_order_relaxed);
    return lock(mutex);
}

KOVA_INTERPOSED int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    static auto* const lock = kova::test::next_definition<int(pthread_mutex_t*)>("pthread_mutex_trylock");
    lock_count.fetch_add(1, std::memory_order_relaxed);
    return lock(mutex);
}

KOVA_INTERPOSED int pthread_rwlock_rdlock(pthread_rwlock_t* lock) noexcept {
    static auto* const read_lock = kova::test::next_definition<int(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    lock_count.fetch_add(1, std::memory_order_relaxed);
    return read_lock(lock);
}

KOVA_INTERPOSED int pthread_rwlock_wrlock(pthread_rwlock_t* lock) noexcept {
    static auto* const write_lock =
        kova::test::next_definition<int(pthread_rwlock_t*)>("pthread_rwlock_wrlock");
    lock_count.fetch_add(1, std::memory_order_relaxed);
    return write_lock(lock);
}

#endif

namespace kova::test {

namespace {

constexpr int kWrongResultCode = 1;
constexpr int kAllocatedCode = 2;
constexpr int kLockedCode = 3;
constexpr int kNoFilterCode = 4;

/** From here on every system call but the end of the process kills it. */
bool forbid_system_calls() {
    std::array<sock_filter, 4> instructions = {{
        {BPF_LD | BPF_W | BPF_ABS, 0, 0, offsetof(seccomp_data, nr)},
        {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, SYS_exit_group},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_ALLOW},
        {BPF_RET | BPF_K, 0, 0, SECCOMP_RET_KILL_PROCESS},
    }};
    const sock_fprog program = {static_cast<unsigned short>(instructions.size()), instructions.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

[[noreturn]] void run_watched(const std::function<bool()>& code) {
    if (!forbid_system_calls()) {
        _exit(kNoFilterCode);
    }
    const std::uint64_t news = Allocations::count();
    const std::uint64_t mallocs = malloc_count;
    const std::uint64_t locks = lock_count;
    const bool is_right = code();
    if (Allocations::count() != news || malloc_count != mallocs) {
        _exit(kAllocatedCode);
    }
    if (lock_count != locks) {
        _exit(kLockedCode);
    }
    _exit(is_right ? 0 : kWrongResultCode);
}

}  // namespace

std::ostream& operator<<(std::ostream& out, HotPathVerdict verdict) {
    switch (verdict) {
        case HotPathVerdict::kClean:
            return out << "clean";
        case HotPathVerdict::kWrongResult:
            return out << "wrong result";
        case HotPathVerdict::kAllocated:
            return out << "allocated";
        case HotPathVerdict::kLocked:
            return out << "locked";
        case HotPathVerdict::kSystemCall:
            return out << "system call";
        case HotPathVerdict::kOther:
            break;
    }
    return out << "something else";
}

HotPathVerdict watch_hot_path(const std::function<bool()>& code) {
    const pid_t child = fork();
    if (child == 0) {
        run_watched(code);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        return HotPathVerdict::kOther;
    }
    if (WIFSIGNALED(status)) {
        return WTERMSIG(status) == SIGSYS ? HotPathVerdict::kSystemCall : HotPathVerdict::kOther;
    }
    switch (WEXITSTATUS(status)) {
        case 0:
            return HotPathVerdict::kClean;
        case kWrongResultCode:
            return HotPathVerdict::kWrongResult;
        case kAllocatedCode:
            return HotPathVerdict::kAllocated;
        case kLockedCode:
            return HotPathVerdict::kLocked;
        default:
            return HotPathVerdict::kOther;
    }
}

}  // namespace kova::test
