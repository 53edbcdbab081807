// Preparation of a scan run: refusals, the lock, volumes and alert levels,
// settings and rules, and the top-level list built afresh or resumed.
#include <new>

#include "QzClientVersionManager.h"
#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzFileListing.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
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

// Deletes every file of the file-list folder whose name ends in one of the suffixes.
void DeleteFilesEndingIn(const char* const* suffixes, int count) {
    const QzString folder = DataPath(DataFile::FileListsFolder);
    QzFileInfoList files;
    if (!QzFile::GetListOfFileInfosInDir(&folder, &files)) return;
    for (int32_t i = 0; i < files.Count(); ++i) {
        const QzFileInfo& f = *files.At(i);
        if (f.isDirectory) continue;
        for (int k = 0; k < count; ++k) {
            if (f.fullPath.EndsWith(suffixes[k])) {
                QzFile::DeleteFileIfExists(f.fullPath.c_str());
                break;
            }
        }
    }
}

// A list built afresh must not be appended to lists a stopped run left.
void DeleteLeftoverVolumeFutureLists() {
    static const char* const kSuffixes[] = {"completefilelist.dat.future",
                                            "completefilelist.dat.future_aside", "_filelist.dat.future",
                                            "_filelist.dat.future_aside"};
    DeleteFilesEndingIn(kSuffixes, 4);
}

void LogAlertLevels(const QzScanState& run) {
    (void)run;
    std::vector<QzVolDefconRecord> records;
    int32_t level = 0;
    if (!QzUiUtil::QzVolDefcon_HitDisk_ReadQzDefconXmlFile(&records, &level)) {
        QzLog::WriteLine("All_Volume_Defcon_Level=Call_failed");
        return;
    }
    // One message: the header line and a line per volume, indented so the
    // columns stand under the header's text.
    QzString msg = QzCat("All_Volume_Defcon_Level=", level, ", listing ",
                         static_cast<long long>(records.size()), " volumes below:\n");
    for (size_t i = 0; i < records.size(); ++i) {
        const QzVolDefconRecord& r = records[i];
        msg.Append(QzCat("                   defcon_volume_index=", static_cast<long long>(i),
                         ", qzVol_defconLevel=", r.defconLevel,
                         ", qzVol_lastFileListedInDays=", r.lastFileListedInDays,
                         r.lastFileListedInDays < 10 ? " " : "", ", qzVol_lastSeenInDays=", r.lastSeenInDays,
                         ", qzVol_lastFilePushedInDays=", r.lastFilePushedInDays,
                         ", mountPointPath=", r.mountPoint, "\n"));
    }
    QzLog::WriteLine(msg);
}

void FindElevatedDrive(QzScanState& run) {
    if (!QzUiUtil::QzVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(&run.elevatedVolume,
                                                                                 &run.elevatedRecord)) {
        QzLog::WriteLine("Defcon_reports_no_drives_attached_of_heightened_defcon_interest");
        return;
    }
    run.elevatedDrive = true;
    const QzVolDefconRecord& r = run.elevatedRecord;
    const bool urgently = r.lastFileListedInDays >= 15;
    if (urgently) run.urgent = true;
    QzLog::WriteLine(QzCat("Defcon_very_interesting_drive_to_qzfilelist_attached processId=", run.pid,
                           ", with defcon=", r.defconLevel, ", mountPoint=", run.elevatedVolume.mountPoint,
                           ", qzVol_lastFileListedInDays=", r.lastFileListedInDays, ", qzVol_lastSeenInDays=",
                           r.lastSeenInDays, ", qzVol_lastFilePushedInDays=", r.lastFilePushedInDays,
                           urgently ? ", and we are going to URGENTLY_RUN_FAST this run!"
                                    : ", but it is not worth running urgently this run."));
}

