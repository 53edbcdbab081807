// Attached volumes: one record per mount point with its sizes, type, file
// system details and the identity its marker folder names.
#include "QzFileVolumes.h"

#include <cstdio>

#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzFileListing.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileXml.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzTime.h"
#include "QzVolumeInfo.h"

namespace QzFile {

namespace {

constexpr const char* kFn = "QzFile::GetInfoAboutAttachedVolume,";

// "d:", "D:/" and "D:\" all name the root "D:\"; other mount points (folders)
// get exactly one trailing backslash.
QzString NormalizeMountPoint(const QzString& mountPoint) {
    QzString p(mountPoint);
    if (p.Last() == '\\' || p.Last() == '/') p.Truncate(p.Length() - 1);
    if (p.Length() == 2 && p[1] == ':') {
        const char letter = static_cast<char>(p[0] & ~0x20);
        if (letter >= 'A' && letter <= 'Z') return QzCat(letter, ":\\");
    }
    p.AppendChar('\\');
    return p;
}

// True when the root holds nothing but names starting with "." and the
// folders Windows and autorun put on every drive.
bool RootLooksEmpty(const QzString& root) {
    static const char* const kIgnored[] = {"autorun.inf", "system volume information", "$recycle.bin",
                                           "$recycler", "recycled"};
    QzFileInfoList list;
    if (!GetListOfFileInfosInDir(&root, &list)) return false;
    for (int32_t i = 0; i < list.Count(); ++i) {
        const QzString name(list.At(i)->Name());
        if (name.StartsWith(".")) continue;
        bool ignored = false;
        for (const char* n : kIgnored) ignored = ignored || name.EqualsIgnoreCase(n);
        if (!ignored) return false;
    }
    return true;
}

// The stored host identifier of the system volume's marker is kept, instead
// of being repaired, when the marker was written after the install
// descriptor that names this machine: the marker is then the newer word on
// which machine owns the volume. The unknown identifier is never kept.
bool StoredHguidIsTheMoreRecent(const QzString& markerFile, const QzString& storedHguid) {
    if (storedHguid.Equals(kUnknownHostGuid)) return false;
    const QzString descriptor = GetInstallDescriptorPath();
    const int64_t markerTime = GetFileLastModMillis(markerFile.c_str());
    const int64_t descriptorTime = GetFileLastModMillis(descriptor.c_str());
    return markerTime != 0 && descriptorTime != 0 && markerTime > descriptorTime;
}

void ReadMarker(QzVolumeInfo& info, bool allowRepair);

// On the system volume the marker must name this machine; when it names
// another, repair it (unless the stored name is the more recent) and read it again.
void CheckSystemVolumeHostGuid(QzVolumeInfo& info, const QzString& markerFile, const QzString& content) {
    const QzString& mine = GetMyHostGuid();
    const QzString stored = info.associatedHguid;
    if (mine.Length() != 24 || stored.Length() != 24 || mine.Equals(stored)) return;
    if (mine.Equals(kUnknownHostGuid)) {
        QzLog::WriteLine(QzCat("NOTE: ", kFn, "on the SystemBootVolume myHguid=", mine,
                               " is unknown, assocHguid=", stored, ", so NOT attempting repair."));
        return;
    }
    if (StoredHguidIsTheMoreRecent(markerFile, stored)) {
        QzLog::WriteLine(QzCat("IMPORTANT: ", kFn, "on the SystemBootVolume myHguid=", mine,
                               ", changedToTheMoreRecent=", stored, ", so NOT attempting repair."));
        return;
    }
    QzLog::WriteLine(QzCat("ERROR: ", kFn, "on the SystemBootVolume myHguid=", mine,
                           ", which doesn't match assocHguid=", stored, ", so attempting repair."));
    if (QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder(&mine, &stored, &markerFile,
                                                                              &content))
        ReadMarker(info, false);
}

// Fills vguid, associated hguid and the error token from the volume's
// "qzvol_id.xml". Any failure leaves both identifiers empty.
void ReadMarker(QzVolumeInfo& info, bool allowRepair) {
    info.volumeGuid.Clear();
    info.associatedHguid.Clear();
    info.markerError.Clear();
    const QzString markerFile = GetQzVolIdFileOfVolume(info.mountPoint);
    QzString content, err, vguid, hguid;
    const ReadStatus status = ReadFilePatiently(markerFile.c_str(), &content, {}, &err);
    if (status == ReadStatus::Missing) return;  // no identity yet: not an error
    if (status != ReadStatus::Ok) {
        // Held by another program: the volume may well carry an identity.
        info.markerError.Set("qzvol_id_file_exists_but_not_readable");
    } else if (content.Length() < 10) {
        info.markerError = QzCat("read_qzvol_id_file_but_too_few_bytes=", content.Length());
    } else if (!GetUniqueStrAttrFromXmlSnippet(content, "vguid", &vguid)) {
        info.markerError.Set("no_vguid_in_qzvol_id_file");
    } else if (vguid.Length() != 28) {
        info.markerError = QzCat("bad_format_vguid_in_qzvol_id_file_", vguid);
    } else if (!GetUniqueStrAttrFromXmlSnippet(content, "associated_hguid", &hguid)) {
        info.markerError.Set("no_associated_hguid_in_qzvol_id_file");
    } else if (hguid.Length() != 24) {
        info.markerError = QzCat("bad_format_hguid_in_qzvol_id_file_", hguid);
    }
    if (!info.markerError.IsEmpty()) {
        QzLog::WriteLine(QzCat("WARNING: ", kFn, " could not use the volume marker, ", info.markerError,
                               ", fileName=", markerFile, err.IsEmpty() ? "" : ", errStr=", err));
        return;
    }
    info.volumeGuid = vguid;
    info.associatedHguid = hguid;
    if (allowRepair && info.isSystemBootVolume) CheckSystemVolumeHostGuid(info, markerFile, content);
}

QzString SerialAsText(uint32_t serial) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "%04X-%04X", serial >> 16, serial & 0xFFFFu);
    return QzString(buf);
}

}  // namespace

