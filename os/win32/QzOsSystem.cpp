// Windows side of the system calls: known folders, the registry, process and
// machine facts, the clock, the command line, sockets, and the descriptions,
// time zone and locale of the diagnostic switches.
// clang-format off
#include "QzOsInternal.h"  // windows.h, which the other system headers need first
// clang-format on

#include <psapi.h>
#include <shellapi.h>
#include <shlobj.h>

#include <cstring>
#include <vector>

namespace QzOs {

using namespace win32;

namespace {

// Registry value as raw bytes, growing the buffer if the value grows between
// the size query and the read.
uint32_t QueryRegistryValue(const char* keyPath, const char* valueName, DWORD* typeRet,
                            std::vector<BYTE>* dataRet) {
    QzUtf16String key;
    QzUtf16String value;
    if (!key.ConvertUtf8QzStringToUtf16(keyPath, static_cast<int32_t>(std::strlen(keyPath)), false) ||
        !value.ConvertUtf8QzStringToUtf16(valueName, static_cast<int32_t>(std::strlen(valueName)), false)) {
        return ErrNoUnicodeTranslation;
    }
    HKEY hk = nullptr;
    LONG rc = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, W(key), 0, KEY_QUERY_VALUE | KEY_WOW64_64KEY, &hk);
    if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
    DWORD size = 0;
    rc = ::RegQueryValueExW(hk, W(value), nullptr, typeRet, nullptr, &size);
    for (int attempt = 0; rc == ERROR_SUCCESS || rc == ERROR_MORE_DATA; ++attempt) {
        // Two spare units so a string stored without its terminator still ends.
        dataRet->assign(size + 2 * sizeof(wchar_t), 0);
        DWORD got = size;
        rc = ::RegQueryValueExW(hk, W(value), nullptr, typeRet, dataRet->data(), &got);
        if (rc == ERROR_SUCCESS) {
            dataRet->resize(got);
            break;
        }
        if (rc != ERROR_MORE_DATA || attempt == 4) break;
        size = got > size ? got : size * 2 + 64;
    }
    ::RegCloseKey(hk);
    return static_cast<uint32_t>(rc);
}

uint32_t ReadRegistryDword(const char* keyPath, const char* valueName, DWORD* valueRet) {
    DWORD type = 0;
    std::vector<BYTE> data;
    const uint32_t rc = QueryRegistryValue(keyPath, valueName, &type, &data);
    if (rc != 0) return rc;
    if (type != REG_DWORD || data.size() < sizeof(DWORD)) return ERROR_UNSUPPORTED_TYPE;
    std::memcpy(valueRet, data.data(), sizeof(DWORD));
    return 0;
}

// Converts an error-reporting HRESULT to the Win32 number it carries, or
// passes it on whole when it is not a Win32 error.
uint32_t FromHresult(HRESULT hr) {
    if (HRESULT_FACILITY(hr) == FACILITY_WIN32) return static_cast<uint32_t>(HRESULT_CODE(hr));
    return static_cast<uint32_t>(hr);
}

uint32_t GetShellFolder(int csidl, QzString* dirRet) {
    wchar_t buf[MAX_PATH + 1] = {};
    // DONT_VERIFY: the answer is the configured location whether or not the
    // folder exists; only a failure of the call itself is reported.
    const HRESULT hr =
        ::SHGetFolderPathW(nullptr, csidl | CSIDL_FLAG_DONT_VERIFY, nullptr, SHGFP_TYPE_CURRENT, buf);
    if (FAILED(hr)) return FromHresult(hr);
    // An empty answer is still an answer: the caller's rule for a short
    // folder name applies to it, not the one for a failed call.
    AssignWide(buf, dirRet);
    StripTrailingBackslash(dirRet);
    return 0;
}

bool MakeSystemTime(int year, int month, int day, int hour, int minute, int second, SYSTEMTIME* st) {
    if (year < 1601 || year > 30827 || month < 1 || month > 12 || day < 1 || day > 31 || hour < 0 ||
        hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59) {
        return false;
    }
    *st = SYSTEMTIME{};
    st->wYear = static_cast<WORD>(year);
    st->wMonth = static_cast<WORD>(month);
    st->wDay = static_cast<WORD>(day);
    st->wHour = static_cast<WORD>(hour);
    st->wMinute = static_cast<WORD>(minute);
    st->wSecond = static_cast<WORD>(second);
    return true;
}

}  // namespace

