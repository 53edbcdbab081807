// The registry of every volume ever given an identity, "qzvolumes.xml" in the
// data directory: reading with its rejections, writing through ".tmp", new
// volume GUIDs and adding an entry.
#include <cstring>
#include <random>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzOs.h"
#include "QzTime.h"
#include "QzUiUtil.h"
#include "QzUiUtilInternal.h"
#include "QzUtil.h"
#include "QzVolumeInfo.h"

using namespace QzUiUtilInternal;

namespace QzUiUtilInternal {

bool WriteViaTmpAndSwap(const QzString& path, const QzString& text, const char* function) {
    QzFile::ReplaceResult r;
    if (QzFile::WriteFileAtomically(path, text, {}, &r)) return true;
    if (!r.written)
        Log("ERROR", function, "could not write out temporary file, bailing: ", QzCat(path, ".tmp"));
    else
        Log("ERROR", function, "could not swap in temporary file, bailing: ", QzCat(path, ".tmp to ", path));
    return false;
}

namespace {
constexpr uint32_t kLockWaitMillis = 10000;
constexpr uint32_t kLockPauseMillis = 50;
// A registry rewrite takes milliseconds; a lock this old was left by a process that died.
constexpr int64_t kLockStaleMillis = 120000;
int g_lockDepth = 0;

bool CreateLockFile(const QzString& path, uint32_t* errRet) {
    QzOs::Handle h;
    *errRet = QzOs::OpenFile(path.c_str(), QzOs::OpenMode::CreateNew, &h);
    if (*errRet != QzOs::ErrSuccess) return false;
    QzOs::CloseFile(h);
    return true;
}
}  // namespace

VolumesXmlLock::VolumesXmlLock(const char* function) {
    if (g_lockDepth > 0) {
        held_ = true;
        ++g_lockDepth;
        return;
    }
    const QzString path = QzFile::DataPath(QzFile::DataFile::VolumeRegistryLock);
    bool broken = false;
    uint32_t err = 0;
    for (uint32_t waited = 0;; waited += kLockPauseMillis) {
        if (CreateLockFile(path, &err)) {
            held_ = owner_ = true;
            g_lockDepth = 1;
            return;
        }
        const int64_t modified = QzFile::GetFileLastModMillis(path.c_str());
        const int64_t age = QzTime::GetCurrentGmtMillis() - modified;
        if (err == QzOs::ErrFileExists && !broken && modified != 0 &&
            (age > kLockStaleMillis || age < -kLockStaleMillis)) {
            Log("WARNING", function, "breaking a stale qzvolumes.xml lock, ",
                QzCat(path, ", ageMillis=", age));
            QzFile::DeleteFileIfExists(path.c_str());
            broken = true;
            continue;
        }
        if (waited >= kLockWaitMillis) break;
        QzTime::SleepMillis(kLockPauseMillis);
    }
    Log("ERROR", function, "could not get the qzvolumes.xml lock, so leaving qzvolumes.xml as it was, ",
        QzCat(path, ", errNum=", err));
}

VolumesXmlLock::~VolumesXmlLock() {
    if (!held_) return;
    --g_lockDepth;
    if (owner_) QzFile::DeleteFileIfExists(QzFile::DataPath(QzFile::DataFile::VolumeRegistryLock).c_str());
}

}  // namespace QzUiUtilInternal

