// -explainfile: why a file is or is not backed up, in a plain-text report a
// support engineer can read out on the phone. The report follows the scan's
// own order - the run's preconditions, the volume, the top-level list, the
// walk below it, the anomaly filters, the size limit, the exclusion rules -
// and asks the scan's own functions at every step, so that its answer is the
// scan's answer. It names the first thing that keeps the file out, then looks
// the file up in the volume's current list.
#include <cstdio>
#include <vector>

#include "QzCommands.h"
#include "QzDataPaths.h"
#include "QzFastFileReader.h"
#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzFileListWriter.h"
#include "QzFileListing.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzPathAnomaly.h"
#include "QzScanRun.h"
#include "QzScanState.h"
#include "QzTime.h"
#include "QzTopDirs.h"
#include "QzUiUtil.h"
#include "QzVolumeInfo.h"
#include "qzfilelist.h"

namespace {

QzString When(int64_t millis) {
    QzString s;
    QzTime::AppendLogDateTime(s, millis);
    s.Append(" GMT");
    return s;
}

// Line (from 1) of a byte offset in a text.
int32_t LineOf(const QzString& text, int32_t offset) {
    int32_t line = 1;
    for (int32_t i = 0; i < offset && i < text.Length(); ++i)
        if (text[i] == '\n') ++line;
    return line;
}

const char* YesNo(bool b) {
    return b ? "yes" : "no";
}

// One directory entry as the scan's listing sees it.
struct Entry {
    bool found = false;
    bool listed = false;         // the parent could be listed
    bool networkFolder = false;  // removed from listings as a mounted network folder
    bool isDirectory = false;
    bool isReparsePoint = false;
    int64_t size = 0;
    int64_t modified = 0;
    int64_t created = 0;
    QzString fullPath;  // as listed (the file system's case)
};

// Lists `dir` and finds `name` in it: the exact name first, else one that
// differs only in case (Windows names are case-insensitive).
Entry LookUp(const QzString& dir, const QzString& name) {
    Entry e;
    QzFileInfoList list;
    if (!QzFile::GetListOfFileInfosInDir(&dir, &list)) return e;
    e.listed = true;
    const QzFileInfo* hit = nullptr;
    for (int32_t i = 0; i < list.Count() && !hit; ++i)
        if (QzString(list.At(i)->Name()).Equals(name)) hit = list.At(i);
    for (int32_t i = 0; i < list.Count() && !hit; ++i)
        if (QzString(list.At(i)->Name()).EqualsIgnoreCase(name.c_str())) hit = list.At(i);
    if (!hit) return e;
    e.found = true;
    e.isDirectory = hit->isDirectory;
    e.isReparsePoint = hit->isReparsePoint;
    e.size = hit->TotalSize();
    e.modified = hit->lastModifiedMillis;
    e.created = hit->createdMillis;
    e.fullPath = hit->fullPath;
    const QzString path = hit->fullPath;
    QzFile::RemoveMountedNetworkFolders(&list);
    bool still = false;
    for (int32_t i = 0; i < list.Count(); ++i)
        if (list.At(i)->fullPath.Equals(path)) still = true;
    e.networkFolder = !still;
    return e;
}

QzFileInfo* ToFileInfo(const Entry& e, QzFileInfo* info) {
    info->isDirectory = e.isDirectory;
    info->isReparsePoint = e.isReparsePoint;
    info->size = e.size;
    info->fullPath = e.fullPath;
    return info;
}

const char* Shown(const QzRuleText& t) {
    return t.isSet ? t.text.c_str() : "*";
}

// A hit of the fast search in a list: "<type>\t...\t<path>" whose last field
// is the path (case-insensitively).
struct ListHit {
    bool found = false;
    int64_t line = 0;
    QzString text;
};

ListHit SearchList(const QzString& listPath, const QzString& filePath, int32_t pathField) {
    ListHit hit;
    QzFastFileReader reader;
    if (!reader.Open(listPath.c_str())) return hit;
    const QzString pattern = QzCat("\t", filePath);
    reader.Grep(pattern.c_str(), true, 1000000, [&](int64_t lineNumber, const char* line, int32_t len, bool) {
        if (hit.found) return;
        int32_t field = 0, start = 0;
        for (int32_t i = 0; i < len && field < pathField; ++i)
            if (line[i] == '\t') {
                ++field;
                start = i + 1;
            }
        if (field != pathField) return;
        const QzString path(line + start, len - start);
        if (path.Length() != filePath.Length() || !path.EqualsIgnoreCase(filePath.c_str())) return;
        hit.found = true;
        hit.line = lineNumber;
        hit.text.Set(line, len);
    });
    return hit;
}

// The start time in a list's header line; false when it has none.
bool ListStart(const QzString& listPath, int64_t* startRet, QzString* secondLineRet) {
    QzFastFileReader reader;
    if (!reader.Open(listPath.c_str())) return false;
    const char* line = nullptr;
    int32_t len = 0;
    if (!reader.NextLine(&line, &len)) return false;
    const QzString header(line, len);
    const char* const kTag = "# GmtMillisThisListWasStarted: ";
    if (!header.StartsWith(kTag)) return false;
    int64_t v = 0;
    int digits = 0;
    for (int32_t i = static_cast<int32_t>(std::char_traits<char>::length(kTag)); i < header.Length(); ++i) {
        const char c = header[i];
        int d = -1;
        if (c >= '0' && c <= '9') d = c - '0';
        if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        if (d < 0) break;
        v = v * 16 + d;
        ++digits;
    }
    if (digits == 0 || digits > 16) return false;
    *startRet = v;
    if (reader.NextLine(&line, &len)) secondLineRet->Set(line, len);
    return true;
}

class Explainer {
public:
    explicit Explainer(const QzString& file) : file_(file) {
        char* d = file_.Data();
        for (int32_t i = 0; i < file_.Length(); ++i)
            if (d[i] == '/') d[i] = '\\';
    }

