/**
 * A reference that may be missing.
 */
#ifndef KOVA_PUBLIC_UTIL_UST_OPTIONAL_H
#define KOVA_PUBLIC_UTIL_UST_OPTIONAL_H

#include <memory>

/** Refers to an object that somebody else owns, or to none. */
template <typename T>
class CUSTOptional {
 public:
    /** Refers to nothing. */
    CUSTOptional() = default;

    /** Refers to the object, which must outlive every use of what GetData returns. */
    CUSTOptional(T& refObject) : m_pointer(std::addressof(refObject)) {}

    /** Whether both refer to the same object, or both to none. */
    bool operator==(const CUSTOptional&) const = default;

    /** The object, or null; bSuccess says which. */
    [[nodiscard]] T* GetData(bool& bSuccess) const {
        bSuccess = m_pointer != nullptr;
        return m_pointer;
    }

 private:
    T* m_pointer = nullptr;
};

#endif  // KOVA_PUBLIC_UTIL_UST_OPTIONAL_H
