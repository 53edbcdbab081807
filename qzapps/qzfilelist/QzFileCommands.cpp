// The file diagnostics: directory listings, single-file probes, DLL checks
// and grep. Support engineers run these on a customer's machine.
#include <cstdio>
#include <cstring>

#include "QzCommands.h"
#include "QzDataPaths.h"
#include "QzFastFileReader.h"
#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzFileListing.h"
#include "QzFileLocations.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzSystem.h"
#include "QzTime.h"
#include "qzfilelist.h"

namespace {

const char* TrueFalse(bool b) {
    return b ? "true" : "false";
}

QzString TimeText(int64_t millis) {
    QzString s;
    QzTime::AppendLogDateTime(s, millis);
    return s;
}

// The detail lines of -fileinfo, also printed under each item of -dirlistdetail.
void PrintFileDetails(const QzString& path, const QzOs::FileAttrData& attrs) {
    const bool isDir = (attrs.attributes & QzOs::AttrDirectory) != 0;
    const bool isReparse = (attrs.attributes & QzOs::AttrReparsePoint) != 0;
    uint32_t links = 1;
    QzOs::GetFileLinkCount(path.c_str(), &links);
    const bool modifiable = !(attrs.attributes & (QzOs::AttrReadOnly | QzOs::AttrSystem)) && !isReparse;
    std::printf("  fileSizeInBytes: %s\n", QzCat(static_cast<long long>(isDir ? 0 : attrs.size)).c_str());
    std::printf("  rsrcForkInBytes: %s\n", "0");
    std::printf("  isDirectory: %s\n", TrueFalse(isDir));
    std::printf("  isSymLinkOrReparsePoint: %s\n", TrueFalse(isReparse));
    std::printf("  linked file count: %d\n", static_cast<int>(links));
    std::printf("  isBundlePackageDir: %s\n", "false");
    std::printf("  isAliasFile: %s\n", "false");
    std::printf("  isAppropriateToModifyFile: %s\n", TrueFalse(modifiable));
    std::printf("  creationTime (GMT): %s\n",
                TimeText(QzTime::FileTimeToGmtMillis(attrs.creationTime)).c_str());
    std::printf("  lastModifiedTime (GMT): %s\n",
                TimeText(QzTime::FileTimeToGmtMillis(attrs.lastWriteTime)).c_str());
}

// Reads every byte of the file in fixed-size chunks; returns the count or -1
// with the reason in the words of the whole-file reader.
int64_t ReadAllBytes(const char* path, QzString* detailRet) {
    QzOs::Handle h;
    const uint32_t err = QzOs::OpenFile(path, QzOs::OpenMode::ReadShared, &h);
    if (err != QzOs::ErrSuccess) {
        *detailRet = QzFile::OpenFailureText(err);
        return -1;
    }
    static char buf[1 << 16];
    int64_t total = 0;
    for (;;) {
        uint32_t got = 0;
        const uint32_t readErr = QzOs::ReadFile(h, buf, sizeof buf, &got);
        if (readErr != QzOs::ErrSuccess) {
            QzOs::CloseFile(h);
            *detailRet = QzFile::ReadFailureText(readErr);
            return -1;
        }
        if (got == 0) break;
        total += got;
    }
    QzOs::CloseFile(h);
    return total;
}

// Who this process runs as, who the service runs as, and whether each may read the file.
void PrintAccessReport(const QzString& path) {
    QzString serviceAccount;
    const QzString runsAs = QzFile::DataPath(QzFile::DataFile::ServiceAccountName);
    QzString err;
    if (QzFile::ReadEntireFile(runsAs.c_str(), &serviceAccount, &err)) {
        while (serviceAccount.Length() && (serviceAccount.Last() == '\n' || serviceAccount.Last() == '\r' ||
                                           serviceAccount.Last() == ' '))
            serviceAccount.Truncate(serviceAccount.Length() - 1);
    }
    if (serviceAccount.IsEmpty()) serviceAccount.Set("qzunknown");

    QzString login;
    QzOs::GetCurrentLoginName(&login);
    std::printf(QzOs::CurrentProcessHasAdminRights() ? "  yes_have_admin_rights_login_name: %s\n"
                                                     : "  no_admin_rights_login_name: %s\n",
                login.c_str());
    std::printf("  qzserv_login_name: %s\n", serviceAccount.c_str());

    QzString detail;
    const int64_t bytes = ReadAllBytes(path.c_str(), &detail);
    if (bytes >= 0)
        std::printf("  successfully_read_in_file: %s bytes\n", QzCat(static_cast<long long>(bytes)).c_str());
    else
        std::printf("  failed_to_read_file, detail=%s\n", detail.c_str());

    bool may = QzOs::AccountMayReadFile(path.c_str(), nullptr, &detail);
    std::printf("  my_current_login_has_rights_to_read_file: %s, detail=%s\n", TrueFalse(may),
                detail.c_str());
    if (serviceAccount.Equals("qzunknown")) {
        may = false;
        detail.Set("service_account_unknown");
    } else {
        may = QzOs::AccountMayReadFile(path.c_str(), serviceAccount.c_str(), &detail);
    }
    std::printf("  qzserv_login_has_rights_to_read_file: %s, detail=%s\n", TrueFalse(may), detail.c_str());
}

int DirList(const Args& args, bool detail) {
    const QzString& dir = args[2];
    QzOs::FileAttrData attrs;
    if (QzOs::GetFileAttributesEx(dir.c_str(), &attrs) != QzOs::ErrSuccess) {
        std::printf("Directory does not exist: %s\n", dir.c_str());
        return 0;
    }
    if (!(attrs.attributes & QzOs::AttrDirectory)) {
        std::printf("This is not a directory: %s\n", dir.c_str());
        return 0;
    }
    if (attrs.attributes & QzOs::AttrReparsePoint) {
        std::printf("This is a symlink or reparse point: %s\n", dir.c_str());
        return 0;
    }
    QzFileInfoList list;
    if (!QzFile::GetListOfFileInfosInDir(&dir, &list)) {
        std::printf("ERROR: QzFile::GetListOfFileInfosInDir failed for: %s\n", dir.c_str());
        return 0;
    }
    if (list.Count() == 0) {
        std::printf("Directory contained zero files: %s\n", dir.c_str());
        return 0;
    }
    std::printf(detail ? "DirList of %d items for: %s\n\n" : "DirList of %d items for: %s\n", list.Count(),
                dir.c_str());
    for (int32_t i = 0; i < list.Count(); ++i) {
        const QzFileInfo* f = list.At(i);
        std::printf(" Item %3d - %s: %s\n", i, f->isDirectory ? " dir" : "file", f->Name());
        if (!detail) continue;
        QzOs::FileAttrData a;
        if (QzOs::GetFileAttributesEx(f->fullPath.c_str(), &a) != QzOs::ErrSuccess) {
            // Gone since the listing: show what the listing saw.
            a.attributes = f->isDirectory ? uint32_t{QzOs::AttrDirectory} : 0u;
            if (f->isReparsePoint) a.attributes |= QzOs::AttrReparsePoint;
            a.size = f->TotalSize();
            a.creationTime = (f->createdMillis + 11644473600000LL) * 10000;
            a.lastWriteTime = (f->lastModifiedMillis + 11644473600000LL) * 10000;
        }
        PrintFileDetails(f->fullPath, a);
    }
    std::printf("End.\n");
    return 0;
}

}  // namespace

