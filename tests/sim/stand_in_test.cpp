// The SDK's C functions on the simulated card.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "enyx_hw.h"
#include "sim/card/in_process_card.h"

namespace kova::sim {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

enyx_hw_register_description register_at(std::uint32_t number) {
    return {.byte_offset = std::uint64_t{number} * 4, .bit_offset = 0, .bit_size = 32};
}

enyx_hw_accelerator* accelerator_at(std::uint32_t index) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_index(filter, index);
    enyx_hw_accelerator_descriptor* descriptor = nullptr;
    enyx_hw_accelerator* accelerator = nullptr;
    if (enyx_hw_enumerate_accelerators(filter, &descriptor, 1) == 1) {
        accelerator = enyx_hw_accelerator_get(descriptor);
        enyx_hw_free_accelerator_descriptors(&descriptor, 1);
    }
    enyx_hw_filter_destroy(filter);
    return accelerator;
}

// The register core of a card, opened as a client does.
class OpenCore {
 public:
    explicit OpenCore(std::uint32_t index) {
        enyx_hw_mmio_descriptor* descriptor = nullptr;
        EXPECT_EQ(enyx_hw_accelerator_enumerate_mmios(accelerator_at(index), nullptr, &descriptor, 1), 1);
        mmio_ = enyx_hw_mmio_create(descriptor);
        enyx_hw_free_mmio_descriptors(&descriptor, 1);
        tree_ = enyx_hw_enumerate_cores(mmio_);
        EXPECT_EQ(enyx_hw_core_enumerate(enyx_hw_core_tree_get_root(tree_), 474, &core, 1), 1);
    }
    ~OpenCore() {
        enyx_hw_destroy_tree(tree_);
        enyx_hw_mmio_destroy(mmio_);
    }
    OpenCore(const OpenCore&) = delete;
    OpenCore& operator=(const OpenCore&) = delete;

    enyx_hw_core* core = nullptr;

 private:
    enyx_hw_mmio* mmio_ = nullptr;
    enyx_hw_core_tree* tree_ = nullptr;
};

enyx_hw_a2c_stream* open_stream(enyx_hw_accelerator* accelerator, const char* name) {
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_name(filter, name);
    enyx_hw_a2c_stream_descriptor* descriptor = nullptr;
    enyx_hw_a2c_stream* stream = nullptr;
    if (enyx_hw_accelerator_enumerate_a2c_streams(accelerator, filter, &descriptor, 1) == 1) {
        stream = enyx_hw_a2c_stream_create(descriptor, nullptr);
        enyx_hw_free_a2c_stream_descriptors(&descriptor, 1);
    }
    const int error = errno;
    enyx_hw_filter_destroy(filter);
    errno = error;
    return stream;
}

TEST(StandIn, ACardThatIsNotThereIsNotFound) {
    EXPECT_EQ(accelerator_at(15), nullptr);
    EXPECT_EQ(errno, ENODEV);
}

TEST(StandIn, WithoutAnIndexEveryCardIsFound) {
    enyx_hw_accelerator_descriptor* descriptors[16] = {};
    // Those of other programs on this machine.
    const int others = enyx_hw_enumerate_accelerators(nullptr, descriptors, 16);
    ASSERT_GE(others, 0);
    enyx_hw_free_accelerator_descriptors(descriptors, static_cast<std::size_t>(others));
    const InProcessCard first(2);
    const InProcessCard second(5);
    EXPECT_EQ(enyx_hw_enumerate_accelerators(nullptr, descriptors, 16), others + 2);
    enyx_hw_free_accelerator_descriptors(descriptors, static_cast<std::size_t>(others) + 2);
    EXPECT_EQ(enyx_hw_enumerate_accelerators(nullptr, descriptors, 1), 1);
    enyx_hw_free_accelerator_descriptors(descriptors, 1);
}

TEST(StandIn, AWrittenRegisterReadsBackAtItsByteOffset) {
    InProcessCard card;
    const OpenCore opened(0);
    const auto description = register_at(0x3003);
    enyx_hw_core_lock(opened.core);
    EXPECT_EQ(enyx_hw_write(opened.core, &description, 0xEF032901), 0);
    std::uint64_t value = 0;
    EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), 0);
    enyx_hw_core_unlock(opened.core);
    EXPECT_EQ(value, 0xEF032901U);
    EXPECT_EQ(card.written(0x3003), 0xEF032901U);
    EXPECT_THAT(card.calls().register_accesses(), ElementsAre(RegisterAccess{true, 0x3003, 0xEF032901, true},
                                                              RegisterAccess{false, 0x3003, 0xEF032901, true}));
}

