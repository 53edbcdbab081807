#include "QzTopDirs.h"

#include <algorithm>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzFileListing.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzPathAnomaly.h"
#include "QzSystem.h"
#include "QzTime.h"
#include "QzUtil.h"

void QzTopDirs::Add(char flag, const QzString& dir, const QzString& vguid) {
    // Room for 50 entries at first, then in steps of a hundred.
    const size_t n = dirToIndex.size();
    if (n >= dirToIndex.capacity()) {
        const size_t want = n < 50 ? 50 : ((n - 49) / 100) * 100 + 150;
        dirToIndex.reserve(want);
        vGuidToIndex.reserve(want);
    }
    QzString entry;
    entry.Reserve(dir.Length() + 2);
    entry.AppendChar(flag);
    entry.Append(dir);
    dirToIndex.push_back(std::move(entry));
    vGuidToIndex.push_back(vguid);
}

void QzTopDirs::Clear() {
    startAtDir = 0;
    timesMountPointsVerified = 0;
    millisToProduce = 0;
    gmtMillis = 0;
    dirToIndex.clear();
    vGuidToIndex.clear();
    std::fill(secondsToScanEachDir.begin(), secondsToScanEachDir.end(), 0);
    lastFullVerifyEndMillis = 0;
}

namespace QzTopDirsFile {

namespace {

uint32_t Pid() {
    return QzSystem::GetProcessId();
}

// A directory of the first or second level becomes an entry unless it is
// skipped, excluded as a whole by the settings, a reparse point (the walk
// never enters those) or a path the walk's own filters refuse.
bool BecomesEntry(const QzFileInfo& info) {
    QzString why;
    // A name with a line break is logged once, by the writer of the parent's
    // files, which meets it as an entry of its listing; a folder the walk's
    // folder filters refuse is logged here.
    const EntryRefusal refusal = WhyNotAnEntry(info, &why);
    if (refusal == EntryRefusal::Anomaly && !why.IsEmpty()) QzLog::WriteLine(why);
    return refusal == EntryRefusal::None;
}

// The walk lists the root and the top-level folders again and logs what it
// meets there (names that cannot be converted, mounted network folders); the
// builder's own look at them stays quiet, so that each problem is logged once.
bool ListQuietly(const QzString& dir, QzFileInfoList* list) {
    const bool wasOpen = QzLog::IsOpen();
    if (wasOpen) QzLog::Close();
    const bool ok = QzFile::GetListOfFileInfosInDir(&dir, list);
    QzFile::RemoveMountedNetworkFolders(list);
    if (wasOpen)
        QzLog::Open(QzFile::DataPath(QzFile::DataFile::LogBase).c_str(), QzFile::GetDataDir().c_str());
    return ok;
}

}  // namespace

bool ExtractVolumePath(const QzString& dir, QzString* volumeRet) {
    if (dir.Length() < 3 || dir[1] != ':' || dir[2] != '\\') return false;
    const char l = static_cast<char>(dir[0] & ~0x20);
    if (l < 'A' || l > 'Z') return false;
    volumeRet->Set(dir.c_str(), 3);
    return true;
}

EntryRefusal WhyNotAnEntry(const QzFileInfo& info, QzString* whyRet) {
    whyRet->Clear();
    if (!info.isDirectory) return EntryRefusal::NotADirectory;
    if (info.isReparsePoint) return EntryRefusal::ReparsePoint;
    if (IsSkippedTopLevelDir(info.fullPath, whyRet)) return EntryRefusal::SkipList;
    QzString path = info.fullPath;
    if (QzPathAnomaly::CheckEntryPath(&path, QzPathAnomaly::kBackslashPlatform, whyRet) !=
        QzPathAnomaly::EntryVerdict::Keep)
        return EntryRefusal::NameAnomaly;
    if (QzPathAnomaly::CheckDirectoryPath(path, whyRet) != QzPathAnomaly::DirVerdict::Enter)
        return EntryRefusal::Anomaly;
    whyRet->Clear();
    if (QzInfoManager::DirIsExcludedFromBackupInQzInfo(info.fullPath, whyRet))
        return EntryRefusal::ExcludedBySettings;
    return EntryRefusal::None;
}

bool IsSkippedTopLevelDir(const QzString& dir, QzString* wordRet) {
    static const char* const kFromSecondChar[] = {":\\Windows\\", ":\\windows.old\\", ":\\FileHistory\\"};
    static const char* const kAnywhere[] = {
        "\\windows\\",
        "\\windows.old\\",
        "\\Program Files\\",
        "\\Program Files (x86)\\",
        "\\system volume information\\",
        "\\$recycle.bin\\",
        "\\$recycler\\",
        "\\$windows.~bt\\",
        "\\$windows.~ws\\",
        "\\wd smartware.swstor\\",
        "\\wdsmartware.swstor\\",
        "\\wdbackup.swstor\\",
        "\\recycler\\",
        "\\msocache\\",
        "\\users\\all users\\microsoft help\\",
        "\\i386\\",
    };
    const QzString withSep = QzCat(dir, "\\");
    if (withSep.Length() > 1) {
        const QzString fromSecond(withSep.c_str() + 1, withSep.Length() - 1);
        for (const char* p : kFromSecondChar) {
            if (!fromSecond.StartsWithIgnoreCase(p)) continue;
            if (wordRet) wordRet->Set(p);
            return true;
        }
    }
    for (const char* p : kAnywhere) {
        if (!withSep.ContainsIgnoreCase(p)) continue;
        if (wordRet) wordRet->Set(p);
        return true;
    }
    return false;
}

bool ScanDiskAndCreateTopDirsListInRam(QzTopDirs* topDirs, const QzVolumeInfo* elevatedVolume) {
    topDirs->Clear();
    topDirs->gmtMillis = QzTime::GetCurrentGmtMillis();
    std::vector<QzVolumeInfo> volumes;
    QzInfoManager::GetVolumesSelectedForBackup(&volumes);
    for (const QzSettings::SelectedVolume& sel : QzInfoManager::Settings().selectedVolumes) {
        const bool attached = std::any_of(volumes.begin(), volumes.end(), [&](const QzVolumeInfo& v) {
            return v.volumeGuid.Equals(sel.volumeGuid) &&
                   v.mountPoint.EqualsIgnoreCase(sel.mountPointPath.c_str());
        });
        if (!attached)
            QzLog::WriteLine(QzCat("WARNING: ScanDiskAndCreateTopDirsListInRam, volume: ", sel.mountPointPath,
                                   " is not currently attached OR SOMEBODY REMOVED THE \".qzvol\"",
                                   " dir at the top level of the drive, so removing it from scan"));
    }
    if (volumes.empty()) {
        QzLog::WriteLine(QzCat("ERROR: ScanDiskAndCreateTopDirsListInRam processId=", Pid(),
                               ", no drives selected", "for backup, exiting..."));
        return false;
    }
    // The elevated volume's list is made first.
    if (elevatedVolume) {
        std::stable_partition(volumes.begin(), volumes.end(), [&](const QzVolumeInfo& v) {
            return v.volumeGuid.Equals(elevatedVolume->volumeGuid);
        });
    }

    QzFileInfoList top, second;
    for (const QzVolumeInfo& vol : volumes) {
        if (vol.volumeGuid.IsEmpty())
            QzLog::WriteLine(QzCat("ERROR: ScanDiskAndCreateTopDirsListInRam, could not find",
                                   "associated volume for path:", vol.mountPoint));
        topDirs->Add(QzTopDirs::kRootFlag, vol.mountPoint, vol.volumeGuid);
        if (!ListQuietly(vol.mountPoint, &top)) {
            QzLog::WriteLine(QzCat("ERROR: processId=", Pid(),
                                   ", GetListOfFileInfosInDir failed for TOP: ", vol.mountPoint));
        }
        for (int32_t i = 0; i < top.Count(); ++i) {
            const QzFileInfo& t = *top.At(i);
            if (!BecomesEntry(t)) continue;
            topDirs->Add(QzTopDirs::kFilesOnlyFlag, t.fullPath, vol.volumeGuid);
            if (!ListQuietly(t.fullPath, &second)) {
                QzLog::WriteLine(QzCat("ERROR: GetListOfFileInfosInDir failed for SECOND: ", t.fullPath));
            }
            for (int32_t k = 0; k < second.Count(); ++k) {
                const QzFileInfo& s = *second.At(k);
                if (BecomesEntry(s)) topDirs->Add(QzTopDirs::kRecursiveFlag, s.fullPath, vol.volumeGuid);
            }
        }
    }
    return true;
}

QzString TopDirsXmlText(const QzTopDirs& t) {
    // next_to_index counts only the entries that are written.
    int64_t next = t.startAtDir;
    for (int32_t i = 0; i < t.startAtDir && i < t.Count(); ++i)
        if (t.dirToIndex[i].IsEmpty() || t.vGuidToIndex[i].IsEmpty()) --next;
    if (next < 0) {
        QzLog::WriteLine(
            QzCat("WARNING: WriteTopDirsXmlFile, processId=", Pid(),
                  " theNextDirToIndex was going to be written out neg: ", static_cast<long long>(next)));
        next = 0;
    }
    QzString text;
    if (text.Capacity() < 50001) text.Reserve(50011);
    text.Append("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n");
    text.Append(QzCat("<stats numtopdirs=\"", t.Count(), "\" num_times_mount_points_verified=\"",
                      static_cast<long long>(t.timesMountPointsVerified), "\" millis_to_produce=\"",
                      static_cast<long long>(t.millisToProduce), "\" next_to_index=\"",
                      static_cast<long long>(next), "\" gmt_millis=\""));
    QzTime::AppendGmtMillisAsHex16(text, t.gmtMillis);
    text.Append("\" gmt_datetime=\"");
    QzTime::AppendDateTime14(text, t.gmtMillis);
    text.Append("\" />\n");
    int32_t num = 0;
    for (int32_t i = 0; i < t.Count(); ++i) {
        if (t.dirToIndex[i].IsEmpty() || t.vGuidToIndex[i].IsEmpty()) continue;
        const int32_t secs =
            i < static_cast<int32_t>(t.secondsToScanEachDir.size()) ? t.secondsToScanEachDir[i] : 0;
        text.Append(QzCat("<dir num=\"", num++, "\" vguid=\"", t.vGuidToIndex[i], "\" secs_to_scan=\"", secs,
                          "\" path=\""));
        QzUtil::AppendXmlEscaped(text, t.dirToIndex[i]);
        text.Append("\" />\n");
    }
    text.Append("</contents>\n");
    return text;
}

bool WriteTopDirsXmlFile(const QzTopDirs& topDirs, const QzString& path) {
    const QzString text = TopDirsXmlText(topDirs);
    QzFile::ReplaceResult result;
    if (!QzFile::WriteFileAtomically(path, text, QzFile::ReplacePolicy{}, &result)) {
        QzLog::WriteLine(QzCat(result.written ? "ERROR: WriteTopDirsXmlFile could not write AtomicMove file: "
                                              : "ERROR: WriteTopDirsXmlFile could not write out file: ",
                               path));
        return false;
    }
    return true;
}

namespace {
// Undoes the writer's escaping of a path (the shared XML reader leaves
// entities as they are).
QzString XmlUnescape(const QzString& in) {
    if (in.Find("&") < 0) return in;
    static const struct {
        const char* entity;
        char c;
    } kEntities[] = {{"&lt;", '<'}, {"&gt;", '>'}, {"&amp;", '&'}, {"&quot;", '"'}, {"&apos;", '\''}};
    QzString out;
    for (int32_t i = 0; i < in.Length();) {
        bool done = false;
        if (in[i] == '&') {
            for (const auto& e : kEntities) {
                const QzString rest(in.c_str() + i);
                if (rest.StartsWith(e.entity)) {
                    out.AppendChar(e.c);
                    i += static_cast<int32_t>(std::char_traits<char>::length(e.entity));
                    done = true;
                    break;
                }
            }
        }
        if (!done) out.AppendChar(in[i++]);
    }
    return out;
}

// The identifier of the selected volume that holds a path, or empty.
QzString VolumeGuidOfPath(const QzString& dir) {
    QzString vol;
    if (!ExtractVolumePath(dir, &vol)) return QzString();
    QzVolumeInfo info;
    if (!QzFile::GetInfoAboutAttachedVolume(vol, &info)) return QzString();
    return info.volumeGuid;
}
}  // namespace

bool ReadTopDirsXmlFile(const QzString& path, QzTopDirs* t) {
    QzString text, err;
    switch (QzFile::ReadFilePatiently(path.c_str(), &text, QzFile::ReadPolicy{}, &err)) {
        case QzFile::ReadStatus::Ok:
            break;
        case QzFile::ReadStatus::Missing:
            QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - file does not exist: ", path));
            return false;
        default:
            QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - file exists but could not be read: ", path));
            return false;
    }
    std::vector<QzString> stats;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "stats", &stats);
    const QzString statsText = stats.empty() ? QzString() : stats[0];
    QzString v;
    int64_t millisToProduce = 0, gmtMillis = 0, next = 0, verified = 0;
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(statsText, "millis_to_produce", &v) ||
        !QzUtil::ParseDecimal(v, &millisToProduce)) {
        QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - no attr millis_to_produce in: ", path));
        return false;
    }
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(statsText, "gmt_millis", &v) ||
        !QzUtil::ParseHex64(v, &gmtMillis)) {
        QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - no attr gmt_millis in: ", path));
        return false;
    }
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(statsText, "next_to_index", &v) ||
        !QzUtil::ParseDecimal(v, &next)) {
        QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - no attr next_to_index in: ", path));
        return false;
    }
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(statsText, "num_times_mount_points_verified", &v) ||
        !QzUtil::ParseDecimal(v, &verified)) {
        QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - no attr num_times_mount_points_ver:", path));
        return false;
    }
    if (next < 0) {
        QzLog::WriteLine(
            QzCat("WARNING: ReadTopDirsXmlFile, processId=", Pid(),
                  " stat_nextDirToIndex was read out neg, fixed to zero: ", static_cast<long long>(next)));
        next = 0;
    }
    std::vector<QzString> dirs;
    if (!QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "dir", &dirs)) {
        QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - could not find any \"<dir \" in:", path));
        return false;
    }
    std::vector<int32_t> secs = std::move(t->secondsToScanEachDir);
    t->secondsToScanEachDir.clear();
    t->Clear();
    t->secondsToScanEachDir = std::move(secs);
    std::fill(t->secondsToScanEachDir.begin(), t->secondsToScanEachDir.end(), 0);
    t->millisToProduce = millisToProduce;
    t->gmtMillis = gmtMillis;
    t->timesMountPointsVerified = verified;
    for (const QzString& d : dirs) {
        QzString p, vguid, s;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(d, "path", &p)) {
            QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - no attr path in: ", path));
            return false;
        }
        p = XmlUnescape(p);
        if (p.IsEmpty()) continue;
        const QzString dir(p.c_str() + 1, p.Length() - 1);
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(d, "vguid", &vguid)) {
            QzLog::WriteLine(QzCat("WARNING: ReadTopDirsXmlFile - no attr vguid in: ", path));
            vguid = VolumeGuidOfPath(dir);
            if (vguid.IsEmpty())
                QzLog::WriteLine(QzCat("ERROR: ReadDiskAndCreateTopDirsListInRam, could not find",
                                       "associated volume for path:", dir));
        }
        int64_t secsToScan = 0;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(d, "secs_to_scan", &s) ||
            !QzUtil::ParseDecimal(s, &secsToScan))
            QzLog::WriteLine(QzCat("ERROR: ReadTopDirsXmlFile - no secs_to_scan in: ", path));
        const int32_t index = t->Count();
        t->Add(p[0], dir, vguid);
        if (index < static_cast<int32_t>(t->secondsToScanEachDir.size()))
            t->secondsToScanEachDir[index] = static_cast<int32_t>(secsToScan);
    }
    t->startAtDir = static_cast<int32_t>(std::min<int64_t>(next, t->Count()));
    return true;
}

