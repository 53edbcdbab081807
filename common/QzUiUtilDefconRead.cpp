// Reading "qzreports\qzdefcon.xml": straight from disk with retries while
// another program holds it, or through a five-minute process-wide cache.
#include <cstddef>

#include "QzFile.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileXml.h"
#include "QzOs.h"
#include "QzTime.h"
#include "QzUiUtil.h"
#include "QzUiUtilInternal.h"
#include "QzUtil.h"

using namespace QzUiUtilInternal;

namespace {

constexpr const char* kHitDisk = "QzVolDefcon_HitDisk_ReadQzDefconXmlFile";
constexpr int kReadTries = 20;
constexpr uint32_t kReadPauseMillis = 100;
constexpr int64_t kCacheMillis = 300000;

bool ParseInt32Attr(const QzString& snippet, const char* name, int32_t* valueRet) {
    int64_t v = 0;
    if (!GetDecimalAttr(snippet, name, &v) || v < INT32_MIN || v > INT32_MAX) return false;
    *valueRet = static_cast<int32_t>(v);
    return true;
}

// One "qzvolume" element with all six attributes; logs the first that fails.
bool ParseRecord(const QzString& snippet, std::size_t index, QzVolDefconRecord* r) {
    const char* failed = nullptr;
    QzString hex;
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "qzVolumeGuid", &r->volumeGuid))
        failed = "qzVolumeGuid";
    else if (!QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "mountPointPathHex", &hex) ||
             !QzUtil::AppendHexDecoded(r->mountPoint, hex.c_str(), hex.Length()))
        failed = "mountPointPathHex";
    else if (!ParseInt32Attr(snippet, "vol_defcon_level", &r->defconLevel))
        failed = "vol_defcon_level";
    else if (!ParseInt32Attr(snippet, "vol_last_seen_in_days", &r->lastSeenInDays))
        failed = "vol_last_seen_in_days";
    else if (!ParseInt32Attr(snippet, "vol_last_filelisted_in_days", &r->lastFileListedInDays))
        failed = "vol_last_filelisted_in_days";
    else if (!ParseInt32Attr(snippet, "vol_last_file_pushed_in_days", &r->lastFilePushedInDays))
        failed = "vol_last_file_pushed_in_days";
    if (!failed) return true;
    Log("ERROR", kHitDisk, QzCat("problem parsing ", failed, " for i=").c_str(),
        QzCat(static_cast<unsigned long long>(index), ", xmlSnippet=", snippet));
    return false;
}

struct DefconCache {
    bool filled = false;
    int64_t fillTime = 0;
    int32_t mostCritical = 6;
    std::vector<QzVolDefconRecord> records;
};

DefconCache& Cache() {
    static DefconCache cache;
    return cache;
}

}  // namespace

