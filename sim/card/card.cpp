#include "sim/card/card.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstring>

#include "sim/card/contract_tables.h"
#include "sim/card/registers.h"

namespace kova::sim {

namespace {

constexpr std::uint32_t kFewestSlotsLog2 = 6;  // a longest message must fit
constexpr std::uint32_t kMostSlotsLog2 = 22;
constexpr std::uint32_t kChannelBits = 0xFFFF;
constexpr std::uint32_t kSnapshotChannel = 0;

// What stands before the frame in a message: the header counts what follows it, as in the other messages, and
// the further word means nothing to the host.
struct FrameHeader {
    U50DmaHeader header;
    std::uint32_t word;
};

static_assert(sizeof(FrameHeader) == DMA_TCP_FRAME_OFFSET);

[[noreturn]] void refuse(std::uint32_t index, const std::string& reason) {
    throw CardError("card " + std::to_string(index) + ": " + reason);
}

void require_size(std::uint32_t index, const CardOptions& options) {
    if (options.slots_log2 < kFewestSlotsLog2 || options.slots_log2 > kMostSlotsLog2) {
        refuse(index, "a ring has 2^6 to 2^22 slots");
    }
}

// Whether the name still stands for this open file, or has been given to another one meanwhile.
bool is_named(int file, const char* name) {
    const int other = shm_open(name, O_RDONLY | O_CLOEXEC, 0);
    if (other < 0) {
        return false;
    }
    struct stat mine {};
    struct stat named {};
    const bool same = fstat(file, &mine) == 0 && fstat(other, &named) == 0 && mine.st_ino == named.st_ino;
    close(other);
    return same;
}

struct NamedFile {
    int file = -1;
    bool replaced_leftover = false;
};

// Opens an empty file under the card's name and holds the owner's lock on it. A file without an owner is what a
// card that died has left behind: clients may still map it, so it is replaced and not used again.
NamedFile open_named(std::uint32_t index, const char* name) {
    NamedFile result;
    for (;;) {
        result.file = shm_open(name, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (result.file < 0) {
            refuse(index, std::strerror(errno));
        }
        if (!try_lock_byte(result.file, kOwnerLockByte)) {
            close(result.file);
            refuse(index, "it is on already");
        }
        struct stat status {};
        const bool is_empty = fstat(result.file, &status) == 0 && status.st_size == 0;
        if (is_named(result.file, name)) {
            if (is_empty) {
                return result;
            }
            shm_unlink(name);
            result.replaced_leftover = true;
        }
        close(result.file);
    }
}

}  // namespace

Card Card::power_on(std::uint32_t index, const CardOptions& options) {
    require_size(index, options);
    const auto name = card_memory_name(index);
    const NamedFile named = open_named(index, name.data());
    CardMapping mapping = CardMapping::create(named.file, index, options);
    if (!mapping) {
        const int error = errno;
        // While it is locked, the name is nobody else's.
        shm_unlink(name.data());
        close(named.file);
        refuse(index, std::strerror(error));
    }
    return {std::move(mapping), name.data(), named.replaced_leftover};
}

Card Card::power_on_privately(std::uint32_t index, const CardOptions& options) {
    require_size(index, options);
    const int file = memfd_create("kova_simcard", MFD_CLOEXEC);
    if (file < 0 || !try_lock_byte(file, kOwnerLockByte)) {
        refuse(index, std::strerror(errno));
    }
    CardMapping mapping = CardMapping::create(file, index, options);
    if (!mapping) {
        const int error = errno;
        close(file);
        refuse(index, std::strerror(error));
    }
    announce_private_card(index, file);
    return {std::move(mapping), std::string(), false};
}

Card::Card(CardMapping mapping, std::string name, bool replaced_leftover)
    : mapping_(std::move(mapping)), name_(std::move(name)), replaced_leftover_(replaced_leftover) {
    CardMemory& memory = mapping_.memory();
    const auto process = static_cast<std::uint32_t>(getpid());
    for (std::uint32_t channel = 0; channel < kChannelCount; ++channel) {
        ChannelStreams& streams = memory.channels[channel];
        to_host_.emplace_back(streams.card_to_host, card_to_host_slots(memory, channel));
        from_host_.push_back(
            std::make_unique<RingReader>(streams.host_to_card, host_to_card_slots(memory, channel), process));
    }
}

Card::Card(Card&&) noexcept = default;

Card::~Card() {
    if (!mapping_) {
        return;
    }
    memory().identity.power.store(PowerState::kOff, std::memory_order_release);
    if (name_.empty()) {
        forget_private_card(index());
    } else {
        shm_unlink(name_.c_str());
    }
}

PushResult Card::push(std::uint32_t channel, std::span<const std::byte> message) {
    if (message.size() > kCardToHostMtu) {
        throw CardError("a message of " + std::to_string(message.size()) + " bytes exceeds the MTU");
    }
    return to_host_.at(channel).push(message);
}

PushResult Card::push_quote(std::uint32_t channel, const KovaShfeMdType& quote) {
    return to_host_[channel].push(sizeof(U50QuoteMessage), [&quote](std::byte* place) {
        // As copy_to_slot does it, of a message that is in two pieces.
        constexpr U50DmaHeader header{.dma_type = DMA_UDP, .dma_len = sizeof(KovaShfeMdType)};
        constexpr std::size_t first = kFirstLineBytes - sizeof header;
        const auto* body = reinterpret_cast<const std::byte*>(&quote);
        std::memcpy(place + kFirstLineBytes, body + first, sizeof quote - first);
        keep_store_order();
        std::memcpy(place, &header, sizeof header);
        std::memcpy(place + sizeof header, body, first);
    });
}

PushResult Card::push_event(std::uint32_t channel, const EventWords& words) {
    count_event(memory().registers);
    const U50Event event{.dma_type = DMA_EVENT,
                         .dma_len = sizeof(U50Event) - sizeof(U50DmaHeader),
                         .event_data0 = words[0],
                         .event_data1 = words[1],
                         .event_data2 = words[2],
                         .event_data3 = words[3],
                         .event_data4 = words[4],
                         .event_data5 = words[5]};
    return push(channel, std::as_bytes(std::span(&event, 1)));
}

Routed Card::route_quote(EMDQPDataType feed, const KovaShfeMdType& quote) {
    Routed routed;
    CardMemory& card = memory();
    if (!is_core_started(card.registers, feed) || quote.inst_no >= table_row_count(feed)) {
        return routed;
    }
    count_packet(card.registers, feed);
    if (exchange_time_ != 0) {
        show_update_time(card.registers, feed, exchange_time_);
    }
    std::uint32_t channels =
        config_word(card.tables, feed, quote.inst_no).load(std::memory_order_relaxed) & kChannelBits;
    for (; channels != 0; channels &= channels - 1) {
        switch (push_quote(static_cast<std::uint32_t>(std::countr_zero(channels)), quote)) {
            case PushResult::kSent:
                ++routed.sent;
                break;
            case PushResult::kLost:
                ++routed.lost;
                break;
            case PushResult::kUnheard:
                ++routed.unheard;
                break;
        }
    }
    return routed;
}

template <typename Push>
Forwarded Card::forward(std::size_t message_bytes, Push&& push) {
    if (message_bytes > kCardToHostMtu) {
        return Forwarded::kTooLong;
    }
    Forwarding& counts = memory().forwarding;
    if (!is_forwarding()) {
        counts.withheld.fetch_add(1, std::memory_order_relaxed);
        return Forwarded::kClosed;
    }
    switch (push(to_host_[kSnapshotChannel])) {
        case PushResult::kSent:
            counts.forwarded.fetch_add(1, std::memory_order_relaxed);
            return Forwarded::kSent;
        case PushResult::kLost:
            return Forwarded::kLost;
        case PushResult::kUnheard:
            break;
    }
    return Forwarded::kUnheard;
}

Forwarded Card::forward_frame(std::span<const std::byte> ethernet_frame) {
    const std::size_t bytes = sizeof(FrameHeader) + ethernet_frame.size();
    return forward(bytes, [&](RingWriter& ring) {
        return ring.push(bytes, [&](std::byte* place) {
            const FrameHeader header{
                .header = {.dma_type = DMA_TCP,
                           .dma_len = static_cast<std::uint32_t>(bytes - sizeof(U50DmaHeader))},
                .word = 0};
            std::memcpy(place, &header, sizeof header);
            std::ranges::copy(ethernet_frame, place + sizeof header);
        });
    });
}

Forwarded Card::forward_message(std::span<const std::byte> message) {
    return forward(message.size(), [message](RingWriter& ring) { return ring.push(message); });
}

bool Card::has_room_for_frame(std::size_t bytes) {
    return has_room_for_message(sizeof(FrameHeader) + bytes);
}

bool Card::has_room_for_message(std::size_t bytes) {
    return to_host_[kSnapshotChannel].has_room(bytes);
}

bool Card::has_frame_reader() const {
    return memory().channels[kSnapshotChannel].card_to_host.reader.load(std::memory_order_relaxed) != 0;
}

bool Card::is_forwarding() const {
    return sim::is_forwarding(memory().registers);
}

std::uint64_t Card::forwarding_openings() const {
    return memory().forwarding.openings.load(std::memory_order_relaxed);
}

void Card::set_cycles(EMDQPDataType feed, std::uint64_t cycles) {
    memory().exchange[static_cast<std::size_t>(feed)].cycles.store(cycles, std::memory_order_relaxed);
}

void Card::set_line_cut(EMDQPDataType feed, bool is_cut) {
    memory().exchange[static_cast<std::size_t>(feed)].is_cut.store(is_cut, std::memory_order_relaxed);
}

bool Card::is_line_cut(EMDQPDataType feed) const {
    return memory().exchange[static_cast<std::size_t>(feed)].is_cut.load(std::memory_order_relaxed);
}

void Card::set_memory_delay(const MemoryDelay& delay) {
    sim::set_memory_delay(memory().behaviour, delay);
}

void Card::tick(std::int64_t now) {
    if (memory_wait_.has_ended(memory(), now)) {
        push_event(kEventChannel, memory_ready_event());
    }
    const SilenceWatch::Lanes silent = silence_.too_long(memory(), now);
    for (std::size_t lane = 0; lane < silent.size(); ++lane) {
        if (silent[lane]) {
            push_event(kEventChannel, timeout_event(static_cast<EMDQPDataType>(lane)));
        }
    }
}

void Card::power_cycle() {
    const CardLockScope scope(memory().lock);
    forget_registers(memory().registers);
    power_up_registers(memory());
    forget_tables(memory());
    memory_wait_.forget(memory());
    silence_ = {};
}

void Card::set_row(EMDQPDataType feed, std::uint32_t inst_no, const SInstTableType& row) {
    if (inst_no >= table_row_count(feed)) {
        throw CardError("a table has no row " + std::to_string(inst_no));
    }
    SInstTableType& place = table_rows(memory().tables, feed)[inst_no];
    constexpr std::size_t kConfigBytes = sizeof row.config;
    std::memcpy(reinterpret_cast<std::byte*>(&place) + kConfigBytes,
                reinterpret_cast<const std::byte*>(&row) + kConfigBytes, sizeof row - kConfigBytes);
    config_word(memory().tables, feed, inst_no).store(row.config, std::memory_order_release);
}

std::optional<std::vector<std::byte>> Card::take_from_host(std::uint32_t channel) {
    std::optional<std::vector<std::byte>> message;
    from_host_.at(channel)->poll([&message](const std::uint8_t* data, std::uint32_t size) {
        const auto* first = reinterpret_cast<const std::byte*>(data);
        message.emplace(first, first + size);
    });
    return message;
}

void Card::close_streams_of_dead_readers() {
    for (std::uint32_t channel = 0; channel < kChannelCount; ++channel) {
        std::atomic<std::uint64_t>& reader = memory().channels[channel].card_to_host.reader;
        std::uint64_t token = reader.load(std::memory_order_acquire);
        if (token != 0 && !is_byte_locked(file(), card_to_host_lock_byte(channel))) {
            reader.compare_exchange_strong(token, 0);
        }
    }
}

bool Card::is_power_off_wanted() const {
    return memory().identity.power_off_wanted.load(std::memory_order_relaxed) != 0;
}

void Card::set_traffic(TrafficState state) {
    memory().identity.traffic.store(state, std::memory_order_relaxed);
}

}  // namespace kova::sim
