// QzOs for Windows: each function translates one call of the layer into the
// wide-character Win32 call that does the work. Paths arrive as UTF-8 and are
// converted to UTF-16 at the call; errors are GetLastError() values as is.
#include <winsock2.h>  // before windows.h, which would otherwise pull in winsock 1
#include <windows.h>

#include <aclapi.h>
#include <psapi.h>
#include <shellapi.h>
#include <shlobj.h>

// windows.h maps these names to their ...W variants; the layer's functions of
// the same names must keep their own names so the shared code links to them.
#undef FindFirstFile
#undef FindNextFile
#undef GetFileAttributesEx
#undef DeleteFile
#undef CreateDirectory
#undef RemoveDirectory
#undef GetDriveType
#undef GetDiskFreeSpace
#undef GetVolumeInformation
#undef GetWindowsDirectory

#include <cstring>
#include <cwchar>
#include <new>
#include <vector>

#include "QzOs.h"
#include "QzUtf16String.h"

struct QzOs::FindHandle {
    HANDLE h = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAW data;
    // Reused for every entry so that reading a directory allocates nothing
    // once the buffers have grown to the longest name.
    char16_t units[MAX_PATH + 1];
    QzString utf8;
};

namespace QzOs {
namespace {

const wchar_t* W(const QzUtf16String& s) { return reinterpret_cast<const wchar_t*>(s.Data()); }

int64_t FromFileTime(const FILETIME& ft) {
    return static_cast<int64_t>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
}

FILETIME ToFileTime(int64_t t) {
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(static_cast<uint64_t>(t) & 0xFFFFFFFFu);
    ft.dwHighDateTime = static_cast<DWORD>(static_cast<uint64_t>(t) >> 32);
    return ft;
}

int64_t FromSizeParts(DWORD high, DWORD low) {
    return static_cast<int64_t>((static_cast<uint64_t>(high) << 32) | low);
}

HANDLE ToWin(Handle h) { return reinterpret_cast<HANDLE>(h); }

uint32_t LastError() {
    const DWORD e = ::GetLastError();
    // A failed call always sets an error; 0 here would read as success.
    return e != 0 ? static_cast<uint32_t>(e) : static_cast<uint32_t>(ERROR_GEN_FAILURE);
}

// Replaces each unpaired surrogate, which UTF-8 cannot carry, by '?'.
void ReplaceUnpairedSurrogates(char16_t* u, int32_t units) {
    for (int32_t i = 0; i < units; ++i) {
        const char16_t c = u[i];
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < units && u[i + 1] >= 0xDC00 && u[i + 1] <= 0xDFFF) {
            ++i;
        } else if (c >= 0xD800 && c <= 0xDFFF) {
            u[i] = u'?';
        }
    }
}

// UTF-16 from the system to UTF-8, with '?' for unpaired surrogates so the
// text stays readable; the result says whether it came through unchanged.
bool Utf16ToUtf8Lossy(const wchar_t* w, int32_t units, QzString* out) {
    std::vector<char16_t> u(w, w + units);
    if (QzUtf16String::ConvertQzUtf16StringToUtf8(u.data(), units, out)) return true;
    ReplaceUnpairedSurrogates(u.data(), units);
    QzUtf16String::ConvertQzUtf16StringToUtf8(u.data(), units, out);
    return false;
}

void AssignWide(const wchar_t* w, QzString* out) {
    Utf16ToUtf8Lossy(w, static_cast<int32_t>(std::wcslen(w)), out);
}

void StripTrailingBackslash(QzString* s) {
    // Callers add their own separator, so even a root comes without one:
    // "C:\" becomes "C:".
    while (s->Length() > 0 && s->Last() == '\\') s->SetLength(s->Length() - 1);
}

// Copies the current find entry into `out`, converting the name through the
// handle's reusable buffers.
void FillFindData(FindHandle* fh, FindData* out) {
    const WIN32_FIND_DATAW& d = fh->data;
    out->attributes = d.dwFileAttributes;
    out->creationTime = FromFileTime(d.ftCreationTime);
    out->lastWriteTime = FromFileTime(d.ftLastWriteTime);
    out->size = FromSizeParts(d.nFileSizeHigh, d.nFileSizeLow);

    int32_t units = 0;
    while (units < MAX_PATH && d.cFileName[units] != 0) {
        fh->units[units] = static_cast<char16_t>(d.cFileName[units]);
        ++units;
    }
    fh->units[units] = 0;
    bool ok = QzUtf16String::ConvertQzUtf16StringToUtf8(fh->units, units, &fh->utf8);
    if (!ok) {
        // Reported with '?' in place of each unpaired surrogate so the caller
        // can log which entry it skips.
        ReplaceUnpairedSurrogates(fh->units, units);
        QzUtf16String::ConvertQzUtf16StringToUtf8(fh->units, units, &fh->utf8);
    }
    int32_t len = fh->utf8.Length();
    if (len > static_cast<int32_t>(sizeof(out->name)) - 1) {
        // Cannot happen for a 255-unit name (at most 765 bytes); cut rather
        // than overrun, and flag the name as unusable.
        len = static_cast<int32_t>(sizeof(out->name)) - 1;
        ok = false;
    }
    if (len > 0) std::memcpy(out->name, fh->utf8.Data(), static_cast<size_t>(len));
    out->name[len] = '\0';
    out->nameLen = len;
    // Windows itself never returns a separator inside a name, but Wine passes
    // a Unix name with a backslash through as is; joined to its directory it
    // would name a different path.
    out->nameOk = ok && !std::memchr(out->name, '\\', static_cast<size_t>(len)) &&
                  !std::memchr(out->name, '/', static_cast<size_t>(len));
}

// Registry value as raw bytes, growing the buffer if the value grows between
// the size query and the read.
uint32_t QueryRegistryValue(const char* keyPath, const char* valueName, DWORD* typeRet,
                            std::vector<BYTE>* dataRet) {
    QzUtf16String key;
    QzUtf16String value;
    if (!key.ConvertUtf8QzStringToUtf16(keyPath, static_cast<int32_t>(std::strlen(keyPath)), false) ||
        !value.ConvertUtf8QzStringToUtf16(valueName, static_cast<int32_t>(std::strlen(valueName)), false)) {
        return ErrNoUnicodeTranslation;
    }
    HKEY hk = nullptr;
    LONG rc = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, W(key), 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &hk);
    if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
    DWORD size = 0;
    rc = ::RegQueryValueExW(hk, W(value), nullptr, typeRet, nullptr, &size);
    for (int attempt = 0; rc == ERROR_SUCCESS || rc == ERROR_MORE_DATA; ++attempt) {
        // Two spare units so a string stored without its terminator still ends.
        dataRet->assign(size + 2 * sizeof(wchar_t), 0);
        DWORD got = size;
        rc = ::RegQueryValueExW(hk, W(value), nullptr, typeRet, dataRet->data(), &got);
        if (rc == ERROR_SUCCESS) {
            dataRet->resize(got);
            break;
        }
        if (rc != ERROR_MORE_DATA || attempt == 4) break;
        size = got > size ? got : size * 2 + 64;
    }
    ::RegCloseKey(hk);
    return static_cast<uint32_t>(rc);
}

