// POSIX side of identity and access: the login is the effective user, an
// administrator is the superuser, and whether an account may read a file is
// decided by the file's owner, group and other permission bits.
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>

#include "QzOs.h"
#include "QzOsInternal.h"

namespace QzOs {

bool GetCurrentLoginName(QzString* nameRet) {
    struct passwd pw;
    struct passwd* found = nullptr;
    char buf[4096];
    if (::getpwuid_r(::geteuid(), &pw, buf, sizeof buf, &found) != 0 || !found) {
        nameRet->Set(QzCat("uid", static_cast<long long>(::geteuid())));
        return false;
    }
    nameRet->Set(found->pw_name);
    return true;
}

bool CurrentProcessHasAdminRights() {
    return ::geteuid() == 0;
}

bool AccountMayReadFile(const char* winPath, const char* accountName, QzString* detailRet) {
    detailRet->Clear();
    std::string path;
    if (posix::MapPath(winPath, &path) != ErrSuccess) {
        detailRet->Set("path_not_mappable");
        return false;
    }
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        detailRet->Set(QzCat("stat_failed_errno_", errno));
        return false;
    }
    uid_t uid = ::geteuid();
    gid_t gid = ::getegid();
    if (accountName) {
        struct passwd pw;
        struct passwd* found = nullptr;
        char buf[4096];
        if (::getpwnam_r(accountName, &pw, buf, sizeof buf, &found) != 0 || !found) {
            detailRet->Set(QzCat("unknown_account_", accountName));
            return false;
        }
        uid = found->pw_uid;
        gid = found->pw_gid;
    }
    if (uid == 0) {
        detailRet->Set("superuser_reads_everything");
        return true;
    }
    mode_t bit;
    const char* why;
    if (st.st_uid == uid) {
        bit = S_IRUSR, why = "owner_bits";
    } else if (st.st_gid == gid) {
        bit = S_IRGRP, why = "group_bits";
    } else {
        bit = S_IROTH, why = "other_bits";
    }
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(st.st_mode & 07777));
    detailRet->Set(QzCat(why, "_mode_", mode));
    return (st.st_mode & bit) != 0;
}

}  // namespace QzOs