namespace {

constexpr const char* kRead = "QzVolumesXml_ReadQzVolumesXmlFile";

// Parses one "qzvolume" element; logs the rejection and fails on a bad GUID or
// mount point. Missing figures keep their defaults.
bool ParseEntry(const QzString& snippet, QzVolumesXmlEntry* e) {
    GetDecimalAttr(snippet, "numBytesFreeOnVolume", &e->bytesFree);
    GetDecimalAttr(snippet, "numBytesUsedOnVolume", &e->bytesUsed);
    GetDecimalAttr(snippet, "numBytesTotalOnVolume", &e->bytesTotal);
    GetDecimalAttr(snippet, "lastTimeVolumeWasSeenAttachedGmtMillis", &e->lastSeenAttachedGmtMillis);
    QzString type;
    if (QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "typeOfVolumeTwoCharCode", &type) &&
        type.Length() >= 2) {
        e->typeCode[0] = type[0];
        e->typeCode[1] = type[1];
    }
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "qzVolumeGuid", &e->volumeGuid)) {
        Log("ERROR", kRead, "could not find qzVolumeGuid in line: ", snippet);
        return false;
    }
    if (e->volumeGuid.Length() != 28) {
        Log("ERROR", kRead, "badly_5 formed qzVolumeGuid in line: ", snippet);
        return false;
    }
    QzString hex;
    if (QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "mountPointPathHex", &hex)) {
        if (!QzUtil::AppendHexDecoded(e->mountPoint, hex.c_str(), hex.Length())) {
            Log("ERROR", kRead, "badly_56 formed mountPointPath_OR_BADLY_HEX in line: ", snippet);
            return false;
        }
    } else if (!QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "mountPointPath", &e->mountPoint)) {
        Log("ERROR", kRead, "could not find FALLBACK_NONHEX mountPointPath in line: ", snippet);
        return false;
    }
    // A mount point is at least "X:"; a zero byte could never come from a path.
    if (e->mountPoint.Length() < 2 ||
        static_cast<int32_t>(std::strlen(e->mountPoint.c_str())) != e->mountPoint.Length()) {
        Log("ERROR", kRead, "badly_78 formed mountPointPath_OR_BADLY_HEX in line: ", snippet);
        return false;
    }
    return true;
}

// "lastAssignedQzVolShortId" of the text, 0 when it is missing or not a number.
int64_t LastShortIdOf(const QzString& text, const char* function) {
    std::vector<QzString> meta;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "qzvol_metadata", &meta);
    int64_t last = 0;
    if (meta.empty() || !GetDecimalAttr(meta[0], "lastAssignedQzVolShortId", &last)) {
        Log("WARNING", function, "could not find lastAssignedQzVolShortId, default to 0");
        return 0;
    }
    return last;
}

// The machine half of a GUID: the adapter's hardware address as 12 hex
// digits, else 12 characters of per-process random digits. Computed once.
const QzString& MachinePart(std::mt19937_64& rng) {
    static const QzString part = [&rng] {
        unsigned char mac[6];
        QzString s;
        if (QzOs::GetFirstAdapterHardwareAddress(mac)) {
            QzUtil::AppendHexEncoded(s, mac, 6);
            return s;
        }
        std::uniform_int_distribution<int64_t> below(0, 99999998);
        s = QzCat(below(rng), below(rng), below(rng), "1234567890");
        s.Truncate(12);
        Log("WARNING", "CreateNewQzVolumeGuid",
            "no network adapter address, using a random machine part: ", s);
        return s;
    }();
    return part;
}

std::mt19937_64& Rng() {
    static std::mt19937_64 rng = [] {
        std::random_device rd;
        std::seed_seq seq{static_cast<uint64_t>(rd()), static_cast<uint64_t>(rd()),
                          static_cast<uint64_t>(QzTime::GetCurrentGmtMillis()),
                          static_cast<uint64_t>(QzSystem::GetProcessId())};
        return std::mt19937_64(seq);
    }();
    return rng;
}

// The time half: the low six bytes of the clock in milliseconds, most
// significant digit first, whose leading digit (constant for centuries) is
// replaced by a random digit 0-7. Never the same millisecond twice per process.
QzString TimePart(std::mt19937_64& rng) {
    static int64_t lastMillis = -1;
    int64_t now = QzTime::GetCurrentGmtMillis();
    for (int wait = 0; now == lastMillis && wait < 1000; ++wait) {
        QzTime::SleepMillis(2);
        now = QzTime::GetCurrentGmtMillis();
    }
    lastMillis = now;
    QzString s;
    s.AppendPaddedHex(now & 0xFFFFFFFFFFFFLL, 12);
    std::uniform_int_distribution<int> digit(0, 7);
    s.Data()[0] = static_cast<char>('0' + digit(rng));
    return s;
}

}  // namespace