// -------------------------------------------------------------- known folders

uint32_t GetWindowsDirectory(QzString* dirRet) {
    dirRet->Clear();
    std::vector<wchar_t> buf(MAX_PATH + 1);
    UINT n = ::GetWindowsDirectoryW(buf.data(), static_cast<UINT>(buf.size()));
    if (n >= buf.size()) {
        // Too small: n is the size needed, terminator included.
        buf.assign(n + 1, 0);
        n = ::GetWindowsDirectoryW(buf.data(), static_cast<UINT>(buf.size()));
    }
    if (n == 0 || n >= buf.size()) return LastError();
    AssignWide(buf.data(), dirRet);
    StripTrailingBackslash(dirRet);
    return 0;
}

uint32_t GetProgramFilesDirectory(QzString* dirRet) {
    dirRet->Clear();
    return GetShellFolder(CSIDL_PROGRAM_FILES, dirRet);
}

uint32_t GetCommonAppDataDirectory(QzString* dirRet) {
    dirRet->Clear();
    return GetShellFolder(CSIDL_COMMON_APPDATA, dirRet);
}

uint32_t ReadRegistryString(const char* keyPath, const char* valueName, QzString* valueRet) {
    valueRet->Clear();
    DWORD type = 0;
    std::vector<BYTE> data;
    const uint32_t rc = QueryRegistryValue(keyPath, valueName, &type, &data);
    if (rc != 0) return rc;
    if (type != REG_SZ && type != REG_EXPAND_SZ) return ERROR_UNSUPPORTED_TYPE;
    // The stored bytes may or may not include the terminator (or an odd byte).
    std::vector<wchar_t> text(data.size() / sizeof(wchar_t) + 1, 0);
    std::memcpy(text.data(), data.data(), (text.size() - 1) * sizeof(wchar_t));
    AssignWide(text.data(), valueRet);
    return 0;
}

// -------------------------------------------------------- process and machine

uint32_t GetCurrentProcessId() {
    return static_cast<uint32_t>(::GetCurrentProcessId());
}

bool GetProcessMemoryCounters(MemoryCounters* countersRet) {
    PROCESS_MEMORY_COUNTERS pmc;
    std::memset(&pmc, 0, sizeof(pmc));
    pmc.cb = sizeof(pmc);
    // The kernel32 export (Windows 7 and later) spares the psapi.dll import.
    if (!::K32GetProcessMemoryInfo(::GetCurrentProcess(), &pmc, sizeof(pmc))) return false;
    countersRet->pagefileUsage = static_cast<int64_t>(pmc.PagefileUsage);
    countersRet->workingSetSize = static_cast<int64_t>(pmc.WorkingSetSize);
    return true;
}

int64_t GetTotalPhysicalMemory() {
    MEMORYSTATUSEX ms;
    std::memset(&ms, 0, sizeof(ms));
    ms.dwLength = sizeof(ms);
    if (!::GlobalMemoryStatusEx(&ms)) return 0;
    return static_cast<int64_t>(ms.ullTotalPhys);
}

bool Is64BitOperatingSystem() {
#if defined(_WIN64)
    return true;  // a 64-bit process only runs on a 64-bit system
#else
    BOOL wow64 = FALSE;
    return ::IsWow64Process(::GetCurrentProcess(), &wow64) && wow64;
#endif
}

void Sleep(uint32_t millis) {
    ::Sleep(millis);
}

int64_t GetSystemTimeAsFileTime() {
    FILETIME ft;
    ::GetSystemTimeAsFileTime(&ft);
    return FromFileTime(ft);
}

void GetUtf8Arguments(int argc, char** argv, std::vector<QzString>* argsRet) {
    argsRet->clear();
    int n = 0;
    LPWSTR* wargs = ::CommandLineToArgvW(::GetCommandLineW(), &n);
    if (wargs) {
        argsRet->reserve(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) {
            QzString arg;
            AssignWide(wargs[i], &arg);
            argsRet->push_back(std::move(arg));
        }
        ::LocalFree(wargs);
        return;
    }
    // Without the wide command line, the C runtime's arguments are the best left.
    for (int i = 0; i < argc; ++i) argsRet->emplace_back(argv[i] ? argv[i] : "");
}

