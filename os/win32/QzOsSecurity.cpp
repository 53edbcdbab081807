// Windows side of identity and access: the login name, membership of the
// Administrators group in force, and whether an account may read a file by
// the file's own access list.
// clang-format off
#include "QzOsInternal.h"  // windows.h, which the other system headers need first
// clang-format on

#include <aclapi.h>

#include <cstring>

namespace QzOs {

using namespace win32;

bool GetCurrentLoginName(QzString* nameRet) {
    nameRet->Clear();
    wchar_t name[256 + 1] = {};  // UNLEN + 1
    DWORD len = 256 + 1;
    if (!::GetUserNameW(name, &len)) {
        nameRet->Set("unknown_login");
        return false;
    }
    AssignWide(name, nameRet);
    return true;
}

bool CurrentProcessHasAdminRights() {
    // Membership that is in force: under UAC an unelevated administrator's
    // token holds the Administrators group only for deny, which reads as no.
    SID_IDENTIFIER_AUTHORITY ntAuthority = SECURITY_NT_AUTHORITY;
    PSID admins = nullptr;
    if (!::AllocateAndInitializeSid(&ntAuthority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0,
                                    0, 0, 0, 0, 0, &admins)) {
        return false;
    }
    BOOL member = FALSE;
    const BOOL ok = ::CheckTokenMembership(nullptr, admins, &member);
    ::FreeSid(admins);
    return ok && member;
}

bool AccountMayReadFile(const char* path, const char* accountName, QzString* detailRet) {
    detailRet->Clear();
    QzUtf16String wpath;
    if (!wpath.ConvertUtf8QzStringToUtf16(path, static_cast<int32_t>(std::strlen(path)), true)) {
        detailRet->Set("path_not_utf8");
        return false;
    }
    // READ_CONTROL is granted to the owner whatever the access list says;
    // backup semantics open directories too.
    HANDLE h = ::CreateFileW(W(wpath), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                             nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        detailRet->Set("open_for_security_failed_err_");
        detailRet->AppendInt(LastError());
        return false;
    }
    PSECURITY_DESCRIPTOR sd = nullptr;
    PACL dacl = nullptr;
    const DWORD secErr =
        ::GetSecurityInfo(h, SE_FILE_OBJECT,
                          OWNER_SECURITY_INFORMATION | GROUP_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                          nullptr, nullptr, &dacl, nullptr, &sd);
    ::CloseHandle(h);
    if (secErr != ERROR_SUCCESS) {
        detailRet->Set("get_security_info_failed_err_");
        detailRet->AppendInt(secErr);
        return false;
    }
    GENERIC_MAPPING mapping = {FILE_GENERIC_READ, FILE_GENERIC_WRITE, FILE_GENERIC_EXECUTE, FILE_ALL_ACCESS};
    bool may = false;
    if (!dacl) {
        detailRet->Set("no_access_list_everyone_may_read");
        may = true;
    } else if (!accountName) {
        // This process: the system's own access check against its token.
        HANDLE processToken = nullptr;
        HANDLE token = nullptr;
        if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_DUPLICATE | TOKEN_QUERY, &processToken) ||
            !::DuplicateToken(processToken, SecurityImpersonation, &token)) {
            detailRet->Set("open_token_failed_err_");
            detailRet->AppendInt(LastError());
        } else {
            PRIVILEGE_SET privileges;
            DWORD privilegesLen = sizeof(privileges);
            DWORD granted = 0;
            BOOL status = FALSE;
            if (!::AccessCheck(sd, token, FILE_GENERIC_READ, &mapping, &privileges, &privilegesLen, &granted,
                               &status)) {
                detailRet->Set("access_check_failed_err_");
                detailRet->AppendInt(LastError());
            } else {
                may = status != FALSE;
                detailRet->Set(may ? "access_check_granted_0x" : "access_check_denied_0x");
                detailRet->AppendPaddedHex(granted, 8);
            }
        }
        if (token) ::CloseHandle(token);
        if (processToken) ::CloseHandle(processToken);
    } else {
        // Another account: its effective rights from the access list.
        QzUtf16String wname;
        BYTE sidBuf[SECURITY_MAX_SID_SIZE];
        DWORD sidLen = sizeof(sidBuf);
        wchar_t domain[256] = {};
        DWORD domainLen = 256;
        SID_NAME_USE use;
        if (!wname.ConvertUtf8QzStringToUtf16(accountName, static_cast<int32_t>(std::strlen(accountName)),
                                              false)) {
            detailRet->Set("account_not_utf8");
        } else if (!::LookupAccountNameW(nullptr, W(wname), sidBuf, &sidLen, domain, &domainLen, &use)) {
            detailRet->Set("lookup_account_failed_err_");
            detailRet->AppendInt(LastError());
        } else {
            TRUSTEE_W trustee = {};
            trustee.TrusteeForm = TRUSTEE_IS_SID;
            trustee.TrusteeType = TRUSTEE_IS_UNKNOWN;
            trustee.ptstrName = reinterpret_cast<LPWSTR>(sidBuf);
            ACCESS_MASK rights = 0;
            const DWORD err = ::GetEffectiveRightsFromAclW(dacl, &trustee, &rights);
            if (err != ERROR_SUCCESS) {
                detailRet->Set("effective_rights_failed_err_");
                detailRet->AppendInt(err);
            } else {
                ::MapGenericMask(&rights, &mapping);
                may = (rights & FILE_GENERIC_READ) == FILE_GENERIC_READ;
                detailRet->Set(may ? "effective_rights_allow_read_0x" : "effective_rights_deny_read_0x");
                detailRet->AppendPaddedHex(rights, 8);
            }
        }
    }
    ::LocalFree(sd);
    return may;
}

}  // namespace QzOs