QzFile::ReadStatus QzUiUtilInternal::ReadVolumesXml(VolumesXml* regRet) {
    using QzFile::ReadStatus;
    VolumesXml& reg = *regRet;
    reg = VolumesXml();
    const QzString path = VolumesXmlPath();
    QzString text, err;
    const ReadStatus status = QzFile::ReadFilePatiently(path.c_str(), &text, {}, &err);
    if (status == ReadStatus::Missing) {
        Log("WARNING", kRead, "file did not exist: ", path);
        return status;
    }
    if (status == ReadStatus::Held) {
        Log("ERROR", kRead, "file exists but was not readable or no contents: ",
            QzCat(path, ", err=", err, ", held by another program, so leaving it as it is"));
        return status;
    }
    if (text.IsEmpty()) {
        Log("ERROR", kRead, "file exists but was not readable or no contents: ", path);
        return ReadStatus::Malformed;
    }
    reg.lastShortId = LastShortIdOf(text, kRead);
    QzString staging;
    reg.staged = QzFile::GetUniqueStrAttrFromXmlSnippet(text, "first_qzinfo_staging", &staging) &&
                 staging.Equals("true");
    if (!text.Contains("</contents>")) {
        Log("ERROR", kRead, "file exists but was corrupted: ", path);
        return ReadStatus::Malformed;
    }
    std::vector<QzString> snippets;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "qzvolume", &snippets);
    if (snippets.empty() && !reg.staged) {
        Log("ERROR", kRead, "could not find any <qzvolume ...> snippets in: ", path);
        return ReadStatus::Malformed;
    }
    for (const QzString& snippet : snippets) {
        QzVolumesXmlEntry e;
        if (!ParseEntry(snippet, &e)) {
            reg.entries.clear();
            return ReadStatus::Malformed;
        }
        reg.entries.push_back(std::move(e));
    }
    return ReadStatus::Ok;
}

bool QzUiUtilInternal::WriteVolumesXml(const VolumesXml& reg) {
    const int64_t now = QzTime::GetCurrentGmtMillis();
    QzString text("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n");
    QzString when;
    QzTime::AppendLogDateTime(when, now);
    text.Append(QzCat("<qzvol_metadata lastAssignedQzVolShortId=\"", static_cast<long long>(reg.lastShortId),
                      "\" gmtMillisThisFileWasWritten=\"", static_cast<long long>(now),
                      "\" gmtDateTimeFileWasWritten=\"", when, "\"",
                      reg.staged || reg.entries.empty() ? " first_qzinfo_staging=\"true\"" : "", " />\n"));
    for (const QzVolumesXmlEntry& e : reg.entries) {
        text.Append("<qzvolume qzVolumeGuid=\"");
        QzUtil::AppendXmlEscaped(text, e.volumeGuid);
        text.Append("\" mountPointPathHex=\"");
        QzUtil::AppendHexEncoded(text, e.mountPoint.c_str(), e.mountPoint.Length());
        text.Append("\" typeOfVolumeTwoCharCode=\"");
        QzUtil::AppendXmlEscaped(text, e.typeCode, static_cast<int32_t>(std::strlen(e.typeCode)));
        text.Append(QzCat("\" lastTimeVolumeWasSeenAttachedGmtMillis=\"",
                          static_cast<long long>(e.lastSeenAttachedGmtMillis), "\" numBytesFreeOnVolume=\"",
                          static_cast<long long>(e.bytesFree), "\" numBytesUsedOnVolume=\"",
                          static_cast<long long>(e.bytesUsed), "\" numBytesTotalOnVolume=\"",
                          static_cast<long long>(e.bytesTotal), "\" />\n"));
    }
    text.Append("</contents>\n");
    return WriteViaTmpAndSwap(VolumesXmlPath(), text, "QzVolumesXml_WriteQzVolumesXmlFile");
}

