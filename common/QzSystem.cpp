#include "QzSystem.h"

#include <cstring>

#include "QzOs.h"
#include "QzTime.h"

namespace QzSystem {

uint32_t GetProcessId() {
    return QzOs::GetCurrentProcessId();
}

MemoryFigures GetMemoryFigures() {
    MemoryFigures f;
    QzOs::MemoryCounters c;
    if (QzOs::GetProcessMemoryCounters(&c)) {
        f.virtualBytes = c.pagefileUsage;
        f.residentBytes = c.workingSetSize;
    }
    f.hardwareBytes = QzOs::GetTotalPhysicalMemory();
    return f;
}

bool ReadRegistryValue(const char* slashPath, QzString* valueRet) {
    valueRet->Clear();
    if (!slashPath) return false;
    const QzString path(slashPath);
    const int32_t firstSlash = path.Find("/");
    int32_t lastSlash = -1;
    for (int32_t i = path.Length() - 1; i >= 0; --i)
        if (path[i] == '/') {
            lastSlash = i;
            break;
        }
    if (firstSlash <= 0 || lastSlash <= firstSlash) return false;
    const QzString hive(path.c_str(), firstSlash);
    if (!hive.Equals("HKLM") && !hive.Equals("HKEY_LOCAL_MACHINE")) return false;
    QzString key(path.c_str() + firstSlash + 1, lastSlash - firstSlash - 1);
    for (int32_t i = 0; i < key.Length(); ++i)
        if (key.Data()[i] == '/') key.Data()[i] = '\\';
    const QzString valueName(path.c_str() + lastSlash + 1);
    return QzOs::ReadRegistryString(key.c_str(), valueName.c_str(), valueRet) == QzOs::ErrSuccess;
}

void DescribeOperatingSystem(QzString* out) {
    QzOs::OsDescription d;
    QzOs::GetOsDescription(&d);
    out->Set(d.productName);
    if (d.version.Length()) out->Append(QzCat(" ", d.version));
    if (d.build.Length()) out->Append(QzCat(" (", d.build, ")"));
    out->Append(QzOs::Is64BitOperatingSystem() ? ", 64-bit OS" : ", 32-bit OS");
    out->Append(Is64BitProcess() ? ", 64-bit process" : ", 32-bit process");
    if (d.machineName.Length()) out->Append(QzCat(", computer ", d.machineName));
    if (d.hostNote.Length()) out->Append(QzCat(", running under ", d.hostNote));
}

namespace {
const char* const kWeekdays[] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                 "Thursday", "Friday", "Saturday"};

void AppendOffset(QzString& out, int32_t minutes) {
    out.Append(minutes < 0 ? "UTC-" : "UTC+");
    const int32_t m = minutes < 0 ? -minutes : minutes;
    out.AppendPaddedInt(m / 60, 2);
    out.AppendChar(':');
    out.AppendPaddedInt(m % 60, 2);
}
}  // namespace

void DescribeTime(int64_t gmtMillis, QzString* out) {
    QzOs::TimeZoneState tz;
    const bool haveTz = QzOs::GetTimeZoneState(gmtMillis, &tz);
    const int64_t localMillis = gmtMillis + static_cast<int64_t>(tz.offsetMinutes) * 60000;
    out->Set("Time diagnostics:\n  Local time:       ");
    QzTime::AppendLogDateTime(*out, localMillis);
    out->Append(QzCat(" ", kWeekdays[QzTime::GmtMillisToCivil(localMillis).weekday], " ("));
    AppendOffset(*out, tz.offsetMinutes);
    out->Append(")\n  GMT time:         ");
    QzTime::AppendLogDateTime(*out, gmtMillis);
    out->Append(QzCat(" ", kWeekdays[QzTime::GmtMillisToCivil(gmtMillis).weekday], "\n  GMT millis:       "));
    out->AppendInt(gmtMillis);
    out->Append(" (hex ");
    QzTime::AppendGmtMillisAsHex16(*out, gmtMillis);
    out->Append(")\n  Time zone:        ");
    if (!haveTz) {
        out->Append("unknown (the system did not say)\n  Daylight saving:  unknown\n");
        return;
    }
    out->Append(tz.zoneName.Length() ? tz.zoneName.c_str() : "(no name)");
    out->Append(", ");
    AppendOffset(*out, tz.offsetMinutes);
    out->Append("\n  Daylight saving:  ");
    out->Append(tz.dstState == 2   ? "in effect (daylight time)\n"
                : tz.dstState == 1 ? "not in effect (standard time)\n"
                                   : "not used by this time zone\n");
}

