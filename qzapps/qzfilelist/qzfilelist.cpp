// The scan run: one walk of every volume selected for backup, in three
// phases (QzScanRun.h) over one state the run owns (QzScanState.h).
#include "qzfilelist.h"

#include "QzScanRun.h"
#include "QzSystem.h"
#include "QzTime.h"

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
