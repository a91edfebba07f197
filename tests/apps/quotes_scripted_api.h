/**
 * A receiver that plays a script instead of polling a card.
 */
#ifndef KOVA_TESTS_APPS_QUOTES_SCRIPTED_API_H
#define KOVA_TESTS_APPS_QUOTES_SCRIPTED_API_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "KovaShfeMdApi.h"

namespace kova::app {

/**
 * Each receive call plays the next step; behind the last one the stream stays silent. A stop makes every
 * further call return -1, as the interface says. Calls in the wrong mode are counted.
 */
class ScriptedApi final : public CKovaShfeMdApi {
 public:
    /** One receive call: what happens in it, the quotes it brings, what it returns. */
    struct Step {
        std::vector<KovaShfeMdType> quotes;
        int32_t result = 0;
        std::function<void()> during;
    };

    void quote(const KovaShfeMdType& quote) {
        steps_.push_back({.quotes = {quote}, .result = 1, .during = {}});
    }
    void quotes_in_one_call(std::vector<KovaShfeMdType> quotes) {
        steps_.push_back({.quotes = std::move(quotes), .result = 1, .during = {}});
    }
    void nothing(int times = 1) { steps_.insert(steps_.end(), static_cast<std::size_t>(times), Step{}); }
    void failure() { steps_.push_back({.quotes = {}, .result = -1, .during = {}}); }
    void failure_during(std::function<void()> during) {
        steps_.push_back({.quotes = {}, .result = -1, .during = std::move(during)});
    }

    int32_t KovaRecvStart(CKovaShfeMdSpi& /*refKovaShfeMdSpi*/, const char* /*lpConfig*/) override {
        return -1;
    }

    int32_t KovaStart(CKovaShfeMdSpi& refKovaShfeMdSpi, const char* lpConfig) override {
        spi_ = &refKovaShfeMdSpi;
        config = lpConfig;
        return start_result;
    }

    int32_t KovaRecv() override {
        wrong_calls += spi_ == nullptr ? 1 : 0;
        return play([this](const KovaShfeMdType& quote) { spi_->OnKovaShfeMd(&quote); });
    }

    int32_t KovaStart(const char* lpConfig) override {
        config = lpConfig;
        return start_result;
    }

    int32_t KovaRecv(KovaShfeMdType& refSKovaShfeMd) override {
        wrong_calls += spi_ != nullptr ? 1 : 0;
        return play([&](const KovaShfeMdType& quote) { refSKovaShfeMd = quote; });
    }

    int32_t KovaStop() override {
        ++stops;
        return 0;
    }

    std::string config;
    int32_t start_result = 0;
    int stops = 0;
    int wrong_calls = 0;
    std::uint64_t calls = 0;

 private:
    template <typename Deliver>
    int32_t play(Deliver deliver) {
        // A loop that never ends fails instead of hanging.
        constexpr std::uint64_t kTooManyCalls = 1'000'000;
        if (++calls > kTooManyCalls || stops > 0) {
            return -1;
        }
        if (next_ == steps_.size()) {
            return 0;
        }
        const Step& step = steps_[next_++];
        if (step.during) {
            step.during();
        }
        for (const KovaShfeMdType& quote : step.quotes) {
            deliver(quote);
        }
        return step.result;
    }

    CKovaShfeMdSpi* spi_ = nullptr;
    std::vector<Step> steps_;
    std::size_t next_ = 0;
};

}  // namespace kova::app

#endif  // KOVA_TESTS_APPS_QUOTES_SCRIPTED_API_H
