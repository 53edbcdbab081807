// Switches about the registry of known volumes and their alert levels.
#include <cstdio>
#include <vector>

#include "QzCommands.h"
#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzTime.h"
#include "QzUiUtil.h"
#include "QzUtil.h"
#include "QzVolumeInfo.h"

namespace {

void PrintVerdict(const QzString& verdict) {
    std::printf("%s\n", verdict.c_str());
}

// The 16-character label of a volume selected for backup.
const char* SelectedLabel(const QzVolumeInfo* attached) {
    if (!attached) return " (Unplugged)    ";
    return attached->isSystemBootVolume ? " (SystemVolume) " : "                ";
}

// The 16-character label of an attached volume that is not selected, by its type.
const char* AvailableLabel(const char* typeCode) {
    const QzString type(typeCode);
    if (type.Equals("tm")) return "  (TimeMachine) ";
    if (type.Equals("em")) return "  (Empty)       ";
    if (type.Equals("gm")) return "                ";
    return "  (Unknown)     ";
}

// Prints and logs an error of -listvolumestofile; returns the exit code 1.
int ListToFileError(const QzString& message) {
    QzLog::WriteLine(message);
    std::printf("%s\n", message.c_str());
    return 1;
}

}  // namespace

int CmdAssignVolumeGuid(const Args& args) {
    const QzString& arg = args[2];
    QzString mountPoint;
    if (args[1].Equals("-assignvolumeguid_hex")) {
        if (!QzUtil::AppendHexDecoded(mountPoint, arg.c_str(), arg.Length())) mountPoint.Clear();
    } else {
        mountPoint = arg;
    }
    if (mountPoint.IsEmpty()) {
        PrintVerdict(QzCat("FALSE: Unknown situation for arg: ", arg));
        return 0;
    }
    std::vector<QzVolumeInfo> attached;
    if (!QzUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached)) {
        PrintVerdict("FALSE: QueryAllAttachedVolumesForVolumeInfo failed");
        return 0;
    }
    // The volume answers for itself first, which also puts its mount point in
    // the form the enumeration uses ("d:" is "D:\").
    QzVolumeInfo info;
    if (!QzFile::GetInfoAboutAttachedVolume(mountPoint, &info)) {
        PrintVerdict(QzCat("FALSE: Could not find attached volume: ", mountPoint));
        return 0;
    }
    const QzVolumeInfo* listed = nullptr;
    for (const QzVolumeInfo& v : attached)
        if (v.mountPoint.EqualsIgnoreCase(info.mountPoint.c_str())) listed = &v;
    if (!listed) {
        PrintVerdict(QzCat("FALSE: could not find volume in currently attached volList: ", mountPoint));
        return 0;
    }
    if (listed->volumeGuid.Length() == 28) {
        PrintVerdict(QzCat("TRUE: Already had existing vGuid: ", listed->volumeGuid));
        return 0;
    }
    if (!QzUiUtil::QzVolumesXml_AssignNewQzVolumeGuidToVolume(listed->mountPoint)) {
        PrintVerdict(QzCat("FALSE: assign problem, probably could not write to: ", listed->mountPoint));
        return 0;
    }
    QzVolumeInfo after;
    if (!QzFile::GetInfoAboutAttachedVolume(listed->mountPoint, &after) || after.volumeGuid.Length() != 28) {
        PrintVerdict(QzCat("FALSE: After assigning, could not read volume: ", listed->mountPoint));
        return 0;
    }
    PrintVerdict(QzCat("TRUE: Successfully assigned vGuid: ", after.volumeGuid));
    return 0;
}

int CmdUpdateQzVolumesXml(const Args&) {
    QzUiUtil::QzVolumesXml_QueryAttachDrives_UpdateQzVolXml();
    std::printf("Done updating file: %s\n", QzFile::DataPath(QzFile::DataFile::VolumeRegistry).c_str());
    return 0;
}

int CmdUpdateQzDefconXml(const Args&) {
    QzUiUtil::QzVolDefcon_UpdateQzVolumesDefconXmlFile();
    const QzString path = QzFile::DataPath(QzFile::DataFile::AlertLevels);
    std::printf("Done updating file: %s\n", path.c_str());
    std::vector<QzVolDefconRecord> records;
    int32_t mostCritical = 0;
    if (QzUiUtil::QzVolDefcon_HitDisk_ReadQzDefconXmlFile(&records, &mostCritical))
        std::printf("SUCCESS reading updated file, criticalDefcon=%d\n", mostCritical);
    else
        std::printf("ERROR reading updated file: %s\n", path.c_str());
    QzVolumeInfo volume;
    QzVolDefconRecord record;
    if (QzUiUtil::QzVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(&volume, &record))
        std::printf("A Defcon elevated drive is attached, defcon=%d, mountPoint=%s, volId=%s\n",
                    record.defconLevel, volume.mountPoint.c_str(), record.volumeGuid.c_str());
    else
        std::printf("Defcon is NOT actionable - either not elevated, or or drive is not attached.\n");
    return 0;
}

