// The program's log: a ring of one file per day of the month under
// <data dir>\qzlogs\qzfilelist\qzfilelistDD.log. Every line is appended with a
// single write of its own, so several processes can share a day file and a
// crash loses nothing already written.
#pragma once

#include <cstdint>

#include "QzString.h"

namespace QzLog {

// Replaces any previous log state. When the base lies inside the data
// directory and that directory does not exist, logging stays off; otherwise
// the base folder is created when missing. `dataDir` may be null.
void Open(const char* basePath, const char* dataDir);
void Close();
bool IsOpen();

// Appends one line to the current day file; nothing happens before Open or
// for an empty message.
void WriteLine(const char* message);
void WriteLine(const QzString& message);

// Writes "file:line [function] LEVEL:\tmessage" (level -3 ERROR, -2 WARNING,
// -1 NOTE; other levels omit the level word). Use QZ_LOG_LOCATED_AS below.
void WriteLocated(int level, const char* sourceFile, int line, const char* functionSignature,
                  const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 5, 6)))
#endif
    ;

// The day file for a day of the month (1-31) under the current base.
QzString DayFilePath(int dayOfMonth);

}  // namespace QzLog

// A located message names its function by the signature written at the call,
// in the spelling the Windows compiler gives it ("int __cdecl main(int,char
// *[])"), so the line reads the same from every build and compiler.
#define QZ_LOG_LOCATED_AS(level, functionSignature, ...) \
    QzLog::WriteLocated((level), __FILE__, __LINE__, (functionSignature), __VA_ARGS__)
