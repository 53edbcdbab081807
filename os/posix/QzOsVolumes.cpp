// POSIX side of the volume identity calls. A drive's directory stands for the
// volume; its identifier is the UUID under which the system lists the block
// device holding that directory (/dev/disk/by-uuid), when there is one.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <cerrno>
#include <string>

#include "QzOs.h"
#include "QzOsPosix.h"

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