// Builds the list afresh, after clearing away what an earlier run left.
void BuildFreshTopDirs(QzScanState& run) {
    DeleteLeftoverVolumeFutureLists();
    QzFile::DeleteFileIfExists(DataPath(DataFile::BigFileListFuture).c_str());
    QzFile::DeleteFileIfExists(run.statsFuturePath.c_str());
    run.stats = QzFileStats::Counters{};
    // Begun empty, so that a run without large files still replaces the last list.
    run.bigFiles.Create("", 0);
    if (!QzTopDirsFile::ScanDiskAndCreateTopDirsListInRam(&run.topDirs,
                                                          run.elevatedDrive ? &run.elevatedVolume : nullptr))
        ReleaseLockAndExit(run, 0);
}

// The large-file lines the restarted volume had already given: its walk
// gives them again.
void DropBigFileLinesOfVolume(const QzString& volume) {
    const QzString path = DataPath(DataFile::BigFileListFuture);
    QzString text, err;
    if (QzFile::ReadFilePatiently(path.c_str(), &text, QzFile::ReadPolicy{}, &err) != QzFile::ReadStatus::Ok)
        return;
    std::vector<QzString> lines;
    QzFile::SplitIntoLines(text.c_str(), text.Length(), &lines);
    QzString kept;
    for (const QzString& line : lines) {
        // "t|f" TAB size TAB path
        const int32_t tab = line.Find("\t", 2);
        const QzString linePath(tab < 0 ? "" : line.c_str() + tab + 1);
        if (linePath.StartsWithIgnoreCase(volume.c_str())) continue;
        kept.Append(line);
        kept.AppendChar('\n');
    }
    QzFile::WriteFileAtomically(path, kept);
}

// A resumed run continues at the first entry of the volume that was being
// walked: that volume's ".future" list may end in part of an interrupted
// directory, so it is started again, while the lists of the volumes already
// done are kept and appended to no more.
void RestartInterruptedVolume(QzScanState& run) {
    QzTopDirs& t = run.topDirs;
    if (t.startAtDir >= t.Count()) return;
    const QzString vguid = t.vGuidToIndex[t.startAtDir];
    int32_t first = t.startAtDir;
    while (first > 0 && t.vGuidToIndex[first - 1].Equals(vguid)) --first;
    if (first == t.startAtDir) return;
    QzString volume, name;
    const QzString dir(t.dirToIndex[first].c_str() + 1);
    if (QzTopDirsFile::ExtractVolumePath(dir, &volume)) {
        QzUiUtil::GetPerVolumeFileListName(vguid, volume, &name);
        QzFile::DeleteFileIfExists(QzCat(name, ".future").c_str());
        DropBigFileLinesOfVolume(volume);
    }
    Log(run, QzCat(" resuming at the first entry of its volume, startAtDir=", first, " instead of ",
                   t.startAtDir));
    t.startAtDir = first;
}

}  // namespace

bool SelfDestructFlagIsSet() {
    QzString text, err;
    const QzString path = DataPath(DataFile::SelfDestructFlag);
    if (!QzFile::FileExists(path.c_str())) return false;
    return QzFile::ReadEntireFile(path.c_str(), &text, &err) && text.Contains("nuke_and_pave");
}

bool IsEndOfLife() {
    try {
        QzClientVersionManager versions;
        return versions.IsEndOfLife();
    } catch (const QzClientVersionError& e) {
        // Without a readable answer the client is not stopped.
        QzLog::WriteLine(
            QzCat("WARNING: QZFILELIST - could not tell whether the client version has reached "
                  "End-Of-Life, so running: ",
                  e.what()));
        return false;
    }
}

