// Internal to the POSIX layer: the drive table, path mapping, error and time
// translation, shared by its source files.
//
// Windows-form paths are mapped onto POSIX paths through the drive table in
// QZ_DRIVES ("C=/dir;D=/other|removable", unset means "C=/"). A path that
// names no configured drive does not exist, as on Windows: relative and
// rooted paths ("x\y", "\x") resolve on the drive holding the working
// directory, and ".." never climbs above a drive's root.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <ctime>
#include <string>

#include "QzOs.h"

namespace QzOs::posix {

struct Drive {
    std::string dir;  // no trailing slash, "" for "/"
    uint32_t type = DriveFixed;
    bool mapped = false;
};

// The entry for a drive letter, re-read from QZ_DRIVES when it has changed
// (tests change it between cases). An unmapped letter comes back unmapped.
// The reference stays valid until QZ_DRIVES changes.
const Drive& LookupDrive(char letter);
inline bool IsDriveForm(const char* p) {
    const char l = static_cast<char>(p[0] & ~0x20);
    return l >= 'A' && l <= 'Z' && p[1] == ':';
}

// Maps a Windows-form path to a POSIX path; returns a Win32 error number (0
// on success). isDriveRootRet, when given, says whether the path is the root
// of its drive (a drive root lists no "." and ".." entries on Windows).
uint32_t MapPath(const char* winPath, std::string* out, bool* isDriveRootRet = nullptr);
// errno to the Win32 error number Windows would give.
uint32_t MapErrno(int e);
// As MapErrno, but ENOENT becomes "path not found" when the parent is missing.
uint32_t MapPathErrno(int e, const std::string& path);

constexpr int64_t kFileTimeEpochOffset = 116444736000000000LL;  // 1601 -> 1970 in 100 ns
inline int64_t ToFileTime(const struct timespec& ts) {
    return static_cast<int64_t>(ts.tv_sec) * 10000000LL + ts.tv_nsec / 100 + kFileTimeEpochOffset;
}

}  // namespace QzOs::posix