namespace QzUiUtil {

bool QzVolumesXml_ReadQzVolumesXmlFile(std::vector<QzVolumesXmlEntry>* entriesRet, int64_t* lastShortIdRet) {
    if (!entriesRet || !lastShortIdRet) return false;
    VolumesXml reg;
    const bool ok = ReadVolumesXml(&reg) == QzFile::ReadStatus::Ok;
    *entriesRet = std::move(reg.entries);
    *lastShortIdRet = ok ? reg.lastShortId : 0;
    return ok;
}

bool QzVolumesXml_WriteQzVolumesXmlFile(const std::vector<QzVolumesXmlEntry>& entries, int64_t lastShortId) {
    VolumesXml reg;
    reg.entries = entries;
    reg.lastShortId = lastShortId;
    return WriteVolumesXml(reg);
}

bool QzVolumesXml_CreateNewQzVolumeGuid(QzString* vguidRet) {
    if (!vguidRet) return false;
    vguidRet->Clear();
    constexpr const char* kFn = "CreateNewQzVolumeGuid";
    VolumesXmlLock lock(kFn);
    if (!lock.Held()) return false;
    // A damaged registry still names the last short id handed out; reusing
    // ids would give two volumes the same short id. A registry that another
    // program holds gives no counter at all, so no id is handed out.
    VolumesXml reg;
    if (ReadVolumesXml(&reg) == QzFile::ReadStatus::Held) {
        Log("ERROR", kFn, "qzvolumes.xml exists but could not be read, so not handing out a short id");
        return false;
    }
    const int64_t last = reg.lastShortId;
    int64_t next = last + 1;
    if (next == 0x999) next = 0x99a;  // "999" would read as an unknown identity
    if (next > 0xff9) {
        QzLog::WriteLine(
            QzCat("ERROR: QzUiUtil::CreateNewQzVolumeGuid high, wrapping to 1, lastAssignedQzVolShortId=",
                  static_cast<long long>(last)));
        next = 1;
    }
    QzString shortId;
    shortId.AppendPaddedHex(next, 3);
    if (shortId.Length() != 3) {
        QzLog::WriteLine(QzCat("ERROR: QzUiUtil::CreateNewQzVolumeGuid qzShortVid wrong: ", shortId));
        return false;
    }
    std::mt19937_64& rng = Rng();
    *vguidRet = QzCat("v", shortId, MachinePart(rng), TimePart(rng));
    return true;
}

bool QzVolumesXml_AddNewQzVolumeGuid(const QzString& vguid, const QzString& mountPoint) {
    constexpr const char* kFn = "QzVolumesXml_AddNewQzVolumeGuid";
    const QzString& hguid = QzFile::GetMyHostGuid();
    if (hguid.Length() != 24) {
        Log("ERROR", kFn, "GetMyHostGuid badly_6 formed, wrong length: ", hguid);
        return false;
    }
    if (vguid.Length() != 28) {
        Log("ERROR", kFn,
            "the28CharVguidIn bad format, wrong length: ", QzCat(vguid.Length(), ", vguid=", vguid));
        return false;
    }
    VolumesXmlLock lock(kFn);
    if (!lock.Held()) return false;
    VolumesXml reg;
    switch (ReadVolumesXml(&reg)) {
        case QzFile::ReadStatus::Ok:
            break;
        case QzFile::ReadStatus::Missing:
            Log("NOTE", kFn, "qzvolumes.xml file did not exist, so freshly creating for mount: ", mountPoint);
            break;
        case QzFile::ReadStatus::Malformed:
            Log("ERROR", kFn,
                "qzvolumes.xml could not be parsed, so starting it afresh for mount: ", mountPoint);
            break;
        case QzFile::ReadStatus::Held:
            Log("ERROR", kFn,
                "qzvolumes.xml exists but could not be read, so leaving it as it was, mount: ", mountPoint);
            return false;
    }
    std::vector<QzVolumesXmlEntry>& entries = reg.entries;
    // The new GUID's short id becomes the last one handed out (this follows
    // the wrap from 0xff9 back to 1).
    int64_t shortId = 0;
    if (ParseHex64(vguid.c_str() + 1, 3, &shortId)) reg.lastShortId = shortId;
    QzVolumesXmlEntry* entry = nullptr;
    for (QzVolumesXmlEntry& e : entries)
        if (e.volumeGuid.Equals(vguid)) entry = &e;
    if (!entry) {
        entries.emplace_back();
        entry = &entries.back();
        entry->volumeGuid = vguid;
    }
    entry->mountPoint = mountPoint;
    entry->lastSeenAttachedGmtMillis = QzTime::GetCurrentGmtMillis();
    // The volume is normally attached (it has just been marked): take its type and figures.
    QzVolumeInfo info;
    if (QzFile::GetInfoAboutAttachedVolume(mountPoint, &info)) {
        entry->typeCode[0] = info.typeCode[0];
        entry->typeCode[1] = info.typeCode[1];
        entry->bytesFree = info.bytesFree;
        entry->bytesUsed = info.bytesUsed;
        entry->bytesTotal = info.bytesTotal;
    }
    if (!WriteVolumesXml(reg)) return false;
    Log("INFO", kFn, "successfully added vGuid=", QzCat(vguid, ", for mountPoint=", mountPoint));
    return true;
}

}  // namespace QzUiUtil
