/**
 * One engine for all inputs of a process, each of which finds it as if it were new and leaves it so.
 *
 * No card is open: every register write is refused at once, without a word, since the log is off.
 */
#ifndef KOVA_FUZZ_ENGINE_UNDER_FUZZ_H
#define KOVA_FUZZ_ENGINE_UNDER_FUZZ_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "fuzz/input.h"
#include "fuzz/require.h"
#include "fuzz/touched_pages.h"
#include "support/engine_access.h"

namespace kova::fuzz {

using Engine = EngineAccess::Engine;

constexpr ELOGLEVEL kSilent = static_cast<ELOGLEVEL>(0);

/** The only ports whose segments the engines of this room listen to. */
constexpr std::array<std::uint16_t, 4> kPorts{33022, 22000, 1, 65535};

enum class Ending {
    kForget,    /**< what the input left is forgotten from outside */
    kThrowAway, /**< the engine throws its snapshot away, and all tables and sessions are looked through */
};

/**
 * How an input ends: while fuzzing, one of so many is thrown away, which takes a millisecond where most
 * messages take a fortieth of one. Which one, its bytes alone decide, so that it ends the same when it runs
 * alone.
 */
inline Ending ending_of(Input input, std::uint32_t one_of) {
#ifdef KOVA_FUZZ_REPLAY
    return Ending::kThrowAway;
#endif
    std::uint32_t hash = 0;
    for (const std::uint8_t byte : input.rest()) {
        hash = (hash ^ byte) * 0x01000193U;
    }
    return (hash >> 8U) % one_of == 0 ? Ending::kThrowAway : Ending::kForget;
}

/** What must hold once the engine threw a snapshot away: tables and sessions are zero, whoever wrote them. */
inline void require_no_snapshot(Engine& engine) {
    const void* const tables = &EngineAccess::peek_inst_table(engine);
    const void* const sessions = &EngineAccess::peek_session(engine, 0);
    constexpr std::size_t kSessionsSize = TCP_SESSION_COUNT * sizeof(tcp_session_t);
    require(is_zero(tables, sizeof(U50InstTable)), "of a snapshot thrown away nothing is left in the tables");
    require(is_zero(sessions, kSessionsSize), "of a snapshot thrown away nothing is left in the sessions");
    give_back(tables, sizeof(U50InstTable));
    give_back(sessions, kSessionsSize);
    const U50InstCount& count = EngineAccess::inst_count(engine);
    require(count.shfe_inst_cnt_2ps == 0 && count.shfe_inst_cnt_4ps == 0 && count.ine_inst_cnt_2ps == 0 &&
                count.ine_inst_cnt_4ps == 0,
            "without a snapshot there are no instruments");
    require(EngineAccess::finished_mask(engine).enabled_mask == 0, "without a snapshot none is finished");
    require(EngineAccess::price_error_inst_ids(engine).empty(), "without a snapshot no price is wrong");
}

/** Leaves the engine without a snapshot and without a note of where one stood. */
inline void forget_snapshot(Engine& engine) {
    for (const std::uint16_t port : kPorts) {
        ResetSession(EngineAccess::session(engine, port));
    }
    zero_sparse(&EngineAccess::inst_table(engine), sizeof(U50InstTable));
    EngineAccess::finished_mask(engine).enabled_mask = 0;
    EngineAccess::dst_port(engine) = {};
    EngineAccess::inst_count(engine) = {};
    EngineAccess::price_error_inst_ids(engine).clear();
    EngineAccess::snapshot_dirt(engine) = {};
}

inline void end_input(Engine& engine, Ending ending) {
    if (ending == Ending::kForget) {
        forget_snapshot(engine);
        return;
    }
    EngineAccess::clean_data(engine);
    require_no_snapshot(engine);
}

inline Engine& fresh_engine() {
    // Never destroyed: it goes with the process.
    static Engine& engine = *EngineAccess::create().release();
    CCommonLog::GetInstance()->SetLogLevel(kSilent);
    EngineAccess::trading_day(engine) = 0;
    EngineAccess::is_tcp_init_finished(engine) = false;
    EngineAccess::is_snapshot_failed(engine) = false;
    EngineAccess::config(engine) = {};
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
