/**
 * The one door into the engine for white-box tests and benchmarks.
 *
 * Named after what it opens; the order is the engine's own. References stay valid for the engine's life.
 */
#ifndef KOVA_TESTS_SUPPORT_ENGINE_ACCESS_H
#define KOVA_TESTS_SUPPORT_ENGINE_ACCESS_H

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "engine/KovaShfeMdApiImpl.h"

struct EngineAccess {
    using Engine = CKovaShfeMdApiImpl;

    /** An engine on the heap; it is too large for anything else. */
    static std::unique_ptr<Engine> create() { return std::make_unique<Engine>(); }

    // 1. Start and stop.
    static int32_t init(Engine& engine) { return engine.Init(); }
    static int32_t bind_cpu(Engine& engine) { return engine._BindCpu(); }

    // 2. Receive.
    static void md_handler(const unsigned char* msg, unsigned int len, void* user_data) {
        Engine::_MdHandler(msg, len, user_data);
    }
    static void md_clear_handler(const unsigned char* msg, unsigned int len, void* user_data) {
        Engine::_MdClearHandler(msg, len, user_data);
    }

    // 3. Configuration.
    static int32_t read_config(Engine& engine) { return engine._ReadConfig(); }

    // 4. Bring-up.
    static int32_t check_and_bring_up(Engine& engine) { return engine._ChechAndKovaSubDmaUp(); }
    static int32_t bring_up(Engine& engine, uint32_t config_crc) { return engine._KovaSubDmaUp(config_crc); }
    static int32_t config_crc(Engine& engine, uint32_t& config_crc) { return engine._GetConfigCrc(config_crc); }
    static int init_fpga(Engine& engine) { return engine._InitFpga(); }
    static int set_reg_ip_and_port(Engine& engine, uint32_t ip_reg, uint32_t port_reg,
                                   const CAddressType& ip_and_port, bool is_enabled) {
        return engine._SetRegIpAndPort(ip_reg, port_reg, ip_and_port, is_enabled);
    }
    static int start_dma_up(Engine& engine) { return engine._StartDmaUp(); }
    static int check_sys_version(Engine& engine) { return engine.Chk_SysVersion(); }

    // 5. Snapshot.
    static void clean_data(Engine& engine) { Engine::_Cleandata(engine); }
    static void mark_snapshot_dirty(Engine& engine) { engine._MarkSnapshotDirty(); }

    static void tcp_handler(const unsigned char* packet, unsigned int length, void* user_data) {
        Engine::_TcpHandler(packet, length, user_data);
    }
    static int init_tcp_session(tcp_session_t& session, int dst_port) {
        return Engine::_InitTcpSession(session, dst_port);
    }
    static int parse_mdqp(Engine& engine, const mdqp_t* message, unsigned short dst_port) {
        return Engine::_ParseMdqp(message, dst_port, engine);
    }
    static int protect_inst_no(EMDQPDataType feed, int inst_no) {
        return Engine::_ProtectInstNo(feed, inst_no);
    }
    static bool& is_snapshot_failed(Engine& engine) { return engine.m_isSnapshotFailed; }

    // 6. Instruments.
    static void write_contract_tables(Engine& engine) { engine._WriteContractTables(); }
    static int write_contract_table(Engine& engine, SInstTableType* table, bool is_enabled,
                                    uint32_t write_addr_reg, uint32_t write_data_reg, int inst_count,
                                    int inst_max_count) {
        return engine._WriteContractTable(table, is_enabled, write_addr_reg, write_data_reg, inst_count,
                                          inst_max_count);
    }
    static int subscribe_manager(Engine& engine, int channel_id) {
        return engine._ContractSubscribeManager(channel_id);
    }
    static int unsubscribe(Engine& engine, SInstTableType* table, uint32_t read_addr_reg,
                           uint32_t read_data_reg, uint32_t write_addr_reg, uint32_t write_data_reg,
                           int inst_count, int channel_id) {
        return engine._ContractUnsubscribe(table, read_addr_reg, read_data_reg, write_addr_reg, write_data_reg,
                                           inst_count, channel_id);
    }
    static int subscribe(Engine& engine, SInstTableType* table, bool is_enabled, uint32_t read_addr_reg,
                         uint32_t read_data_reg, uint32_t write_addr_reg, uint32_t write_data_reg,
                         int inst_index, int channel_id, CUstCharArray<32>& instrument) {
        return engine._ContractSubscribe(table, is_enabled, read_addr_reg, read_data_reg, write_addr_reg,
                                         write_data_reg, inst_index, channel_id, instrument);
    }
    static int write_static_info_file(Engine& engine) { return engine._InstStaticInfoWriteFile(); }
    static bool is_tas_inst(const std::string& inst_id) { return Engine::isShfeTasInst(inst_id); }

