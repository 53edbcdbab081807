// The top-level directory list: the units of work of a scan. Each selected
// volume contributes its root (its files only), each top-level directory (its
// files only) and each second-level directory (its whole tree), so that the
// entries together cover every directory the scan does not skip exactly once.
// The list is saved after the units as "topdirs.xml" (".future" while a scan
// is in progress), with the time each unit took and the next one to walk.
#pragma once

#include <cstdint>
#include <vector>

#include "QzFileInfo.h"
#include "QzString.h"
#include "QzVolumeInfo.h"

struct QzTopDirs {
    // Flag characters: "0" the volume root and "1" a top-level directory are
    // listed without descending; "2" a second-level directory is walked whole.
    static constexpr char kRootFlag = '0';
    static constexpr char kFilesOnlyFlag = '1';
    static constexpr char kRecursiveFlag = '2';
    static constexpr int32_t kMaxTimedEntries = 1000000;

    int32_t startAtDir = 0;  // next entry to walk ("next_to_index")
    int64_t timesMountPointsVerified = 0;
    int64_t millisToProduce = 0;
    int64_t gmtMillis = 0;                      // when the list was made
    std::vector<QzString> dirToIndex;           // flag character + directory path
    std::vector<QzString> vGuidToIndex;         // volume identifier of each entry
    std::vector<int32_t> secondsToScanEachDir;  // kMaxTimedEntries slots, allocated by the run
    int64_t lastFullVerifyEndMillis = 0;        // end of the last full mount-point check

    int32_t Count() const { return static_cast<int32_t>(dirToIndex.size()); }
    void Add(char flag, const QzString& dir, const QzString& vguid);
    void Clear();
};

namespace QzTopDirsFile {

// The volume path ("C:\") of a directory path in Windows form; false when it
// does not start with a drive letter, a colon and a backslash.
bool ExtractVolumePath(const QzString& dir, QzString* volumeRet);

// True when the top-level list never makes the directory an entry: system,
// program and recycle folders and other backup programs' stores. wordRet (may
// be null) gets the skip-list text that matched.
bool IsSkippedTopLevelDir(const QzString& dir, QzString* wordRet = nullptr);

// Why a listed directory of the first or second level is not made an entry.
enum class EntryRefusal {
    None,                // it becomes an entry
    NotADirectory,       // a file
    ReparsePoint,        // junctions and links are never entered
    SkipList,            // IsSkippedTopLevelDir
    NameAnomaly,         // its name holds a line break (logged by the writer of its parent's files)
    Anomaly,             // the walk's own folder filters refuse it
    ExcludedBySettings,  // excluded as a whole (QzInfoManager::DirIsExcludedFromBackupInQzInfo)
};
// The list builder's decision for one listed directory; whyRet gets the
// skip-list word, the filter's log line or the exclusion that applies.
EntryRefusal WhyNotAnEntry(const QzFileInfo& info, QzString* whyRet);

// Builds the list for every selected volume that is attached; the elevated
// volume (may be null) comes first so that its list is done first. False,
// logged, when no volume is left to scan.
bool ScanDiskAndCreateTopDirsListInRam(QzTopDirs* topDirs, const QzVolumeInfo* elevatedVolume);

bool WriteTopDirsXmlFile(const QzTopDirs& topDirs, const QzString& path);
// The text the writer produces.
QzString TopDirsXmlText(const QzTopDirs& topDirs);
bool ReadTopDirsXmlFile(const QzString& path, QzTopDirs* topDirs);

// Compares the entries with the attached volumes: an entry whose volume is
// now at another mount point follows it, one whose volume is gone is emptied
// (the run skips empty entries). True when nothing changed or the check was
// skipped. `optTriggerDir` is the directory that could not be listed, or null.
bool VerifyMountPointsAndCorrectTopDirs(QzTopDirs* topDirs, const QzString* optTriggerDir);

}  // namespace QzTopDirsFile
