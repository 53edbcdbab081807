// The two rule files on disk: writing a missing one from the built-in text,
// and merging the numbered default blocks into the user's editable file.
//
// Nothing here edits a file in place. A new or merged file is written whole
// under a ".tmp" name and moved over the real one in one step, so the client
// never reads half a file and a failure leaves the old file as it was.
#include <algorithm>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzRuleFiles.h"
#include "QzRuleTexts.h"
#include "QzTime.h"

namespace QzRuleFiles {

namespace {

constexpr int kWriteAttempts = 10;
constexpr int kSwapAttempts = 15;
constexpr uint32_t kSwapPauseMillis = 200;
constexpr uint32_t kRetryPauseMillis = 100;
constexpr const char* kEndTag = "</qzexclusions>";
// "<qzexclusions></qzexclusions>": anything shorter cannot hold the root element.
constexpr int32_t kShortestRuleFile = 29;

void Log(const QzString& line) {
    QzLog::WriteLine(line);
}

// Writes `text` to path + ".tmp" and moves it over `path`, each step tried up
// to ten times.
bool WriteFileWhole(const QzString& path, const QzString& text) {
    QzFile::ReplacePolicy policy;
    policy.writeAttempts = kWriteAttempts;
    policy.moveAttempts = kWriteAttempts;
    policy.pauseMillis = kRetryPauseMillis;
    policy.logName = nullptr;
    QzFile::ReplaceResult r;
    if (QzFile::WriteFileAtomically(path, text, policy, &r)) {
        Log(QzCat("MakeSureExcludeRulesFilesExistIn_qzdata_Folder - successfully wrote out fileName=", path));
        return true;
    }
    Log(QzCat("ERROR: MakeSureExcludeRulesFilesExistIn_qzdata_Folder - something bad occurred, i=",
              r.writeAttempts, ", j=", r.moveAttempts, ", fileName=", path));
    return false;
}

// The merge log goes aside so that every block is merged again.
void MoveMergeLogAside(const QzString& dataDir) {
    const QzString log = MergeLogPath(dataDir);
    if (!QzFile::FileExists(log.c_str())) {
        Log(QzCat("MakeSureExcludeRulesFilesExistIn_qzdata_Folder - mergeLog_did_not_exist fName=", log));
        return;
    }
    Log(QzCat(
        "MakeSureExcludeRulesFilesExistIn_qzdata_Folder - mergeLog_existed, so about to move aside fName=",
        log));
    if (QzFile::AtomicMoveFile(log.c_str(), QzCat(log, ".aside").c_str()))
        Log(
            QzCat("MakeSureExcludeRulesFilesExistIn_qzdata_Folder - mergeLog_existed, successfully moved "
                  "aside fName=",
                  log));
    else
        Log(QzCat(
            "ERROR - MakeSureExcludeRulesFilesExistIn_qzdata_Folder - mergeLog_existed, but failed to moving "
            "aside fName=",
            log));
}

// The block numbers the merge log names: the quoted value after
// "qzmergeblock" on each line.
bool ReadMergedBlocks(const QzString& logPath, std::vector<QzString>* blocksRet) {
    blocksRet->clear();
    if (!QzFile::FileExists(logPath.c_str())) {
        Log(QzCat("MakeSureAllEditableExcludeRuleBlocksAreMerged, merge log fileName=", logPath,
                  " does not exist yet, which is fine."));
        return true;
    }
    std::vector<QzString> lines;
    QzString err;
    if (!QzFile::ReadFileIntoLines(logPath.c_str(), &lines, &err)) {
        Log(QzCat(
            "ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, merge log exists, but could not read it, "
            "fileName=",
            logPath, ", err=", err));
        return false;
    }
    for (const QzString& line : lines) {
        if (line.IsEmpty()) continue;
        const int32_t at = line.Find("qzmergeblock");
        const int32_t open = at < 0 ? -1 : line.Find("\"", at);
        const int32_t close = open < 0 ? -1 : line.Find("\"", open + 1);
        if (close < 0 || close - open - 1 < 3) {
            Log(QzCat(
                "WARNING MakeSureAllEditableExcludeRuleBlocksAreMerged, ignoring merge log line without a "
                "qzmergeblock number: ",
                line));
            continue;
        }
        blocksRet->emplace_back(line.c_str() + open + 1, close - open - 1);
    }
    return true;
}

// "merged_" + local date and time + ` qzmergeblock="NNN"`, one line appended.
bool AppendMergeLogLine(const QzString& dataDir, const QzString& block) {
    const int64_t now = QzTime::GetCurrentGmtMillis();
    QzOs::TimeZoneState zone;
    const int64_t local =
        QzOs::GetTimeZoneState(now, &zone) ? now + int64_t{zone.offsetMinutes} * 60000 : now;
    QzString line("merged_");
    QzTime::AppendLogDateTime(line, local);
    line.Append(QzCat(" qzmergeblock=\"", block, "\"\n"));

    // the data directory itself must exist
    QzOs::CreateDirectory(QzCat(dataDir, QzFile::DataRelativeName(QzFile::DataFile::ReportsFolder)).c_str());
    return QzFile::AppendToFile(MergeLogPath(dataDir).c_str(), line.c_str(), line.Length());
}

// The first end tag of the root that is not inside a comment, or -1: rules
// put before a commented-out end tag would be commented out themselves. The
// tag is searched again only once a comment has covered it, so a file of many
// comments is read once, not once per comment.
int32_t FindEndTag(const QzString& text) {
    int32_t tag = text.Find(kEndTag, 0);
    for (int32_t pos = 0;;) {
        const int32_t comment = text.Find("<!--", pos);
        if (tag < 0 || comment < 0 || tag < comment) return tag;
        const int32_t commentEnd = text.Find("-->", comment + 4);
        if (commentEnd < 0) return -1;  // the rest of the text is one open comment
        pos = commentEnd + 3;
        if (tag < pos) tag = text.Find(kEndTag, pos);
    }
}

bool Contains(const std::vector<QzString>& list, const QzString& s) {
    return std::any_of(list.begin(), list.end(), [&](const QzString& x) { return x.Equals(s); });
}

}  // namespace

QzString MandatoryPath(const QzString& dataDir) {
    return QzCat(dataDir, QzFile::DataRelativeName(QzFile::DataFile::MandatoryRules));
}
QzString EditablePath(const QzString& dataDir) {
    return QzCat(dataDir, QzFile::DataRelativeName(QzFile::DataFile::EditableRules));
}
QzString MergeLogPath(const QzString& dataDir) {
    return QzCat(dataDir, QzFile::DataRelativeName(QzFile::DataFile::RulesMergeLog));
}
QzString QzInfoPath(const QzString& dataDir) {
    return QzCat(dataDir, QzFile::DataRelativeName(QzFile::DataFile::Settings));
}

bool MakeSureRuleFilesExist(const QzString& dataDir, bool* editableChangedRet) {
    if (editableChangedRet) *editableChangedRet = false;
    bool allThere = true;

    const QzString editable = EditablePath(dataDir);
    if (QzFile::FileExists(editable.c_str())) {
        Log(QzCat("MakeSureExcludeRulesFilesExistIn_qzdata_Folder - fileName already exists=", editable));
    } else if (!WriteFileWhole(editable, QzRuleTexts::EditableText())) {
        allThere = false;
    } else {
        if (editableChangedRet) *editableChangedRet = true;
        Log("MakeSureExcludeRulesFilesExistIn_qzdata_Folder - created editable rules so must reapply the "
            "entire list "
            "of merged editable rules.");
        MoveMergeLogAside(dataDir);
        MergeEditableRuleBlocks(dataDir);
    }

    const QzString mandatory = MandatoryPath(dataDir);
    if (QzFile::FileExists(mandatory.c_str())) {
        Log(QzCat("MakeSureExcludeRulesFilesExistIn_qzdata_Folder - fileName already exists=", mandatory));
    } else if (!WriteFileWhole(mandatory, QzRuleTexts::MandatoryText())) {
        allThere = false;
    }
    return allThere;
}

bool MergeEditableRuleBlocks(const QzString& dataDir) {
    Log("Entering MakeSureAllEditableExcludeRuleBlocksAreMerged");
    const QzString path = EditablePath(dataDir);
    if (!QzFile::FileExists(path.c_str())) {
        Log(
            QzCat("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, editable rules file does not exist "
                  "fileName=",
                  path, ", bailing out with false - nothing modified"));
        return false;
    }
    QzString text, err;
    if (!QzFile::ReadEntireFile(path.c_str(), &text, &err)) {
        Log(QzCat(
            "ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, file exists, but could not read editable "
            "rules fileName=",
            path));
        return false;
    }
    if (text.Length() < kShortestRuleFile) {
        Log(QzCat(
            "ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, file exists, read in, but length too short "
            "for editable rules fileName=",
            path));
        return false;
    }
    if (FindEndTag(text) < 0) {
        Log(
            QzCat("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, file exists, some content exists, "
                  "but no end "
                  "tag </qzexclusions> inside editable rules fileName=",
                  path));
        return false;
    }
    const QzString logPath = MergeLogPath(dataDir);
    std::vector<QzString> merged;
    if (!ReadMergedBlocks(logPath, &merged)) return false;

    const QzString& blocks = QzRuleTexts::MergeBlocksText();
    std::vector<QzString> rules;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(blocks.c_str(), blocks.Length(), "excludefname_rule",
                                                  &rules);
    int inserted = 0;
    for (size_t i = 0; i < rules.size(); ++i) {
        const QzString& rule = rules[i];
        const auto index = static_cast<long long>(i);
        QzString block, plat;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(rule, "qzmergeblock", &block) || block.IsEmpty()) {
            Log(
                QzCat("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, impossible path_A, a mergable "
                      "rule has no "
                      "qzmergeblock, index=",
                      index));
            continue;
        }
        if (Contains(merged, block)) {
            Log(QzCat("MakeSureAllEditableExcludeRuleBlocksAreMerged, skipping rule because qzmergeblock=",
                      block, " was already merged at some point in the past, index=", index));
            continue;
        }
        if (!AppendMergeLogLine(dataDir, block))
            Log(QzCat(
                "ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, VERY_BAD failed to append log line to "
                "merge_log which will result in duplicate editable rules merges, logFileName=",
                logPath));
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(rule, "plat", &plat)) {
            Log(
                QzCat("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, very bad path_C, a mergable rule "
                      "has no "
                      "plat, index=",
                      index));
            continue;
        }
        if (!plat.Equals("win")) {
            Log(QzCat(
                "MakeSureAllEditableExcludeRuleBlocksAreMerged, skipping over mergable rule because plat=",
                plat, " is not our platform=", "win",
                " (this is fine and expected for some rules), skipping this mergableItem index=", index));
            continue;
        }
        const int32_t end = FindEndTag(text);
        if (end < 10) {
            Log(
                QzCat("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, impossible path_D, no end tag "
                      "</qzexclusions> after the first 10 characters of fileName=",
                      path, ", index=", index));
            continue;
        }
        QzString next(text.c_str(), end);
        next.Append(QzCat(rule, "\n"));
        next.Append(text.c_str() + end, text.Length() - end);
        text = std::move(next);
        ++inserted;
    }
    if (inserted == 0) {
        Log(
            QzCat("MakeSureAllEditableExcludeRuleBlocksAreMerged, no rules were merged into RAM, so not "
                  "writing file "
                  "out to disk, fName=",
                  path));
        Log("Leaving MakeSureAllEditableExcludeRuleBlocksAreMerged, returning false - no files were "
            "modified.");
        return false;
    }
    QzFile::ReplacePolicy policy;
    policy.moveAttempts = kSwapAttempts;
    policy.pauseMillis = kSwapPauseMillis;
    policy.logName = nullptr;
    policy.onMoveFailure = [&](int attempt) {
        if (attempt < kSwapAttempts)
            Log(QzCat("WARNING - MakeSureAllEditableExcludeRuleBlocksAreMerged, attempt=", attempt,
                      " failed one attempt but will retry to swap in newly updated fileName=", path));
    };
    QzFile::ReplaceResult r;
    if (!QzFile::WriteFileAtomically(path, text, policy, &r)) {
        if (!r.written)
            Log(QzCat(
                "ERROR - MakeSureAllEditableExcludeRuleBlocksAreMerged, failed to write tmp fileNameTmp=",
                path, ".tmp"));
        else
            Log(QzCat("ERROR - MakeSureAllEditableExcludeRuleBlocksAreMerged, attempt=", r.moveAttempts,
                      " failed after many attempts to swap in newly updated fileName=", path));
        return false;
    }
    Log(QzCat(
        "MakeSureAllEditableExcludeRuleBlocksAreMerged, successfully swapped in newly_updated fileName=",
        path));
    Log("Leaving MakeSureAllEditableExcludeRuleBlocksAreMerged, returning true - succesfully merged some "
        "rules and "
        "updated file.");
    return true;
}

}  // namespace QzRuleFiles
