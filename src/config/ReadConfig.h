/**
 * The configuration file's keys, in groups: each operation reads its own, missing ones with their defaults, or
 * writes its own to the log.
 */
#ifndef KOVA_CONFIG_READ_CONFIG_H
#define KOVA_CONFIG_READ_CONFIG_H

#include "config/U50ConfigInfo.h"
#include "util/IniReader.h"

/** What the process of every channel needs: log, core, device. */
void ReadProcessKeys(const CIniReader& refIni, U50ConfigInfo& refConfig);
void LogProcessKeys(const U50ConfigInfo& refConfig);

/** Which feeds are on, and where each comes from. */
void ReadFeedKeys(const CIniReader& refIni, U50ConfigInfo& refConfig);
void LogFeedKeys(const U50ConfigInfo& refConfig);

/** The card's own addresses and identity. */
void ReadNetworkKeys(const CIniReader& refIni, U50ConfigInfo& refConfig);
void LogNetworkKeys(const U50ConfigInfo& refConfig);

/** Switches of the bring-up and of what is checked. */
void ReadSwitchKeys(const CIniReader& refIni, U50ConfigInfo& refConfig);
void LogSwitchKeys(const U50ConfigInfo& refConfig);

/** Fault injection; its log lines come only with debug_flag, which ReadSwitchKeys reads. */
void ReadFaultKeys(const CIniReader& refIni, U50ConfigInfo& refConfig);
void LogFaultKeys(const U50ConfigInfo& refConfig);

/** What each of the channels receives. */
void ReadChannelKeys(const CIniReader& refIni, U50ConfigInfo& refConfig);

/** How long a snapshot may take. */
void ReadSnapshotKeys(const CIniReader& refIni, U50ConfigInfo& refConfig);
void LogSnapshotKeys(const U50ConfigInfo& refConfig);

#endif  // KOVA_CONFIG_READ_CONFIG_H
