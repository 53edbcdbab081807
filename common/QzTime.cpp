#include "QzTime.h"

#include "QzOs.h"

namespace QzTime {

namespace {
int64_t (*g_testClock)() = nullptr;
void (*g_testSleep)(uint32_t) = nullptr;
bool g_virtualTime = false;
int64_t g_virtualOffsetMillis = 0;  // sum of the pauses skipped under virtual time

// Days since 1970-01-01 to a proleptic Gregorian date (valid for any int64 day count
// a file time can produce).
void CivilFromDays(int64_t z, int* y, int* m, int* d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const int64_t month = mp < 10 ? mp + 3 : mp - 9;
    *y = static_cast<int>(yoe + era * 400 + (month <= 2 ? 1 : 0));
    *m = static_cast<int>(month);
    *d = static_cast<int>(day);
}

void Append2(QzString& out, int v) {
    out.AppendPaddedInt(v, 2);
}
}  // namespace

void SetClockForTesting(int64_t (*clock)()) {
    g_testClock = clock;
}

int64_t GetCurrentGmtMillis() {
    if (g_testClock) return g_testClock();
    return FileTimeToGmtMillis(QzOs::GetSystemTimeAsFileTime()) + g_virtualOffsetMillis;
}

void SetSleepForTesting(void (*sleep)(uint32_t)) {
    g_testSleep = sleep;
}

void UseVirtualTime() {
    g_virtualTime = true;
}
bool IsVirtualTime() {
    return g_virtualTime;
}

void SleepMillis(uint32_t millis) {
    if (g_testSleep) {
        g_testSleep(millis);
    } else if (g_virtualTime) {
        g_virtualOffsetMillis += millis;
    } else {
        QzOs::Sleep(millis);
    }
}

CivilTime GmtMillisToCivil(int64_t millis) {
    int64_t days = millis / kMillisPerDay;
    int64_t rest = millis % kMillisPerDay;
    if (rest < 0) {
        rest += kMillisPerDay;
        --days;
    }
    CivilTime t{};
    CivilFromDays(days, &t.year, &t.month, &t.day);
    t.hour = static_cast<int>(rest / 3600000);
    t.minute = static_cast<int>(rest / 60000 % 60);
    t.second = static_cast<int>(rest / 1000 % 60);
    t.millis = static_cast<int>(rest % 1000);
    t.weekday = static_cast<int>(((days % 7) + 11) % 7);  // 1970-01-01 was a Thursday
    return t;
}

void AppendGmtMillisAsHex16(QzString& out, int64_t millis) {
    out.AppendPaddedHex(millis, 16);
}

void AppendDateTime14(QzString& out, int64_t millis) {
    const CivilTime t = GmtMillisToCivil(millis);
    out.AppendPaddedInt(t.year, 4);
    Append2(out, t.month);
    Append2(out, t.day);
    Append2(out, t.hour);
    Append2(out, t.minute);
    Append2(out, t.second);
}

void AppendLogDateTime(QzString& out, int64_t millis) {
    const CivilTime t = GmtMillisToCivil(millis);
    out.AppendInt(t.year);
    out.AppendChar('-');
    Append2(out, t.month);
    out.AppendChar('-');
    Append2(out, t.day);
    out.AppendChar(' ');
    Append2(out, t.hour);
    out.AppendChar(':');
    Append2(out, t.minute);
    out.AppendChar(':');
    Append2(out, t.second);
}

int64_t AgeInDays(int64_t nowMillis, int64_t thenMillis) {
    // Computed without overflow for any pair of 64-bit times.
    const uint64_t diff = nowMillis >= thenMillis
                              ? static_cast<uint64_t>(nowMillis) - static_cast<uint64_t>(thenMillis)
                              : static_cast<uint64_t>(thenMillis) - static_cast<uint64_t>(nowMillis);
    const uint64_t days = diff / static_cast<uint64_t>(kMillisPerDay);
    return days > static_cast<uint64_t>(kMaxAgeDays) ? kMaxAgeDays : static_cast<int64_t>(days);
}

}  // namespace QzTime
