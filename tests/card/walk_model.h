/**
 * The engine and its card as a user has to think of them, for a random walk: what is open, what the card holds,
 * what each call returns. Written from what the system promises; it calls nothing of the library.
 */
// clang-format off
//     state        the engine                               a receive call                  may become
//     kIdle        nothing open                             is not made                     any by a start
//     kReady       brought up, or another channel than 0    one poll: 0 or 1                kLost by an event of the card,
//                                                                                           kGivenUp by one when starts
//                                                                                           in between have used up the
//                                                                                           attempts
//     kLost        the card's state is forgotten            brings it up: 0, 1 or -1        kReady, kHalfUp, kGivenUp
//     kHalfUp      snapshot taken, not brought up           goes on behind it: 0, 1 or -1   kReady, kLost
//     kGivenUp     no attempt left                          -1                              nothing but by a new engine
//     kStopping    a stop is asked for                      -1, snapshot forgotten          any by a start with callback
//     kExiting     a signal was received                    -1, snapshot forgotten          never anything else
// clang-format on
#ifndef KOVA_TESTS_CARD_WALK_MODEL_H
#define KOVA_TESTS_CARD_WALK_MODEL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace kova::test {

enum class WalkState { kIdle, kReady, kLost, kHalfUp, kGivenUp, kStopping, kExiting };

inline constexpr std::array<const char*, 7> kWalkStateNames = {"idle",     "ready",    "lost",   "half up",
                                                               "given up", "stopping", "exiting"};

/** A line of the state table. */
struct WalkRule {
    std::vector<int> results;     // of a receive call
    std::vector<WalkState> next;  // after one
};

/** What a receive call may return in a state, and where it may lead, by whatever happens meanwhile. */
[[nodiscard]] inline WalkRule walk_rule(WalkState state) {
    using enum WalkState;
    switch (state) {
        case kIdle:
            return {{0}, {kIdle}};
        case kReady:
            return {{0, 1}, {kReady, kLost, kGivenUp, kStopping, kExiting}};
        case kLost:
            return {{-1, 0, 1}, {kReady, kLost, kHalfUp, kGivenUp, kStopping, kExiting}};
        case kHalfUp:
            return {{-1, 0, 1}, {kReady, kLost, kHalfUp, kStopping, kExiting}};
        case kGivenUp:
            return {{-1}, {kGivenUp}};
        case kStopping:
            return {{-1}, {kStopping}};
        case kExiting:
            return {{-1}, {kExiting}};
    }
    return {};
}

/** What a message in the stream is. */
enum class WalkMessage {
    kQuote,
    kLostEvent,     // packets lost or a bad price: the card's state is void
    kTimeoutEvent,  // the same outside the breaks of the day
    kReadyEvent,    // the card's memory is ready
    kReadyAndLost,  // both bits
    kOtherEvent,    // nothing that counts
    kFrame,         // of the snapshot
    kJunk,          // anything else
};

enum class WalkSnapshot {
    kWhole,     // five frames; the fifth shows that all is there
    kRestart,   // two frames, the connection is reset, then the whole
    kBadPrice,  // five frames, the rows fail the price check
    kHalf,      // the first feed's two frames, and nothing more
    kNone,
};

struct WalkSent {
    WalkMessage kind;
    std::uint32_t number = 0;  // of a quote
};

/** What happens right before some poll of a step. */
enum class WalkDisturbance { kNone, kStop, kSignal, kPowerCycle, kLostEvent, kPollFails };

/** The card. */
struct CardModel {
    enum class Rows { kEmpty, kListed, kSubscribed };

    Rows rows = Rows::kEmpty;
    bool are_tables_open = true;
    bool is_core_started = false;
    bool is_deep_core_started = false;
    bool is_forwarding = false;
    std::uint32_t memory_status = 0;
    std::uint32_t shfe_count = 0;
    std::uint32_t ine_count = 0;
    std::uint32_t config_crc = 0;
    std::uint64_t packets = 0;
    std::uint64_t events = 0;

    // What has been asked of it.
    std::optional<int> memory_seconds = 0;  // nothing: never
    WalkSnapshot snapshot = WalkSnapshot::kWhole;
    std::size_t next_frame = 0;
    bool is_hardware_new = true;
    bool is_software_accepted = true;
    bool is_line_cut = false;
    bool is_break = false;  // the newest update lies in a break

