// Process-wide state of qzfilelist and the entry points of its commands.
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"
#include "QzVersion.h"

constexpr const char* kQzFileListVersion = kQzProgramVersion;

// Set once at start-up, read by the scan run and the list writers.
extern bool g_bufferingIsDisabled;  // doubles as the verbose switch
extern bool g_isProc64;
extern bool g_urgentRun;
extern bool g_firstInstallTime;
// The arguments (argv[0] included), as UTF-8, for the life of the process.
extern std::vector<QzString> g_args;
// The stack position when main began (the scan logs how far it has grown).
extern uintptr_t g_stackBaseAtStart;

// Flushes standard output, shuts sockets down and ends the process.
[[noreturn]] void ExitQzFileList(int code);

// Runs the command named by the first argument; returns only when the
// arguments ask for a scan run (none, or one of the two urgent switches).
void DispatchCommandLine();

// One scan run over every volume selected for backup; never returns.
[[noreturn]] void RunScanAndExit();

// Wakes every volume selected for backup by writing small files into its
// marker folder, and logs a drive report before and after.
void PingDrivesThatAreSelectedForBackup();
