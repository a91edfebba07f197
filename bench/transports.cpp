#include "bench/transports.h"

#include <array>
#include <cstdio>
#include <fstream>

#include "KovaShfeMdApi.h"
#include "bench/sdk_stream.h"

namespace kova::bench {

namespace {

void take_message(const std::uint8_t* message, std::uint32_t /*size*/, void* receiver) {
    static_cast<Receiver*>(receiver)->take(
        reinterpret_cast<const KovaShfeMdType*>(message + offsetof(U50QuoteMessage, quote)));
}

class ReceivingSpi final : public CKovaShfeMdSpi {
 public:
    explicit ReceivingSpi(Receiver& receiver) : receiver_(&receiver) {}
    std::int32_t OnKovaShfeMd(const KovaShfeMdType* quote) override {
        receiver_->take(quote);
        return 0;
    }

 private:
    Receiver* receiver_;
};

// The library says its lines on standard output, too.
void silence_standard_output() {
    if (std::freopen("/dev/null", "w", stdout) == nullptr) {
        throw RunError("/dev/null cannot be opened");
    }
}

}  // namespace

void SdkPollTransport::receive(Receiver& receiver) const {
    SdkStream stream(card_->index(), channel_);
    receiver.ready();
    while (!receiver.is_done()) {
        enyx_hw_a2c_stream_poll_once(stream.get(), take_message, &receiver);
    }
}

LibraryTransport::LibraryTransport(sim::Card& card, std::uint32_t channel, const std::string& folder)
    : card_(&card), channel_(channel), config_file_(write_library_config(folder, card.index(), channel)) {}

void LibraryTransport::receive(Receiver& receiver) const {
    silence_standard_output();
    ReceivingSpi spi(receiver);
    CKovaShfeMdApi* api = CKovaShfeMdApi::CreateKovaShfeMdApi();
    if (api == nullptr || api->KovaStart(spi, config_file_.c_str()) != 0) {
        throw RunError("the library does not start");
    }
    receiver.ready();
    while (!receiver.is_done()) {
        api->KovaRecv();
    }
    CKovaShfeMdApi::DestroyKovaShfeMdApi(*api);
}

void HandWrittenTransport::receive(Receiver& receiver) const {
    ring_->populate();
    HandWrittenReader<Ring> reader(**ring_);
    receiver.ready();
    while (!receiver.is_done()) {
        reader.poll([&receiver](const std::uint8_t* message, std::uint32_t size) {
            take_message(message, size, &receiver);
        });
    }
}

void HandWrittenTransport::reset() {
    ring_.emplace();
    writer_.emplace(**ring_);
}

void BoostQueueTransport::receive(Receiver& receiver) const {
    queue_->populate();
    Queue& queue = **queue_;
    receiver.ready();
    if (in_place_) {
        while (!receiver.is_done()) {
            queue.consume_one([&receiver](const U50QuoteMessage& message) { receiver.take(&message.quote); });
        }
    } else {
        U50QuoteMessage message;
        while (!receiver.is_done()) {
            if (queue.pop(message)) {
                receiver.take(&message.quote);
            }
        }
    }
}

void BoostQueueTransport::reset() {
    queue_.emplace();
}

}  // namespace kova::bench
