// QzOs installer support for Windows: CreateProcess with a pipe, the install
// directory's access list, and WinVerifyTrust with the signer's name.
#include "QzOsInstall.h"

#include <aclapi.h>
#include <softpub.h>
#include <wincrypt.h>
#include <windows.h>
#include <wintrust.h>

#include <string>

#include "QzOs.h"
#include "QzUtf16String.h"

namespace QzOs {
namespace {

bool ToWide(const QzString& s, bool asPath, std::wstring* out) {
    QzUtf16String u;
    if (!u.ConvertUtf8QzStringToUtf16(s, asPath)) return false;
    out->assign(reinterpret_cast<const wchar_t*>(u.Data()), static_cast<size_t>(u.Length()));
    return true;
}

void FromWide(const wchar_t* w, size_t units, QzString* out) {
    if (!QzUtf16String::ConvertQzUtf16StringToUtf8(reinterpret_cast<const char16_t*>(w),
                                                   static_cast<int32_t>(units), out))
        out->Set("(unconvertible)");
}

// One argument as the C runtime's command-line parser will read it back.
void AppendQuoted(std::wstring& cmd, const std::wstring& arg) {
    if (!arg.empty() && arg.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        cmd += arg;
        return;
    }
    cmd += L'"';
    for (size_t i = 0;; ++i) {
        size_t backslashes = 0;
        while (i < arg.size() && arg[i] == L'\\') {
            ++i;
            ++backslashes;
        }
        if (i == arg.size()) {
            cmd.append(backslashes * 2, L'\\');
            break;
        }
        if (arg[i] == L'"') {
            cmd.append(backslashes * 2 + 1, L'\\');
        } else {
            cmd.append(backslashes, L'\\');
        }
        cmd += arg[i];
    }
    cmd += L'"';
}

// Moves whatever the pipe holds now into the result, never blocking.
void DrainPipe(HANDLE pipe, int32_t maxBytes, ProcessResult* r) {
    char buf[4096];
    for (;;) {
        DWORD avail = 0;
        if (!::PeekNamedPipe(pipe, nullptr, 0, nullptr, &avail, nullptr) || avail == 0) return;
        DWORD got = 0;
        const DWORD want = avail < sizeof buf ? avail : static_cast<DWORD>(sizeof buf);
        if (!::ReadFile(pipe, buf, want, &got, nullptr) || got == 0) return;
        const int32_t room = maxBytes - r->output.Length();
        const int32_t keep =
            static_cast<int32_t>(got) < room ? static_cast<int32_t>(got) : (room > 0 ? room : 0);
        if (keep > 0) r->output.Append(buf, keep);
        if (keep < static_cast<int32_t>(got)) r->outputCut = true;
    }
}

}  // namespace

const char* PlatformName() {
    return "win";
}

uint32_t GetOwnExecutablePath(QzString* pathRet) {
    std::wstring buf(32768, L'\0');
    const DWORD n = ::GetModuleFileNameW(nullptr, buf.data(), static_cast<DWORD>(buf.size()));
    if (n == 0 || n >= buf.size()) {
        const uint32_t err = ::GetLastError();
        return err != 0 ? err : static_cast<uint32_t>(ErrFilenameExcedRange);
    }
    FromWide(buf.data(), n, pathRet);
    return 0;
}

uint32_t RunProcessCapturingOutput(const char* exePath, const std::vector<QzString>& args,
                                   uint32_t timeoutMillis, int32_t maxOutputBytes, ProcessResult* resultRet) {
    *resultRet = ProcessResult{};
    std::wstring exe, cmd, arg;
    if (!ToWide(QzString(exePath), false, &exe)) return ErrNoUnicodeTranslation;
    AppendQuoted(cmd, exe);
    for (const QzString& a : args) {
        if (!ToWide(a, false, &arg)) return ErrNoUnicodeTranslation;
        cmd += L' ';
        AppendQuoted(cmd, arg);
    }

    SECURITY_ATTRIBUTES sa{sizeof sa, nullptr, TRUE};
    HANDLE readEnd = nullptr, writeEnd = nullptr;
    if (!::CreatePipe(&readEnd, &writeEnd, &sa, 0)) return ::GetLastError();
    ::SetHandleInformation(readEnd, HANDLE_FLAG_INHERIT, 0);
    HANDLE nul = ::CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, &sa, OPEN_EXISTING,
                               0, nullptr);

