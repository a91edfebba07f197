/**
 * Owners of the card SDK's objects, so that every way out of an opening sequence releases what it holds.
 */
#ifndef KOVA_PUBLIC_REG_HW_HANDLES_H
#define KOVA_PUBLIC_REG_HW_HANDLES_H

#include <enyx_hw.h>

#include <memory>

/** Deleter that hands the object to the SDK function that destroys it. */
template <auto lpDestroy>
struct CHwDestroy {
    template <typename T>
    void operator()(T* lpObject) const noexcept {
        lpDestroy(lpObject);
    }
};

/** Deleter of a descriptor; the SDK frees descriptors by the array. */
template <auto lpFree>
struct CHwFreeDescriptor {
    template <typename T>
    void operator()(T* lpDescriptor) const noexcept {
        lpFree(&lpDescriptor, 1);
    }
};

using CHwFilterPtr = std::unique_ptr<enyx_hw_filter, CHwDestroy<enyx_hw_filter_destroy>>;

#endif  // KOVA_PUBLIC_REG_HW_HANDLES_H