void Prepare(QzScanState& run) {
    // 1-3: refusals.
    if (SelfDestructFlagIsSet()) {
        QzLog::WriteLine("QZFILELIST - Self Destruct Flag Set so not running");
        ExitQzFileList(1);
    }
    run.stopPath = DataPath(DataFile::StopRun);
    run.lockPath = DataPath(DataFile::HourLock);
    CheckStopFileAndExitIfPresent(run);
    if (IsEndOfLife()) {
        QzLog::WriteLocated(-3, __FILE__, __LINE__, "int __cdecl main(int,char *[])",
                            "QZFILELIST - client version has reached End-Of-Life, exiting");
        ExitQzFileList(0);
    }

    // 4: the per-entry times and the line buffer.
    try {
        run.topDirs.secondsToScanEachDir.assign(QzTopDirs::kMaxTimedEntries, 0);
    } catch (const std::bad_alloc&) {
        QzLog::WriteLine("ERROR: could not malloc 1000k for secondsToScan! Exiting\n");
        ExitQzFileList(0);
    }
    if (!run.buffer.Reserve(QzScanState::kBufferReserveBytes)) {
        QzLog::WriteLine("ERROR: could not malloc the 40 MiB file list buffer! Exiting\n");
        ExitQzFileList(0);
    }
    run.listsByDepth.reserve(QzScanState::kMaxDepth + 2);

    // 5: the three-hour lock. Without a data directory there are no settings
    // to scan by, and nothing is created where the client keeps none.
    if (!QzFile::DirExists(QzFile::GetDataDir().c_str())) {
        QzLog::WriteLine(
            QzCat("ERROR: qzinfo.xml did not exist, exiting! -> ", DataPath(DataFile::Settings)));
        ExitQzFileList(0);
    }
    QzFile::CreateDirectoryRecursive(DataPath(DataFile::FileListsFolder).c_str());
    std::unique_ptr<QzLock::FileBasedLock> lock = QzLock::GrabFileBasedLock(run.lockPath, 10800, 3);
    if (!lock) {
        QzLog::WriteLine(QzCat("qzfilelist processId=", run.pid,
                               " could not grab three hour lock, so some OTHER ",
                               "qzfilelist is already running, exiting quietly"));
        ExitQzFileList(0);
    }
    QzLock::SetGlobalThreeHourLock(std::move(lock));
    QzLog::WriteLine(QzCat("qzfilelist version=", kQzFileListVersion, " processId=", run.pid,
                           " got three hour lock, starting scan...."));

    // 6-9: volumes, registry, alert levels.
    PingDrivesThatAreSelectedForBackup();
    QzUiUtil::QzVolumesXml_QueryAttachDrives_UpdateQzVolXml();
    QzUiUtil::QzVolDefcon_UpdateQzVolumesDefconXmlFile();
    QzString summary, abstract;
    QzUiUtil::GetSelectedAndAttachedDriveState(&summary, &abstract);
    QzLog::WriteLine(QzCat("Connected and selected hard drive state (processId=", run.pid, "): ", summary,
                           "___abstr=", abstract));
    LogAlertLevels(run);
    FindElevatedDrive(run);

    // 10-11: settings and rules.
    run.scanStartMillis = QzTime::GetCurrentGmtMillis();
    const QzString settingsPath = DataPath(DataFile::Settings);
    if (!QzFile::FileExists(settingsPath.c_str())) {
        QzLog::WriteLine(QzCat("ERROR: qzinfo.xml did not exist, exiting! -> ", settingsPath));
        ReleaseLockAndExit(run, 0);
    }
    QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile();
    if (!QzInfoManager::LoadAllExcludeFilenameRulesProperly()) {
        QzLog::WriteLine(
            "ERROR: first QzInfoManager::LoadAllExcludeFilenameRulesProperly returned false, exiting");
        ReleaseLockAndExit(run, 0);
    }
    QzLog::WriteLine(
        QzCat("Parsed qzexcluderules_mandatory.xml, qzexcluderules_editable.xml, and qzinfo.xml, found ",
              QzInfoManager::NumUniqueSkipFirstCharRules(), " excludefname_rule unique startsWith rules.\n"));
    run.maxSizeBytes = QzInfoManager::Settings().maxFileSizeMb << 20;
    QzInfoManager::QzFileSetHashes hashes;
    QzInfoManager::ParseQzInfoForFileSetHashes(&hashes);
    run.categories.Build(hashes);
    QzFileStats::ReadIdentity(&run.identity);

    // 12-13: the run's files.
    run.bigFiles.SetFinalPath(DataPath(DataFile::BigFileList));
    run.bigFiles.SetWriteThrough(run.verbose);
    run.topDirsPath = DataPath(DataFile::TopDirs);
    run.topDirsFuturePath = DataPath(DataFile::TopDirsFuture);
    run.statsPath = DataPath(DataFile::FileStats);
    run.statsFuturePath = DataPath(DataFile::FileStatsFuture);
    QzLog::WriteLine(QzCat(
        "qzfilelist processId=", run.pid,
        " filesizes filestats=", static_cast<long long>(QzFile::GetFileSizeInBytes(run.statsPath.c_str())),
        ", topdirs=", static_cast<long long>(QzFile::GetFileSizeInBytes(run.topDirsPath.c_str()))));
    if (!QzFile::FileExists(run.topDirsPath.c_str())) run.urgent = true;

    // 14: a leftover checkpoint is set aside and deleted; the list is built afresh.
    const QzString aside = DataPath(DataFile::TopDirsFutureAside);
    if (QzFile::FileExists(run.topDirsFuturePath.c_str())) {
        QzFile::AtomicMoveFile(run.topDirsFuturePath.c_str(), aside.c_str());
        QzFile::DeleteFileIfExists(aside.c_str());
        QzFile::DeleteFileIfExists(run.topDirsFuturePath.c_str());
    }
    if (!QzFile::FileExists(run.topDirsFuturePath.c_str())) {
        QzLog::WriteLine(QzCat("qzfilelist processId=", run.pid, run.urgent ? " URGENTLY" : "",
                               run.firstInstall ? " and AT_FIRST_INSTALL_TIME" : "",
                               " topdirs.xml.future did not exist, starting fresh scan"));
        BuildFreshTopDirs(run);
        Log(run, QzCat(run.urgent ? ", URGENTLY" : "",
                       ", after_ScanDiskAndCreateTopDirsListIn, topDirsXmlFuture=", run.topDirsFuturePath));
        if (!QzTopDirsFile::WriteTopDirsXmlFile(run.topDirs, run.topDirsFuturePath))
            QzLog::WriteLine(
                QzCat("ERROR: processId=", run.pid, ", problem writing out topdirs.xml.future first"));
        WriteStatsCheckpoint(run);
        QzReports::WriteInstalledProgramsReport();
        QzReports::WriteServicePermissionReport();
    } else {
        Log(run, " topdirs.xml already existed, reading it in");
        if (!QzTopDirsFile::ReadTopDirsXmlFile(run.topDirsFuturePath, &run.topDirs)) {
            QzLog::WriteLine("ERROR: problem reading out topdirs.xml.future");
            BuildFreshTopDirs(run);
            if (!QzTopDirsFile::WriteTopDirsXmlFile(run.topDirs, run.topDirsFuturePath))
                QzLog::WriteLine(
                    QzCat("ERROR: processId=", run.pid, ", problem writing out topdirs.xml.future first"));
        } else {
            RestartInterruptedVolume(run);
        }
        QzFileStats::ReadFileStatsBack(run.statsFuturePath, &run.stats);
    }

    // 15-16.
    QzTopDirsFile::VerifyMountPointsAndCorrectTopDirs(&run.topDirs, nullptr);
    if (run.urgent) {
        DeleteLeftoverVolumeFutureLists();
        // With every per-volume list gone, a resumed urgent run walks from the start.
        if (run.topDirs.startAtDir > 0) {
            run.topDirs.startAtDir = 0;
            run.stats = QzFileStats::Counters{};
            run.bigFiles.Create("", 0);
        }
    }

    // 17.
    Log(run, QzCat(", entering main disk analysis, startAtDir=", run.topDirs.startAtDir,
                   ", length=", run.topDirs.Count(), run.urgent ? ", URGENTLY_RUNNING_FAST" : ""));
}

}  // namespace QzScanRun
