#include "sim/exchange/impairments.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace kova::sim {

namespace {

constexpr std::uint32_t kWord = 4;
constexpr std::uint32_t kMostOptionWords = kMostOptionBytes / kWord;
constexpr std::uint32_t kMostPadding = 46;
constexpr std::byte kPadding{0xA5};              // not zero, so that nobody can mistake it for nothing
constexpr std::uint32_t kStranger = 0xCB007142;  // 203.0.113.66, an address for examples
constexpr std::uint32_t kBitsPerByte = 8;

/** Options that say nothing. */
constexpr std::array<std::byte, kMostOptionBytes> kNoOperations = [] {
    std::array<std::byte, kMostOptionBytes> options{};
    options.fill(std::byte{1});
    return options;
}();

constexpr std::array<std::byte, kMostFrameBytes> kZeros{};

std::string all_names() {
    std::string text;
    for (const std::string_view name : kImpairmentNames) {
        text += text.empty() ? "" : ", ";
        text += name;
    }
    return text;
}

}  // namespace

Impairments::Impairments(FrameSource& source, const ImpairmentOptions& options) : source_(source) {
    for (std::size_t i = 0; i < states_.size(); ++i) {
        set(static_cast<Impairment>(i), options.rates[i], options.seeds[i].value_or(options.seed));
    }
}

Impairment Impairments::find(std::string_view name) {
    const auto found = std::ranges::find(kImpairmentNames, name);
    if (found == kImpairmentNames.end()) {
        throw std::invalid_argument("unknown impairment \"" + std::string(name) + "\", known are " +
                                    all_names());
    }
    return static_cast<Impairment>(found - kImpairmentNames.begin());
}

void Impairments::set(std::string_view name, double rate, std::optional<std::uint64_t> seed) {
    set(find(name), rate, seed);
}

void Impairments::set(Impairment impairment, double rate, std::optional<std::uint64_t> seed) {
    try {
        at(impairment).chance = Chance(rate);
    } catch (const std::invalid_argument& error) {
        const std::string name(kImpairmentNames[static_cast<std::size_t>(impairment)]);
        throw std::invalid_argument(name + " " + error.what());
    }
    if (seed) {
        reseed(impairment, *seed);
    }
}

void Impairments::reseed(Impairment impairment, std::uint64_t seed) {
    State& state = at(impairment);
    Random seeds(seed ^ (static_cast<std::uint64_t>(impairment) + 1) << 48U);
    state.seed = seed;
    state.when = Random(seeds.bits());
    state.how = Random(seeds.bits());
}

std::span<const std::byte> Impairments::next() {
    if (current_) {
        give_back(std::move(current_));
    }
    for (std::uint32_t tries = 0; arrived_.empty(); ++tries) {
        if (tries == kMostLost) {
            return {};
        }
        pass(source_.next());
    }
    current_ = std::move(arrived_.front());
    arrived_.pop_front();
    return std::span(current_->bytes).first(current_->size);
}

void Impairments::forget_frames() {
    for (FramePointer& frame : arrived_) {
        give_back(std::move(frame));
    }
    arrived_.clear();
    for (Held& held : held_) {
        give_back(std::move(held.frame));
    }
    held_.clear();
    swap_due_ = 0;
}

/** Everything draws for every frame, so that no rate shifts the numbers of another. */
void Impairments::draw() {
    for (State& state : states_) {
        state.strikes = state.chance.strikes(state.when);
    }
}

/** Whether it strikes the frame at hand; counted if so. */
bool Impairments::strikes(Impairment impairment) {
    State& state = at(impairment);
    state.count += state.strikes ? 1 : 0;
    return state.strikes;
}

std::uint32_t Impairments::from_to(Impairment impairment, std::uint32_t least, std::uint32_t most) {
    return least + at(impairment).how.below(most - least + 1);
}

/** Lets one frame of the source go its way. */
void Impairments::pass(std::span<const std::byte> bytes) {
    ++taken_;
    draw();
    const std::optional<TcpSegment> segment = read_tcp_frame(bytes);
    if (segment) {
        inject(*segment);
        decide(dressed(bytes, *segment));
    } else if (!bytes.empty()) {
        arrived_.push_back(copy_of(bytes));
    }
    release_due();
}

void Impairments::inject(const TcpSegment& segment) {
    TcpSegment other = segment;
    if (strikes(Impairment::wrong_peer)) {
        other.source.address = kStranger;
        other.payload = std::span(kZeros).first(segment.payload.size());
        arrived_.push_back(frame_of(other));
        other = segment;
    }
    other.payload = {};
    if (strikes(Impairment::rst)) {
        other.flags = kTcpRst;
        arrived_.push_back(frame_of(other));
    }
    if (strikes(Impairment::rst_ack)) {
        other.flags = kTcpRst | kTcpAck;
        arrived_.push_back(frame_of(other));
    }
}