uint32_t ReadRegistryDword(const char* keyPath, const char* valueName, DWORD* valueRet) {
    DWORD type = 0;
    std::vector<BYTE> data;
    const uint32_t rc = QueryRegistryValue(keyPath, valueName, &type, &data);
    if (rc != 0) return rc;
    if (type != REG_DWORD || data.size() < sizeof(DWORD)) return ERROR_UNSUPPORTED_TYPE;
    std::memcpy(valueRet, data.data(), sizeof(DWORD));
    return 0;
}

// Converts an error-reporting HRESULT to the Win32 number it carries, or
// passes it on whole when it is not a Win32 error.
uint32_t FromHresult(HRESULT hr) {
    if (HRESULT_FACILITY(hr) == FACILITY_WIN32) return static_cast<uint32_t>(HRESULT_CODE(hr));
    return static_cast<uint32_t>(hr);
}

uint32_t GetShellFolder(int csidl, QzString* dirRet) {
    wchar_t buf[MAX_PATH + 1] = {};
    // DONT_VERIFY: the answer is the configured location whether or not the
    // folder exists; only a failure of the call itself is reported.
    const HRESULT hr = ::SHGetFolderPathW(nullptr, csidl | CSIDL_FLAG_DONT_VERIFY, nullptr, SHGFP_TYPE_CURRENT, buf);
    if (FAILED(hr)) return FromHresult(hr);
    AssignWide(buf, dirRet);
    StripTrailingBackslash(dirRet);
    return dirRet->IsEmpty() ? static_cast<uint32_t>(ERROR_PATH_NOT_FOUND) : 0;
}

bool MakeSystemTime(int year, int month, int day, int hour, int minute, int second, SYSTEMTIME* st) {
    if (year < 1601 || year > 30827 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 ||
        hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) {
        return false;
    }
    *st = SYSTEMTIME{};
    st->wYear = static_cast<WORD>(year);
    st->wMonth = static_cast<WORD>(month);
    st->wDay = static_cast<WORD>(day);
    st->wHour = static_cast<WORD>(hour);
    st->wMinute = static_cast<WORD>(minute);
    st->wSecond = static_cast<WORD>(second);
    return true;
}

}  // namespace

// ---------------------------------------------------------------- directories

