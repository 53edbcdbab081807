// Loading the exclusion rules: the migration test, the rules made from the
// settings, the load sequence over all data sets, the coarse directory test,
// and QzInfoManager's process-wide entry points to all of it.
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileXml.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzRuleFiles.h"
#include "QzRuleTexts.h"
#include "QzSystem.h"

namespace QzRuleFiles {

namespace {

constexpr int kQzInfoReadRetries = 17;
constexpr uint32_t kQzInfoRetryPauseMillis = 500;
constexpr int32_t kShortestCurrentMandatoryFile = 1000;

void Log(const QzString& line) {
    QzLog::WriteLine(line);
}

// One rule of the settings data set: every criterion "*" but the one given.
void AppendSettingsRule(QzString& xml, const char* prefix, const char* extension) {
    const QzRuleTexts::Row row = QzRuleTexts::Win("*", prefix, "*", "*", "*", "*", extension);
    QzRuleTexts::AppendRuleElement(xml, row, "t");
    xml.AppendChar('\n');
}

// Reads a settings file that the control panel may be rewriting: a failed
// read is retried every 500 ms until the retry count has passed 17.
QzFile::ReadStatus ReadQzInfoWithRetries(const QzString& path, QzString* textRet) {
    QzFile::ReadPolicy policy;
    policy.attempts = kQzInfoReadRetries + 1;
    policy.pauseMillis = kQzInfoRetryPauseMillis;
    policy.onFailedAttempt = [&](int failures, const QzString& err) {
        if (failures <= kQzInfoReadRetries)
            Log(
                QzCat("WARNING: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml could not read "
                      "qzinfo.xml so pausing and trying again found at: ",
                      path, ", err=", err));
    };
    const QzFile::ReadStatus status = QzFile::ReadFilePatiently(path.c_str(), textRet, policy);
    if (status == QzFile::ReadStatus::Held)
        Log(QzCat(
            "ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml could not read qzinfo.xml "
            "after 17 tries, found at: ",
            path));
    return status;
}

void AppendExtensionRules(const QzString& path, const QzString& text, QzString& xml) {
    QzString types;
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(text, "excludefiletypes", &types)) {
        Log(QzCat(
            "ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml no excludefiletypes tag in "
            "qzinfo file:",
            path));
        return;
    }
    if (types.IsEmpty()) {
        Log(QzCat("INTERESTING: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml processId=",
                  QzSystem::GetProcessId(),
                  " excludefiletypes val zero len in qzinfo file, cleared by user :", path));
        return;
    }
    int32_t from = 0;
    for (;;) {
        const int32_t comma = types.Find(",", from);
        const int32_t end = comma < 0 ? types.Length() : comma;
        const QzString entry(types.c_str() + from, end - from);
        QzString ext;
        if (QzInfoManager::ExtensionFromListEntry(entry, &ext)) {
            AppendSettingsRule(xml, "*", ext.c_str());
        } else if (ext.Length() > 0) {
            // A "*" would make a rule that excludes every file on every drive.
            Log(QzCat(
                "ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml skipping excludefiletypes "
                "entry that is no file extension: \"",
                entry, "\" in qzinfo file:", path));
        }
        if (comma < 0) break;
        from = comma + 1;
    }
}

void AppendFolderRules(const QzString& path, const QzString& text, QzString& xml) {
    std::vector<QzString> filters;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "qzdirfilter", &filters);
    if (filters.empty()) {
        Log(
            QzCat("INTERESTING: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml found zero "
                  "qzdirfilter in "
                  "qzinfo file, probably cleared by user:",
                  path));
        return;
    }
    for (const QzString& filter : filters) {
        QzString dir, which;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(filter, "dir", &dir)) {
            Log(
                QzCat("ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml skipping exclusion "
                      "because "
                      "no \"dir\" attribute on \"qzdirfilter\" in qzinfo file:",
                      path, ", qzdirfilter=", filter));
            continue;
        }
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(filter, "whichfiles", &which)) {
            Log(
                QzCat("ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml skipping exclusion "
                      "because "
                      "no \"whichfiles\" attribute on \"qzdirfilter\" in qzinfo file:",
                      path, ", qzdirfilter=", filter));
            continue;
        }
        if (!which.EqualsIgnoreCase("none")) continue;  // a file-set choice, not an exclusion
        if (dir.Length() < 2) {
            Log(
                QzCat("ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml skipping exclusion "
                      "\"dir\" "
                      "attribute is TOO SHORT on \"qzdirfilter\" in qzinfo file:",
                      path, ", qzdirfilter=", filter));
            continue;
        }
        QzString prefix(dir.c_str() + 1);  // without the drive letter
        if (prefix.Last() != '\\') prefix.AppendChar('\\');
        AppendSettingsRule(xml, prefix.c_str(), "*");
    }
}

