// The main loop of a scan run: every entry of the top-level list in order,
// each walked into its volume's ".future" list, with the checkpoint, the
// lock's heartbeat, the stop check, the pause of a normal run and the early
// swap of an elevated volume's list after each entry.
#include "QzFile.h"
#include "QzFileListWriter.h"
#include "QzFileWrite.h"
#include "QzLock.h"
#include "QzLog.h"
#include "QzScanRun.h"
#include "QzTime.h"
#include "QzTopDirs.h"
#include "QzUiUtil.h"
#include "qzfilelist.h"

namespace QzScanRun {

namespace {

constexpr int64_t kCheckpointMillis = 5000;

bool WantsProgressLine(int32_t i, bool firstYet, bool volumeChanged) {
    if (!firstYet || volumeChanged || i < 10) return true;
    if (i < 100) return i % 10 == 0;
    if (i < 500) return i % 50 == 0;
    return i % 100 == 0;
}

void Checkpoint(QzScanState& run) {
    const int64_t now = QzTime::GetCurrentGmtMillis();
    if (now - run.lastCheckpointMillis <= kCheckpointMillis) return;
    if (!QzTopDirsFile::WriteTopDirsXmlFile(run.topDirs, run.topDirsFuturePath))
        QzLog::WriteLine(
            QzCat("ERROR: processId=", run.pid, ", problem writing out topdirs.xml.future third"));
    WriteStatsCheckpoint(run);
    run.lastCheckpointMillis = now;
}

// When the entry just walked was the last of the elevated volume, its list
// is swapped in now instead of at the end of the run.
void ElevatedDriveEarlySwap(QzScanState& run, int32_t i, QzFile::FutureFile& list) {
    if (!run.elevatedDrive || run.elevatedRecord.lastFileListedInDays < 7) return;
    const QzTopDirs& t = run.topDirs;
    if (i > t.Count() - 2) {
        LogVerbose(run, ", skippingOptimization because we are so close to end anyway");
        return;
    }
    const QzString& cur = t.dirToIndex[i];
    const QzString& next = t.dirToIndex[i + 1];
    if (cur.IsEmpty()) {
        LogVerbose(run, ", skippingOptimization because cur_dirToIndexStr->Length() is zero");
        return;
    }
    if (next.IsEmpty()) {
        LogVerbose(run, ", skippingOptimization because next_dirToIndexStr->Length() is zero");
        return;
    }
    const QzString curDir(cur.c_str() + 1);
    QzString curMount, nextMount;
    if (!QzTopDirsFile::ExtractVolumePath(curDir, &curMount)) {
        QzLog::WriteLine(QzCat("ERROR: qzfilelist could not pull out mount point from: ", curDir));
        return;
    }
    if (!curMount.EqualsIgnoreCase(run.elevatedVolume.mountPoint.c_str())) {
        LogVerbose(
            run,
            QzCat(", skippingOptimization because this is NOT the most interesting DEFCON mounted drive, "
                  "mostInteresting=",
                  run.elevatedVolume.mountPoint, ", cur_TopLevelMountPoint=", curMount));
        return;
    }
    const QzString& curVguid = t.vGuidToIndex[i];
    if (!curVguid.Equals(run.elevatedVolume.volumeGuid)) {
        LogVerbose(run, QzCat(", skippingOptimization because while a close_call, the vguids did not match, "
                              "mostInterestingVguid=",
                              run.elevatedVolume.volumeGuid, ", cur_vGuidToIndexStr=", curVguid));
        return;
    }
    const QzString nextDir(next.c_str() + 1);
    if (QzTopDirsFile::ExtractVolumePath(nextDir, &nextMount) && nextMount.EqualsIgnoreCase(curMount.c_str()))
        return;

    QzLog::WriteLine(QzCat("OPTIMIZATION_for_DEFCON processId=", run.pid,
                           " - qzfilelist swapping in .future filelist of qzVol_lastFileListedInDays=",
                           run.elevatedRecord.lastFileListedInDays, ", fromMount = ", curDir,
                           ", with vGuid=", curVguid));
    QzString listName;
    QzUiUtil::GetPerVolumeFileListName(curVguid, curMount, &listName);
    list.Close();
    const QzString future = QzCat(listName, ".future");
    if (!QzFile::FileExists(future.c_str())) {
        QzLog::WriteLine(
            QzCat("ERROR: OPTIMIZATION_for_DEFCON future file did not exist, fileName=", future));
        return;
    }
    SwapInPerVolumeList(listName, curMount, curVguid, kDefconSwapTexts);
}

}  // namespace

void MainLoop(QzScanState& run) {
    QzTopDirs& t = run.topDirs;
    QzString previousVolume("will_not_match");
    bool progressYet = false;
    QzFile::FutureFile list;
    run.mainLoopStartMillis = QzTime::GetCurrentGmtMillis();
    run.lastCheckpointMillis = run.mainLoopStartMillis;

    for (int32_t i = t.startAtDir; i < t.Count(); ++i) {
        LogVerbose(run, QzCat(" entering into top_of_loop index=", i));
        if (i < 0) {
            QzLog::WriteLine(QzCat("WARNING: qzfilelist processId=", run.pid,
                                   " index dirToStartAt is less than zero, skipping: ", i));
            continue;
        }
        if (t.dirToIndex[i].IsEmpty() || t.vGuidToIndex[i].IsEmpty()) {
            t.startAtDir = i + 1;
            LogVerbose(run, QzCat(" zero length dirToIndex at index: ", i));
            continue;
        }
        // Copies: a failed listing may correct the list while the entry is walked.
        const char flag = t.dirToIndex[i][0];
        const QzString dir(t.dirToIndex[i].c_str() + 1);
        const QzString vguid = t.vGuidToIndex[i];
        QzString volume;
        if (!QzTopDirsFile::ExtractVolumePath(dir, &volume)) {
            Log(run, QzCat(" could not pull out volume path from dirToIndex=", dir));
            volume = "certainly_will_not_match";
        }
        QzString listName;
        QzUiUtil::GetPerVolumeFileListName(vguid, volume, &listName);
        if (!list.FinalPath().Equals(listName)) {
            list.SetFinalPath(listName);
            list.SetWriteThrough(run.verbose);
        }

        const bool progress = WantsProgressLine(i, progressYet, !volume.Equals(previousVolume));
        if (progress) {
            QzLog::WriteLine(QzCat("PeriodicLog, processId=", run.pid, ", i=", i, ", firstCharFlag=", flag,
                                   ", numMBytesStackUsedUp=", StackUsedMb(), ", about_to_scanDir=", dir,
                                   ", futureFilename=", list.FuturePath(), ", currentVolumePath=", volume,
                                   ", previousVolumePath=", previousVolume));
            previousVolume = volume;
            progressYet = true;
        }
        if (!list.FutureExists() && !list.Create(ListHeaderLine(QzTime::GetCurrentGmtMillis())))
            QzLog::WriteLine(QzCat("ERROR: could not create file list: ", list.FuturePath()));

        const int64_t started = QzTime::GetCurrentGmtMillis();
        if (flag == QzTopDirs::kRootFlag || flag == QzTopDirs::kFilesOnlyFlag) {
            LogVerbose(run, QzCat(" about to call AddFilenamesFromThisDirToList, index=", i, ", dir=", dir));
            QzFileListWriter::AddFilenamesFromThisDirToList(run, list, dir);
            ++run.dirCounter;
            LogVerbose(run, QzCat(" back from AddFilenamesFromThisDirToList, index=", i, ", dir=", dir));
        } else {
            if (run.verbose) {
                long long virt, res, hw;
                MemoryMb(&virt, &res, &hw);
                Log(run, QzCat(" about to call RecursivelyAddFilenamesToList, index=", i, ", dir=", dir,
                               ", numMBytesCurrentVirtualMemSize=", virt,
                               ", numMBytesCurrentResidentMemSize=", res,
                               ", numMBytesCurrentHardwareRamMemSize=", hw));
            }
            QzFileListWriter::RecursivelyAddFilenamesToList(run, list, dir,
                                                            QzFileListWriter::DepthOfPath(dir));
            LogVerbose(run, QzCat(" back from RecursivelyAddFilenamesToList, index=", i, ", dir=", dir));
        }
        QzFileListWriter::FlushBuffer(run, list);

        const int64_t elapsed = QzTime::GetCurrentGmtMillis() - started;
        t.millisToProduce += elapsed;
        const long long seconds = i < QzTopDirs::kMaxTimedEntries ? (elapsed + 500) / 1000 : -1;
        if (i < QzTopDirs::kMaxTimedEntries && i < static_cast<int32_t>(t.secondsToScanEachDir.size()))
            t.secondsToScanEachDir[i] = static_cast<int32_t>(seconds);
        if (progress)
            QzLog::WriteLine(QzCat("PeriodicLog, processId=", run.pid, ", i=", i,
                                   ", numMBytesStackUsedUp=", StackUsedMb(), ", just_after_scanDir_of=", dir,
                                   ", numSecondsThisScanTook=", seconds));
        t.startAtDir = i + 1;
        if (!run.firstVolumeDone && (i + 1 >= t.Count() || !t.vGuidToIndex[i + 1].Equals(vguid)))
            run.firstVolumeDone = true;

        Checkpoint(run);
        QzLock::RefreshGlobalThreeHourLock_ExitIfFail();
        CheckStopFileAndExitIfPresent(run);
        if (!run.urgent && run.dirCounter > QzScanState::kNormalDirsBetweenPauses) {
            QzTime::SleepMillis(QzScanState::kPauseMillis);
            run.dirCounter = 0;
        }
        CheckStopFileAndExitIfPresent(run);
        ElevatedDriveEarlySwap(run, i, list);
        LogVerbose(
            run, QzCat(" finished with loop index=", i, ", about to loop to top and start next iteration."));
    }
    list.Close();
    run.bigFiles.Close();
    run.mainLoopEndMillis = QzTime::GetCurrentGmtMillis();
}

}  // namespace QzScanRun
