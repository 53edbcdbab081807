// Windows side of the volume calls: logical drives, drive types, free space,
// volume information, and a volume's identity (the GUID of its volume name
// "\\?\Volume{GUID}\" and the read-only flag of its file system).
#include <cstring>
#include <cwchar>

#include "QzOsInternal.h"

namespace QzOs {

using namespace win32;

uint32_t GetLogicalDrives() {
    return static_cast<uint32_t>(::GetLogicalDrives());
}

uint32_t GetDriveType(const char* rootPath) {
    QzUtf16String wroot;
    if (!WidePath(rootPath, &wroot)) return DriveNoRootDir;
    return static_cast<uint32_t>(::GetDriveTypeW(W(wroot)));
}

uint32_t GetDiskFreeSpace(const char* rootPath, int64_t* freeToCallerRet, int64_t* totalRet) {
    QzUtf16String wroot;
    if (!WidePath(rootPath, &wroot)) return ErrNoUnicodeTranslation;
    ULARGE_INTEGER freeToCaller;
    ULARGE_INTEGER total;
    if (!::GetDiskFreeSpaceExW(W(wroot), &freeToCaller, &total, nullptr)) return LastError();
    if (freeToCallerRet) *freeToCallerRet = static_cast<int64_t>(freeToCaller.QuadPart);
    if (totalRet) *totalRet = static_cast<int64_t>(total.QuadPart);
    return 0;
}

uint32_t GetVolumeInformation(const char* rootPath, VolumeInfo* infoRet) {
    QzUtf16String wroot;
    if (!WidePath(rootPath, &wroot)) return ErrNoUnicodeTranslation;
    wchar_t fsName[MAX_PATH + 1] = {};
    DWORD serial = 0;
    DWORD maxComponent = 0;
    DWORD flags = 0;
    if (!::GetVolumeInformationW(W(wroot), nullptr, 0, &serial, &maxComponent, &flags, fsName,
                                 MAX_PATH + 1)) {
        return LastError();
    }
    AssignWide(fsName, &infoRet->fileSystemName);
    infoRet->serialNumber = serial;
    infoRet->fileSystemFlags = flags;
    return 0;
}

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
