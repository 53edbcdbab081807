#include "QzFile.h"

#include <cstdlib>
#include <cstring>

#include "QzOs.h"
#include "QzTime.h"

namespace QzFile {

bool PathExists(const char* path) {
    QzOs::FileAttrData d;
    return path && QzOs::GetFileAttributesEx(path, &d) == QzOs::ErrSuccess;
}

bool FileExists(const char* path) {
    QzOs::FileAttrData d;
    return path && QzOs::GetFileAttributesEx(path, &d) == QzOs::ErrSuccess &&
           !(d.attributes & QzOs::AttrDirectory);
}

bool DirExists(const char* path) {
    QzOs::FileAttrData d;
    return path && QzOs::GetFileAttributesEx(path, &d) == QzOs::ErrSuccess &&
           (d.attributes & QzOs::AttrDirectory);
}

int64_t GetFileSizeInBytes(const char* path) {
    QzOs::FileAttrData d;
    if (!path || QzOs::GetFileAttributesEx(path, &d) != QzOs::ErrSuccess) return -1;
    return d.size;
}

int64_t GetFileLastModMillis(const char* path) {
    QzOs::FileAttrData d;
    if (!path || QzOs::GetFileAttributesEx(path, &d) != QzOs::ErrSuccess) return 0;
    return QzTime::FileTimeToGmtMillis(d.lastWriteTime);
}

bool DeleteFileIfExists(const char* path) {
    if (!path) return false;
    const uint32_t err = QzOs::DeleteFile(path);
    return err == QzOs::ErrSuccess || err == QzOs::ErrFileNotFound || err == QzOs::ErrPathNotFound;
}

bool CreateDirectoryRecursive(const char* path) {
    if (!path || !*path) return false;
    if (DirExists(path)) return true;
    QzString p(path);
    while (p.Length() > 1 && (p.Last() == '\\' || p.Last() == '/')) p.Truncate(p.Length() - 1);
    // Create each missing component from the first separator after the root.
    for (int32_t i = 1; i <= p.Length(); ++i) {
        if (i < p.Length() && p[i] != '\\' && p[i] != '/') continue;
        QzString part(p.c_str(), i);
        if (part.Length() == 2 && part[1] == ':') continue;  // "C:"
        if (DirExists(part.c_str())) continue;
        const uint32_t err = QzOs::CreateDirectory(part.c_str());
        if (err != QzOs::ErrSuccess && err != QzOs::ErrAlreadyExists) return false;
    }
    return DirExists(path);
}

QzString OpenFailureText(uint32_t err) {
    if (err == QzOs::ErrSharingViolation) return QzString("Another_Process_Has_File_Open_");
    return QzCat("error_win32_CreateF_failed_", err,
                 err == QzOs::ErrAccessDenied ? "_ERROR_ACCESS_DENIED" : "");
}

QzString ReadFailureText(uint32_t err) {
    return QzCat("error_win32_ReadFile_failed_GetLastError_", err,
                 err == QzOs::ErrAccessDenied ? "_ERROR_ACCESS_DENIED" : "");
}

bool ReadEntireFileIntoNewBuf(const char* fileName, char** bufRet, int64_t* numBytesReturned,
                              QzString* errStrRet) {
    QzString ignored;
    QzString& err = errStrRet ? *errStrRet : ignored;
    err.Clear();
    if (bufRet) *bufRet = nullptr;
    if (!numBytesReturned) {
        err.Set("bad_argument: numBytesReturned was NULL");
        return false;
    }
    *numBytesReturned = 0;
    if (!fileName || !bufRet) {
        err.Set("bad_argument: fileName was NULL");
        return false;
    }
    QzOs::FileAttrData attrs;
    if (QzOs::GetFileAttributesEx(fileName, &attrs) != QzOs::ErrSuccess) {
        err.Set("file_does_not_exist");
        return false;
    }
    if (attrs.size > kMaxWholeFileBytes) {
        err.Set("error_file_is_larger_than_one_gigabyte");
        return false;
    }
    QzOs::Handle h;
    const uint32_t openErr = QzOs::OpenFile(fileName, QzOs::OpenMode::ReadShared, &h);
    if (openErr != QzOs::ErrSuccess) {
        err = OpenFailureText(openErr);
        return false;
    }
    // The size may have changed since it was examined; read what is there now.
    int64_t size = attrs.size;
    QzOs::GetFileSize(h, &size);
    if (size > kMaxWholeFileBytes) {
        QzOs::CloseFile(h);
        err.Set("error_file_is_larger_than_one_gigabyte");
        return false;
    }
    char* buf = static_cast<char*>(std::malloc(static_cast<size_t>(size) + 1));
    if (!buf) {
        QzOs::CloseFile(h);
        err = QzCat("error_could_not_malloc_rawbuf_of_", static_cast<long long>(size), "_bytes");
        return false;
    }
    int64_t total = 0;
    while (total < size) {
        const int64_t want64 = size - total < (1 << 24) ? size - total : (1 << 24);
        uint32_t got = 0;
        const uint32_t readErr = QzOs::ReadFile(h, buf + total, static_cast<uint32_t>(want64), &got);
        if (readErr != QzOs::ErrSuccess) {
            QzOs::CloseFile(h);
            std::free(buf);
            err = ReadFailureText(readErr);
            return false;
        }
        if (got == 0) break;  // the file shrank
        total += got;
    }
    QzOs::CloseFile(h);
    buf[total] = '\0';
    *bufRet = buf;
    *numBytesReturned = total;
    return true;
}

bool ReadEntireFile(const char* fileName, QzString* contentRet, QzString* errStrRet) {
    char* buf = nullptr;
    int64_t n = 0;
    if (!ReadEntireFileIntoNewBuf(fileName, &buf, &n, errStrRet)) return false;
    const bool ok = contentRet->Set(buf, static_cast<int32_t>(n));
    std::free(buf);
    if (!ok && errStrRet)
        *errStrRet = QzCat("error_could_not_malloc_rawbuf_of_", static_cast<long long>(n), "_bytes");
    return ok;
}

void SplitIntoLines(const char* text, int64_t len, std::vector<QzString>* linesRet) {
    linesRet->clear();
    int64_t start = 0;
    while (start < len) {
        const void* nl = std::memchr(text + start, '\n', static_cast<size_t>(len - start));
        const int64_t end = nl ? static_cast<const char*>(nl) - text : len;
        int64_t stop = end;
        if (nl && stop > start && text[stop - 1] == '\r') --stop;  // only a "\r" before a "\n"
        linesRet->emplace_back(text + start, static_cast<int32_t>(stop - start));
        start = end + 1;
    }
}

bool ReadFileIntoLines(const char* fileName, std::vector<QzString>* linesRet, QzString* errStrRet) {
    char* buf = nullptr;
    int64_t n = 0;
    linesRet->clear();
    if (!ReadEntireFileIntoNewBuf(fileName, &buf, &n, errStrRet)) return false;
    SplitIntoLines(buf, n, linesRet);
    std::free(buf);
    return true;
}

}  // namespace QzFile