    // Its memory's wait; the card looks at its clock when it ticks.
    bool is_begun = false;
    bool is_waiting = false;
    std::int64_t since = 0;

    [[nodiscard]] std::size_t frames() const {
        switch (snapshot) {
            case WalkSnapshot::kWhole:
            case WalkSnapshot::kBadPrice:
                return 5;
            case WalkSnapshot::kRestart:
                return 8;
            case WalkSnapshot::kHalf:
                return 2;
            case WalkSnapshot::kNone:
                return 0;
        }
        return 0;
    }

    void reset() {
        is_core_started = is_deep_core_started = is_forwarding = false;
        are_tables_open = true;
        memory_status = memory_seconds == 0 ? 3 : 0;
        is_begun = true;
    }

    void power_cycle() {
        rows = Rows::kEmpty;
        are_tables_open = true;
        is_core_started = is_deep_core_started = is_forwarding = false;
        memory_status = shfe_count = ine_count = config_crc = 0;
        packets = events = 0;
        is_begun = is_waiting = false;
        is_break = false;  // the update times are those of 1970, eight o'clock
    }

    /** Whether the memory tells that it is ready now. */
    bool tick(std::int64_t second) {
        if (is_begun) {
            is_begun = false;
            is_waiting = true;
            since = second;
        }
        if (!is_waiting || !memory_seconds || second - since < *memory_seconds) {
            return false;
        }
        memory_status = 3;
        is_waiting = false;
        return true;
    }
};

/** The engine on the card. */
class WalkModel {
 public:
    // What the walk has been set up with.
    int channel = 0;
    int attempts = 3;
    int snapshot_seconds = 9;
    bool is_check_wanted = false;  // crc_mux_check
    std::uint32_t crc_of_config = 0;

    CardModel card;
    std::deque<WalkSent> stream;
    std::uint32_t quotes = 0;  // that the exchange has sent, or would have
    std::int64_t second = 0;   // of the clock

    // The process.
    bool has_exited = false;  // signal received
    bool has_handlers = false;
    bool is_log_open = false;
    bool has_accelerator = false;
    bool has_registers = false;
    enum class File { kNone, kHeader, kWhole, kBlankRows } file = File::kNone;

    // The engine.
    bool is_configured = false;
    bool has_receive_stream = false;
    bool has_send_stream = false;
    bool is_stopped = false;
    bool is_fetching = false;
    bool has_buffer = false;
    bool is_up = false;  // all of the bring-up is done
    bool has_snapshot = false;
    bool is_memory_ready = false;
    int init_count = 0;
    int finished = 0;                      // mask of feeds
    std::optional<bool> has_rows = false;  // in memory; nothing: some

    // What a step is disturbed by.
    WalkDisturbance disturbance = WalkDisturbance::kNone;
    int disturbed_poll = 0;
    bool is_start_refused = false;  // the card refuses to start its 2PS core
    bool is_forwarding_refused = false;
    bool is_callback_stopping = false;
    int polls = 0;  // of the step
    int brought_up = 0;

    [[nodiscard]] WalkState state() const {
        if (has_exited) {
            return WalkState::kExiting;
        }
        if (is_stopped) {
            return WalkState::kStopping;
        }
        if (!has_receive_stream) {
            return WalkState::kIdle;
        }
        if (channel != 0 || is_up) {
            return WalkState::kReady;
        }
        if (has_snapshot) {
            return WalkState::kHalfUp;
        }
        return init_count >= attempts ? WalkState::kGivenUp : WalkState::kLost;
    }

    /** Without a stream a bring-up waits for the clock alone, which stands still here. */
    [[nodiscard]] bool may_receive() const {
        return is_ending() || has_receive_stream || is_up || (is_configured && channel != 0);
    }

    void begin_step() {
        disturbance = WalkDisturbance::kNone;
        disturbed_poll = polls = 0;
        is_start_refused = is_forwarding_refused = is_callback_stopping = false;
    }

    /** A fresh engine in place of the old one. */
    void renew() {
        is_configured = has_receive_stream = has_send_stream = is_stopped = is_fetching = has_buffer = false;
        is_up = has_snapshot = is_memory_ready = false;
        init_count = finished = 0;
        has_rows = false;
    }