int CmdListVolumes(const Args&) {
    QzString summary, abstract;
    QzUiUtil::GetSelectedAndAttachedDriveState(&summary, &abstract);
    std::printf("\nSummaryLine: %s\n", summary.c_str());
    std::printf("abstr: %s\n", abstract.c_str());

    // The summary has just read the settings and enumerated the volumes.
    const std::vector<QzSettings::SelectedVolume>& selected = QzInfoManager::Settings().selectedVolumes;
    std::vector<QzVolumeInfo> attached;
    QzUiUtil::QueryAllAttachedVolumesForVolumeInfo(&attached);
    std::printf("\nThe following hard drive volumes are selected for backup:\n");
    for (const QzSettings::SelectedVolume& s : selected) {
        const QzVolumeInfo* found = nullptr;
        for (const QzVolumeInfo& v : attached)
            if (v.volumeGuid.Equals(s.volumeGuid)) found = &v;
        std::printf("%svguid=%s\n", SelectedLabel(found), s.volumeGuid.c_str());
    }
    std::printf("\nThe following hard drive volumes are also available:\n");
    std::vector<QzVolumesXmlEntry> drives;
    QzUiUtil::QzVolumesXml_GetListOfHardDrivesToDisplayInGui(&drives);
    for (const QzVolumesXmlEntry& d : drives) {
        bool isSelected = false;
        for (const QzSettings::SelectedVolume& s : selected)
            isSelected = isSelected || (!d.volumeGuid.IsEmpty() && s.volumeGuid.Equals(d.volumeGuid));
        if (isSelected) continue;
        std::printf("%svguid=%s\n", AvailableLabel(d.typeCode),
                    d.volumeGuid.IsEmpty() ? "none" : d.volumeGuid.c_str());
    }
    std::printf("ALL DONE\n");
    return 0;
}

int CmdListVolumesToFile(const Args& args) {
    const QzString prefix = QzCat(QzFile::DataPath(QzFile::DataFile::FlagsFolder), "/");
    const QzString target =
        args.size() >= 3
            ? args[2]
            : QzCat(prefix, static_cast<long long>(QzTime::GetCurrentGmtMillis()), "_list_volumes.txt");
    if (target.Length() <= 39 || !target.StartsWith(prefix.c_str())) {
        // The prefix ends in "/" and the format adds another; both are printed.
        const QzString message =
            QzCat("ERROR: The output file argument was too short or did not begin with ", prefix);
        QzLog::WriteLine(QzCat(message, "/"));
        std::printf("%s/\n", message.c_str());
        return 1;
    }
    std::vector<QzVolumeInfo> volumes;
    if (!QzUiUtil::QueryAllAttachedVolumesForVolumeInfo(&volumes) || volumes.empty()) {
        QzLog::WriteLine("ERROR: listvolumetofile - No volumes found.\n");
        std::printf("ERROR: No volumes found.\n");
        return 1;
    }
    QzString text;
    for (const QzVolumeInfo& v : volumes) {
        text.Append(
            QzCat(v.volumeGuid.Length() == 28 ? v.volumeGuid : QzString("qzunknown___________________"), ",",
                  v.typeCode, ",",
                  v.associatedHguid.Length() == 24 ? v.associatedHguid : QzString("qzunknown_______________"),
                  ",", v.mountPoint, "\n"));
    }
    int32_t slash = target.Length() - 1;
    while (slash >= 0 && target[slash] != '/' && target[slash] != '\\') --slash;
    const QzString dir(target.c_str(), slash);
    if (!QzFile::CreateDirectoryRecursive(dir.c_str()))
        QzLog::WriteLine(QzCat("ERROR: Could not create the directory ", dir));
    QzFile::ReplacePolicy policy;
    policy.tmpSuffix = ".qztmp";
    QzFile::ReplaceResult r;
    if (!QzFile::WriteFileAtomically(target, text, policy, &r)) {
        const QzString tmp = QzCat(target, policy.tmpSuffix);
        if (!r.written) return ListToFileError(QzCat("ERROR: Could not write the file ", tmp));
        return ListToFileError(QzCat("ERROR: Could not atomically swap file ", tmp, " to ", target));
    }
    std::printf("SUCCESS\n");
    return 0;
}