uint32_t FindFirstFile(const char* pattern, FindHandle** handleRet, FindData* dataRet) {
    *handleRet = nullptr;
    QzUtf16String wpattern;
    if (!wpattern.ConvertUtf8QzStringToUtf16(pattern, static_cast<int32_t>(std::strlen(pattern)), true)) {
        return ErrNoUnicodeTranslation;
    }
    auto* fh = new (std::nothrow) FindHandle;
    if (!fh) return ErrNotEnoughMemory;
    // Basic info skips the 8.3 short name nobody reads; large fetch asks for
    // bigger batches from the file system per call.
    fh->h = ::FindFirstFileExW(W(wpattern), FindExInfoBasic, &fh->data, FindExSearchNameMatch, nullptr,
                               FIND_FIRST_EX_LARGE_FETCH);
    if (fh->h == INVALID_HANDLE_VALUE) {
        const uint32_t e = LastError();
        delete fh;
        return e;
    }
    FillFindData(fh, dataRet);
    *handleRet = fh;
    return 0;
}

uint32_t FindNextFile(FindHandle* handle, FindData* dataRet) {
    if (!handle || handle->h == INVALID_HANDLE_VALUE) return ErrInvalidHandle;
    if (!::FindNextFileW(handle->h, &handle->data)) return LastError();
    FillFindData(handle, dataRet);
    return 0;
}

void FindClose(FindHandle* handle) {
    if (!handle) return;
    if (handle->h != INVALID_HANDLE_VALUE) ::FindClose(handle->h);
    delete handle;
}

uint32_t GetFileAttributesEx(const char* path, FileAttrData* dataRet) {
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        return ErrNoUnicodeTranslation;
    }
    WIN32_FILE_ATTRIBUTE_DATA d;
    if (!::GetFileAttributesExW(W(wpath), GetFileExInfoStandard, &d)) return LastError();
    dataRet->attributes = d.dwFileAttributes;
    dataRet->creationTime = FromFileTime(d.ftCreationTime);
    dataRet->lastWriteTime = FromFileTime(d.ftLastWriteTime);
    dataRet->size = FromSizeParts(d.nFileSizeHigh, d.nFileSizeLow);
    return 0;
}

uint32_t SetFileHidden(const char* path, bool hidden) {
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        return ErrNoUnicodeTranslation;
    }
    const DWORD attrs = ::GetFileAttributesW(W(wpath));
    if (attrs == INVALID_FILE_ATTRIBUTES) return LastError();
    // Only these bits can be set through SetFileAttributes; the others
    // (directory, reparse point, compressed, ...) describe the file.
    constexpr DWORD kSettable = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                                FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_OFFLINE |
                                FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;
    DWORD want = attrs & kSettable;
    want = hidden ? (want | FILE_ATTRIBUTE_HIDDEN) : (want & ~static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN));
    if (want == (attrs & kSettable)) return 0;
    if (want == 0) want = FILE_ATTRIBUTE_NORMAL;
    if (!::SetFileAttributesW(W(wpath), want)) return LastError();
    return 0;
}

// ---------------------------------------------------------------------- files

uint32_t OpenFile(const char* path, OpenMode mode, Handle* handleRet) {
    *handleRet = kInvalidHandle;
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        return ErrNoUnicodeTranslation;
    }
    DWORD access = 0;
    DWORD share = 0;
    DWORD disposition = 0;
    DWORD flags = FILE_ATTRIBUTE_NORMAL;
    switch (mode) {
        case OpenMode::ReadShared:
            access = GENERIC_READ, share = FILE_SHARE_READ | FILE_SHARE_WRITE, disposition = OPEN_EXISTING;
            flags |= FILE_FLAG_SEQUENTIAL_SCAN;
            break;
        case OpenMode::ReadShareRead:
            access = GENERIC_READ, share = FILE_SHARE_READ, disposition = OPEN_EXISTING;
            flags |= FILE_FLAG_SEQUENTIAL_SCAN;
            break;
        case OpenMode::ReadExclusive:
            access = GENERIC_READ, share = 0, disposition = OPEN_EXISTING;
            break;
        case OpenMode::CreateNew:
            access = GENERIC_READ | GENERIC_WRITE, share = FILE_SHARE_READ | FILE_SHARE_WRITE;
            disposition = CREATE_NEW;
            break;
        case OpenMode::CreateAlways:
            access = GENERIC_WRITE, share = FILE_SHARE_READ, disposition = CREATE_ALWAYS;
            break;
        case OpenMode::Append:
            // Append-only access makes every WriteFile land at the current end
            // of the file, so several processes can add whole lines to one log.
            access = FILE_APPEND_DATA, share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
            disposition = OPEN_ALWAYS;
            break;
        default:
            return ErrInvalidParameter;
    }
    HANDLE h = ::CreateFileW(W(wpath), access, share, nullptr, disposition, flags, nullptr);
    if (h == INVALID_HANDLE_VALUE && mode == OpenMode::CreateAlways && ::GetLastError() == ERROR_ACCESS_DENIED) {
        // CREATE_ALWAYS refuses to replace a hidden or system file unless the
        // call asks for the same attributes; keep them, as the POSIX build has
        // no such refusal.
        const DWORD old = ::GetFileAttributesW(W(wpath));
        const DWORD keep = FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM;
        if (old != INVALID_FILE_ATTRIBUTES && (old & FILE_ATTRIBUTE_DIRECTORY) == 0 && (old & keep) != 0) {
            h = ::CreateFileW(W(wpath), access, share, nullptr, disposition, old & keep, nullptr);
        } else {
            ::SetLastError(ERROR_ACCESS_DENIED);
        }
    }
    if (h == INVALID_HANDLE_VALUE) return LastError();
    *handleRet = reinterpret_cast<Handle>(h);
    return 0;
}

