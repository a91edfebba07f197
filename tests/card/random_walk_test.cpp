// Random walks of the whole engine on a card: whatever card, exchange and user do in whatever order, the engine
// is in a state of its table, and everything that can be seen of it is what that state says.
//
// A walk is a process of its own and follows from its seed alone. KOVA_WALK_SECONDS: how long walks are taken,
// in all parts together, 60 if not given; KOVA_WALK_FIRST: the first seed, 1 if not given; KOVA_WALK_SEED: this
// seed's walk alone. One that fails prints its seed and its last steps.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "card/bring_up_test.h"
#include "card/small_listing.h"
#include "card/table_shortcut.h"
#include "card/walk_model.h"
#include "sim/card/contract_tables.h"

namespace {

using kova::test::ByteString;
using kova::test::Clock;
using kova::test::kSmallConfig;
using kova::test::kSmallInstrumentFile;
using kova::test::kWalkStateNames;
using kova::test::MdqpMessage;
using kova::test::Polls;
using kova::test::SnapshotFrames;
using kova::test::TableShortcut;
using kova::test::walk_rule;
using kova::test::WalkDisturbance;
using kova::test::WalkMessage;
using kova::test::WalkModel;
using kova::test::WalkRule;
using kova::test::WalkSnapshot;
using kova::test::WalkState;
using Rows = kova::test::CardModel::Rows;

constexpr std::uint32_t kParts = 2;
constexpr int kStepsOfWalk = 80;
constexpr unsigned kLongestSeconds = 60;  // of one walk
constexpr int kMostPolls = 400;           // of one step
constexpr std::size_t kMostWaiting = 40;  // messages in the stream

using Frames = std::vector<ByteString>;

/** The frames of a snapshot whose one row has a price above its limit. */
Frames frames_with_bad_price() {
    kova::test::MessageFrames frames(5000);
    const auto instrument = [](std::string_view id, std::int32_t number) {
        return kova::test::InstInfoField{
            .inst_id = id, .volume_multiple = 5, .price_tick = 1, .codec_price = 1, .inst_no = number};
    };
    frames.add(MdqpMessage(0x11)
                   .snap(1000, 7)
                   .packet_no(1)
                   .inst_info(instrument("cu2606", 0))
                   .deal_info({.inst_no = 0,
                               .last_price = 100,
                               .upper_limit_price = 110,
                               .lower_limit_price = 90,
                               .action_day = "20310215"})
                   .bid(0, 111, 3));
    frames.add(MdqpMessage(0x01).inst_info(instrument("al2607", 1)).tail());
    frames.add(MdqpMessage(0x11).snap(5000, 9).packet_no(1).inst_info(instrument("sc2606", 0)));
    frames.add(MdqpMessage(0x01).packet_no(2).tail());
    frames.add_empty();
    return frames.frames();
}

/** Two frames of the whole snapshot, the end of their connection, and the whole snapshot. */
Frames frames_with_restart() {
    const Frames whole = SnapshotFrames().frames();
    Frames frames = {
        whole[0], whole[1],
        kova::test::ethernet_frame({.seq = 9, .flags = kova::test::kTcpRst | kova::test::kTcpAck})};
    frames.insert(frames.end(), whole.begin(), whole.end());
    return frames;
}

std::string text_of(const std::string& file) {
    return (std::ostringstream() << std::ifstream(file, std::ios::binary).rdbuf()).str();
}

std::int64_t open_files() {
    std::int64_t count = 0;
    for ([[maybe_unused]] const auto& file : std::filesystem::directory_iterator("/proc/self/fd")) {
        ++count;
    }
    return count;
}

/** Seconds of real time: the tests' own clock stands in for every other one. */
double real_seconds() {
    timespec now{};
    static_cast<void>(::syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &now));
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

std::uint64_t from_environment(const char* name, std::uint64_t otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

/** What a walk leaves to the process that started it. */
struct Account {
    static constexpr std::size_t kLines = 14;

    std::array<std::array<char, 160>, kLines> last_steps;
    std::uint64_t steps;
    std::uint64_t bring_ups;
    std::array<std::uint64_t, kWalkStateNames.size()> steps_in;
    std::array<char, 1000> failure;

    void note(const std::string& step) {
        std::snprintf(last_steps[steps % kLines].data(), last_steps[0].size(), "%llu: %s",
                      static_cast<unsigned long long>(steps), step.c_str());
        ++steps;
    }
};

/** A callback that counts, and stops the engine when it is told to. */
class WalkSpi : public CKovaShfeMdSpi {
 public:
    std::int32_t OnKovaShfeMd(const KovaShfeMdType* record) override {
        ++calls;
        change_no = record->change_no;
        if (to_stop != nullptr) {
            to_stop->KovaStop();
        }
        return 0;
    }

    int calls = 0;
    std::uint32_t change_no = 0;
    CKovaShfeMdApi* to_stop = nullptr;
};

/** The real thing, and the same steps on the model. */
class Walker {
 public:
    Walker(std::uint64_t seed, const std::string& instrument_file, Account& account)
        : instrument_file_(instrument_file), account_(account), random_(seed) {
        card_.calls().stop();
        TableShortcut::allow(&card_->memory());
        model_.channel = pick(6) == 0 ? 3 : 0;
        model_.attempts = 1 + pick(3);
        model_.is_check_wanted = pick(2) == 0;
        model_.crc_of_config = write_config();
        model_.second = Clock::now() / std::chrono::seconds(1);
        Clock::move_per_poll(std::chrono::seconds(1));
        Polls::before_each([this](std::uint64_t) { before_poll(); });
        Clock::during_each_sleep([this] { send_wanted_quote(); });
        files_before_ = open_files();
    }
    ~Walker() {
        Polls::before_each({});
        Clock::during_each_sleep({});
        TableShortcut::allow(nullptr);
    }
    Walker(const Walker&) = delete;
    Walker& operator=(const Walker&) = delete;

    void walk() {
        take(&Walker::start);
        int steps_left = kStepsOfWalk;
        while (steps_left-- > 0 && account_.failure[0] == '\0') {
            // A process that has received a signal is at its end.
            steps_left = std::min(steps_left, model_.has_exited ? steps_left / 2 : steps_left);
            ++account_.steps_in[static_cast<std::size_t>(model_.state())];
            take(&Walker::step);
        }
        account_.bring_ups = static_cast<std::uint64_t>(model_.brought_up);
    }

 private:
    // What disturbs a step or is refused in it ends with it, and comes no more in the next one.
    void take(void (Walker::*action)()) {
        model_.begin_step();
        polls_ = 0;
        (this->*action)();
        card_.calls().stop();
        spi_.to_stop = nullptr;
        compare();
    }

    // Chance.

    int pick(int count) { return static_cast<int>(random_() % static_cast<std::uint64_t>(count)); }
    template <typename Value, std::size_t N>
    Value pick_of(const std::array<Value, N>& values) {
        return values[static_cast<std::size_t>(pick(N))];
    }

    // Steps.

    void step() {
        struct Choice {
            int weight;
            void (Walker::*action)();
        };
        static constexpr std::array<Choice, 14> choices = {{{31, &Walker::receive},
                                                            {12, &Walker::receive_disturbed},
                                                            {12, &Walker::send_quotes},
                                                            {12, &Walker::send_event},
                                                            {4, &Walker::send_junk},
                                                            {7, &Walker::start},
                                                            {3, &Walker::run},
                                                            {3, &Walker::stop},
                                                            {4, &Walker::renew},
                                                            {2, &Walker::power_cycle},
                                                            {1, &Walker::reset_by_another},
                                                            {10, &Walker::change_conditions},
                                                            {2, &Walker::idle},
                                                            {1, &Walker::signal}}};
        // Where hardly anything happens any more the user does not stay for long.
        const bool is_stuck = model_.state() == WalkState::kStopping || model_.state() == WalkState::kGivenUp;
        if (is_stuck && pick(3) == 0) {
            return pick(2) == 0 ? start() : renew();
        }
        int lot = pick(104);
        for (const Choice& choice : choices) {
            lot -= choice.weight;
            if (lot < 0) {
                (this->*choice.action)();
                return;
            }
        }
    }

    void receive() {
        if (!model_.may_receive()) {
            return start();
        }
        const bool is_with_buffer = pick(2) == 0;
        const WalkState before = model_.state();
        account_.note(std::string(is_with_buffer ? "receive into a buffer, " : "receive, ") +
                      kWalkStateNames[static_cast<std::size_t>(before)] + disturbance_text());
        const int calls = spi_.calls;
        record_.change_no = 0;
        const int result = is_with_buffer ? engine_->KovaRecv(record_) : engine_->KovaRecv();
        const WalkModel::Received expected = model_.receive(is_with_buffer);
        same("result", result, expected.result);
        same("calls of the callback", spi_.calls - calls, expected.is_called ? 1 : 0);
        if (result == 1) {
            same("quote", expected.is_called ? spi_.change_no : record_.change_no, expected.number);
        } else {
            same("buffer", record_.change_no, 0U);
        }
        expect_rule(before, result);
    }

    void receive_disturbed() {
        // A start has a disturbance of its own.
        if (model_.may_receive()) {
            disturb();
        }
        receive();
    }

    void disturb() {
        static constexpr std::array kinds = {WalkDisturbance::kStop,      WalkDisturbance::kPowerCycle,
                                             WalkDisturbance::kLostEvent, WalkDisturbance::kPollFails,
                                             WalkDisturbance::kSignal,    WalkDisturbance::kNone};
        model_.disturbance = pick_of(kinds);
        if (model_.disturbance == WalkDisturbance::kSignal && (!model_.has_handlers || pick(5) != 0)) {
            model_.disturbance = WalkDisturbance::kStop;
        }
        // As often as not in the only poll of a call.
        model_.disturbed_poll = pick(2) == 0 ? 1 : 1 + pick(16);
        if (model_.disturbance == WalkDisturbance::kPollFails) {
            card_.calls().fail("enyx_hw_a2c_stream_poll_once",
                               static_cast<std::uint32_t>(model_.disturbed_poll), EIO);
        }
        if (model_.disturbance == WalkDisturbance::kNone) {
            refuse_something();
        }
    }

    // Writes that the card refuses, and a callback that stops.
    void refuse_something() {
        switch (pick(3)) {
            case 0:
                model_.is_start_refused = true;
                card_.calls().forbid_write(0x11120, 1, EIO);
                break;
            case 1:
                model_.is_forwarding_refused = true;
                card_.calls().forbid_write(0x1000, 0xF, EIO);
                break;
            default:
                model_.is_callback_stopping = true;
                spi_.to_stop = engine_.get();
                break;
        }
    }

    void start() {
        static constexpr std::array<const char*, 6> failing = {
            "enyx_hw_mmio_create",       "enyx_hw_enumerate_cores",   "enyx_hw_core_enumerate",
            "enyx_hw_a2c_stream_create", "enyx_hw_c2a_stream_create", "enyx_hw_a2c_stream_get_mtu"};
        const bool is_to_fetch = pick(2) == 0;
        const int kind = pick(12);
        if (kind == 0) {
            return start_without_file(is_to_fetch);
        }
        const char* const path = kind == 1 ? "missing.ini" : "walk.ini";
        const char* const fails = kind <= 3 && kind != 1 ? pick_of(failing) : "";
        if (*fails != '\0') {
            card_.calls().fail(fails, 1, EIO);
        } else if (pick(4) == 0) {
            disturb();
        }
        account_.note(std::string("start ") + (is_to_fetch ? "to fetch " : "") + path + " " + fails +
                      disturbance_text());
        const int result = is_to_fetch ? engine_->KovaStart(path) : engine_->KovaStart(spi_, path);
        same("result of the start", result, model_.start(is_to_fetch, kind != 1, fails));
    }

    void start_without_file(bool is_to_fetch) {
        account_.note("start without a file");
        same("result", is_to_fetch ? engine_->KovaStart(nullptr) : engine_->KovaStart(spi_, nullptr), -1);
        model_.is_log_open = model_.is_log_open || is_to_fetch;
    }

    // Something has to end it: a stop at some poll.
    void run() {
        model_.disturbance = WalkDisturbance::kStop;
        model_.disturbed_poll = 1 + pick(24);
        account_.note("run" + disturbance_text());
        const int calls = spi_.calls;
        const int result = engine_->KovaRecvStart(spi_, "walk.ini");
        int expected_calls = 0;
        same("result of the run", result, model_.run("", [&](const WalkModel::Received& received) {
            expected_calls += received.is_called ? 1 : 0;
        }));
        same("calls of the callback", spi_.calls - calls, expected_calls);
    }

    void stop() {
        account_.note("stop");
        same("result", engine_->KovaStop(), 0);
        model_.is_stopped = true;
    }

    void renew() {
        account_.note("a new engine");
        engine_.reset();
        engine_ = EngineAccess::create();
        model_.renew();
    }

    void signal() {
        if (model_.has_handlers && pick(3) == 0) {
            account_.note("a signal");
            static_cast<void>(::raise(pick(2) == 0 ? SIGINT : SIGTERM));
            model_.has_exited = true;
        }
    }

    // What the card and the exchange do.

    void send_quotes() {
        for (int count = 1 + pick(3); count > 0 && model_.stream.size() < kMostWaiting; --count) {
            account_.note("a quote");
            send_wanted_quote_of_both();
        }
        if (model_.channel == 0 && !model_.card.is_line_cut) {
            send_unwanted_quotes();
        }
    }

    void send_wanted_quote_of_both() {
        if (model_.channel != 0) {
            // A channel whose card is another process's business.
            const KovaShfeMdType quote = quote_of(0, ++quotes_);
            ++model_.quotes;
            same("sent", card_->push_quote(3, quote) == kova::sim::PushResult::kSent,
                 model_.send(WalkMessage::kQuote, model_.quotes));
            return;
        }
        const bool is_sent = send_wanted_quote();
        same("sent", is_sent, model_.send_wanted_quote());
    }

    /** Whether it stands in channel 0's stream. */
    bool send_wanted_quote() {
        ++quotes_;
        return !model_.card.is_line_cut && card_->route_quote(SHFE_2PS, quote_of(0, quotes_)).sent != 0;
    }

    // Of an instrument that nobody wants and of one for channel 5, which nobody reads.
    void send_unwanted_quotes() {
        const auto copper = card_->route_quote(SHFE_2PS, quote_of(1, 0));
        same("sent of the unwanted", copper.sent + copper.lost + copper.unheard, 0U);
        const auto oil = card_->route_quote(INE_2PS, quote_of(0, 0));
        const bool is_routed = model_.card.is_core_started && model_.card.rows == Rows::kSubscribed;
        same("unheard", oil.unheard, is_routed ? 1U : 0U);
        same("sent of channel 5", oil.sent + oil.lost, 0U);
        model_.card.packets += model_.card.is_core_started ? 2 : 0;
    }

    static KovaShfeMdType quote_of(std::uint32_t instrument, std::uint32_t number) {
        KovaShfeMdType quote = kova::test::quote_number(number);
        quote.inst_no = instrument;
        return quote;
    }

    void send_event() {
        struct Event {
            WalkMessage kind;
            kova::sim::EventWords words;
        };
        static constexpr std::array<Event, 18> events = {{
            {WalkMessage::kLostEvent, {0x80}},
            {WalkMessage::kLostEvent, {0x80000000}},
            {WalkMessage::kLostEvent, {0x4000, 0x100}},
            {WalkMessage::kLostEvent, {0, 0x08000000}},
            {WalkMessage::kLostEvent, {0, 0, 0, 0x8}},
            {WalkMessage::kTimeoutEvent, {0x40}},
            {WalkMessage::kTimeoutEvent, {0x4000, 0x20}},
            {WalkMessage::kTimeoutEvent, {0x400000, 0, 0, 0}},
            {WalkMessage::kTimeoutEvent, {0x40000000, 0x10, 0, 1}},
            {WalkMessage::kTimeoutEvent, {0x7F40407F, 0, 4, 1, 1, 1}},
            {WalkMessage::kReadyEvent, {0, 0, 1}},
            {WalkMessage::kReadyEvent, {0, 0, 3, 0x10}},
            {WalkMessage::kReadyAndLost, {0x8000, 0, 1}},
            {WalkMessage::kReadyAndLost, {0, 0, 3, 1}},
            {WalkMessage::kReadyAndLost, {0, 0x20100, 5, 1}},
            {WalkMessage::kOtherEvent, {}},
            {WalkMessage::kOtherEvent, {0x3F3F3F3F, 0xF0F0F0F0, 0xFFFFFFFE, 0xFFFFFFF0, 1, 1}},
            {WalkMessage::kOtherEvent, {0, 0, 2}},
        }};
        if (model_.stream.size() >= kMostWaiting) {
            return;
        }
        const Event& event = events[static_cast<std::size_t>(pick(events.size()))];
        if (event.kind == WalkMessage::kTimeoutEvent && model_.channel == 0) {
            show_update_time();
        }
        account_.note("an event of kind " + std::to_string(static_cast<int>(event.kind)));
        card_->push_event(static_cast<std::uint32_t>(model_.channel), event.words);
        model_.send_event(event.kind);
    }

    void send_junk() {
        if (model_.stream.size() >= kMostWaiting) {
            return;
        }
        account_.note("junk");
        ByteString junk(static_cast<std::size_t>(4 + pick(600)), 0);
        std::generate(junk.begin(), junk.end(), [this] { return static_cast<std::uint8_t>(pick(256)); });
        const std::uint32_t type = pick(2) == 0 ? 2U : 3U + static_cast<std::uint32_t>(pick(1'000'000));
        std::memcpy(junk.data(), &type, sizeof type);
        if (junk.size() > 12 + 23) {
            junk[12 + 23] = 17;  // no TCP, whatever else it says
        }
        card_->push(static_cast<std::uint32_t>(model_.channel), std::as_bytes(std::span(junk)));
        model_.send(WalkMessage::kJunk);
    }

    void power_cycle() {
        account_.note("power cycle");
        card_->power_cycle();
        show_hardware_version();
        model_.card.power_cycle();
    }

    void reset_by_another() {
        if (model_.channel == 0) {
            account_.note("a reset by another hand");
            kova::sim::write_register(card_->memory(), 0x10, 1);
            model_.card.reset();
        }
    }

    void idle() {
        const int seconds = 1 + pick(40);
        account_.note("nothing for " + std::to_string(seconds) + " s");
        Clock::advance(std::chrono::seconds(seconds));
        model_.second += seconds;
        if (model_.channel == 0) {
            tick();
            model_.tick();
        }
    }

    void change_conditions() {
        kova::test::CardModel& card = model_.card;
        const bool is_good = pick(3) != 0;
        switch (pick(6)) {
            case 0:
                card.memory_seconds = is_good ? std::optional(pick_of(std::array{0, 1, 5}))
                                              : pick_of(std::array<std::optional<int>, 3>{6, 20, std::nullopt});
                account_.note("memory after " + std::to_string(card.memory_seconds.value_or(-1)) + " s");
                card_->set_memory_delay(card.memory_seconds
                                            ? kova::sim::MemoryDelay(std::chrono::seconds(*card.memory_seconds))
                                            : std::nullopt);
                break;
            case 1:
                card.snapshot = is_good ? pick_of(std::array{WalkSnapshot::kWhole, WalkSnapshot::kRestart})
                                        : pick_of(std::array{WalkSnapshot::kBadPrice, WalkSnapshot::kHalf,
                                                             WalkSnapshot::kNone});
                account_.note("snapshot of kind " + std::to_string(static_cast<int>(card.snapshot)));
                break;
            case 2:
                card.is_hardware_new = is_good;
                account_.note(is_good ? "new hardware" : "old hardware");
                show_hardware_version();
                break;
            case 3:
                card.is_software_accepted = is_good;
                account_.note(is_good ? "software accepted" : "software too old");
                card_->memory().behaviour.least_software = is_good ? 0x01010133 : 0x01010134;
                break;
            case 4:
                card.is_line_cut = !is_good;
                account_.note(is_good ? "line whole" : "line cut");
                break;
            default:
                show_update_time();
                break;
        }
    }

    void show_hardware_version() {
        card_->memory().registers.readable[0x101] = model_.card.is_hardware_new ? 0x20260420 : 0x2026041F;
    }

    // The newest of the four, in Shanghai.
    void show_update_time() {
        struct Minute {
            int hour;
            int minute;
            bool is_break;
        };
        static constexpr std::array<Minute, 8> minutes = {{{10, 27, true},
                                                           {10, 31, false},
                                                           {15, 42, true},
                                                           {14, 59, false},
                                                           {8, 54, false},
                                                           {20, 55, true},
                                                           {2, 30, true},
                                                           {2, 31, false}}};
        const Minute& minute = minutes[static_cast<std::size_t>(pick(minutes.size()))];
        account_.note("updated at " + std::to_string(minute.hour) + ":" + std::to_string(minute.minute));
        constexpr std::int64_t kDay = 1'767'571'200 - 8 * 3600;  // 2026-01-05, 00:00 in Shanghai
        const auto newest = static_cast<std::uint64_t>(kDay + minute.hour * 3600 + minute.minute * 60);
        for (std::uint32_t feed = 0; feed < 4; ++feed) {
            kova::sim::preset_register(card_->memory().registers, 0x2040 + feed,
                                       feed == 2 ? newest : newest - 86'400);
        }
        model_.card.is_break = minute.is_break;
    }

    // What happens by itself.

    void before_poll() {
        if (++polls_ > kMostPolls) {
            fail("more polls than any step has");
            std::_Exit(1);
        }
        if (polls_ == model_.disturbed_poll) {
            come_between();
        }
        tick();
        forward_next_frame();
        const bool fails = model_.disturbance == WalkDisturbance::kPollFails && polls_ == model_.disturbed_poll;
        taken_ += waiting() != 0 && !fails ? 1U : 0U;
    }

    void come_between() {
        switch (model_.disturbance) {
            case WalkDisturbance::kStop:
                engine_->KovaStop();
                break;
            case WalkDisturbance::kSignal:
                static_cast<void>(::raise(SIGTERM));
                break;
            case WalkDisturbance::kPowerCycle:
                card_->power_cycle();
                show_hardware_version();
                break;
            case WalkDisturbance::kLostEvent:
                card_->push_event(static_cast<std::uint32_t>(model_.channel), {0x80});
                break;
            case WalkDisturbance::kNone:
            case WalkDisturbance::kPollFails:
                break;
        }
    }

    void tick() {
        if (model_.channel == 0) {
            card_->tick(Clock::now().count());
        }
    }

    // As a sender does that waits until its last segment has been taken.
    void forward_next_frame() {
        if (card_->forwarding_openings() != openings_) {
            openings_ = card_->forwarding_openings();
            next_frame_ = 0;
        }
        const Frames& frames = frames_of(model_.card.snapshot);
        if (card_->is_forwarding() && waiting() == 0 && next_frame_ < frames.size()) {
            card_->forward_frame(std::as_bytes(std::span(frames[next_frame_++])));
        }
    }

    // Messages in the stream of channel 0: the reader itself tells how far it is only now and then.
    std::uint64_t waiting() {
        const auto& control = card_->memory().channels[0].card_to_host;
        if (control.opened_count.load() != streams_opened_) {
            streams_opened_ = control.opened_count.load();
            taken_ = control.taken.load() + control.abandoned.load();
        }
        return control.sent.load() - taken_;
    }

    const Frames& frames_of(WalkSnapshot snapshot) const {
        static const Frames none;
        switch (snapshot) {
            case WalkSnapshot::kWhole:
                return whole_;
            case WalkSnapshot::kRestart:
                return restart_;
            case WalkSnapshot::kBadPrice:
                return bad_price_;
            case WalkSnapshot::kHalf:
                return half_;
            case WalkSnapshot::kNone:
                break;
        }
        return none;
    }

    // What is compared.

    template <typename Seen, typename Expected>
    void same(const char* what, const Seen& seen, const Expected& expected) {
        if (seen != static_cast<Seen>(expected)) {
            fail(
                (std::ostringstream() << what << " is " << +seen << " instead of " << +expected << "; ").str());
        }
    }
    void fail(const std::string& text) {
        std::strncat(account_.failure.data(), text.c_str(),
                     account_.failure.size() - 1 - std::strlen(account_.failure.data()));
    }

    void expect_rule(WalkState before, int result) {
        const WalkRule rule = walk_rule(before);
        if (std::ranges::find(rule.results, result) == rule.results.end()) {
            fail("no result of this state; ");
        }
        if (std::ranges::find(rule.next, state_of_engine()) == rule.next.end()) {
            fail(std::string("no way leads to ") +
                 kWalkStateNames[static_cast<std::size_t>(state_of_engine())] + "; ");
        }
    }

    /** By the engine's own flags. */
    WalkState state_of_engine() {
        if (CSignalProcess::IsExit()) {
            return WalkState::kExiting;
        }
        if (EngineAccess::is_stop_flag(*engine_)) {
            return WalkState::kStopping;
        }
        if (card_.calls().alive("a2c_stream") == 0) {
            return WalkState::kIdle;
        }
        if (EngineAccess::config(*engine_).channel_id != 0 || EngineAccess::is_all_init_finished(*engine_)) {
            return WalkState::kReady;
        }
        if (EngineAccess::is_tcp_init_finished(*engine_)) {
            return WalkState::kHalfUp;
        }
        return EngineAccess::init_count(*engine_) >= EngineAccess::config(*engine_).init_tcpcnt
                   ? WalkState::kGivenUp
                   : WalkState::kLost;
    }

    void compare() {
        same("state", static_cast<int>(state_of_engine()), static_cast<int>(model_.state()));
        compare_engine();
        compare_process();
        compare_card();
        compare_rows();
        compare_file();
    }

    void compare_engine() {
        same("polls", polls_, model_.polls);
        same("is_all_init_finished", EngineAccess::is_all_init_finished(*engine_), model_.is_up);
        same("is_tcp_init_finished", EngineAccess::is_tcp_init_finished(*engine_), model_.has_snapshot);
        same("is_hbm2_init_finished", EngineAccess::is_hbm2_init_finished(*engine_), model_.is_memory_ready);
        same("is_stop_flag", EngineAccess::is_stop_flag(*engine_), model_.is_stopped);
        same("init_count", EngineAccess::init_count(*engine_), model_.init_count);
        same("finished_mask", EngineAccess::finished_mask(*engine_).enabled_mask, model_.finished);
        if (model_.has_rows) {
            const U50InstTable& rows = EngineAccess::peek_inst_table(*engine_);
            const std::string_view id = reinterpret_cast<const SInstTableType*>(&rows)->inst_id;
            same("rows in memory", id == "cu2606", *model_.has_rows);
            same("any row in memory", !id.empty(), *model_.has_rows);
        }
    }

    void compare_process() {
        kova::sim::SdkCalls& calls = card_.calls();
        same("register spaces", calls.alive("mmio"), model_.has_registers ? 1 : 0);
        same("core trees", calls.alive("core_tree"), model_.has_registers ? 1 : 0);
        same("receive streams", calls.alive("a2c_stream"), model_.has_receive_stream ? 1 : 0);
        same("send streams", calls.alive("c2a_stream"), model_.has_send_stream ? 1 : 0);
        for (const char* kind : {"filter", "accelerator_descriptor", "mmio_descriptor", "a2c_stream_descriptor",
                                 "c2a_stream_descriptor"}) {
            same(kind, calls.alive(kind), 0);
        }
        same("open files", open_files() - files_before_,
             (model_.is_log_open ? 1 : 0) + (model_.has_accelerator ? 1 : 0) +
                 (model_.has_receive_stream ? 1 : 0) + (model_.has_send_stream ? 1 : 0));
        same("exit flag", CSignalProcess::IsExit(), model_.has_exited);
    }

    void compare_card() {
        const kova::sim::RegisterFile& registers = card_->memory().registers;
        const kova::test::CardModel& card = model_.card;
        same("0x11120", registers.written[0x11120].load(), card.is_core_started ? 1U : 0U);
        same("0x21120", registers.written[0x21120].load(), card.is_deep_core_started ? 1U : 0U);
        same("0x1000", registers.written[0x1000].load(), card.is_forwarding ? 0xFU : 0U);
        same("0x1001", registers.written[0x1001].load(), card.config_crc);
        same("0x1F14", registers.written[0x1F14].load(), card.shfe_count);
        same("0x1F15", registers.written[0x1F15].load(), card.ine_count);
        same("0x2032", registers.readable[0x2032].load(), card.memory_status);
        for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
            same("open table", kova::sim::is_table_open(card_->memory(), feed), card.are_tables_open);
        }
        same("packets", registers.readable[0x1220].load() + registers.readable[0x1230].load(), card.packets);
        same("events", registers.readable[0x1207].load(), card.events);
        same("holder of the lock", card_->memory().lock.holder.load(), 0U);
        same("accesses without the lock", card_->memory().lock.unprotected.load(), 0U);
    }

    void compare_rows() {
        kova::sim::CardMemory& memory = card_->memory();
        if (model_.card.rows == compared_rows_) {
            return;
        }
        compared_rows_ = model_.card.rows;
        SInstTableType copper = kova::test::row_of_cu2606();
        SInstTableType oil = kova::test::row_of_sc2606();
        std::string wrong;
        switch (model_.card.rows) {
            case Rows::kSubscribed:
                wrong = kova::test::wrong_rows_of_small_listing(memory);
                break;
            case Rows::kListed:
                copper.config = oil.config = 0;
                wrong = kova::test::wrong_rows(memory, SHFE_2PS, {copper, kova::test::row_of_al2607()}) +
                        kova::test::wrong_rows(memory, INE_2PS, {oil});
                break;
            case Rows::kEmpty:
                wrong =
                    kova::test::wrong_rows(memory, SHFE_2PS, {}) + kova::test::wrong_rows(memory, INE_2PS, {});
                break;
        }
        if (!wrong.empty()) {
            fail("wrong rows in " + wrong);
        }
    }

    void compare_file() {
        using File = WalkModel::File;
        const std::string text = text_of(instrument_file_);
        const std::string_view whole = kSmallInstrumentFile;
        const std::string_view header = whole.substr(0, whole.find('\n') + 1);
        const std::string blank = std::string(header) + "0,,0,0,0,0,0,0,0,0,0,0\n1,,0,0,0,0,0,0,0,0,0,0\n" +
                                  "0,,0,0,0,0,0,0,0,0,0,0\n";
        const std::array<std::string_view, 4> expected = {"", header, whole, blank};
        static_assert(static_cast<int>(File::kBlankRows) == 3);
        if (text != expected[static_cast<std::size_t>(model_.file)]) {
            fail("another instrument file; ");
        }
    }

    std::string disturbance_text() const {
        return model_.disturbed_poll == 0
                   ? ""
                   : ", disturbed by " + std::to_string(static_cast<int>(model_.disturbance)) + " at poll " +
                         std::to_string(model_.disturbed_poll);
    }

    // CRC-32C of the file, which differs from one walk to the next: told bit by bit.
    std::uint32_t write_config() const {
        std::ostringstream text;
        text << "[config]\ndevice = xilinx0:" << model_.channel << "\ninit_tcpcnt = " << model_.attempts
             << "\nwait_snap_timeout = " << model_.snapshot_seconds
             << "\ncrc_mux_check = " << (model_.is_check_wanted ? 1 : 0) << "\n"
             << kSmallConfig << "\n";
        std::ofstream("walk.ini") << text.str();
        std::uint32_t crc = 0;
        for (const char character : text.str()) {
            crc ^= static_cast<std::uint8_t>(character);
            for (int bit = 0; bit < 8; ++bit) {
                crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0x82F63B78 : 0);
            }
        }
        return crc;
    }

    const std::string instrument_file_;
    Account& account_;
    std::mt19937_64 random_;
    kova::sim::InProcessCard card_;
    WalkSpi spi_;
    KovaShfeMdType record_{};
    std::unique_ptr<CKovaShfeMdApiImpl> engine_ = EngineAccess::create();
    WalkModel model_;
    Frames whole_ = SnapshotFrames().frames();
    Frames restart_ = frames_with_restart();
    Frames bad_price_ = frames_with_bad_price();
    Frames half_ = Frames(whole_.begin(), whole_.begin() + 2);
    std::int64_t files_before_ = 0;
    std::uint32_t quotes_ = 0;
    int polls_ = 0;
    std::uint64_t openings_ = 0;
    std::size_t next_frame_ = 0;
    std::uint64_t streams_opened_ = 0;
    std::uint64_t taken_ = 0;
    std::optional<Rows> compared_rows_;
};

class RandomWalkTest : public ::testing::TestWithParam<std::uint32_t> {
 protected:
    RandomWalkTest()
        : account(static_cast<Account*>(
              mmap(nullptr, sizeof(Account), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
        ::setenv("TZ", "CST-8", 1);
        ::tzset();
    }
    ~RandomWalkTest() override { munmap(account, sizeof(Account)); }

    /** Walks in a process of its own; what failed, empty when nothing did. */
    std::string walk(std::uint64_t seed) const {
        *account = {};
        const kova::test::TempDir directory;
        const kova::test::ClockedDay day;
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(kLongestSeconds);
            static_cast<void>(std::freopen("/dev/null", "w", stdout));
            std::filesystem::current_path(directory.path());
            {
                Walker walker(seed, day.morning_file(), *account);
                walker.walk();
            }
            std::_Exit(account->failure[0] == '\0' ? 0 : 1);
        }
        int status = -1;
        static_cast<void>(::waitpid(child, &status, 0));
        return status == 0 ? "" : story(seed, status);
    }

    std::string story(std::uint64_t seed, int status) const {
        std::ostringstream text;
        text << "KOVA_WALK_SEED=" << seed << ", status " << status << ": " << account->failure.data() << "\n";
        const std::uint64_t first = account->steps > Account::kLines ? account->steps - Account::kLines : 0;
        for (std::uint64_t step = first; step < account->steps; ++step) {
            text << "  " << account->last_steps[step % Account::kLines].data() << "\n";
        }
        return text.str();
    }

    Account* account;
};

TEST_P(RandomWalkTest, TheEngineIsWhatItsStateTableSays) {
    const std::uint64_t only = from_environment("KOVA_WALK_SEED", 0);
    if (only != 0) {
        const std::string story = walk(only);
        EXPECT_TRUE(story.empty()) << story;
        return;
    }
    const double end = real_seconds() + static_cast<double>(from_environment("KOVA_WALK_SECONDS", 60)) / kParts;
    std::array<std::uint64_t, kWalkStateNames.size()> steps_in{};
    std::uint64_t walks = 0;
    std::uint64_t bring_ups = 0;
    std::uint64_t seed = from_environment("KOVA_WALK_FIRST", 1) + GetParam();
    for (; real_seconds() < end; seed += kParts) {
        const std::string story = walk(seed);
        ASSERT_TRUE(story.empty()) << story;
        ++walks;
        bring_ups += account->bring_ups;
        for (std::size_t i = 0; i < steps_in.size(); ++i) {
            steps_in[i] += account->steps_in[i];
        }
    }
    RecordProperty("walks", std::to_string(walks));
    RecordProperty("bring-ups", std::to_string(bring_ups));
    for (std::size_t i = 0; i < steps_in.size(); ++i) {
        RecordProperty(std::string("steps when ") + kWalkStateNames[i], std::to_string(steps_in[i]));
    }
}

INSTANTIATE_TEST_SUITE_P(Part, RandomWalkTest, ::testing::Range(0U, kParts));

}  // namespace
