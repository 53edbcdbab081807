// QzInfoManager: the user's settings from "qzinfo.xml", and the exclusion
// rules built from the rule files and those settings.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "QzRuleTree.h"
#include "QzString.h"
#include "QzVolumeInfo.h"

// The directories of the "do_backup" blocks with their file-set choices.
struct QzWatchedDir {
    QzString dir;
    QzString whichFiles;  // "none", or the name of a file set
    bool excluded = false;
};
struct QzFilesToWatch {
    std::vector<QzWatchedDir> dirs;
    QzString smartWatchFileSets;
    QzString excludeFileTypes;
};

// The settings the client's control panel writes; filled by
// ReadControlPanelSettingsFromQzInfoXmlFile, defaults until then.
struct QzSettings {
    uint32_t numDaysWarnIfNoBackup = 7;
    bool allowNetworkTests = false;
    bool useTimeMachineExcludes = false;
    bool showHelpTips = false;
    bool lockSchedule = false, lockExclusion = false, lockPEK = false;
    int backupScheduleType = 0;  // 1 when a file that was read gives no value
    QzString backupScheduleDetail = "none";
    QzString backupScheduleEndHour;
    QzString onlineHostname = "none";
    QzString qzLogin = "unknown";
    QzString onlineHostnameUpdated;
    std::vector<QzString> excludeFileTypes;
    QzString scratchMountpoint, scratchVolGuid;
    int64_t maxFileSizeMb = 4000;  // "none", or anything larger: 1000000000
    bool backupOnBattery = false;
    bool netAutoThrottle = true;
    QzString netThrottle;
    int numBackupThreads = 1;
    QzString smartWatchFileSets;
    std::vector<QzString> blockedNetworkNames, blockedNetworkMacAddrs;
    struct SelectedVolume {
        QzString volumeGuid;
        QzString mountPointPath;
    };
    std::vector<SelectedVolume> selectedVolumes;  // the "qzvolume" entries, duplicates removed
    QzFilesToWatch filesToWatch;                  // read along with the settings
};

namespace QzInfoManager {

// ---- settings ----
// Resets every setting to its default, then reads "qzinfo.xml"; false when
// the file is missing or unreadable (the defaults stay).
bool ReadControlPanelSettingsFromQzInfoXmlFile();
const QzSettings& Settings();
// The attached volumes that the settings select for backup.
bool GetVolumesSelectedForBackup(std::vector<QzVolumeInfo>* volumesRet);
// True when the text is a well-formed volume GUID ("v" + 27 lower-case
// hexadecimal digits or letters, 28 characters in all).
bool IsWellFormedVolumeGuid(const QzString& vguid);

// ---- exclusion rules ----
// The rule files are "qzexcluderules_mandatory.xml" and
// "qzexcluderules_editable.xml" in the data directory, with the merge log
// "qzreports\qzexcluderules_editable_mergelog.txt"; the rule tree is
// process-wide (QzRuleTree.h).

// Loads the rule tree afresh from, in order, the built-in mandatory rules,
// the editable file, the rules made from "qzinfo.xml" and, when an old
// install needs them, the registry rules. False when a required data set
// could not be parsed; the scan run then stops.
bool LoadAllExcludeFilenameRulesProperly();
// Writes whichever rule file is missing; a recreated editable file gets every
// merge block again. True when both files exist afterwards; editableChangedRet
// (may be null) tells whether the editable file was written.
bool MakeSureExcludeRulesFilesExistIn_qzdata_Folder(bool* editableChangedRet = nullptr);
// Appends the rules of merge blocks the merge log does not name yet. True
// only when the editable file was changed.
bool MakeSureAllEditableExcludeRuleBlocksAreMerged();
// True when the mandatory file on disk predates the move of the registry
// rules to the editable file, so they must be loaded separately.
bool WeNeedToLoadRegistryExclusionRulesBecauseMigration();
// The "qzinfo.xml rules" data set as rule-file text; false when the settings
// file could not be read (the text then holds no rule).
bool ParseQzInfo_MakeIntoExcludeFileNameRulesXml(QzString* xmlRet);
// Adds one data set to the process-wide tree; see QzRuleTree.
bool ParseExcludeFileNameRules(const QzString* xmlContainingExcludeRules, const char* dataSet);
bool InsertRuleWithSameSkipFirstCharThenStartsWith(QzExcludeRuleNode* groupHead, QzExcludeRuleFields&& rule);
// True when the file is to be backed up. The sizes are in bytes; the scan
// passes "max_filesize_mb" shifted left by 20.
bool UserWantsThisFileBackedUpEx(const QzString& fullPath, int64_t fileSizeBytes, int64_t maxSizeBytes);
QzRuleTree& ExcludeRuleTree();
// Number of distinct "skipFirstCharThenStartsWith" prefixes in the tree.
int32_t NumUniqueSkipFirstCharRules();
// True when a directory filter of "qzinfo.xml" with whichfiles "none", or a
// Windows rule of the mandatory or editable rules with exactly this prefix,
// excludes the directory as a whole. Its inputs are read on the first call.
bool DirIsExcludedFromBackupInQzInfo(const QzString& dirPath);
// The same; whyRet gets which filter or rule prefix excludes the directory.
bool DirIsExcludedFromBackupInQzInfo(const QzString& dirPath, QzString* whyRet);

// ---- file sets and file types ----
// One entry of a comma-separated extension list ("extensions" of a file set,
// "excludefiletypes") as a user may type it: blanks around it and one
// leading period are removed. False when nothing is left, or when what is
// left cannot be a file extension (it holds "*", "\", "/", "|", "<" or ">").
bool ExtensionFromListEntry(const QzString& entry, QzString* extensionRet);
struct QzFileSetDef {
    QzString name;                     // "filesetname"
    std::vector<QzString> extensions;  // "extensions" split at ",", as written
};
// The statistics categories, in order, each with its extensions lower-cased.
struct QzFileSetHashes {
    static constexpr int kNumCategories = 10;
    static const char* const kCategoryNames[kNumCategories];  // "docs", ..., "browserfavorites"
    std::unordered_set<QzString, QzStringHash, QzStringEqual> extensions[kNumCategories];
    // The categories whose sets hold a lower-case extension, as bits
    // (1 << category); a file counts in every one of them.
    uint32_t CategoriesOf(const QzString& lowerExtension) const;
};
// One "qzdirfilter" of a "do_backup" block.
// Reads "qzinfo.xml" of the data directory (or the given file).
bool GetAllFileSetDefsFromQzInfoFile(std::vector<QzFileSetDef>* defsRet);
bool GetAllFileSetDefsFromQzInfoFile(const QzString& qzinfoPath, std::vector<QzFileSetDef>* defsRet);
bool ParseQzInfoForFileSetHashes(QzFileSetHashes* hashesRet);
bool ParseQzInfoForFileSetHashes(const QzString& qzinfoPath, QzFileSetHashes* hashesRet);
// The directories to watch, from a settings text already read (the path is
// for the log). Never fails the caller: bad elements are logged and skipped.
bool ParseQzInfoForFilesToWatch(const QzString& qzinfoPath, const QzString& qzinfoText,
                                QzFilesToWatch* watchRet);
bool ParseQzInfoForFilesToWatch(QzFilesToWatch* watchRet);

}  // namespace QzInfoManager
