// The registry against the volumes attached now: giving a volume its
// identity, the refresh (which also makes the settings' selection follow a
// volume to a new drive letter), duplicate identities, and the one-line state
// summary for the log and support engineers.
#include <cstddef>

#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileXml.h"
#include "QzInfoManager.h"
#include "QzInfoXml.h"
#include "QzTime.h"
#include "QzUiUtil.h"
#include "QzUiUtilInternal.h"
#include "QzUtil.h"

using namespace QzUiUtilInternal;

namespace {

constexpr const char* kRefresh = "QzVolumesXml_QueryAttachDrives_UpdateQzVolXml";

bool HasGuid(const QzVolumeInfo& v) {
    return v.volumeGuid.Length() == 28;
}

const QzVolumeInfo* FindAttached(const std::vector<QzVolumeInfo>& attached, const QzString& vguid) {
    for (const QzVolumeInfo& v : attached)
        if (HasGuid(v) && v.volumeGuid.Equals(vguid)) return &v;
    return nullptr;
}

// The attached volume that stands for an identity: the one at `preferred`
// when one is (so that a clone attached elsewhere does not move it), else the
// first in drive-letter order.
const QzVolumeInfo* ChooseVolume(const std::vector<const QzVolumeInfo*>& accepted, const QzString& vguid,
                                 const QzString& preferred) {
    const QzVolumeInfo* first = nullptr;
    for (const QzVolumeInfo* v : accepted) {
        if (!v->volumeGuid.Equals(vguid)) continue;
        if (QzInfoManager::SameMountPoint(v->mountPoint, preferred)) return v;
        if (!first) first = v;
    }
    return first;
}

// Where a volume selected for backup now sits at another mount point, the
// settings' "qzvolume" element is made to name the new one. A selection is
// left alone while a volume with its identity is attached at its mount point.
// True when the settings were rewritten.
bool RepairSelectedMountPoints(const std::vector<const QzVolumeInfo*>& accepted) {
    const QzString path = QzInfoManager::QzInfoXmlPath();
    QzString text;
    if (QzInfoManager::ReadQzInfoXmlText(path, &text) != QzFile::ReadStatus::Ok) return false;
    const int fixes = QzInfoManager::EditVolumeRefs(
        &text, QzInfoManager::kSelectedVolume,
        [&](const QzInfoManager::QzInfoVolumeRef& ref, QzString*, QzString* mount) {
            if (!ref.hasGuid || !ref.hasMount) return false;
            const QzVolumeInfo* v = ChooseVolume(accepted, ref.vguid, ref.mountPoint);
            if (!v || QzInfoManager::SameMountPoint(v->mountPoint, ref.mountPoint)) return false;
            Log("INFO", kRefresh, "self repairing sel for backup mountPoint:",
                QzCat(ref.mountPoint, " now ", v->mountPoint, ", volumeId:", ref.vguid));
            *mount = v->mountPoint;
            return true;
        });
    if (fixes == 0) return false;
    if (!QzInfoManager::WriteQzInfoXmlText(path, text)) {
        Log("ERROR", kRefresh, "could not write the repaired selection into qzinfo.xml: ", path);
        return false;
    }
    QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile();  // the process goes on with the corrected
                                                                 // selection
    return true;
}

// "C" for a drive root, else the mount point without its trailing backslash.
QzString ShortMount(const QzString& mountPoint) {
    QzString s(mountPoint);
    if (s.Length() == 3 && s[1] == ':')
        s.Truncate(1);
    else if (s.Last() == '\\')
        s.Truncate(s.Length() - 1);
    return s;
}

void AppendListItem(QzString& list, const QzString& item) {
    if (!list.IsEmpty()) list.AppendChar(',');
    list.Append(item);
}

}  // namespace

