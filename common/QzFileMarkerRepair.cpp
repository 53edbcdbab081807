// Repair of the system volume's marker when it names another machine's host
// identifier (after a reinstall, or a data directory carried to a new
// machine), and the opportunistic corrections of the system volume's
// identifier in "qzinfo.xml" made on the same occasion.
#include <vector>

#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzLog.h"
#include "QzUtil.h"

namespace QzFile {

namespace {

constexpr const char* kFn = "QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder";

void Log(const char* level, const QzString& text) {
    QzLog::WriteLine(QzCat(level, kFn, " ", text));
}

bool IsNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == ':' || c == '.';
}

// Replaces text[pos, pos + len) by `with`.
QzString Splice(const QzString& text, int32_t pos, int32_t len, const QzString& with) {
    QzString out(text.c_str(), pos);
    out.Append(with);
    out.Append(text.c_str() + pos + len);
    return out;
}

// Replaces the value of the first attribute `name` (the reader's rule: not
// the tail of a longer name); false when the attribute is not there.
bool ReplaceAttrValue(QzString* text, const char* name, const QzString& value) {
    const QzString key = QzCat(name, "=\"");
    for (int32_t at = text->Find(key.c_str()); at >= 0; at = text->Find(key.c_str(), at + 1)) {
        if (at > 0 && IsNameChar((*text)[at - 1])) continue;
        const int32_t start = at + key.Length();
        const int32_t end = text->Find("\"", start);
        if (end < 0) return false;
        QzString escaped;
        QzUtil::AppendXmlEscaped(escaped, value);
        *text = Splice(*text, start, end - start, escaped);
        return true;
    }
    return false;
}

bool SameMountPoint(const QzString& a, const QzString& b) {
    QzString x(a), y(b);
    if (x.Last() == '\\' || x.Last() == '/') x.Truncate(x.Length() - 1);
    if (y.Last() == '\\' || y.Last() == '/') y.Truncate(y.Length() - 1);
    return !x.IsEmpty() && x.EqualsIgnoreCase(y.c_str());
}

// Corrects, in the settings text, every element of `tag` that names the
// system volume with another identifier. Returns how many were corrected;
// `namesSystem` tells whether any element named the system volume at all.
int CorrectElements(QzString* text, const char* tag, const char* guidAttr, const char* mountAttr,
                    const QzString& systemMount, const QzString& vguid, bool* namesSystem) {
    std::vector<QzString> snippets;
    GetAllXmlSnippetsWithTagNameInXmlText(text->c_str(), text->Length(), tag, &snippets);
    int fixes = 0;
    int32_t from = 0;
    for (const QzString& s : snippets) {
        const int32_t pos = text->Find(s.c_str(), from);
        if (pos < 0) break;
        from = pos + s.Length();
        QzString mount, guid;
        if (!GetUniqueStrAttrFromXmlSnippet(s, mountAttr, &mount) || !SameMountPoint(mount, systemMount))
            continue;
        *namesSystem = true;
        if (!GetUniqueStrAttrFromXmlSnippet(s, guidAttr, &guid) || guid.Equals(vguid)) continue;
        QzString fixed(s);
        if (!ReplaceAttrValue(&fixed, guidAttr, vguid)) continue;
        Log("WARNING: ", QzCat("repairing qzinfo.xml element=", s, ", with=", fixed));
        *text = Splice(*text, pos, s.Length(), fixed);
        from = pos + fixed.Length();
        ++fixes;
    }
    return fixes;
}

// The opportunistic part: the settings should name the system volume with
// its correct identifier everywhere, and select it for backup.
void RepairQzInfo(const QzString& qzinfo, const QzString& systemMount, const QzString& vguid) {
    QzString text, err;
    if (!FileExists(qzinfo.c_str()) || !ReadEntireFile(qzinfo.c_str(), &text, &err) || text.Length() < 20) {
        Log("WARNING: ",
            QzCat(
                "skipping the opportunistic repairs, qzinfo.xml missing, unreadable or too small, fileName=",
                qzinfo));
        return;
    }
    bool scratchNamesSystem = false, selected = false;
    int fixes = CorrectElements(&text, "scratch_drive", "scratch_vol_guid", "scratch_mountpoint", systemMount,
                                vguid, &scratchNamesSystem);
    fixes +=
        CorrectElements(&text, "qzvolume", "qzVolumeGuid", "mountPointPath", systemMount, vguid, &selected);
    if (!selected) {
        const QzString line =
            QzCat("<qzvolume qzVolumeGuid=\"", vguid, "\"  mountPointPath=\"", systemMount, "\" />");
        const int32_t end = text.Find("</hard_drives_to_backup>");
        if (end < 0) {
            Log("ERROR: ",
                QzCat("could not insert the SystemVolume, no </hard_drives_to_backup> in fileName=", qzinfo));
        } else {
            Log("INFO: ", QzCat("inserting SystemVolume selected for backup with this xml=", line));
            text = Splice(text, end, 0, QzCat(line, "\n"));
            ++fixes;
        }
    }
    if (fixes == 0) {
        Log("INFO: ", QzCat("VERY_GOOD - did not find ANY incorrect volGuid in qzinfo.xml, so no repairs "
                            "needed, fileName=",
                            qzinfo));
        return;
    }
    const QzString tmp = QzCat(qzinfo, ".tmp");
    if (!WriteEntireFile(tmp.c_str(), text.c_str(), text.Length()) ||
        !AtomicMoveFileWithRetry(tmp.c_str(), qzinfo.c_str())) {
        DeleteFileIfExists(tmp.c_str());
        Log("ERROR: ", QzCat("could not write the repaired qzinfo.xml, fileName=", qzinfo));
        return;
    }
    Log("SUCCESS: ", QzCat("repaired qzinfo.xml with ", fixes, " corrections, fileName=", qzinfo));
}

}  // namespace

