// A scratch directory in Windows form for tests that touch real files, on
// both builds. On POSIX the drive letters C: and T: are mapped into a fresh
// temporary directory through QZ_DRIVES before anything else runs; on Windows
// the scratch directory lies under %TEMP% and C: is the machine's own.
#pragma once

#include <string>

#include "QzString.h"

namespace QzTest {

// "T:\" on POSIX, "<TEMP>\qzunit-<pid>\" on Windows; always ends in "\".
const QzString& ScratchDir();
// A new empty directory below the scratch directory, ending in "\".
QzString NewScratchSubdir(const char* name);
// The host path for a Windows-form path (for std::filesystem in tests).
std::string HostPath(const QzString& winPath);
// Writes a file whole (creating parent directories); true on success.
bool WriteFile(const QzString& winPath, const std::string& content);
// Reads a file whole; empty when missing.
std::string ReadFile(const QzString& winPath);
// Opens the log in a new scratch folder; QzLog::Close() ends it.
void OpenScratchLog(const char* name);
// Every day file of the open log, in day order.
std::string LogText();
// Whether any line of the log holds the text.
inline bool Logged(const std::string& text) {
    return LogText().find(text) != std::string::npos;
}

}  // namespace QzTest