TEST(StandIn, ARegisterWiderThanTheDescriptionGivesItsLowBits) {
    InProcessCard card;
    card.preset(0x1220, 0x1'0000'0007);
    const OpenCore opened(0);
    auto description = register_at(0x1220);
    std::uint64_t value = 0;
    EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), 0);
    EXPECT_EQ(value, 7U);
    description.bit_size = 64;
    EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), 0);
    EXPECT_EQ(value, 0x1'0000'0007U);
}

TEST(StandIn, ADescriptionThatMeansNoRegisterIsInvalid) {
    const InProcessCard card;
    const OpenCore opened(0);
    std::uint64_t value = 0;
    for (const enyx_hw_register_description& description :
         std::vector<enyx_hw_register_description>{{2, 0, 32},
                                                   {4, 1, 32},
                                                   {4, 0, 8},
                                                   {std::uint64_t{kRegisterCount} * 4, 0, 32},
                                                   {~std::uint64_t{3}, 0, 32}}) {
        errno = 0;
        EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), -1);
        EXPECT_EQ(errno, EINVAL);
        EXPECT_EQ(enyx_hw_write(opened.core, &description, 1), -1);
    }
    const enyx_hw_register_description last{std::uint64_t{kRegisterCount - 1} * 4, 0, 32};
    EXPECT_EQ(enyx_hw_write(opened.core, &last, 1), 0);
}

TEST(StandIn, ACoreOfAnotherIdentifierIsNotFound) {
    const InProcessCard card;
    enyx_hw_mmio_descriptor* descriptor = nullptr;
    ASSERT_EQ(enyx_hw_accelerator_enumerate_mmios(accelerator_at(0), nullptr, &descriptor, 1), 1);
    enyx_hw_mmio* mmio = enyx_hw_mmio_create(descriptor);
    enyx_hw_free_mmio_descriptors(&descriptor, 1);
    enyx_hw_core_tree* tree = enyx_hw_enumerate_cores(mmio);
    enyx_hw_core* core = nullptr;
    EXPECT_EQ(enyx_hw_core_enumerate(enyx_hw_core_tree_get_root(tree), 475, &core, 1), 0);
    enyx_hw_destroy_tree(tree);
    enyx_hw_mmio_destroy(mmio);
}

TEST(StandIn, AnAccessWithoutTheLockIsMadeAndCounted) {
    InProcessCard card;
    const OpenCore opened(0);
    const auto description = register_at(0x10);
    EXPECT_EQ(enyx_hw_write(opened.core, &description, 5), 0);
    EXPECT_EQ(card->memory().lock.unprotected, 1U);
    std::uint64_t value = 0;
    EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), 0);
    EXPECT_EQ(value, 5U);
    EXPECT_EQ(card->memory().lock.unprotected, 2U);
    enyx_hw_core_lock(opened.core);
    EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), 0);
    enyx_hw_core_unlock(opened.core);
    EXPECT_EQ(card->memory().lock.unprotected, 2U);
    EXPECT_THAT(card.calls().register_accesses(),
                ElementsAre(RegisterAccess{true, 0x10, 5, false}, RegisterAccess{false, 0x10, 5, false},
                            RegisterAccess{false, 0x10, 5, true}));
}

TEST(StandIn, AResetOfTheTreeChangesNoRegister) {
    InProcessCard card;
    card.preset(0x1001, 0xE3069283);
    enyx_hw_mmio_descriptor* descriptor = nullptr;
    ASSERT_EQ(enyx_hw_accelerator_enumerate_mmios(accelerator_at(0), nullptr, &descriptor, 1), 1);
    enyx_hw_mmio* mmio = enyx_hw_mmio_create(descriptor);
    enyx_hw_free_mmio_descriptors(&descriptor, 1);
    enyx_hw_core_tree* tree = enyx_hw_enumerate_cores(mmio);
    EXPECT_EQ(enyx_hw_core_reset(enyx_hw_core_tree_get_root(tree)), 0);
    EXPECT_EQ(card.written(0x1001), 0xE3069283U);
    enyx_hw_destroy_tree(tree);
    enyx_hw_mmio_destroy(mmio);
}

TEST(StandIn, AStreamThatIsNotThereIsNotFound) {
    const InProcessCard card;
    EXPECT_EQ(open_stream(accelerator_at(0), "CUSTOM_CHAN16_DATA"), nullptr);
    EXPECT_EQ(errno, ENOENT);
}

TEST(StandIn, AStreamThatIsOpenElsewhereIsBusy) {
    const InProcessCard card;
    enyx_hw_a2c_stream* stream = open_stream(accelerator_at(0), "CUSTOM_CHAN3_DATA");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(open_stream(accelerator_at(0), "CUSTOM_CHAN3_DATA"), nullptr);
    EXPECT_EQ(errno, EBUSY);
    enyx_hw_a2c_stream_destroy(stream);
}

