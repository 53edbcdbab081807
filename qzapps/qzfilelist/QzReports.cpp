// The reports the scan run leaves under "qzreports" for support and for the
// other programs of the client, and the reader of the rollback history that
// the control panel keeps. Every report is plain UTF-8 text, one record per
// line, fields separated by a tab (README.md, "Reports"), written whole
// through a temporary name so that a reader never sees half of one.
#include "QzReports.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileWrite.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzSystem.h"
#include "QzTime.h"

namespace QzReports {

namespace {

constexpr const char* kUninstallKey = "SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\Uninstall";
constexpr const char* kUnknownAccount = "qzunknown";

// A field never breaks its line: tabs, carriage returns and line feeds in a
// value become blanks.
void AppendField(QzString& line, const QzString& value) {
    line.AppendChar('\t');
    for (int32_t i = 0; i < value.Length(); ++i) {
        const char c = value[i];
        line.AppendChar(c == '\t' || c == '\r' || c == '\n' ? ' ' : c);
    }
}

// The first line of every report: its title, then when it was made.
QzString Header(const char* title) {
    const int64_t now = QzTime::GetCurrentGmtMillis();
    QzString text = QzCat("# ", title, "\n", "generated");
    QzString when;
    QzTime::AppendLogDateTime(when, now);
    AppendField(text, when);
    AppendField(text, QzCat(static_cast<long long>(now)));
    text.AppendChar('\n');
    return text;
}

bool WriteReport(QzFile::DataFile which, const QzString& text, const char* caller) {
    QzFile::CreateDirectoryRecursive(QzFile::DataPath(QzFile::DataFile::ReportsFolder).c_str());
    const QzString path = QzFile::DataPath(which);
    if (QzFile::WriteFileAtomically(path, text)) return true;
    QzLog::WriteLine(QzCat("ERROR: QzReports::", caller, " could not write the report: ", path));
    return false;
}

const QzString* Lookup(const QzOs::RegistryKeyStrings& key, const char* name) {
    for (const auto& [valueName, value] : key.strings)
        if (valueName.EqualsIgnoreCase(name)) return &value;
    return nullptr;
}

struct Program {
    QzString name, version, publisher, installDate, keyName;
};

// The programs of one registry view that show in the system's list of
// installed programs (those with a display name), sorted by name.
uint32_t ProgramsInView(QzOs::RegistryView view, std::vector<Program>* programsRet) {
    std::vector<QzOs::RegistryKeyStrings> keys;
    const uint32_t rc = QzOs::ReadRegistrySubkeyStrings(kUninstallKey, view, &keys);
    for (const QzOs::RegistryKeyStrings& key : keys) {
        const QzString* name = Lookup(key, "DisplayName");
        if (!name || name->IsEmpty()) continue;
        Program p;
        p.name = *name;
        if (const QzString* v = Lookup(key, "DisplayVersion")) p.version = *v;
        if (const QzString* v = Lookup(key, "Publisher")) p.publisher = *v;
        if (const QzString* v = Lookup(key, "InstallDate")) p.installDate = *v;
        p.keyName = key.keyName;
        programsRet->push_back(std::move(p));
    }
    std::stable_sort(programsRet->begin(), programsRet->end(),
                     [](const Program& a, const Program& b) { return a.name.CompareIgnoreCase(b.name) < 0; });
    return rc;
}

// Whole-line trimming of the account file's text.
QzString Trimmed(const QzString& text) {
    int32_t begin = 0, end = text.Length();
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    while (begin < end && blank(text[begin])) ++begin;
    while (end > begin && blank(text[end - 1])) --end;
    // Only the first line names the account.
    for (int32_t i = begin; i < end; ++i)
        if (text[i] == '\r' || text[i] == '\n') end = i;
    return QzString(text.c_str() + begin, end - begin);
}

// A folder as the access check takes it: a drive root keeps its backslash,
// any other folder loses it.
QzString FolderForCheck(const QzString& folder) {
    QzString f = folder;
    while (f.Length() > 3 && f.Last() == '\\') f.Truncate(f.Length() - 1);
    if (f.Length() == 2 && f[1] == ':') f.AppendChar('\\');
    return f;
}

}  // namespace

bool WriteInstalledProgramsReport() {
    QzString text = Header("qzfilelist installed programs report");
    int total = 0;
    const struct {
        QzOs::RegistryView view;
        const char* tag;
    } views[] = {{QzOs::RegistryView::Native64, "64"}, {QzOs::RegistryView::Wow32, "32"}};
    bool anyView = false;
    for (const auto& v : views) {
        std::vector<Program> programs;
        const uint32_t rc = ProgramsInView(v.view, &programs);
        if (rc == QzOs::ErrNotSupported) {
            text.Append("unavailable\tthis system has no registry\n");
            break;
        }
        QzString line = QzCat("view\t", v.tag);
        AppendField(line, rc == 0 ? QzString("ok") : QzCat("error_", rc));
        AppendField(line, QzCat(static_cast<long long>(programs.size())));
        text.Append(line);
        text.AppendChar('\n');
        anyView = anyView || rc == 0;
        for (const Program& p : programs) {
            QzString row = QzCat("program\t", v.tag);
            AppendField(row, p.name);
            AppendField(row, p.version);
            AppendField(row, p.publisher);
            AppendField(row, p.installDate);
            AppendField(row, p.keyName);
            text.Append(row);
            text.AppendChar('\n');
            ++total;
        }
    }
    text.Append(QzCat("total\t", total, "\n"));
    if (!WriteReport(QzFile::DataFile::InstalledProgramsReport, text, "WriteInstalledProgramsReport"))
        return false;
    QzLog::WriteLine(QzCat("INFO: QzReports::WriteInstalledProgramsReport wrote ", total, " programs",
                           anyView ? "" : " (no registry view could be read)",
                           " to: ", QzFile::DataPath(QzFile::DataFile::InstalledProgramsReport)));
    return true;
}

bool WriteServicePermissionReport(QzString* pathRet) {
    const QzString path = QzFile::DataPath(QzFile::DataFile::PermissionReport);
    if (pathRet) *pathRet = path;

    // Who the service runs as. A file that exists but is held by another
    // process leaves the account unknown for this report only.
    QzString content, err;
    const QzString accountFile = QzFile::DataPath(QzFile::DataFile::ServiceAccountName);
    const QzFile::ReadStatus status = QzFile::ReadFilePatiently(accountFile.c_str(), &content, {}, &err);
    QzString account = status == QzFile::ReadStatus::Ok ? Trimmed(content) : QzString();
    const char* source = status == QzFile::ReadStatus::Ok ? "file" : QzFile::ReadStatusName(status);
    if (account.IsEmpty()) {
        account = kUnknownAccount;
        if (status == QzFile::ReadStatus::Ok) source = "empty";
    }
    if (status == QzFile::ReadStatus::Held)
        QzLog::WriteLine(QzCat("WARNING: QzReports::WriteServicePermissionReport could not read ",
                               accountFile, ", errStr=", err));

    QzString text = Header("qzfilelist service-account permission report");
    QzString line("account");
    AppendField(line, account);
    AppendField(line, source);
    text.Append(line);
    text.AppendChar('\n');

    bool allReadable = true;
    auto check = [&](const char* kind, const QzString& id, const QzString& folder) {
        QzString detail;
        bool may = false;
        const QzString target = FolderForCheck(folder);
        if (account.Equals(kUnknownAccount)) {
            detail = "service_account_unknown";
        } else {
            may = QzOs::AccountMayReadFile(target.c_str(), account.c_str(), &detail);
        }
        allReadable = allReadable && may;
        QzString row(kind);
        AppendField(row, id);
        AppendField(row, target);
        AppendField(row, may ? QzString("yes") : QzString("no"));
        AppendField(row, detail);
        text.Append(row);
        text.AppendChar('\n');
    };
    const QzSettings& settings = QzInfoManager::Settings();
    for (const QzSettings::SelectedVolume& v : settings.selectedVolumes)
        check("volume", v.volumeGuid, v.mountPointPath);
    check("datadir", "-", QzFile::GetDataDir());
    text.Append(QzCat("result\t", allReadable ? "all_readable" : "not_all_readable", "\n"));

    if (!WriteReport(QzFile::DataFile::PermissionReport, text, "WriteServicePermissionReport")) return false;
    QzLog::WriteLine(QzCat("INFO: QzReports::WriteServicePermissionReport account=", account,
                           allReadable ? ", all_readable" : ", not_all_readable", ", wrote: ", path));
    return true;
}

}  // namespace QzReports

