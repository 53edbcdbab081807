#include "QzLog.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "QzOs.h"
#include "QzTime.h"

namespace QzLog {

namespace {

constexpr int64_t kCleanupIntervalMillis = 600000;

struct LogState {
    std::mutex mu;
    bool open = false;
    QzString base;      // folder holding the day files, no trailing separator
    QzString lastPart;  // the base's last component, the day files' stem
    int64_t lastCleanup = 0;
};

LogState& State() {
    static LogState* s = new LogState;  // never destroyed: usable until the very end
    return *s;
}

void Lock(std::mutex& mu) {
    try {
        mu.lock();
    } catch (...) {
        std::fputs("FATAL: could not lock the log mutex\n", stderr);
        std::abort();
    }
}

// The log sits below the file module (which logs), so it makes its folders
// through the OS layer itself.
bool IsDirectory(const char* path) {
    QzOs::FileAttrData a;
    return QzOs::GetFileAttributesEx(path, &a) == QzOs::ErrSuccess &&
           (a.attributes & QzOs::AttrDirectory) != 0;
}

void CreateFolderAndParents(const QzString& path) {
    if (path.IsEmpty() || IsDirectory(path.c_str())) return;
    int32_t cut = path.Length() - 1;
    while (cut > 0 && path[cut] != '\\' && path[cut] != '/') --cut;
    // Stops at a drive root ("C:") and at the top of a relative path.
    if (cut > 0 && !(cut == 2 && path[1] == ':')) CreateFolderAndParents(QzString(path.c_str(), cut));
    QzOs::CreateDirectory(path.c_str());
}

QzString DayPath(const LogState& s, int day, const char* ext) {
    QzString p = QzCat(s.base, "\\", s.lastPart);
    p.AppendPaddedInt(day, 2);
    p.Append(ext);
    return p;
}

void DeleteDay(const LogState& s, int day) {
    QzOs::DeleteFile(DayPath(s, day, ".log").c_str());
    QzOs::DeleteFile(DayPath(s, day, ".zip").c_str());
}

// Parses the day from characters 9 and 10 of the formatted time, an optional
// sign included, as the day file is chosen from the text of the line itself.
int ParseDay(const QzString& timeText) {
    if (timeText.Length() < 10) return 0;
    const char* p = timeText.c_str() + 8;
    int sign = 1;
    int i = 0;
    if (p[0] == '-' || p[0] == '+') {
        sign = p[0] == '-' ? -1 : 1;
        i = 1;
    }
    int v = 0;
    for (; i < 2 && p[i] >= '0' && p[i] <= '9'; ++i) v = v * 10 + (p[i] - '0');
    return sign * v;
}

}  // namespace

void Open(const char* basePath, const char* dataDir) {
    LogState& s = State();
    Lock(s.mu);
    s.open = false;
    s.base.Clear();
    s.lastPart.Clear();
    s.lastCleanup = 0;
    if (basePath && *basePath) {
        QzString base(basePath);
        if (base.Length() > 1 && (base.Last() == '\\' || base.Last() == '/'))
            base.Truncate(base.Length() - 1);
        bool allowed = true;
        if (dataDir && *dataDir && base.StartsWithIgnoreCase(dataDir)) allowed = IsDirectory(dataDir);
        if (allowed) {
            CreateFolderAndParents(base);
            int32_t cut = base.Length();
            while (cut > 0 && base[cut - 1] != '\\' && base[cut - 1] != '/') --cut;
            s.lastPart.Set(base.c_str() + cut);
            s.base = std::move(base);
            s.open = true;
        }
    }
    s.mu.unlock();
}

void Close() {
    LogState& s = State();
    Lock(s.mu);
    s.open = false;
    s.mu.unlock();
}

bool IsOpen() {
    LogState& s = State();
    Lock(s.mu);
    const bool open = s.open;
    s.mu.unlock();
    return open;
}

QzString DayFilePath(int dayOfMonth) {
    LogState& s = State();
    Lock(s.mu);
    QzString p = DayPath(s, dayOfMonth, ".log");
    s.mu.unlock();
    return p;
}

void WriteLine(const char* message) {
    if (!message || !*message) return;
    const int64_t now = QzTime::GetCurrentGmtMillis();
    LogState& s = State();
    Lock(s.mu);
    if (!s.open) {
        s.mu.unlock();
        return;
    }
    QzString line;
    QzTime::AppendLogDateTime(line, now);
    const int day = ParseDay(line);
    char pid[16];
    std::snprintf(pid, sizeof pid, " %10u", QzOs::GetCurrentProcessId());
    line.Append(pid);
    line.Append(" - ");
    line.Append(message);
    if (line.Last() != '\n') line.AppendChar('\n');

    QzOs::Handle h;
    if (QzOs::OpenFile(DayPath(s, day, ".log").c_str(), QzOs::OpenMode::Append, &h) == QzOs::ErrSuccess) {
        QzOs::WriteFile(h, line.c_str(), static_cast<uint32_t>(line.Length()));
        QzOs::CloseFile(h);
    }

    if (now - s.lastCleanup > kCleanupIntervalMillis) {
        s.lastCleanup = now;
        // The coming days' files go before their day begins, so every day
        // file starts empty; near the month's end that wraps to days 0-5.
        for (int d = day + 2; d <= day + 6; ++d) DeleteDay(s, d);
        if (day > 25)
            for (int d = 0; d <= 5; ++d) DeleteDay(s, d);
    }
    s.mu.unlock();
}

void WriteLine(const QzString& message) {
    WriteLine(message.c_str());
}

void WriteLocated(int level, const char* sourceFile, int line, const char* functionSignature,
                  const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    va_list copy;
    va_copy(copy, ap);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::vector<char> msg(n > 0 ? static_cast<size_t>(n) + 1 : 1, '\0');
    if (n > 0) std::vsnprintf(msg.data(), msg.size(), format, ap);
    va_end(ap);

    const char* base = sourceFile ? sourceFile : "";
    for (const char* p = base; *p; ++p)
        if (*p == '/' || *p == '\\') base = p + 1;
    const char* word = level == -3 ? "ERROR" : level == -2 ? "WARNING" : level == -1 ? "NOTE" : nullptr;
    QzString text = QzCat(base, ":", line, " [", functionSignature ? functionSignature : "", "]");
    if (word) text.Append(QzCat(" ", word));
    text.Append(":\t");
    text.Append(msg.data());
    WriteLine(text);
}

}  // namespace QzLog
