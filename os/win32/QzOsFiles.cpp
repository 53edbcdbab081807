// Windows side of the file calls: directory enumeration, attributes, opening,
// reading and writing, moving and deleting. Each translates into the
// wide-character Win32 call that does the work; paths arrive as UTF-8 and are
// converted to UTF-16 at the call; errors are GetLastError() values as is.
#include <cstring>
#include <new>

#include "QzOsInternal.h"

struct QzOs::FindHandle {
    HANDLE h = INVALID_HANDLE_VALUE;
    WIN32_FIND_DATAW data;
    // Reused for every entry so that reading a directory allocates nothing
    // once the buffers have grown to the longest name.
    char16_t units[MAX_PATH + 1];
    QzString utf8;
};

namespace QzOs {

using namespace win32;

namespace {

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

}  // namespace

// ---------------------------------------------------------------- directories

uint32_t FindFirstFile(const char* pattern, FindHandle** handleRet, FindData* dataRet) {
    *handleRet = nullptr;
    // The caller has put "\\?\" before the pattern when its directory is long;
    // the pattern's own length must not decide it again.
    QzUtf16String wpattern;
    if (!pattern ||
        !wpattern.ConvertUtf8PreparedPathToUtf16(pattern, static_cast<int32_t>(std::strlen(pattern)))) {
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
    if (!WidePath(path, &wpath)) return ErrNoUnicodeTranslation;
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
    if (!WidePath(path, &wpath)) return ErrNoUnicodeTranslation;
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
    if (!WidePath(path, &wpath)) return ErrNoUnicodeTranslation;
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
    if (h == INVALID_HANDLE_VALUE && mode == OpenMode::CreateAlways &&
        ::GetLastError() == ERROR_ACCESS_DENIED) {
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

// The cache manager writes a sequential file behind on its own.
void WriteBehind(Handle, int64_t, int64_t, int64_t) {}

void CloseFile(Handle h) {
    if (h != kInvalidHandle && h != 0) ::CloseHandle(ToWin(h));
}

uint32_t MoveFileReplace(const char* src, const char* dst) {
    QzUtf16String wsrc;
    QzUtf16String wdst;
    if (!WidePath(src, &wsrc) || !WidePath(dst, &wdst)) return ErrNoUnicodeTranslation;
    if (!::MoveFileExW(W(wsrc), W(wdst), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
        return LastError();
    return 0;
}

uint32_t DeleteFile(const char* path) {
    QzUtf16String wpath;
    if (!WidePath(path, &wpath)) return ErrNoUnicodeTranslation;
    if (!::DeleteFileW(W(wpath))) return LastError();
    return 0;
}

uint32_t SetFileLastWriteTime(const char* path, int64_t lastWriteTime) {
    QzUtf16String wpath;
    if (!WidePath(path, &wpath)) return ErrNoUnicodeTranslation;
    const HANDLE h =
        ::CreateFileW(W(wpath), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
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
    if (!WidePath(path, &wpath)) return ErrNoUnicodeTranslation;
    if (!::RemoveDirectoryW(W(wpath))) return LastError();
    return 0;
}

uint32_t GetFileLinkCount(const char* path, uint32_t* countRet) {
    *countRet = 1;
    QzUtf16String wpath;
    if (!WidePath(path, &wpath)) return ErrNoUnicodeTranslation;
    // The entry itself, not what a link points to; directories included.
    HANDLE h = ::CreateFileW(W(wpath), FILE_READ_ATTRIBUTES,
                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                             FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
    if (h == INVALID_HANDLE_VALUE) return LastError();
    BY_HANDLE_FILE_INFORMATION info;
    const BOOL ok = ::GetFileInformationByHandle(h, &info);
    const uint32_t err = ok ? 0 : LastError();
    ::CloseHandle(h);
    if (ok) *countRet = info.nNumberOfLinks;
    return err;
}

}  // namespace QzOs
