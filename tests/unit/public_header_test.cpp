// The binary interface with applications: the record's bytes and the order of the virtual operations.

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

#include "KovaShfeMdApi.h"

namespace {

#define EXPECT_FIELD(field, offset, type)                                      \
    EXPECT_EQ(offsetof(KovaShfeMdType, field), std::size_t{offset}) << #field; \
    static_assert(std::is_same_v<decltype(KovaShfeMdType::field), type>, "type of " #field)

using InstId = char[16];
using Reverse = std::uint8_t[3];

TEST(QuoteRecord, EveryFieldLiesWhereTheCardWritesIt) {
    EXPECT_FIELD(inst_no, 0, std::uint32_t);
    EXPECT_FIELD(inst_id, 4, InstId);
    EXPECT_FIELD(update_time, 20, std::uint32_t);
    EXPECT_FIELD(update_milli_sec, 24, std::uint16_t);
    EXPECT_FIELD(type, 26, std::uint16_t);
    EXPECT_FIELD(change_no, 28, std::uint32_t);
    EXPECT_FIELD(last_px, 32, std::int32_t);
    EXPECT_FIELD(volume, 36, std::uint32_t);
    EXPECT_FIELD(turnover, 40, std::int64_t);
    EXPECT_FIELD(open_interest, 48, std::int64_t);
    EXPECT_FIELD(bid1_px, 56, std::int32_t);
    EXPECT_FIELD(bid1_vol, 60, std::uint32_t);
    EXPECT_FIELD(bid2_px, 64, std::int32_t);
    EXPECT_FIELD(bid2_vol, 68, std::uint32_t);
    EXPECT_FIELD(bid3_px, 72, std::int32_t);
    EXPECT_FIELD(bid3_vol, 76, std::uint32_t);
    EXPECT_FIELD(bid4_px, 80, std::int32_t);
    EXPECT_FIELD(bid4_vol, 84, std::uint32_t);
    EXPECT_FIELD(bid5_px, 88, std::int32_t);
    EXPECT_FIELD(bid5_vol, 92, std::uint32_t);
    EXPECT_FIELD(ask1_px, 96, std::int32_t);
    EXPECT_FIELD(ask1_vol, 100, std::uint32_t);
    EXPECT_FIELD(ask2_px, 104, std::int32_t);
    EXPECT_FIELD(ask2_vol, 108, std::uint32_t);
    EXPECT_FIELD(ask3_px, 112, std::int32_t);
    EXPECT_FIELD(ask3_vol, 116, std::uint32_t);
    EXPECT_FIELD(ask4_px, 120, std::int32_t);
    EXPECT_FIELD(ask4_vol, 124, std::uint32_t);
    EXPECT_FIELD(ask5_px, 128, std::int32_t);
    EXPECT_FIELD(ask5_vol, 132, std::uint32_t);
    EXPECT_FIELD(bid_volume, 136, std::uint32_t);
    EXPECT_FIELD(bid_amount, 140, std::int64_t);
    EXPECT_FIELD(ask_volume, 148, std::uint32_t);
    EXPECT_FIELD(ask_amount, 152, std::int64_t);
    EXPECT_FIELD(high_price, 160, std::int32_t);
    EXPECT_FIELD(low_price, 164, std::int32_t);
    EXPECT_FIELD(max_inst_no, 168, std::uint32_t);
    EXPECT_FIELD(last_tick_flag, 172, bool);
    EXPECT_FIELD(reverse, 173, Reverse);
    EXPECT_EQ(sizeof(KovaShfeMdType), 176U);
}

TEST(QuoteRecord, NeedsNoAlignment) {
    EXPECT_EQ(alignof(KovaShfeMdType), 1U);
    EXPECT_TRUE(std::is_trivially_copyable_v<KovaShfeMdType>);
}

/** Says which operation was called. */
class NumberedApi : public CKovaShfeMdApi {
 public:
    explicit NumberedApi(bool* is_destroyed) : is_destroyed_(is_destroyed) {}
    ~NumberedApi() override { *is_destroyed_ = true; }
    std::int32_t KovaRecvStart(CKovaShfeMdSpi& /*spi*/, const char* /*config*/) override { return 100; }
    std::int32_t KovaStart(CKovaShfeMdSpi& /*spi*/, const char* /*config*/) override { return 101; }
    std::int32_t KovaRecv() override { return 102; }
    std::int32_t KovaStart(const char* /*config*/) override { return 103; }
    std::int32_t KovaRecv(KovaShfeMdType& /*record*/) override { return 104; }
    std::int32_t KovaStop() override { return 105; }

 private:
    bool* is_destroyed_;
};

class NumberedSpi : public CKovaShfeMdSpi {
 public:
    std::int32_t OnKovaShfeMd(const KovaShfeMdType* /*record*/) override { return 200; }
};

/** The function in a slot of an object's table of virtual operations, as compiled applications find it. */
template <typename Function, typename Object>
Function* slot(Object& object, std::size_t number) {
    void** const table = *reinterpret_cast<void***>(&object);
    return reinterpret_cast<Function*>(table[number]);
}

TEST(Api, SlotsStandInTheOrderThatApplicationsWereBuiltWith) {
    bool is_destroyed = false;
    NumberedApi numbered(&is_destroyed);
    CKovaShfeMdApi& api = numbered;
    NumberedSpi spi;
    KovaShfeMdType record{};
    using WithSpi = std::int32_t(CKovaShfeMdApi*, CKovaShfeMdSpi*, const char*);
    using Plain = std::int32_t(CKovaShfeMdApi*);
    using WithPath = std::int32_t(CKovaShfeMdApi*, const char*);
    using WithRecord = std::int32_t(CKovaShfeMdApi*, KovaShfeMdType*);
    EXPECT_EQ(slot<WithSpi>(api, 0)(&api, &spi, ""), 100);
    EXPECT_EQ(slot<WithSpi>(api, 1)(&api, &spi, ""), 101);
    EXPECT_EQ(slot<Plain>(api, 2)(&api), 102);
    EXPECT_EQ(slot<WithPath>(api, 3)(&api, ""), 103);
    EXPECT_EQ(slot<WithRecord>(api, 4)(&api, &record), 104);
    EXPECT_EQ(slot<Plain>(api, 5)(&api), 105);
}

TEST(Api, DestructorFollowsTheLastOperation) {
    // The Itanium ABI gives a destructor two slots: one that destroys, then one that also deletes.
    using Destructor = void(CKovaShfeMdApi*);
    alignas(NumberedApi) std::array<std::byte, sizeof(NumberedApi)> storage;
    bool is_destroyed = false;
    CKovaShfeMdApi* api = new (storage.data()) NumberedApi(&is_destroyed);
    slot<Destructor>(*api, 6)(api);
    EXPECT_TRUE(is_destroyed);

    is_destroyed = false;
    api = new NumberedApi(&is_destroyed);
    slot<Destructor>(*api, 7)(api);
    EXPECT_TRUE(is_destroyed);
}

TEST(Spi, TheCallbackIsSlotZero) {
    NumberedSpi numbered;
    CKovaShfeMdSpi& spi = numbered;
    const KovaShfeMdType record{};
    EXPECT_EQ(slot<std::int32_t(CKovaShfeMdSpi*, const KovaShfeMdType*)>(spi, 0)(&spi, &record), 200);
}

}  // namespace
