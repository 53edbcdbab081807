// The settings file "qzinfo.xml" as text: the one place that reads it from
// disk and the one place that changes it. The client's control panel owns the
// file; this program only corrects the volume identifiers and mount points it
// names, one attribute value at a time, so that everything else in the file
// stays exactly as the control panel wrote it.
//
// This part of QzInfoManager needs nothing but the file utilities, so the
// volume marker code below the settings reader can use it too.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "QzFileRead.h"
#include "QzString.h"

namespace QzInfoManager {

// "qzinfo.xml" of the data directory.
QzString QzInfoXmlPath();
// Reads a settings file patiently: Ok, Missing or Held.
QzFile::ReadStatus ReadQzInfoXmlText(const QzString& path, QzString* textRet,
                                     const QzFile::ReadPolicy& policy = {});
// Replaces the settings file by `text` through ".tmp" and one atomic move.
bool WriteQzInfoXmlText(const QzString& path, const QzString& text);

// The elements of the settings that name a volume by identifier and mount point.
struct QzInfoVolumeKind {
    const char* tag;
    const char* guidAttr;
    const char* mountAttr;
};
extern const QzInfoVolumeKind kSelectedVolume;  // "qzvolume": qzVolumeGuid, mountPointPath
extern const QzInfoVolumeKind kScratchDrive;    // "scratch_drive": scratch_vol_guid, scratch_mountpoint

// One such element with its two values as written (empty when missing).
struct QzInfoVolumeRef {
    QzString element;
    QzString vguid;
    QzString mountPoint;
    bool hasGuid = false;
    bool hasMount = false;
};
std::vector<QzInfoVolumeRef> GetVolumeRefs(const QzString& text, const QzInfoVolumeKind& kind);

// Calls `edit` for each element of the kind, in file order, with its values
// as the new values to fill; where edit returns true, each value that differs
// is written into the element. Returns how many elements were changed.
using QzInfoVolumeEdit =
    std::function<bool(const QzInfoVolumeRef& ref, QzString* vguid, QzString* mountPoint)>;
int EditVolumeRefs(QzString* text, const QzInfoVolumeKind& kind, const QzInfoVolumeEdit& edit);

// Selects a volume for backup: inserts its "qzvolume" line before
// "</hard_drives_to_backup>". False when that end tag is missing.
bool InsertSelectedVolume(QzString* text, const QzString& vguid, const QzString& mountPoint);

// Mount points compared the way the settings spell them: case-insensitively
// and with or without one trailing separator.
bool SameMountPoint(const QzString& a, const QzString& b);

}  // namespace QzInfoManager