void TranslateToClientLocale(const QzString& systemLocale, QzString* out) {
    // "en-US" -> "en_US", "zh-Hans-CN" -> "zh_CN", "de" -> "de"; none -> "en_US".
    out->Clear();
    QzString parts[4];
    int n = 0;
    for (int32_t i = 0, start = 0; i <= systemLocale.Length() && n < 4; ++i) {
        if (i == systemLocale.Length() || systemLocale[i] == '-' || systemLocale[i] == '_') {
            if (i > start) parts[n++].Set(systemLocale.c_str() + start, i - start);
            start = i + 1;
        }
    }
    if (n == 0) {
        out->Set("en_US");
        return;
    }
    out->Set(parts[0]);
    for (int i = 1; i < n; ++i) {
        const int32_t len = parts[i].Length();
        bool region = len == 2 || len == 3;  // "US" or "419"; a 4-letter part is a script
        if (!region) continue;
        out->AppendChar('_');
        for (int32_t k = 0; k < len; ++k) {
            const char c = parts[i][k];
            out->AppendChar(c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c);
        }
        break;
    }
}

namespace {
bool Digits(const char* s, size_t n, int* fields, const int* widths, int count) {
    if (!s || std::strlen(s) != n) return false;
    for (size_t i = 0; i < n; ++i)
        if (s[i] < '0' || s[i] > '9') return false;
    for (int f = 0, pos = 0; f < count; ++f) {
        int v = 0;
        for (int k = 0; k < widths[f]; ++k) v = v * 10 + (s[pos++] - '0');
        fields[f] = v;
    }
    return true;
}
bool ValidDate(int y, int m, int d) {
    return y >= 1601 && m >= 1 && m <= 12 && d >= 1 && d <= 31;
}
bool ValidTime(int h, int mi, int s) {
    return h <= 23 && mi <= 59 && s <= 59;
}
}  // namespace

bool FormatLocalDateTime14(const char* digits, QzString* out) {
    static const int kW[] = {4, 2, 2, 2, 2, 2};
    int f[6];
    out->Clear();
    if (!Digits(digits, 14, f, kW, 6) || !ValidDate(f[0], f[1], f[2]) || !ValidTime(f[3], f[4], f[5]))
        return false;
    QzString date, time;
    if (!QzOs::FormatLocaleDate(f[0], f[1], f[2], &date) ||
        !QzOs::FormatLocaleTime(f[3], f[4], f[5], true, &time))
        return false;
    *out = QzCat(date, " ", time);
    return true;
}

bool FormatLocaleTime4(const char* digits, QzString* out) {
    static const int kW[] = {2, 2};
    int f[2];
    out->Clear();
    if (!Digits(digits, 4, f, kW, 2) || !ValidTime(f[0], f[1], 0)) return false;
    return QzOs::FormatLocaleTime(f[0], f[1], 0, false, out);
}

bool FormatDate8(const char* digits, QzString* out) {
    static const int kW[] = {4, 2, 2};
    int f[3];
    out->Clear();
    if (!Digits(digits, 8, f, kW, 3) || !ValidDate(f[0], f[1], f[2])) return false;
    return QzOs::FormatLocaleDate(f[0], f[1], f[2], out);
}

}  // namespace QzSystem
