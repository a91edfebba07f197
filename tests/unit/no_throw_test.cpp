// The border that no exception crosses.

#include "engine/NoThrow.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <new>

namespace {

TEST(NoThrow, GivesTheResultOfTheOperation) {
    EXPECT_EQ(CallNoThrow([] { return 0; }, -1), 0);
    EXPECT_EQ(CallNoThrow([] { return -4; }, -1), -4);
}

TEST(NoThrow, GivesTheFailureForAnyException) {
    EXPECT_EQ(CallNoThrow([]() -> std::int32_t { throw std::bad_alloc(); }, -1), -1);
    EXPECT_EQ(CallNoThrow([]() -> std::int32_t { throw 7; }, -2), -2);
}

void* wait_for_cancellation(void*) {
    CallNoThrow(
        []() -> std::int32_t {
            for (;;) {
                ::pause();
            }
        },
        -1);
    return nullptr;
}

TEST(NoThrow, LetsACancelledThreadEnd) {
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, nullptr, wait_for_cancellation, nullptr), 0);
    ASSERT_EQ(pthread_cancel(thread), 0);
    void* result = nullptr;
    ASSERT_EQ(pthread_join(thread, &result), 0);
    EXPECT_EQ(result, PTHREAD_CANCELED);
}

}  // namespace
