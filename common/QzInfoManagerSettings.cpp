// The user's settings from "qzinfo.xml", as the client's control panel wrote
// them: every value is an attribute looked up by name in the whole text, and
// repeated elements are cut out as snippets.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileXml.h"
#include "QzInfoManager.h"
#include "QzInfoXml.h"
#include "QzLog.h"
#include "QzOs.h"

namespace QzInfoManager {

namespace {

QzSettings& Mutable() {
    static QzSettings* settings = new QzSettings;
    return *settings;
}
bool g_loaded = false;

// The largest "max_filesize_mb" kept: the value "none" stands for. Anything
// larger means no limit just as well, and the scan's shift to bytes stays far
// from overflowing.
constexpr int64_t kMaxFileSizeMbNoLimit = 1000000000;

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

// A whole value as a decimal integer: optional blanks, optional sign, digits,
// optional blanks, nothing else. Values too large for 64 bits saturate,
// which every caller clamps anyway.
bool ParseDecimal(const QzString& text, int64_t* valueRet) {
    const char* p = text.c_str();
    while (IsBlank(*p)) ++p;
    const bool negative = *p == '-';
    if (*p == '-' || *p == '+') ++p;
    if (*p < '0' || *p > '9') return false;
    int64_t v = 0;
    for (; *p >= '0' && *p <= '9'; ++p) v = v > (INT64_MAX - 9) / 10 ? INT64_MAX : v * 10 + (*p - '0');
    while (IsBlank(*p)) ++p;
    if (*p) return false;
    *valueRet = negative ? -v : v;
    return true;
}

bool IsLowerHex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}
bool IsLowerAlnum(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z');
}

// A mount point path names a drive root or a folder on a drive: "X:\...".
bool IsWellFormedMountPoint(const QzString& path) {
    if (path.Length() < 3 || path[1] != ':' || path[2] != '\\') return false;
    const char letter = static_cast<char>(path[0] & ~0x20);
    return letter >= 'A' && letter <= 'Z';
}

class Reader {
public:
    explicit Reader(const QzString& text) : text_(text) {}
    // The attribute's value; false when the attribute is missing.
    bool Get(const char* name, QzString* valueRet) const {
        return QzFile::GetUniqueStrAttrFromXmlSnippet(text_, name, valueRet);
    }
    bool Flag(const char* name, bool byDefault, const char* on1, const char* on2 = nullptr) const {
        QzString v;
        if (!Get(name, &v)) return byDefault;
        return v.Equals(on1) || (on2 && v.Equals(on2));
    }
    void Text(const char* name, QzString* out) const {
        QzString v;
        if (Get(name, &v)) *out = v;
    }
    std::vector<QzString> Elements(const char* tag) const {
        std::vector<QzString> snippets;
        QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text_.c_str(), text_.Length(), tag, &snippets);
        return snippets;
    }

private:
    const QzString& text_;
};

