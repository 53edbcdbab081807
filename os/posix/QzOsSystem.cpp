// POSIX side of the system calls: known folders (fixed Windows names, since
// every path inside the program has the Windows form), the registry (there is
// none: every read fails as for a missing value), process and machine facts,
// the clock, and the descriptions, time zone and locale of the diagnostics.
#include <langinfo.h>
#include <locale.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "QzOs.h"
#include "QzOsInternal.h"

namespace QzOs {

// ---- known folders and registry --------------------------------------------

uint32_t GetWindowsDirectory(QzString* dirRet) {
    dirRet->Set("C:\\Windows");
    return ErrSuccess;
}
uint32_t GetProgramFilesDirectory(QzString* dirRet) {
    dirRet->Set("C:\\Program Files");
    return ErrSuccess;
}
uint32_t GetCommonAppDataDirectory(QzString* dirRet) {
    dirRet->Set("C:\\ProgramData");
    return ErrSuccess;
}

uint32_t ReadRegistryString(const char*, const char*, QzString* valueRet) {
    valueRet->Clear();
    return ErrFileNotFound;
}

// ---- process and machine ---------------------------------------------------

uint32_t GetCurrentProcessId() {
    return static_cast<uint32_t>(::getpid());
}

namespace {
// Bytes of committed private memory: the mappings the kernel charges against
// its commit limit ("ac" among a mapping's VmFlags in smaps), which is what
// page-file usage counts on Windows. Reserved address space (thread stacks'
// guard areas, a sanitizer's shadow memory) is left out.
bool ReadCommittedPrivateBytes(int64_t* bytesRet) {
    FILE* f = std::fopen("/proc/self/smaps", "r");
    if (!f) return false;
    int64_t total = 0;
    int64_t mappingBytes = 0;
    bool sawFlags = false;
    char line[512];
    while (std::fgets(line, sizeof line, f)) {
        unsigned long long from = 0;
        unsigned long long to = 0;
        if (std::strncmp(line, "VmFlags:", 8) == 0) {
            sawFlags = true;
            for (const char* p = line + 8; (p = std::strstr(p, " ac")) != nullptr; p += 3) {
                if (p[3] == ' ' || p[3] == '\n' || p[3] == '\0') {
                    total += mappingBytes;
                    break;
                }
            }
        } else if (std::sscanf(line, "%llx-%llx ", &from, &to) == 2) {
            mappingBytes = static_cast<int64_t>(to - from);
        }
    }
    std::fclose(f);
    *bytesRet = total;
    return sawFlags;
}
}  // namespace

bool GetProcessMemoryCounters(MemoryCounters* c) {
    FILE* f = std::fopen("/proc/self/statm", "r");
    if (!f) return false;
    long long size = 0;
    long long resident = 0;
    const int n = std::fscanf(f, "%lld %lld", &size, &resident);
    std::fclose(f);
    if (n != 2) return false;
    const long long page = ::sysconf(_SC_PAGESIZE);
    c->workingSetSize = resident * page;
    return ReadCommittedPrivateBytes(&c->pagefileUsage);
}

int64_t GetTotalPhysicalMemory() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long page = ::sysconf(_SC_PAGESIZE);
    return pages > 0 && page > 0 ? static_cast<int64_t>(pages) * page : 0;
}

bool Is64BitOperatingSystem() {
    struct utsname u;
    return ::uname(&u) == 0 && std::strstr(u.machine, "64") != nullptr;
}

void Sleep(uint32_t millis) {
    struct timespec ts;
    ts.tv_sec = millis / 1000;
    ts.tv_nsec = static_cast<long>(millis % 1000) * 1000000L;
    while (::nanosleep(&ts, &ts) != 0 && errno == EINTR) {
    }
}

int64_t GetSystemTimeAsFileTime() {
    struct timespec ts;
    ::clock_gettime(CLOCK_REALTIME, &ts);
    return posix::ToFileTime(ts);
}

void GetUtf8Arguments(int argc, char** argv, std::vector<QzString>* argsRet) {
    argsRet->clear();
    for (int i = 0; i < argc; ++i) argsRet->emplace_back(argv[i]);
}

void InitConsole() {}
bool SocketStartup() {
    return true;
}
void SocketShutdown() {}

// ---- descriptions ----------------------------------------------------------