int CmdDirList(const Args& args) {
    return DirList(args, false);
}
int CmdDirListDetail(const Args& args) {
    return DirList(args, true);
}

int CmdFileInfo(const Args& args) {
    const QzString& path = args[2];
    std::printf("FileInfo for: %s\n", path.c_str());
    QzOs::FileAttrData attrs;
    if (QzOs::GetFileAttributesEx(path.c_str(), &attrs) != QzOs::ErrSuccess) {
        std::printf("File does not exist.\n");
        return 0;
    }
    PrintFileDetails(path, attrs);
    PrintAccessReport(path);
    return 0;
}

int CmdDiagnoseReadProblem(const Args& args) {
    const QzString& path = args[2];
    std::printf("Diagnosing this file for ability to read: %s\n", path.c_str());
    QzString name;
    const int code = QzFile::DiagnoseFileReadProblem(path.c_str(), &name);
    if (code == QZ_FILE_NO_ERROR) {
        std::printf("File exists, and there was no problem reading the file.\n");
    } else if (code == QZ_FILE_PERMANENT_DOES_NOT_EXIST || code == QZ_FILE_TEMPORARY_DRIVE_UNPLUGGED) {
        std::printf("QzFile::DiagnoseFileReadProblem failed - file does not exist: %s, errStr=%s\n",
                    path.c_str(), name.c_str());
    } else {
        std::printf("File exists, could not read for intReason=%d, strReason=%s\n", code, name.c_str());
    }
    return 0;
}

int CmdOpenFileExclusive(const Args& args) {
    const QzString& path = args[2];
    std::printf("Opening this file exclusively: %s\n", path.c_str());
    if (!QzFile::FileExists(path.c_str())) {
        std::printf("File does not exist - not valid to use this command.\n");
        return 0;
    }
    QzOs::Handle h;
    const uint32_t err = QzOs::OpenFile(path.c_str(), QzOs::OpenMode::ReadExclusive, &h);
    if (err != QzOs::ErrSuccess) {
        const QzString errStr = QzFile::OpenFailureText(err);
        std::printf("File exists but QzOpenFileReadOnlyExclusive Failed on: %s, errStr=%s\n", path.c_str(),
                    errStr.c_str());
        return 0;
    }
    // Held deliberately long (about 83 minutes) so support can reproduce a
    // file that another program keeps locked while a scan runs.
    for (int seconds = 0; seconds < 5000; seconds += 5) {
        std::printf("Holding file exclusively seconds=%d ...\n", seconds);
        std::fflush(stdout);
        QzTime::SleepMillis(5000);
    }
    QzOs::CloseFile(h);
    std::printf("Released file: %s\n", path.c_str());
    return 0;
}