TEST(StandIn, APollHandsTheMessageOverWithTheOpaqueValue) {
    InProcessCard card;
    enyx_hw_a2c_stream* stream = open_stream(accelerator_at(0), "CUSTOM_CHAN3_DATA");
    std::string text;
    const auto handler = [](const std::uint8_t* data, std::uint32_t size, void* opaque) {
        static_cast<std::string*>(opaque)->assign(reinterpret_cast<const char*>(data), size);
    };
    EXPECT_EQ(enyx_hw_a2c_stream_poll_once(stream, handler, &text), 0);
    EXPECT_EQ(text, "");
    card->push(3, std::as_bytes(std::span(std::string_view("hello"))));
    EXPECT_EQ(enyx_hw_a2c_stream_poll_once(stream, handler, &text), 1);
    EXPECT_EQ(text, "hello");
    std::uint32_t mtu = 0;
    EXPECT_EQ(enyx_hw_a2c_stream_get_mtu(stream, &mtu), 0);
    EXPECT_EQ(mtu, 4096U);
    enyx_hw_a2c_stream_destroy(stream);
}

TEST(StandIn, ThoseWhoPowerTheCardOffLeaveItsClientsWithoutADevice) {
    enyx_hw_core* core = nullptr;
    std::unique_ptr<OpenCore> opened;
    {
        const InProcessCard card;
        opened = std::make_unique<OpenCore>(0);
        core = opened->core;
    }
    const auto description = register_at(0x10);
    std::uint64_t value = 0;
    EXPECT_EQ(enyx_hw_read(core, &description, &value), -1);
    EXPECT_EQ(errno, ENODEV);
}

TEST(StandIn, AnAcceleratorFindsItsCardAgainAfterItWasPoweredAnew) {
    enyx_hw_accelerator* accelerator = nullptr;
    {
        const InProcessCard card;
        accelerator = accelerator_at(0);
    }
    EXPECT_EQ(open_stream(accelerator, "CUSTOM_CHAN3_DATA"), nullptr);
    EXPECT_EQ(errno, ENODEV);
    const InProcessCard card;
    enyx_hw_a2c_stream* stream = open_stream(accelerator, "CUSTOM_CHAN3_DATA");
    EXPECT_NE(stream, nullptr);
    enyx_hw_a2c_stream_destroy(stream);
}

TEST(StandIn, AClientKilledInsideARegisterAccessLeavesTheCardUsable) {
    InProcessCard card;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const OpenCore opened(0);
        const auto description = register_at(0x100);
        enyx_hw_core_lock(opened.core);
        enyx_hw_write(opened.core, &description, 1);
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(WTERMSIG(status), SIGKILL);
    const OpenCore opened(0);
    const auto description = register_at(0x100);
    std::uint64_t value = 0;
    enyx_hw_core_lock(opened.core);
    EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), 0);
    enyx_hw_core_unlock(opened.core);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(card->memory().lock.recoveries, 1U);
}

