/**
 * Watches the calls that this process makes to the SDK stand-ins: records them, makes chosen ones fail, and
 * counts the objects that are alive. For tests; without a watcher each call costs one load.
 */
#ifndef KOVA_SIM_CARD_SDK_CALLS_H
#define KOVA_SIM_CARD_SDK_CALLS_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kova::sim {

/** One register access. */
struct RegisterAccess {
    bool is_write = false;
    std::uint32_t number = 0;
    std::uint64_t value = 0;
    bool is_locked = false;  // the calling thread held the core lock

    friend bool operator==(const RegisterAccess&, const RegisterAccess&) = default;
};

class SdkCalls {
 public:
    static SdkCalls& of_this_process();

    /** Whether any of what follows has been asked for. */
    [[nodiscard]] static bool is_watched() { return watched_.load(std::memory_order_relaxed); }

    /** Whether somebody wants to know the calls' arguments. */
    [[nodiscard]] static bool is_recording_calls() { return recording_calls_.load(std::memory_order_relaxed); }

    /** Starts recording calls and register accesses, from nothing. */
    void start_recording();
    /** Starts recording register accesses alone, which is cheap enough for millions of them. */
    void start_recording_registers();
    /** Forgets records and failures still to come, and stops watching. */
    void stop();

    /** Makes the n-th call (1 is the next) of the SDK function with this name fail with `error` as errno. */
    void fail(std::string_view function, std::uint32_t n, int error);
    /** Makes every write of this value to this register fail with `error` as errno. */
    void forbid_write(std::uint32_t number, std::uint64_t value, int error);
    /** Answers the next reads of this register with these values, one each, whatever the card holds. */
    void answer_reads(std::uint32_t number, std::span<const std::uint32_t> values);

    /** The calls recorded so far, each as the name and its telling arguments: "enyx_hw_filter_set_index(0)". */
    [[nodiscard]] std::vector<std::string> calls() const;
    [[nodiscard]] std::vector<RegisterAccess> register_accesses() const;
    /** Calls of one function among those recorded. */
    [[nodiscard]] std::size_t count(std::string_view function) const;

    /** Objects of one kind ("filter", "a2c_stream", ...) created and not destroyed; counted always. */
    [[nodiscard]] std::int64_t alive(std::string_view kind) const;
    /** Kinds of which some object is alive. */
    [[nodiscard]] std::vector<std::string> kinds_alive() const;

    // What the stand-ins call.

    /** Notes a call; the errno that it has to fail with, or 0. */
    int enter(std::string_view function, std::string_view arguments = {});
    /** Notes a register access; the errno that it has to fail with, or 0. */
    int enter_register(const RegisterAccess& access);
    /** What a read of this register yields: the next prepared answer, or what the card holds. */
    [[nodiscard]] std::uint64_t answer(std::uint32_t number, std::uint64_t held);
    void created(std::string_view kind, std::int64_t count = 1);
    void destroyed(std::string_view kind, std::int64_t count = 1);

 private:
    struct Failure {
        std::uint32_t calls_left;
        int error;
    };

    void forget_records();

    static std::atomic<bool> watched_;
    static std::atomic<bool> recording_calls_;

    mutable std::mutex mutex_;
    bool is_recording_registers_ = false;
    std::vector<std::string> calls_;
    std::vector<RegisterAccess> accesses_;
    std::map<std::string, std::size_t, std::less<>> counts_;
    std::multimap<std::string, Failure, std::less<>> failures_;
    std::map<std::pair<std::uint32_t, std::uint64_t>, int> forbidden_writes_;
    std::map<std::uint32_t, std::deque<std::uint32_t>> answers_;
    std::map<std::string, std::int64_t, std::less<>> alive_;
};

}  // namespace kova::sim

#endif  // KOVA_SIM_CARD_SDK_CALLS_H
