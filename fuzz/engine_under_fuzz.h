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

#include "fuzz/require.h"
#include "fuzz/touched_pages.h"
#include "support/engine_access.h"

namespace kova::fuzz {

using Engine = EngineAccess::Engine;

constexpr ELOGLEVEL kSilent = static_cast<ELOGLEVEL>(0);

/** The only ports whose segments the engines of this room listen to. */
constexpr std::array<std::uint16_t, 4> kPorts{33022, 22000, 1, 65535};

/** What must hold once a snapshot was thrown away: the tables and sessions are zero, whoever wrote them. */
inline void require_no_snapshot(Engine& engine) {
    const void* const tables = &EngineAccess::peek_inst_table(engine);
    const void* const sessions = &EngineAccess::peek_session(engine, 0);
    constexpr std::size_t kSessionsSize = TCP_SESSION_COUNT * sizeof(tcp_session_t);
    require(is_zero(tables, sizeof(U50InstTable)), "of a snapshot thrown away nothing is left in the tables");
    require(is_zero(sessions, kSessionsSize), "of a snapshot thrown away nothing is left in the sessions");
    give_back_zeros(tables, sizeof(U50InstTable));
    give_back_zeros(sessions, kSessionsSize);
    const U50InstCount& count = EngineAccess::inst_count(engine);
    require(count.shfe_inst_cnt_2ps == 0 && count.shfe_inst_cnt_4ps == 0 && count.ine_inst_cnt_2ps == 0 &&
                count.ine_inst_cnt_4ps == 0,
            "without a snapshot there are no instruments");
    require(EngineAccess::finished_mask(engine).enabled_mask == 0, "without a snapshot none is finished");
    require(EngineAccess::price_error_inst_ids(engine).empty(), "without a snapshot no price is wrong");
}

/**
 * Every input ends with this: what it left of a snapshot is thrown away by the engine itself, which must know
 * where something may stand.
 */
inline void throw_snapshot_away(Engine& engine) {
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
