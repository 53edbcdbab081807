// Reports the scan run writes beside the lists for other parts of the client,
// and the rollback history it reads back. Each report is written whole under
// "qzreports" in the data directory through a temporary name.
#pragma once

#include "QzString.h"

namespace QzReports {

// Installed programs from the registry's uninstall keys (both views).
bool WriteInstalledProgramsReport();
// May the service account (named in "qzserv_runs_as.txt") read each selected
// volume's root and the data directory? pathRet gets the report's path.
bool WriteServicePermissionReport(QzString* pathRet = nullptr);

}  // namespace QzReports

namespace QzUiUtil {
// The most recent finalised rollback history text, from the file the control
// panel writes into the data directory; false when there is none to read.
bool QzRollback_GetMostCurrentFinalizedHistoryUxeString(QzString* textRet);
}  // namespace QzUiUtil
