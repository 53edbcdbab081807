#include "QzPathAnomaly.h"

#include <cstring>
#include <utility>

namespace QzPathAnomaly {

namespace {

bool IsSep(char c) {
    return c == '\\' || c == '/';
}

// Replaces every CR by "__\r__" and every LF by "__\n__" (backslash and letter).
void EscapeCrLf(QzString* path) {
    QzString out;
    out.Reserve(path->Length() + 64);
    const char* p = path->c_str();
    for (int32_t i = 0; i < path->Length(); ++i) {
        if (p[i] == '\r')
            out.Append("__\\r__");
        else if (p[i] == '\n')
            out.Append("__\\n__");
        else
            out.AppendChar(p[i]);
    }
    *path = std::move(out);
}

void ReplaceBackslashes(QzString* path) {
    QzString out;
    out.Reserve(path->Length() + 64);
    const char* p = path->c_str();
    for (int32_t i = 0; i < path->Length(); ++i) {
        if (p[i] == '\\')
            out.Append("_-backslash-_");
        else
            out.AppendChar(p[i]);
    }
    *path = std::move(out);
}

// The path from its second character on begins with `prefix`, ignoring case.
bool SecondCharStartsWithIgnoreCase(const QzString& path, const char* prefix) {
    const int32_t n = static_cast<int32_t>(std::strlen(prefix));
    return path.Length() >= 1 + n &&
           QzStringUtil::CompareBytes(path.c_str() + 1, n, prefix, n, /*ignoreCase=*/true) == 0;
}

// Two separators in a row at positions 1 and 2 or later. Folder paths
// rarely hold a "/": without one, only the backslashes need looking at.
bool HasDoubleSeparator(const char* p, int32_t len) {
    if (len < 3) return false;
    if (!std::memchr(p, '/', static_cast<size_t>(len))) {
        const char* end = p + len;
        for (const char* s = p + 1;
             (s = static_cast<const char*>(std::memchr(s, '\\', static_cast<size_t>(end - s))));) {
            if (s + 1 < end && s[1] == '\\') return true;
            ++s;
        }
        return false;
    }
    for (int32_t i = len - 1; i >= 2; --i)
        if (IsSep(p[i]) && IsSep(p[i - 1])) return true;
    return false;
}

}  // namespace

EntryVerdict CheckEntryPathCrLfOnly(QzString* path, QzString* logRet) {
    const char* p = path->c_str();
    const int32_t len = path->Length();
    if (!std::memchr(p, '\r', static_cast<size_t>(len)) && !std::memchr(p, '\n', static_cast<size_t>(len)))
        return EntryVerdict::Keep;
    EscapeCrLf(path);
    *logRet = QzCat("WARNING: skipping filename with embedded <CR> or <LF>: ", *path);
    return EntryVerdict::DropCrLf;
}

EntryVerdict CheckEntryPath(QzString* path, int platformCode, QzString* logRet, int32_t cleanPrefix) {
    // Nearly every path holds none of the characters a test looks for; the
    // library's vectorised search tells so fastest. A clean prefix holds
    // none of them (so no "/." pair can begin in it either): the search
    // starts after it.
    const char* p = path->c_str();
    const size_t len = static_cast<size_t>(path->Length());
    size_t from = 0;
    if (platformCode == kBackslashPlatform && cleanPrefix > 0)
        from = static_cast<size_t>(cleanPrefix) < len ? static_cast<size_t>(cleanPrefix) : len;
    const char* q = p + from;
    const size_t n = len - from;
    if (std::memchr(q, '\r', n) || std::memchr(q, '\n', n)) return CheckEntryPathCrLfOnly(path, logRet);
    bool slashDot = false;
    for (const char* s = static_cast<const char*>(std::memchr(q, '/', n)); s && !slashDot;
         s = static_cast<const char*>(std::memchr(s + 1, '/', len - static_cast<size_t>(s + 1 - p))))
        slashDot = s + 1 < p + len && s[1] == '.';
    if (slashDot) {
        if (path->ContainsIgnoreCase("/Users/Shared/.")) {
            *logRet = QzCat("WARNING: skipping single or double-period Mac anomalie file: ", *path,
                            "|end_anomalie");
            return EntryVerdict::DropMacShared;
        }
        if (path->ContainsIgnoreCase("././.")) {
            *logRet = QzCat("WARNING: skipping ././. anomalie file: ", *path, "|end_anomalie");
            return EntryVerdict::DropDotSlashes;
        }
    }
    if (platformCode == kSlashPlatform && std::memchr(p, '\\', len)) {
        ReplaceBackslashes(path);
        return EntryVerdict::KeepRenamed;
    }
    return EntryVerdict::Keep;
}

int32_t CleanFolderPrefix(const QzString& path) {
    const char* p = path.c_str();
    int32_t end = path.Length();
    while (end > 0 && !IsSep(p[end - 1])) --end;
    const auto n = static_cast<size_t>(end);
    if (std::memchr(p, '\r', n) || std::memchr(p, '\n', n) || std::memchr(p, '/', n)) return 0;
    return end;
}

DirVerdict CheckDirectoryPath(const QzString& path, QzString* logRet) {
    const char* p = path.c_str();
    const int32_t len = path.Length();
    // Positions 0 and 1 are not tested together: "\\server\share" passes.
    if (HasDoubleSeparator(p, len)) {
        *logRet = QzCat("WARNING: skipping dirname with illegal double-dir sep: ", path);
        return DirVerdict::DoubleSeparator;
    }
    if (len > 0 && IsSep(p[len - 1])) {
        *logRet = QzCat("WARNING: skipping dirname with illegal trailing sep: ", path);
        return DirVerdict::TrailingSeparator;
    }
    // Each name below holds a period; most folder paths hold none.
    if (!std::memchr(p, '.', static_cast<size_t>(len))) return DirVerdict::Enter;
    if (path.Contains("Backups.backupdb")) {
        *logRet = QzCat("WARNING: skipping dirname with TimeMachine in it: ", path);
        return DirVerdict::TimeMachine;
    }
    if (path.Contains(".swstor") &&
        (path.ContainsIgnoreCase("wd smartware.swstor") || path.ContainsIgnoreCase("wdsmartware.swstor") ||
         path.ContainsIgnoreCase("wdbackup.swstor"))) {
        *logRet = QzCat("WARNING: skipping dirname with WesternDigitalBackup in it: ", path);
        return DirVerdict::WesternDigitalBackup;
    }
    if (path.Contains(".MobileBackups")) {
        *logRet = QzCat("WARNING: skipping dirname with Mobile TimeMachine in it: ", path);
        return DirVerdict::MobileTimeMachine;
    }
    return DirVerdict::Enter;
}

bool IsSharedProgramDataJunction(const QzString& path) {
    static const char* const kJunctions[] = {
        ":\\ProgramData\\Application Data\\", ":\\ProgramData\\Desktop\\",   ":\\ProgramData\\Favorites\\",
        ":\\ProgramData\\Start Menu\\",       ":\\ProgramData\\Templates\\",
    };
    for (const char* j : kJunctions)
        if (SecondCharStartsWithIgnoreCase(path, j)) return true;
    return false;
}

bool IsLeftOutOfBigFileList(const QzString& path) {
    if (path.Length() < 5 || (path[4] != 'y' && path[4] != 'Y')) return false;
    return SecondCharStartsWithIgnoreCase(path, ":\\System Volume Information\\");
}

}  // namespace QzPathAnomaly