uint32_t ReadFile(Handle h, void* buf, uint32_t n, uint32_t* gotRet) {
    *gotRet = 0;
    DWORD got = 0;
    if (!::ReadFile(ToWin(h), buf, n, &got, nullptr)) {
        const DWORD e = ::GetLastError();
        // A pipe whose writer has gone is simply at its end.
        if (e == ERROR_BROKEN_PIPE || e == ERROR_HANDLE_EOF) return 0;
        return e != 0 ? static_cast<uint32_t>(e) : static_cast<uint32_t>(ERROR_GEN_FAILURE);
    }
    *gotRet = got;
    return 0;
}

uint32_t WriteFile(Handle h, const void* buf, uint32_t n) {
    const auto* p = static_cast<const char*>(buf);
    // One call writes everything on a disk file; the loop only matters for
    // devices and pipes that take part of the data.
    while (n > 0) {
        DWORD written = 0;
        if (!::WriteFile(ToWin(h), p, n, &written, nullptr)) return LastError();
        if (written == 0) return ErrDiskFull;
        p += written;
        n -= written;
    }
    return 0;
}

uint32_t GetFileSize(Handle h, int64_t* sizeRet) {
    LARGE_INTEGER size;
    if (!::GetFileSizeEx(ToWin(h), &size)) return LastError();
    *sizeRet = size.QuadPart;
    return 0;
}

uint32_t GetFileTimes(Handle h, int64_t* creationRet, int64_t* lastWriteRet) {
    FILETIME creation;
    FILETIME lastWrite;
    if (!::GetFileTime(ToWin(h), &creation, nullptr, &lastWrite)) return LastError();
    if (creationRet) *creationRet = FromFileTime(creation);
    if (lastWriteRet) *lastWriteRet = FromFileTime(lastWrite);
    return 0;
}

uint32_t FlushFile(Handle h) {
    if (!::FlushFileBuffers(ToWin(h))) return LastError();
    return 0;
}

void CloseFile(Handle h) {
    if (h != kInvalidHandle && h != 0) ::CloseHandle(ToWin(h));
}

uint32_t MoveFileReplace(const char* src, const char* dst) {
    QzUtf16String wsrc;
    QzUtf16String wdst;
    if (!wsrc.ConvertUtf8QzStringToUtf16(src, static_cast<int32_t>(std::strlen(src)), true) ||
        !wdst.ConvertUtf8QzStringToUtf16(dst, static_cast<int32_t>(std::strlen(dst)), true)) {
        return ErrNoUnicodeTranslation;
    }
    if (!::MoveFileExW(W(wsrc), W(wdst), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) return LastError();
    return 0;
}

uint32_t DeleteFile(const char* path) {
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        return ErrNoUnicodeTranslation;
    }
    if (!::DeleteFileW(W(wpath))) return LastError();
    return 0;
}

uint32_t SetFileLastWriteTime(const char* path, int64_t lastWriteTime) {
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        return ErrNoUnicodeTranslation;
    }
    const HANDLE h = ::CreateFileW(W(wpath), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                   nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return LastError();
    const FILETIME ft = ToFileTime(lastWriteTime);
    const uint32_t err = ::SetFileTime(h, nullptr, nullptr, &ft) ? 0 : LastError();
    ::CloseHandle(h);
    return err;
}

uint32_t CreateDirectory(const char* path) {
    const int32_t len = static_cast<int32_t>(std::strlen(path));
    QzUtf16String wpath;
    bool converted;
    // CreateDirectory's limit is 248 characters, not 260: from 240 bytes on a
    // drive path gets the "\\?\" prefix here, before the general rule adds it.
    if (len > 240 && len <= 250 && path[1] == ':' && path[2] == '\\') {
        QzString prefixed("\\\\?\\");
        prefixed.Append(path, len);
        converted = wpath.ConvertUtf8QzStringToUtf16(prefixed, true);
    } else {
        converted = wpath.ConvertUtf8QzStringToUtf16(path, len, true);
    }
    if (!converted) return ErrNoUnicodeTranslation;
    if (!::CreateDirectoryW(W(wpath), nullptr)) return LastError();
    return 0;
}

uint32_t RemoveDirectory(const char* path) {
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        return ErrNoUnicodeTranslation;
    }
    if (!::RemoveDirectoryW(W(wpath))) return LastError();
    return 0;
}

// -------------------------------------------------------------------- volumes

uint32_t GetLogicalDrives() { return static_cast<uint32_t>(::GetLogicalDrives()); }