    void Run();
    const QzString& Report() const { return report_; }
    const QzString& Diagnosis() const { return diagnosis_; }

private:
    void Line(const QzString& text) {
        report_.Append(text);
        report_.AppendChar('\n');
    }
    void Section(const char* title) {
        report_.AppendChar('\n');
        Line(QzString(title));
    }
    // The first thing that keeps the file out is the one the diagnosis names.
    void Exclude(const QzString& why) {
        Line(QzCat("   => NOT BACKED UP: ", why));
        if (excludedBy_.IsEmpty()) excludedBy_ = why;
    }

    bool Preconditions();
    bool Volume();
    bool TopLevelAndWalk();
    void FilePath();
    void Rules();
    void CurrentList();
    QzString RuleSource(const QzExcludeRuleFields& f);
    void Summary();

    QzString file_;  // as given, with "/" as "\"
    QzString report_, diagnosis_, excludedBy_;
    QzString mount_;  // "X:\"
    QzVolumeInfo volume_;
    std::vector<QzString> parts_;  // components below the mount point; the last is the file
    Entry entry_;                  // the file itself
    QzString listedPath_;          // the path as the scan writes it
    QzString qzinfo_;              // the settings text, when readable
    int32_t walkDepthStart_ = 0;   // the depth its covering entry is walked at
    bool singleDirEntry_ = false;  // covered by an entry flagged "0" or "1"
    bool reached_ = false;         // the walk writes a line for it
    int selected_ = -1;            // the rules' decision: 1 selected, 0 excluded, -1 not asked
    bool onList_ = false;
    bool haveList_ = false;
    int64_t listStart_ = 0;
    ListHit listHit_;
};

bool Explainer::Preconditions() {
    Section("1. Does the scan run at all?");
    bool ok = true;
    const QzString settings = QzFile::DataPath(QzFile::DataFile::Settings);
    QzString err;
    const bool haveSettings =
        QzFile::ReadFilePatiently(settings.c_str(), &qzinfo_, {}, &err) == QzFile::ReadStatus::Ok;
    Line(QzCat("   settings file ", settings, ": ", haveSettings ? "read" : "MISSING OR UNREADABLE"));
    if (!haveSettings) {
        Exclude(QzCat("the settings file ", settings, " cannot be read, so no scan runs"));
        ok = false;
    }
    if (QzScanRun::SelfDestructFlagIsSet()) {
        Exclude("the self-destruct flag is set, so no scan runs");
        ok = false;
    }
    if (QzScanRun::IsEndOfLife()) {
        Exclude("this client version has reached end of life, so no scan runs");
        ok = false;
    }
    if (!QzInfoManager::LoadAllExcludeFilenameRulesProperly()) {
        Exclude("the exclusion rules cannot be loaded (see the log), so no scan runs");
        ok = false;
    } else {
        Line(QzCat("   exclusion rules loaded: ", QzInfoManager::ExcludeRuleTree().NumRules(), " rules in ",
                   QzInfoManager::NumUniqueSkipFirstCharRules(), " prefix groups"));
    }
    if (ok) Line("   yes");
    return ok;
}

bool Explainer::Volume() {
    Section("2. The volume");
    if (file_.Length() < 3 || file_[1] != ':' || file_[2] != '\\' ||
        !QzTopDirsFile::ExtractVolumePath(file_, &mount_)) {
        Exclude(
            "the path is not on a local drive (it must begin with a drive letter, a colon and a backslash)");
        return false;
    }
    int32_t from = 3;
    for (int32_t i = 3; i <= file_.Length(); ++i) {
        if (i < file_.Length() && file_[i] != '\\') continue;
        if (i > from) parts_.emplace_back(file_.c_str() + from, i - from);
        from = i + 1;
    }
    Line(QzCat("   mount point: ", mount_));
    const bool usable = QzFile::GetInfoAboutAttachedVolume(mount_, &volume_);
    Line(QzCat(
        "   attached: ", YesNo(volume_.attached), ", type code: ", volume_.typeCode,
        ", volume GUID in its marker: ", volume_.volumeGuid.IsEmpty() ? QzString("none") : volume_.volumeGuid,
        volume_.markerError.IsEmpty() ? QzString() : QzCat(" (", volume_.markerError, ")")));

    // Which settings entry names it.
    const QzSettings& s = QzInfoManager::Settings();
    const std::vector<QzFile::XmlElementAt> elements = QzFile::GetXmlElementsWithOffsets(qzinfo_, "qzvolume");
    bool entryFound = false;
    for (const QzSettings::SelectedVolume& sel : s.selectedVolumes) {
        const bool sameMount = sel.mountPointPath.EqualsIgnoreCase(mount_.c_str());
        const bool sameGuid = !volume_.volumeGuid.IsEmpty() && sel.volumeGuid.Equals(volume_.volumeGuid);
        if (!sameMount && !sameGuid) continue;
        int32_t line = 0;
        for (const QzFile::XmlElementAt& e : elements)
            if (e.text.Contains(sel.volumeGuid.c_str())) {
                line = LineOf(qzinfo_, e.offset);
                break;
            }
        Line(QzCat("   qzinfo.xml entry at line ", line, ": qzVolumeGuid=", sel.volumeGuid,
                   " mountPointPath=", sel.mountPointPath,
                   sameMount && sameGuid ? " (matches this volume)"
                   : sameMount           ? " (same mount point, but the volume there carries another GUID)"
                                         : " (this volume's GUID, but at another mount point)"));
        entryFound = entryFound || (sameMount && sameGuid);
    }
    // The scan's own answer.
    std::vector<QzVolumeInfo> selected;
    QzInfoManager::GetVolumesSelectedForBackup(&selected);
    bool isSelected = false;
    for (const QzVolumeInfo& v : selected)
        if (v.mountPoint.EqualsIgnoreCase(mount_.c_str())) isSelected = true;
    Line(QzCat("   selected for backup: ", YesNo(isSelected)));
    if (isSelected) return true;
    if (!volume_.attached)
        Exclude(QzCat("volume ", mount_, " is not attached right now"));
    else if (volume_.volumeGuid.IsEmpty())
        Exclude(
            QzCat("volume ", mount_, " carries no volume GUID (its .qzvol marker is missing or unreadable)"));
    else if (!entryFound)
        Exclude(
            QzCat("volume ", mount_, " (", volume_.volumeGuid, ") is not selected for backup in qzinfo.xml"));
    else if (!usable)
        Exclude(QzCat("volume ", mount_, " cannot be used right now"));
    else
        Exclude(QzCat("volume ", mount_, " is selected but is not a fixed drive (type code ",
                      volume_.typeCode, "), and only fixed drives are backed up"));
    return false;
}

bool Explainer::TopLevelAndWalk() {
    Section("3. The top-level directory list and the walk");
    if (parts_.empty()) {
        Exclude("the path names the volume itself, not a file");
        return false;
    }
    // Look every directory on the way up, as its parent's listing shows it.
    QzString dir = mount_;
    QzString coverFlag, coverDir;
    const size_t n = parts_.size();
    for (size_t i = 0; i + 1 < n; ++i) {
        const Entry d = LookUp(dir, parts_[i]);
        if (!d.listed) {
            Exclude(QzCat("the folder ", dir, " cannot be listed"));
            return false;
        }
        if (!d.found) {
            Exclude(QzCat("there is no folder ", QzCat(dir, dir.Last() == '\\' ? "" : "\\", parts_[i])));
            return false;
        }
        const QzString& path = d.fullPath;
        if (d.networkFolder) {
            Exclude(QzCat(path, " is a network share mounted into a folder; those are never walked"));
            return false;
        }
        if (i < 2) {
            // A directory of the first or second level: is it an entry?
            QzFileInfo info;
            QzString why;
            const QzTopDirsFile::EntryRefusal r = QzTopDirsFile::WhyNotAnEntry(*ToFileInfo(d, &info), &why);
            switch (r) {
                case QzTopDirsFile::EntryRefusal::None:
                    coverFlag = i == 0 ? "1" : "2";
                    coverDir = path;
                    Line(QzCat("   ", path, ": an entry of the top-level list (",
                               i == 0 ? "its files only" : "its whole tree", ")"));
                    break;
                case QzTopDirsFile::EntryRefusal::NotADirectory:
                    Exclude(QzCat(path, " is a file, not a folder"));
                    return false;
                case QzTopDirsFile::EntryRefusal::ReparsePoint:
                    Exclude(QzCat(path, " is a junction or link; the scan never enters those"));
                    return false;
                case QzTopDirsFile::EntryRefusal::SkipList:
                    Exclude(QzCat(path, " is never scanned: it matches \"", why,
                                  "\" of the folders the top-level list always skips"));
                    return false;
                case QzTopDirsFile::EntryRefusal::NameAnomaly:
                case QzTopDirsFile::EntryRefusal::Anomaly:
                    Exclude(QzCat(path, " is refused by the path filters: ", why));
                    return false;
                case QzTopDirsFile::EntryRefusal::ExcludedBySettings:
                    Exclude(QzCat(path, " is excluded as a whole by ", why));
                    return false;
            }
        } else {
            // Below a second-level entry the recursive walk decides.
            const int depth = QzFileListWriter::DepthOfPath(path);
            QzString altered = path, why;
            const QzPathAnomaly::EntryVerdict v =
                QzPathAnomaly::CheckEntryPath(&altered, QzPathAnomaly::kBackslashPlatform, &why);
            if (!d.isDirectory) {
                Exclude(QzCat(path, " is a file, not a folder"));
                return false;
            }
            if (d.isReparsePoint) {
                Exclude(QzCat(path, " is a junction or link; the scan never enters those"));
                return false;
            }
            if (v == QzPathAnomaly::EntryVerdict::DropCrLf) {
                Exclude(QzCat(path, " has a line break in its name and cannot be walked: ", why));
                return false;
            }
            if (QzPathAnomaly::CheckDirectoryPath(altered, &why) != QzPathAnomaly::DirVerdict::Enter) {
                Exclude(QzCat(path, " is refused by the path filters: ", why));
                return false;
            }
            if (depth > QzScanState::kMaxDepth) {
                Exclude(QzCat(path, " lies deeper than ", QzScanState::kMaxDepth,
                              " levels, where the walk stops"));
                return false;
            }
            Line(QzCat("   ", path, ": walked (depth ", depth, ")"));
        }
        dir = path;
    }
    if (n == 1) {
        coverFlag = "0";
        coverDir = mount_;
        Line(QzCat("   ", mount_, ": the volume root, an entry of the top-level list (its files only)"));
    }
    singleDirEntry_ = n <= 2;

    // The top-level list of the last scan.
    const QzString topDirsPath = QzFile::DataPath(QzFile::DataFile::TopDirs);
    QzTopDirs last;
    if (QzFile::FileExists(topDirsPath.c_str()) && QzTopDirsFile::ReadTopDirsXmlFile(topDirsPath, &last)) {
        int32_t num = -1;
        for (int32_t i = 0; i < last.Count(); ++i) {
            const QzString& e = last.dirToIndex[i];
            if (e.Length() == coverDir.Length() + 1 && e[0] == coverFlag[0] &&
                QzString(e.c_str() + 1).EqualsIgnoreCase(coverDir.c_str()))
                num = i;
        }
        if (num >= 0)
            Line(QzCat("   topdirs.xml of the last scan (made ", When(last.gmtMillis), "): entry num=", num,
                       " \"", last.dirToIndex[num], "\", took ",
                       num < static_cast<int32_t>(last.secondsToScanEachDir.size())
                           ? last.secondsToScanEachDir[num]
                           : 0,
                       " s"));
        else
            Line(QzCat("   topdirs.xml of the last scan (made ", When(last.gmtMillis),
                       ") has no entry for it yet; the next scan's list will"));
    } else {
        Line("   no topdirs.xml yet: no scan has finished on this machine");
    }

    // The file itself.
    entry_ = LookUp(dir, parts_[n - 1]);
    if (!entry_.listed) {
        Exclude(QzCat("the folder ", dir, " cannot be listed"));
        return false;
    }
    if (!entry_.found) {
        Exclude(QzCat("the file does not exist: ", file_));
        return false;
    }
    if (entry_.isDirectory) {
        Exclude(QzCat(entry_.fullPath, " is a folder; lists name files only"));
        return false;
    }
    listedPath_ = entry_.fullPath;
    Line(QzCat("   the file: ", entry_.fullPath, ", ", static_cast<long long>(entry_.size),
               " bytes, modified ", When(entry_.modified), ", created ", When(entry_.created),
               entry_.isReparsePoint ? ", a link (listed with \"s\")" : ""));
    walkDepthStart_ = static_cast<int32_t>(n);
    return true;
}

void Explainer::FilePath() {
    Section("4. The path filters");
    QzString path = entry_.fullPath, why;
    const QzPathAnomaly::EntryVerdict v =
        singleDirEntry_ ? QzPathAnomaly::CheckEntryPathCrLfOnly(&path, &why)
                        : QzPathAnomaly::CheckEntryPath(&path, QzPathAnomaly::kBackslashPlatform, &why);
    if (v != QzPathAnomaly::EntryVerdict::Keep && v != QzPathAnomaly::EntryVerdict::KeepRenamed) {
        Exclude(QzCat("the path filters drop it: ", why));
        return;
    }
    listedPath_ = path;
    reached_ = true;
    Line("   passed: the scan writes a line for it in the volume's list");
}

QzString Explainer::RuleSource(const QzExcludeRuleFields& f) {
    const QzString& set = f.dataSet;
    if (set.Equals("mandatory_rules"))
        return QzCat("the mandatory rule at line ", f.sourceLine,
                     " of qzexcluderules_mandatory.xml (built into the program; the file is its copy)");
    if (set.Equals("editable_rules"))
        return QzCat("the editable rule at line ", f.sourceLine, " of qzexcluderules_editable.xml");
    if (set.Equals("registry_rules"))
        return QzCat("built-in registry rule ", f.sourceLine,
                     " (loaded because the mandatory rule file on disk comes from an older install)");
    if (set.Equals("qzinfo.xml")) {
        if (!f.prefix.isSet) {
            const int32_t at = qzinfo_.Find("excludefiletypes=");
            return QzCat(
                "the excluded file type \"", Shown(f.extension), "\" of the settings (excludefiletypes",
                at >= 0 ? QzCat(" at line ", LineOf(qzinfo_, at), " of qzinfo.xml") : QzString(), ")");
        }
        for (const QzFile::XmlElementAt& e : QzFile::GetXmlElementsWithOffsets(qzinfo_, "qzdirfilter")) {
            QzString dirValue;
            if (!QzFile::GetUniqueStrAttrFromXmlSnippet(e.text, "dir", &dirValue) || dirValue.Length() < 2)
                continue;
            QzString prefix(dirValue.c_str() + 1);
            if (prefix.Last() != '\\') prefix.AppendChar('\\');
            if (prefix.EqualsIgnoreCase(f.prefix.text.c_str()))
                return QzCat("the excluded folder \"", dirValue, "\" of the settings (qzdirfilter at line ",
                             LineOf(qzinfo_, e.offset), " of qzinfo.xml)");
        }
        return QzCat("an excluded folder of the settings (prefix ", Shown(f.prefix), ")");
    }
    return QzCat("a rule of data set ", set, " at line ", f.sourceLine);
}

void Explainer::Rules() {
    Section("5. The size limit and the exclusion rules");
    const int64_t maxBytes = QzInfoManager::Settings().maxFileSizeMb << 20;
    QzRuleTree& tree = QzInfoManager::ExcludeRuleTree();
    const bool wanted = QzInfoManager::UserWantsThisFileBackedUpEx(listedPath_, entry_.size, maxBytes);
    const QzExcludeRuleNode* hit = tree.LastExcludingRule();
    Line(QzCat("   size ", static_cast<long long>(entry_.size), " bytes, limit max_filesize_mb=",
               static_cast<long long>(QzInfoManager::Settings().maxFileSizeMb), " (",
               static_cast<long long>(maxBytes), " bytes): ", maxBytes < entry_.size ? "OVER" : "within"));
    selected_ = wanted ? 1 : 0;
    if (wanted) {
        Line("   no exclusion rule matches: selected for backup");
        return;
    }
    if (!hit) {
        Exclude(QzCat("it is larger than the size limit max_filesize_mb=",
                      static_cast<long long>(QzInfoManager::Settings().maxFileSizeMb), " in qzinfo.xml"));
        return;
    }
    const QzExcludeRuleFields& f = hit->fields;
    Line(QzCat("   matching rule: skipFirstCharThenStartsWith=\"", Shown(f.prefix), "\" hasFileExtension=\"",
               Shown(f.extension), "\" endsWith=\"", Shown(f.endsWith), "\" contains_1=\"",
               Shown(f.contains1), "\" contains_2=\"", Shown(f.contains2), "\""));
    QzString dnc;
    for (const QzString& t : f.doesNotContain) dnc.Append(QzCat(dnc.IsEmpty() ? "" : "|", t));
    Line(QzCat("   doesNotContain=\"", f.hasDoesNotContain ? dnc : QzString("*"), "\", data set ", f.dataSet,
               ", excluded ", static_cast<long long>(hit->hitCount), " path(s) in this run"));
    Exclude(QzCat("excluded by ", RuleSource(f)));
}

void Explainer::CurrentList() {
    Section("6. The volume's current list");
    if (volume_.volumeGuid.IsEmpty()) {
        Line("   the volume has no GUID, so it has no list");
        return;
    }
    QzString listPath;
    QzUiUtil::GetPerVolumeFileListName(volume_.volumeGuid, mount_, &listPath);
    QzString second;
    if (!QzFile::FileExists(listPath.c_str())) {
        Line(QzCat("   no list yet: ", listPath));
    } else if (!ListStart(listPath, &listStart_, &second)) {
        Line(QzCat("   the list cannot be read or has no header: ", listPath));
    } else {
        haveList_ = true;
        Line(QzCat("   list ", listPath, ", started ", When(listStart_)));
        if (second.StartsWith("# Stub")) Line(QzCat("   it is a stub: ", second));
        const QzString& searched = listedPath_.IsEmpty() ? file_ : listedPath_;
        listHit_ = SearchList(listPath, searched, 3);
        onList_ = listHit_.found;
        if (onList_)
            Line(QzCat("   the file is on it, line ", static_cast<long long>(listHit_.line), ": ",
                       listHit_.text));
        else
            Line("   the file is NOT on it");
    }
    const QzString future = QzCat(listPath, ".future");
    if (QzFile::FileExists(future.c_str())) {
        const ListHit f = SearchList(future, listedPath_.IsEmpty() ? file_ : listedPath_, 3);
        Line(QzCat("   a scan is building the next list (", future, "); the file is ",
                   f.found ? "" : "not yet ", "in it"));
    }
    if (entry_.size > QzScanState::kBigFileAbove) {
        const ListHit big = SearchList(QzFile::DataPath(QzFile::DataFile::BigFileList), listedPath_, 2);
        Line(big.found ? QzCat("   large-file list: ", big.text, " (t = selected, f = not)")
                       : QzString("   large-file list: not on it"));
    }
}

void Explainer::Summary() {
    const bool backedUp = excludedBy_.IsEmpty() && reached_ && selected_ == 1;
    if (!excludedBy_.IsEmpty()) {
        diagnosis_ = QzCat("NOT BACKED UP: ", excludedBy_, ".");
        if (onList_)
            diagnosis_.Append(QzCat(" (The list started ", When(listStart_),
                                    " still names it: it was made before this changed.)"));
    } else if (onList_) {
        diagnosis_ = QzCat("BACKED UP: selected for backup, and on the list started ", When(listStart_),
                           " (line ", static_cast<long long>(listHit_.line), ").");
    } else if (!haveList_) {
        diagnosis_ =
            "SELECTED, NOT LISTED YET: selected for backup, but the volume has no list yet; the next scan "
            "makes it.";
    } else if (entry_.created > listStart_ || entry_.modified > listStart_) {
        // A file that existed when the list was made is on it, changed or not.
        const int64_t seen = entry_.created > entry_.modified ? entry_.created : entry_.modified;
        diagnosis_ =
            QzCat("SELECTED, NOT LISTED YET: selected for backup; the file was created or changed ",
                  When(seen), ", after the list was started ", When(listStart_), "; the next scan lists it.");
    } else {
        diagnosis_ =
            QzCat("SELECTED, NOT LISTED: selected for backup, but the list started ", When(listStart_),
                  " does not name it although the file is older; its folder may not have been listable "
                  "during that scan (see the log) or it was moved there since.");
    }
    Section("Summary");
    Line(QzCat("Verdict: ", backedUp && onList_ ? "BACKED_UP"
                            : backedUp          ? "SELECTED_NOT_LISTED_YET"
                                                : "NOT_BACKED_UP"));
    Line(QzCat("ReachedByScan: ", YesNo(reached_)));
    Line(QzCat("SelectedByRules: ", selected_ < 0 ? "not_asked" : YesNo(selected_ == 1)));
    Line(QzCat("OnCurrentList: ", haveList_ ? YesNo(onList_) : "no_list"));
    Line(QzCat("PrimaryDiagnosis: ", diagnosis_));
}

void Explainer::Run() {
    const int64_t now = QzTime::GetCurrentGmtMillis();
    Line("Why is this file backed up or not? (qzfilelist -explainfile)");
    Line(QzCat("File: ", file_));
    Line(QzCat("Made: ", When(now), " by qzfilelist ", kQzFileListVersion, ", data directory ",
               QzFile::GetDataDir()));
    Line("Each step below follows the scan's own order; the first \"=> NOT BACKED UP\" is what decides.");
    const bool runs = Preconditions();
    bool reachable = Volume();
    if (!mount_.IsEmpty()) {
        // The walk and the rules are explained even when an earlier step
        // already keeps the file out: that tells what would happen next.
        const bool walked = TopLevelAndWalk();
        if (walked) FilePath();
        if (entry_.found && !entry_.isDirectory && runs) Rules();
        reachable = reachable && walked && reached_;
    }
    reached_ = reached_ && reachable && runs;
    if (!mount_.IsEmpty()) CurrentList();
    Summary();
}

}  // namespace