namespace QzUiUtil {

bool QzVolumesXml_AssignNewQzVolumeGuidToVolume(const QzString& mountPoint) {
    constexpr const char* kFn = "QzVolumesXml_AssignNewQzVolumeGuidToVolume";
    const QzString& hguid = QzFile::GetMyHostGuid();
    if (hguid.Equals(QzFile::kUnknownHostGuid)) {
        Log("ERROR", kFn,
            "this machine's hguid is unknown, so not marking the volume as ours, mountPoint=", mountPoint);
        return false;
    }
    // A marker that exists but cannot be read may well hold the volume's
    // identity; replacing it would make its backup look like a new drive's.
    const QzString marker = QzFile::GetQzVolIdFileOfVolume(mountPoint);
    QzString markerText;
    if (QzFile::ReadFilePatiently(marker.c_str(), &markerText) == QzFile::ReadStatus::Held) {
        Log("ERROR", kFn,
            "qzvol_id.xml exists but could not be read, so not replacing it, fileName=", marker);
        return false;
    }
    // The short id, the marker and the registry entry are one step for other processes.
    VolumesXmlLock lock(kFn);
    if (!lock.Held()) return false;
    QzString vguid, token;
    if (!QzVolumesXml_CreateNewQzVolumeGuid(&vguid)) {
        Log("ERROR", kFn, "could not create a new vGuid for mountPoint=", mountPoint);
        return false;
    }
    if (!QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume(mountPoint, vguid, hguid, &token)) {
        Log("ERROR", kFn, "could not write the vGuid onto the volume, mountPoint=",
            QzCat(mountPoint, ", errToken=", token));
        return false;
    }
    if (!QzVolumesXml_AddNewQzVolumeGuid(vguid, mountPoint)) {
        // An identity the registry does not record could be handed out again:
        // the volume goes back to having none.
        Log("ERROR", kFn,
            "could not add the vGuid to qzvolumes.xml, so removing it from the volume, mountPoint=",
            QzCat(mountPoint, ", vGuid=", vguid));
        QzFile::DeleteFileIfExists(marker.c_str());
        return false;
    }
    return true;
}

bool QzVolumesXml_QueryAttachDrives_UpdateQzVolXml() {
    VolumesXmlLock lock(kRefresh);
    if (!lock.Held()) return false;
    VolumesXml reg;
    const QzFile::ReadStatus status = ReadVolumesXml(&reg);
    if (status == QzFile::ReadStatus::Held) {
        Log("ERROR", kRefresh, "qzvolumes.xml is held by another program, so leaving it as it was");
        return false;
    }
    if (status != QzFile::ReadStatus::Ok) {
        // Missing or malformed: rebuilt from the attached volumes, counting
        // short ids on from where a damaged file left off.
        QzLog::WriteLine(
            "QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile failed, so will regenerate qzvolumes.xml from "
            "scratch self-repair");
        reg.entries.clear();
    }
    std::vector<QzVolumeInfo> attached;
    if (!QueryAllAttachedVolumesForVolumeInfo(&attached)) {
        Log("ERROR", kRefresh,
            "QzUiUtil::QueryAllAttachedVolumesForVolumeInfo failed, so not updating qzvolumes.xml");
        return false;
    }
    DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(attached);
    const QzString& mine = QzFile::GetMyHostGuid();
    const int64_t now = QzTime::GetCurrentGmtMillis();
    std::vector<const QzVolumeInfo*> accepted;
    for (const QzVolumeInfo& v : attached) {
        if (!HasGuid(v)) continue;
        if (!v.associatedHguid.Equals(mine)) {
            Log("WARNING", kRefresh, "hGuid mis-match on drive",
                QzCat(" ", v.mountPoint, ", myHguid=", mine, ", driveAssociatedHguid=", v.associatedHguid));
            continue;
        }
        accepted.push_back(&v);
    }
    for (const QzVolumeInfo* a : accepted) {
        QzVolumesXmlEntry* entry = nullptr;
        for (QzVolumesXmlEntry& e : reg.entries)
            if (e.volumeGuid.Equals(a->volumeGuid)) entry = &e;
        // Of two volumes with one identity (a cloned disk) the entry follows
        // the one at its stored mount point, so it does not flip between them.
        if (ChooseVolume(accepted, a->volumeGuid, entry ? entry->mountPoint : QzString()) != a) continue;
        if (!entry) {
            reg.entries.emplace_back();
            entry = &reg.entries.back();
            entry->volumeGuid = a->volumeGuid;
        }
        const QzVolumeInfo& v = *a;
        entry->mountPoint = v.mountPoint;
        entry->typeCode[0] = v.typeCode[0];
        entry->typeCode[1] = v.typeCode[1];
        entry->bytesFree = v.bytesFree;
        entry->bytesUsed = v.bytesUsed;
        entry->bytesTotal = v.bytesTotal;
        entry->lastSeenAttachedGmtMillis = now;
    }
    RepairSelectedMountPoints(accepted);
    if (!WriteVolumesXml(reg)) return false;
    Log("INFO", kRefresh, "updated qzvolumes.xml, ",
        QzCat(static_cast<unsigned long long>(reg.entries.size()), " volumes known, ",
              static_cast<unsigned long long>(accepted.size()), " of them attached now"));
    return true;
}

bool QzVolumesXml_GetListOfHardDrivesToDisplayInGui(std::vector<QzVolumesXmlEntry>* drivesRet) {
    if (!drivesRet) return false;
    drivesRet->clear();
    std::vector<QzVolumeInfo> attached;
    if (!QueryAllAttachedVolumesForVolumeInfo(&attached)) return false;
    std::vector<QzVolumesXmlEntry> known;
    int64_t last = 0;
    QzVolumesXml_ReadQzVolumesXmlFile(&known, &last);  // a missing registry only loses the stored figures
    for (const QzVolumeInfo& v : attached) {
        QzVolumesXmlEntry e;
        for (const QzVolumesXmlEntry& k : known)
            if (HasGuid(v) && k.volumeGuid.Equals(v.volumeGuid)) e = k;
        e.volumeGuid = HasGuid(v) ? v.volumeGuid : QzString();
        e.mountPoint = v.mountPoint;
        e.typeCode[0] = v.typeCode[0];
        e.typeCode[1] = v.typeCode[1];
        e.bytesFree = v.bytesFree;
        e.bytesUsed = v.bytesUsed;
        e.bytesTotal = v.bytesTotal;
        e.lastSeenAttachedGmtMillis = v.timeQueried;
        drivesRet->push_back(std::move(e));
    }
    return true;
}

bool DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(const std::vector<QzVolumeInfo>& volumes) {
    bool found = false;
    for (std::size_t a = 0; a < volumes.size(); ++a) {
        for (std::size_t b = a + 1; b < volumes.size(); ++b) {
            if (volumes[a].volumeGuid.IsEmpty() || !volumes[a].volumeGuid.Equals(volumes[b].volumeGuid))
                continue;
            QzLog::WriteLine(
                QzCat("ERROR: QzUiUtil::DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids "
                      "FOUND_DUPLICATE_VOL_ID: Vol_A_",
                      volumes[a].mountPoint, "__Vol_B_", volumes[b].mountPoint));
            found = true;
        }
    }
    return found;
}

void GetSelectedAndAttachedDriveState(QzString* summaryRet, QzString* abstractRet) {
    QzString ignoredSummary, ignoredAbstract;
    QzString& summary = summaryRet ? *summaryRet : ignoredSummary;
    QzString& abstract = abstractRet ? *abstractRet : ignoredAbstract;
    const bool settingsOk = QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile();
    const std::vector<QzSettings::SelectedVolume>& selected = QzInfoManager::Settings().selectedVolumes;
    std::vector<QzVolumeInfo> attached;
    const bool attachedOk = QueryAllAttachedVolumesForVolumeInfo(&attached);
    const QzString& mine = QzFile::GetMyHostGuid();

    QzString items, sel, att, unpl;
    int unplugged = 0;
    for (const QzSettings::SelectedVolume& s : selected) {
        const QzVolumeInfo* v = FindAttached(attached, s.volumeGuid);
        items.Append(QzCat(" | SEL ", s.mountPointPath, " ", s.volumeGuid));
        AppendListItem(sel, ShortMount(s.mountPointPath));
        if (!v) {
            items.Append(" UNPLUGGED");
            AppendListItem(unpl, ShortMount(s.mountPointPath));
            ++unplugged;
            continue;
        }
        items.Append(" attached");
        if (!v->mountPoint.EqualsIgnoreCase(s.mountPointPath.c_str()))
            items.Append(QzCat(" now at ", v->mountPoint));
        if (v->isSystemBootVolume) items.Append(" system");
    }
    for (const QzVolumeInfo& v : attached) {
        AppendListItem(att, ShortMount(v.mountPoint));
        bool isSelected = false;
        for (const QzSettings::SelectedVolume& s : selected)
            isSelected = isSelected || (HasGuid(v) && s.volumeGuid.Equals(v.volumeGuid));
        int sameGuid = 0;
        for (const QzVolumeInfo& w : attached)
            sameGuid += HasGuid(v) && w.volumeGuid.Equals(v.volumeGuid) ? 1 : 0;
        const bool odd = sameGuid > 1 || (HasGuid(v) && !v.associatedHguid.Equals(mine));
        if (isSelected && !odd) continue;
        items.Append(QzCat(" | ", isSelected ? "SEL " : "AVAIL ", v.mountPoint, " ",
                           HasGuid(v) ? v.volumeGuid : QzString("none"), " ", v.typeCode));
        if (!v.markerError.IsEmpty()) items.Append(QzCat(" marker=", v.markerError));
        if (sameGuid > 1) items.Append(" DUPLICATE_VGUID");
        if (HasGuid(v) && !v.associatedHguid.Equals(mine))
            items.Append(QzCat(" other_hguid=", v.associatedHguid));
    }
    summary = QzCat("selected=", static_cast<unsigned long long>(selected.size()),
                    settingsOk ? "" : " (qzinfo.xml not read)", " attached=");
    if (attachedOk)
        summary.AppendInt(static_cast<int64_t>(attached.size()));
    else
        summary.Append("unknown");
    summary.Append(QzCat(" unplugged=", unplugged, items));
    abstract = QzCat("sel=", sel.IsEmpty() ? "-" : sel.c_str(), " att=", att.IsEmpty() ? "-" : att.c_str(),
                     " unpl=", unpl.IsEmpty() ? "-" : unpl.c_str());
}

}  // namespace QzUiUtil
