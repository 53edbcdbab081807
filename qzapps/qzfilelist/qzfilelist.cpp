// The program's state shared by the start-up, the commands and the scan, the
// way out of the process, and the scan run: one walk of every volume
// selected for backup, in three phases (QzScanRun.h) over one state the run
// owns (QzScanState.h).
#include "qzfilelist.h"

#include <cstdio>
#include <cstdlib>

#include "QzOs.h"
#include "QzScanRun.h"
#include "QzSystem.h"
#include "QzTime.h"

bool g_bufferingIsDisabled = false;
bool g_isProc64 = false;
bool g_urgentRun = false;
bool g_firstInstallTime = false;
std::vector<QzString> g_args;
uintptr_t g_stackBaseAtStart = 0;

void ExitQzFileList(int code) {
    std::fflush(stdout);
    std::fflush(stderr);
    QzOs::SocketShutdown();
    std::exit(code);
}

void RunScanAndExit() {
    QzScanState run;
    run.pid = QzSystem::GetProcessId();
    run.urgent = g_urgentRun;
    run.firstInstall = g_firstInstallTime;
    run.verbose = g_bufferingIsDisabled;
    run.processStartMillis = QzTime::GetCurrentGmtMillis();
    QzScanRun::Prepare(run);
    QzScanRun::MainLoop(run);
    QzScanRun::Finish(run);
}
