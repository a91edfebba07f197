#include <fcntl.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "apps/quotes_sample.h"
#include "kova_quotes/quote_intake.h"
#include "kova_quotes/terminal_table.h"

namespace {

std::atomic<std::uint64_t> allocations{0};

}  // namespace

// Not inlined, or gcc holds a pair of these for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    allocations.fetch_add(1, std::memory_order_relaxed);
    return std::malloc(size == 0 ? 1 : size);
}
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* memory = operator new(size, std::nothrow)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace kova::app {
namespace {

using namespace std::chrono_literals;

/** What the second round of quotes of many instruments, each with a gap, allocates. */
std::uint64_t allocations_in_steady_state(QuoteWriter& writer) {
    QuoteIntake intake({*InstrumentId::of(std::string_view("cu7")), *InstrumentId::of(std::string_view("cu8"))},
                       writer);
    std::vector<KovaShfeMdType> quotes;
    for (int i = 0; i < 1000; ++i) {
        quotes.push_back(make_quote(fmt::format("cu{}", i % 10), static_cast<std::uint32_t>(2 * i), i));
    }
    const std::uint64_t at_first = allocations;
    intake.take(quotes[0]);
    EXPECT_EQ(allocations, at_first) << "a new instrument";
    const std::uint64_t before = allocations;
    for (const KovaShfeMdType& quote : quotes) {
        intake.take(quote);
        writer.tick(1s * quote.change_no);
    }
    return allocations - before;
}

TEST(QuoteAllocations, TheCounterCounts) {
    const std::uint64_t before = allocations;
    const auto number = std::make_unique<int>(1);
    EXPECT_EQ(allocations, before + 1);
}

TEST(QuoteAllocations, NoFormatAllocatesPerQuote) {
    for (const Format format : {Format::kTable, Format::kCsv, Format::kJson, Format::kNone}) {
        QuoteOutput output(::open("/dev/null", O_WRONLY | O_CLOEXEC));
        const auto writer = make_quote_writer(format, output);
        EXPECT_EQ(allocations_in_steady_state(*writer), 0U);
    }
}

TEST(QuoteAllocations, TheTableOnATerminalDoesNotAllocatePerQuote) {
    QuoteOutput output(::open("/dev/null", O_WRONLY | O_CLOEXEC));
    TerminalTable table(output, TableLayout::for_width(200, true));
    EXPECT_EQ(allocations_in_steady_state(table), 0U);
}

}  // namespace
}  // namespace kova::app
