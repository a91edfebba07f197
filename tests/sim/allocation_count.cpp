#include "sim/allocation_count.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t allocations = 0;
thread_local std::int64_t alive = 0;
thread_local std::uint64_t calls_until_failure = 0;  // 0: none is to fail
thread_local bool has_nth_failed = false;

bool must_fail() {
    if (calls_until_failure == 0 || --calls_until_failure != 0) {
        return false;
    }
    has_nth_failed = true;
    return true;
}

void give_back(void* memory) {
    alive -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

}  // namespace

// Visible, or the shared objects of the process would keep the standard library's own. The array forms end in
// these; the form that does not throw does not when a sanitizer has its own.
__attribute__((visibility("default"))) void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    ++allocations;
    void* const memory = must_fail() ? nullptr : std::malloc(bytes == 0 ? 1 : bytes);
    alive += memory != nullptr ? 1 : 0;
    return memory;
}

__attribute__((visibility("default"))) void* operator new(std::size_t bytes) {
    if (void* memory = operator new(bytes, std::nothrow)) {
        return memory;
    }
    throw std::bad_alloc();
}

__attribute__((visibility("default"))) void operator delete(void* memory) noexcept {
    give_back(memory);
}

__attribute__((visibility("default"))) void operator delete(void* memory, std::size_t) noexcept {
    give_back(memory);
}

namespace kova::sim {

std::uint64_t allocation_count() {
    return allocations;
}

std::int64_t allocations_alive() {
    return alive;
}

FailNthAllocation::FailNthAllocation(std::uint64_t n) {
    has_nth_failed = false;
    calls_until_failure = n;
}

FailNthAllocation::~FailNthAllocation() {
    calls_until_failure = 0;
}

bool FailNthAllocation::has_failed() const {
    return has_nth_failed;
}

}  // namespace kova::sim
