// QzUiUtil: helpers shared with the client's user interface and installer.
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"
#include "QzVolumeInfo.h"

// One volume of the registry of every volume ever given an identity.
struct QzVolumesXmlEntry {
    QzString volumeGuid;  // 28 characters
    QzString mountPoint;
    char typeCode[3] = "un";
    int64_t lastSeenAttachedGmtMillis = 0;
    int64_t bytesFree = 0, bytesUsed = 0, bytesTotal = 0;
};

// One volume's alert record.
struct QzVolDefconRecord {
    QzString volumeGuid;
    QzString mountPoint;
    int32_t defconLevel = 5;
    int32_t lastSeenInDays = 0;
    int32_t lastFileListedInDays = -1;
    int32_t lastFilePushedInDays = 0;
};

namespace QzUiUtil {

// Reads this machine's host identifier from the installer's descriptor.
// Unlike QzFile::GetMyHostGuid it has no fallback: it fails when the file or
// the attribute is missing, and says which in the log.
bool Installer_GetThisMachinesHguid(QzString* hguidRet);

// The same enumeration as QzFile's, for the registry and alert levels.
bool QueryAllAttachedVolumesForVolumeInfo(std::vector<QzVolumeInfo>* volumesRet);

// ---- the volume registry "qzvolumes.xml" ----
bool QzVolumesXml_ReadQzVolumesXmlFile(std::vector<QzVolumesXmlEntry>* entriesRet, int64_t* lastShortIdRet);
bool QzVolumesXml_WriteQzVolumesXmlFile(const std::vector<QzVolumesXmlEntry>& entries, int64_t lastShortId);
bool QzVolumesXml_CreateNewQzVolumeGuid(QzString* vguidRet);
bool QzVolumesXml_AddNewQzVolumeGuid(const QzString& vguid, const QzString& mountPoint);
bool QzVolumesXml_AssignNewQzVolumeGuidToVolume(const QzString& mountPoint);
bool QzVolumesXml_QueryAttachDrives_UpdateQzVolXml();
bool QzVolumesXml_GetListOfHardDrivesToDisplayInGui(std::vector<QzVolumesXmlEntry>* drivesRet);
bool DoAnyCurrentlyAttachedHardDrivesHaveDuplicateVolGuids(const std::vector<QzVolumeInfo>& volumes);

// One line a support engineer can read: which volumes are selected, attached
// or unplugged, with their identifiers; and a short abstract of it.
void GetSelectedAndAttachedDriveState(QzString* summaryRet, QzString* abstractRet);

// ---- per-volume file list names ----
// <data dir>qzfilelists\<vguid>_<mount tag>_filelist.dat
void GetPerVolumeFileListName(const QzString& vguid, const QzString& mountPoint, QzString* nameRet);
bool GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(std::vector<QzString>* namesRet);

// ---- alert levels "qzreports\qzdefcon.xml" ----
bool QzVolDefcon_UpdateQzVolumesDefconXmlFile();
bool QzVolDefcon_HitDisk_ReadQzDefconXmlFile(std::vector<QzVolDefconRecord>* recordsRet,
                                             int32_t* mostCriticalRet);
bool QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile(int32_t* mostCriticalRet,
                                                         std::vector<QzVolDefconRecord>* recordsRet);
bool QzVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(QzVolumeInfo* volumeRet,
                                                                   QzVolDefconRecord* recordRet);
// The level from three ages in days (-1 counts as below every bound).
int32_t QzVolDefcon_LevelFromAges(int32_t lastSeenDays, int32_t lastListedDays, int32_t lastPushedDays);

}  // namespace QzUiUtil
