// POSIX side of the file calls: the drive table and path mapping, directory
// enumeration, attributes, opening, reading and writing, moving and deleting.
//
// Differences a Windows machine would not show, and what this layer does:
// - A name holding a backslash, or bytes that are not UTF-8, cannot be written
//   as a Windows path component: such entries come back with nameOk false (the
//   listing logs and skips them) and can never be opened by name.
// - Symbolic links stand in for reparse points: one to a directory is a
//   directory with the reparse flag, any other link a file with it (size 0).
//   A directory that another file system is mounted on (it lies on another
//   device than its parent) is a directory with the reparse flag too, as a
//   folder with a volume or a share mounted into it is on Windows.
// - Share modes are emulated with flock(): an exclusive open takes LOCK_EX and
//   every other open LOCK_SH, so a conflict gives ErrSharingViolation.
// - The hidden attribute is not stored; names starting with "." read as hidden.
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "QzOs.h"
#include "QzOsInternal.h"
#include "QzUtf16String.h"

namespace QzOs {

namespace posix {

namespace {

struct DriveTable {
    std::string source = "\x01";  // the QZ_DRIVES text the table was built from
    Drive drives[26];
};

uint32_t ParseType(const std::string& t) {
    if (t == "removable") return DriveRemovable;
    if (t == "remote") return DriveRemote;
    if (t == "cdrom") return DriveCdrom;
    if (t == "ramdisk") return DriveRamdisk;
    return DriveFixed;
}

void Rebuild(DriveTable& t, const std::string& text) {
    t.source = text;
    for (Drive& d : t.drives) d = Drive();
    size_t pos = 0;
    while (pos <= text.size()) {
        size_t end = text.find(';', pos);
        if (end == std::string::npos) end = text.size();
        const std::string item = text.substr(pos, end - pos);
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

bool IsSep(char c) {
    return c == '\\' || c == '/';
}

// True when `path` is `dir` or lies below it.
bool IsInside(const std::string& path, const std::string& dir) {
    if (dir.empty()) return !path.empty() && path[0] == '/';
    return path.compare(0, dir.size(), dir) == 0 && (path.size() == dir.size() || path[dir.size()] == '/');
}

// The drive holding the working directory and the working directory's path
// on it ("\a\b", "" at the root). False when the working directory lies on
// no configured drive: then relative paths name nothing.
bool WorkingDirectoryDrive(char* letterRet, std::string* restRet) {
    char buf[PATH_MAX];
    if (!::getcwd(buf, sizeof buf)) return false;
    const std::string cwd(buf);
    size_t best = 0;
    bool found = false;
    for (char l = 'A'; l <= 'Z'; ++l) {
        const Drive d = LookupDrive(l);
        if (!d.mapped) continue;
        std::string dir = d.dir;
        if (!IsInside(cwd, dir)) {
            // The table may name a directory through a symbolic link.
            char real[PATH_MAX];
            if (!::realpath(d.dir.empty() ? "/" : d.dir.c_str(), real)) continue;
            dir = std::strcmp(real, "/") == 0 ? std::string() : std::string(real);
            if (!IsInside(cwd, dir)) continue;
        }
        if (found && dir.size() <= best) continue;
        found = true;
        best = dir.size();
        *letterRet = l;
        *restRet = cwd.substr(dir.size());
    }
    for (char& c : *restRet)
        if (c == '/') c = '\\';
    return found;
}

// True when every "\" of rest is followed by a name that does not begin
// with "." (or ends rest), and rest holds no "/".
bool IsPlainRest(const char* rest, size_t n) {
    if (std::memchr(rest, '/', n)) return false;
    const char* end = rest + n;
    for (const char* p = rest;
         (p = static_cast<const char*>(std::memchr(p, '\\', static_cast<size_t>(end - p))));) {
        ++p;
        if (p < end && (*p == '.' || *p == '\\')) return false;
    }
    return true;
}

}  // namespace

const Drive& LookupDrive(char letter) {
    static DriveTable table;
    static const Drive kUnmapped;
    const char* env = std::getenv("QZ_DRIVES");
    const char* now = env ? env : "C=/";
    if (table.source != now) Rebuild(table, now);
    const char l = static_cast<char>(letter & ~0x20);
    if (l < 'A' || l > 'Z') return kUnmapped;
    return table.drives[l - 'A'];
}

uint32_t MapPath(const char* win, std::string* out, bool* isDriveRootRet) {
    out->clear();
    if (isDriveRootRet) *isDriveRootRet = false;
    if (!win) return ErrInvalidParameter;
    if (std::strncmp(win, "\\\\?\\", 4) == 0) win += 4;
    if (*win == '\0') return ErrPathNotFound;  // the empty path names nothing
    char letter;
    std::string rest;
    if (IsDriveForm(win) && win[2] == '\\') {
        // The common form, "X:\a\b": no "." or ".." component, no empty one,
        // no "/": the components map one to one.
        const char* r = win + 2;
        const size_t n = std::strlen(r);
        if (IsPlainRest(r, n)) {
            const Drive& d = LookupDrive(win[0]);
            if (!d.mapped) return ErrPathNotFound;
            out->reserve(d.dir.size() + n);
            out->assign(d.dir);
            const size_t base = out->size();
            out->append(r, n);
            char* at = out->data() + base;
            char* const end = out->data() + out->size();
            while ((at = static_cast<char*>(std::memchr(at, '\\', static_cast<size_t>(end - at)))))
                *at++ = '/';
            if (n == 1 && isDriveRootRet) *isDriveRootRet = true;
            return ErrSuccess;
        }
    }
    if (IsDriveForm(win)) {
        letter = win[0];
        rest = win + 2;
    } else if (IsSep(win[0]) && IsSep(win[1])) {
        return ErrPathNotFound;  // UNC paths have no POSIX counterpart
    } else {
        std::string cwdRest;
        if (!WorkingDirectoryDrive(&letter, &cwdRest)) return ErrPathNotFound;
        rest = IsSep(win[0]) ? std::string(win) : cwdRest + "\\" + win;
    }
    const Drive& d = LookupDrive(letter);
    if (!d.mapped) return ErrPathNotFound;
    // Component by component: "." and empty components vanish and ".." stops
    // at the drive's root, as Windows resolves them.
    out->assign(d.dir);
    const size_t base = out->size();
    size_t i = 0;
    while (i < rest.size()) {
        while (i < rest.size() && IsSep(rest[i])) ++i;
        size_t j = i;
        while (j < rest.size() && !IsSep(rest[j])) ++j;
        const size_t n = j - i;
        if (n == 2 && rest[i] == '.' && rest[i + 1] == '.') {
            const size_t slash = out->find_last_of('/');
            out->resize(slash == std::string::npos || slash < base ? base : slash);
        } else if (n > 0 && !(n == 1 && rest[i] == '.')) {
            out->push_back('/');
            out->append(rest, i, n);
        }
        i = j;
    }
    if (out->size() == base) {
        out->push_back('/');
        if (isDriveRootRet) *isDriveRootRet = true;
    } else if (!rest.empty() && IsSep(rest.back())) {
        out->push_back('/');  // "C:\file.txt\" must not name the file
    }
    return ErrSuccess;
}

namespace {
bool ParentExists(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return true;
    if (slash == 0) return true;
    struct stat st;
    return ::stat(path.substr(0, slash).c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}
}  // namespace

uint32_t MapErrno(int e) {
    switch (e) {
        case 0:
            return ErrSuccess;
        case ENOENT:
            return ErrFileNotFound;
        case ENOTDIR:
            return ErrPathNotFound;
        case EACCES:
        case EPERM:
        case EISDIR:
            return ErrAccessDenied;
        case EEXIST:
            return ErrFileExists;
        case EMFILE:
        case ENFILE:
            return ErrTooManyOpenFiles;
        case ENOMEM:
            return ErrNotEnoughMemory;
        case EXDEV:
            return ErrNotSameDevice;
        case EROFS:
            return ErrWriteProtect;
        case EWOULDBLOCK:
            return ErrSharingViolation;
        case EINVAL:
            return ErrInvalidParameter;
        case ENOSPC:
            return ErrDiskFull;
        case ENOTEMPTY:
            return ErrDirNotEmpty;
        case EBUSY:
            return ErrBusy;
        case ENAMETOOLONG:
            return ErrFilenameExcedRange;
        case EIO:
            return ErrIoDevice;
        case ELOOP:
            return ErrCantResolveFilename;
        case ENODEV:
        case ENXIO:
            return ErrNotReady;
        default:
            return ErrGenFailure;
    }
}

// ENOENT means "file not found" when the parent exists, else "path not found".
uint32_t MapPathErrno(int e, const std::string& path) {
    if (e == ENOENT && !ParentExists(path)) return ErrPathNotFound;
    return MapErrno(e);
}

}  // namespace posix

using posix::MapErrno;
using posix::MapPath;
using posix::MapPathErrno;
using posix::ToFileTime;

namespace {

bool Earlier(const struct timespec& a, const struct timespec& b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

// POSIX has no creation time in stat; the status-change time is the closest
// stand-in that never lies in the future of the data.
int64_t CreationTimeOf(const struct stat& st) {
    return ToFileTime(Earlier(st.st_ctim, st.st_mtim) ? st.st_ctim : st.st_mtim);
}

// Copies n bytes of a name in a few word moves: names are short, and an
// inlined string move costs more to start than such a name takes.
inline void CopyName(char* to, const char* from, size_t n) {
    if (n >= 16) {
        for (size_t i = 0; i + 16 <= n; i += 16) std::memcpy(to + i, from + i, 16);
        std::memcpy(to + n - 16, from + n - 16, 16);
    } else if (n >= 8) {
        std::memcpy(to, from, 8);
        std::memcpy(to + n - 8, from + n - 8, 8);
    } else if (n >= 4) {
        std::memcpy(to, from, 4);
        std::memcpy(to + n - 4, from + n - 4, 4);
    } else {
        for (size_t i = 0; i < n; ++i) to[i] = from[i];
    }
}

// Attributes as Windows would report them. `linkTarget` is the stat of what a
// symbolic link points to (null when it is not a link or is dangling).
uint32_t AttributesOf(const char* name, const struct stat& st, const struct stat* linkTarget) {
    uint32_t a = 0;
    if (S_ISLNK(st.st_mode)) {
        a = AttrReparsePoint;
        if (linkTarget && S_ISDIR(linkTarget->st_mode))
            a |= AttrDirectory;
        else
            a |= AttrArchive;
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

// A directory other than a drive's root whose parent lies on another device.
bool IsMountPoint(const std::string& path, const struct stat& st) {
    std::string p = path;
    while (p.size() > 1 && p.back() == '/') p.pop_back();
    const size_t slash = p.find_last_of('/');
    if (slash == std::string::npos || p.size() <= 1) return false;
    struct stat parent;
    return ::stat(slash == 0 ? "/" : p.substr(0, slash).c_str(), &parent) == 0 && parent.st_dev != st.st_dev;
}

}  // namespace

// ---- directory enumeration -------------------------------------------------

struct FindHandle {
    DIR* dir = nullptr;
    int fd = -1;
    struct stat self = {};   // the listed directory itself: its "." entry, and its device, on
    bool haveSelf = false;   // which a subdirectory that lies elsewhere is a mount point
    std::string wildcard;    // the pattern's last component; empty matches everything
    bool driveRoot = false;  // a drive root lists no "." and ".." on Windows
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
        const char* name = e->d_name;
        const bool dots = name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
        if (h->driveRoot && dots) continue;
        if (!h->wildcard.empty() && !WildcardMatch(h->wildcard.c_str(), name)) continue;
        struct stat st;
        // Metadata comes from the directory's own descriptor: no path is
        // resolved again per entry. "." and ".." are given the directory's
        // own metadata, examined already: a walk only skips them.
        if (dots && h->haveSelf) {
            st = h->self;
        } else if (::fstatat(h->fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT) continue;  // vanished since readdir
            std::memset(&st, 0, sizeof st);
            st.st_mode = S_IFREG;
        }
        struct stat target;
        const bool haveTarget = S_ISLNK(st.st_mode) && ::fstatat(h->fd, e->d_name, &target, 0) == 0;
        const size_t n = std::strlen(e->d_name);
        const size_t cap = sizeof d->name - 1;
        const size_t copy = n < cap ? n : cap;
        CopyName(d->name, e->d_name, copy);
        d->name[copy] = '\0';
        d->nameLen = static_cast<int32_t>(copy);
        d->nameOk = copy == n && std::memchr(e->d_name, '\\', n) == nullptr &&
                    QzUtf8::IsValid(e->d_name, static_cast<int32_t>(n));
        d->attributes = AttributesOf(e->d_name, st, haveTarget ? &target : nullptr);
        if (S_ISDIR(st.st_mode) && !dots && h->haveSelf && st.st_dev != h->self.st_dev)
            d->attributes |= AttrReparsePoint;
        d->creationTime = CreationTimeOf(st);
        d->lastWriteTime = ToFileTime(st.st_mtim);
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
    if (dirPath.empty()) dirPath = ".";  // a bare name searches the working directory
    if (wildcard.empty()) return ErrFileNotFound;
    if (wildcard == "*" || wildcard == "*.*") wildcard.clear();
    std::string path;
    bool driveRoot = false;
    const uint32_t err = MapPath(dirPath.c_str(), &path, &driveRoot);
    if (err) return err;
    DIR* dir = ::opendir(path.c_str());
    if (!dir) {
        if (errno == ENOENT || errno == ENOTDIR) return ErrPathNotFound;
        return MapErrno(errno);
    }
    auto* h = new FindHandle;
    h->dir = dir;
    h->fd = ::dirfd(dir);
    h->haveSelf = ::fstat(h->fd, &h->self) == 0;
    h->wildcard = std::move(wildcard);
    h->driveRoot = driveRoot;
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
    bool driveRoot = false;
    const uint32_t err = MapPath(winPath, &path, &driveRoot);
    if (err) return err;
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) return MapPathErrno(errno, path);
    struct stat target;
    const bool haveTarget = S_ISLNK(st.st_mode) && ::stat(path.c_str(), &target) == 0;
    dataRet->attributes = AttributesOf(BaseName(path), st, haveTarget ? &target : nullptr);
    // A drive's root is never a reparse point, wherever its directory is mounted.
    if (S_ISDIR(st.st_mode) && !driveRoot && IsMountPoint(path, st)) dataRet->attributes |= AttrReparsePoint;
    dataRet->creationTime = CreationTimeOf(st);
    dataRet->lastWriteTime = ToFileTime(st.st_mtim);
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
        case OpenMode::ReadShareRead:
            flags |= O_RDONLY;
            break;
        case OpenMode::ReadExclusive:
            flags |= O_RDONLY, lockOp = LOCK_EX;
            break;
        case OpenMode::CreateNew:
            flags |= O_RDWR | O_CREAT | O_EXCL;
            break;
        case OpenMode::CreateAlways:
            flags |= O_WRONLY | O_CREAT;
            break;
        case OpenMode::Append:
            flags |= O_WRONLY | O_CREAT | O_APPEND;
            break;
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
    if (creationRet) *creationRet = CreationTimeOf(st);
    if (lastWriteRet) *lastWriteRet = ToFileTime(st.st_mtim);
    return ErrSuccess;
}

uint32_t FlushFile(Handle h) {
    return ::fsync(static_cast<int>(h)) == 0 ? ErrSuccess : MapErrno(errno);
}

void WriteBehind(Handle h, int64_t settledFrom, int64_t startFrom, int64_t end) {
    const int fd = static_cast<int>(h);
    if (startFrom > settledFrom) {
#ifdef __linux__
        ::sync_file_range(fd, settledFrom, startFrom - settledFrom,
                          SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
#else
        ::fdatasync(fd);
#endif
        ::posix_fadvise(fd, settledFrom, startFrom - settledFrom, POSIX_FADV_DONTNEED);
    }
#ifdef __linux__
    if (end > startFrom) ::sync_file_range(fd, startFrom, end - startFrom, SYNC_FILE_RANGE_WRITE);
#else
    (void)end;
#endif
}

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
    const int64_t since1970 = lastWriteTime - posix::kFileTimeEpochOffset;  // 100 ns units
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

uint32_t GetFileLinkCount(const char* winPath, uint32_t* countRet) {
    *countRet = 1;
    std::string path;
    struct stat st;
    const uint32_t err = LstatPath(winPath, &path, &st);
    if (err) return err;
    *countRet = static_cast<uint32_t>(st.st_nlink);
    return ErrSuccess;
}

}  // namespace QzOs
