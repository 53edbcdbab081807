// QzSystem: facts about the process and the machine, and the descriptions the
// diagnostic switches print for support engineers.
#pragma once

#include <cstdint>

#include "QzString.h"

namespace QzSystem {

uint32_t GetProcessId();
constexpr bool Is64BitProcess() {
    return sizeof(void*) == 8;
}

struct MemoryFigures {
    int64_t virtualBytes = 0;   // page-file usage (committed memory)
    int64_t residentBytes = 0;  // working set
    int64_t hardwareBytes = 0;  // total physical memory
};
MemoryFigures GetMemoryFigures();

// Reads a registry string named "HIVE/key/path/valueName" (only HKLM exists
// for this program). Fails with an empty value when there is none.
bool ReadRegistryValue(const char* slashPath, QzString* valueRet);

// One line: product, version, build, bitness of system and process, machine name.
void DescribeOperatingSystem(QzString* out);
// Several lines: local and GMT time, offset, zone, daylight saving.
void DescribeTime(int64_t gmtMillis, QzString* out);

// The client's own locale code ("en_US") for a system locale name ("en-US").
void TranslateToClientLocale(const QzString& systemLocale, QzString* out);
// Locale-formatted samples of fixed inputs: "YYYYMMDDhhmmss", "hhmm", "YYYYMMDD".
// Malformed input yields false and leaves out empty.
bool FormatLocalDateTime14(const char* digits, QzString* out);
bool FormatLocaleTime4(const char* digits, QzString* out);
bool FormatDate8(const char* digits, QzString* out);

}  // namespace QzSystem