    /** @param failing SDK function that fails at its first call, empty for none. */
    int start(bool is_to_fetch, bool is_config_there, std::string_view failing) {
        is_stopped = is_stopped && is_to_fetch;
        is_fetching = is_to_fetch;
        is_log_open = true;
        if (!is_config_there) {
            return -2;
        }
        is_configured = true;
        has_handlers = true;
        return open(failing) && come_up() ? 0 : -2;
    }

    struct Received {
        int result = 0;
        bool is_called = false;    // the callback
        std::uint32_t number = 0;  // of the quote
    };

    /** Start and receive until the end: as long as nothing stops it for ever. */
    int run(std::string_view failing, const std::function<void(const Received&)>& on_receive) {
        if (start(false, true, failing) != 0) {
            return -1;
        }
        for (Received received; received.result != -1;) {
            received = receive(false);
            on_receive(received);
        }
        return 0;
    }

    Received receive(bool is_with_buffer) {
        if (is_ending()) {
            clean();
            return {.result = -1};
        }
        if (channel == 0 && !is_up && !bring_up(0)) {
            return {.result = -1};
        }
        has_buffer = has_buffer || is_with_buffer;
        return poll_for_quote();
    }

    [[nodiscard]] bool is_ending() const { return is_stopped || has_exited; }

    /** A message that the card sends; false when nobody listens. */
    bool send(WalkMessage kind, std::uint32_t number = 0) {
        if (has_receive_stream) {
            stream.push_back({.kind = kind, .number = number});
        }
        return has_receive_stream;
    }
    bool send_event(WalkMessage event) {
        ++card.events;
        return send(event);
    }
    void tick() {
        if (card.tick(second)) {
            send_event(WalkMessage::kReadyEvent);
        }
    }
    /** A quote of the only instrument that channel 0 wants. */
    bool send_wanted_quote() {
        ++quotes;
        if (!card.is_core_started || card.is_line_cut) {
            return false;
        }
        ++card.packets;
        return card.rows == CardModel::Rows::kSubscribed && send(WalkMessage::kQuote, quotes);
    }

 private:
    // Opening, up to the function that fails: the registers first, what was open of them closed before.
    bool open(std::string_view failing) {
        has_registers = false;
        if (failing == "enyx_hw_mmio_create" || failing == "enyx_hw_enumerate_cores" ||
            failing == "enyx_hw_core_enumerate") {
            has_accelerator = true;
            return false;
        }
        has_accelerator = has_registers = true;
        has_receive_stream = has_send_stream = false;
        if (failing == "enyx_hw_a2c_stream_create") {
            return false;
        }
        has_receive_stream = true;
        stream.clear();
        if (failing == "enyx_hw_c2a_stream_create") {
            return false;
        }
        has_send_stream = true;
        return failing != "enyx_hw_a2c_stream_get_mtu";
    }

    bool come_up() {
        if (channel != 0) {
            return true;
        }
        const std::uint64_t packets = card.packets;
        // The exchange quotes while the engine samples.
        send_wanted_quote();
        second += 3;
        if (is_check_wanted && card.config_crc == crc_of_config && card.packets != packets) {
            is_up = true;
            return true;
        }
        return bring_up(crc_of_config);
    }

    bool bring_up(std::uint32_t crc) {
        while (!has_snapshot) {
            if (init_count >= attempts) {
                return false;
            }
            const int result = attempt();
            if (result == -2) {
                continue;
            }
            if (result != 0) {
                return false;
            }
            init_count = 0;
        }
        if (!has_registers || !card.is_hardware_new || !card.is_software_accepted) {
            return false;
        }
        card.config_crc = crc != 0 ? crc : card.config_crc;
        write_file();
        subscribe();
        card.are_tables_open = false;
        card.is_core_started = card.is_core_started || !is_start_refused;
        card.is_deep_core_started = true;
        is_up = true;
        ++brought_up;
        return true;
    }

    int attempt() {
        ++init_count;
        clean();
        is_memory_ready = false;
        if (has_registers) {
            card.reset();
        }
        for (int i = 0; i < 6; ++i) {
            static_cast<void>(poll());
        }
        if (!has_registers || card.memory_status != 3) {
            return -1;
        }
        is_memory_ready = true;
        if (!is_forwarding_refused) {
            card.is_forwarding = true;
            card.next_frame = 0;
        }
        card.shfe_count = card.ine_count = 0;
        return take_snapshot();
    }