void InitConsole() {
    ::SetConsoleOutputCP(CP_UTF8);
}

bool SocketStartup() {
    WSADATA wsa;
    return ::WSAStartup(MAKEWORD(2, 2), &wsa) == 0;
}

void SocketShutdown() {
    ::WSACleanup();
}

uint32_t TryLoadLibrary(const char* path) {
    QzUtf16String wpath;
    if (!WidePath(path, &wpath)) return ErrNoUnicodeTranslation;
    // Mapped as an image, so a DLL for another machine type fails, but with
    // neither its entry point run nor its imports loaded; and no error box.
    DWORD oldMode = 0;
    ::SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &oldMode);
    HMODULE m = ::LoadLibraryExW(W(wpath), nullptr, DONT_RESOLVE_DLL_REFERENCES);
    const uint32_t err = m ? 0 : LastError();
    if (m) ::FreeLibrary(m);
    ::SetThreadErrorMode(oldMode, nullptr);
    return err;
}

void GetOsDescription(OsDescription* descRet) {
    *descRet = OsDescription{};
    const char* kCurrentVersion = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
    HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");

    // RtlGetVersion tells the truth; GetVersionEx answers per the manifest.
    RTL_OSVERSIONINFOW vi;
    std::memset(&vi, 0, sizeof(vi));
    vi.dwOSVersionInfoSize = sizeof(vi);
    using RtlGetVersionFn = LONG(WINAPI*)(RTL_OSVERSIONINFOW*);
    auto rtlGetVersion = ntdll ? reinterpret_cast<RtlGetVersionFn>(
                                     reinterpret_cast<void*>(::GetProcAddress(ntdll, "RtlGetVersion")))
                               : nullptr;
    const bool haveVersion = rtlGetVersion && rtlGetVersion(&vi) == 0;

    ReadRegistryString(kCurrentVersion, "ProductName", &descRet->productName);
    if (descRet->productName.IsEmpty()) descRet->productName = "Windows";
    // Windows 11 still calls itself "Windows 10" in ProductName; the build
    // number tells them apart.
    if (haveVersion && vi.dwMajorVersion == 10 && vi.dwBuildNumber >= 22000 &&
        descRet->productName.StartsWith("Windows 10")) {
        QzString fixed("Windows 11");
        fixed.Append(descRet->productName.c_str() + 10);
        descRet->productName = fixed;
    }

    if (haveVersion) {
        descRet->version.AppendInt(vi.dwMajorVersion);
        descRet->version.AppendChar('.');
        descRet->version.AppendInt(vi.dwMinorVersion);
        descRet->version.AppendChar('.');
        descRet->version.AppendInt(vi.dwBuildNumber);
        DWORD ubr = 0;
        if (ReadRegistryDword(kCurrentVersion, "UBR", &ubr) == 0) {
            descRet->version.AppendChar('.');
            descRet->version.AppendInt(ubr);
        }
    }

    // "22H2" on current systems, "1909" style before, "Service Pack 1" on 7.
    if (ReadRegistryString(kCurrentVersion, "DisplayVersion", &descRet->build) != 0 ||
        descRet->build.IsEmpty()) {
        if (ReadRegistryString(kCurrentVersion, "ReleaseId", &descRet->build) != 0 ||
            descRet->build.IsEmpty()) {
            if (haveVersion) AssignWide(vi.szCSDVersion, &descRet->build);
        }
    }

    wchar_t computer[MAX_COMPUTERNAME_LENGTH + 1] = {};
    DWORD computerLen = MAX_COMPUTERNAME_LENGTH + 1;
    if (::GetComputerNameW(computer, &computerLen)) AssignWide(computer, &descRet->machineName);

    // Wine's ntdll exports its version; real Windows has no such export.
    using WineGetVersionFn = const char*(CDECL*)();
    auto wineGetVersion = ntdll ? reinterpret_cast<WineGetVersionFn>(
                                      reinterpret_cast<void*>(::GetProcAddress(ntdll, "wine_get_version")))
                                : nullptr;
    if (wineGetVersion) {
        const char* v = wineGetVersion();
        descRet->hostNote = "Wine";
        if (v && *v) {
            descRet->hostNote.AppendChar(' ');
            descRet->hostNote.Append(v);
        }
    }
}

