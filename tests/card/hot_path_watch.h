/**
 * Runs code that must cost nothing but its own instructions, and says what else it cost.
 */
#ifndef KOVA_TESTS_CARD_HOT_PATH_WATCH_H
#define KOVA_TESTS_CARD_HOT_PATH_WATCH_H

#include <functional>
#include <ostream>

// 1 where a sanitizer's runtime stands between the program and the C library.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KOVA_TEST_IS_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define KOVA_TEST_IS_SANITIZED 1
#endif
#endif
#ifndef KOVA_TEST_IS_SANITIZED
#define KOVA_TEST_IS_SANITIZED 0
#endif

namespace kova::test {

enum class HotPathVerdict {
    kClean,
    kWrongResult,  // the code itself returned false
    kAllocated,    // operator new or malloc
    kLocked,       // pthread_mutex_lock or its likes
    kSystemCall,   // any at all, so a log line too
    kOther,
};

std::ostream& operator<<(std::ostream& out, HotPathVerdict verdict);

/**
 * Runs `code` in a child process that the kernel kills at its first system call.
 *
 * Not under a sanitizer, whose runtime does all of this itself; see can_watch_hot_path().
 */
[[nodiscard]] HotPathVerdict watch_hot_path(const std::function<bool()>& code);

[[nodiscard]] constexpr bool can_watch_hot_path() {
    return KOVA_TEST_IS_SANITIZED == 0;
}

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_HOT_PATH_WATCH_H
