#include "bench/subscription_trace.h"

#include <cstddef>
#include <stdexcept>
#include <utility>

#include "instruments/FeedInfo.h"

namespace kova::bench {

namespace {

constexpr std::size_t kAccessesOfAddition = 6;

// Keeps accesses instead of making them.
class Recorder {
 public:
    void write(std::uint32_t number, std::uint32_t value) {
        accesses_.push_back({.is_write = true, .number = number, .value = value, .is_locked = true});
    }
    void read(std::uint32_t number) {
        accesses_.push_back({.is_write = false, .number = number, .value = 0, .is_locked = true});
    }
    [[nodiscard]] std::vector<sim::RegisterAccess> take() { return std::move(accesses_); }

 private:
    std::vector<sim::RegisterAccess> accesses_;
};

const U50TableRegisters& registers_of(EMDQPDataType feed) {
    return FEED_INFO[static_cast<std::size_t>(feed)].table;
}

EMDQPDataType feed_read_through(std::uint32_t read_address_register) {
    for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
        if (registers_of(feed).nReadAddr == read_address_register) {
            return feed;
        }
    }
    throw std::runtime_error("an access that no subscription makes");
}

}  // namespace

void SubscriptionTrace::add_removal(EMDQPDataType feed, std::uint32_t row, std::uint32_t remains) {
    steps_.push_back({.first_word = row * INST_ROW_WORDS, .config = remains, .feed = feed, .is_removal = true});
}

void SubscriptionTrace::add_recorded(std::span<const sim::RegisterAccess> accesses) {
    if (accesses.size() % kAccessesOfAddition != 0) {
        throw std::runtime_error("accesses that no subscription makes");
    }
    for (std::size_t i = 0; i < accesses.size(); i += kAccessesOfAddition) {
        steps_.push_back({.first_word = static_cast<std::uint32_t>(accesses[i].value),
                          .config = static_cast<std::uint32_t>(accesses[i + 2].value),
                          .feed = feed_read_through(accesses[i].number),
                          .is_removal = false});
    }
}

template <typename Target>
void SubscriptionTrace::play(Target&& target) const {
    for (const Step& step : steps_) {
        const U50TableRegisters& table = registers_of(step.feed);
        if (step.is_removal) {
            for (std::uint32_t word = 0; word < INST_ROW_WORDS; ++word) {
                target.write(table.nReadAddr, step.first_word + word);
                target.read(table.nReadData);
            }
            target.write(table.nWriteData, step.config);
            if (step.config == INST_CONFIG_SUBSCRIBED) {
                target.write(table.nWriteData, 0);
            }
            target.write(table.nWriteAddr, step.first_word);
            continue;
        }
        target.write(table.nReadAddr, step.first_word);
        target.read(table.nReadData);
        target.write(table.nWriteData, step.config);
        target.write(table.nWriteAddr, step.first_word);
        target.write(table.nReadAddr, step.first_word);
        target.read(table.nReadData);
    }
}

void SubscriptionTrace::replay(const SdkRegisters& registers) const {
    play(registers);
}

std::vector<sim::RegisterAccess> SubscriptionTrace::accesses() const {
    Recorder recorder;
    play(recorder);
    return recorder.take();
}

}  // namespace kova::bench
