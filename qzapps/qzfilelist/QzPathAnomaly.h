// Path anomaly filters: the fixed tests every entry of a walked directory
// passes before anything is written for it. They keep out paths that would
// corrupt the line-oriented file list and paths that lead into other backup
// programs' stores, snapshot trees and loops. Each test is a pure function of
// the path; the caller writes the log line a test hands back.
#pragma once

#include <cstdint>

#include "QzString.h"

namespace QzPathAnomaly {

// Platform code of the slash-separated platform; paths of this program use
// backslashes on every build, so the walk passes kBackslashPlatform.
constexpr int kBackslashPlatform = 1;
constexpr int kSlashPlatform = 2;

enum class EntryVerdict {
    Keep,            // nothing to say
    KeepRenamed,     // kept, the path was altered (backslashes on the slash platform)
    DropCrLf,        // carriage return or line feed: the path was altered, the entry dropped
    DropMacShared,   // "/Users/Shared/."
    DropDotSlashes,  // "././."
};

// Tests 1 to 3, on every entry in the first pass over a directory. `path` is
// altered in place where the test says so. A non-Keep verdict other than
// KeepRenamed gives a log line in *logRet. On the backslash platform a
// caller that knows the first `cleanPrefix` bytes hold no CR, LF or "/" (the
// listed directory's part, shared by all its entries) passes their number,
// and only the bytes after them are searched; the verdict is the same.
EntryVerdict CheckEntryPath(QzString* path, int platformCode, QzString* logRet, int32_t cleanPrefix = 0);
// The length of the part of `path` up to and including its last "\" or "/"
// when that part holds no CR, LF or "/" (else 0): the clean prefix of every
// entry listed with it.
int32_t CleanFolderPrefix(const QzString& path);
// Only the carriage-return and line-feed test (the single-directory writer).
EntryVerdict CheckEntryPathCrLfOnly(QzString* path, QzString* logRet);

enum class DirVerdict {
    Enter,
    DoubleSeparator,
    TrailingSeparator,
    TimeMachine,
    WesternDigitalBackup,
    MobileTimeMachine,
};

// Tests 4 to 8, on a directory entry before the walk enters it. A verdict
// other than Enter gives its log line in *logRet.
DirVerdict CheckDirectoryPath(const QzString& path, QzString* logRet);

// Test 9: the compatibility junctions of the shared program-data folder,
// which always refuse listing and are given up without a word.
bool IsSharedProgramDataJunction(const QzString& path);

// Test 10: a large file under a volume's "System Volume Information" folder
// stays off the large-file list.
bool IsLeftOutOfBigFileList(const QzString& path);

}  // namespace QzPathAnomaly
