// Windows side of the volume identity calls: the GUID of the volume's name
// ("\\?\Volume{GUID}\") and the read-only flag of its file system.
#include <windows.h>

#include <cstring>
#include <cwchar>

#include "QzOs.h"
#include "QzUtf16String.h"

namespace QzOs {

uint32_t GetVolumeIdentity(const char* rootPath, VolumeIdentity* idRet) {
    if (!rootPath || !idRet) return ErrInvalidParameter;
    idRet->uuid.Clear();
    idRet->readOnly = false;
    // Both calls want the root with its trailing backslash and no "\\?\" prefix.
    QzUtf16String wroot;
    if (!wroot.ConvertUtf8QzStringToUtf16(rootPath, static_cast<int32_t>(std::strlen(rootPath)), false)) {
        return ErrNoUnicodeTranslation;
    }
    const wchar_t* root = reinterpret_cast<const wchar_t*>(wroot.Data());
    DWORD flags = 0;
    if (!::GetVolumeInformationW(root, nullptr, 0, nullptr, nullptr, &flags, nullptr, 0)) {
        const DWORD e = ::GetLastError();
        return e != 0 ? static_cast<uint32_t>(e) : static_cast<uint32_t>(ERROR_GEN_FAILURE);
    }
    idRet->readOnly = (flags & FILE_READ_ONLY_VOLUME) != 0;

    wchar_t name[64] = {};
    if (::GetVolumeNameForVolumeMountPointW(root, name, 64)) {
        const wchar_t* open = std::wcschr(name, L'{');
        const wchar_t* close = open ? std::wcschr(open, L'}') : nullptr;
        if (open && close) {
            const char16_t* units = reinterpret_cast<const char16_t*>(open + 1);
            QzUtf16String::ConvertQzUtf16StringToUtf8(units, static_cast<int32_t>(close - open - 1),
                                                      &idRet->uuid);
        }
    }
    return 0;
}

}  // namespace QzOs
