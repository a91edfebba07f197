#include "support/allocations.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

namespace {

std::atomic<std::uint64_t> new_count{0};
std::atomic<std::int64_t> alive_count{0};
thread_local std::uint64_t calls_until_failure = 0;  // 0: none is to fail
thread_local bool has_nth_failed = false;
thread_local bool is_sdk_spared = true;
thread_local int frames_below_handler = 0;  // of the call stack; 0: none is running
thread_local std::size_t largest_bytes = std::numeric_limits<std::size_t>::max();

/** Whether the SDK is at work for this thread. */
bool is_inside_sdk() {
    std::array<void*, 64> frames{};
    const int depth = backtrace(frames.data(), static_cast<int>(frames.size()));
    for (int i = 0; i < depth - frames_below_handler; ++i) {
        Dl_info info{};
        if (dladdr(frames[static_cast<std::size_t>(i)], &info) != 0 && info.dli_fname != nullptr &&
            std::strstr(info.dli_fname, "libenyx-") != nullptr) {
            return true;
        }
    }
    return false;
}

bool must_fail(std::size_t bytes) {
    new_count.fetch_add(1, std::memory_order_relaxed);
    if (bytes >= largest_bytes) {
        return true;
    }
    if (calls_until_failure == 0 || (is_sdk_spared && is_inside_sdk()) || --calls_until_failure != 0) {
        return false;
    }
    has_nth_failed = true;
    return true;
}

void* allocate(std::size_t bytes) {
    void* const memory = must_fail(bytes) ? nullptr : std::malloc(bytes != 0 ? bytes : 1);
    alive_count.fetch_add(memory != nullptr ? 1 : 0, std::memory_order_relaxed);
    return memory;
}

void give_back(void* memory) {
    alive_count.fetch_sub(memory != nullptr ? 1 : 0, std::memory_order_relaxed);
    std::free(memory);
}

}  // namespace

namespace kova::test {

std::uint64_t Allocations::count() {
    return new_count.load(std::memory_order_relaxed);
}

std::int64_t Allocations::alive() {
    return alive_count.load(std::memory_order_relaxed);
}

Allocations::FailNth::FailNth(std::uint64_t n, Sdk sdk) {
    is_inside_sdk();  // its first call loads the unwinder
    is_sdk_spared = sdk == Sdk::kSpared;
    has_nth_failed = false;
    calls_until_failure = n;
}

Allocations::FailNth::~FailNth() {
    calls_until_failure = 0;
}

bool Allocations::FailNth::has_failed() const {
    return has_nth_failed;
}

Allocations::InHandler::InHandler() {
    if (calls_until_failure != 0) {
        std::array<void*, 64> frames{};
        frames_below_handler = backtrace(frames.data(), static_cast<int>(frames.size()));
    }
}

Allocations::InHandler::~InHandler() {
    frames_below_handler = 0;
}

Allocations::FailLarge::FailLarge(std::size_t bytes) {
    largest_bytes = bytes;
}

Allocations::FailLarge::~FailLarge() {
    largest_bytes = std::numeric_limits<std::size_t>::max();
}

}  // namespace kova::test

// All forms, since those of a sanitizer's runtime do not end in one another. The aligned ones stay as they are.
#define KOVA_REPLACED __attribute__((visibility("default")))

KOVA_REPLACED void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    return allocate(bytes);
}

KOVA_REPLACED void* operator new[](std::size_t bytes, const std::nothrow_t&) noexcept {
    return operator new(bytes, std::nothrow);
}

KOVA_REPLACED void* operator new(std::size_t bytes) {
    void* const memory = operator new(bytes, std::nothrow);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

KOVA_REPLACED void* operator new[](std::size_t bytes) {
    return operator new(bytes);
}

KOVA_REPLACED void operator delete(void* memory) noexcept {
    give_back(memory);
}

KOVA_REPLACED void operator delete[](void* memory) noexcept {
    give_back(memory);
}

KOVA_REPLACED void operator delete(void* memory, std::size_t) noexcept {
    give_back(memory);
}

KOVA_REPLACED void operator delete[](void* memory, std::size_t) noexcept {
    give_back(memory);
}

KOVA_REPLACED void operator delete(void* memory, const std::nothrow_t&) noexcept {
    give_back(memory);
}

KOVA_REPLACED void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    give_back(memory);
}
