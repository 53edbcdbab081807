// POSIX implementation of the OS layer. Windows-form paths are mapped onto
// POSIX paths through the drive table in QZ_DRIVES ("C=/dir;D=/other|removable",
// unset means "C=/"); errno values are reported as Win32 error numbers.
//
// Differences a Windows machine would not show, and what this layer does:
// - A name holding a backslash, or bytes that are not UTF-8, cannot be written
//   as a Windows path component: such entries come back with nameOk false (the
//   listing logs and skips them) and can never be opened by name.
// - Symbolic links stand in for reparse points: one to a directory is a
//   directory with the reparse flag, any other link a file with it (size 0).
// - Share modes are emulated with flock(): an exclusive open takes LOCK_EX and
//   every other open LOCK_SH, so a conflict gives ErrSharingViolation.
// - The hidden attribute is not stored; names starting with "." read as hidden.
// - There is no registry.
#include "QzOs.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <langinfo.h>
#include <locale.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/utsname.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>

#include "QzOsPosix.h"
#include "QzUtf16String.h"

namespace QzOs {

using posix::MapErrno;
using posix::MapPath;
using posix::MapPathErrno;

namespace {

constexpr int64_t kFileTimeEpochOffset = 116444736000000000LL;  // 1601 -> 1970 in 100 ns

int64_t ToFileTime(const struct timespec& ts) {
    return static_cast<int64_t>(ts.tv_sec) * 10000000LL + ts.tv_nsec / 100 + kFileTimeEpochOffset;
}

// ---- drive table ----------------------------------------------------------

struct Drive {
    std::string dir;  // no trailing slash, "" for "/"
    uint32_t type = DriveFixed;
    bool mapped = false;
};

struct DriveTable {
    std::mutex mu;
    std::string source = "\x01";  // the QZ_DRIVES text the table was built from
    Drive drives[26];
};

DriveTable& Table() {
    static DriveTable table;
    return table;
}

uint32_t ParseType(const std::string& t) {
    if (t == "removable") return DriveRemovable;
    if (t == "remote") return DriveRemote;
    if (t == "cdrom") return DriveCdrom;
    if (t == "ramdisk") return DriveRamdisk;
    return DriveFixed;
}

// Returns a copy of the entry for a drive letter, re-reading QZ_DRIVES when
// it has changed (tests change it between cases).
Drive LookupDrive(char letter) {
    DriveTable& t = Table();
    const char* env = std::getenv("QZ_DRIVES");
    const std::string now = env ? env : "C=/";
    std::lock_guard<std::mutex> lock(t.mu);
    if (now != t.source) {
        t.source = now;
        for (Drive& d : t.drives) d = Drive();
        size_t pos = 0;
        while (pos <= now.size()) {
            size_t end = now.find(';', pos);
            if (end == std::string::npos) end = now.size();
            const std::string item = now.substr(pos, end - pos);
            pos = end + 1;
            if (item.size() < 3 || item[1] != '=') continue;
            const char l = static_cast<char>(item[0] & ~0x20);
            if (l < 'A' || l > 'Z') continue;
            std::string dir = item.substr(2);
            std::string type;
            const size_t bar = dir.find('|');
            if (bar != std::string::npos) {
                type = dir.substr(bar + 1);
                dir.resize(bar);
            }
            if (dir.empty() || dir[0] != '/') continue;
            while (!dir.empty() && dir.back() == '/') dir.pop_back();
            Drive& d = t.drives[l - 'A'];
            d.dir = dir;
            d.type = ParseType(type);
            d.mapped = true;
        }
    }
    const char l = static_cast<char>(letter & ~0x20);
    if (l < 'A' || l > 'Z') return Drive();
    return t.drives[l - 'A'];
}

bool IsDriveForm(const char* p) {
    const char l = static_cast<char>(p[0] & ~0x20);
    return l >= 'A' && l <= 'Z' && p[1] == ':';
}

}  // namespace

namespace posix {

// Maps a Windows-form path to a POSIX path. Paths without a drive letter are
// taken relative to the working directory. Returns an error number.
uint32_t MapPath(const char* win, std::string* out) {
    out->clear();
    if (!win) return ErrInvalidParameter;
    if (std::strncmp(win, "\\\\?\\", 4) == 0) win += 4;
    if (IsDriveForm(win)) {
        const Drive d = LookupDrive(win[0]);
        if (!d.mapped) return ErrPathNotFound;
        out->append(d.dir);
        win += 2;
        out->push_back('/');
    } else if (win[0] == '\\' && win[1] == '\\') {
        return ErrPathNotFound;  // UNC paths have no POSIX counterpart
    }
    for (const char* p = win; *p; ++p) {
        const char c = *p == '\\' ? '/' : *p;
        if (c == '/' && !out->empty() && out->back() == '/') continue;
        out->push_back(c);
    }
    if (out->empty()) out->push_back('.');
    return ErrSuccess;
}

bool ParentExists(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return true;
    if (slash == 0) return true;
    struct stat st;
    return ::stat(path.substr(0, slash).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

uint32_t MapErrno(int e) {
    switch (e) {
        case 0: return ErrSuccess;
        case ENOENT: return ErrFileNotFound;
        case ENOTDIR: return ErrPathNotFound;
        case EACCES:
        case EPERM:
        case EISDIR: return ErrAccessDenied;
        case EEXIST: return ErrFileExists;
        case EMFILE:
        case ENFILE: return ErrTooManyOpenFiles;
        case ENOMEM: return ErrNotEnoughMemory;
        case EXDEV: return ErrNotSameDevice;
        case EROFS: return ErrWriteProtect;
        case EWOULDBLOCK: return ErrSharingViolation;
        case EINVAL: return ErrInvalidParameter;
        case ENOSPC: return ErrDiskFull;
        case ENOTEMPTY: return ErrDirNotEmpty;
        case EBUSY: return ErrBusy;
        case ENAMETOOLONG: return ErrFilenameExcedRange;
        case EIO: return ErrIoDevice;
        case ELOOP: return ErrCantResolveFilename;
        case ENODEV:
        case ENXIO: return ErrNotReady;
        default: return ErrGenFailure;
    }
}

// ENOENT means "file not found" when the parent exists, else "path not found".
uint32_t MapPathErrno(int e, const std::string& path) {
    if (e == ENOENT && !ParentExists(path)) return ErrPathNotFound;
    return MapErrno(e);
}


}  // namespace posix

namespace {

bool Earlier(const struct timespec& a, const struct timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

struct Times {
    int64_t creation = 0;
    int64_t lastWrite = 0;
};

Times TimesOf(const struct stat& st) {
    // POSIX has no creation time in stat; the status-change time is the
    // closest stand-in that never lies in the future of the data.
    Times t;
    t.lastWrite = ToFileTime(st.st_mtim);
    t.creation = ToFileTime(Earlier(st.st_ctim, st.st_mtim) ? st.st_ctim : st.st_mtim);
    return t;
}

// Attributes as Windows would report them. `linkTarget` is the stat of what a
// symbolic link points to (null when it is not a link or is dangling).
uint32_t AttributesOf(const char* name, const struct stat& st, const struct stat* linkTarget) {
    uint32_t a = 0;
    if (S_ISLNK(st.st_mode)) {
        a = AttrReparsePoint;
        if (linkTarget && S_ISDIR(linkTarget->st_mode)) a |= AttrDirectory;
        else a |= AttrArchive;
    } else if (S_ISDIR(st.st_mode)) {
        a = AttrDirectory;
    } else {
        a = AttrArchive;
        if (!S_ISREG(st.st_mode)) a |= AttrSystem;  // devices, pipes, sockets
        if ((st.st_mode & 0222) == 0) a |= AttrReadOnly;
    }
    if (name && name[0] == '.' && name[1] != '\0' && !(name[1] == '.' && name[2] == '\0')) a |= AttrHidden;
    return a;
}

const char* BaseName(const std::string& p) {
    const size_t s = p.find_last_of('/');
    return s == std::string::npos ? p.c_str() : p.c_str() + s + 1;
}

// Maps a Windows-form path and stats it without following a final link.
uint32_t LstatPath(const char* winPath, std::string* path, struct stat* st) {
    const uint32_t err = MapPath(winPath, path);
    if (err) return err;
    if (::lstat(path->c_str(), st) != 0) return MapPathErrno(errno, *path);
    return ErrSuccess;
}

}  // namespace

// ---- directory enumeration -------------------------------------------------

struct FindHandle {
    DIR* dir = nullptr;
    int fd = -1;
    std::string wildcard;  // the pattern's last component; empty matches everything
};

namespace {
// Windows wildcard match of a name: "*" any run, "?" one character, letters
// compared without case as the Windows file system does.
bool WildcardMatch(const char* pat, const char* name) {
    const char* starPat = nullptr;
    const char* starName = nullptr;
    while (*name) {
        if (*pat == '*') {
            starPat = ++pat;
            starName = name;
        } else if (*pat == '?' || QzStringUtil::ToLower(static_cast<unsigned char>(*pat)) ==
                                      QzStringUtil::ToLower(static_cast<unsigned char>(*name))) {
            ++pat;
            ++name;
        } else if (starPat) {
            pat = starPat;
            name = ++starName;
        } else {
            return false;
        }
    }
    while (*pat == '*') ++pat;
    return *pat == '\0';
}
// Fills `d` from the next usable entry; ErrNoMoreFiles at the end.
uint32_t ReadEntry(FindHandle* h, FindData* d) {
    for (;;) {
        errno = 0;
        struct dirent* e = ::readdir(h->dir);
        if (!e) return errno ? MapErrno(errno) : ErrNoMoreFiles;
        if (!h->wildcard.empty() && !WildcardMatch(h->wildcard.c_str(), e->d_name)) continue;
        struct stat st;
        // Metadata comes from the directory's own descriptor: no path is
        // resolved again per entry.
        if (::fstatat(h->fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT) continue;  // vanished since readdir
            std::memset(&st, 0, sizeof st);
            st.st_mode = S_IFREG;
        }
        struct stat target;
        const bool haveTarget = S_ISLNK(st.st_mode) && ::fstatat(h->fd, e->d_name, &target, 0) == 0;
        const size_t n = std::strlen(e->d_name);
        const size_t cap = sizeof d->name - 1;
        const size_t copy = n < cap ? n : cap;
        std::memcpy(d->name, e->d_name, copy);
        d->name[copy] = '\0';
        d->nameLen = static_cast<int32_t>(copy);
        d->nameOk = copy == n && std::memchr(e->d_name, '\\', n) == nullptr &&
                    QzUtf8::IsValid(e->d_name, static_cast<int32_t>(n));
        d->attributes = AttributesOf(e->d_name, st, haveTarget ? &target : nullptr);
        const Times t = TimesOf(st);
        d->creationTime = t.creation;
        d->lastWriteTime = t.lastWrite;
        d->size = S_ISREG(st.st_mode) ? static_cast<int64_t>(st.st_size) : 0;
        return ErrSuccess;
    }
}
}  // namespace

uint32_t FindFirstFile(const char* pattern, FindHandle** handleRet, FindData* dataRet) {
    *handleRet = nullptr;
    if (!pattern) return ErrInvalidParameter;
    // "<dir>\<wildcard>": the directory to open and the names to keep.
    std::string dirPath(pattern);
    const size_t sep = dirPath.find_last_of("\\/");
    std::string wildcard = sep == std::string::npos ? dirPath : dirPath.substr(sep + 1);
    dirPath.resize(sep == std::string::npos ? 0 : sep + 1);
    if (wildcard.empty()) return ErrFileNotFound;
    if (wildcard == "*" || wildcard == "*.*") wildcard.clear();
    std::string path;
    const uint32_t err = MapPath(dirPath.c_str(), &path);
    if (err) return err;
    DIR* dir = ::opendir(path.c_str());
    if (!dir) {
        if (errno == ENOENT || errno == ENOTDIR) return ErrPathNotFound;
        return MapErrno(errno);
    }
    auto* h = new FindHandle;
    h->dir = dir;
    h->fd = ::dirfd(dir);
    h->wildcard = std::move(wildcard);
    const uint32_t first = ReadEntry(h, dataRet);
    if (first != ErrSuccess) {
        FindClose(h);
        return first == ErrNoMoreFiles ? ErrFileNotFound : first;
    }
    *handleRet = h;
    return ErrSuccess;
}

uint32_t FindNextFile(FindHandle* handle, FindData* dataRet) {
    if (!handle) return ErrInvalidHandle;
    return ReadEntry(handle, dataRet);
}

void FindClose(FindHandle* handle) {
    if (!handle) return;
    if (handle->dir) ::closedir(handle->dir);
    delete handle;
}

uint32_t GetFileAttributesEx(const char* winPath, FileAttrData* dataRet) {
    std::string path;
    struct stat st;
    const uint32_t err = LstatPath(winPath, &path, &st);
    if (err) return err;
    struct stat target;
    const bool haveTarget = S_ISLNK(st.st_mode) && ::stat(path.c_str(), &target) == 0;
    dataRet->attributes = AttributesOf(BaseName(path), st, haveTarget ? &target : nullptr);
    const Times t = TimesOf(st);
    dataRet->creationTime = t.creation;
    dataRet->lastWriteTime = t.lastWrite;
    dataRet->size = S_ISREG(st.st_mode) ? static_cast<int64_t>(st.st_size) : 0;
    return ErrSuccess;
}

uint32_t SetFileHidden(const char* winPath, bool /*hidden*/) {
    std::string path;
    struct stat st;
    return LstatPath(winPath, &path, &st);
}

// ---- files -----------------------------------------------------------------

uint32_t OpenFile(const char* winPath, OpenMode mode, Handle* handleRet) {
    *handleRet = kInvalidHandle;
    std::string path;
    const uint32_t err = MapPath(winPath, &path);
    if (err) return err;
    int flags = O_CLOEXEC;
    int lockOp = LOCK_SH;
    switch (mode) {
        case OpenMode::ReadShared:
        case OpenMode::ReadShareRead: flags |= O_RDONLY; break;
        case OpenMode::ReadExclusive: flags |= O_RDONLY, lockOp = LOCK_EX; break;
        case OpenMode::CreateNew: flags |= O_RDWR | O_CREAT | O_EXCL; break;
        case OpenMode::CreateAlways: flags |= O_WRONLY | O_CREAT; break;
        case OpenMode::Append: flags |= O_WRONLY | O_CREAT | O_APPEND; break;
    }
    int fd;
    do {
        fd = ::open(path.c_str(), flags, 0666);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        if (errno == EEXIST) return ErrFileExists;
        return MapPathErrno(errno, path);
    }
    struct stat st;
    if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        ::close(fd);
        return ErrAccessDenied;  // Windows refuses to open a directory as a file
    }
    if (::flock(fd, lockOp | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        ::close(fd);
        return ErrSharingViolation;
    }
    if (mode == OpenMode::CreateAlways && ::ftruncate(fd, 0) != 0) {
        const int e = errno;
        ::close(fd);
        return MapErrno(e);
    }
    *handleRet = fd;
    return ErrSuccess;
}

uint32_t ReadFile(Handle h, void* buf, uint32_t n, uint32_t* gotRet) {
    *gotRet = 0;
    ssize_t r;
    do {
        r = ::read(static_cast<int>(h), buf, n);
    } while (r < 0 && errno == EINTR);
    if (r < 0) return errno == EISDIR ? ErrAccessDenied : MapErrno(errno);
    *gotRet = static_cast<uint32_t>(r);
    return ErrSuccess;
}

uint32_t WriteFile(Handle h, const void* buf, uint32_t n) {
    const char* p = static_cast<const char*>(buf);
    while (n > 0) {
        const ssize_t w = ::write(static_cast<int>(h), p, n);
        if (w < 0) {
            if (errno == EINTR) continue;
            return MapErrno(errno);
        }
        p += w;
        n -= static_cast<uint32_t>(w);
    }
    return ErrSuccess;
}

uint32_t GetFileSize(Handle h, int64_t* sizeRet) {
    struct stat st;
    if (::fstat(static_cast<int>(h), &st) != 0) return MapErrno(errno);
    *sizeRet = st.st_size;
    return ErrSuccess;
}

uint32_t GetFileTimes(Handle h, int64_t* creationRet, int64_t* lastWriteRet) {
    struct stat st;
    if (::fstat(static_cast<int>(h), &st) != 0) return MapErrno(errno);
    const Times t = TimesOf(st);
    if (creationRet) *creationRet = t.creation;
    if (lastWriteRet) *lastWriteRet = t.lastWrite;
    return ErrSuccess;
}

uint32_t FlushFile(Handle h) { return ::fsync(static_cast<int>(h)) == 0 ? ErrSuccess : MapErrno(errno); }

void CloseFile(Handle h) {
    if (h != kInvalidHandle) ::close(static_cast<int>(h));
}

uint32_t MoveFileReplace(const char* winSrc, const char* winDst) {
    std::string src;
    std::string dst;
    uint32_t err = MapPath(winSrc, &src);
    if (!err) err = MapPath(winDst, &dst);
    if (err) return err;
    struct stat st;
    if (::lstat(src.c_str(), &st) != 0) return MapPathErrno(errno, src);
    if (::rename(src.c_str(), dst.c_str()) != 0) {
        if (errno == ENOENT) return ErrPathNotFound;
        return MapErrno(errno);
    }
    // Write-through: the rename is on disk before we return.
    const size_t slash = dst.find_last_of('/');
    const std::string parent = slash == std::string::npos ? "." : (slash == 0 ? "/" : dst.substr(0, slash));
    const int dfd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    return ErrSuccess;
}

uint32_t DeleteFile(const char* winPath) {
    std::string path;
    const uint32_t err = MapPath(winPath, &path);
    if (err) return err;
    if (::unlink(path.c_str()) != 0) return MapPathErrno(errno, path);
    return ErrSuccess;
}

uint32_t SetFileLastWriteTime(const char* winPath, int64_t lastWriteTime) {
    std::string path;
    const uint32_t err = MapPath(winPath, &path);
    if (err) return err;
    const int64_t since1970 = lastWriteTime - kFileTimeEpochOffset;  // 100 ns units
    int64_t sec = since1970 / 10000000, rem = since1970 % 10000000;
    if (rem < 0) --sec, rem += 10000000;
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;  // access time stays
    times[1].tv_sec = static_cast<time_t>(sec);
    times[1].tv_nsec = static_cast<long>(rem * 100);
    if (::utimensat(AT_FDCWD, path.c_str(), times, 0) != 0) return MapPathErrno(errno, path);
    return ErrSuccess;
}

uint32_t CreateDirectory(const char* winPath) {
    std::string path;
    const uint32_t err = MapPath(winPath, &path);
    if (err) return err;
    if (::mkdir(path.c_str(), 0777) != 0) {
        if (errno == EEXIST) return ErrAlreadyExists;
        if (errno == ENOENT) return ErrPathNotFound;
        return MapErrno(errno);
    }
    return ErrSuccess;
}

uint32_t RemoveDirectory(const char* winPath) {
    std::string path;
    const uint32_t err = MapPath(winPath, &path);
    if (err) return err;
    if (::rmdir(path.c_str()) != 0) {
        if (errno == ENOTDIR) return ErrDirectory;
        return MapPathErrno(errno, path);
    }
    return ErrSuccess;
}

// ---- volumes ---------------------------------------------------------------

uint32_t GetLogicalDrives() {
    uint32_t mask = 0;
    for (char l = 'A'; l <= 'Z'; ++l) {
        const Drive d = LookupDrive(l);
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
        default: return false;
    }
}
}  // namespace

uint32_t GetDriveType(const char* rootPath) {
    if (!rootPath) return DriveNoRootDir;
    const char* p = rootPath;
    if (std::strncmp(p, "\\\\?\\", 4) == 0) p += 4;
    if (IsDriveForm(p) && (p[2] == '\0' || ((p[2] == '\\' || p[2] == '/') && p[3] == '\0'))) {
        const Drive d = LookupDrive(p[0]);
        if (!d.mapped) return DriveNoRootDir;
        struct stat st;
        if (::stat(d.dir.empty() ? "/" : d.dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return DriveNoRootDir;
        return d.type;
    }
    // A folder: only a mount point (a directory on another device than its
    // parent) is a volume root, like a folder-mounted volume on Windows.
    std::string path;
    if (MapPath(rootPath, &path)) return DriveNoRootDir;
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
    const uint32_t err = MapPath(rootPath, &path);
    if (err) return err;
    struct statvfs vs;
    if (::statvfs(path.c_str(), &vs) != 0) return MapPathErrno(errno, path);
    *freeToCallerRet = static_cast<int64_t>(vs.f_bavail) * static_cast<int64_t>(vs.f_frsize);
    *totalRet = static_cast<int64_t>(vs.f_blocks) * static_cast<int64_t>(vs.f_frsize);
    return ErrSuccess;
}

uint32_t GetVolumeInformation(const char* rootPath, VolumeInfo* infoRet) {
    std::string path;
    const uint32_t err = MapPath(rootPath, &path);
    if (err) return err;
    struct statfs fs;
    struct stat st;
    if (::statfs(path.c_str(), &fs) != 0 || ::stat(path.c_str(), &st) != 0) return MapPathErrno(errno, path);
    const char* name;
    uint32_t flags = 0x1 | 0x2;  // case-sensitive search, case-preserved names
    switch (static_cast<unsigned long>(fs.f_type)) {
        case 0x65735546: name = "FUSE"; break;
        case 0xEF53: name = "EXT4"; break;
        case 0x9123683E: name = "BTRFS"; break;
        case 0x58465342: name = "XFS"; break;
        case 0x01021994: name = "TMPFS"; break;
        case 0x794C7630: name = "OVERLAYFS"; break;
        case 0x4d44: name = "FAT32", flags = 0x2; break;
        case 0x5346544e: name = "NTFS"; break;
        default: name = IsNetworkFs(static_cast<long>(fs.f_type)) ? "NETWORK" : "UNKNOWN"; break;
    }
    infoRet->volumeName.Set("");
    infoRet->fileSystemName.Set(name);
    infoRet->serialNumber = static_cast<uint32_t>(st.st_dev);
    infoRet->fileSystemFlags = flags;
    return ErrSuccess;
}

// ---- known folders and registry --------------------------------------------

uint32_t GetWindowsDirectory(QzString* dirRet) {
    dirRet->Set("C:\\Windows");
    return ErrSuccess;
}
uint32_t GetProgramFilesDirectory(QzString* dirRet) {
    dirRet->Set("C:\\Program Files");
    return ErrSuccess;
}
uint32_t GetCommonAppDataDirectory(QzString* dirRet) {
    dirRet->Set("C:\\ProgramData");
    return ErrSuccess;
}

uint32_t ReadRegistryString(const char*, const char*, QzString* valueRet) {
    valueRet->Clear();
    return ErrFileNotFound;
}

// ---- process and machine ---------------------------------------------------

uint32_t GetCurrentProcessId() { return static_cast<uint32_t>(::getpid()); }

bool GetProcessMemoryCounters(MemoryCounters* c) {
    FILE* f = std::fopen("/proc/self/statm", "r");
    if (!f) return false;
    long long size = 0;
    long long resident = 0;
    const int n = std::fscanf(f, "%lld %lld", &size, &resident);
    std::fclose(f);
    if (n != 2) return false;
    const long long page = ::sysconf(_SC_PAGESIZE);
    c->pagefileUsage = size * page;
    c->workingSetSize = resident * page;
    return true;
}

int64_t GetTotalPhysicalMemory() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long page = ::sysconf(_SC_PAGESIZE);
    return pages > 0 && page > 0 ? static_cast<int64_t>(pages) * page : 0;
}

bool Is64BitOperatingSystem() {
    struct utsname u;
    return ::uname(&u) == 0 && std::strstr(u.machine, "64") != nullptr;
}

void Sleep(uint32_t millis) {
    struct timespec ts;
    ts.tv_sec = millis / 1000;
    ts.tv_nsec = static_cast<long>(millis % 1000) * 1000000L;
    while (::nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

int64_t GetSystemTimeAsFileTime() {
    struct timespec ts;
    ::clock_gettime(CLOCK_REALTIME, &ts);
    return ToFileTime(ts);
}

void GetUtf8Arguments(int argc, char** argv, std::vector<QzString>* argsRet) {
    argsRet->clear();
    for (int i = 0; i < argc; ++i) argsRet->emplace_back(argv[i]);
}

void InitConsole() {}
bool SocketStartup() { return true; }
void SocketShutdown() {}

// ---- descriptions ----------------------------------------------------------

void GetOsDescription(OsDescription* d) {
    struct utsname u;
    if (::uname(&u) != 0) std::memset(&u, 0, sizeof u);
    d->productName.Set(u.sysname);
    if (FILE* f = std::fopen("/etc/os-release", "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, f)) {
            if (std::strncmp(line, "PRETTY_NAME=", 12) != 0) continue;
            std::string v(line + 12);
            while (!v.empty() && (v.back() == '\n' || v.back() == '"')) v.pop_back();
            if (!v.empty() && v[0] == '"') v.erase(0, 1);
            d->productName.Append(" (");
            d->productName.Append(v.c_str());
            d->productName.Append(")");
            break;
        }
        std::fclose(f);
    }
    d->version.Set(u.release);
    d->build.Set(u.version);
    d->machineName.Set(u.nodename);
    d->hostNote.Set("");
}

bool GetTimeZoneState(int64_t gmtMillis, TimeZoneState* s) {
    const time_t t = static_cast<time_t>(gmtMillis / 1000);
    struct tm tm;
    if (!::localtime_r(&t, &tm)) return false;
    s->offsetMinutes = static_cast<int32_t>(tm.tm_gmtoff / 60);
    s->dstState = tm.tm_isdst > 0 ? 2 : (tm.tm_isdst == 0 ? 1 : 0);
    s->zoneName.Set(tm.tm_zone ? tm.tm_zone : "");
    return true;
}

namespace {
// "en_US.UTF-8" -> "en-US"; "C", "POSIX" or nothing -> "" (no locale chosen).
void LocaleFromEnv(const char* const* vars, QzString* out) {
    out->Clear();
    for (const char* const* v = vars; *v; ++v) {
        const char* val = std::getenv(*v);
        if (!val || !*val) continue;
        if (std::strcmp(val, "C") == 0 || std::strcmp(val, "POSIX") == 0 || std::strncmp(val, "C.", 2) == 0) return;
        for (const char* p = val; *p && *p != '.' && *p != '@'; ++p) out->AppendChar(*p == '_' ? '-' : *p);
        return;
    }
}

bool FormatWithLocale(const struct tm& tm, const char* fmt, QzString* out) {
    locale_t loc = ::newlocale(LC_TIME_MASK, "", static_cast<locale_t>(0));
    if (!loc) loc = ::newlocale(LC_TIME_MASK, "C", static_cast<locale_t>(0));
    if (!loc) return false;
    char buf[256];
    const size_t n = ::strftime_l(buf, sizeof buf, fmt, &tm, loc);
    ::freelocale(loc);
    out->Set(buf, static_cast<int32_t>(n));
    return n > 0;
}

std::string LocaleFormat(nl_item item) {
    locale_t loc = ::newlocale(LC_TIME_MASK, "", static_cast<locale_t>(0));
    if (!loc) return item == D_FMT ? "%m/%d/%y" : "%H:%M:%S";
    std::string f = ::nl_langinfo_l(item, loc);
    ::freelocale(loc);
    return f;
}
}  // namespace

void GetSystemLocaleName(QzString* nameRet) {
    static const char* const kVars[] = {"LANG", nullptr};
    LocaleFromEnv(kVars, nameRet);
}

void GetUserLocaleName(QzString* nameRet) {
    static const char* const kVars[] = {"LC_ALL", "LC_TIME", "LANG", nullptr};
    LocaleFromEnv(kVars, nameRet);
}

bool FormatLocaleDate(int year, int month, int day, QzString* textRet) {
    struct tm tm = {};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    return FormatWithLocale(tm, LocaleFormat(D_FMT).c_str(), textRet);
}

bool FormatLocaleTime(int hour, int minute, int second, bool withSeconds, QzString* textRet) {
    struct tm tm = {};
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    std::string f = LocaleFormat(T_FMT);
    if (!withSeconds) {
        size_t p;
        while ((p = f.find("%r")) != std::string::npos) f.replace(p, 2, "%I:%M %p");
        while ((p = f.find("%T")) != std::string::npos) f.replace(p, 2, "%H:%M");
        while ((p = f.find(":%S")) != std::string::npos) f.erase(p, 3);
    }
    return FormatWithLocale(tm, f.c_str(), textRet);
}

}  // namespace QzOs

// ---- identity and access ----------------------------------------------------

namespace QzOs {

bool GetCurrentLoginName(QzString* nameRet) {
    struct passwd pw;
    struct passwd* found = nullptr;
    char buf[4096];
    if (::getpwuid_r(::geteuid(), &pw, buf, sizeof buf, &found) != 0 || !found) {
        nameRet->Set(QzCat("uid", static_cast<long long>(::geteuid())));
        return false;
    }
    nameRet->Set(found->pw_name);
    return true;
}

bool CurrentProcessHasAdminRights() { return ::geteuid() == 0; }

bool AccountMayReadFile(const char* winPath, const char* accountName, QzString* detailRet) {
    detailRet->Clear();
    std::string path;
    if (MapPath(winPath, &path) != ErrSuccess) {
        detailRet->Set("path_not_mappable");
        return false;
    }
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        detailRet->Set(QzCat("stat_failed_errno_", errno));
        return false;
    }
    uid_t uid = ::geteuid();
    gid_t gid = ::getegid();
    if (accountName) {
        struct passwd pw;
        struct passwd* found = nullptr;
        char buf[4096];
        if (::getpwnam_r(accountName, &pw, buf, sizeof buf, &found) != 0 || !found) {
            detailRet->Set(QzCat("unknown_account_", accountName));
            return false;
        }
        uid = found->pw_uid;
        gid = found->pw_gid;
    }
    if (uid == 0) {
        detailRet->Set("superuser_reads_everything");
        return true;
    }
    mode_t bit;
    const char* why;
    if (st.st_uid == uid) {
        bit = S_IRUSR, why = "owner_bits";
    } else if (st.st_gid == gid) {
        bit = S_IRGRP, why = "group_bits";
    } else {
        bit = S_IROTH, why = "other_bits";
    }
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
    detailRet->Set(QzCat(why, "_mode_", mode));
    return (st.st_mode & bit) != 0;
}

uint32_t GetFileLinkCount(const char* winPath, uint32_t* countRet) {
    *countRet = 1;
    std::string path;
    struct stat st;
    const uint32_t err = LstatPath(winPath, &path, &st);
    if (err) return err;
    *countRet = static_cast<uint32_t>(st.st_nlink);
    return ErrSuccess;
}

uint32_t TryLoadLibrary(const char*) { return ErrNotSupported; }

}  // namespace QzOs
