// Small helpers shared by the QzUiUtil source files (registry, alert levels,
// list names). Not part of the module's interface.
#pragma once

#include <cstdint>
#include <vector>

#include "QzDataPaths.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileXml.h"
#include "QzLog.h"
#include "QzString.h"
#include "QzSystem.h"
#include "QzUiUtil.h"

namespace QzUiUtilInternal {

// Parses a whole attribute value as a signed decimal integer (optional "-",
// at least one digit, nothing else, no overflow).
inline bool ParseDecimal(const QzString& text, int64_t* valueRet) {
    const char* p = text.c_str();
    const bool negative = *p == '-';
    if (negative) ++p;
    if (!*p) return false;
    uint64_t v = 0;
    for (; *p; ++p) {
        if (*p < '0' || *p > '9') return false;
        const uint64_t digit = static_cast<uint64_t>(*p - '0');
        if (v > (static_cast<uint64_t>(INT64_MAX) - digit) / 10) return false;
        v = v * 10 + digit;
    }
    *valueRet = negative ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
    return true;
}

// Parses one to sixteen hexadecimal digits (either case), nothing else.
inline bool ParseHex64(const char* p, int32_t len, int64_t* valueRet) {
    if (len < 1 || len > 16) return false;
    uint64_t v = 0;
    for (int32_t i = 0; i < len; ++i) {
        const char c = p[i];
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return false;
        v = (v << 4) | static_cast<uint64_t>(d);
    }
    *valueRet = static_cast<int64_t>(v);
    return true;
}

// Reads one attribute from a snippet and parses it as decimal.
inline bool GetDecimalAttr(const QzString& snippet, const char* name, int64_t* valueRet) {
    QzString text;
    return QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, name, &text) && ParseDecimal(text, valueRet);
}

// "<LEVEL>: QzUiUtil::<function> (processId=N) - <text><detail>": the log form
// of this module's failures and notes.
inline void Log(const char* level, const char* function, const char* text, const QzString& detail = QzString()) {
    QzLog::WriteLine(QzCat(level, ": QzUiUtil::", function, " (processId=", QzSystem::GetProcessId(), ") - ", text,
                           detail));
}

// Paths of the files this module keeps in the data directory.
inline QzString VolumesXmlPath() { return QzFile::DataPath(QzFile::DataFile::VolumeRegistry); }
inline QzString ReportsDir() { return QzFile::DataPath(QzFile::DataFile::ReportsFolder); }
inline QzString DefconXmlPath() { return QzFile::DataPath(QzFile::DataFile::AlertLevels); }

// The registry as read or to be written.
struct VolumesXml {
    std::vector<QzVolumesXmlEntry> entries;
    int64_t lastShortId = 0;  // the last short id handed out
    bool staged = false;      // first_qzinfo_staging="true": staged by the installer, kept on rewrites
};
// Reads the registry and says which of Ok, Missing, Held and Malformed
// happened, each logged in the reader's words. Only Ok fills the entries; a
// malformed file still gives the short id counter it holds (0 when none).
QzFile::ReadStatus ReadVolumesXml(VolumesXml* regRet);
// Writes the registry through ".tmp"; an empty or staged registry carries
// first_qzinfo_staging="true", so that its reader accepts it.
bool WriteVolumesXml(const VolumesXml& reg);

// Guards a read-modify-write of the registry against another process doing
// the same (a scan's refresh and an assignment from the control panel): a
// short-lived lock file beside the registry, created exclusively, waited for
// a few seconds and broken when its holder left it behind long ago. Nested
// guards of one process share the outer one.
class VolumesXmlLock {
public:
    explicit VolumesXmlLock(const char* function);
    ~VolumesXmlLock();
    VolumesXmlLock(const VolumesXmlLock&) = delete;
    VolumesXmlLock& operator=(const VolumesXmlLock&) = delete;
    bool Held() const { return held_; }

private:
    bool held_ = false;
    bool owner_ = false;
};

// Writes the text to `path` + ".tmp" and moves it over `path`, so that no
// reader sees a half-written file. Logs the two failures in the module's words.
bool WriteViaTmpAndSwap(const QzString& path, const QzString& text, const char* function);

}  // namespace QzUiUtilInternal