bool GetInfoAboutAttachedVolume(const QzString& mountPoint, QzVolumeInfo* infoRet) {
    if (!infoRet) return false;
    QzVolumeInfo& info = *infoRet;
    // Copied before the record is reset: the argument may be the record's own field.
    const bool missing = mountPoint.IsEmpty();
    const QzString normalized = NormalizeMountPoint(mountPoint);
    info = QzVolumeInfo();
    if (missing) {
        QzLog::WriteLine(QzCat("ERROR: ", kFn, " ERR_NullMountPointIn"));
        return false;
    }
    info.mountPoint = normalized;
    const char* const root = info.mountPoint.c_str();

    int64_t bytesFree = -1, bytesTotal = -1;
    const uint32_t err = QzOs::GetDiskFreeSpace(root, &bytesFree, &bytesTotal);
    if (err != QzOs::ErrSuccess) {
        QzLog::WriteLine(QzCat("ERROR: ", kFn, "GetDiskFreeSpaceEx returned errNum=", err,
                               ", mountPoint=", info.mountPoint));
        return false;
    }
    info.bytesFree = bytesFree;
    info.bytesTotal = bytesTotal;
    info.bytesUsed = bytesTotal - bytesFree;
    info.timeQueried = QzTime::GetCurrentGmtMillis();
    info.attached = true;

    info.driveType = QzOs::GetDriveType(root);
    const bool fixed = info.driveType == QzOs::DriveFixed;
    if (fixed) info.SetTypeCode("gm");

    QzOs::VolumeInfo vi;
    if (QzOs::GetVolumeInformation(root, &vi) == QzOs::ErrSuccess) {
        info.volumeInformationOk = true;
        info.fileSystemName = vi.fileSystemName;
        info.isCaseSensitive = (vi.fileSystemFlags & 0x1) != 0;
        info.isCasePreserving = (vi.fileSystemFlags & 0x2) != 0;
        if (vi.fileSystemName.EqualsIgnoreCase("FUSE")) {
            QzLog::WriteLine(QzCat("ERROR: ", kFn, "skipping FUSE-based mount ", info.mountPoint));
            return false;
        }
    }
    QzOs::VolumeIdentity id;
    if (QzOs::GetVolumeIdentity(root, &id) == QzOs::ErrSuccess) {
        info.uuid = id.uuid;
        info.isWritable = !id.readOnly;
    }
    if (info.uuid.IsEmpty() && info.volumeInformationOk) info.uuid = SerialAsText(vi.serialNumber);

    info.isSystemBootVolume = IsSystemBootVolume(info.mountPoint);
    if (fixed && RootLooksEmpty(info.mountPoint)) info.SetTypeCode("em");
    ReadMarker(info, true);
    return true;
}

bool QueryAllAttachedVolumesForVolumeInfo(std::vector<QzVolumeInfo>* volumesRet) {
    if (!volumesRet) return false;
    volumesRet->clear();
    const uint32_t mask = QzOs::GetLogicalDrives();
    for (int i = 0; i < 26; ++i) {
        if (!(mask & (1u << i))) continue;
        const QzString root = QzCat(static_cast<char>('A' + i), ":\\");
        // Removable, network, optical and RAM drives are never backed up.
        if (QzOs::GetDriveType(root.c_str()) != QzOs::DriveFixed) continue;
        QzVolumeInfo info;
        if (GetInfoAboutAttachedVolume(root, &info)) {
            volumesRet->push_back(info);
        } else {
            QzLog::WriteLine(
                QzCat("WARNING: QzFile::QueryAllAttachedVolumesForVolumeInfo - could not get any info about "
                      "volume:",
                      root));
        }
    }
    return true;
}

}  // namespace QzFile
