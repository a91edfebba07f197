#include "card/steps.h"

#include <cstdint>
#include <cstdio>
#include <utility>

#include "card/table_shortcut.h"
#include "enyx_hw.h"
#include "support/next_definition.h"

#define KOVA_INTERPOSED extern "C" __attribute__((visibility("default")))

namespace {

using kova::test::next_definition;
using kova::test::Step;

std::function<void(Step)> before_each_step;

void tell(Step step) {
    if (before_each_step) {
        before_each_step(step);
    }
}

}  // namespace

namespace kova::test {

void Steps::before_each(std::function<void(Step)> action) {
    before_each_step = std::move(action);
}

}  // namespace kova::test

#define KOVA_NEXT(name) static auto* const next = next_definition<decltype(name)>(#name)

KOVA_INTERPOSED void enyx_hw_core_lock(enyx_hw_core* core) {
    KOVA_NEXT(enyx_hw_core_lock);
    if (kova::test::TableShortcut::is_taken()) {
        return;
    }
    tell(Step::kLock);
    next(core);
}

KOVA_INTERPOSED void enyx_hw_core_unlock(enyx_hw_core* core) {
    KOVA_NEXT(enyx_hw_core_unlock);
    if (kova::test::TableShortcut::is_taken()) {
        return;
    }
    tell(Step::kUnlock);
    next(core);
    kova::test::TableShortcut::unlocked();
}

KOVA_INTERPOSED enyx_hw_filter* enyx_hw_filter_create(void) {
    KOVA_NEXT(enyx_hw_filter_create);
    tell(Step::kCall);
    return next();
}

KOVA_INTERPOSED enyx_hw_accelerator* enyx_hw_accelerator_get(const enyx_hw_accelerator_descriptor* descriptor) {
    KOVA_NEXT(enyx_hw_accelerator_get);
    tell(Step::kCall);
    return next(descriptor);
}

KOVA_INTERPOSED enyx_hw_mmio* enyx_hw_mmio_create(const enyx_hw_mmio_descriptor* descriptor) {
    KOVA_NEXT(enyx_hw_mmio_create);
    tell(Step::kCall);
    return next(descriptor);
}

KOVA_INTERPOSED enyx_hw_core_tree* enyx_hw_enumerate_cores(enyx_hw_mmio* mmio) {
    KOVA_NEXT(enyx_hw_enumerate_cores);
    tell(Step::kCall);
    return next(mmio);
}

KOVA_INTERPOSED int enyx_hw_core_reset(enyx_hw_core* core) {
    KOVA_NEXT(enyx_hw_core_reset);
    tell(Step::kCall);
    return next(core);
}

KOVA_INTERPOSED int enyx_hw_core_enumerate(enyx_hw_core* root, uint16_t hardware_id, enyx_hw_core** cores,
                                           size_t capacity) {
    KOVA_NEXT(enyx_hw_core_enumerate);
    tell(Step::kCall);
    return next(root, hardware_id, cores, capacity);
}

KOVA_INTERPOSED enyx_hw_a2c_stream* enyx_hw_a2c_stream_create(const enyx_hw_a2c_stream_descriptor* descriptor,
                                                              const void* options) {
    KOVA_NEXT(enyx_hw_a2c_stream_create);
    tell(Step::kCall);
    return next(descriptor, options);
}

KOVA_INTERPOSED enyx_hw_c2a_stream* enyx_hw_c2a_stream_create(const enyx_hw_c2a_stream_descriptor* descriptor,
                                                              const void* options) {
    KOVA_NEXT(enyx_hw_c2a_stream_create);
    tell(Step::kCall);
    return next(descriptor, options);
}

KOVA_INTERPOSED int enyx_hw_a2c_stream_get_mtu(enyx_hw_a2c_stream* stream, uint32_t* mtu) {
    KOVA_NEXT(enyx_hw_a2c_stream_get_mtu);
    tell(Step::kCall);
    return next(stream, mtu);
}

KOVA_INTERPOSED int enyx_hw_c2a_stream_get_mtu(enyx_hw_c2a_stream* stream, uint32_t* mtu) {
    KOVA_NEXT(enyx_hw_c2a_stream_get_mtu);
    tell(Step::kCall);
    return next(stream, mtu);
}

KOVA_INTERPOSED int fflush(FILE* file) {
    KOVA_NEXT(fflush);
    if (file != nullptr && file != stdout && file != stderr) {
        tell(Step::kLine);
    }
    return next(file);
}