    int take_snapshot() {
        int taken = 0;
        for (int waited = 0; !is_ending() && !has_snapshot; ++waited) {
            if (waited > snapshot_seconds) {
                return -2;
            }
            const std::optional<WalkSent> message = poll();
            if (message && message->kind == WalkMessage::kFrame) {
                take_frame(++taken);
            }
        }
        return is_ending() ? -1 : 0;
    }

    // The n-th frame of the snapshot.
    void take_frame(int n) {
        if (card.snapshot == WalkSnapshot::kRestart) {
            if (n == 3) {
                clean();
                return;
            }
            n -= n > 3 ? 3 : 0;
        }
        has_rows.reset();
        if (n == 2) {
            finished |= 1;
            card.shfe_count = 2;
        } else if (n == 4) {
            finished |= 4;
            card.ine_count = 1;
        } else if (n == 5 && card.snapshot == WalkSnapshot::kBadPrice) {
            clean();
        } else if (n == 5) {
            has_snapshot = true;
            has_rows = true;
            card.is_forwarding = false;
            card.rows = CardModel::Rows::kListed;
        }
    }

    void write_file() {
        if (card.shfe_count != 0 || card.ine_count != 0) {
            const File rows = has_rows == true ? File::kWhole : File::kBlankRows;
            file = finished == 5 ? rows : File::kHeader;
        }
    }

    // Rows are read back from the card, as far as it has counted them; a closed table shows nothing.
    void subscribe() {
        if (card.shfe_count == 0) {
            return;
        }
        has_rows = card.are_tables_open && card.rows != CardModel::Rows::kEmpty;
        if (*has_rows) {
            card.rows = CardModel::Rows::kSubscribed;
        }
    }

    void clean() {
        finished = 0;
        has_rows = false;
    }

    /** One poll, and what happens right before it; what it takes out of the stream. */
    std::optional<WalkSent> poll() {
        if (!has_receive_stream) {
            return std::nullopt;
        }
        ++polls;
        ++second;
        const bool is_disturbed = polls == disturbed_poll;
        if (is_disturbed) {
            disturb();
        }
        tick();
        if (card.is_forwarding && stream.empty() && card.next_frame < card.frames()) {
            ++card.next_frame;
            stream.push_back({.kind = WalkMessage::kFrame});
        }
        if (stream.empty() || (is_disturbed && disturbance == WalkDisturbance::kPollFails)) {
            return std::nullopt;
        }
        const WalkSent message = stream.front();
        stream.pop_front();
        return message;
    }

    void disturb() {
        switch (disturbance) {
            case WalkDisturbance::kNone:
            case WalkDisturbance::kPollFails:
                break;
            case WalkDisturbance::kStop:
                is_stopped = true;
                break;
            case WalkDisturbance::kSignal:
                has_exited = true;
                break;
            case WalkDisturbance::kPowerCycle:
                card.power_cycle();
                break;
            case WalkDisturbance::kLostEvent:
                send_event(WalkMessage::kLostEvent);
                break;
        }
    }

    Received poll_for_quote() {
        const std::optional<WalkSent> message = poll();
        if (!message) {
            return {};
        }
        switch (message->kind) {
            case WalkMessage::kQuote:
                is_stopped = is_stopped || (!is_fetching && is_callback_stopping);
                return {.result = is_fetching && !has_buffer ? 0 : 1,
                        .is_called = !is_fetching,
                        .number = message->number};
            case WalkMessage::kLostEvent:
                lose();
                break;
            case WalkMessage::kTimeoutEvent:
                // Without registers no update time is known, and midnight of 1970 is no break.
                if (!card.is_break || !has_registers) {
                    lose();
                }
                break;
            case WalkMessage::kReadyEvent:
            case WalkMessage::kReadyAndLost:
                if (channel == 0 && !is_memory_ready) {
                    is_memory_ready = true;
                } else if (message->kind == WalkMessage::kReadyAndLost) {
                    lose();
                }
                break;
            case WalkMessage::kOtherEvent:
            case WalkMessage::kFrame:
            case WalkMessage::kJunk:
                break;
        }
        return {};
    }

    void lose() {
        if (channel == 0) {
            is_up = has_snapshot = is_memory_ready = false;
            clean();
        }
    }
};

}  // namespace kova::test

#endif  // KOVA_TESTS_CARD_WALK_MODEL_H