// The Windows rule prefixes of a rule text (comments removed), for the
// directory test; only the prefix and the platform matter there.
void CollectWinPrefixes(const QzString& ruleText, std::vector<QzString>* prefixes) {
    QzString text;
    QzFile::RemoveXmlComments(ruleText, &text, nullptr);
    std::vector<QzString> rules;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "excludefname_rule", &rules);
    for (const QzString& rule : rules) {
        QzString prefix;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(rule, "skipFirstCharThenStartsWith", &prefix)) continue;
        if (prefix.Equals("*") || !rule.Contains(" plat=\"win\"")) continue;
        prefixes->push_back(std::move(prefix));
    }
}

}  // namespace

bool NeedRegistryRulesBecauseMigration(const QzString& dataDir) {
    const char* const kWho = "ERROR: QzInfoManager::WeNeedToLoadRegistryExclusionRulesBecauseMigration - ";
    const QzString path = MandatoryPath(dataDir);
    if (!QzFile::FileExists(path.c_str())) {
        Log(QzCat(kWho, "mandatory file does not exist, default to YES parse rules, missingFileName=", path));
        return true;
    }
    QzString text, err;
    if (!QzFile::ReadEntireFile(path.c_str(), &text, &err)) {
        Log(QzCat(kWho,
                  "file exists, but could not read, default to YES parse rules, unreadableFileName=", path));
        return true;
    }
    if (text.Length() < kShortestCurrentMandatoryFile) {
        Log(QzCat(kWho,
                  "file exists, we could read it, but not long enough! default to YES parse rules, "
                  "contentsTooShortFileName=",
                  path));
        return true;
    }
    std::vector<QzString> rules;
    if (!QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "excludefname_rule",
                                                       &rules)) {
        Log(QzCat(kWho,
                  "defaulting to TRUE because QzFile::GetAllXmlSnippetsWithTagNameInXml failed for fileName=",
                  path));
        return true;
    }
    if (rules.size() < 5) {
        Log(QzCat(
            kWho,
            "defaulting to TRUE because QzFile::GetAllXmlSnippetsWithTagNameInXml had too few rules for "
            "fileName=",
            path));
        return true;
    }
    for (const QzString& rule : rules) {
        QzString endsWith, osVers;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(rule, "endsWith", &endsWith)) {
            Log(QzCat(kWho,
                      "defaulting to TRUE because attributeVal of one of the XML lines had no endsWith tag, "
                      "snippet=",
                      rule));
            return true;
        }
        if (!endsWith.Equals("\\ntuser.dat")) continue;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(rule, "osVers", &osVers)) {
            Log(QzCat(kWho,
                      "defaulting to TRUE because osVers of the most important XML line had no osVers tag, "
                      "snippet=",
                      rule));
            return true;
        }
        return !osVers.EqualsIgnoreCase("xp");
    }
    return true;
}

