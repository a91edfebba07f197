#include "sim/card/sdk_calls.h"

namespace kova::sim {

// One for all objects of the process, so not inline in the header.
std::atomic<bool> SdkCalls::watched_{false};
std::atomic<bool> SdkCalls::recording_calls_{false};

SdkCalls& SdkCalls::of_this_process() {
    // Never destroyed: streams of static objects may close after it would be.
    static auto* const calls = new SdkCalls;
    return *calls;
}

void SdkCalls::start_recording() {
    const std::lock_guard guard(mutex_);
    forget_records();
    recording_calls_.store(true, std::memory_order_relaxed);
    is_recording_registers_ = true;
    watched_.store(true, std::memory_order_relaxed);
}

void SdkCalls::start_recording_registers() {
    const std::lock_guard guard(mutex_);
    forget_records();
    recording_calls_.store(false, std::memory_order_relaxed);
    is_recording_registers_ = true;
    watched_.store(true, std::memory_order_relaxed);
}

void SdkCalls::stop() {
    const std::lock_guard guard(mutex_);
    forget_records();
    recording_calls_.store(false, std::memory_order_relaxed);
    is_recording_registers_ = false;
    failures_.clear();
    forbidden_writes_.clear();
    answers_.clear();
    watched_.store(false, std::memory_order_relaxed);
}

void SdkCalls::forget_records() {
    calls_.clear();
    accesses_.clear();
    counts_.clear();
}

void SdkCalls::fail(std::string_view function, std::uint32_t n, int error) {
    const std::lock_guard guard(mutex_);
    failures_.emplace(std::string(function), Failure{.calls_left = n, .error = error});
    watched_.store(true, std::memory_order_relaxed);
}

void SdkCalls::forbid_write(std::uint32_t number, std::uint64_t value, int error) {
    const std::lock_guard guard(mutex_);
    forbidden_writes_[{number, value}] = error;
    watched_.store(true, std::memory_order_relaxed);
}

void SdkCalls::answer_reads(std::uint32_t number, std::span<const std::uint32_t> values) {
    const std::lock_guard guard(mutex_);
    std::deque<std::uint32_t>& answers = answers_[number];
    answers.insert(answers.end(), values.begin(), values.end());
    watched_.store(true, std::memory_order_relaxed);
}

std::vector<std::string> SdkCalls::calls() const {
    const std::lock_guard guard(mutex_);
    return calls_;
}

std::vector<RegisterAccess> SdkCalls::register_accesses() const {
    const std::lock_guard guard(mutex_);
    return accesses_;
}

std::size_t SdkCalls::count(std::string_view function) const {
    const std::lock_guard guard(mutex_);
    const auto found = counts_.find(function);
    return found == counts_.end() ? 0 : found->second;
}

std::int64_t SdkCalls::alive(std::string_view kind) const {
    const std::lock_guard guard(mutex_);
    const auto found = alive_.find(kind);
    return found == alive_.end() ? 0 : found->second;
}

std::vector<std::string> SdkCalls::kinds_alive() const {
    const std::lock_guard guard(mutex_);
    std::vector<std::string> kinds;
    for (const auto& [kind, count] : alive_) {
        if (count != 0) {
            kinds.push_back(kind);
        }
    }
    return kinds;
}

int SdkCalls::enter(std::string_view function, std::string_view arguments) {
    if (!is_watched()) {
        return 0;
    }
    const std::lock_guard guard(mutex_);
    if (is_recording_calls()) {
        calls_.push_back(std::string(function) + "(" + std::string(arguments) + ")");
        ++counts_[std::string(function)];
    }
    if (failures_.empty()) {
        return 0;
    }
    int error = 0;
    auto [failure, end] = failures_.equal_range(function);
    while (failure != end) {
        if (--failure->second.calls_left == 0) {
            error = failure->second.error;
            failure = failures_.erase(failure);
        } else {
            ++failure;
        }
    }
    return error;
}

int SdkCalls::enter_register(const RegisterAccess& access) {
    if (!is_watched()) {
        return 0;
    }
    const std::lock_guard guard(mutex_);
    if (is_recording_registers_) {
        accesses_.push_back(access);
    }
    const auto forbidden = forbidden_writes_.find({access.number, access.value});
    return access.is_write && forbidden != forbidden_writes_.end() ? forbidden->second : 0;
}

std::uint64_t SdkCalls::answer(std::uint32_t number, std::uint64_t held) {
    const std::lock_guard guard(mutex_);
    const auto prepared = answers_.find(number);
    if (prepared == answers_.end() || prepared->second.empty()) {
        return held;
    }
    const std::uint32_t value = prepared->second.front();
    prepared->second.pop_front();
    return value;
}

void SdkCalls::created(std::string_view kind, std::int64_t count) {
    const std::lock_guard guard(mutex_);
    // Without an allocation once the kind is known: destroying something must not fail for lack of memory.
    auto found = alive_.find(kind);
    if (found == alive_.end()) {
        found = alive_.emplace(std::string(kind), 0).first;
    }
    found->second += count;
}

void SdkCalls::destroyed(std::string_view kind, std::int64_t count) {
    created(kind, -count);
}

}  // namespace kova::sim
