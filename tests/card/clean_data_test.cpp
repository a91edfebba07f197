// Throwing the snapshot away: completely when there is one, for next to nothing when there is none.

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <span>

#include "card/engine_test.h"

namespace {

using CleanDataTest = kova::test::EngineTest;

/** A list of this many frames that came too early. */
tcp_lost_buf_t* lost_frames(int count) {
    tcp_lost_buf_t* head = nullptr;
    for (int i = 0; i < count; ++i) {
        auto* const frame = new (std::nothrow) tcp_lost_buf_t();
        frame->next = head;
        if (head != nullptr) {
            head->before = frame;
        }
        head = frame;
    }
    return head;
}

bool is_all_zero(const void* object, std::size_t size) {
    const std::span bytes(static_cast<const unsigned char*>(object), size);
    return std::ranges::all_of(bytes, [](unsigned char byte) { return byte == 0; });
}

TEST(TcpSession, ResettingFreesWhatItOwnsAndZeroesIt) {
    tcp_session_t session{.src_host = 1,
                          .dst_host = 2,
                          .src_port = 3,
                          .dst_port = 4,
                          .lost_buf_head = lost_frames(3),
                          .frag_buf = new (std::nothrow) std::uint8_t[TCP_FRAG_BUF_SIZE],
                          .lost_buf_size = 3,
                          .frag_buf_offset = 5,
                          .next_expt_seq = 6,
                          .current_seq = 7,
                          .frag_flag = 1,
                          .lost_flag = 1,
                          .init = 1,
                          .reserved = 1};
    ResetSession(session);
    EXPECT_TRUE(is_all_zero(&session, sizeof(session)));
    ResetSession(session);
    EXPECT_TRUE(is_all_zero(&session, sizeof(session)));
}

TEST_F(CleanDataTest, EverythingOfTheSnapshotGoes) {
    EngineAccess::finished_mask(*engine).enabled_mask = 15;
    EngineAccess::dst_port(*engine) = {1, 2, 3, 4};
    EngineAccess::inst_count(*engine) = {1, 2, 3, 4};
    EngineAccess::price_error_inst_ids(*engine) = {"au2606", "cu2606"};
    EngineAccess::inst_table(*engine).shfe2psInstTable.rows[0].config = 1;
    EngineAccess::inst_table(*engine).ine4psInstTable.rows[4095].reserved[16] = 1;
    for (const int port : {0, 33022, 65535}) {
        tcp_session_t& session = EngineAccess::session(*engine, static_cast<std::uint16_t>(port));
        session.init = 1;
        session.lost_buf_head = lost_frames(2);
        session.frag_buf = new (std::nothrow) std::uint8_t[TCP_FRAG_BUF_SIZE];
    }
    EngineAccess::clean_data(*engine);
    EXPECT_EQ(EngineAccess::finished_mask(*engine).enabled_mask, 0);
    EXPECT_TRUE(is_all_zero(&EngineAccess::dst_port(*engine), sizeof(U50DstPort)));
    EXPECT_TRUE(is_all_zero(&EngineAccess::inst_count(*engine), sizeof(U50InstCount)));
    EXPECT_TRUE(EngineAccess::price_error_inst_ids(*engine).empty());
    EXPECT_TRUE(is_all_zero(&EngineAccess::peek_inst_table(*engine), sizeof(U50InstTable)));
    for (int port = 0; port < 65536; ++port) {
        const tcp_session_t& session = EngineAccess::peek_session(*engine, static_cast<std::uint16_t>(port));
        ASSERT_TRUE(is_all_zero(&session, sizeof(session))) << port;
    }
}

TEST_F(CleanDataTest, WhatIsNotOfTheSnapshotStays) {
    EngineAccess::trading_day(*engine) = 20260105;
    EngineAccess::init_count(*engine) = 2;
    EngineAccess::version_record(*engine) = {"1.1.1"};
    EngineAccess::is_tcp_init_finished(*engine) = true;
    EngineAccess::is_hbm2_init_finished(*engine) = true;
    EngineAccess::is_all_init_finished(*engine) = true;
    EngineAccess::mark_snapshot_dirty(*engine);
    EngineAccess::clean_data(*engine);
    EXPECT_EQ(EngineAccess::trading_day(*engine), 20260105);
    EXPECT_EQ(EngineAccess::init_count(*engine), 2);
    EXPECT_EQ(EngineAccess::version_record(*engine).size(), 1U);
    EXPECT_TRUE(EngineAccess::is_tcp_init_finished(*engine));
    EXPECT_TRUE(EngineAccess::is_hbm2_init_finished(*engine));
    EXPECT_TRUE(EngineAccess::is_all_init_finished(*engine));
}

TEST_F(CleanDataTest, WhatIsCleanIsNotCleanedAgain) {
    EXPECT_FALSE(EngineAccess::is_snapshot_dirty(*engine));
    U50InstTable& table = EngineAccess::inst_table(*engine);
    EXPECT_TRUE(EngineAccess::is_snapshot_dirty(*engine));
    EngineAccess::clean_data(*engine);
    EXPECT_FALSE(EngineAccess::is_snapshot_dirty(*engine));
    // Written behind the engine's back: only a clean that walks over everything would find it.
    table.shfe2psInstTable.rows[0].config = 1;
    EngineAccess::clean_data(*engine);
    EXPECT_EQ(EngineAccess::peek_inst_table(*engine).shfe2psInstTable.rows[0].config, 1U);
    EngineAccess::mark_snapshot_dirty(*engine);
    EngineAccess::clean_data(*engine);
    EXPECT_EQ(EngineAccess::peek_inst_table(*engine).shfe2psInstTable.rows[0].config, 0U);
}

TEST_F(CleanDataTest, DestructionFreesWhatSessionsOwn) {
    // Seen by the leak checker alone.
    EngineAccess::session(*engine, 22000).lost_buf_head = lost_frames(2);
    EngineAccess::session(*engine, 22000).frag_buf = new (std::nothrow) std::uint8_t[TCP_FRAG_BUF_SIZE];
    engine.reset();
}

}  // namespace