uint32_t GetDriveType(const char* rootPath) {
    QzUtf16String wroot;
    if (!wroot.ConvertUtf8QzStringToUtf16(rootPath, static_cast<int32_t>(std::strlen(rootPath)), true)) {
        return DriveNoRootDir;
    }
    return static_cast<uint32_t>(::GetDriveTypeW(W(wroot)));
}

uint32_t GetDiskFreeSpace(const char* rootPath, int64_t* freeToCallerRet, int64_t* totalRet) {
    QzUtf16String wroot;
    if (!wroot.ConvertUtf8QzStringToUtf16(rootPath, static_cast<int32_t>(std::strlen(rootPath)), true)) {
        return ErrNoUnicodeTranslation;
    }
    ULARGE_INTEGER freeToCaller;
    ULARGE_INTEGER total;
    if (!::GetDiskFreeSpaceExW(W(wroot), &freeToCaller, &total, nullptr)) return LastError();
    if (freeToCallerRet) *freeToCallerRet = static_cast<int64_t>(freeToCaller.QuadPart);
    if (totalRet) *totalRet = static_cast<int64_t>(total.QuadPart);
    return 0;
}

uint32_t GetVolumeInformation(const char* rootPath, VolumeInfo* infoRet) {
    QzUtf16String wroot;
    if (!wroot.ConvertUtf8QzStringToUtf16(rootPath, static_cast<int32_t>(std::strlen(rootPath)), true)) {
        return ErrNoUnicodeTranslation;
    }
    wchar_t name[MAX_PATH + 1] = {};
    wchar_t fsName[MAX_PATH + 1] = {};
    DWORD serial = 0;
    DWORD maxComponent = 0;
    DWORD flags = 0;
    if (!::GetVolumeInformationW(W(wroot), name, MAX_PATH + 1, &serial, &maxComponent, &flags, fsName,
                                 MAX_PATH + 1)) {
        return LastError();
    }
    AssignWide(name, &infoRet->volumeName);
    AssignWide(fsName, &infoRet->fileSystemName);
    infoRet->serialNumber = serial;
    infoRet->fileSystemFlags = flags;
    return 0;
}

// -------------------------------------------------------------- known folders

uint32_t GetWindowsDirectory(QzString* dirRet) {
    dirRet->Clear();
    std::vector<wchar_t> buf(MAX_PATH + 1);
    UINT n = ::GetWindowsDirectoryW(buf.data(), static_cast<UINT>(buf.size()));
    if (n >= buf.size()) {
        // Too small: n is the size needed, terminator included.
        buf.assign(n + 1, 0);
        n = ::GetWindowsDirectoryW(buf.data(), static_cast<UINT>(buf.size()));
    }
    if (n == 0 || n >= buf.size()) return LastError();
    AssignWide(buf.data(), dirRet);
    StripTrailingBackslash(dirRet);
    return 0;
}

uint32_t GetProgramFilesDirectory(QzString* dirRet) {
    dirRet->Clear();
    return GetShellFolder(CSIDL_PROGRAM_FILES, dirRet);
}

uint32_t GetCommonAppDataDirectory(QzString* dirRet) {
    dirRet->Clear();
    return GetShellFolder(CSIDL_COMMON_APPDATA, dirRet);
}

uint32_t ReadRegistryString(const char* keyPath, const char* valueName, QzString* valueRet) {
    valueRet->Clear();
    DWORD type = 0;
    std::vector<BYTE> data;
    const uint32_t rc = QueryRegistryValue(keyPath, valueName, &type, &data);
    if (rc != 0) return rc;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return ERROR_UNSUPPORTED_TYPE;
    // The stored bytes may or may not include the terminator (or an odd byte).
    std::vector<wchar_t> text(data.size() / sizeof(wchar_t) + 1, 0);
    std::memcpy(text.data(), data.data(), (text.size() - 1) * sizeof(wchar_t));
    AssignWide(text.data(), valueRet);
    return 0;
}

// -------------------------------------------------------- process and machine

uint32_t GetCurrentProcessId() { return static_cast<uint32_t>(::GetCurrentProcessId()); }

bool GetProcessMemoryCounters(MemoryCounters* countersRet) {
    PROCESS_MEMORY_COUNTERS pmc;
    std::memset(&pmc, 0, sizeof(pmc));
    pmc.cb = sizeof(pmc);
    // The kernel32 export (Windows 7 and later) spares the psapi.dll import.
    if (!::K32GetProcessMemoryInfo(::GetCurrentProcess(), &pmc, sizeof(pmc))) return false;
    countersRet->pagefileUsage = static_cast<int64_t>(pmc.PagefileUsage);
    countersRet->workingSetSize = static_cast<int64_t>(pmc.WorkingSetSize);
    return true;
}

int64_t GetTotalPhysicalMemory() {
    MEMORYSTATUSEX ms;
    std::memset(&ms, 0, sizeof(ms));
    ms.dwLength = sizeof(ms);
    if (!::GlobalMemoryStatusEx(&ms)) return 0;
    return static_cast<int64_t>(ms.ullTotalPhys);
}

