/**
 * Memory of this program as the tests want it: operator new is replaced, watched and made to fail.
 */
#ifndef KOVA_TESTS_SUPPORT_ALLOCATIONS_H
#define KOVA_TESTS_SUPPORT_ALLOCATIONS_H

#include <cstddef>
#include <cstdint>

namespace kova::test {

class Allocations {
 public:
    /** Calls of operator new so far, in any thread. */
    [[nodiscard]] static std::uint64_t count();

    /** What operator new has given out and nobody has given back, in any thread. */
    [[nodiscard]] static std::int64_t alive();

    /**
     * Whether what the card's SDK allocates counts. For a user of it, it does not: it is C and reports a
     * failure of its own. What a handler allocates that it calls does count either way.
     */
    enum class Sdk { kSpared, kCounted };

    /** While it lives, the n-th call of operator new (1 is the next) by this thread fails, and no other. */
    class FailNth {
     public:
        explicit FailNth(std::uint64_t n, Sdk sdk = Sdk::kSpared);
        ~FailNth();
        FailNth(const FailNth&) = delete;
        FailNth& operator=(const FailNth&) = delete;

        /** Whether that call has come. */
        [[nodiscard]] bool has_failed() const;
    };

    /** A handler runs, called by the card's SDK, while it lives. */
    class InHandler {
     public:
        InHandler();
        ~InHandler();
        InHandler(const InHandler&) = delete;
        InHandler& operator=(const InHandler&) = delete;
    };

    /** While it lives, every call of operator new for at least this many bytes by this thread fails. */
    class FailLarge {
     public:
        explicit FailLarge(std::size_t bytes);
        ~FailLarge();
        FailLarge(const FailLarge&) = delete;
        FailLarge& operator=(const FailLarge&) = delete;
    };
};

}  // namespace kova::test

#endif  // KOVA_TESTS_SUPPORT_ALLOCATIONS_H