    // 7. Integrity.
    static int price_check(Engine& engine) { return Engine::ShfePriceCheck(engine); }
    static int inst_price_check(Engine& engine, SInstTableType* table, int inst_index) {
        return Engine::ShfeInstPriceCheck(table, inst_index, engine);
    }
    static bool check_event(Engine& engine, const U50Event& event) {
        return engine._CheckLostUdpPktHandler(event);
    }
    static bool is_timeout_lost(Engine& engine, const U50Event& event) { return engine._IsTimeoutLost(event); }

    // Members.
    static CUSTOptional<CKovaShfeMdSpi>& spi(Engine& engine) { return engine.m_kovaShfeMdSpiOptional; }
    static CConfigFileNameType& config_file_name(Engine& engine) { return engine.m_configFileName; }
    static CDrvDMAEnyx& dma(Engine& engine) { return engine.m_drvDMAEnyx; }
    static CDrvRegEnyx& registers(Engine& engine) { return engine.m_drvRegEnyx; }
    static CCrc32& crc32(Engine& engine) { return engine.m_crc32; }
    static CWriteShot& write_dma_shot(Engine& engine) { return engine.m_writeDmaShot; }
    static U50ConfigInfo& config(Engine& engine) { return engine.m_u50ConfigInfo; }
    static bool& is_tcp_init_finished(Engine& engine) { return engine.m_isTcpInitFinished; }
    static bool& is_hbm2_init_finished(Engine& engine) { return engine.m_isHBM2InitFinished; }
    static bool& is_all_init_finished(Engine& engine) { return engine.m_isAllInitFinished; }
    static U50InstCount& inst_count(Engine& engine) { return engine.m_u50InstCount; }
    static U50DstPort& dst_port(Engine& engine) { return engine.m_u50DstPort; }
    static UEnabledMask& finished_mask(Engine& engine) { return engine.m_finishedMask; }
    static int32_t& trading_day(Engine& engine) { return engine.m_tradingDay; }
    static U50UserData& user_data(Engine& engine) { return engine.m_u50UserData; }
    static int32_t& init_count(Engine& engine) { return engine.m_u50InitCnt; }
    static std::vector<std::string>& version_record(Engine& engine) { return engine.m_VerReocrd; }
    static std::set<std::string>& price_error_inst_ids(Engine& engine) { return engine.m_setPriceErrorInstId; }
    static bool& is_stop_flag(Engine& engine) { return engine.m_isStopflag; }
    static auto& snapshot_dirt(Engine& engine) { return engine.m_snapshotDirt; }
    static bool is_snapshot_dirty(const Engine& engine) { return !engine.m_snapshotDirt.IsEmpty(); }

    /** To be written through; marked as such, so ask again after the engine has cleaned up. */
    static U50InstTable& inst_table(Engine& engine) {
        engine._MarkSnapshotDirty();
        return engine.m_u50InstTable;
    }
    static tcp_session_t& session(Engine& engine, uint16_t port) {
        engine._MarkSnapshotDirty();
        return engine.m_sessions[port];
    }

    /** To be looked at only. */
    static const U50InstTable& peek_inst_table(const Engine& engine) { return engine.m_u50InstTable; }
    static const tcp_session_t& peek_session(const Engine& engine, uint16_t port) {
        return engine.m_sessions[port];
    }
};

#endif  // KOVA_TESTS_SUPPORT_ENGINE_ACCESS_H
