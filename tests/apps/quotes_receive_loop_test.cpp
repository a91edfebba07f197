#include "kova_quotes/receive_loop.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "apps/quotes_sample.h"
#include "apps/quotes_scripted_api.h"

namespace kova::app {
namespace {

using namespace std::chrono_literals;

/** Keeps what it is given; fails after as many quotes as the test wants. */
class KeepingWriter final : public QuoteWriter {
 public:
    explicit KeepingWriter(QuoteOutput& quote_output) : QuoteWriter(quote_output) {}

    void write(const KovaShfeMdType& quote) override { changes.push_back(quote.change_no); }

    std::vector<std::uint32_t> changes;
};

std::uint64_t one_tick_a_reading() {
    static std::uint64_t ticks = 0;
    return ++ticks;
}

/** A world whose clock moves on with each look at it. */
class ReceiveLoopTest : public ::testing::Test {
 protected:
    ReceiveLoopTest() { options_.config = "kova.ini"; }

    End run() {
        output_ = std::make_unique<QuoteOutput>(-1);
        writer_ = std::make_unique<KeepingWriter>(*output_);
        intake_ = std::make_unique<QuoteIntake>(options_.instruments, *writer_);
        loop_ = std::make_unique<ReceiveLoop>(
            api_, options_, *intake_, *writer_,
            LoopWorld{.now = [this] { return now_ += step_; },
                      .is_signalled = [this] { return is_signalled_; },
                      .pause = [this](Idle idle) { pauses_.push_back(idle); },
                      .tell_user = [this](std::string_view text) { told_.emplace_back(text); },
                      .ticks = one_tick_a_reading});
        EXPECT_EQ(loop_->start(), 0);
        const End end = loop_->run();
        EXPECT_EQ(api_.wrong_calls, 0);
        return end;
    }

    void script(std::uint32_t quotes) {
        for (std::uint32_t change = 1; change <= quotes; ++change) {
            api_.quote(make_quote(change % 2 == 1 ? "cu2509" : "al2509", change));
            api_.nothing(3);
        }
    }

