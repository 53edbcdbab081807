// The finishing steps of a scan run: swap every finished list in, write the
// last checkpoint and statistics, clean up, age out unplugged drives, make
// stubs for missing lists, release the lock and exit.
#include <cstdlib>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzFileListing.h"
#include "QzFileWrite.h"
#include "QzInfoManager.h"
#include "QzLock.h"
#include "QzLog.h"
#include "QzReports.h"
#include "QzScanRun.h"
#include "QzTime.h"
#include "QzTopDirs.h"
#include "QzUiUtil.h"
#include "qzfilelist.h"

namespace QzScanRun {

namespace {

using QzFile::DataFile;
using QzFile::DataPath;

constexpr const char* kNoRollbackHistory = "error_uxe_qzfilelist";

void SwapInAllLists(QzScanState& run) {
    const QzTopDirs& t = run.topDirs;
    for (int32_t i = 0; i < t.Count(); ++i) {
        if (t.dirToIndex[i].IsEmpty() || t.vGuidToIndex[i].IsEmpty()) {
            LogVerbose(run, QzCat(" cutting_out_1, loopWithIndex=", i));
            continue;
        }
        const QzString dir(t.dirToIndex[i].c_str() + 1);
        QzString volume, listName;
        if (!QzTopDirsFile::ExtractVolumePath(dir, &volume)) continue;
        QzUiUtil::GetPerVolumeFileListName(t.vGuidToIndex[i], volume, &listName);
        const QzString future = QzCat(listName, ".future");
        if (!QzFile::FileExists(future.c_str())) continue;
        LogVerbose(run, QzCat(" swapping in future file because it exists, loopWithIndex=", i,
                              ", futureFileName=", future));
        SwapInPerVolumeList(listName, volume, t.vGuidToIndex[i], kFinishSwapTexts);
    }
}

void SwapInBigFileList() {
    const QzString future = DataPath(DataFile::BigFileListFuture);
    const QzString target = DataPath(DataFile::BigFileList);
    if (!QzFile::FileExists(future.c_str())) {
        QzLog::WriteLine(QzCat("WARNING: future bigfile does not exist so no swap: ", future));
        return;
    }
    QzFile::MoveWithRetry(future.c_str(), target.c_str(), 12, 500, [&](int failures) {
        if (failures >= 10)
            QzLog::WriteLine(
                QzCat("ERROR: failures AtomicMove C2 future bigfiles from: ", future, ", to: ", target));
    });
}

void DeleteFutureFiles() {
    const QzString folder = DataPath(DataFile::FileListsFolder);
    QzFileInfoList files;
    if (!QzFile::GetListOfFileInfosInDir(&folder, &files)) return;
    for (int32_t i = 0; i < files.Count(); ++i) {
        const QzFileInfo& f = *files.At(i);
        if (!f.isDirectory && (f.fullPath.EndsWith(".future") || f.fullPath.EndsWith(".future_aside")))
            QzFile::DeleteFileIfExists(f.fullPath.c_str());
    }
}

// Lists of volumes no longer selected for backup are deleted.
void DeleteListsOfUnselectedVolumes() {
    QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile();
    const std::vector<QzSettings::SelectedVolume>& selected = QzInfoManager::Settings().selectedVolumes;
    if (selected.empty()) {
        QzLog::WriteLine("ERROR: found no vol selected for backup in per-vol-guid cleanup");
        return;
    }
    const QzString folder = DataPath(DataFile::FileListsFolder);
    QzFileInfoList files;
    if (!QzFile::GetListOfFileInfosInDir(&folder, &files)) return;
    for (int32_t i = 0; i < files.Count(); ++i) {
        const QzFileInfo& f = *files.At(i);
        const QzString name(f.Name());
        if (f.isDirectory || !name.EndsWith("_filelist.dat") || name.Length() != 46 || name[0] != 'v')
            continue;
        const QzString vguid(name.c_str(), 28);
        bool isSelected = false;
        for (const QzSettings::SelectedVolume& v : selected)
            if (v.volumeGuid.Equals(vguid)) isSelected = true;
        if (isSelected) continue;
        QzLog::WriteLine(QzCat("Found per-vol-guid filelist not selected ", "for backup, deleting: ", name));
        QzFile::DeleteFileIfExists(f.fullPath.c_str());
    }
}

// Writes a stub list through list + ".tmp"; the texts are the caller's.
bool WriteStub(const QzString& listName, const QzString& text, const char* writeError, const char* swapError,
               int attempts, uint32_t pauseMillis, int logFrom) {
    const QzString tmp = QzCat(listName, ".tmp");
    if (!QzFile::WriteEntireFile(tmp.c_str(), text.c_str(), text.Length())) {
        QzLog::WriteLine(QzCat(writeError, tmp));
        QzFile::DeleteFileIfExists(tmp.c_str());
        return false;
    }
    const bool moved =
        QzFile::MoveWithRetry(tmp.c_str(), listName.c_str(), attempts, pauseMillis, [&](int failures) {
            if (failures >= logFrom) QzLog::WriteLine(swapError);
        });
    if (!moved) QzFile::DeleteFileIfExists(tmp.c_str());
    return moved;
}

void AgeOutUnpluggedDrives(const QzScanState& run, bool oneYear, bool testPath, const QzString& history) {
    (void)run;
    std::vector<QzVolumesXmlEntry> entries;
    int64_t lastShortId = 0;
    if (!QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&entries, &lastShortId)) {
        QzLog::WriteLine("ERROR: QzUiUtil::QzVolumesXml_ReadQzVolumesXml failed 30 day ageout");
        return;
    }
    const std::vector<QzSettings::SelectedVolume>& selected = QzInfoManager::Settings().selectedVolumes;
    const int64_t now = QzTime::GetCurrentGmtMillis();
    for (const QzVolumesXmlEntry& e : entries) {
        const QzSettings::SelectedVolume* sel = nullptr;
        for (const QzSettings::SelectedVolume& v : selected)
            if (v.volumeGuid.Equals(e.volumeGuid)) sel = &v;
        if (!sel) continue;
        const int64_t diff = now - e.lastSeenAttachedGmtMillis;
        const long long days = static_cast<long long>((diff < 0 ? -diff : diff) / QzTime::kMillisPerDay);
        if (days > 20)
            QzLog::WriteLine(QzCat("WARNING: it has been ", days, " days since drive has been seen, mountP=",
                                   e.mountPoint, " with vGuid=", e.volumeGuid));
        QzString warning, stubText;
        if (oneYear && days >= 91 && days <= 499) {
            warning = QzCat("WARNING: customer is paying for one year or more rollback, ",
                            "and it has been more than 90 days since we saw mountP=", e.mountPoint);
            stubText = "# Stub becaused drive has not been seen in 90 days one year rollback customer";
        } else if (!oneYear && days >= 31 && days <= 499) {
            warning = QzCat("WARNING: it has been more than 30 days since we saw mountP=", e.mountPoint);
            stubText = "# Stub becaused drive has not been seen in 30 days";
        } else if (testPath && days >= 3 && days <= 499) {
            warning = QzCat("WARNING: SPECIAL_TEST_PATH - it has been more than 2 days since we saw mountP=",
                            e.mountPoint);
            stubText = "# Stub becaused drive has not been seen in 2 days SPECIAL_TEST_PATH";
        } else {
            continue;
        }
        QzLog::WriteLine(QzCat(warning, " so we have decided to generate the stub."));
        QzLog::WriteLine(QzCat("WARNING: AGING_FILES_OUT because it has been ", days,
                               " days since drive has been seen, mountP=", e.mountPoint,
                               " with vGuid=", e.volumeGuid, ", and lastRollbackHistoryEvent=", history));
        QzString listName;
        QzUiUtil::GetPerVolumeFileListName(e.volumeGuid, sel->mountPointPath, &listName);
        const QzString text = QzCat(ListHeaderLine(now), stubText, "\n");
        const QzString tmp = QzCat(listName, ".tmp");
        if (!QzFile::WriteEntireFile(tmp.c_str(), text.c_str(), text.Length())) {
            QzLog::WriteLine(QzCat("ERROR: AGING_FILES_OUT failed write out to: ", tmp));
            QzFile::DeleteFileIfExists(tmp.c_str());
            continue;
        }
        if (!QzFile::AtomicMoveFile(tmp.c_str(), listName.c_str())) {
            QzLog::WriteLine("ERROR: AGING_FILES_OUT failed swap");
            QzFile::DeleteFileIfExists(tmp.c_str());
        }
    }
}

void StubMissingLists() {
    const std::vector<QzSettings::SelectedVolume> selected = QzInfoManager::Settings().selectedVolumes;
    for (const QzSettings::SelectedVolume& v : selected) {
        QzString listName;
        QzUiUtil::GetPerVolumeFileListName(v.volumeGuid, v.mountPointPath, &listName);
        if (QzFile::FileExists(listName.c_str())) continue;
        QzLog::WriteLine(QzCat("ERROR: a drive that was selected for backup no per-vol-guid",
                               "filelist.dat file existed, creating stub for: ", v.mountPointPath,
                               " with vGuid=", v.volumeGuid));
        QzTime::SleepMillis(5000);
        if (QzFile::FileExists(listName.c_str())) {
            QzLog::WriteLine("ERROR: it came back?");
            continue;
        }
        QzString text("# GmtMillisThisListWasStarted: ");
        QzTime::AppendGmtMillisAsHex16(text, QzTime::GetCurrentGmtMillis());
        text.Append("\n# Stub becaused file should have existed!\n");
        WriteStub(listName, text, "ERROR: Could not create stub failed write out to: ",
                  "ERROR: Could not create stub failed swap", 12, 500, 11);
    }
}

void RecordMountVerifications(const QzScanState& run) {
    const QzString path = DataPath(DataFile::MaxVerifyMounts);
    const long long count = static_cast<long long>(run.topDirs.timesMountPointsVerified);
    QzString text, err;
    if (QzFile::FileExists(path.c_str())) {
        if (!QzFile::ReadEntireFile(path.c_str(), &text, &err)) return;  // held: leave it as it is
        char* end = nullptr;
        const long long before = std::strtoll(text.c_str(), &end, 10);
        if (end != text.c_str() && before >= count) return;
    }
    QzFile::CreateDirectoryRecursive(DataPath(DataFile::ReportsFolder).c_str());
    QzFile::WriteFileAtomically(path, QzCat(count));
}

void WriteFirstScanTime(const QzScanState& run) {
    const long long seconds = (run.mainLoopEndMillis - run.mainLoopStartMillis) / 1000;
    const QzString text = QzCat("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n", "<firsttimestats>\n",
                                "<stat install_fscan_numsecs=\"", seconds, "\" />\n", "</firsttimestats>\n");
    QzFile::WriteFileAtomically(DataPath(DataFile::FirstScanTime), text);
}

}  // namespace

