// The state of one scan run, owned by the run and handed down to the engine:
// flags, the top-level list, the line buffer, the counters, the time stamps
// and the lock. Nothing of it lives in globals.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "QzFileInfo.h"
#include "QzFileStats.h"
#include "QzFileWrite.h"
#include "QzLock.h"
#include "QzString.h"
#include "QzTopDirs.h"
#include "QzUiUtil.h"
#include "QzVolumeInfo.h"

struct QzScanState {
    static constexpr int32_t kBufferReserveBytes = 41943040;   // 40 MiB
    static constexpr int32_t kFlushThresholdBytes = 20971520;  // 20 MiB
    static constexpr int kMaxDepth = 1000;
    static constexpr int32_t kNormalDirsBetweenPauses = 100;
    static constexpr int32_t kFastDirsBetweenChecks = 500;
    static constexpr uint32_t kPauseMillis = 3000;
    static constexpr int64_t kBigFileAbove = 524287999;

    uint32_t pid = 0;
    bool urgent = false;  // a fast run: no pauses
    bool firstInstall = false;
    bool verbose = false;        // write-through mode: the buffering flag file exists
    bool elevatedDrive = false;  // an attached volume's alert level is raised
    QzVolumeInfo elevatedVolume;
    QzVolDefconRecord elevatedRecord;

    QzTopDirs topDirs;
    QzString buffer;  // list lines waiting to be appended to the current ".future" list
    QzFile::FutureFile bigFiles;
    int64_t maxSizeBytes = 0;  // "max_filesize_mb" in bytes

    int32_t dirCounter = 0;  // directories since the last pause or check
    int deepestDepth = 0;
    QzFileStats::Counters stats;  // files and bytes selected, by category
    QzFileStats::CategoryTable categories;
    QzFileStats::Identity identity;
    bool firstVolumeDone = false;

    int64_t processStartMillis = 0;
    int64_t scanStartMillis = 0;
    int64_t mainLoopStartMillis = 0;
    int64_t mainLoopEndMillis = 0;
    int64_t lastCheckpointMillis = 0;
    int64_t mountVerifications = 0;

    QzString stopPath;
    QzString lockPath;
    QzString topDirsPath, topDirsFuturePath, statsPath, statsFuturePath;

    // One listing per depth, reused for every directory at that depth.
    std::vector<std::unique_ptr<QzFileInfoList>> listsByDepth;
    QzString scratch;  // a log line or path being built

    QzFileInfoList* ListForDepth(int depth);
};

// The stop request: when the stop file exists, logs, deletes it and the lock
// file and ends the process with 0. The ".future" files stay.
void CheckStopFileAndExitIfPresent(const QzScanState& run);

// How far the stack has grown since the program started, in MiB.
long long StackUsedMb();
// Current memory figures in MiB: virtual, resident, hardware.
void MemoryMb(long long* virtualRet, long long* residentRet, long long* hardwareRet);