bool Is64BitOperatingSystem() {
#if defined(_WIN64)
    return true;  // a 64-bit process only runs on a 64-bit system
#else
    BOOL wow64 = FALSE;
    return ::IsWow64Process(::GetCurrentProcess(), &wow64) && wow64;
#endif
}

void Sleep(uint32_t millis) { ::Sleep(millis); }

int64_t GetSystemTimeAsFileTime() {
    FILETIME ft;
    ::GetSystemTimeAsFileTime(&ft);
    return FromFileTime(ft);
}

void GetUtf8Arguments(int argc, char** argv, std::vector<QzString>* argsRet) {
    argsRet->clear();
    int n = 0;
    LPWSTR* wargs = ::CommandLineToArgvW(::GetCommandLineW(), &n);
    if (wargs) {
        argsRet->reserve(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) {
            QzString arg;
            AssignWide(wargs[i], &arg);
            argsRet->push_back(std::move(arg));
        }
        ::LocalFree(wargs);
        return;
    }
    // Without the wide command line, the C runtime's arguments are the best left.
    for (int i = 0; i < argc; ++i) argsRet->emplace_back(argv[i] ? argv[i] : "");
}

void InitConsole() { ::SetConsoleOutputCP(CP_UTF8); }

bool SocketStartup() {
    WSADATA wsa;
    return ::WSAStartup(MAKEWORD(2, 2), &wsa) == 0;
}

void SocketShutdown() { ::WSACleanup(); }

// -------------------------------------------------------- identity and access

bool GetCurrentLoginName(QzString* nameRet) {
    nameRet->Clear();
    wchar_t name[256 + 1] = {};  // UNLEN + 1
    DWORD len = 256 + 1;
    if (!::GetUserNameW(name, &len)) {
        nameRet->Set("unknown_login");
        return false;
    }
    AssignWide(name, nameRet);
    return true;
}

bool CurrentProcessHasAdminRights() {
    // Membership that is in force: under UAC an unelevated administrator's
    // token holds the Administrators group only for deny, which reads as no.
    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    PSID admins = nullptr;
    if (!::AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                                    0, 0, 0, &admins)) {
        return false;
    }
    BOOL member = FALSE;
    const BOOL ok = ::CheckTokenMembership(nullptr, admins, &member);
    ::FreeSid(admins);
    return ok && member;
}

bool AccountMayReadFile(const char* path, const char* accountName, QzString* detailRet) {
    detailRet->Clear();
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        detailRet->Set("path_not_utf8");
        return false;
    }
    // READ_CONTROL is granted to the owner whatever the access list says;
    // backup semantics open directories too.
    HANDLE h = ::CreateFileW(W(wpath), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        detailRet->Set("open_for_security_failed_err_");
        detailRet->AppendInt(LastError());
        return false;
    }
    PSECURITY_DESCRIPTOR sd = nullptr;
    PACL dacl = nullptr;
    const DWORD secErr =
        ::GetSecurityInfo(h, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION |
                          DACL_SECURITY_INFORMATION, nullptr, nullptr, &dacl, nullptr, &sd);
    ::CloseHandle(h);
    if (secErr != ERROR_SUCCESS) {
        detailRet->Set("get_security_info_failed_err_");
        detailRet->AppendInt(secErr);
        return false;
    }
    GENERIC_MAPPING mapping = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
    bool may = false;
    if (!dacl) {
        detailRet->Set("no_access_list_everyone_may_read");
        may = true;
    } else if (!accountName) {
        // This process: the system's own access check against its token.
        HANDLE processToken = nullptr;
        HANDLE token = nullptr;
        if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, &processToken) ||
            !::DuplicateToken(processToken, SecurityImpersonation, &token)) {
            detailRet->Set("open_token_failed_err_");
            detailRet->AppendInt(LastError());
        } else {
            PRIVILEGE_SET privileges;
            DWORD privilegesLen = sizeof(privileges);
            DWORD granted = 0;
            BOOL status = FALSE;
            if (!::AccessCheck(sd, token, FILE_GENERIC_READ, &mapping, &privileges, &privilegesLen, &granted,
                               &status)) {
                detailRet->Set("access_check_failed_err_");
                detailRet->AppendInt(LastError());
            } else {
                may = status != FALSE;
                detailRet->Set(may ? "access_check_granted_0x" : "access_check_denied_0x");
                detailRet->AppendPaddedHex(granted, 8);
            }
        }
        if (token) ::CloseHandle(token);
        if (processToken) ::CloseHandle(processToken);
    } else {
        // Another account: its effective rights from the access list.
        QzUtf16String wname;
        BYTE sidBuf[SECURITY_MAX_SID_SIZE];
        DWORD sidLen = sizeof(sidBuf);
        wchar_t domain[256] = {};
        DWORD domainLen = 256;
        SID_NAME_USE use;
        if (!wname.ConvertUtf8QzStringToUtf16(accountName, static_cast<int32_t>(std::strlen(accountName)), false)) {
            detailRet->Set("account_not_utf8");
        } else if (!::LookupAccountNameW(nullptr, W(wname), sidBuf, &sidLen, domain, &domainLen, &use)) {
            detailRet->Set("lookup_account_failed_err_");
            detailRet->AppendInt(LastError());
        } else {
            TRUSTEE_W trustee = {};
            trustee.TrusteeForm = TRUSTEE_IS_SID;
            trustee.TrusteeType = TRUSTEE_IS_UNKNOWN;
            trustee.ptstrName = reinterpret_cast<LPWSTR>(sidBuf);
            ACCESS_MASK rights = 0;
            const DWORD err = ::GetEffectiveRightsFromAclW(dacl, &trustee, &rights);
            if (err != ERROR_SUCCESS) {
                detailRet->Set("effective_rights_failed_err_");
                detailRet->AppendInt(err);
            } else {
                ::MapGenericMask(&rights, &mapping);
                may = (rights & FILE_GENERIC_READ) == FILE_GENERIC_READ;
                detailRet->Set(may ? "effective_rights_allow_read_0x" : "effective_rights_deny_read_0x");
                detailRet->AppendPaddedHex(rights, 8);
            }
        }
    }
    ::LocalFree(sd);
    return may;
}