void GetOsDescription(OsDescription* d) {
    struct utsname u;
    if (::uname(&u) != 0) std::memset(&u, 0, sizeof u);
    d->productName.Set(u.sysname);
    if (FILE* f = std::fopen("/etc/os-release", "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, f)) {
            if (std::strncmp(line, "PRETTY_NAME=", 12) != 0) continue;
            std::string v(line + 12);
            while (!v.empty() && (v.back() == '\n' || v.back() == '"')) v.pop_back();
            if (!v.empty() && v[0] == '"') v.erase(0, 1);
            d->productName.Append(" (");
            d->productName.Append(v.c_str());
            d->productName.Append(")");
            break;
        }
        std::fclose(f);
    }
    d->version.Set(u.release);
    d->build.Set(u.version);
    d->machineName.Set(u.nodename);
    d->hostNote.Set("");
}

bool GetTimeZoneState(int64_t gmtMillis, TimeZoneState* s) {
    const time_t t = static_cast<time_t>(gmtMillis / 1000);
    struct tm tm;
    if (!::localtime_r(&t, &tm)) return false;
    s->offsetMinutes = static_cast<int32_t>(tm.tm_gmtoff / 60);
    s->dstState = tm.tm_isdst > 0 ? 2 : (tm.tm_isdst == 0 ? 1 : 0);
    s->zoneName.Set(tm.tm_zone ? tm.tm_zone : "");
    return true;
}

namespace {
// "en_US.UTF-8" -> "en-US"; "C", "POSIX" or nothing -> "" (no locale chosen).
void LocaleFromEnv(const char* const* vars, QzString* out) {
    out->Clear();
    for (const char* const* v = vars; *v; ++v) {
        const char* val = std::getenv(*v);
        if (!val || !*val) continue;
        if (std::strcmp(val, "C") == 0 || std::strcmp(val, "POSIX") == 0 || std::strncmp(val, "C.", 2) == 0)
            return;
        for (const char* p = val; *p && *p != '.' && *p != '@'; ++p) out->AppendChar(*p == '_' ? '-' : *p);
        return;
    }
}

bool FormatWithLocale(const struct tm& tm, const char* fmt, QzString* out) {
    locale_t loc = ::newlocale(LC_TIME_MASK, "", static_cast<locale_t>(0));
    if (!loc) loc = ::newlocale(LC_TIME_MASK, "C", static_cast<locale_t>(0));
    if (!loc) return false;
    char buf[256];
    const size_t n = ::strftime_l(buf, sizeof buf, fmt, &tm, loc);
    ::freelocale(loc);
    out->Set(buf, static_cast<int32_t>(n));
    return n > 0;
}

std::string LocaleFormat(nl_item item) {
    locale_t loc = ::newlocale(LC_TIME_MASK, "", static_cast<locale_t>(0));
    if (!loc) return item == D_FMT ? "%m/%d/%y" : "%H:%M:%S";
    std::string f = ::nl_langinfo_l(item, loc);
    ::freelocale(loc);
    return f;
}
}  // namespace

void GetSystemLocaleName(QzString* nameRet) {
    static const char* const kVars[] = {"LANG", nullptr};
    LocaleFromEnv(kVars, nameRet);
}

void GetUserLocaleName(QzString* nameRet) {
    static const char* const kVars[] = {"LC_ALL", "LC_TIME", "LANG", nullptr};
    LocaleFromEnv(kVars, nameRet);
}

bool FormatLocaleDate(int year, int month, int day, QzString* textRet) {
    struct tm tm = {};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    return FormatWithLocale(tm, LocaleFormat(D_FMT).c_str(), textRet);
}

bool FormatLocaleTime(int hour, int minute, int second, bool withSeconds, QzString* textRet) {
    struct tm tm = {};
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    std::string f = LocaleFormat(T_FMT);
    if (!withSeconds) {
        size_t p;
        while ((p = f.find("%r")) != std::string::npos) f.replace(p, 2, "%I:%M %p");
        while ((p = f.find("%T")) != std::string::npos) f.replace(p, 2, "%H:%M");
        while ((p = f.find(":%S")) != std::string::npos) f.erase(p, 3);
    }
    return FormatWithLocale(tm, f.c_str(), textRet);
}

// Windows DLLs cannot be loaded here.
uint32_t TryLoadLibrary(const char*) {
    return ErrNotSupported;
}

}  // namespace QzOs