/** The frame with what its headers get and what is put behind it. */
Impairments::FramePointer Impairments::dressed(std::span<const std::byte> bytes, const TcpSegment& segment) {
    const bool has_ip_options = strikes(Impairment::ip_options);
    const bool has_tcp_options = strikes(Impairment::tcp_options);
    TcpSegment dressed = segment;
    const auto options = [this](Impairment impairment) {
        return std::span(kNoOperations).first(std::size_t{from_to(impairment, 1, kMostOptionWords)} * kWord);
    };
    if (has_ip_options) {
        dressed.ip_options = options(Impairment::ip_options);
    }
    if (has_tcp_options) {
        dressed.tcp_options = options(Impairment::tcp_options);
    }
    FramePointer frame = has_ip_options || has_tcp_options ? frame_of(dressed) : copy_of(bytes);
    const std::size_t room = std::min<std::size_t>(kMostPadding, kMostFrameBytes - frame->size);
    if (room > 0 && strikes(Impairment::padding)) {
        const std::size_t padding = from_to(Impairment::padding, 1, static_cast<std::uint32_t>(room));
        std::ranges::fill(std::span(frame->bytes).subspan(frame->size, padding), kPadding);
        frame->size += padding;
    }
    return frame;
}

/** What becomes of a frame: one thing at most. */
void Impairments::decide(FramePointer frame) {
    constexpr std::uint32_t least_retransmission = 64;
    constexpr std::uint32_t most_retransmission = 256;
    constexpr std::uint32_t least_delay = 2;
    constexpr std::uint32_t most_delay = 32;
    if (strikes(Impairment::lose)) {
        return give_back(std::move(frame));
    }
    if (strikes(Impairment::corrupt)) {
        FramePointer damaged = copy_of(std::span(frame->bytes).first(frame->size));
        corrupt(*damaged);
        arrived_.push_back(std::move(damaged));
        return hold(std::move(frame), from_to(Impairment::corrupt, least_retransmission, most_retransmission));
    }
    if (strikes(Impairment::retransmit)) {
        return hold(std::move(frame),
                    from_to(Impairment::retransmit, least_retransmission, most_retransmission));
    }
    if (strikes(Impairment::delay)) {
        return hold(std::move(frame), from_to(Impairment::delay, least_delay, most_delay));
    }
    // The frame that another one changes places with stays where it is.
    const bool is_other_half = swap_due_ == taken_;
    if (!is_other_half && strikes(Impairment::swap)) {
        swap_due_ = taken_ + 1;
        return hold(std::move(frame), 1);
    }
    const bool is_twice = strikes(Impairment::duplicate);
    FramePointer again = is_twice ? copy_of(std::span(frame->bytes).first(frame->size)) : nullptr;
    arrived_.push_back(std::move(frame));
    if (again) {
        arrived_.push_back(std::move(again));
    }
}

/** Turns a bit of the payload over, or of the checksum where there is none: no checksum misses a single bit. */
void Impairments::corrupt(Frame& frame) {
    const std::span<std::byte> bytes = std::span(frame.bytes).first(frame.size);
    const std::optional<TcpSegment> segment = read_tcp_frame(bytes);
    if (!segment) {
        return;
    }
    const std::size_t ip = kIpHeaderBytes + segment->ip_options.size();
    const std::size_t tcp = kTcpHeaderBytes + segment->tcp_options.size();
    const std::size_t payload = kEthernetHeaderBytes + ip + tcp;
    constexpr std::size_t checksum = 16;
    const bool is_empty = segment->payload.empty();
    const std::size_t first = is_empty ? kEthernetHeaderBytes + ip + checksum : payload;
    const auto count = static_cast<std::uint32_t>(is_empty ? 2 : segment->payload.size());
    Random& random = at(Impairment::corrupt).how;
    const std::uint32_t bit = random.below(count * kBitsPerByte);
    bytes[first + bit / kBitsPerByte] ^= std::byte{1} << (bit % kBitsPerByte);
}

void Impairments::hold(FramePointer frame, std::uint32_t frames) {
    held_.push_back({.due = taken_ + frames, .frame = std::move(frame)});
}

void Impairments::release_due() {
    const auto is_due = [this](const Held& held) { return held.due <= taken_; };
    for (Held& held : held_) {
        if (is_due(held)) {
            arrived_.push_back(std::move(held.frame));
        }
    }
    std::erase_if(held_, is_due);
}

Impairments::FramePointer Impairments::new_frame() {
    if (spare_.empty()) {
        return std::make_unique<Frame>();
    }
    FramePointer frame = std::move(spare_.back());
    spare_.pop_back();
    return frame;
}

Impairments::FramePointer Impairments::copy_of(std::span<const std::byte> bytes) {
    FramePointer frame = new_frame();
    frame->size = std::min(bytes.size(), frame->bytes.size());
    std::ranges::copy(bytes.first(frame->size), frame->bytes.begin());
    return frame;
}

Impairments::FramePointer Impairments::frame_of(const TcpSegment& segment) {
    FramePointer frame = new_frame();
    frame->size = write_tcp_frame(segment, frame->bytes);
    return frame;
}

}  // namespace kova::sim
