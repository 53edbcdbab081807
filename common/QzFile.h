// QzFile: file utilities shared by every part of the program: existence and
// size checks, the whole-file reader, complete-then-move writing, the atomic
// move, the two small XML readers, and the install and data locations with
// this machine's host identifier.
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"

class QzFileInfoList;
struct QzVolumeInfo;

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

// ---- directory listing ----
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

// ---- single files ----
// The name of a file error code; values outside the enum name the last one.
void FileErrorToString(int code, QzString* nameRet);
// Opens the file for reading and reads one byte; says why that failed.
int DiagnoseFileReadProblem(const char* path, QzString* errNameRet);

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
// Why a file could not be opened or read, in the reader's words:
// "Another_Process_Has_File_Open_32", "error_win32_CreateF_failed_<n>",
// "error_win32_ReadFile_failed_GetLastError_<n>", with "_ERROR_ACCESS_DENIED"
// appended where the code is 5.
QzString OpenFailureText(uint32_t err);
QzString ReadFailureText(uint32_t err);
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
// end tag "</tag>"). A malformed element (its start tag not closed, or "<tag>"
// without "</tag>" before the next "<tag") is logged and left out; the
// elements around it are kept.
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
// Copies the text without its comments ("<!--" to the next "-->"). On a
// comment without its end the text from that comment on is dropped, its
// offset goes to *unterminatedAtRet (may be null) and false is returned.
bool RemoveXmlComments(const QzString& in, QzString* out, int32_t* unterminatedAtRet);

// ---- volumes and their marker folder ----
// Fills the record for one mount point; true when the volume can be used.
bool GetInfoAboutAttachedVolume(const QzString& mountPoint, QzVolumeInfo* infoRet);
// One record per usable fixed drive, in drive-letter order.
bool QueryAllAttachedVolumesForVolumeInfo(std::vector<QzVolumeInfo>* volumesRet);
// Writes the hidden ".qzvol" folder (or the data directory's
// "qzvol_system_volume" for the system volume) with "qzvol_id.xml" and
// "README.txt". On failure errTokenRet names the cause ("ERR_NullVguid", ...).
bool WriteVolumeGuidIntoDotQzVolDirOnVolume(const QzString& mountPoint, const QzString& vguid,
                                             const QzString& associatedHguid, QzString* errTokenRet);
// The "qzvol_id.xml" text the system volume would have, from the settings.
bool GetSimulatedRootVolumeContents_qzvol_id_xml(QzString* textRet);
bool CloneQzVolFolderOfSystemVolumeIntoDataDir_IfNeeded();
// True when the mount point is the root of the Windows directory's drive.
bool IsSystemBootVolume(const QzString& mountPoint);
// The folder holding a volume's "qzvol_id.xml", ending in "\": the mount
// point's ".qzvol", or the data directory's "qzvol_system_volume" for the
// system volume.
QzString GetQzVolFolderOfVolume(const QzString& mountPoint);
// Rewrites the system volume's marker (file name and current text given) so
// that it names this machine's host identifier, and corrects the system
// volume's identifier in "qzinfo.xml" on the way. Null or empty arguments
// log and fail; so does a host identifier of 24 nines.
bool QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder(const QzString* myHguid,
                                                                          const QzString* staleAssocHguid,
                                                                          const QzString* markerFileName,
                                                                          const QzString* markerContents);

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