    STARTUPINFOW si{};
    si.cb = sizeof si;
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdInput = nul;
    si.hStdOutput = writeEnd;
    si.hStdError = writeEnd;
    PROCESS_INFORMATION pi{};
    const BOOL started = ::CreateProcessW(exe.c_str(), cmd.data(), nullptr, nullptr, TRUE, CREATE_NO_WINDOW,
                                          nullptr, nullptr, &si, &pi);
    const DWORD startError = started ? 0 : ::GetLastError();
    // Only the child keeps the writing end: the pipe ends when the child does.
    ::CloseHandle(writeEnd);
    if (nul != INVALID_HANDLE_VALUE) ::CloseHandle(nul);
    if (!started) {
        ::CloseHandle(readEnd);
        return startError;
    }
    ::CloseHandle(pi.hThread);

    const ULONGLONG deadline = ::GetTickCount64() + timeoutMillis;
    for (;;) {
        DrainPipe(readEnd, maxOutputBytes, resultRet);
        if (::WaitForSingleObject(pi.hProcess, 50) == WAIT_OBJECT_0) break;
        if (::GetTickCount64() >= deadline) {
            ::TerminateProcess(pi.hProcess, 1);
            ::WaitForSingleObject(pi.hProcess, 5000);
            resultRet->timedOut = true;
            break;
        }
    }
    // What it wrote just before it ended; a program it started may hold the
    // pipe open, so nothing here waits for the pipe's end.
    DrainPipe(readEnd, maxOutputBytes, resultRet);
    DWORD code = 0;
    ::GetExitCodeProcess(pi.hProcess, &code);
    resultRet->exitCode = code;
    ::CloseHandle(pi.hProcess);
    ::CloseHandle(readEnd);
    return 0;
}

uint32_t SetInstallDirectoryAccess(const char* dirPath, QzString* detailRet) {
    detailRet->Clear();
    std::wstring path;
    if (!ToWide(QzString(dirPath), true, &path)) return ErrNoUnicodeTranslation;
    const DWORD attrs = ::GetFileAttributesW(path.c_str());
    if (attrs == INVALID_FILE_ATTRIBUTES) {
        const DWORD err = ::GetLastError();
        detailRet->Set("install directory not found");
        return err;
    }
    if (!(attrs & FILE_ATTRIBUTE_DIRECTORY)) {
        detailRet->Set("install directory is not a directory");
        return ErrDirectory;
    }

    BYTE sids[3][SECURITY_MAX_SID_SIZE];
    const WELL_KNOWN_SID_TYPE kinds[3] = {WinLocalSystemSid, WinBuiltinAdministratorsSid, WinBuiltinUsersSid};
    EXPLICIT_ACCESSW ea[3] = {};
    for (int i = 0; i < 3; ++i) {
        DWORD size = SECURITY_MAX_SID_SIZE;
        if (!::CreateWellKnownSid(kinds[i], nullptr, sids[i], &size)) {
            const DWORD err = ::GetLastError();
            detailRet->Set("CreateWellKnownSid failed");
            return err;
        }
        ea[i].grfAccessPermissions = i < 2 ? FILE_ALL_ACCESS : (FILE_GENERIC_READ | FILE_GENERIC_EXECUTE);
        ea[i].grfAccessMode = SET_ACCESS;
        ea[i].grfInheritance = SUB_CONTAINERS_AND_OBJECTS_INHERIT;
        ea[i].Trustee.TrusteeForm = TRUSTEE_IS_SID;
        ea[i].Trustee.TrusteeType = i == 0 ? TRUSTEE_IS_USER : TRUSTEE_IS_GROUP;
        ea[i].Trustee.ptstrName = reinterpret_cast<LPWSTR>(sids[i]);
    }
    PACL acl = nullptr;
    DWORD err = ::SetEntriesInAclW(3, ea, nullptr, &acl);
    if (err != ERROR_SUCCESS) {
        detailRet->Set("SetEntriesInAcl failed");
        return err;
    }
    // Protected: the folder's list replaces what it inherited from above.
    err = ::SetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT,
                                  DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION, nullptr,
                                  nullptr, acl, nullptr);
    ::LocalFree(acl);
    if (err != ERROR_SUCCESS) {
        detailRet->Set("SetNamedSecurityInfo failed");
        return err;
    }
    // Read the list back: a file system that keeps no access lists accepts
    // the call and answers with a list of its own making.
    PACL got = nullptr;
    PSECURITY_DESCRIPTOR sd = nullptr;
    err = ::GetNamedSecurityInfoW(path.data(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr,
                                  &got, nullptr, &sd);
    if (err != ERROR_SUCCESS) {
        detailRet->Set("GetNamedSecurityInfo failed after setting");
        return err;
    }
    int present = 0;
    for (int i = 0; i < 3; ++i) {
        for (DWORD k = 0; got && k < got->AceCount; ++k) {
            void* ace = nullptr;
            if (!::GetAce(got, k, &ace)) continue;
            const auto* allowed = static_cast<const ACCESS_ALLOWED_ACE*>(ace);
            if (allowed->Header.AceType != ACCESS_ALLOWED_ACE_TYPE) continue;
            if (!::EqualSid(const_cast<DWORD*>(&allowed->SidStart), sids[i])) continue;
            const DWORD want = ea[i].grfAccessPermissions;
            const BYTE inherit = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
            if ((allowed->Mask & want) == want && (allowed->Header.AceFlags & inherit) == inherit) {
                ++present;
                break;
            }
        }
    }
    const long long readBack = got ? static_cast<long long>(got->AceCount) : 0;
    ::LocalFree(sd);
    if (present != 3) {
        *detailRet = QzCat("the access list read back (", readBack, " entries) lacks ", 3 - present,
                           " of the entries just set: the file system keeps no access lists");
        return ErrNotSupported;
    }
    detailRet->Set(
        "access list set: SYSTEM and Administrators full control, Users read and execute, inherited");
    return 0;
}

