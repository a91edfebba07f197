/**
 * One engine for all inputs of a process, each of which finds it as if it were new.
 *
 * No card is open: every register write is refused at once, without a word, since the log is off.
 */
#ifndef KOVA_FUZZ_ENGINE_UNDER_FUZZ_H
#define KOVA_FUZZ_ENGINE_UNDER_FUZZ_H

#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fuzz/require.h"
#include "support/engine_access.h"

namespace kova::fuzz {

using Engine = EngineAccess::Engine;

constexpr ELOGLEVEL kSilent = static_cast<ELOGLEVEL>(0);

/** The only ports whose segments the engines of this room listen to. */
constexpr std::array<std::uint16_t, 4> kPorts{33022, 22000, 1, 65535};

/** Zeros for memory of which little was touched: whole pages are given back instead of written. */
inline void zero_sparse(void* memory, std::size_t size) {
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto begin = reinterpret_cast<std::uintptr_t>(memory);
    const std::size_t head = (page - begin % page) % page;
    const std::size_t pages = (size - head) / page * page;
    auto* const bytes = static_cast<std::uint8_t*>(memory);
    std::memset(bytes, 0, head);
    require(::madvise(bytes + head, pages, MADV_DONTNEED) == 0, "pages can be given back");
    std::memset(bytes + head + pages, 0, size - head - pages);
}

/**
 * Forgets what the input before left behind.
 *
 * _Cleandata does the same by writing 13 MB, hundreds of times slower.
 */
inline void forget(Engine& engine) {
    for (const std::uint16_t port : kPorts) {
        ResetSession(EngineAccess::session(engine, port));
    }
    zero_sparse(&EngineAccess::inst_table(engine), sizeof(U50InstTable));
    EngineAccess::finished_mask(engine).enabled_mask = 0;
    EngineAccess::dst_port(engine) = {};
    EngineAccess::inst_count(engine) = {};
    EngineAccess::price_error_inst_ids(engine).clear();
    EngineAccess::trading_day(engine) = 0;
    EngineAccess::is_tcp_init_finished(engine) = false;
    EngineAccess::is_snapshot_failed(engine) = false;
    EngineAccess::config(engine) = {};
}

inline Engine& fresh_engine() {
    // Never destroyed: it goes with the process.
    static Engine& engine = *EngineAccess::create().release();
    CCommonLog::GetInstance()->SetLogLevel(kSilent);
    forget(engine);
    return engine;
}

inline void require_sound_counts(Engine& engine) {
    const U50InstCount& count = EngineAccess::inst_count(engine);
    require(count.shfe_inst_cnt_2ps <= 16384 && count.shfe_inst_cnt_4ps <= 16384 &&
                count.ine_inst_cnt_2ps <= 4096 && count.ine_inst_cnt_4ps <= 4096,
            "no feed has more instruments than its table has rows");
}

}  // namespace kova::fuzz

#endif  // KOVA_FUZZ_ENGINE_UNDER_FUZZ_H