void Finish(QzScanState& run) {
    QzTopDirs& t = run.topDirs;
    // 1-2.
    Log(run,
        QzCat(", just_after_main_disk analysis, startAtDir=", t.startAtDir, ", length=", t.Count(),
              run.urgent ? ", URGENTLY_RUNNING_FAST, about to rename the .future files into primary lists."
                         : ""));
    const QzString complete = DataPath(DataFile::CompleteFileList);
    const QzString completeFuture = DataPath(DataFile::CompleteFileListFuture);
    QzFile::AtomicMoveFile(completeFuture.c_str(), complete.c_str());
    QzFile::DeleteFileIfExists(complete.c_str());
    QzFile::DeleteFileIfExists(completeFuture.c_str());

    // 3-5: the lists, the large-file list and the top-level list.
    SwapInAllLists(run);
    SwapInBigFileList();
    t.startAtDir = 0;
    if (!QzTopDirsFile::WriteTopDirsXmlFile(t, run.topDirsFuturePath))
        QzLog::WriteLine("ERROR: problem writing out topdirs.xml.future second");
    else
        QzFile::MoveWithRetry(run.topDirsFuturePath.c_str(), run.topDirsPath.c_str(), 10, 500);

    // 6-7.
    QzFileStats::WriteFileStatsOut(run.statsPath, run.stats, run.identity, true, true);
    QzFile::DeleteFileIfExists(run.statsFuturePath.c_str());
    Log(run, " about to clean up all the .future files");
    DeleteFutureFiles();

    // 8-11: unselected volumes, retention, ageing out, missing lists.
    DeleteListsOfUnselectedVolumes();
    QzString history;
    if (!QzUiUtil::QzRollback_GetMostCurrentFinalizedHistoryUxeString(&history)) {
        QzLog::WriteLine("ERROR: QzUiUtil::QzRollback_GetMostCurrentFinalizedHistoryUxeString failed.");
        history = kNoRollbackHistory;
    }
    bool testPath = false, oneYear = false;
    if (history.Contains("_rb002")) {
        testPath = true;
        QzLog::WriteLine("SPECIAL_TEST_PATH - _rb002 - customers need to plug external drives in every day.");
    }
    if (history.Contains("_rb365d")) {
        oneYear = true;
        QzLog::WriteLine(QzCat("qzfilelist (processId=", run.pid,
                               ") customer has _rb365d so different external drive unplug policy."));
    } else if (history.Contains("_rb365z")) {
        oneYear = true;
        QzLog::WriteLine(QzCat("qzfilelist processId=", run.pid,
                               ") customer has _rb365z so different external drive unplug policy."));
    }
    AgeOutUnpluggedDrives(run, oneYear, testPath, history);
    StubMissingLists();

    // 12-14.
    RecordMountVerifications(run);
    if (run.firstInstall) WriteFirstScanTime(run);
    if (run.urgent) {
        const QzString flag = DataPath(DataFile::UrgentFlag);
        Log(run, QzCat(" deleting the urgent_is_still_running_flag.txt flag file: ", flag));
        QzFile::DeleteFileIfExists(flag.c_str());
    }

    // 15.
    if (QzLock::FileBasedLock* lock = QzLock::GlobalThreeHourLock()) QzLock::ReleaseFileBasedLock(lock);
    QzLog::WriteLine(
        QzCat("qzfilelist processId=", run.pid, " exiting out of main, numSeconds=",
              static_cast<long long>((QzTime::GetCurrentGmtMillis() - run.processStartMillis) / 1000)));
    ExitQzFileList(0);
}

}  // namespace QzScanRun
