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
#include "QzUtil.h"

namespace QzUiUtilInternal {

using QzUtil::ParseDecimal;
using QzUtil::ParseHex64;

// Reads one attribute from a snippet and parses it as decimal.
inline bool GetDecimalAttr(const QzString& snippet, const char* name, int64_t* valueRet) {
    QzString text;
    return QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, name, &text) && ParseDecimal(text, valueRet);
}

// "<LEVEL>: QzUiUtil::<function> (processId=N) - <text><detail>": the log form
// of this module's failures and notes.
inline void Log(const char* level, const char* function, const char* text,
                const QzString& detail = QzString()) {
    QzLog::WriteLine(QzCat(level, ": QzUiUtil::", function, " (processId=", QzSystem::GetProcessId(), ") - ",
                           text, detail));
}

// Paths of the files this module keeps in the data directory.
inline QzString VolumesXmlPath() {
    return QzFile::DataPath(QzFile::DataFile::VolumeRegistry);
}
inline QzString ReportsDir() {
    return QzFile::DataPath(QzFile::DataFile::ReportsFolder);
}
inline QzString DefconXmlPath() {
    return QzFile::DataPath(QzFile::DataFile::AlertLevels);
}

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
