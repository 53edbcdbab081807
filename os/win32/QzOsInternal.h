// Internal to the Windows layer: the system headers, and the conversions its
// source files share (paths to UTF-16, file times, error numbers, UTF-16
// answers back to UTF-8).
#pragma once

// clang-format off
#include <winsock2.h>  // before windows.h, which would otherwise pull in winsock 1
#include <windows.h>
// clang-format on

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

#include <cstdint>
#include <cstring>
#include <cwchar>
#include <vector>

#include "QzOs.h"
#include "QzUtf16String.h"

namespace QzOs::win32 {

inline const wchar_t* W(const QzUtf16String& s) {
    return reinterpret_cast<const wchar_t*>(s.Data());
}

// A path for a wide-character call: UTF-16, with "\\?\" when it is long.
inline bool WidePath(const char* path, QzUtf16String* w) {
    return path && w->ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true);
}

inline int64_t FromFileTime(const FILETIME& ft) {
    return static_cast<int64_t>((static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime);
}

inline FILETIME ToFileTime(int64_t t) {
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(static_cast<uint64_t>(t) & 0xFFFFFFFFu);
    ft.dwHighDateTime = static_cast<DWORD>(static_cast<uint64_t>(t) >> 32);
    return ft;
}

inline int64_t FromSizeParts(DWORD high, DWORD low) {
    return static_cast<int64_t>((static_cast<uint64_t>(high) << 32) | low);
}

inline HANDLE ToWin(Handle h) {
    return reinterpret_cast<HANDLE>(h);
}

inline uint32_t LastError() {
    const DWORD e = ::GetLastError();
    // A failed call always sets an error; 0 here would read as success.
    return e != 0 ? static_cast<uint32_t>(e) : static_cast<uint32_t>(ERROR_GEN_FAILURE);
}

// Replaces each unpaired surrogate, which UTF-8 cannot carry, by '?'.
inline void ReplaceUnpairedSurrogates(char16_t* u, int32_t units) {
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
inline bool Utf16ToUtf8Lossy(const wchar_t* w, int32_t units, QzString* out) {
    std::vector<char16_t> u(w, w + units);
    if (QzUtf16String::ConvertQzUtf16StringToUtf8(u.data(), units, out)) return true;
    ReplaceUnpairedSurrogates(u.data(), units);
    QzUtf16String::ConvertQzUtf16StringToUtf8(u.data(), units, out);
    return false;
}

inline void AssignWide(const wchar_t* w, QzString* out) {
    Utf16ToUtf8Lossy(w, static_cast<int32_t>(std::wcslen(w)), out);
}

// Callers add their own separator, so even a root comes without one: "C:\"
// becomes "C:".
inline void StripTrailingBackslash(QzString* s) {
    while (s->Length() > 0 && s->Last() == '\\') s->SetLength(s->Length() - 1);
}

}  // namespace QzOs::win32