bool VerifyMountPointsAndCorrectTopDirs(QzTopDirs* t, const QzString* optTriggerDir) {
    QzLog::WriteLine(QzCat("Entering VerifyMountPointsAndCorrectTopDirs processId=", Pid(), " optTriggerDir=",
                           optTriggerDir ? *optTriggerDir : QzString("NULL"), ", numTopDirs=", t->Count()));
    ++t->timesMountPointsVerified;
    const int64_t now = QzTime::GetCurrentGmtMillis();
    if (t->timesMountPointsVerified > 20 && now - t->lastFullVerifyEndMillis < 300000) {
        QzLog::WriteLine(QzCat("WARNING: VerifyMountPointsAndCorrectTopDirs - called ",
                               static_cast<long long>(t->timesMountPointsVerified),
                               " times and within 5 min so returning TRUE without running: "));
        return true;
    }
    if (optTriggerDir) {
        bool found = false;
        for (const QzString& e : t->dirToIndex) {
            if (e.Length() == optTriggerDir->Length() + 1 && QzString(e.c_str() + 1).Equals(*optTriggerDir)) {
                found = true;
                break;
            }
        }
        if (!found) {
            QzLog::WriteLine(QzCat("did not find triggerDir in topDirs so short circuit:", *optTriggerDir));
            return true;
        }
    }
    std::vector<QzVolumeInfo> attached;
    if (!QzFile::QueryAllAttachedVolumesForVolumeInfo(&attached)) {
        QzLog::WriteLine(QzCat("ERROR: VerifyMountPointsAndCorrectTopDirs - ",
                               "QzFile::QueryAllAttachedVolumesForVolumeInfo failed"));
        t->lastFullVerifyEndMillis = QzTime::GetCurrentGmtMillis();
        return true;
    }
    bool changed = false;
    for (int32_t i = 0; i < t->Count(); ++i) {
        QzString& entry = t->dirToIndex[i];
        QzString& vguid = t->vGuidToIndex[i];
        if (entry.IsEmpty() || vguid.IsEmpty()) {
            QzLog::WriteLine(
                QzCat("currentVolGuidLength is zero, or currentTopDirLength is zero, optTriggerDir=",
                      optTriggerDir ? *optTriggerDir : QzString("NULL"), ", index=", i));
            continue;
        }
        const QzVolumeInfo* current = nullptr;
        for (const QzVolumeInfo& v : attached)
            if (v.volumeGuid.Equals(vguid)) current = &v;
        const QzString dir(entry.c_str() + 1, entry.Length() - 1);
        QzString vol;
        const bool onVolume = ExtractVolumePath(dir, &vol);
        if (current && onVolume && current->mountPoint.EqualsIgnoreCase(vol.c_str())) continue;
        QzLog::WriteLine(
            QzCat("VerifyMountPointsAndCorrectTopDirs - Missing volume of dir=", dir, ", vGuid=", vguid));
        changed = true;
        if (current && onVolume) {
            // The volume is attached at another mount point: the entry follows it.
            entry = QzCat(QzString(entry.c_str(), 1), current->mountPoint, dir.c_str() + vol.Length());
        } else {
            entry.Clear();
            vguid.Clear();
        }
    }
    t->lastFullVerifyEndMillis = QzTime::GetCurrentGmtMillis();
    return !changed;
}

}  // namespace QzTopDirsFile