uint32_t VerifyFileSignature(const char* path, SignatureCheck* checkRet) {
    *checkRet = SignatureCheck{};
    std::wstring wpath;
    if (!ToWide(QzString(path), true, &wpath)) return ErrNoUnicodeTranslation;

    WINTRUST_FILE_INFO file{};
    file.cbStruct = sizeof file;
    file.pcwszFilePath = wpath.c_str();
    WINTRUST_DATA data{};
    data.cbStruct = sizeof data;
    data.dwUIChoice = WTD_UI_NONE;
    data.fdwRevocationChecks = WTD_REVOKE_NONE;
    data.dwUnionChoice = WTD_CHOICE_FILE;
    data.pFile = &file;
    data.dwStateAction = WTD_STATEACTION_VERIFY;
    // Never fetch anything from the network: the installer must not hang.
    data.dwProvFlags = WTD_CACHE_ONLY_URL_RETRIEVAL;
    GUID action = WINTRUST_ACTION_GENERIC_VERIFY_V2;
    const LONG status = ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &data);
    checkRet->status = static_cast<uint32_t>(status);
    char hex[16];
    static const char kDigits[] = "0123456789abcdef";
    for (int i = 0; i < 8; ++i) hex[i] = kDigits[(checkRet->status >> (28 - 4 * i)) & 0xf];
    hex[8] = '\0';
    checkRet->detail = QzCat("WinVerifyTrust=0x", hex);
    if (status == 0) {
        checkRet->verified = true;
        CRYPT_PROVIDER_DATA* prov = ::WTHelperProvDataFromStateData(data.hWVTStateData);
        CRYPT_PROVIDER_SGNR* signer = prov ? ::WTHelperGetProvSignerFromChain(prov, 0, FALSE, 0) : nullptr;
        CRYPT_PROVIDER_CERT* cert = signer ? ::WTHelperGetProvCertFromChain(signer, 0) : nullptr;
        if (cert && cert->pCert) {
            wchar_t name[512];
            const DWORD n =
                ::CertGetNameStringW(cert->pCert, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name, 512);
            if (n > 1) FromWide(name, n - 1, &checkRet->signerName);
        }
        if (checkRet->signerName.IsEmpty()) checkRet->detail.Append(", signer name unreadable");
    }
    data.dwStateAction = WTD_STATEACTION_CLOSE;
    ::WinVerifyTrust(static_cast<HWND>(INVALID_HANDLE_VALUE), &action, &data);
    return 0;
}

}  // namespace QzOs
