#include "bench/hand_made_chain.h"

#include <cstdint>
#include <cstring>

#include "wire/DmaMessage.h"

namespace kova::bench {

namespace {

class Chain final : public HandMadeChain {
 public:
    Chain(enyx_hw_a2c_stream* stream, CKovaShfeMdSpi& spi) : stream_(stream), spi_(spi) {}

    int receive() override {
        has_quote_ = false;
        enyx_hw_a2c_stream_poll_once(stream_, call_back, this);
        return has_quote_ ? 1 : 0;
    }

    int receive(KovaShfeMdType& quote) override {
        has_quote_ = false;
        target_ = &quote;
        enyx_hw_a2c_stream_poll_once(stream_, fetch, this);
        return has_quote_ ? 1 : 0;
    }

 private:
    static std::uint32_t kind_of(const std::uint8_t* message) {
        std::uint32_t kind = 0;
        std::memcpy(&kind, message, sizeof kind);
        return kind;
    }

    static void call_back(const std::uint8_t* message, std::uint32_t /*size*/, void* self) {
        Chain& chain = *static_cast<Chain*>(self);
        switch (kind_of(message)) {
            case DMA_UDP:
                chain.has_quote_ = true;
                chain.spi_.OnKovaShfeMd(
                    reinterpret_cast<const KovaShfeMdType*>(message + offsetof(U50QuoteMessage, quote)));
                break;
            default:
                break;
        }
    }

    static void fetch(const std::uint8_t* message, std::uint32_t /*size*/, void* self) {
        Chain& chain = *static_cast<Chain*>(self);
        switch (kind_of(message)) {
            case DMA_UDP:
                std::memcpy(chain.target_, message + offsetof(U50QuoteMessage, quote), sizeof *chain.target_);
                chain.has_quote_ = true;
                break;
            default:
                break;
        }
    }

    enyx_hw_a2c_stream* stream_;
    CKovaShfeMdSpi& spi_;
    KovaShfeMdType* target_ = nullptr;
    bool has_quote_ = false;
};

}  // namespace

std::unique_ptr<HandMadeChain> HandMadeChain::make(enyx_hw_a2c_stream* stream, CKovaShfeMdSpi& spi) {
    return std::make_unique<Chain>(stream, spi);
}

}  // namespace kova::bench
