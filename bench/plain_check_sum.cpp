// Compiled without vectorisation.
#include "bench/plain_check_sum.h"

#include "bench/plain_check_sum_loop.h"

namespace kova::bench {

std::uint16_t plain_check_sum(const void* buffer, std::size_t size) noexcept {
    return check_sum_loop(buffer, size);
}

}  // namespace kova::bench