namespace QzUiUtil {

bool QzVolDefcon_HitDisk_ReadQzDefconXmlFile(std::vector<QzVolDefconRecord>* recordsRet,
                                             int32_t* mostCriticalRet) {
    if (!recordsRet || !mostCriticalRet) return false;
    recordsRet->clear();
    const QzString path = DefconXmlPath();
    QzString text, err;
    QzFile::ReadPolicy policy;
    policy.attempts = kReadTries;
    policy.pauseMillis = kReadPauseMillis;
    const QzFile::ReadStatus status = QzFile::ReadFilePatiently(path.c_str(), &text, policy, &err);
    if (status == QzFile::ReadStatus::Missing) {
        Log("WARNING", kHitDisk, "qzdefcon.xml file did not exist fName=", path);
        return false;
    }
    if (status != QzFile::ReadStatus::Ok) {
        Log("ERROR", kHitDisk, "many tries could not read qzdefcon.xml file but it DOES exist fName=",
            QzCat(path, ", tries=", kReadTries, ", err=", err));
        return false;
    }
    if (text.Length() < 20) {
        Log("ERROR", kHitDisk,
            "read qzdefcon.xml file but too short fName=", QzCat(path, ", numBytes=", text.Length()));
        return false;
    }
    if (!text.Contains("</contents>")) {
        Log("ERROR", kHitDisk,
            "read qzdefcon.xml file but it has no </contents>, so it is truncated fName=", path);
        return false;
    }
    std::vector<QzString> summary;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "volume_defcon_summary",
                                                  &summary);
    int32_t mostCritical = -1;
    if (summary.empty() || !ParseInt32Attr(summary[0], "most_critial_volume_defcon", &mostCritical)) {
        Log("ERROR", kHitDisk, "could not find most_critial_volume_defcon in fName=", path);
        return false;
    }
    if (mostCritical < 0 || mostCritical > 5) {
        Log("ERROR", kHitDisk,
            "most_critial_volume_defcon out_of_range=", QzCat(mostCritical, ", fName=", path));
        return false;
    }
    std::vector<QzString> snippets;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "qzvolume", &snippets);
    if (snippets.empty()) {
        Log("ERROR", kHitDisk, "found no <qzvolume ...> elements in fName=", path);
        return false;
    }
    std::vector<QzVolDefconRecord> records(snippets.size());
    for (std::size_t i = 0; i < snippets.size(); ++i)
        if (!ParseRecord(snippets[i], i, &records[i])) return false;
    *recordsRet = std::move(records);
    *mostCriticalRet = mostCritical;
    return true;
}

bool QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile(int32_t* mostCriticalRet,
                                                         std::vector<QzVolDefconRecord>* recordsRet) {
    if (!mostCriticalRet || !recordsRet) return false;
    recordsRet->clear();
    DefconCache& cache = Cache();
    const int64_t now = QzTime::GetCurrentGmtMillis();
    const int64_t age = now >= cache.fillTime ? now - cache.fillTime : cache.fillTime - now;
    if (!cache.filled || age > kCacheMillis) {
        cache.filled = false;
        if (!QzVolDefcon_HitDisk_ReadQzDefconXmlFile(&cache.records, &cache.mostCritical)) {
            Log("ERROR", "QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile",
                "refresh of cache failed call");
            return false;
        }
        cache.filled = true;
        cache.fillTime = now;
    }
    *mostCriticalRet = cache.mostCritical;
    for (const QzVolDefconRecord& r : cache.records)
        if (r.volumeGuid.Length() >= 28) recordsRet->push_back(r);
    return true;
}

bool QzVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached(QzVolumeInfo* volumeRet,
                                                                   QzVolDefconRecord* recordRet) {
    constexpr const char* kFn = "QzVolDefcon_filelist_DefconIsElevated_AND_DefconVolIsAttached";
    int32_t mostCritical = 6;
    std::vector<QzVolDefconRecord> records;
    if (!QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile(&mostCritical, &records)) {
        Log("ERROR", kFn,
            "called QzUiUtil::QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile which failed");
        return false;
    }
    if (mostCritical >= 5) return false;
    // The longest-unlisted elevated volume that is attached now under its own
    // identity; on equal ages the later record wins.
    const QzVolDefconRecord* best = nullptr;
    QzVolumeInfo bestInfo;
    for (const QzVolDefconRecord& r : records) {
        if (r.defconLevel >= 5 || r.lastFileListedInDays < 8) continue;
        if (best && r.lastFileListedInDays < best->lastFileListedInDays) continue;
        QzVolumeInfo info;
        if (!QzFile::GetInfoAboutAttachedVolume(r.mountPoint, &info) || !info.volumeGuid.Equals(r.volumeGuid))
            continue;
        best = &r;
        bestInfo = std::move(info);
    }
    if (!best) return false;
    if (volumeRet) *volumeRet = std::move(bestInfo);
    if (recordRet) *recordRet = *best;
    return true;
}

}  // namespace QzUiUtil