bool MakeQzInfoRulesXml(const QzString& dataDir, QzString* xmlRet) {
    QzString& xml = *xmlRet;
    xml = QzCat(QzRuleTexts::kDeclaration, "\n<qzexclusions>\n");
    const QzString path = QzInfoPath(dataDir);
    QzString text;
    bool ok = false;
    const QzFile::ReadStatus status = ReadQzInfoWithRetries(path, &text);
    if (status == QzFile::ReadStatus::Missing) {
        Log(QzCat("ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml no qzinfo.xml found at:",
                  path));
    } else if (status == QzFile::ReadStatus::Ok) {
        AppendExtensionRules(path, text, xml);
        AppendFolderRules(path, text, xml);
        ok = true;
    }
    xml.Append("</qzexclusions>\n");
    return ok;
}

bool LoadAllRules(const QzString& dataDir, QzRuleTree* tree) {
    const char* const kWho = "ERROR: QzInfoManager::LoadAllExcludeFilenameRulesProperly - ";
    tree->Clear();
    MakeSureRuleFilesExist(dataDir, nullptr);
    const bool loadRegistryRules = NeedRegistryRulesBecauseMigration(dataDir);

    if (!tree->ParseExcludeFileNameRules(&QzRuleTexts::MandatoryText(), "mandatory_rules")) {
        Log(QzCat(kWho, "QzInfoManager::ParseExcludeFileNameRules returned FALSE for mandatory_rules."));
        return false;
    }
    const QzString editablePath = EditablePath(dataDir);
    if (!QzFile::FileExists(editablePath.c_str())) {
        Log(QzCat(kWho, "file does not exist, do not go forward:", editablePath));
        return false;
    }
    QzString editable, err;
    if (!QzFile::ReadEntireFile(editablePath.c_str(), &editable, &err)) {
        Log(QzCat(kWho, "file exists, but could not read:", editablePath));
        return false;
    }
    if (!tree->ParseExcludeFileNameRules(&editable, "editable_rules")) {
        Log(QzCat(kWho, "QzInfoManager::ParseExcludeFileNameRules returned FALSE for editable_rules."));
        return false;
    }
    // A settings file that could not be read has been logged by the reader;
    // whatever text was built is parsed regardless.
    QzString settingsRules;
    MakeQzInfoRulesXml(dataDir, &settingsRules);
    if (!tree->ParseExcludeFileNameRules(&settingsRules, "qzinfo.xml")) {
        Log(QzCat(kWho, "QzInfoManager::ParseExcludeFileNameRules returned FALSE for qzinfo.xml rules."));
        return false;
    }
    if (loadRegistryRules &&
        !tree->ParseExcludeFileNameRules(&QzRuleTexts::RegistryRulesText(), "registry_rules")) {
        Log(QzCat(kWho, "QzInfoManager::ParseExcludeFileNameRules returned FALSE for registry_rules rules."));
        return false;
    }
    return true;
}

void DirExclusions::Load(const QzString& dataDir) {
    filterDirs_.clear();
    rulePrefixes_.clear();

    QzString text, err;
    std::vector<QzString> filters;
    if (QzFile::ReadEntireFile(QzInfoPath(dataDir).c_str(), &text, &err))
        QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "qzdirfilter", &filters);
    if (filters.empty()) Log("could not find any qzdirfilters in qzinfo.xml");
    for (const QzString& filter : filters) {
        QzString dir;
        if (filter.Contains(" whichfiles=\"none\"") &&
            QzFile::GetUniqueStrAttrFromXmlSnippet(filter, "dir", &dir))
            filterDirs_.push_back(std::move(dir));
    }

    const size_t before = rulePrefixes_.size();
    CollectWinPrefixes(QzRuleTexts::MandatoryText(), &rulePrefixes_);
    if (rulePrefixes_.size() == before)
        Log("could not find any excludefname_rule in qzexcluderules_mandatory.xml");
    const size_t mandatoryCount = rulePrefixes_.size();
    numMandatoryPrefixes_ = mandatoryCount;
    if (QzFile::ReadEntireFile(EditablePath(dataDir).c_str(), &text, &err))
        CollectWinPrefixes(text, &rulePrefixes_);
    if (rulePrefixes_.size() == mandatoryCount)
        Log("could not find any excludefname_rule in qzexcluderules_editable.xml");
}