    ScriptedApi api_;
    Options options_;
    std::chrono::nanoseconds now_{0};
    std::chrono::nanoseconds step_{1ms};
    bool is_signalled_ = false;
    std::vector<Idle> pauses_;
    std::vector<std::string> told_;
    std::unique_ptr<QuoteOutput> output_;
    std::unique_ptr<KeepingWriter> writer_;
    std::unique_ptr<QuoteIntake> intake_;
    std::unique_ptr<ReceiveLoop> loop_;
};

using Changes = std::vector<std::uint32_t>;

TEST_F(ReceiveLoopTest, TheCountIsExactInCallbackMode) {
    options_.count = 3;
    script(10);
    EXPECT_EQ(run(), End::kCount);
    EXPECT_EQ(writer_->changes, (Changes{1, 2, 3}));
    EXPECT_EQ(intake_->received(), 3U);
    EXPECT_EQ(api_.stops, 1);
    EXPECT_EQ(api_.config, "kova.ini");
}

TEST_F(ReceiveLoopTest, TheCountIsExactInFetchMode) {
    options_.fetch = true;
    options_.count = 3;
    script(10);
    EXPECT_EQ(run(), End::kCount);
    EXPECT_EQ(writer_->changes, (Changes{1, 2, 3}));
    EXPECT_EQ(intake_->received(), 3U);
    EXPECT_EQ(api_.stops, 1);
}

TEST_F(ReceiveLoopTest, TheCountIsExactWhenOneCallBringsSeveralQuotes) {
    options_.count = 2;
    api_.nothing();
    api_.quotes_in_one_call({make_quote("a", 1), make_quote("a", 2), make_quote("a", 3)});
    EXPECT_EQ(run(), End::kCount);
    EXPECT_EQ(writer_->changes, (Changes{1, 2}));
    EXPECT_EQ(intake_->received(), 2U);
}

TEST_F(ReceiveLoopTest, AfterTheLastQuoteOneMoreCallLeavesTheLoop) {
    options_.count = 1;
    script(10);
    run();
    EXPECT_EQ(api_.calls, 2U);
}

TEST_F(ReceiveLoopTest, OnlyChosenInstrumentsAreDisplayedAndCounted) {
    options_.instruments = {*InstrumentId::of(std::string_view("al2509"))};
    options_.count = 2;
    script(10);
    EXPECT_EQ(run(), End::kCount);
    EXPECT_EQ(writer_->changes, (Changes{2, 4}));
    EXPECT_EQ(intake_->received(), 4U);
    EXPECT_EQ(intake_->displayed(), 2U);
    EXPECT_EQ(intake_->changes().instruments(), 2U);
}

TEST_F(ReceiveLoopTest, ChosenInstrumentsWithoutAQuoteAreKnown) {
    options_.instruments = {*InstrumentId::of(std::string_view("al2509")),
                            *InstrumentId::of(std::string_view("zn2509"))};
    options_.count = 1;
    script(10);
    run();
    ASSERT_EQ(intake_->silent().size(), 1U);
    EXPECT_EQ(intake_->silent()[0].printable(), "zn2509");
}

TEST_F(ReceiveLoopTest, TheTimeEndsTheLoop) {
    options_.duration = 2s;
    options_.idle = Idle::kSleep;
    step_ = 100ms;
    script(2);
    EXPECT_EQ(run(), End::kSeconds);
    EXPECT_EQ(writer_->changes, (Changes{1, 2}));
    EXPECT_EQ(api_.stops, 1);
    EXPECT_EQ(loop_->duration(), 2s + 100ms);
}

TEST_F(ReceiveLoopTest, TheTimeEndsALoopThatSpinsToo) {
    options_.duration = 2s;
    step_ = 100ms;
    EXPECT_EQ(run(), End::kSeconds);
}

TEST_F(ReceiveLoopTest, ASignalIsANormalEnd) {
    script(2);
    api_.failure_during([this] { is_signalled_ = true; });
    EXPECT_EQ(run(), End::kSignal);
    EXPECT_EQ(writer_->changes, (Changes{1, 2}));
    EXPECT_EQ(api_.stops, 0);
}

TEST_F(ReceiveLoopTest, ASignalDuringTheStartEndsTheFirstCallAndIsANormalEnd) {
    api_.failure();
    EXPECT_EQ(run(), End::kSignal);
}

TEST_F(ReceiveLoopTest, AReceiveCallThatFailsUnaskedIsAFailure) {
    api_.nothing();
    api_.failure();
    EXPECT_EQ(run(), End::kFailure);
    EXPECT_EQ(api_.stops, 0);
}

TEST_F(ReceiveLoopTest, AFailedOutputEndsTheLoopWithTheNextQuote) {
    script(10);
    api_.quotes_in_one_call({make_quote("a", 11)});
    options_.config = "kova.ini";
    output_ = nullptr;
    // The descriptor -1 refuses the first flush, which comes when the buffer is full.
    class FillingWriter final : public QuoteWriter {
     public:
        explicit FillingWriter(QuoteOutput& quote_output) : QuoteWriter(quote_output) {}
        void write(const KovaShfeMdType& /*quote*/) override {
            ++written;
            output().put(std::string(40000, 'x'));
        }
        int written = 0;
    };
    QuoteOutput output(-1);
    FillingWriter writer(output);
    QuoteIntake intake({}, writer);
    ReceiveLoop loop(api_, options_, intake, writer, real_world());
    EXPECT_EQ(loop.start(), 0);
    EXPECT_EQ(loop.run(), End::kOutput);
    EXPECT_EQ(writer.written, 2);
    EXPECT_EQ(api_.stops, 1);
}

TEST_F(ReceiveLoopTest, AStartThatFailsHandsItsCodeOn) {
    api_.start_result = -2;
    QuoteOutput output(-1);
    KeepingWriter writer(output);
    QuoteIntake intake({}, writer);
    ReceiveLoop loop(api_, options_, intake, writer, real_world());
    EXPECT_EQ(loop.start(), -2);
}

TEST_F(ReceiveLoopTest, ASilentStreamIsTold) {
    options_.duration = 21s;
    options_.idle = Idle::kSleep;
    step_ = 500ms;
    run();
    EXPECT_EQ(told_, (std::vector<std::string>{"no quote for 5 s", "no quote for 10 s", "no quote for 20 s"}));
}

TEST_F(ReceiveLoopTest, BetweenEmptyPollsItIdlesAsAskedAndNeverAfterAQuote) {
    options_.idle = Idle::kYield;
    options_.count = 3;
    script(3);
    run();
    EXPECT_EQ(pauses_, std::vector<Idle>(6, Idle::kYield));
}

TEST_F(ReceiveLoopTest, SpinningNeverPauses) {
    options_.count = 3;
    script(3);
    run();
    EXPECT_TRUE(pauses_.empty());
}

TEST_F(ReceiveLoopTest, StatisticsCountCallsWithAndWithoutAQuote) {
    for (const bool fetch : {false, true}) {
        api_ = ScriptedApi();
        options_.fetch = fetch;
        options_.stats = true;
        options_.count = 4;
        script(4);
        EXPECT_EQ(run(), End::kCount);
        ASSERT_NE(loop_->costs(), nullptr);
        EXPECT_EQ(loop_->costs()->with_quote().calls, 4U);
        EXPECT_EQ(loop_->costs()->empty().calls, 9U);
    }
}

TEST_F(ReceiveLoopTest, WithoutStatisticsNothingIsMeasured) {
    options_.count = 1;
    script(1);
    run();
    EXPECT_EQ(loop_->costs(), nullptr);
}

TEST_F(ReceiveLoopTest, TheBusiestSecondIsKept) {
    options_.idle = Idle::kSleep;
    options_.duration = 3s;
    step_ = 100ms;
    for (std::uint32_t change = 1; change <= 5; ++change) {
        api_.quote(make_quote("a", change));
    }
    api_.nothing(5);
    run();
    EXPECT_DOUBLE_EQ(loop_->best_second(), 5);
}

}  // namespace
}  // namespace kova::app
