#include "kova_quotes/receive_loop.h"

#include <sched.h>

#include <cstdio>
#include <ctime>
#include <string>
#include <utility>

#include "kova_quotes/signal_watch.h"

namespace kova::app {

namespace {

constexpr long kSleepNanoseconds = 1'000'000;

/** How many polls may pass between two looks at the clock; a poll that sleeps takes long enough for one. */
unsigned polls_per_look(Idle idle) {
    switch (idle) {
        case Idle::kSpin:
            return 256;
        case Idle::kYield:
            return 16;
        case Idle::kSleep:
            break;
    }
    return 1;
}

void pause_for_real(Idle idle) {
    if (idle == Idle::kYield) {
        ::sched_yield();
    } else if (idle == Idle::kSleep) {
        const timespec nap{.tv_sec = 0, .tv_nsec = kSleepNanoseconds};
        ::nanosleep(&nap, nullptr);
    }
}

void tell_on_standard_error(std::string_view text) {
    // One write, so that lines of several receivers on one terminal stay whole.
    std::string line("kova-quotes: ");
    line.append(text).push_back('\n');
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace

LoopWorld real_world() {
    return {.now = [] { return std::chrono::steady_clock::now().time_since_epoch(); },
            .is_signalled = SignalWatch::seen,
            .pause = pause_for_real,
            .tell_user = tell_on_standard_error};
}

ReceiveLoop::ReceiveLoop(CKovaShfeMdApi& api, const Options& options, QuoteIntake& intake, QuoteWriter& writer,
                         LoopWorld world)
    : api_(api), options_(options), intake_(intake), writer_(writer), world_(std::move(world)) {
    if (options.stats) {
        costs_.emplace(world_.ticks);
    }
}

int32_t ReceiveLoop::start() {
    return options_.fetch ? api_.KovaStart(options_.config.c_str())
                          : api_.KovaStart(*this, options_.config.c_str());
}

End ReceiveLoop::run() {
    begun_at_ = world_.now();
    silence_.emplace(begun_at_);
    rate_.emplace(begun_at_);
    if (costs_) {
        costs_->begin(begun_at_);
    }

    poll_until_end();

    const std::chrono::nanoseconds now = world_.now();
    if (costs_) {
        costs_->end(now);
    }
    rate_->check(now, intake_.received());
    best_second_ = rate_->best();
    duration_ = now - begun_at_;
    return *end_;
}

void ReceiveLoop::poll_until_end() {
    const unsigned polls_per_house = polls_per_look(options_.idle);
    unsigned polls = 0;
    bool is_first_call = true;
    while (true) {
        const int32_t result = costs_ ? receive_measured() : receive();
        if (result == -1) {
            if (!end_) {
                end_ = reason_of_end(is_first_call);
            }
            return;
        }
        is_first_call = false;
        if (result == 1 && options_.fetch) {
            take(record_);
        }
        if (result == 0 && options_.idle != Idle::kSpin) {
            world_.pause(options_.idle);
        }
        if (++polls >= polls_per_house) {
            polls = 0;
            keep_house();
        }
    }
}

int32_t ReceiveLoop::receive() {
    return options_.fetch ? api_.KovaRecv(record_) : api_.KovaRecv();
}

int32_t ReceiveLoop::receive_measured() {
    costs_->open_call();
    const int32_t result = receive();
    if (result != -1) {
        costs_->close_call(result == 1);
    }
    return result;
}

int32_t ReceiveLoop::OnKovaShfeMd(const KovaShfeMdType* lpKovaShfeMd) {
    if (costs_) {
        costs_->open_callback();
        take(*lpKovaShfeMd);
        costs_->close_callback();
    } else {
        take(*lpKovaShfeMd);
    }
    return 0;
}

void ReceiveLoop::take(const KovaShfeMdType& quote) {
    if (end_) {
        // One poll may bring several quotes; those behind the last one asked for are not ours.
        return;
    }
    intake_.take(quote);
    if (writer_.failed()) {
        stop_because(End::kOutput);
    } else if (options_.count && intake_.displayed() == *options_.count) {
        stop_because(End::kCount);
    }
}

void ReceiveLoop::keep_house() {
    const std::chrono::nanoseconds now = world_.now();
    writer_.tick(now);
    rate_->check(now, intake_.received());
    if (const auto word = silence_->check(now, intake_.received(), intake_.displayed())) {
        world_.tell_user(*word);
    }
    if (writer_.failed()) {
        stop_because(End::kOutput);
    } else if (options_.duration && now - begun_at_ >= *options_.duration) {
        stop_because(End::kSeconds);
    }
}

void ReceiveLoop::stop_because(End end) {
    if (!end_) {
        end_ = end;
        api_.KovaStop();
    }
}

End ReceiveLoop::reason_of_end(bool was_first_call) const {
    // A start that succeeded has brought the card up, so nothing but a signal during it can end the first call.
    return was_first_call || world_.is_signalled() ? End::kSignal : End::kFailure;
}

}  // namespace kova::app