namespace QzUiUtil {

bool QzRollback_GetMostCurrentFinalizedHistoryUxeString(QzString* textRet) {
    if (!textRet) return false;
    textRet->Clear();
    const QzString path = QzFile::DataPath(QzFile::DataFile::RollbackHistory);
    QzString content, err;
    const QzFile::ReadStatus status = QzFile::ReadFilePatiently(path.c_str(), &content, {}, &err);
    if (status != QzFile::ReadStatus::Ok) {
        QzLog::WriteLine(
            QzCat("WARNING: QzUiUtil::QzRollback_GetMostCurrentFinalizedHistoryUxeString could not read ",
                  path, " (", QzFile::ReadStatusName(status), "), errStr=", err));
        return false;
    }

    // One event per line: GMT millis, state, text, separated by tabs. The
    // newest finalised event wins; of two at the same time, the later line.
    std::vector<QzString> lines;
    QzFile::SplitIntoLines(content.c_str(), content.Length(), &lines);
    bool found = false;
    int64_t newest = 0;
    int malformed = 0;
    for (const QzString& line : lines) {
        if (line.IsEmpty() || line[0] == '#') continue;
        const int32_t tab1 = line.Find("\t");
        const int32_t tab2 = tab1 > 0 ? line.Find("\t", tab1 + 1) : -1;
        bool digits = tab1 > 0 && tab1 <= 18;
        for (int32_t i = 0; digits && i < tab1; ++i) digits = line[i] >= '0' && line[i] <= '9';
        if (!digits || tab2 < 0 || tab2 + 1 >= line.Length()) {
            ++malformed;
            continue;
        }
        const QzString state(line.c_str() + tab1 + 1, tab2 - tab1 - 1);
        if (!state.Equals("finalized")) continue;
        const int64_t when = std::strtoll(line.c_str(), nullptr, 10);
        if (found && when < newest) continue;
        found = true;
        newest = when;
        textRet->Set(line.c_str() + tab2 + 1, line.Length() - tab2 - 1);
    }
    if (malformed > 0)
        QzLog::WriteLine(
            QzCat("WARNING: QzUiUtil::QzRollback_GetMostCurrentFinalizedHistoryUxeString skipped ", malformed,
                  " malformed lines of ", path));
    if (!found)
        QzLog::WriteLine(QzCat(
            "WARNING: QzUiUtil::QzRollback_GetMostCurrentFinalizedHistoryUxeString no finalized event in ",
            path));
    return found;
}

}  // namespace QzUiUtil
