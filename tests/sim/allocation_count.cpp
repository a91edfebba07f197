#include "sim/allocation_count.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::uint64_t allocations = 0;

}  // namespace

// Visible, or the shared objects of the process would keep the standard library's own. The array forms end in
// these; the form that does not throw does not when a sanitizer has its own.
__attribute__((visibility("default"))) void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    ++allocations;
    return std::malloc(bytes == 0 ? 1 : bytes);
}

__attribute__((visibility("default"))) void* operator new(std::size_t bytes) {
    if (void* memory = operator new(bytes, std::nothrow)) {
        return memory;
    }
    throw std::bad_alloc();
}

__attribute__((visibility("default"))) void operator delete(void* memory) noexcept {
    std::free(memory);
}

__attribute__((visibility("default"))) void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace kova::sim {

std::uint64_t allocation_count() {
    return allocations;
}

}  // namespace kova::sim