void ReadScalars(const Reader& r, QzSettings& s) {
    QzString v;
    int64_t n = 0;
    // Compared unsigned on purpose: a negative count is huge and clamps to 7.
    if (r.Get("numdays_warn_if_no_backup", &v))
        s.numDaysWarnIfNoBackup = ParseDecimal(v, &n) && n >= 0 && n <= 7 ? static_cast<uint32_t>(n) : 7;
    s.allowNetworkTests = r.Flag("allow_network_tests", false, "t");
    s.useTimeMachineExcludes = r.Flag("use_time_machine_excludes", false, "true", "t");
    s.showHelpTips = r.Flag("show_help_tips", false, "true", "t");
    s.lockSchedule = r.Flag("lock_schedule", false, "true", "t");
    s.lockExclusion = r.Flag("lock_exclusion", false, "true", "t");
    s.lockPEK = r.Flag("lock_PEK", false, "true", "t");
    if (!r.Get("backup_schedule_type", &v))
        s.backupScheduleType = 1;  // a settings file without the attribute
    else if (v.Equals("once_per_day"))
        s.backupScheduleType = 2;
    else if (v.Equals("only_when_click_backup_now"))
        s.backupScheduleType = 3;
    else
        s.backupScheduleType = 0;  // continuously, when_files_change, when_idle, or unknown
    r.Text("backup_schedule_detail", &s.backupScheduleDetail);
    r.Text("backup_schedule_end_hour", &s.backupScheduleEndHour);
    r.Text("online_hostname", &s.onlineHostname);
    r.Text("qzlogin", &s.qzLogin);
    r.Text("online_hostname_updated", &s.onlineHostnameUpdated);
    if (r.Get("excludefiletypes", &v)) {
        // Read as the rules made from it read it (which log what they skip).
        for (int32_t start = 0; start <= v.Length();) {
            int32_t comma = v.Find(",", start);
            if (comma < 0) comma = v.Length();
            QzString ext;
            if (ExtensionFromListEntry(QzString(v.c_str() + start, comma - start), &ext))
                s.excludeFileTypes.push_back(std::move(ext));
            start = comma + 1;
        }
    }
    r.Text("scratch_mountpoint", &s.scratchMountpoint);
    r.Text("scratch_vol_guid", &s.scratchVolGuid);
    if (r.Get("max_filesize_mb", &v)) {
        if (v.Equals("none")) {
            s.maxFileSizeMb = kMaxFileSizeMbNoLimit;
        } else if (ParseDecimal(v, &n) && n > kMaxFileSizeMbNoLimit) {
            QzLog::WriteLine(QzCat("WARNING: ReadControlPanelSettingsFromQzInfoXmlFile - max_filesize_mb=", v,
                                   " is more than any disk holds, keeping ", kMaxFileSizeMbNoLimit,
                                   " (no limit)"));
            s.maxFileSizeMb = kMaxFileSizeMbNoLimit;
        } else if (ParseDecimal(v, &n) && n >= 0) {
            s.maxFileSizeMb = n;
        } else {
            QzLog::WriteLine(QzCat("WARNING: ReadControlPanelSettingsFromQzInfoXmlFile - max_filesize_mb=", v,
                                   " is not a number, keeping ", s.maxFileSizeMb));
        }
    }
    s.backupOnBattery = r.Flag("backup_on_battery", false, "true", "t");
    s.netAutoThrottle = !r.Flag("net_auto_throttle", false, "false", "f");
    r.Text("net_throttle", &s.netThrottle);
    if (!s.netAutoThrottle && r.Get("num_backup_threads", &v) && !v.Equals("none")) {
        const bool ok = ParseDecimal(v, &n) && n >= 1 && n <= 200;
        s.numBackupThreads = ok ? static_cast<int>(n) : 8;
    }
    r.Text("smartwatchfilesets", &s.smartWatchFileSets);
}

void ReadBlockedNetworks(const Reader& r, QzSettings& s) {
    constexpr int32_t kMinName = 1;  // any non-empty network name
    constexpr int32_t kMinMac = 12;  // six bytes as hexadecimal, separators optional
    const char* const prefix = "ERROR: ReadControlPanelSettingsFromQzInfoXmlFile - bad XML with ";
    for (const QzString& snippet : r.Elements("qzblocked_network")) {
        QzString name, mac;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "blocked_network_name", &name)) {
            QzLog::WriteLine(QzCat(prefix, "no blocked_network_name=", snippet));
        } else if (!QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "blocked_network_mac_addr", &mac)) {
            QzLog::WriteLine(QzCat(prefix, "no blocked_network_mac_addr=", snippet));
        } else if (name.Length() < kMinName) {
            QzLog::WriteLine(QzCat(prefix, "too short blocked_network_name=", name));
        } else if (mac.Length() < kMinMac) {
            QzLog::WriteLine(QzCat(prefix, "too short blocked_network_mac_addr=", mac));
        } else {
            s.blockedNetworkNames.push_back(name);
            s.blockedNetworkMacAddrs.push_back(mac);
        }
    }
}

