// Times are milliseconds since 1970-01-01 GMT in signed 64-bit integers.
#pragma once

#include <cstdint>

#include "QzString.h"

namespace QzTime {

constexpr int64_t kMillisPerDay = 86400000;
constexpr int64_t kMaxAgeDays = 9001;

int64_t GetCurrentGmtMillis();
// Win32 file time (100 ns since 1601) to milliseconds since 1970.
inline int64_t FileTimeToGmtMillis(int64_t fileTime) {
    return fileTime / 10000 - 11644473600000LL;
}

struct CivilTime {
    int year, month, day, hour, minute, second, millis;
    int weekday;  // 0 = Sunday
};
CivilTime GmtMillisToCivil(int64_t millis);

// 16 lower-case hexadecimal digits with leading zeros.
void AppendGmtMillisAsHex16(QzString& out, int64_t millis);
// "%04d%02d%02d%02d%02d%02d": year, month, day, hour, minute, second.
void AppendDateTime14(QzString& out, int64_t millis);
// "%Y-%m-%d %H:%M:%S" as the log writes it.
void AppendLogDateTime(QzString& out, int64_t millis);
// Whole days between the two times, never more than 9001.
int64_t AgeInDays(int64_t nowMillis, int64_t thenMillis);

// Tests replace the clock; nullptr restores the system clock.
void SetClockForTesting(int64_t (*clock)());

// The program's only way to pause. Every pause of the shared code goes
// through here, so that tests can run the scan's throttle, retries and
// heartbeat without waiting for them.
void SleepMillis(uint32_t millis);
// Tests replace the sleep; nullptr restores the real one.
void SetSleepForTesting(void (*sleep)(uint32_t millis));
// Virtual time, for tests of the whole program: a pause returns at once and
// moves the program's clock forward by its length instead. Switched on at
// start-up when the environment variable QZ_TEST_VIRTUAL_TIME is "1".
void UseVirtualTime();
bool IsVirtualTime();

}  // namespace QzTime
