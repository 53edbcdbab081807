// Alert levels ("defcon", 5 normal to 1 most critical) of every known volume
// from three ages: since it was last seen attached, since its file list was
// started and since a file of it was last sent. Written to
// "qzreports\qzdefcon.xml" for the other programs of the client.
#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileXml.h"
#include "QzOs.h"
#include "QzTime.h"
#include "QzUiUtil.h"
#include "QzUiUtilInternal.h"
#include "QzUtil.h"

using namespace QzUiUtilInternal;

namespace {

constexpr const char* kUpdate = "QzVolDefcon_UpdateQzVolumesDefconXmlFile";

// Whole days between now and then, capped at 9001 with a log line naming
// what the age is of.
int32_t AgeInDaysCapped(int64_t now, int64_t then, const char* what, const QzString& mountPoint) {
    const uint64_t diff = now >= then ? static_cast<uint64_t>(now) - static_cast<uint64_t>(then)
                                      : static_cast<uint64_t>(then) - static_cast<uint64_t>(now);
    const uint64_t days = diff / static_cast<uint64_t>(QzTime::kMillisPerDay);
    if (days > static_cast<uint64_t>(QzTime::kMaxAgeDays)) {
        Log("WARNING", kUpdate, what, mountPoint);
        return static_cast<int32_t>(QzTime::kMaxAgeDays);
    }
    return static_cast<int32_t>(days);
}

// The start time from a list's first line, "# GmtMillisThisListWasStarted: "
// + 16 hexadecimal digits (the list writer's form) or a decimal number.
bool ParseListStart(const QzString& firstLine, int64_t* millisRet) {
    constexpr const char* kKey = "GmtMillisThisListWasStarted:";
    const int32_t at = firstLine.Find(kKey);
    if (at < 0) return false;
    const char* p = firstLine.c_str() + at + 28;
    while (*p == ' ') ++p;
    int32_t n = 0;
    bool decimal = true;
    for (; (p[n] >= '0' && p[n] <= '9') || (p[n] >= 'a' && p[n] <= 'f') || (p[n] >= 'A' && p[n] <= 'F'); ++n)
        if (p[n] > '9') decimal = false;
    if (p[n] != '\0' && p[n] != ',' && p[n] != ' ') return false;
    if (n == 16) return ParseHex64(p, n, millisRet);
    return decimal && n >= 1 && n <= 18 && ParseDecimal(QzString(p, n), millisRet);
}

// Reads the first line of a file without reading the (possibly huge) rest.
bool ReadFirstLine(const QzString& path, QzString* lineRet) {
    QzOs::Handle h;
    if (QzOs::OpenFile(path.c_str(), QzOs::OpenMode::ReadShared, &h) != QzOs::ErrSuccess) return false;
    char buf[256];
    uint32_t got = 0;
    const uint32_t err = QzOs::ReadFile(h, buf, sizeof buf, &got);
    QzOs::CloseFile(h);
    if (err != QzOs::ErrSuccess) return false;
    int32_t len = 0;
    while (len < static_cast<int32_t>(got) && buf[len] != '\n') ++len;
    if (len > 0 && buf[len - 1] == '\r') --len;
    return lineRet->Set(buf, len);
}

// Days since the volume's list was started; -1 when it has no list. False
// (the update is abandoned) when the list cannot be read or understood.
bool LastListedDays(const QzVolumesXmlEntry& e, int64_t now, int32_t* daysRet) {
    QzString name;
    QzUiUtil::GetPerVolumeFileListName(e.volumeGuid, e.mountPoint, &name);
    if (!QzFile::FileExists(name.c_str())) {
        Log("NOTE", kUpdate, "per-volume filelist does not exist so using -1, mountName=",
            QzCat(e.mountPoint, ", fileName=", name));
        *daysRet = -1;
        return true;
    }
    QzString line;
    if (!ReadFirstLine(name, &line)) {
        Log("ERROR", kUpdate, "could not read per-volume filelist so bailing out, fileName=", name);
        return false;
    }
    int64_t started = 0;
    if (!ParseListStart(line, &started)) {
        Log("ERROR", kUpdate,
            "read per-volume filelist but did not parse first line correctly, so bailing out, fileName=",
            QzCat(name, ", firstLine=", line));
        return false;
    }
    *daysRet = AgeInDaysCapped(now, started,
                               "more than 24_years since filelist was generated, mountName=", e.mountPoint);
    return true;
}

// Days since a file of the volume was last sent, from the transmitter's
// "qzstat_pervol_<vguid>_latest_file.xml". False (the update is abandoned and
// the previous alert file stays) when that file is missing, or held by the
// transmitter for longer than the reader waits. One that was read but holds
// no usable time counts as never sent (9001 days): better a false alarm than
// a volume whose uploads stopped going unnoticed.
bool LastPushedDays(const QzVolumesXmlEntry& e, int64_t now, int32_t* daysRet) {
    const QzString path = QzCat(QzFile::DataPath(QzFile::DataFile::LastFilesTransmittedFolder), "\\",
                                "qzstat_pervol_", e.volumeGuid, "_latest_file.xml");
    QzString text, err;
    const QzFile::ReadStatus status = QzFile::ReadFilePatiently(path.c_str(), &text, {}, &err);
    if (status == QzFile::ReadStatus::Missing) {
        Log("ERROR", kUpdate, "qzstat_pervol_latest_file.xml not found here:",
            QzCat(path, ", so bailing out of defcon calculations"));
        return false;
    }
    if (status != QzFile::ReadStatus::Ok) {
        Log("ERROR", kUpdate,
            "qzstat_pervol_latest_file.xml exists but could not be read, so bailing out of defcon "
            "calculations and keeping the previous qzdefcon.xml: ",
            QzCat(path, ", err=", err));
        return false;
    }
    QzString value;
    int64_t pushed = 0;
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(text, "gmt_millis", &value) ||
        !ParseHex64(value.c_str(), value.Length(), &pushed)) {
        Log("ERROR", kUpdate,
            "could not read gmt_millis from qzstat_pervol_latest_file.xml, counting it as never sent: ",
            QzCat(path, ", gmt_millis=", value));
        pushed = 0;
    }
    *daysRet = AgeInDaysCapped(now, pushed,
                               "more than 24_years since file was transmitted, mountName=", e.mountPoint);
    return true;
}

}  // namespace

