// Repair of the system volume's marker when it names another machine's host
// identifier (after a reinstall, or a data directory carried to a new
// machine), and the opportunistic corrections of the system volume's
// identifier in "qzinfo.xml" made on the same occasion.
#include <vector>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzInfoXml.h"
#include "QzLog.h"

namespace QzFile {

namespace {

constexpr const char* kFn = "QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder";

void Log(const char* level, const QzString& text) {
    QzLog::WriteLine(QzCat(level, kFn, " ", text));
}

// The opportunistic part: the settings should name the system volume with
// its correct identifier everywhere, and select it for backup.
void RepairQzInfo(const QzString& qzinfo, const QzString& systemMount, const QzString& vguid) {
    using namespace QzInfoManager;
    QzString text;
    if (ReadQzInfoXmlText(qzinfo, &text) != ReadStatus::Ok || text.Length() < 20) {
        Log("WARNING: ",
            QzCat(
                "skipping the opportunistic repairs, qzinfo.xml missing, unreadable or too small, fileName=",
                qzinfo));
        return;
    }
    bool selected = false;
    const auto correct = [&](bool isSelection) {
        return [&, isSelection](const QzInfoVolumeRef& ref, QzString* guid, QzString*) {
            if (!ref.hasMount || !SameMountPoint(ref.mountPoint, systemMount)) return false;
            if (isSelection) selected = true;
            if (!ref.hasGuid || ref.vguid.Equals(vguid)) return false;
            Log("WARNING: ", QzCat("repairing qzinfo.xml element=", ref.element, ", with vguid=", vguid));
            *guid = vguid;
            return true;
        };
    };
    int fixes = EditVolumeRefs(&text, kScratchDrive, correct(false));
    fixes += EditVolumeRefs(&text, kSelectedVolume, correct(true));
    if (!selected) {
        if (!InsertSelectedVolume(&text, vguid, systemMount)) {
            Log("ERROR: ",
                QzCat("could not insert the SystemVolume, no </hard_drives_to_backup> in fileName=", qzinfo));
        } else {
            Log("INFO: ",
                QzCat("inserting SystemVolume selected for backup with this xml=<qzvolume qzVolumeGuid=\"",
                      vguid, "\"  mountPointPath=\"", systemMount, "\" />"));
            ++fixes;
        }
    }
    if (fixes == 0) {
        Log("INFO: ", QzCat("VERY_GOOD - did not find ANY incorrect volGuid in qzinfo.xml, so no repairs "
                            "needed, fileName=",
                            qzinfo));
        return;
    }
    if (!WriteQzInfoXmlText(qzinfo, text)) {
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
        QzString(fileName.c_str() + fileName.Length() - tail, 19)
            .EqualsIgnoreCase(DataRelativeName(DataFile::SystemVolumeMarkerFolder));
    if (shaped) trimmed.Truncate(fileName.Length() - tail);
    QzString dataDir(trimmed);
    if (dataDir.Last() == '\\' || dataDir.Last() == '/') dataDir.Truncate(dataDir.Length() - 1);
    if (!shaped || !dataDir.EndsWithIgnoreCase("qzdata")) {
        Log("ERROR: ",
            QzCat("impossible situation, the trimmed fileName does not end in qzdata, trimmedFileName=",
                  trimmed));
        return false;
    }
    const QzString qzinfo = QzCat(dataDir, "\\", DataRelativeName(DataFile::Settings));

    // 2. The correct identifier of the system volume: the settings', else the marker's own.
    const QzString& win = GetWindowsDir();
    const QzString systemMount = QzCat(win.Length() >= 2 ? QzString(win.c_str(), 2) : QzString("C:"), "\\");
    QzString settings, vguid;
    if (QzInfoManager::ReadQzInfoXmlText(qzinfo, &settings) == ReadStatus::Ok) {
        for (const QzInfoManager::QzInfoVolumeRef& ref :
             QzInfoManager::GetVolumeRefs(settings, QzInfoManager::kSelectedVolume)) {
            if (ref.hasMount && QzInfoManager::SameMountPoint(ref.mountPoint, systemMount) &&
                ref.vguid.Length() == 28) {
                Log("INFO: ",
                    QzCat("very good situation, this xmlSnippet had the SystemVolume mountPointPath and "
                          "correct length qzVolumeGuid, xmlSnippet=",
                          ref.element));
                vguid = ref.vguid;
                break;
            }
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
    if (!SetUniqueStrAttrInXmlSnippet(&repaired, "associated_hguid", *myHguid)) {
        Log("ERROR: ", QzCat("no associated_hguid to repair in fileName=", fileName));
        return false;
    }
    if (!vguid.IsEmpty()) SetUniqueStrAttrInXmlSnippet(&repaired, "vguid", vguid);
    if (!WriteFileAtomically(fileName, repaired)) {
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
