// QzLock: a lock between processes made of nothing but a file. The lock file
// is empty; its existence means "held" and its last-modification time is the
// holder's heartbeat. A holder proves the lock is still its own by
// remembering the modification time it last gave the file; a waiter may
// break a lock whose heartbeat is older than the lock's stale time, judged by
// the file system's own clock, never by this machine's.
#pragma once

#include <cstdint>
#include <memory>

#include "QzString.h"

namespace QzLock {

struct FileBasedLock {
    QzString path;
    int64_t staleMillis = 0;
    int64_t fileModTime = 0;  // GMT millis the file had when this holder last set it
    int64_t lastRefresh = 0;  // GMT millis of the last successful grab or refresh
};

// Creates the lock file exclusively, retrying with a doubling back-off for up
// to waitSeconds; then breaks a stale lock once. Null when a live holder has it.
std::unique_ptr<FileBasedLock> GrabFileBasedLock(const QzString& path, int64_t staleSeconds, int waitSeconds);

// The heartbeat: true when the lock is still this holder's and its file has
// been touched (or was touched within the last 15 seconds).
bool RefreshFileBasedLock(FileBasedLock* lock);

// Deletes the lock file when it is still this holder's; otherwise logs and
// leaves it alone.
void ReleaseFileBasedLock(FileBasedLock* lock);

// The file system's idea of "now": the modification time of a probe file
// created beside the lock and deleted at once.
int64_t FileSystemNowMillis(const QzString& lockPath);

// ---- the scan run's three-hour lock ----
// The run's global lock (null until grabbed) and the time of its last refresh.
FileBasedLock* GlobalThreeHourLock();
void SetGlobalThreeHourLock(std::unique_ptr<FileBasedLock> lock);
// The run's heartbeat: at most every 5 minutes refreshes the global lock; when
// it was lost, grabs it again with a one-hour stale time, or logs and exits
// the process with 1. `startDirIn` only names the directory in its log lines.
void RefreshGlobalThreeHourLock_ExitIfFail(const QzString& startDirIn);
// The same rule as the run's main loop applies it between top-level entries
// (its lines name no directory).
void RefreshGlobalThreeHourLock_ExitIfFail();

}  // namespace QzLock
