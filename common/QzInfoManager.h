// QzInfoManager: the user's settings from "qzinfo.xml", and the exclusion
// rules built from the rule files and those settings.
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"
#include "QzVolumeInfo.h"

// The settings the client's control panel writes; filled by
// ReadControlPanelSettingsFromQzInfoXmlFile, defaults until then.
struct QzSettings {
    uint32_t numDaysWarnIfNoBackup = 7;
    bool allowNetworkTests = false;
    bool useTimeMachineExcludes = false;
    bool showHelpTips = false;
    bool lockSchedule = false, lockExclusion = false, lockPEK = false;
    int backupScheduleType = 1;  // 1 when the file gives no value
    QzString backupScheduleDetail = "none";
    QzString backupScheduleEndHour;
    QzString onlineHostname = "none";
    QzString qzLogin = "unknown";
    QzString onlineHostnameUpdated;
    std::vector<QzString> excludeFileTypes;
    QzString scratchMountpoint, scratchVolGuid;
    int64_t maxFileSizeMb = 4000;  // "none": 1000000000
    bool backupOnBattery = false;
    bool netAutoThrottle = true;
    QzString netThrottle;
    int numBackupThreads = 1;
    QzString smartWatchFileSets;
    std::vector<QzString> blockedNetworkNames, blockedNetworkMacAddrs;
    struct SelectedVolume {
        QzString volumeGuid;
        QzString mountPointPath;
    };
    std::vector<SelectedVolume> selectedVolumes;  // the "qzvolume" entries, duplicates removed
    // Kept for the exclusion rules and file sets, in file order.
    struct DirFilter {
        QzString dir;         // empty when the element has none
        QzString whichFiles;  // empty when the element has none
    };
    std::vector<DirFilter> dirFilters;     // every "qzdirfilter" element
    std::vector<QzString> doBackupBlocks;  // every "do_backup" element, whole
};

namespace QzInfoManager {

// ---- settings ----
// Resets every setting to its default, then reads "qzinfo.xml"; false when
// the file is missing or unreadable (the defaults stay).
bool ReadControlPanelSettingsFromQzInfoXmlFile();
const QzSettings& Settings();
// The attached volumes that the settings select for backup.
bool GetVolumesSelectedForBackup(std::vector<QzVolumeInfo>* volumesRet);
// True when the text is a well-formed volume GUID ("v" + 27 lower-case
// hexadecimal digits or letters, 28 characters in all).
bool IsWellFormedVolumeGuid(const QzString& vguid);

// ---- exclusion rules ----

}  // namespace QzInfoManager
