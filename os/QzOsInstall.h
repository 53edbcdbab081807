// QzOs calls for installer support: running a program with its output
// captured, setting the install directory's access list, and checking a
// file's code signature. Same conventions as QzOs.h: Windows-form UTF-8
// paths, Win32 error numbers on both builds.
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"

namespace QzOs {

// "win" on Windows; "unk" on a system the client has no name for.
const char* PlatformName();

// The running program's own file (on POSIX the host path, which has no
// Windows form).
uint32_t GetOwnExecutablePath(QzString* pathRet);

struct ProcessResult {
    bool timedOut = false;  // still running at the time limit, and killed
    uint32_t exitCode = 0;
    QzString output;  // standard output and standard error as written, up to the cap
    bool outputCut = false;
};
// Starts the program with the arguments (each passed as one argument, no
// shell), standard input empty, standard output and error into one pipe, and
// waits for it at most timeoutMillis. Returns 0 when it ran (whatever its exit
// code), else the error that kept it from starting.
uint32_t RunProcessCapturingOutput(const char* exePath, const std::vector<QzString>& args,
                                   uint32_t timeoutMillis, int32_t maxOutputBytes, ProcessResult* resultRet);

// Gives the directory the access list of an install directory, replacing
// what it had and what it inherited: SYSTEM and Administrators full control,
// Users read and execute, all inherited by its files and folders. The POSIX
// build sets the permission bits the same way (owner everything, group and
// others read and, on folders and programs, execute) on the folder and all
// below it. detailRet says what was done or where it failed.
uint32_t SetInstallDirectoryAccess(const char* dirPath, QzString* detailRet);

struct SignatureCheck {
    bool verified = false;  // the signature is valid and its chain trusted
    uint32_t status = 0;    // the verifier's answer (an HRESULT on Windows)
    QzString signerName;    // of a verified signature only
    QzString detail;
};
// Verifies the file's embedded signature without any user interface or
// network retrieval. The POSIX build cannot verify anything: ErrNotSupported.
uint32_t VerifyFileSignature(const char* path, SignatureCheck* checkRet);

}  // namespace QzOs
