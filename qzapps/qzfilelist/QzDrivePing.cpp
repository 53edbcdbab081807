// The drive ping run before a scan and by -pingdrives_thatare_selectedforbackup.
// Each volume the settings select for backup is woken by writing a small file
// into its marker folder (a sleeping disk spins up before the walk reaches
// it) and its "qzvol_id.xml" is checked. A drive report is logged before and
// after.
//
// Files in the marker folder: "wake_<random>.txt", written, read back and
// deleted at once; "ping_qzfilelist.log", one line per ping, moved to
// "ping_qzfilelist_previous.log" once it passes 64 KiB, so the two together
// never hold more than about 128 KiB.
#include <random>
#include <vector>

#include "QzFile.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzSystem.h"
#include "QzTime.h"
#include "qzfilelist.h"

namespace {

constexpr int64_t kPingLogMaxBytes = 64 * 1024;

struct DrivePing {
    QzString mountPoint;
    QzString vguid;  // as the settings select it
    bool attached = false;
    QzString result;  // token of the marker check, or why the drive was not pinged
};

uint32_t RandomNumber() {
    static std::mt19937 gen{std::random_device{}()};
    return static_cast<uint32_t>(gen() % 1000000000u);
}

QzString Now() {
    QzString s;
    QzTime::AppendLogDateTime(s, QzTime::GetCurrentGmtMillis());
    return s;
}

// The checks of the volume marker, with the drive ping's own tokens.
QzString CheckMarker(const QzString& file, const QzString& expectedVguid) {
    QzString text, vguid;
    const QzFile::ReadStatus status = QzFile::ReadFilePatiently(file.c_str(), &text);
    if (status == QzFile::ReadStatus::Missing) return QzString("no_qzvol_id_xml_file_present");
    if (status != QzFile::ReadStatus::Ok) return QzString("qzvol_id_xml_file_present_but_failed_to_read");
    if (text.Length() < 10) return QzString("qzvol_id_xml_file_present_and_read_but_too_short");
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(text, "vguid", &vguid))
        return QzString("qzvol_id_xml_file_did_not_contain_vguid");
    if (vguid.Length() != 28)
        return QzCat("qzvol_id_xml_file_contained_vguid_but_wrong_length_not_28_chars=", vguid.Length());
    if (!vguid.Equals(expectedVguid)) return QzCat("qzvol_id_xml_file_vguid_is_not_the_selected_one=", vguid);
    return QzString("qzvol_id_xml_ok");
}

bool AppendLine(const QzString& path, const QzString& line) {
    QzOs::Handle h;
    if (QzOs::OpenFile(path.c_str(), QzOs::OpenMode::Append, &h) != QzOs::ErrSuccess) return false;
    const bool ok =
        QzOs::WriteFile(h, line.c_str(), static_cast<uint32_t>(line.Length())) == QzOs::ErrSuccess;
    QzOs::CloseFile(h);
    return ok;
}

// Writes, reads back and deletes a wake file, then notes the ping in the
// folder's ping log. False when the folder could not be written.
bool Wake(const QzString& folder, uint32_t random, const QzString& date) {
    const uint32_t pid = QzSystem::GetProcessId();
    const QzString wake = QzCat(folder, "wake_", random, ".txt");
    const QzString text = QzCat("wake ", date, " processId=", pid, "\n");
    QzString back, err;
    const bool written = QzFile::WriteEntireFile(wake.c_str(), text.c_str(), text.Length()) &&
                         QzFile::ReadEntireFile(wake.c_str(), &back, &err) && back.Equals(text);
    QzFile::DeleteFileIfExists(wake.c_str());
    const QzString log = QzCat(folder, "ping_qzfilelist.log");
    if (QzFile::GetFileSizeInBytes(log.c_str()) > kPingLogMaxBytes)
        QzFile::AtomicMoveFile(log.c_str(), QzCat(folder, "ping_qzfilelist_previous.log").c_str());
    AppendLine(
        log, QzCat(date, " processId=", pid, " random=", random, written ? " woke\n" : " could_not_write\n"));
    return written;
}

void BuildReport(const std::vector<DrivePing>& drives, QzString* reportRet, QzString* abstractRet) {
    int attached = 0, ok = 0;
    reportRet->Clear();
    for (const DrivePing& d : drives) {
        attached += d.attached ? 1 : 0;
        ok += d.result.Equals("qzvol_id_xml_ok") ? 1 : 0;
        reportRet->Append(QzCat("[", d.mountPoint, " ", d.vguid, d.attached ? " attached" : " not_attached",
                                d.result.IsEmpty() ? "" : " ", d.result, "]"));
    }
    if (drives.empty()) reportRet->Set("[none selected]");
    *abstractRet =
        QzCat("selected=", static_cast<long long>(drives.size()), ",attached=", attached, ",markerOk=", ok);
}

}  // namespace

void PingDrivesThatAreSelectedForBackup() {
    const uint32_t pid = QzSystem::GetProcessId();
    QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile();
    std::vector<DrivePing> drives;
    for (const QzSettings::SelectedVolume& sel : QzInfoManager::Settings().selectedVolumes) {
        DrivePing d;
        d.mountPoint = sel.mountPointPath;
        d.vguid = sel.volumeGuid;
        d.attached = QzFile::DirExists(sel.mountPointPath.c_str());
        drives.push_back(d);
    }
    QzString report, abstract;
    BuildReport(drives, &report, &abstract);
    QzLog::WriteLine(QzCat("PingDrivesThatAreSelectedForBackup: (processId=", pid,
                           ") -   before doing anything,  todayDateTimeStr=", Now(),
                           ",     driveReport=", report, "___abstr=", abstract));

    bool allOk = !drives.empty();
    for (DrivePing& d : drives) {
        if (!d.attached) {
            d.result.Set("not_attached");
        } else if (QzOs::GetDriveType(d.mountPoint.c_str()) != QzOs::DriveFixed) {
            d.result.Set("not_a_fixed_drive");
        } else {
            const QzString folder = QzFile::GetQzVolFolderOfVolume(d.mountPoint);
            const uint32_t random = RandomNumber();
            d.result = CheckMarker(QzFile::GetQzVolIdFileOfVolume(d.mountPoint), d.vguid);
            // Only a drive that already has its marker folder is written to.
            const bool woke = QzFile::DirExists(folder.c_str()) && Wake(folder, random, Now());
            QzLog::WriteLine(QzCat("PingDrivesThatAreSelectedForBackup: (processId=", pid,
                                   ") - mountPoint=", d.mountPoint, ", wakeFile=", folder, "wake_", random,
                                   ".txt, random=", random, woke ? ", woke" : ", could not write",
                                   ", result=", d.result));
        }
        allOk = allOk && d.result.Equals("qzvol_id_xml_ok");
    }
    BuildReport(drives, &report, &abstract);
    QzLog::WriteLine(
        QzCat("PingDrivesThatAreSelectedForBackup: (processId=", pid, ") -   after pinging the drives",
              allOk ? ", signConnect=true," : ", signConnect=false,", "  todayDateTimeStr=", Now(),
              ",     driveReport=", report, "___abstr=", abstract));
}