bool QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder(const QzString* myHguid,
                                                                           const QzString* staleAssocHguid,
                                                                           const QzString* markerFileName,
                                                                           const QzString* markerContents) {
    const struct {
        const QzString* value;
        const char* name;
    } args[] = {{myHguid, "myHguid"},
                {staleAssocHguid, "assocHguid"},
                {markerFileName, "fileName"},
                {markerContents, "fileContents"}};
    for (const auto& a : args) {
        if (!a.value || a.value->IsEmpty()) {
            Log("ERROR: ", QzCat("NULL ", a.name, ", bailing"));
            return false;
        }
    }
    // Never write the unknown identifier as the owner of the system volume.
    if (myHguid->Length() != 24 || myHguid->Equals(kUnknownHostGuid)) {
        Log("ERROR: ", QzCat("myHguid is not a usable host identifier, bailing, myHguid=", *myHguid));
        return false;
    }

    // 1. The data directory is what precedes "qzvol_system_volume\qzvol_id.xml".
    const QzString& fileName = *markerFileName;
    QzString trimmed(fileName);
    const int32_t tail = 32;  // "qzvol_system_volume" + separator + "qzvol_id.xml"
    const bool shaped =
        fileName.Length() > tail && fileName.EndsWithIgnoreCase("qzvol_id.xml") &&
        (fileName[fileName.Length() - 13] == '\\' || fileName[fileName.Length() - 13] == '/') &&
        QzString(fileName.c_str() + fileName.Length() - tail, 19).EqualsIgnoreCase("qzvol_system_volume");
    if (shaped) trimmed.Truncate(fileName.Length() - tail);
    QzString dataDir(trimmed);
    if (dataDir.Last() == '\\' || dataDir.Last() == '/') dataDir.Truncate(dataDir.Length() - 1);
    if (!shaped || !dataDir.EndsWithIgnoreCase("qzdata")) {
        Log("ERROR: ",
            QzCat("impossible situation, the trimmed fileName does not end in qzdata, trimmedFileName=",
                  trimmed));
        return false;
    }
    const QzString qzinfo = QzCat(dataDir, "\\qzinfo.xml");

    // 2. The correct identifier of the system volume: the settings', else the marker's own.
    const QzString& win = GetWindowsDir();
    const QzString systemMount = QzCat(win.Length() >= 2 ? QzString(win.c_str(), 2) : QzString("C:"), "\\");
    QzString settings, err, vguid;
    std::vector<QzString> snippets;
    if (ReadEntireFile(qzinfo.c_str(), &settings, &err))
        GetAllXmlSnippetsWithTagNameInXmlText(settings.c_str(), settings.Length(), "qzvolume", &snippets);
    for (const QzString& s : snippets) {
        QzString mount, guid;
        if (GetUniqueStrAttrFromXmlSnippet(s, "mountPointPath", &mount) &&
            SameMountPoint(mount, systemMount) && GetUniqueStrAttrFromXmlSnippet(s, "qzVolumeGuid", &guid) &&
            guid.Length() == 28) {
            Log("INFO: ",
                QzCat("very good situation, this xmlSnippet had the SystemVolume mountPointPath and correct "
                      "length qzVolumeGuid, xmlSnippet=",
                      s));
            vguid = guid;
            break;
        }
    }
    if (vguid.IsEmpty()) {
        Log("WARNING: ",
            QzString("never found the system qzVolumeGuid in qzinfo.xml so using the one in qzvol_id.xml"));
        QzString own;
        if (!GetUniqueStrAttrFromXmlSnippet(*markerContents, "vguid", &own)) {
            Log("ERROR: ", QzCat("DOUBLE_ERROR no vguid in qzvol_id.xml either, fileName=", fileName));
        } else if (own.Length() != 28) {
            Log("ERROR: ", QzCat("TRIPLE ERROR the vguid in qzvol_id.xml has the wrong length, vguid=", own));
        } else {
            vguid = own;
        }
    }

    // 3. Rewrite the marker with this machine's identifier (and the correct vguid).
    QzString repaired(*markerContents);
    if (!ReplaceAttrValue(&repaired, "associated_hguid", *myHguid)) {
        Log("ERROR: ", QzCat("no associated_hguid to repair in fileName=", fileName));
        return false;
    }
    if (!vguid.IsEmpty()) ReplaceAttrValue(&repaired, "vguid", vguid);
    const QzString tmp = QzCat(fileName, ".tmp");
    if (!WriteEntireFile(tmp.c_str(), repaired.c_str(), repaired.Length()) ||
        !AtomicMoveFileWithRetry(tmp.c_str(), fileName.c_str())) {
        DeleteFileIfExists(tmp.c_str());
        Log("ERROR: ", QzCat("could not write the repaired marker, fileName=", fileName));
        return false;
    }
    if (!vguid.IsEmpty()) {
        QzLog::WriteLine(QzCat("SUCCESS - ", kFn, " repaired fileName=", fileName));
    } else {
        QzLog::WriteLine(QzCat(
            "PARTIAL_SUCCESS - ", kFn,
            "repaired associated_hguid, but could not correct the SystemVolumeGuid for fileName=", fileName));
    }

    // 4. The settings, on the same occasion.
    if (!vguid.IsEmpty()) RepairQzInfo(qzinfo, systemMount, vguid);
    QzLog::WriteLine(QzCat("DONE_WITH ", kFn, "and the opportunistic repairs, leaving function now."));
    return true;
}

}  // namespace QzFile