int CmdExplainFile(const Args& args) {
    const QzString& file = args[2];
    if (file.Length() < 3) {
        std::printf("\nERROR: file to explain must be at least 3 characters: %s\n", file.c_str());
        return 0;
    }
    // A bare report name goes to the reports folder: a service's working
    // directory is the system folder.
    QzString report = args[3];
    const bool absolute =
        (report.Length() >= 3 && report[1] == ':' && (report[2] == '\\' || report[2] == '/')) ||
        report.StartsWith("\\\\");
    if (!absolute) {
        const QzString folder = QzFile::DataPath(QzFile::DataFile::ReportsFolder);
        QzFile::CreateDirectoryRecursive(folder.c_str());
        report = QzCat(folder, "\\", report);
    }
    QzLog::WriteLine(QzCat("qzfilelist -explainfile for ", file, ", report=", report));
    Explainer ex(file);
    ex.Run();
    if (!QzFile::WriteFileAtomically(report, ex.Report(), QzFile::ReplacePolicy{}, nullptr)) {
        std::printf("\nERROR: could not produce a report, is file writeable:\n%s\n", report.c_str());
        return 0;
    }
    QzLog::WriteLine(QzCat("qzfilelist -explainfile PrimaryDiagnosis: ", ex.Diagnosis()));
    std::printf("\nDone.  Please email Korvatine support this file:\n%s\n\n", report.c_str());
    std::printf("\nPrimaryDiagnosis:\n%s\n\n", ex.Diagnosis().c_str());
    return 0;
}