uint32_t GetFileLinkCount(const char* path, uint32_t* countRet) {
    *countRet = 1;
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        return ErrNoUnicodeTranslation;
    }
    // The entry itself, not what a link points to; directories included.
    HANDLE h = ::CreateFileW(W(wpath), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
                             nullptr);
    if (h == INVALID_HANDLE_VALUE) return LastError();
    BY_HANDLE_FILE_INFORMATION info;
    const BOOL ok = ::GetFileInformationByHandle(h, &info);
    const uint32_t err = ok ? 0 : LastError();
    ::CloseHandle(h);
    if (ok) *countRet = info.nNumberOfLinks;
    return err;
}

uint32_t TryLoadLibrary(const char* path) {
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        return ErrNoUnicodeTranslation;
    }
    // Mapped as an image, so a DLL for another machine type fails, but with
    // neither its entry point run nor its imports loaded; and no error box.
    DWORD oldMode = 0;
    ::SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &oldMode);
    HMODULE m = ::LoadLibraryExW(W(wpath), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    const uint32_t err = m ? 0 : LastError();
    if (m) ::FreeLibrary(m);
    ::SetThreadErrorMode(oldMode, nullptr);
    return err;
}

void GetOsDescription(OsDescription* descRet) {
    *descRet = OsDescription{};
    const char* kCurrentVersion = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");

    // RtlGetVersion tells the truth; GetVersionEx answers per the manifest.
    RTL_OSVERSIONINFOW vi;
    std::memset(&vi, 0, sizeof(vi));
    vi.dwOSVersionInfoSize = sizeof(vi);
    using RtlGetVersionFn = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    auto rtlGetVersion =
        ntdll ? reinterpret_cast<RtlGetVersionFn>(reinterpret_cast<void*>(::GetProcAddress(ntdll, "RtlGetVersion")))
              : nullptr;
    const bool haveVersion = rtlGetVersion && rtlGetVersion(&vi) == 0;

    ReadRegistryString(kCurrentVersion, "ProductName", &descRet->productName);
    if (descRet->productName.IsEmpty()) descRet->productName = "Windows";
    // Windows 11 still calls itself "Windows 10" in ProductName; the build
    // number tells them apart.
    if (haveVersion && vi.dwMajorVersion == 10 && vi.dwBuildNumber >= 22000 &&
        descRet->productName.StartsWith("Windows 10")) {
        QzString fixed("Windows 11");
        fixed.Append(descRet->productName.c_str() + 10);
        descRet->productName = fixed;
    }

    if (haveVersion) {
        descRet->version.AppendInt(vi.dwMajorVersion);
        descRet->version.AppendChar('.');
        descRet->version.AppendInt(vi.dwMinorVersion);
        descRet->version.AppendChar('.');
        descRet->version.AppendInt(vi.dwBuildNumber);
        DWORD ubr = 0;
        if (ReadRegistryDword(kCurrentVersion, "UBR", &ubr) == 0) {
            descRet->version.AppendChar('.');
            descRet->version.AppendInt(ubr);
        }
    }

    // "22H2" on current systems, "1909" style before, "Service Pack 1" on 7.
    if (ReadRegistryString(kCurrentVersion, "DisplayVersion", &descRet->build) != 0 || descRet->build.IsEmpty()) {
        if (ReadRegistryString(kCurrentVersion, "ReleaseId", &descRet->build) != 0 || descRet->build.IsEmpty()) {
            if (haveVersion) AssignWide(vi.szCSDVersion, &descRet->build);
        }
    }

    wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD computerLen = MAX_COMPUTERNAME_LENGTH + 1;
    if (::GetComputerNameW(computer, &computerLen)) AssignWide(computer, &descRet->machineName);

    // Wine's ntdll exports its version; real Windows has no such export.
    using WineGetVersionFn = const char*(CDECL*)();
    auto wineGetVersion =
        ntdll
            ? reinterpret_cast<WineGetVersionFn>(reinterpret_cast<void*>(::GetProcAddress(ntdll, "wine_get_version")))
            : nullptr;
    if (wineGetVersion) {
        const char* v = wineGetVersion();
        descRet->hostNote = "Wine";
        if (v && *v) {
            descRet->hostNote.AppendChar(' ');
            descRet->hostNote.Append(v);
        }
    }
}

