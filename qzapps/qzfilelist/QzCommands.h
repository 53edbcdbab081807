// Command handlers of the switch table, grouped by file. Each takes the
// whole argument list (argv[0] first) and returns the process exit code.
#pragma once

#include <vector>

#include "QzString.h"

using Args = std::vector<QzString>;

// File diagnostics.
int CmdDirList(const Args& args);
int CmdDirListDetail(const Args& args);
int CmdFileInfo(const Args& args);
int CmdDiagnoseReadProblem(const Args& args);
int CmdOpenFileExclusive(const Args& args);
int CmdDllInfo(const Args& args);
int CmdCopyRsrcFork(const Args& args);
int CmdGrep(const Args& args);

// Exclusion rules.
int CmdMergeExcludeRules(const Args& args);

// Volumes: identity, registry, alert levels.
int CmdVolumeInfo(const Args& args);
int CmdGetVolumeInfoFromFileName(const Args& args);
int CmdCloneQzVolToDataDir(const Args& args);
int CmdAssignVolumeGuid(const Args& args);
int CmdUpdateQzVolumesXml(const Args& args);
int CmdUpdateQzDefconXml(const Args& args);
int CmdPingDrives(const Args& args);
int CmdQueryAttachedVolumes(const Args& args);
int CmdListVolumes(const Args& args);
int CmdListVolumesToFile(const Args& args);
int CmdListVolumesDetail(const Args& args);

// Installer support.
int CmdAttemptRunQzTransmit64(const Args& args);
int CmdLogInstallEvent(const Args& args);
int CmdRetentionInfo(const Args& args);
int CmdFixPermissions(const Args& args);
int CmdCheckCodeSignature(const Args& args);

// Why a file is or is not backed up.
int CmdExplainFile(const Args& args);
