#include "instruments/InstPattern.h"

namespace {

/** Length of a product's code. */
constexpr size_t PRODUCT_LENGTH = 2;
/** Length of a future's identifier, product and month. */
constexpr size_t CONTRACT_LENGTH = 6;

}  // namespace

bool IsInstSelected(std::string_view instId, std::string_view pattern, bool isAll, bool isOptions) noexcept {
    const bool isLengthAllowed = isOptions || instId.size() <= FUTURE_ID_LENGTH;
    if (isAll) {
        return isLengthAllowed;
    }
    if (pattern.size() == PRODUCT_LENGTH || pattern.size() == CONTRACT_LENGTH) {
        return isLengthAllowed && instId.starts_with(pattern);
    }
    return instId == pattern;
}
