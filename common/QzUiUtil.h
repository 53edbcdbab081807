// QzUiUtil: helpers shared with the client's user interface and installer.
#pragma once

#include "QzString.h"

namespace QzUiUtil {

// Reads this machine's host identifier from the installer's descriptor.
// Unlike QzFile::GetMyHostGuid it has no fallback: it fails when the file or
// the attribute is missing, and says which in the log.
bool Installer_GetThisMachinesHguid(QzString* hguidRet);

}  // namespace QzUiUtil