bool GetTimeZoneState(int64_t gmtMillis, TimeZoneState* stateRet) {
    *stateRet = TimeZoneState{};
    DYNAMIC_TIME_ZONE_INFORMATION dtzi;
    std::memset(&dtzi, 0, sizeof(dtzi));
    if (::GetDynamicTimeZoneInformation(&dtzi) == TIME_ZONE_ID_INVALID) return false;

    // Milliseconds since 1970 as a file time (100 ns since 1601).
    constexpr int64_t kEpochDiff = 116444736000000000LL;
    if (gmtMillis < -kEpochDiff / 10000 || gmtMillis > (INT64_MAX - kEpochDiff) / 10000) return false;
    const int64_t gmtFileTime = gmtMillis * 10000 + kEpochDiff;
    const FILETIME ft = ToFileTime(gmtFileTime);
    SYSTEMTIME utc;
    if (!::FileTimeToSystemTime(&ft, &utc)) return false;

    // The rules of the year in question: daylight-saving dates and even the
    // standard offset of a zone change over the years.
    TIME_ZONE_INFORMATION tzi;
    std::memset(&tzi, 0, sizeof(tzi));
    if (!::GetTimeZoneInformationForYear(utc.wYear, &dtzi, &tzi)) {
        tzi.Bias = dtzi.Bias;
        std::memcpy(tzi.StandardName, dtzi.StandardName, sizeof(tzi.StandardName));
        tzi.StandardDate = dtzi.StandardDate;
        tzi.StandardBias = dtzi.StandardBias;
        std::memcpy(tzi.DaylightName, dtzi.DaylightName, sizeof(tzi.DaylightName));
        tzi.DaylightDate = dtzi.DaylightDate;
        tzi.DaylightBias = dtzi.DaylightBias;
    }
    SYSTEMTIME local;
    FILETIME localFt;
    if (!::SystemTimeToTzSpecificLocalTime(&tzi, &utc, &local) || !::SystemTimeToFileTime(&local, &localFt)) {
        return false;
    }
    const int64_t diff = FromFileTime(localFt) - gmtFileTime;
    stateRet->offsetMinutes = static_cast<int32_t>(diff / 600000000LL);

    const bool hasDaylight = tzi.DaylightDate.wMonth != 0 && tzi.DaylightBias != tzi.StandardBias;
    const bool inDaylight = hasDaylight && stateRet->offsetMinutes == -(tzi.Bias + tzi.DaylightBias);
    stateRet->dstState = !hasDaylight ? 0 : (inDaylight ? 2 : 1);
    AssignWide(inDaylight ? tzi.DaylightName : tzi.StandardName, &stateRet->zoneName);
    return true;
}

void GetSystemLocaleName(QzString* nameRet) {
    nameRet->Clear();
    wchar_t buf[LOCALE_NAME_MAX_LENGTH] = {};
    if (::GetSystemDefaultLocaleName(buf, LOCALE_NAME_MAX_LENGTH) > 0) AssignWide(buf, nameRet);
}

void GetUserLocaleName(QzString* nameRet) {
    nameRet->Clear();
    wchar_t buf[LOCALE_NAME_MAX_LENGTH] = {};
    if (::GetUserDefaultLocaleName(buf, LOCALE_NAME_MAX_LENGTH) > 0) AssignWide(buf, nameRet);
}

bool FormatLocaleDate(int year, int month, int day, QzString* textRet) {
    textRet->Clear();
    SYSTEMTIME st;
    if (!MakeSystemTime(year, month, day, 0, 0, 0, &st)) return false;
    wchar_t buf[128] = {};
    if (::GetDateFormatEx(LOCALE_NAME_USER_DEFAULT, DATE_SHORTDATE, &st, nullptr, buf, 128, nullptr) == 0) {
        return false;
    }
    AssignWide(buf, textRet);
    return true;
}

bool FormatLocaleTime(int hour, int minute, int second, bool withSeconds, QzString* textRet) {
    textRet->Clear();
    SYSTEMTIME st;
    if (!MakeSystemTime(2000, 1, 1, hour, minute, second, &st)) return false;
    wchar_t buf[128] = {};
    const DWORD flags = withSeconds ? 0 : TIME_NOSECONDS;
    if (::GetTimeFormatEx(LOCALE_NAME_USER_DEFAULT, flags, &st, nullptr, buf, 128) == 0) return false;
    AssignWide(buf, textRet);
    return true;
}

}  // namespace QzOs
