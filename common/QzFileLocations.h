// Where the client is installed, where its data lives, and which machine this
// is. Each is computed once per process.
#pragma once

#include "QzString.h"

namespace QzFile {

constexpr const char* kUnknownHostGuid = "999999999999999999999999";
const QzString& GetWindowsDir();       // ends in "\"
const QzString& GetProgramFilesDir();  // no trailing "\"
const QzString& GetInstallDir();       // ends in "\"
QzString GetInstallDescriptorPath();   // the installer's "qzinstall.xml" in the install directory
const QzString& GetDataDir();          // ends in "\"
const QzString& GetMyHostGuid();       // 24 characters; 24 nines when unknown
// Forgets the cached locations (tests only).
void ResetLocationCachesForTesting();

}  // namespace QzFile
