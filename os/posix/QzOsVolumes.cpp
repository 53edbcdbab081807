// POSIX side of the volume calls. Each configured drive's directory stands
// for a volume: its type comes from the drive table, its sizes and file system
// from the file system holding the directory, and its identifier is the UUID
// under which the system lists that block device (/dev/disk/by-uuid), when
// there is one.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "QzOs.h"
#include "QzOsInternal.h"

namespace QzOs {

namespace {

// The name of the /dev/disk/by-uuid link that resolves to the device `dev`;
// empty when none does (tmpfs, overlay and network file systems have none).
std::string UuidOfDevice(dev_t dev) {
    static const char* const kDir = "/dev/disk/by-uuid";
    DIR* d = ::opendir(kDir);
    if (!d) return std::string();
    std::string found;
    while (const struct dirent* e = ::readdir(d)) {
        if (e->d_name[0] == '.') continue;
        struct stat st;
        const std::string link = std::string(kDir) + "/" + e->d_name;
        if (::stat(link.c_str(), &st) == 0 && S_ISBLK(st.st_mode) && st.st_rdev == dev) {
            found = e->d_name;
            break;
        }
    }
    ::closedir(d);
    return found;
}

}  // namespace

uint32_t GetLogicalDrives() {
    uint32_t mask = 0;
    for (char l = 'A'; l <= 'Z'; ++l) {
        const posix::Drive d = posix::LookupDrive(l);
        if (!d.mapped) continue;
        struct stat st;
        if (::stat(d.dir.empty() ? "/" : d.dir.c_str(), &st) == 0 && S_ISDIR(st.st_mode))
            mask |= 1u << (l - 'A');
    }
    return mask;
}

namespace {
bool IsNetworkFs(long magic) {
    switch (static_cast<unsigned long>(magic)) {
        case 0x6969:      // NFS
        case 0xFF534D42:  // CIFS
        case 0xFE534D42:  // SMB2
        case 0x517B:      // SMB
            return true;
        default:
            return false;
    }
}
}  // namespace

uint32_t GetDriveType(const char* rootPath) {
    if (!rootPath) return DriveNoRootDir;
    const char* p = rootPath;
    if (std::strncmp(p, "\\\\?\\", 4) == 0) p += 4;
    if (posix::IsDriveForm(p) && (p[2] == '\0' || ((p[2] == '\\' || p[2] == '/') && p[3] == '\0'))) {
        const posix::Drive d = posix::LookupDrive(p[0]);
        if (!d.mapped) return DriveNoRootDir;
        struct stat st;
        if (::stat(d.dir.empty() ? "/" : d.dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode))
            return DriveNoRootDir;
        return d.type;
    }
    // A folder: only a mount point (a directory on another device than its
    // parent) is a volume root, like a folder-mounted volume on Windows.
    std::string path;
    if (posix::MapPath(rootPath, &path)) return DriveNoRootDir;
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    struct stat st;
    struct stat parent;
    if (::stat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return DriveNoRootDir;
    if (::stat((path + "/..").c_str(), &parent) != 0 || parent.st_dev == st.st_dev) return DriveNoRootDir;
    struct statfs fs;
    if (::statfs(path.c_str(), &fs) == 0 && IsNetworkFs(static_cast<long>(fs.f_type))) return DriveRemote;
    return DriveFixed;
}

uint32_t GetDiskFreeSpace(const char* rootPath, int64_t* freeToCallerRet, int64_t* totalRet) {
    std::string path;
    const uint32_t err = posix::MapPath(rootPath, &path);
    if (err) return err;
    struct statvfs vs;
    if (::statvfs(path.c_str(), &vs) != 0) return posix::MapPathErrno(errno, path);
    *freeToCallerRet = static_cast<int64_t>(vs.f_bavail) * static_cast<int64_t>(vs.f_frsize);
    *totalRet = static_cast<int64_t>(vs.f_blocks) * static_cast<int64_t>(vs.f_frsize);
    return ErrSuccess;
}

uint32_t GetVolumeInformation(const char* rootPath, VolumeInfo* infoRet) {
    std::string path;
    const uint32_t err = posix::MapPath(rootPath, &path);
    if (err) return err;
    struct statfs fs;
    struct stat st;
    if (::statfs(path.c_str(), &fs) != 0 || ::stat(path.c_str(), &st) != 0)
        return posix::MapPathErrno(errno, path);
    const char* name;
    uint32_t flags = 0x1 | 0x2;  // case-sensitive search, case-preserved names
    switch (static_cast<unsigned long>(fs.f_type)) {
        case 0x65735546:
            name = "FUSE";
            break;
        case 0xEF53:
            name = "EXT4";
            break;
        case 0x9123683E:
            name = "BTRFS";
            break;
        case 0x58465342:
            name = "XFS";
            break;
        case 0x01021994:
            name = "TMPFS";
            break;
        case 0x794C7630:
            name = "OVERLAYFS";
            break;
        case 0x4d44:
            name = "FAT32", flags = 0x2;
            break;
        case 0x5346544e:
            name = "NTFS";
            break;
        default:
            name = IsNetworkFs(static_cast<long>(fs.f_type)) ? "NETWORK" : "UNKNOWN";
            break;
    }
    infoRet->fileSystemName.Set(name);
    infoRet->serialNumber = static_cast<uint32_t>(st.st_dev);
    infoRet->fileSystemFlags = flags;
    return ErrSuccess;
}

uint32_t GetVolumeIdentity(const char* rootPath, VolumeIdentity* idRet) {
    if (!rootPath || !idRet) return ErrInvalidParameter;
    idRet->uuid.Clear();
    idRet->readOnly = false;
    std::string path;
    const uint32_t err = posix::MapPath(rootPath, &path);
    if (err) return err;
    struct stat st;
    struct statvfs vs;
    if (::stat(path.c_str(), &st) != 0 || ::statvfs(path.c_str(), &vs) != 0)
        return posix::MapPathErrno(errno, path);
    idRet->readOnly = (vs.f_flag & ST_RDONLY) != 0;
    idRet->uuid.Set(UuidOfDevice(st.st_dev).c_str());
    return ErrSuccess;
}

}  // namespace QzOs
