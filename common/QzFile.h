// QzFile: file utilities shared by every part of the program: existence and
// size checks, the whole-file reader, complete-then-move writing, the atomic
// move, the two small XML readers, and the install and data locations with
// this machine's host identifier.
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
// Reads a whole file of at most one gigabyte into a new zero-terminated buffer
// (free it with std::free). On failure *errStrRet says why with one of the
// texts "file_does_not_exist", "error_file_is_larger_than_one_gigabyte", ...
bool ReadEntireFileIntoNewBuf(const char* fileName, char** bufRet, int64_t* numBytesReturned, QzString* errStrRet);
// The same into a QzString.
bool ReadEntireFile(const char* fileName, QzString* contentRet, QzString* errStrRet);
// Splits a text into lines at "\n", dropping one "\r" before it; a final line
// without "\n" counts, an empty text has no lines.
void SplitIntoLines(const char* text, int64_t len, std::vector<QzString>* linesRet);
bool ReadFileIntoLines(const char* fileName, std::vector<QzString>* linesRet, QzString* errStrRet);

// ---- writing ----
// Creates or truncates the file, writes all bytes and flushes them to disk.
bool WriteEntireFile(const char* fileName, const char* data, int64_t len);
// One move with replace-existing and write-through; the target is replaced in one step.
bool AtomicMoveFile(const char* source, const char* target);
// Up to 10 moves 100 ms apart, logging each failure.
bool AtomicMoveFileWithRetry(const char* source, const char* target);

// ---- XML ----
// Every element of `tag` in text order: from "<tag" to its "/>" (or to its
// end tag "</tag>"). An unterminated last element runs to the end of the text.
bool GetAllXmlSnippetsWithTagNameInXmlText(const char* text, int32_t len, const char* tag,
                                           std::vector<QzString>* snippetsRet);
bool GetAllXmlSnippetsWithTagNameInXmlFile(const char* fileName, const char* tag, std::vector<QzString>* snippetsRet);
// The value between the double quotes after the first `name="` in the snippet
// (the name must not be the tail of a longer attribute name). No entity decoding.
bool GetUniqueStrAttrFromXmlSnippet(const char* snippet, const char* name, QzString* valueRet);
inline bool GetUniqueStrAttrFromXmlSnippet(const QzString& snippet, const char* name, QzString* valueRet) {
    return GetUniqueStrAttrFromXmlSnippet(snippet.c_str(), name, valueRet);
}
// Reads one attribute from anywhere in a file.
bool GetUniqueStrAttrFromXmlFile(const char* fileName, const char* name, QzString* valueRet);

// ---- locations (computed once per process) ----
constexpr const char* kUnknownHostGuid = "999999999999999999999999";
const QzString& GetWindowsDir();       // ends in "\"
const QzString& GetProgramFilesDir();  // no trailing "\"
const QzString& GetInstallDir();       // ends in "\"
const QzString& GetDataDir();          // ends in "\"
const QzString& GetMyHostGuid();       // 24 characters; 24 nines when unknown
// Forgets the cached locations (tests only).
void ResetLocationCachesForTesting();

}  // namespace QzFile