bool GetTimeZoneState(int64_t gmtMillis, TimeZoneState* stateRet) {
    *stateRet = TimeZoneState{};
    DYNAMIC_TIME_ZONE_INFORMATION dtzi;
    std::memset(&dtzi, 0, sizeof(dtzi));
    if (::GetDynamicTimeZoneInformation(&dtzi) == TIME_ZONE_ID_INVALID) return false;

    // Milliseconds since 1970 as a file time (100 ns since 1601).
    constexpr int64_t kEpochDiff = 116444736000000000LL;
    if (gmtMillis < -kEpochDiff / 10000 || gmtMillis > (INT64_MAX - kEpochDiff) / 10000) return false;
    const int64_t gmtFileTime = gmtMillis * 10000 + kEpochDiff;
    const FILETIME ft = ToFileTime(gmtFileTime);
    SYSTEMTIME utc;
    if (!::FileTimeToSystemTime(&ft, &utc)) return false;

    // The rules of the year in question: daylight-saving dates and even the
    // standard offset of a zone change over the years.
    TIME_ZONE_INFORMATION tzi;
    std::memset(&tzi, 0, sizeof(tzi));
    if (!::GetTimeZoneInformationForYear(utc.wYear, &dtzi, &tzi)) {
        tzi.Bias = dtzi.Bias;
        std::memcpy(tzi.StandardName, dtzi.StandardName, sizeof(tzi.StandardName));
        tzi.StandardDate = dtzi.StandardDate;
        tzi.StandardBias = dtzi.StandardBias;
        std::memcpy(tzi.DaylightName, dtzi.DaylightName, sizeof(tzi.DaylightName));
        tzi.DaylightDate = dtzi.DaylightDate;
        tzi.DaylightBias = dtzi.DaylightBias;
    }
    SYSTEMTIME local;
    FILETIME localFt;
    if (!::SystemTimeToTzSpecificLocalTime(&tzi, &utc, &local) || !::SystemTimeToFileTime(&local, &localFt)) {
        return false;
    }
    const int64_t diff = FromFileTime(localFt) - gmtFileTime;
    stateRet->offsetMinutes = static_cast<int32_t>(diff / 600000000LL);

    const bool hasDaylight = tzi.DaylightDate.wMonth != 0 && tzi.DaylightBias != tzi.StandardBias;
    const bool inDaylight = hasDaylight && stateRet->offsetMinutes == -(tzi.Bias + tzi.DaylightBias);
    stateRet->dstState = !hasDaylight ? 0 : (inDaylight ? 2 : 1);
    AssignWide(inDaylight ? tzi.DaylightName : tzi.StandardName, &stateRet->zoneName);
    return true;
}

void GetSystemLocaleName(QzString* nameRet) {
    nameRet->Clear();
    wchar_t buf[LOCALE_NAME_MAX_LENGTH] = {};
    if (::GetSystemDefaultLocaleName(buf, LOCALE_NAME_MAX_LENGTH) > 0) AssignWide(buf, nameRet);
}

void GetUserLocaleName(QzString* nameRet) {
    nameRet->Clear();
    wchar_t buf[LOCALE_NAME_MAX_LENGTH] = {};
    if (::GetUserDefaultLocaleName(buf, LOCALE_NAME_MAX_LENGTH) > 0) AssignWide(buf, nameRet);
}

bool FormatLocaleDate(int year, int month, int day, QzString* textRet) {
    textRet->Clear();
    SYSTEMTIME st;
    if (!MakeSystemTime(year, month, day, 0, 0, 0, &st)) return false;
    wchar_t buf[128] = {};
    if (::GetDateFormatEx(LOCALE_NAME_USER_DEFAULT, DATE_SHORTDATE, &st, nullptr, buf, 128, nullptr) == 0) {
        return false;
    }
    AssignWide(buf, textRet);
    return true;
}

bool FormatLocaleTime(int hour, int minute, int second, bool withSeconds, QzString* textRet) {
    textRet->Clear();
    SYSTEMTIME st;
    if (!MakeSystemTime(2000, 1, 1, hour, minute, second, &st)) return false;
    wchar_t buf[128] = {};
    const DWORD flags = withSeconds ? 0 : TIME_NOSECONDS;
    if (::GetTimeFormatEx(LOCALE_NAME_USER_DEFAULT, flags, &st, nullptr, buf, 128) == 0) return false;
    AssignWide(buf, textRet);
    return true;
}

}  // namespace QzOs
