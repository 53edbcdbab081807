// Installer support rows of the switch table: running the transmitter as a
// test, the install history, the retention setting, the install directory's
// permissions and code signatures. The installer reads their exit codes and
// output, so each says plainly whether the work was done.
#include <cstdio>

#include "QzCodeSignature.h"
#include "QzCommandRunner.h"
#include "QzCommands.h"
#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileWrite.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzOsInstall.h"
#include "QzReports.h"
#include "QzTime.h"
#include "qzfilelist.h"

namespace QzInstallHistory {

namespace {
constexpr const char* kTitle = "# qzfilelist install history\n";
}

bool LogInstallEvent(bool flag1, bool flag2) {
    const QzString path = QzFile::DataPath(QzFile::DataFile::InstallHistory);
    QzString text, err;
    switch (QzFile::ReadFilePatiently(path.c_str(), &text, QzFile::ReadPolicy{}, &err)) {
        case QzFile::ReadStatus::Ok:
            if (!text.IsEmpty() && text.Last() != '\n') text.AppendChar('\n');
            break;
        case QzFile::ReadStatus::Missing:
            text.Set(kTitle);
            break;
        default:
            // Held or unreadable: the earlier events must not be replaced by a
            // file without them.
            QzLog::WriteLine(QzCat("ERROR: QzInstallHistory::LogInstallEvent could not read ", path,
                                   ", so not logging the event, errStr=", err));
            return false;
    }
    const int64_t now = QzTime::GetCurrentGmtMillis();
    text.Append(QzCat(static_cast<long long>(now), "\t"));
    QzTime::AppendLogDateTime(text, now);
    text.Append(QzCat("\t", kQzFileListVersion, "\t", flag1 ? "t" : "f", "\t", flag2 ? "t" : "f", "\n"));
    QzFile::CreateDirectoryRecursive(QzFile::DataPath(QzFile::DataFile::ReportsFolder).c_str());
    // The whole file goes to a temporary name first: a crash leaves the old
    // history or the new one, never a part of either.
    if (!QzFile::WriteFileAtomically(path, text, QzFile::ReplacePolicy{}, nullptr)) {
        QzLog::WriteLine(QzCat("ERROR: QzInstallHistory::LogInstallEvent could not write ", path));
        return false;
    }
    QzLog::WriteLine(QzCat("QzInstallHistory::LogInstallEvent logged flag1=", flag1 ? "t" : "f",
                           ", flag2=", flag2 ? "t" : "f", " in ", path));
    return true;
}

}  // namespace QzInstallHistory

int CmdAttemptRunQzTransmit64(const Args&) {
    const bool windows = QzString(QzOs::PlatformName()).Equals("win");
    const QzString tag = QzCat(QzOs::PlatformName(), QzOs::Is64BitOperatingSystem() ? "64" : "32");
    const QzString path = QzCat(QzFile::GetInstallDir(), windows ? "qztransmit64.exe" : "qztransmit");
    if (!QzFile::FileExists(path.c_str())) {
        std::printf("%s: failed to find file to run: %s\n", QzCat("err_", tag).c_str(), path.c_str());
        return 0;
    }
    QzString result;
    QzCommandRunner::RunAndDescribe(path, {}, QzCommandRunner::kDefaultTimeoutMillis, &result);
    std::printf("%s: ran file: %s\n", result.c_str(), path.c_str());
    return 0;
}

int CmdLogInstallEvent(const Args& args) {
    const bool ok = QzInstallHistory::LogInstallEvent(args[2].Equals("t"), args[3].Equals("t"));
    std::printf(ok ? "Successfully Logged Install Event.\n" : "ERROR: did not log Install Event.\n");
    return 0;
}

int CmdRetentionInfo(const Args&) {
    QzString text;
    if (!QzUiUtil::QzRollback_GetMostCurrentFinalizedHistoryUxeString(&text) || text.IsEmpty())
        text.Set("none");
    std::printf("%s\n", text.c_str());
    return 0;
}

int CmdFixPermissions(const Args&) {
    const QzString& dir = QzFile::GetInstallDir();
    QzString detail;
    const uint32_t err = QzOs::SetInstallDirectoryAccess(dir.c_str(), &detail);
    QzLog::WriteLine(QzCat(err ? "ERROR: " : "", "qzfilelist -fixpermissions on ", dir, ": ", detail,
                           ", err=", static_cast<long long>(err)));
    if (err != 0) {
        std::printf("Failed to fix permissions on the install dir.\n");
        return 1;
    }
    std::printf("Succeeded fixing permissions on the install dir.\n");
    return 0;
}

int CmdCheckCodeSignature(const Args& args) {
    const QzString& path = args[2];
    if (!QzFile::FileExists(path.c_str())) {
        std::printf("FAIL:File \"%s\" does not exist.\n", path.c_str());
        return 1;
    }
    QzString detail;
    if (QzCodeSignature::HasValidCodeSignature(path, &detail))
        std::printf("PASS:%s has a valid code signature.\n", path.c_str());
    else
        std::printf("FAIL:%s does not have a valid code signature.\n", path.c_str());
    QzString self;
    if (const uint32_t err = QzOs::GetOwnExecutablePath(&self)) {
        self = QzCat("(own path unknown, error ", static_cast<long long>(err), ")");
        std::printf("FAIL:%s does not have a valid code signature (self test).\n", self.c_str());
    } else if (!QzCodeSignature::HasValidCodeSignature(self, &detail)) {
        std::printf("FAIL:%s does not have a valid code signature (self test).\n", self.c_str());
    }
    return 0;
}