int CmdDllInfo(const Args& args) {
    const QzString& path = args[2];
    if (QzSystem::Is64BitProcess()) {
        std::printf("DllInfo from a 64 bit process for: %s\n", path.c_str());
    } else {
        std::printf("DllInfo from a 32 bit process for: %s\n", path.c_str());
    }
    if (!QzFile::FileExists(path.c_str())) {
        std::printf("File does not exist.\n");
        return 0;
    }
    const uint32_t loadErr = QzOs::TryLoadLibrary(path.c_str());
    if (loadErr == QzOs::ErrNotSupported) {
        std::printf("Test A: skipped, this build cannot load Windows DLLs.\n");
    } else if (loadErr == QzOs::ErrSuccess) {
        std::printf("Test A: This file is a 64 bit Windows DLL.\n");
    } else {
        std::printf("Test A: This file is NOT a 64 bit Windows DLL.\n");
    }

    // Test B reads the headers: the PE offset at 0x3C, then the COFF header's
    // machine and characteristics.
    unsigned char head[2000];
    QzOs::Handle h;
    if (QzOs::OpenFile(path.c_str(), QzOs::OpenMode::ReadShared, &h) != QzOs::ErrSuccess) {
        std::printf("File could not be read by ReadFirstNbytesIntoBuf\n");
        return 0;
    }
    uint32_t total = 0;
    for (uint32_t got = 1; got > 0 && total < sizeof head;) {
        if (QzOs::ReadFile(h, head + total, static_cast<uint32_t>(sizeof head) - total, &got) !=
            QzOs::ErrSuccess) {
            QzOs::CloseFile(h);
            std::printf("File could not be read by ReadFirstNbytesIntoBuf\n");
            return 0;
        }
        total += got;
    }
    QzOs::CloseFile(h);
    if (total < sizeof head) {
        std::printf("ReadFirstNbytesIntoBuf read less than 2000 bytes\n");
        return 0;
    }
    auto u16 = [&](uint32_t at) { return static_cast<uint32_t>(head[at] | (head[at + 1] << 8)); };
    const uint32_t pe = u16(0x3C) | (u16(0x3E) << 16);
    const bool headerOk = head[0] == 'M' && head[1] == 'Z' && pe <= sizeof head - 24 && head[pe] == 'P' &&
                          head[pe + 1] == 'E' && head[pe + 2] == 0 && head[pe + 3] == 0;
    if (!headerOk || !(u16(pe + 22) & 0x2000)) {
        std::printf("Test B: This file is not a Windows DLL.\n");
    } else if (u16(pe + 4) == 0x8664) {
        std::printf("Test B: This file is a 64 bit Windows DLL.\n");
    } else if (u16(pe + 4) == 0x014C) {
        std::printf("Test B: This file is a 32 bit Windows DLL.\n");
    } else {
        std::printf("Test B: This file is an unknown bit Windows DLL.\n");
    }
    return 0;
}

int CmdCopyRsrcFork(const Args& args) {
    std::printf("FileInfo for: %s\n", args[2].c_str());
    if (!QzFile::PathExists(args[2].c_str())) {
        std::printf("File does not exist.\n");
        return 0;
    }
    // Windows files have no resource fork.
    std::printf("File has no resource fork.\n");
    return 0;
}

int CmdGrep(const Args& args) {
    const bool ignoreCase = args[1].Equals("-igrep");
    const QzString& pattern = args[2];
    const QzString& file = args[3];
    if (!QzFile::FileExists(file.c_str())) {
        std::printf("File does not exist: %s\n", file.c_str());
        return 0;
    }
    QzFastFileReader reader;
    if (!reader.Open(file.c_str())) {
        std::printf("An error occurred, is the file readable?, errStr=%s\n", reader.Error().c_str());
        return 0;
    }
    std::printf("Grep returned the following for file: %s\n", file.c_str());
    const bool ok = reader.Grep(
        pattern.c_str(), ignoreCase, 10000, [](int64_t lineNumber, const char* line, int32_t len, bool) {
            std::printf("Line %s: ", QzCat(static_cast<long long>(lineNumber)).c_str());
            std::fwrite(line, 1, static_cast<size_t>(len), stdout);
            std::fputc('\n', stdout);
        });
    if (!ok) {
        std::printf("An error occurred, is the file readable?, errStr=%s\n", reader.Error().c_str());
        return 0;
    }
    std::printf("Done.\n");
    return 0;
}
