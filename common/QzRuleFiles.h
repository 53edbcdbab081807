// The exclusion rule files in a given data directory: creating them, merging
// new default blocks into the editable one, the migration test, the rules
// made from the settings, the whole load, and the coarse directory test.
// QzInfoManager's functions call these with the program's data directory;
// tests call them with a scratch one.
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"

class QzRuleTree;

namespace QzRuleFiles {

QzString MandatoryPath(const QzString& dataDir);  // "qzexcluderules_mandatory.xml"
QzString EditablePath(const QzString& dataDir);   // "qzexcluderules_editable.xml"
QzString MergeLogPath(const QzString& dataDir);   // "qzreports\qzexcluderules_editable_mergelog.txt"
QzString QzInfoPath(const QzString& dataDir);     // "qzinfo.xml"

// MakeSureExcludeRulesFilesExistIn_qzdata_Folder.
bool MakeSureRuleFilesExist(const QzString& dataDir, bool* editableChangedRet);
// MakeSureAllEditableExcludeRuleBlocksAreMerged.
bool MergeEditableRuleBlocks(const QzString& dataDir);
// WeNeedToLoadRegistryExclusionRulesBecauseMigration.
bool NeedRegistryRulesBecauseMigration(const QzString& dataDir);
// ParseQzInfo_MakeIntoExcludeFileNameRulesXml.
bool MakeQzInfoRulesXml(const QzString& dataDir, QzString* xmlRet);
// LoadAllExcludeFilenameRulesProperly, into the given tree (cleared first).
bool LoadAllRules(const QzString& dataDir, QzRuleTree* tree);

// The directory test of the top-level directory list, with its inputs read
// once by Load.
class DirExclusions {
public:
    void Load(const QzString& dataDir);
    // whyRet (may be null) gets the filter or rule prefix that excludes it.
    bool IsExcluded(const QzString& dirPath, QzString* whyRet = nullptr) const;

private:
    std::vector<QzString> filterDirs_;    // "qzdirfilter" dirs whose element says whichfiles="none"
    std::vector<QzString> rulePrefixes_;  // prefixes of the Windows rules, mandatory then editable
    size_t numMandatoryPrefixes_ = 0;
};

// Forgets the rate limiting of the empty "excludefiletypes" warning of the
// files-to-watch reader, as in a new process.
void ResetFilesToWatchWarningForTesting();

}  // namespace QzRuleFiles
