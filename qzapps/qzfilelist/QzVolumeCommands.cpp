// Switches about attached volumes and their marker folders.
#include <cstdio>
#include <vector>

#include "QzCommands.h"
#include "QzFileVolumes.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzUiUtil.h"
#include "QzVolumeInfo.h"
#include "qzfilelist.h"

namespace {

const char* TrueFalse(bool b) {
    return b ? "true" : "false";
}
const char* OrNone(const QzString& s) {
    return s.IsEmpty() ? "none" : s.c_str();
}

QzString Decimal(int64_t v) {
    QzString s;
    s.AppendInt(v);
    return s;
}

// The lines -volumeinfo and -getvolumeinfofromfilename share, up to the writable flag.
void PrintIdentityAndSizes(const QzVolumeInfo& v) {
    std::printf("    VolumeGUID: %s\n", OrNone(v.volumeGuid));
    std::printf("    AssocHguid: %s\n", OrNone(v.associatedHguid));
    std::printf("    VolumeType: %s\n", v.typeCode);
    std::printf("    numBytesTot_OnVolume: %s\n", Decimal(v.bytesTotal).c_str());
    std::printf("    numBytesFreeOnVolume: %s\n", Decimal(v.bytesFree).c_str());
    std::printf("    numBytesUsedOnVolume: %s\n", Decimal(v.bytesUsed).c_str());
    std::printf("    isWritable: %s\n", TrueFalse(v.isWritable));
}

// The volume's alert record, when the alert-level file has one for its GUID.
bool FindDefconRecord(const QzVolumeInfo& v, QzVolDefconRecord* recordRet) {
    int32_t mostCritical = 0;
    std::vector<QzVolDefconRecord> records;
    if (!QzUiUtil::QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile(&mostCritical, &records)) {
        QzLog::WriteLine(
            "WARNING: qzfilelist -volumeinfo called "
            "QzUiUtil::QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile which failed");
        return false;
    }
    for (const QzVolDefconRecord& r : records) {
        if (!v.volumeGuid.IsEmpty() && r.volumeGuid.Equals(v.volumeGuid)) {
            *recordRet = r;
            return true;
        }
    }
    return false;
}

bool IsSelectedForBackup(const QzVolumeInfo& v) {
    std::vector<QzVolumeInfo> selected;
    QzInfoManager::GetVolumesSelectedForBackup(&selected);
    for (const QzVolumeInfo& s : selected)
        if (s.mountPoint.EqualsIgnoreCase(v.mountPoint.c_str()) && s.volumeGuid.Equals(v.volumeGuid))
            return true;
    return false;
}

}  // namespace

int CmdVolumeInfo(const Args& args) {
    std::printf("VolumeInfo for: %s\n", args[2].c_str());
    QzVolumeInfo v;
    if (!QzFile::GetInfoAboutAttachedVolume(args[2], &v)) {
        std::printf("Volume does not exist or is not attached right now.\n");
        return 0;
    }
    PrintIdentityAndSizes(v);
    std::printf("    isSystemVolume: %s\n", TrueFalse(v.isSystemBootVolume));
    std::printf("    isCaseSensitive: %s\n", TrueFalse(v.isCaseSensitive));
    std::printf("    isCasePreserving: %s\n", TrueFalse(v.isCasePreserving));
    std::printf("    isCurrentlyConnected: %s\n", TrueFalse(v.attached));
    QzVolDefconRecord r;
    const bool known = FindDefconRecord(v, &r);
    std::printf("    qzVol_defconLevel: %s\n", known ? Decimal(r.defconLevel).c_str() : "none");
    std::printf("    qzVol_lastSeenInDays: %s\n", known ? Decimal(r.lastSeenInDays).c_str() : "none");
    std::printf("    qzVol_lastFileListedInDays: %s\n",
                known ? Decimal(r.lastFileListedInDays).c_str() : "none");
    std::printf("    qzVol_lastFilePushedInDays: %s\n",
                known ? Decimal(r.lastFilePushedInDays).c_str() : "none");
    std::printf("    UUID: %s\n", OrNone(v.uuid));
    return 0;
}

