/**
 * Starts a receiver and polls it until something ends it.
 */
#ifndef KOVA_APPS_KOVA_QUOTES_RECEIVE_LOOP_H
#define KOVA_APPS_KOVA_QUOTES_RECEIVE_LOOP_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "KovaShfeMdApi.h"
#include "kova_quotes/cost_meter.h"
#include "kova_quotes/options.h"
#include "kova_quotes/quote_intake.h"
#include "kova_quotes/quote_writer.h"
#include "kova_quotes/rate_meter.h"
#include "kova_quotes/silence_watch.h"

namespace kova::app {

/** Why a loop ended. */
enum class End { kCount, kSeconds, kSignal, kOutput, kFailure };

/** What the loop needs of the world around it. */
struct LoopWorld {
    std::function<std::chrono::nanoseconds()> now;   /**< steady clock */
    std::function<bool()> is_signalled;              /**< whether SIGINT or SIGTERM came since the start */
    std::function<void(Idle)> pause;                 /**< after an empty poll */
    std::function<void(std::string_view)> tell_user; /**< one line, without its line feed */
    TickSource ticks = processor_ticks;
};

/** The process's clock, signals and standard error. */
LoopWorld real_world();

/** Start and run on the same thread: the start binds it to the configured core. */
class ReceiveLoop final : private CKovaShfeMdSpi {
 public:
    /** Nothing is owned and everything must outlive the loop. */
    ReceiveLoop(CKovaShfeMdApi& api, const Options& options, QuoteIntake& intake, QuoteWriter& writer,
                LoopWorld world);

    /** Starts the receiver in the mode of the options; the library's code, 0 when it started. */
    int32_t start();

    /** Polls until the end; after start(). Once. */
    End run();

    [[nodiscard]] std::chrono::nanoseconds duration() const { return duration_; }
    [[nodiscard]] double best_second() const { return best_second_; }
    /** Null unless the options ask for statistics. */
    [[nodiscard]] const CostMeter* costs() const { return costs_ ? &*costs_ : nullptr; }

 private:
    int32_t OnKovaShfeMd(const KovaShfeMdType* lpKovaShfeMd) override;

    /** Polls until the receiver is stopped or failed. */
    void poll_until_end();
    /** One receive call in the mode of the options. */
    int32_t receive();
    int32_t receive_measured();
    void take(const KovaShfeMdType& quote);

    /** What is to be done now and then, quotes or none. */
    void keep_house();
    /** The first reason counts. The receive call after it returns -1. */
    void stop_because(End end);
    /** Why the receive call returned -1 without stop_because(). */
    [[nodiscard]] End reason_of_end(bool was_first_call) const;

    CKovaShfeMdApi& api_;
    const Options& options_;
    QuoteIntake& intake_;
    QuoteWriter& writer_;
    LoopWorld world_;

    /** Fetch mode: the library keeps its address between calls. */
    KovaShfeMdType record_{};
    std::optional<CostMeter> costs_;
    std::optional<SilenceWatch> silence_;
    std::optional<RateMeter> rate_;
    std::chrono::nanoseconds begun_at_{};
    std::chrono::nanoseconds duration_{};
    double best_second_ = 0;
    std::optional<End> end_;
};

}  // namespace kova::app

#endif  // KOVA_APPS_KOVA_QUOTES_RECEIVE_LOOP_H
