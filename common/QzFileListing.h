// Directory listing for every walk of the disk, and the probe that says why
// a single file cannot be read.
#pragma once

#include <cstdint>

#include "QzString.h"

class QzFileInfoList;

// What went wrong with a single file, from the readability probe.
enum QzFileError {
    QZ_FILE_NO_ERROR = 0,
    QZ_FILE_PERMANENT_DOES_NOT_EXIST = 1,
    QZ_FILE_PERMANENT_BAD_PERMISSIONS = 2,
    QZ_FILE_TEMPORARY_FILE_BUSY = 3,
    QZ_FILE_PERMANENT_FILE_NOT_ON_DRIVE = 4,
    QZ_FILE_TEMPORARY_DRIVE_UNPLUGGED = 5,
    QZ_FILE_TEMPORARY_NOT_ENOUGH_TMP_SPACE = 6,
    QZ_FILE_LARGER_THAN_ONE_GBYTE = 7,
    QZ_FILE_TEMPORARY_OTHER = 8,
};

namespace QzFile {

// Lists the immediate entries of a directory into `list` (emptied first), in
// the order the file system returns them, "." and ".." left out. Logs and
// returns false when the directory cannot be listed; entries added before a
// failure stay counted. Null arguments return false at once.
bool GetListOfFileInfosInDir(const QzString* dirPath, QzFileInfoList* list);
// The directory path as the listing uses it (one trailing separator dropped,
// except from a drive root such as "C:\") and its search pattern.
void BuildDirSearchPattern(const QzString& dirPath, QzString* trimmedRet, QzString* patternRet);
// Removes, keeping order, every entry that is a network share mounted into a
// folder, logging "WARNING: skipping mounted folder: " with its path.
void RemoveMountedNetworkFolders(QzFileInfoList* list);

// The name of a file error code; values outside the enum name the last one.
void FileErrorToString(int code, QzString* nameRet);
// Opens the file for reading and reads one byte; says why that failed.
int DiagnoseFileReadProblem(const char* path, QzString* errNameRet);

}  // namespace QzFile
