// QzFile: the file utilities every part of the program uses: existence and
// metadata of a path, and reading a whole file. The module's other areas have
// headers of their own, all in namespace QzFile:
//   QzFileWrite.h      writing whole files and growing ".future" files, the atomic move
//   QzFileRead.h       reading the program's own shared files patiently
//   QzFileXml.h        the small XML readers and the attribute splicer
//   QzFileListing.h    directory listing and the readability probe
//   QzFileVolumes.h    attached volumes and their marker folders
//   QzFileLocations.h  install and data directories, this machine's host identifier
//   QzDataPaths.h      the names of the data directory's files
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"

namespace QzFile {

// ---- existence and metadata ----
bool PathExists(const char* path);  // file or directory
bool FileExists(const char* path);  // exists and is not a directory
bool DirExists(const char* path);
// -1 when the file cannot be examined.
int64_t GetFileSizeInBytes(const char* path);
// Last modification as GMT millis; 0 when the file cannot be examined.
int64_t GetFileLastModMillis(const char* path);
bool DeleteFileIfExists(const char* path);
// Creates the directory and any missing parents; true when it exists after.
bool CreateDirectoryRecursive(const char* path);

// ---- reading ----
constexpr int64_t kMaxWholeFileBytes = 1024LL * 1024 * 1024;
// Why a file could not be opened or read, in the reader's words:
// "Another_Process_Has_File_Open_", "error_win32_CreateF_failed_<n>",
// "error_win32_ReadFile_failed_GetLastError_<n>", with "_ERROR_ACCESS_DENIED"
// appended where the code is 5.
QzString OpenFailureText(uint32_t err);
QzString ReadFailureText(uint32_t err);
// Reads a whole file of at most one gigabyte into a new zero-terminated buffer
// (free it with std::free). On failure *errStrRet says why with one of the
// texts "file_does_not_exist", "error_file_is_larger_than_one_gigabyte", or
// the texts above.
bool ReadEntireFileIntoNewBuf(const char* fileName, char** bufRet, int64_t* numBytesReturned,
                              QzString* errStrRet);
// The same into a QzString.
bool ReadEntireFile(const char* fileName, QzString* contentRet, QzString* errStrRet);
// Splits a text into lines at "\n", dropping one "\r" before it; a final line
// without "\n" counts, an empty text has no lines.
void SplitIntoLines(const char* text, int64_t len, std::vector<QzString>* linesRet);
bool ReadFileIntoLines(const char* fileName, std::vector<QzString>* linesRet, QzString* errStrRet);

}  // namespace QzFile