TEST(StandInThreaded, TheCoreLockExcludesEveryOtherThread) {
    const InProcessCard card;
    InProcessCard::calls().stop();
    const OpenCore opened(0);
    const auto count_up = [core = opened.core] {
        const auto description = register_at(0x100);
        for (int i = 0; i < 20'000; ++i) {
            std::uint64_t value = 0;
            enyx_hw_core_lock(core);
            enyx_hw_read(core, &description, &value);
            enyx_hw_write(core, &description, value + 1);
            enyx_hw_core_unlock(core);
        }
    };
    std::thread other(count_up);
    count_up();
    other.join();
    const auto description = register_at(0x100);
    std::uint64_t value = 0;
    enyx_hw_read(opened.core, &description, &value);
    EXPECT_EQ(value, 40'000U);
}

TEST(SdkCalls, TheNthCallFailsWithTheErrnoAskedFor) {
    const InProcessCard card;
    InProcessCard::calls().fail("enyx_hw_filter_create", 2, ENOMEM);
    enyx_hw_filter* first = enyx_hw_filter_create();
    EXPECT_NE(first, nullptr);
    errno = 0;
    EXPECT_EQ(enyx_hw_filter_create(), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    enyx_hw_filter* third = enyx_hw_filter_create();
    EXPECT_NE(third, nullptr);
    enyx_hw_filter_destroy(first);
    enyx_hw_filter_destroy(third);
}

TEST(SdkCalls, CallsAreRecordedWithTheirTellingArguments) {
    const InProcessCard card;
    enyx_hw_filter* filter = enyx_hw_filter_create();
    enyx_hw_filter_set_index(filter, 7);
    enyx_hw_filter_set_name(filter, "CUSTOM_CHAN0_DATA");
    enyx_hw_filter_destroy(filter);
    EXPECT_THAT(InProcessCard::calls().calls(),
                ElementsAre("enyx_hw_filter_create()", "enyx_hw_filter_set_index(7)",
                            "enyx_hw_filter_set_name(CUSTOM_CHAN0_DATA)", "enyx_hw_filter_destroy()"));
}

TEST(SdkCalls, RegisterAccessesCanBeRecordedAlone) {
    const InProcessCard card;
    const OpenCore opened(0);
    InProcessCard::calls().start_recording_registers();
    const auto description = register_at(0x10);
    EXPECT_EQ(enyx_hw_write(opened.core, &description, 1), 0);
    EXPECT_THAT(InProcessCard::calls().calls(), IsEmpty());
    EXPECT_EQ(InProcessCard::calls().count("enyx_hw_write"), 0U);
    EXPECT_EQ(InProcessCard::calls().register_accesses().size(), 1U);
    InProcessCard::calls().start_recording();
    EXPECT_EQ(InProcessCard::calls().register_accesses().size(), 0U);
    EXPECT_EQ(enyx_hw_write(opened.core, &description, 1), 0);
    EXPECT_EQ(InProcessCard::calls().count("enyx_hw_write"), 1U);
}

TEST(SdkCalls, ObjectsAreCountedUntilTheyAreDestroyed) {
    const InProcessCard card;
    enyx_hw_filter* filter = enyx_hw_filter_create();
    EXPECT_EQ(InProcessCard::calls().alive("filter"), 1);
    EXPECT_THAT(InProcessCard::calls().kinds_alive(), ElementsAre("filter"));
    enyx_hw_filter_destroy(filter);
    EXPECT_THAT(InProcessCard::calls().kinds_alive(), IsEmpty());
}

TEST(SdkCalls, AForbiddenValueIsRefusedAndNotStored) {
    InProcessCard card;
    const OpenCore opened(0);
    card.calls().forbid_write(0x10, 1, EPERM);
    const auto description = register_at(0x10);
    EXPECT_EQ(enyx_hw_write(opened.core, &description, 1), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(card.written(0x10), 0U);
    EXPECT_EQ(enyx_hw_write(opened.core, &description, 2), 0);
}

TEST(SdkCalls, PreparedAnswersComeInTheirOrderAndThenWhatTheCardHolds) {
    InProcessCard card;
    const OpenCore opened(0);
    card.preset(0x11003, 7);
    card.preset(0x11007, 8);
    card.calls().answer_reads(0x11003, std::vector<std::uint32_t>{1, 0xFFFFFFFF});
    card.calls().answer_reads(0x11003, std::vector<std::uint32_t>{2});
    const auto read = [&opened](std::uint32_t number) {
        const auto description = register_at(number);
        std::uint64_t value = 0;
        EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), 0);
        return value;
    };
    EXPECT_EQ(read(0x11003), 1U);
    EXPECT_EQ(read(0x11007), 8U);
    EXPECT_EQ(read(0x11003), 0xFFFFFFFFU);
    EXPECT_EQ(read(0x11003), 2U);
    EXPECT_EQ(read(0x11003), 7U);
    EXPECT_EQ(card.calls().register_accesses().at(2).value, 0xFFFFFFFFU);
}

TEST(SdkCalls, EveryFunctionThatCanFailDoesWhenAsked) {
    const InProcessCard card;
    SdkCalls& calls = InProcessCard::calls();
    enyx_hw_accelerator* accelerator = accelerator_at(0);
    const OpenCore opened(0);
    enyx_hw_a2c_stream* stream = open_stream(accelerator, "CUSTOM_CHAN3_DATA");
    const auto description = register_at(0x10);
    std::uint64_t value = 0;
    std::uint32_t mtu = 0;
    calls.fail("enyx_hw_write", 1, EIO);
    calls.fail("enyx_hw_read", 1, EIO);
    calls.fail("enyx_hw_core_reset", 1, EIO);
    calls.fail("enyx_hw_a2c_stream_get_mtu", 1, EIO);
    calls.fail("enyx_hw_a2c_stream_poll_once", 1, EIO);
    EXPECT_EQ(enyx_hw_write(opened.core, &description, 1), -1);
    EXPECT_EQ(enyx_hw_read(opened.core, &description, &value), -1);
    EXPECT_EQ(enyx_hw_core_reset(opened.core), -1);
    EXPECT_EQ(enyx_hw_a2c_stream_get_mtu(stream, &mtu), -1);
    EXPECT_EQ(enyx_hw_a2c_stream_poll_once(stream, nullptr, nullptr), -1);
    EXPECT_EQ(errno, EIO);
    enyx_hw_a2c_stream_destroy(stream);
}

}  // namespace
}  // namespace kova::sim
