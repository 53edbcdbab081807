// Directory listing: every walk of the disk goes through here.
#include "QzFileListing.h"

#include <cstring>

#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzSystem.h"
#include "QzTime.h"
#include "QzUtf16String.h"

namespace QzFile {

namespace {
bool IsShortDriveRoot(const QzString& p) {
    return p.Length() < 4 && p.EndsWith(":\\");
}
}  // namespace

void BuildDirSearchPattern(const QzString& dirPath, QzString* trimmedRet, QzString* patternRet) {
    trimmedRet->Set(dirPath);
    const char last = trimmedRet->Last();
    if ((last == '\\' || last == '/') && !trimmedRet->Equals("/") && !IsShortDriveRoot(*trimmedRet))
        trimmedRet->Truncate(trimmedRet->Length() - 1);
    patternRet->Clear();
    // The directory's length decides the long-path prefix, not the pattern's.
    // Behind the prefix the system takes "/" literally, so it becomes "\".
    const bool prefixed = trimmedRet->Length() >= 251;
    if (prefixed) patternRet->Append("\\\\?\\");
    const int32_t start = patternRet->Length();
    patternRet->Append(*trimmedRet);
    if (prefixed)
        for (int32_t i = start; i < patternRet->Length(); ++i)
            if (patternRet->Data()[i] == '/') patternRet->Data()[i] = '\\';
    patternRet->Append("\\*");
}

bool GetListOfFileInfosInDir(const QzString* dirPath, QzFileInfoList* list) {
    if (!dirPath || !list) return false;
    list->Reset();
    QzString dir;
    QzString pattern;
    BuildDirSearchPattern(*dirPath, &dir, &pattern);
    // The process id is only needed for a log line; asking costs a system call.
    const auto pid = [] { return QzSystem::GetProcessId(); };

    // The wide-character search needs a pattern that converts to UTF-16.
    if (!QzUtf8::IsValid(pattern.c_str(), pattern.Length())) {
        QzLog::WriteLine(QzCat("ERROR: GetListOfFileInfosInDir (processId=", pid(),
                               ") QzUtf16String::ConvertUtf8QzStringToUtf16_A failed, dirPat=", pattern));
        return false;
    }

    // Records are filled in place; one find record serves every entry.
    QzOs::FindData data;
    QzOs::FindHandle* h = nullptr;
    const uint32_t firstErr = QzOs::FindFirstFile(pattern.c_str(), &h, &data);
    if (firstErr != QzOs::ErrSuccess) {
        // A drive root has no "." and ".." entries, so the search of an empty
        // one (a freshly formatted stick) finds nothing at all: zero entries.
        if (firstErr == QzOs::ErrFileNotFound) return true;
        if (firstErr == QzOs::ErrNoUnicodeTranslation) {
            QzLog::WriteLine(QzCat("ERROR: GetListOfFileInfosInDir (processId=", pid(),
                                   ") QzUtf16String::ConvertUtf8QzStringToUtf16_A failed, dirPat=", pattern));
        } else if (firstErr == QzOs::ErrPathNotFound) {
            QzLog::WriteLine(
                QzCat("ERROR: GetListOfFileInfosInDir (processId=", pid(),
                      ") FindFirstFile_C failed, dirPat=", pattern, ", GetLastError=", firstErr,
                      ", and_a_lastError_of_3_means ERROR_PATH_NOT_FOUND, check if dirPat starts with a "
                      "letter-colon in this log line."));
        } else {
            QzLog::WriteLine(QzCat("WARNING: GetListOfFileInfosInDir (processId=", pid(),
                                   ") FindFirstFile_C failed, dirPat=", pattern,
                                   ", GetLastError=", firstErr));
        }
        return false;
    }

    const bool noSeparator = IsShortDriveRoot(dir);
    uint32_t err = QzOs::ErrSuccess;
    do {
        if (!data.nameOk) {
            QzLog::WriteLine(QzCat("ERROR: GetListOfFileInfosInDir (processId=", pid(),
                                   ") QzUtf16String::ConvertQzUtf16StringToUtf8_B failed, ",
                                   "dirSearch=", pattern));
            continue;
        }
        if (std::strcmp(data.name, ".") == 0 || std::strcmp(data.name, "..") == 0) continue;
        QzFileInfo* info = list->Next();
        if (!info) {
            QzOs::FindClose(h);
            return false;
        }
        // The full path is written in one step: this runs for every entry of the walk.
        const int32_t dirLen = dir.Length() + (noSeparator ? 0 : 1);
        if (info->fullPath.Reserve(dirLen + data.nameLen + 1)) {
            char* d = info->fullPath.Data();
            std::memcpy(d, dir.c_str(), static_cast<size_t>(dir.Length()));
            if (!noSeparator) d[dir.Length()] = '\\';
            std::memcpy(d + dirLen, data.name, static_cast<size_t>(data.nameLen));
            info->fullPath.SetLength(dirLen + data.nameLen);
        } else {
            info->fullPath.Clear();
        }
        info->extraSize = 0;
        info->isDirectory = (data.attributes & QzOs::AttrDirectory) != 0;
        info->isReparsePoint = (data.attributes & QzOs::AttrReparsePoint) != 0;
        info->size = info->isDirectory ? 0 : data.size;
        info->lastModifiedMillis = QzTime::FileTimeToGmtMillis(data.lastWriteTime);
        info->createdMillis = QzTime::FileTimeToGmtMillis(data.creationTime);
    } while ((err = QzOs::FindNextFile(h, &data)) == QzOs::ErrSuccess);
    QzOs::FindClose(h);
    if (err == QzOs::ErrNoMoreFiles) return true;
    QzLog::WriteLine(QzCat("ERROR: GetListOfFileInfosInDir (processId=", pid(),
                           ") - FindNextFile err, dirPat=", pattern, ", GetLastError=", err,
                           ", Error_3_means=ERROR_PATH_NOT_FOUND",
                           ", Error_8_means=ERROR_NOT_ENOUGH_MEMORY"));
    return false;
}

void RemoveMountedNetworkFolders(QzFileInfoList* list) {
    if (!list) return;
    QzString root;
    for (int32_t i = 0; i < list->Count();) {
        const QzFileInfo* info = list->At(i);
        // A folder that a share (or another volume) is mounted into is a
        // reparse point, so only reparse-point directories are asked: the
        // answers are the same and a walk saves a drive query per folder.
        if (info->isDirectory && info->isReparsePoint) {
            root = QzCat(info->fullPath, "\\");
            if (QzOs::GetDriveType(root.c_str()) == QzOs::DriveRemote) {
                QzLog::WriteLine(QzCat("WARNING: skipping mounted folder: ", info->fullPath));
                list->RemoveAt(i);
                continue;
            }
        }
        ++i;
    }
}

void FileErrorToString(int code, QzString* nameRet) {
    static const char* const kNames[] = {
        "QZ_FILE_NO_ERROR",
        "QZ_FILE_PERMANENT_DOES_NOT_EXIST",
        "QZ_FILE_PERMANENT_BAD_PERMISSIONS",
        "QZ_FILE_TEMPORARY_FILE_BUSY",
        "QZ_FILE_PERMANENT_FILE_NOT_ON_DRIVE",
        "QZ_FILE_TEMPORARY_DRIVE_UNPLUGGED",
        "QZ_FILE_TEMPORARY_NOT_ENOUGH_TMP_SPACE",
        "QZ_FILE_LARGER_THAN_ONE_GBYTE",
        "QZ_FILE_TEMPORARY_OTHER",
    };
    nameRet->Set(code >= 0 && code <= 8 ? kNames[code] : kNames[8]);
}

namespace {
// Drive roots the probe never calls unplugged: the system drive, and the old
// floppy letter, whose probing can stall on an empty drive or prompt for a disk.
bool IsAlwaysPresentRoot(const QzString& root) {
    return root.EqualsIgnoreCase("C:\\") || root.EqualsIgnoreCase("A:\\");
}

int Result(int code, QzString* errNameRet) {
    if (errNameRet) FileErrorToString(code, errNameRet);
    return code;
}
}  // namespace

int DiagnoseFileReadProblem(const char* path, QzString* errNameRet) {
    if (!path) return Result(QZ_FILE_TEMPORARY_OTHER, errNameRet);
    QzOs::Handle h;
    uint32_t err = QzOs::OpenFile(path, QzOs::OpenMode::ReadShareRead, &h);
    if (err == QzOs::ErrSuccess) {
        char byte;
        uint32_t got = 0;
        err = QzOs::ReadFile(h, &byte, 1, &got);
        QzOs::CloseFile(h);
        if (err == QzOs::ErrSuccess) return Result(QZ_FILE_NO_ERROR, errNameRet);
        return Result(
            err == QzOs::ErrAccessDenied ? QZ_FILE_PERMANENT_BAD_PERMISSIONS : QZ_FILE_TEMPORARY_OTHER,
            errNameRet);
    }
    if (err == QzOs::ErrSharingViolation) return Result(QZ_FILE_TEMPORARY_FILE_BUSY, errNameRet);
    if (err == QzOs::ErrAccessDenied) return Result(QZ_FILE_PERMANENT_BAD_PERMISSIONS, errNameRet);
    const bool missing = err == QzOs::ErrFileNotFound || err == QzOs::ErrPathNotFound ||
                         err == QzOs::ErrInvalidDrive || err == QzOs::ErrNotReady;
    if (!missing) return Result(QZ_FILE_TEMPORARY_OTHER, errNameRet);
    const QzString p(path);
    const char l = static_cast<char>(p[0] & ~0x20);
    if (p.Length() >= 3 && l >= 'A' && l <= 'Z' && p[1] == ':' && p[2] == '\\') {
        const QzString root(path, 3);
        if (!IsAlwaysPresentRoot(root) && !DirExists(root.c_str()))
            return Result(QZ_FILE_TEMPORARY_DRIVE_UNPLUGGED, errNameRet);
    }
    return Result(QZ_FILE_PERMANENT_DOES_NOT_EXIST, errNameRet);
}

}  // namespace QzFile
