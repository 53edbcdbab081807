// QzOs: the thin operating-system layer. Every other file is shared between the
// Windows and the POSIX build; only os/win32/ and os/posix/ differ, each with
// the same files by concern (QzOsFiles, QzOsVolumes, QzOsSystem for process,
// registry, known folders, clock and locale, QzOsSecurity, QzOsNet), each
// function only translating one call of this interface.
//
// Paths are always in Windows form, UTF-8, e.g. "C:\Users\x\file.txt". The
// Windows layer converts to UTF-16 at the call (adding "\\?\" to absolute
// paths longer than 250 bytes); the POSIX layer maps drive letters to
// directories, and a path on no configured drive does not exist.
// Calls report failures as Win32 error numbers on both builds, so the shared
// code logs the same lines everywhere.
#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "QzString.h"

namespace QzOs {

// Win32 error numbers the shared code tests for or that the POSIX layer maps to.
enum : uint32_t {
    ErrSuccess = 0,
    ErrFileNotFound = 2,
    ErrPathNotFound = 3,
    ErrTooManyOpenFiles = 4,
    ErrAccessDenied = 5,
    ErrInvalidHandle = 6,
    ErrNotEnoughMemory = 8,
    ErrInvalidDrive = 15,
    ErrNotSameDevice = 17,
    ErrNoMoreFiles = 18,
    ErrWriteProtect = 19,
    ErrNotReady = 21,
    ErrGenFailure = 31,
    ErrSharingViolation = 32,
    ErrLockViolation = 33,
    ErrHandleEof = 38,
    ErrNotSupported = 50,
    ErrFileExists = 80,
    ErrInvalidParameter = 87,
    ErrDiskFull = 112,
    ErrInvalidName = 123,
    ErrDirNotEmpty = 145,
    ErrBusy = 170,
    ErrAlreadyExists = 183,
    ErrFilenameExcedRange = 206,
    ErrDirectory = 267,
    ErrNoUnicodeTranslation = 1113,
    ErrIoDevice = 1117,
    ErrCantResolveFilename = 1921,
};

// File attribute bits (Win32 values).
enum : uint32_t {
    AttrReadOnly = 0x1,
    AttrHidden = 0x2,
    AttrSystem = 0x4,
    AttrDirectory = 0x10,
    AttrArchive = 0x20,
    AttrNormal = 0x80,
    AttrReparsePoint = 0x400,
};

// Drive types (GetDriveType values).
enum : uint32_t {
    DriveUnknown = 0,
    DriveNoRootDir = 1,
    DriveRemovable = 2,
    DriveFixed = 3,
    DriveRemote = 4,
    DriveCdrom = 5,
    DriveRamdisk = 6,
};

// Times are Win32 file times: 100-nanosecond intervals since 1601-01-01 UTC.
struct FileAttrData {
    uint32_t attributes = 0;
    int64_t creationTime = 0;
    int64_t lastWriteTime = 0;
    int64_t size = 0;
};

// One directory entry. `name` is UTF-8; `nameOk` is false when the name cannot
// be expressed as a UTF-8 Windows path component (an unpaired UTF-16 surrogate
// on Windows; invalid UTF-8 or a backslash in the name on POSIX). Such entries
// are reported so the caller can log and skip them.
struct FindData {
    uint32_t attributes = 0;
    int64_t creationTime = 0;
    int64_t lastWriteTime = 0;
    int64_t size = 0;
    bool nameOk = true;
    int32_t nameLen = 0;
    char name[1024] = {};
};

struct FindHandle;  // opaque, owned by the layer until FindClose

// Opens `pattern` ("<dir>\*", optionally with the "\\?\" prefix) and returns
// the first entry.
uint32_t FindFirstFile(const char* pattern, FindHandle** handleRet, FindData* dataRet);
// ErrNoMoreFiles at the end.
uint32_t FindNextFile(FindHandle* handle, FindData* dataRet);
void FindClose(FindHandle* handle);

uint32_t GetFileAttributesEx(const char* path, FileAttrData* dataRet);
uint32_t SetFileHidden(const char* path, bool hidden);

using Handle = intptr_t;
constexpr Handle kInvalidHandle = -1;

enum class OpenMode {
    ReadShared,     // GENERIC_READ, share read+write, open existing
    ReadShareRead,  // GENERIC_READ, share read, open existing
    ReadExclusive,  // GENERIC_READ, no sharing, open existing
    CreateNew,      // read+write, share read+write, fails if the file exists
    CreateAlways,   // write, share read, create or truncate
    Append,         // append only, share read+write, create if missing
};

uint32_t OpenFile(const char* path, OpenMode mode, Handle* handleRet);
// Reads up to n bytes; *gotRet is 0 at end of file.
uint32_t ReadFile(Handle h, void* buf, uint32_t n, uint32_t* gotRet);
// Writes all n bytes in one call to the system.
uint32_t WriteFile(Handle h, const void* buf, uint32_t n);
uint32_t GetFileSize(Handle h, int64_t* sizeRet);
uint32_t GetFileTimes(Handle h, int64_t* creationRet, int64_t* lastWriteRet);
uint32_t FlushFile(Handle h);
// For a long file written front to back and not read while it grows: waits
// until bytes [settledFrom, startFrom) are on the disk (their write-back was
// started by earlier calls) and lets the system drop them from its cache,
// then starts write-back of [startFrom, end) without waiting. The file's
// pages are recycled as it grows and the closing flush has little left to
// do. Durability is still FlushFile's job; a system without such control
// does nothing.
void WriteBehind(Handle h, int64_t settledFrom, int64_t startFrom, int64_t end);
void CloseFile(Handle h);

// Moves src onto dst in one step, replacing dst, and returns only once the
// move is durable (MoveFileEx with replace-existing and write-through).
uint32_t MoveFileReplace(const char* src, const char* dst);
uint32_t DeleteFile(const char* path);
// Sets a file's last-modification time (a Win32 file time).
uint32_t SetFileLastWriteTime(const char* path, int64_t lastWriteTime);
uint32_t CreateDirectory(const char* path);
uint32_t RemoveDirectory(const char* path);

// Volumes.
uint32_t GetLogicalDrives();  // bit 0 = A:, bit 25 = Z:
uint32_t GetDriveType(const char* rootPath);
uint32_t GetDiskFreeSpace(const char* rootPath, int64_t* freeToCallerRet, int64_t* totalRet);
struct VolumeInfo {
    QzString fileSystemName;
    uint32_t serialNumber = 0;
    uint32_t fileSystemFlags = 0;  // FILE_CASE_SENSITIVE_SEARCH 0x1, FILE_CASE_PRESERVED_NAMES 0x2
};
uint32_t GetVolumeInformation(const char* rootPath, VolumeInfo* infoRet);

// Known folders, without a trailing backslash. A non-zero result means the
// system call itself failed (callers have fallbacks for that).
uint32_t GetWindowsDirectory(QzString* dirRet);
uint32_t GetProgramFilesDirectory(QzString* dirRet);
uint32_t GetCommonAppDataDirectory(QzString* dirRet);

// Reads a string value below HKEY_LOCAL_MACHINE. The POSIX build has no
// registry: every read fails with ErrFileNotFound.
uint32_t ReadRegistryString(const char* keyPath, const char* valueName, QzString* valueRet);

// Process and machine.
uint32_t GetCurrentProcessId();
struct MemoryCounters {
    int64_t pagefileUsage = 0;   // virtual memory committed by the process
    int64_t workingSetSize = 0;  // resident memory
};
bool GetProcessMemoryCounters(MemoryCounters* countersRet);
int64_t GetTotalPhysicalMemory();
bool Is64BitOperatingSystem();
void Sleep(uint32_t millis);
int64_t GetSystemTimeAsFileTime();

// The program's arguments as UTF-8 (argv[0] included). Windows takes them from
// the wide-character command line, so no code page can garble them.
void GetUtf8Arguments(int argc, char** argv, std::vector<QzString>* argsRet);

// The console speaks UTF-8; sockets are started once per process.
void InitConsole();
bool SocketStartup();
void SocketShutdown();

// Identity and access, for the file diagnostics.
bool GetCurrentLoginName(QzString* nameRet);
bool CurrentProcessHasAdminRights();
// Whether an account (null: this process's own login) may read the file by
// the file's own security settings: the access list's effective rights for
// the account on Windows, the owner/group/other permission bits on POSIX.
// detailRet says how the answer was reached or why there is none.
bool AccountMayReadFile(const char* path, const char* accountName, QzString* detailRet);
uint32_t GetFileLinkCount(const char* path, uint32_t* countRet);
// Loads a file as a DLL without running its code, then unloads it. POSIX
// cannot load Windows DLLs: ErrNotSupported.
uint32_t TryLoadLibrary(const char* path);

// Descriptions for the diagnostic switches.
struct OsDescription {
    QzString productName;  // e.g. "Windows 10 Pro", "Linux"
    QzString version;      // e.g. "10.0.19045", kernel release
    QzString build;        // build or extra detail, may be empty
    QzString machineName;
    QzString hostNote;  // e.g. "Wine 8.0" when running under a compatibility layer
};
void GetOsDescription(OsDescription* descRet);

struct TimeZoneState {
    int32_t offsetMinutes = 0;  // local time = GMT + offset
    int dstState = 0;           // 0 unknown or no daylight saving, 1 standard time, 2 daylight time
    QzString zoneName;
};
// The local offset and daylight state in force at the given GMT time.
bool GetTimeZoneState(int64_t gmtMillis, TimeZoneState* stateRet);

// Locale names in BCP-47 form ("en-US").
void GetSystemLocaleName(QzString* nameRet);
void GetUserLocaleName(QzString* nameRet);
// Formats a calendar date or time the way the user's locale shows it.
bool FormatLocaleDate(int year, int month, int day, QzString* textRet);
bool FormatLocaleTime(int hour, int minute, int second, bool withSeconds, QzString* textRet);

// ---- volumes: identity and access ----
struct VolumeIdentity {
    QzString uuid;          // the system's own identifier of the volume; empty when it has none
    bool readOnly = false;  // the volume refuses writes
};
// The volume at a drive root: its identifier (the GUID of its volume name on
// Windows, the file-system UUID on POSIX when the system knows one) and
// whether it is read-only. Fails only when the volume cannot be examined at all.
uint32_t GetVolumeIdentity(const char* rootPath, VolumeIdentity* idRet);

}  // namespace QzOs

// ---- network adapters ----
namespace QzOs {

// The six-byte hardware address of the first network adapter that has one
// (loopback and all-zero addresses are skipped); false when there is none.
bool GetFirstAdapterHardwareAddress(unsigned char mac[6]);

}  // namespace QzOs

// ---- registry enumeration, for the installed-programs report ----
namespace QzOs {

// The two views of the registry a 64-bit Windows keeps: the native one and
// the one 32-bit programs see (WOW6432Node).
enum class RegistryView { Native64, Wow32 };

struct RegistryKeyStrings {
    QzString keyName;
    // Name and text of every string value (REG_SZ, REG_EXPAND_SZ) of the key.
    std::vector<std::pair<QzString, QzString>> strings;
};

// Every direct subkey of an HKEY_LOCAL_MACHINE key in the given view, each
// with its string values, in the order the registry returns them. The POSIX
// build has no registry: ErrNotSupported.
uint32_t ReadRegistrySubkeyStrings(const char* keyPath, RegistryView view,
                                   std::vector<RegistryKeyStrings>* keysRet);

}  // namespace QzOs