int CmdGetVolumeInfoFromFileName(const Args& args) {
    const QzString& path = args[2];
    std::printf("VolumeInfo for file: %s\n", path.c_str());
    // The volume is the drive the path lies on.
    QzVolumeInfo v;
    const bool drivePath =
        path.Length() >= 2 && path[1] == ':' && ((path[0] | 0x20) >= 'a' && (path[0] | 0x20) <= 'z');
    if (!drivePath || !QzFile::GetInfoAboutAttachedVolume(QzString(path.c_str(), 2), &v)) {
        std::printf("The filename is on a volume we have never heard of and is not attached.\n");
        return 0;
    }
    std::printf("Volume Mount Point: %s\n", v.mountPoint.c_str());
    PrintIdentityAndSizes(v);
    std::printf("    isCaseSensitive: %s\n", TrueFalse(v.isCaseSensitive));
    std::printf("    isCasePreserving: %s\n", TrueFalse(v.isCasePreserving));
    std::printf("    UUID: %s\n", OrNone(v.uuid));
    std::printf("    VolSelectedForBackup: %s\n", IsSelectedForBackup(v) ? "Yes" : "No");
    return 0;
}

int CmdCloneQzVolToDataDir(const Args&) {
    const char* const entering = "qzfilelist - entering -clone_qzvol_to_datadir";
    const char* const leaving = "qzfilelist - leaving -clone_qzvol_to_datadir";
    QzLog::WriteLine(entering);
    std::printf("%s\n", entering);
    QzFile::CloneQzVolFolderOfSystemVolumeIntoDataDir_IfNeeded();
    QzLog::WriteLine(leaving);
    std::printf("%s\n", leaving);
    return 0;
}

// Prints nothing: the drive reports go to the log.
int CmdPingDrives(const Args&) {
    PingDrivesThatAreSelectedForBackup();
    return 0;
}

int CmdQueryAttachedVolumes(const Args&) {
    std::vector<QzVolumeInfo> volumes;
    if (!QzUiUtil::QueryAllAttachedVolumesForVolumeInfo(&volumes)) {
        QzLog::WriteLine("ERROR: QzUiUtil::QueryAllAttachedVolumesForVolumeInfo failed");
        return 0;
    }
    for (size_t i = 0; i < volumes.size(); ++i) {
        for (size_t j = i + 1; j < volumes.size(); ++j) {
            if (!volumes[i].volumeGuid.IsEmpty() && volumes[i].volumeGuid.Equals(volumes[j].volumeGuid)) {
                std::printf("WARNING: Two drives have duplicate qzvolumeids: %s and %s\n",
                            volumes[i].mountPoint.c_str(), volumes[j].mountPoint.c_str());
            }
        }
    }
    std::printf("The following hard drives are attached:\n");
    for (size_t i = 0; i < volumes.size(); ++i) {
        std::printf("%s\n", QzCat("  Drive ", static_cast<long long>(i), " has qzVolGuid=",
                                  OrNone(volumes[i].volumeGuid), ", mountPoint=", volumes[i].mountPoint)
                                .c_str());
    }
    std::printf("\nALL DONE\n");
    return 0;
}

int CmdListVolumesDetail(const Args&) {
    std::vector<QzVolumeInfo> volumes;
    if (!QzFile::QueryAllAttachedVolumesForVolumeInfo(&volumes)) {
        QzLog::WriteLine("ERROR: QzFile::QueryAllAttachedVolumesForVolumeInfo failed");
        return 0;
    }
    for (const QzVolumeInfo& v : volumes) {
        std::printf("=======================================================\n");
        std::printf("Mount Point Path: %s\n", v.mountPoint.c_str());
        std::printf("Num Bytes Free:   %lld\n", static_cast<long long>(v.bytesFree));
        std::printf("Num Bytes Used:   %lld\n", static_cast<long long>(v.bytesUsed));
        std::printf("Num Bytes Total:  %lldd\n", static_cast<long long>(v.bytesTotal));
        std::printf("UUID: %s\n", OrNone(v.uuid));
        std::printf("Writable:         %s\n", TrueFalse(v.isWritable));
        std::printf("Case Sensitive:   %s\n", TrueFalse(v.isCaseSensitive));
        std::printf("Case Preserving:  %s\n", TrueFalse(v.isCasePreserving));
        std::printf("Qz VolumeType:    %s\n", v.typeCode);
        std::printf("Qz Volume GUID:   %s\n", OrNone(v.volumeGuid));
        std::printf("Qz Assoc HGUID:   %s\n", OrNone(v.associatedHguid));
    }
    return 0;
}
