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
