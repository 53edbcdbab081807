// The scan run. Its engine arrives with the directory walk and the volume
// registry; until then a scan request is logged and refused without harm.
#include <cstdio>

#include "qzfilelist.h"
#include "QzLog.h"
#include "QzSystem.h"

void RunScanAndExit() {
    const QzString msg = QzCat("qzfilelist processId=", QzSystem::GetProcessId(),
                               " - the scan run is not available in this build, exiting",
                               g_urgentRun ? " (urgent run requested)" : "",
                               g_firstInstallTime ? " (first install time)" : "");
    QzLog::WriteLine(msg);
    std::fprintf(stderr, "%s\n", msg.c_str());
    ExitQzFileList(0);
}