bool DirExclusions::IsExcluded(const QzString& dirPath, QzString* whyRet) const {
    for (const QzString& dir : filterDirs_) {
        if (dir.Length() != dirPath.Length() || !dir.EqualsIgnoreCase(dirPath.c_str())) continue;
        if (whyRet) *whyRet = QzCat("qzinfo.xml qzdirfilter dir=\"", dir, "\" whichfiles=\"none\"");
        return true;
    }
    if (dirPath.IsEmpty()) return false;
    const QzString withoutDrive(dirPath.c_str() + 1, dirPath.Length() - 1);
    for (size_t i = 0; i < rulePrefixes_.size(); ++i) {
        const QzString& prefix = rulePrefixes_[i];
        if (prefix.Length() != withoutDrive.Length() || !prefix.EqualsIgnoreCase(withoutDrive.c_str()))
            continue;
        if (whyRet)
            *whyRet = QzCat(
                i < numMandatoryPrefixes_ ? "qzexcluderules_mandatory.xml" : "qzexcluderules_editable.xml",
                " rule with skipFirstCharThenStartsWith=\"", prefix, "\"");
        return true;
    }
    return false;
}

}  // namespace QzRuleFiles

namespace QzInfoManager {

QzRuleTree& ExcludeRuleTree() {
    static QzRuleTree* tree = new QzRuleTree;  // lives until the process ends
    return *tree;
}

int32_t NumUniqueSkipFirstCharRules() {
    return ExcludeRuleTree().NumPrefixGroups();
}

bool LoadAllExcludeFilenameRulesProperly() {
    return QzRuleFiles::LoadAllRules(QzFile::GetDataDir(), &ExcludeRuleTree());
}

bool MakeSureExcludeRulesFilesExistIn_qzdata_Folder(bool* editableChangedRet) {
    return QzRuleFiles::MakeSureRuleFilesExist(QzFile::GetDataDir(), editableChangedRet);
}

bool MakeSureAllEditableExcludeRuleBlocksAreMerged() {
    return QzRuleFiles::MergeEditableRuleBlocks(QzFile::GetDataDir());
}

bool WeNeedToLoadRegistryExclusionRulesBecauseMigration() {
    return QzRuleFiles::NeedRegistryRulesBecauseMigration(QzFile::GetDataDir());
}

bool ParseQzInfo_MakeIntoExcludeFileNameRulesXml(QzString* xmlRet) {
    return QzRuleFiles::MakeQzInfoRulesXml(QzFile::GetDataDir(), xmlRet);
}

bool ParseExcludeFileNameRules(const QzString* xmlContainingExcludeRules, const char* dataSet) {
    return ExcludeRuleTree().ParseExcludeFileNameRules(xmlContainingExcludeRules, dataSet);
}

bool InsertRuleWithSameSkipFirstCharThenStartsWith(QzExcludeRuleNode* groupHead, QzExcludeRuleFields&& rule) {
    return ExcludeRuleTree().InsertRuleWithSameSkipFirstCharThenStartsWith(groupHead, std::move(rule));
}

bool UserWantsThisFileBackedUpEx(const QzString& fullPath, int64_t fileSizeBytes, int64_t maxSizeBytes) {
    return ExcludeRuleTree().UserWantsThisFileBackedUpEx(fullPath, fileSizeBytes, maxSizeBytes);
}

bool DirIsExcludedFromBackupInQzInfo(const QzString& dirPath) {
    return DirIsExcludedFromBackupInQzInfo(dirPath, nullptr);
}

bool DirIsExcludedFromBackupInQzInfo(const QzString& dirPath, QzString* whyRet) {
    static QzRuleFiles::DirExclusions* exclusions = nullptr;
    if (!exclusions) {
        exclusions = new QzRuleFiles::DirExclusions;
        exclusions->Load(QzFile::GetDataDir());
    }
    return exclusions->IsExcluded(dirPath, whyRet);
}

}  // namespace QzInfoManager
