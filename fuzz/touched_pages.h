/**
 * Memory of megabytes of which an input touches little: only the pages that were touched are looked at.
 */
#ifndef KOVA_FUZZ_TOUCHED_PAGES_H
#define KOVA_FUZZ_TOUCHED_PAGES_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/require.h"

namespace kova::fuzz {

inline std::size_t page_size() {
    static const auto size = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return size;
}

/** Whether all of it is zero. A page that nobody touched since it was given back is, and is not read. */
inline bool is_zero(const void* memory, std::size_t size) {
    const std::size_t page = page_size();
    static const std::vector<std::uint8_t> zeros(page);
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::uintptr_t end = begin + size;
    const std::uintptr_t first = begin / page * page;
    std::vector<unsigned char> is_touched((end - first + page - 1) / page);
    require(::mincore(reinterpret_cast<void*>(first), end - first, is_touched.data()) == 0,
            "the kernel tells touched pages");
    for (std::size_t i = 0; i < is_touched.size(); ++i) {
        if ((is_touched[i] & 1U) == 0) {
            continue;
        }
        const std::uintptr_t from = std::max(begin, first + i * page);
        const std::uintptr_t to = std::min(end, first + (i + 1) * page);
        if (std::memcmp(reinterpret_cast<const void*>(from), zeros.data(), to - from) != 0) {
            return false;
        }
    }
    return true;
}

/** Gives the whole pages of memory back. They read as zeros from then on, and as untouched. */
inline void give_back(const void* memory, std::size_t size) {
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::size_t page = page_size();
    const std::uintptr_t first = (begin + page - 1) / page * page;
    const std::uintptr_t end = (begin + size) / page * page;
    require(::madvise(reinterpret_cast<void*>(first), end - first, MADV_DONTNEED) == 0,
            "pages can be given back");
}

/** Zeros for memory of which little was touched: whole pages are given back instead of written. */
inline void zero_sparse(void* memory, std::size_t size) {
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::size_t page = page_size();
    const std::size_t head = (page - begin % page) % page;
    const std::size_t pages = (size - head) / page * page;
    auto* const bytes = static_cast<std::uint8_t*>(memory);
    std::memset(bytes, 0, head);
    give_back(bytes + head, pages);
    std::memset(bytes + head + pages, 0, size - head - pages);
}

}  // namespace kova::fuzz

#endif  // KOVA_FUZZ_TOUCHED_PAGES_H