namespace QzUiUtil {

int32_t QzVolDefcon_LevelFromAges(int32_t lastSeenDays, int32_t lastListedDays, int32_t lastPushedDays) {
    // Every age must be under the bound; -1 (never listed) is under all of them.
    const auto allBelow = [&](int32_t bound) {
        return lastSeenDays < bound && lastListedDays < bound && lastPushedDays < bound;
    };
    if (allBelow(8)) return 5;
    if (allBelow(15)) return 4;
    if (allBelow(22)) return 3;
    if (allBelow(29)) return 2;
    return 1;
}

bool QzVolDefcon_UpdateQzVolumesDefconXmlFile() {
    std::vector<QzVolumesXmlEntry> entries;
    int64_t lastShortId = 0;
    if (!QzVolumesXml_ReadQzVolumesXmlFile(&entries, &lastShortId)) {
        Log("ERROR", kUpdate, "could not read qzvolumes.xml, so bailing out of defcon calculations");
        return false;
    }
    if (entries.empty()) {
        Log("NOTE", kUpdate, "qzvolumes.xml lists no volumes yet, so there is nothing to rate");
        return false;
    }
    const int64_t now = QzTime::GetCurrentGmtMillis();
    std::vector<QzVolDefconRecord> records;
    int32_t mostCritical = 6;
    for (const QzVolumesXmlEntry& e : entries) {
        QzVolDefconRecord r;
        r.volumeGuid = e.volumeGuid;
        r.mountPoint = e.mountPoint;
        r.lastSeenInDays =
            AgeInDaysCapped(now, e.lastSeenAttachedGmtMillis,
                            "more than 24_years since drive was seen, mountName=", e.mountPoint);
        if (!LastListedDays(e, now, &r.lastFileListedInDays)) return false;
        if (!LastPushedDays(e, now, &r.lastFilePushedInDays)) return false;
        r.defconLevel =
            QzVolDefcon_LevelFromAges(r.lastSeenInDays, r.lastFileListedInDays, r.lastFilePushedInDays);
        if (r.defconLevel < mostCritical) mostCritical = r.defconLevel;
        records.push_back(std::move(r));
    }
    QzString text("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n");
    text.Append(QzCat("<volume_defcon_summary most_critial_volume_defcon=\"", mostCritical, "\" />\n"));
    for (const QzVolDefconRecord& r : records) {
        text.Append("<qzvolume qzVolumeGuid=\"");
        QzUtil::AppendXmlEscaped(text, r.volumeGuid);
        text.Append("\" mountPointPathHex=\"");
        QzUtil::AppendHexEncoded(text, r.mountPoint.c_str(), r.mountPoint.Length());
        text.Append(QzCat("\" vol_defcon_level=\"", r.defconLevel, "\" vol_last_seen_in_days=\"",
                          r.lastSeenInDays, "\" vol_last_filelisted_in_days=\"", r.lastFileListedInDays,
                          "\" vol_last_file_pushed_in_days=\"", r.lastFilePushedInDays, "\" />\n"));
    }
    text.Append("</contents>\n");
    const QzString path = DefconXmlPath();
    QzFile::CreateDirectoryRecursive(ReportsDir().c_str());
    if (!WriteViaTmpAndSwap(path, text, kUpdate)) return false;
    QzLog::WriteLine(
        QzCat("QzUiUtil::QzVolDefcon_UpdateQzVolumesDefconXmlFile - success updating file:", path));
    return true;
}

}  // namespace QzUiUtil