void ReadSelectedVolumes(const Reader& r, QzSettings& s) {
    const std::vector<QzString> snippets = r.Elements("qzvolume");
    if (snippets.empty()) {
        QzLog::WriteLine(QzCat("ERROR: ReadControlPanelSettingsFromQzInfoXmlF,",
                               "found no <qzvolume ... /> tags in qzinfo.xml which is bad."));
    }
    for (const QzString& snippet : snippets) {
        QzString vguid, mount;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "qzVolumeGuid", &vguid)) {
            QzLog::WriteLine(QzCat("ERROR: bogus <qzvolume ... /> tag in qzinfo.xml no vGuid:", snippet));
            continue;
        }
        if (!IsWellFormedVolumeGuid(vguid)) {
            QzLog::WriteLine(QzCat("ERROR: bogus <qzvolume ... /> tag in qzinfo.xml bad vGuid:", snippet));
            continue;
        }
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(snippet, "mountPointPath", &mount)) {
            QzLog::WriteLine(QzCat("ERROR: bogus <qzvolume ... /> tag in qzinfo.xml no mnt:", snippet));
            continue;
        }
        if (!IsWellFormedMountPoint(mount)) {
            QzLog::WriteLine(QzCat("ERROR: bogus <qzvolume ... /> tag in qzinfo.xml bad mnt:", snippet));
            continue;
        }
        bool dup = false;
        for (const QzSettings::SelectedVolume& earlier : s.selectedVolumes)
            dup = dup || (earlier.volumeGuid.Equals(vguid) &&
                          earlier.mountPointPath.EqualsIgnoreCase(mount.c_str()));
        if (dup) {
            QzLog::WriteLine(QzCat("ERROR: QzInfoManager::ReadControlPanelSettings",
                                   "FromQzInfoXmlFile - removing dup qzvolume qzVolGuid=", vguid,
                                   ", mountPoint=", mount));
            continue;
        }
        s.selectedVolumes.push_back({vguid, mount});
    }
}

}  // namespace

bool IsWellFormedVolumeGuid(const QzString& vguid) {
    if (vguid.Length() != 28 || vguid[0] != 'v') return false;
    for (int32_t i = 1; i < 4; ++i)
        if (!IsLowerHex(vguid[i])) return false;  // the short id
    for (int32_t i = 4; i < 28; ++i)
        if (!IsLowerAlnum(vguid[i])) return false;  // machine and time parts
    return true;
}

const QzSettings& Settings() {
    return Mutable();
}

bool ReadControlPanelSettingsFromQzInfoXmlFile() {
    QzSettings& s = Mutable();
    s = QzSettings();
    g_loaded = true;
    const QzString path = QzInfoXmlPath();
    QzString text;
    const QzFile::ReadStatus status = ReadQzInfoXmlText(path, &text);
    if (status == QzFile::ReadStatus::Missing) {
        QzLog::WriteLine(QzCat("WARNING: qzinfo.xml file does not exist here=", path,
                               ", which is normal in the installer, but bad any other time."));
        return false;
    }
    if (status != QzFile::ReadStatus::Ok) {
        QzLog::WriteLine(QzCat("ERROR: could not read qzinfo.xml file from disk 1:", path));
        return false;
    }
    const Reader r(text);
    ReadScalars(r, s);
    ReadBlockedNetworks(r, s);
    ReadSelectedVolumes(r, s);
    ParseQzInfoForFilesToWatch(path, text, &s.filesToWatch);
    return true;
}

bool GetVolumesSelectedForBackup(std::vector<QzVolumeInfo>* volumesRet) {
    if (!volumesRet) return false;
    volumesRet->clear();
    if (!g_loaded) ReadControlPanelSettingsFromQzInfoXmlFile();
    std::vector<QzVolumeInfo> attached;
    if (!QzFile::QueryAllAttachedVolumesForVolumeInfo(&attached)) {
        QzLog::WriteLine(
            "ERROR: QzInfoManager::GetVolumesSelectedForBackup - "
            "QzFile::QueryAllAttachedVolumesForVolumeInfo failed");
        return false;
    }
    for (const QzVolumeInfo& v : attached) {
        for (const QzSettings::SelectedVolume& sel : Settings().selectedVolumes) {
            if (v.volumeGuid.Equals(sel.volumeGuid) &&
                v.mountPoint.EqualsIgnoreCase(sel.mountPointPath.c_str())) {
                volumesRet->push_back(v);
                break;
            }
        }
    }
    // Only fixed drives, with or without content, are backed up.
    for (size_t i = 0; i < volumesRet->size();) {
        const QzVolumeInfo& v = (*volumesRet)[i];
        const bool fixed = v.driveType == QzOs::DriveFixed &&
                           (QzString(v.typeCode).Equals("gm") || QzString(v.typeCode).Equals("em"));
        if (fixed) {
            ++i;
            continue;
        }
        QzLog::WriteLine(QzCat("ERROR: QzInfoManager::GetVolumesSelectedForBackup - found a",
                               "drive selected for backup and attached but bad drive type of:", v.typeCode,
                               ", so removing from the return list, mountPointPath=", v.mountPoint));
        volumesRet->erase(volumesRet->begin() + static_cast<std::ptrdiff_t>(i));
    }
    return true;
}

}  // namespace QzInfoManager
