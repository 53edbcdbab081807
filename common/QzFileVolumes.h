// Attached volumes and the hidden marker folder that carries each volume's
// identity.
#pragma once

#include <vector>

#include "QzString.h"

struct QzVolumeInfo;

namespace QzFile {

// Fills the record for one mount point; true when the volume can be used.
bool GetInfoAboutAttachedVolume(const QzString& mountPoint, QzVolumeInfo* infoRet);
// One record per usable fixed drive, in drive-letter order.
bool QueryAllAttachedVolumesForVolumeInfo(std::vector<QzVolumeInfo>* volumesRet);

// Writes the hidden ".qzvol" folder (or the data directory's
// "qzvol_system_volume" for the system volume) with "qzvol_id.xml" and
// "README.txt". On failure errTokenRet names the cause ("ERR_NullVguid", ...).
bool WriteVolumeGuidIntoDotQzVolDirOnVolume(const QzString& mountPoint, const QzString& vguid,
                                            const QzString& associatedHguid, QzString* errTokenRet);
// The "qzvol_id.xml" text the system volume would have, from the settings.
bool GetSimulatedRootVolumeContents_qzvol_id_xml(QzString* textRet);
bool CloneQzVolFolderOfSystemVolumeIntoDataDir_IfNeeded();
// True when the mount point is the root of the Windows directory's drive.
bool IsSystemBootVolume(const QzString& mountPoint);
// The folder holding a volume's "qzvol_id.xml", ending in "\": the mount
// point's ".qzvol", or the data directory's "qzvol_system_volume" for the
// system volume.
QzString GetQzVolFolderOfVolume(const QzString& mountPoint);
// The full name of a volume's "qzvol_id.xml".
QzString GetQzVolIdFileOfVolume(const QzString& mountPoint);
// Rewrites the system volume's marker (file name and current text given) so
// that it names this machine's host identifier, and corrects the system
// volume's identifier in "qzinfo.xml" on the way. Null or empty arguments
// log and fail; so does a host identifier of 24 nines.
bool QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder(const QzString* myHguid,
                                                                           const QzString* staleAssocHguid,
                                                                           const QzString* markerFileName,
                                                                           const QzString* markerContents);

}  // namespace QzFile
