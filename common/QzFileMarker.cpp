// The hidden ".qzvol" folder that carries a volume's identity wherever it is
// attached: writing it, the system volume's copy in the data directory
// ("qzvol_system_volume"), its contents simulated from the settings, and the
// clone of the old copy at the system volume's root.
#include <random>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileVolumes.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzInfoXml.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzUtil.h"

namespace QzFile {

namespace {

constexpr const char* kIdFileName = "qzvol_id.xml";
constexpr const char* kReadmeFileName = "README.txt";
// The vendor page a person finding the folder is sent to.
constexpr const char* kHelpLine = "information: https://www.korvatine.com/help/qzvol";

bool IsSeparator(char c) {
    return c == '\\' || c == '/';
}

QzString WithoutOneTrailingSeparator(const QzString& path) {
    QzString p(path);
    if (IsSeparator(p.Last())) p.Truncate(p.Length() - 1);
    return p;
}

// "C:" for "C:\Windows\": the drive part of the Windows directory.
QzString SystemDrive() {
    const QzString& win = GetWindowsDir();
    if (win.Length() >= 2 && win[1] == ':') return QzString(win.c_str(), 2);
    return QzString("C:");
}

uint32_t RandomNumber() {
    static std::mt19937 gen{std::random_device{}()};
    return static_cast<uint32_t>(gen() % 1000000000u);
}

QzString ReadmeAttributeText(bool systemVolume, const QzString& mountPoint) {
    if (!systemVolume)
        return QzString("WARNING: deleting this file will stop Korvatine from backing up this drive volume");
    return QzCat("WARNING: deleting this file will stop Korvatine from backing up the System Volume (",
                 mountPoint, ")");
}

QzString BuildIdXml(const QzString& readme, const QzString& vguid, const QzString& hguid) {
    QzString t("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<readme txt=\"");
    QzUtil::AppendXmlEscaped(t, readme);
    t.Append("\" />\n<qzvolume vguid=\"");
    QzUtil::AppendXmlEscaped(t, vguid);
    t.Append("\" associated_hguid=\"");
    QzUtil::AppendXmlEscaped(t, hguid);
    t.Append("\" />\n</contents>\n");
    return t;
}

// Four lines for people; CR LF so that every Windows editor shows them as lines.
QzString BuildReadme(bool systemVolume, const QzString& mountPoint) {
    QzString t("WARNING: do not delete this directory or these files.  If you do,\r\n");
    if (systemVolume) {
        t.Append(QzCat("Korvatine will stop backing up the System Drive Volume (", mountPoint,
                       ") and also remove \r\n"));
    } else {
        t.Append("Korvatine will stop backing up this drive volume and also remove \r\n");
    }
    t.Append("any previously backed up files from the Korvatine datacenter.  More\r\n");
    t.Append(kHelpLine);
    t.Append("\r\n");
    return t;
}

// Writes to `path` + ".tmp" and moves that over `path`; a non-zero
// lastWriteTime (a Win32 file time) is kept as the file's modification time.
bool WriteWhole(const QzString& path, const QzString& text, int64_t lastWriteTime = 0) {
    ReplacePolicy policy;
    policy.lastWriteTime = lastWriteTime;
    return WriteFileAtomically(path, text, policy);
}

// The modification time of a file as a Win32 file time; 0 when unknown.
int64_t LastWriteTimeOf(const QzString& path) {
    QzOs::FileAttrData d;
    return QzOs::GetFileAttributesEx(path.c_str(), &d) == QzOs::ErrSuccess ? d.lastWriteTime : 0;
}

// Creates a folder and makes it hidden; an existing folder is left as it is.
bool CreateHiddenDirIfMissing(const QzString& path) {
    if (DirExists(path.c_str())) return true;
    const uint32_t err = QzOs::CreateDirectory(path.c_str());
    if (err != QzOs::ErrSuccess && !DirExists(path.c_str())) {
        QzLog::WriteLine(QzCat(
            "ERROR: QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume could not create folder errNum=", err,
            ", path=", path));
        return false;
    }
    const QzString longForm = QzCat("\\\\?\\", path);
    const uint32_t hideErr = QzOs::SetFileHidden(longForm.c_str(), true);
    if (hideErr != QzOs::ErrSuccess)
        QzLog::WriteLine(QzCat("ERROR: SetFileAttributes to hidden failed:", longForm, ", errNum=", hideErr));
    return true;
}

// Renames an existing "qzvol_id.xml" to a free set-aside name (up to 9 random
// names) and deletes it there, so that the new file never mixes with the old.
bool SetAsideOldIdFile(const QzString& idFile) {
    for (int attempt = 0; attempt < 9; ++attempt) {
        const QzString aside = QzCat(idFile, ".aside", RandomNumber(), ".xml");
        if (PathExists(aside.c_str())) continue;
        if (!AtomicMoveFile(idFile.c_str(), aside.c_str())) continue;
        if (!DeleteFileIfExists(aside.c_str()))
            QzLog::WriteLine(
                QzCat("WARNING: QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume could not delete ", aside));
        return true;
    }
    return false;
}

bool Fail(QzString& token, const QzString& why, const QzString& mountPoint) {
    token = why;
    QzLog::WriteLine(QzCat("ERROR: QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume failed ", why,
                           ", mountPoint=", mountPoint));
    return false;
}

}  // namespace

bool IsSystemBootVolume(const QzString& mountPoint) {
    const QzString p = WithoutOneTrailingSeparator(mountPoint);
    return p.Length() == 2 && p.EqualsIgnoreCase(SystemDrive().c_str());
}

QzString GetQzVolFolderOfVolume(const QzString& mountPoint) {
    if (IsSystemBootVolume(mountPoint)) return QzCat(DataPath(DataFile::SystemVolumeMarkerFolder), "\\");
    return QzCat(WithoutOneTrailingSeparator(mountPoint), "\\.qzvol\\");
}

QzString GetQzVolIdFileOfVolume(const QzString& mountPoint) {
    return QzCat(GetQzVolFolderOfVolume(mountPoint), kIdFileName);
}

bool WriteVolumeGuidIntoDotQzVolDirOnVolume(const QzString& mountPoint, const QzString& vguid,
                                            const QzString& associatedHguid, QzString* errTokenRet) {
    QzString ignored;
    QzString& token = errTokenRet ? *errTokenRet : ignored;
    token.Clear();
    if (mountPoint.IsEmpty()) return Fail(token, "ERR_NullMountPointIn", mountPoint);
    if (vguid.IsEmpty()) return Fail(token, "ERR_NullVguid", mountPoint);
    if (associatedHguid.IsEmpty()) return Fail(token, "ERR_NullAssociatedHguid", mountPoint);
    if (vguid.Length() != 28)
        return Fail(token, QzCat("ERR_Vguid_wrong_length=", vguid.Length()), mountPoint);
    if (associatedHguid.Length() != 24)
        return Fail(token, QzCat("ERR_AssociatedHguid_wrong_length=", associatedHguid.Length()), mountPoint);
    // 24 nines mean "host unknown"; written into a marker they would claim the
    // volume for no machine at all.
    if (associatedHguid.Equals(kUnknownHostGuid))
        return Fail(token, "ERR_AssociatedHguid_is_unknown_999", mountPoint);

    const bool systemVolume = IsSystemBootVolume(mountPoint);
    const QzString folder = GetQzVolFolderOfVolume(mountPoint);
    if (systemVolume) {
        if (!CreateDirectoryRecursive(folder.c_str()))
            return Fail(token, "could_not_create_qzdata_qzvol_dir", mountPoint);
    } else {
        if (!CreateHiddenDirIfMissing(WithoutOneTrailingSeparator(folder)))
            return Fail(token, "could_not_create_hidden_qzvol_top_dir", mountPoint);
        if (!CreateHiddenDirIfMissing(QzCat(folder, "qzscratch")))
            return Fail(token, "could_not_create_hidden_qzscratch_dir", mountPoint);
        if (!CreateHiddenDirIfMissing(QzCat(folder, "qzcurrentlargefile")))
            return Fail(token, "could_not_create_hidden_qzcurrentlargefile_dir", mountPoint);
    }

    const QzString idFile = QzCat(folder, kIdFileName);
    if (PathExists(idFile.c_str()) && !SetAsideOldIdFile(idFile))
        return Fail(token, "could_not_move_aside_prev_qzvol_id_file", mountPoint);

    QzString root = QzCat(WithoutOneTrailingSeparator(mountPoint), "\\");
    if (root.Length() == 3 && root[1] == ':' && root[0] >= 'a' && root[0] <= 'z')
        root = QzCat(static_cast<char>(root[0] - 'a' + 'A'), ":\\");  // "c:" is shown as "C:\"
    if (!WriteWhole(QzCat(folder, kReadmeFileName), BuildReadme(systemVolume, root)) ||
        !WriteWhole(idFile, BuildIdXml(ReadmeAttributeText(systemVolume, root), vguid, associatedHguid))) {
        return Fail(token, "could_not_write_out_qzvol_id_file", mountPoint);
    }
    QzLog::WriteLine(QzCat("SUCCESS: QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume wrote vguid=", vguid,
                           ", associated_hguid=", associatedHguid, ", fileName=", idFile));
    return true;
}

bool GetSimulatedRootVolumeContents_qzvol_id_xml(QzString* textRet) {
    if (!textRet) return false;
    textRet->Clear();
    const char* const fn = "QzFile::GetSimulatedRootVolumeContents_qzvol_id_xml";
    const QzString qzinfo = QzInfoManager::QzInfoXmlPath();
    ReadPolicy policy;
    policy.pauseMillis = 200;
    policy.onFailedAttempt = [&](int iteration, const QzString& err) {
        QzLog::WriteLine(QzCat("WARNING: ", fn,
                               " qzinfo.xml file exists but having trouble reading it iteration=", iteration,
                               ", errStr=", err));
    };
    QzString content;
    const ReadStatus status = QzInfoManager::ReadQzInfoXmlText(qzinfo, &content, policy);
    if (status == ReadStatus::Missing) {
        QzLog::WriteLine(QzCat("WARNING: ", fn, " qzinfo.xml file does not exist here=", qzinfo,
                               ", which is normal in the installer, but bad any other time."));
        return false;
    }
    if (status != ReadStatus::Ok) return false;

    const QzString root = QzCat(SystemDrive(), "\\");
    QzString vguid;
    bool found = false;
    for (const QzInfoManager::QzInfoVolumeRef& ref :
         QzInfoManager::GetVolumeRefs(content, QzInfoManager::kSelectedVolume)) {
        if (ref.hasMount && ref.hasGuid && QzInfoManager::SameMountPoint(ref.mountPoint, root)) {
            vguid = ref.vguid;
            found = true;
            break;
        }
    }
    if (!found) {
        QzLog::WriteLine(
            QzCat("ERROR: ", fn, " found no qzvolume with mountPointPath=", root, " in ", qzinfo));
        return false;
    }
    if (!vguid.StartsWith("v")) {
        QzLog::WriteLine(
            QzCat("ERROR: ", fn, " qzVolumeGuid=", vguid, " does not start with a v char, so not using it"));
        return false;
    }
    const QzString& hguid = GetMyHostGuid();
    if (hguid.Equals(kUnknownHostGuid)) {
        QzLog::WriteLine(
            QzCat("ERROR: ", fn, " this machine's hguid is unknown (", hguid, "), so not simulating"));
        return false;
    }
    *textRet = BuildIdXml(
        "WARNING: deleting this file will stop Korvatine from backing up this drive volume.", vguid, hguid);
    return true;
}

bool CloneQzVolFolderOfSystemVolumeIntoDataDir_IfNeeded() {
    const char* const fn = "QzFile::CloneQzVolFolderOfSystemVolumeIntoDataDir_IfNeeded";
    const QzString folder = QzCat(DataPath(DataFile::SystemVolumeMarkerFolder), "\\");
    const QzString dstId = QzCat(folder, kIdFileName);
    const QzString dstReadme = QzCat(folder, kReadmeFileName);
    if (FileExists(dstId.c_str())) {
        QzLog::WriteLine(QzCat("INFO: ", fn, " already present, nothing to clone, dst=", dstId));
        return true;
    }
    if (!CreateDirectoryRecursive(folder.c_str())) {
        QzLog::WriteLine(QzCat("ERROR: ", fn, " could not create folder dst=", folder));
        return false;
    }
    const QzString root = QzCat(SystemDrive(), "\\");
    const QzString oldFolder = QzCat(root, ".qzvol\\");
    const QzString srcId = QzCat(oldFolder, kIdFileName);
    const QzString srcReadme = QzCat(oldFolder, kReadmeFileName);

    // A copy keeps its original's modification time: whether the stored host
    // identifier is newer than this install is judged by it.
    QzString idText, readmeText, err, source;
    int64_t idTime = 0, readmeTime = 0;
    const ReadStatus status = ReadFilePatiently(srcId.c_str(), &idText, {}, &err);
    if (status == ReadStatus::Held) {
        QzLog::WriteLine(
            QzCat("ERROR: ", fn, " could not read src=", srcId, ", errStr=", err, ", dst=", dstId));
        return false;
    }
    if (status == ReadStatus::Ok) {
        idTime = LastWriteTimeOf(srcId);
        if (ReadFilePatiently(srcReadme.c_str(), &readmeText) == ReadStatus::Ok)
            readmeTime = LastWriteTimeOf(srcReadme);
        else
            readmeText = BuildReadme(true, root);
        source = srcId;
    } else {
        if (!GetSimulatedRootVolumeContents_qzvol_id_xml(&idText)) {
            QzLog::WriteLine(
                QzCat("ERROR: ", fn, " no src=", srcId, " and could not simulate it, dst=", dstId));
            return false;
        }
        readmeText = BuildReadme(true, root);
        source = QzCat("simulated from ", QzInfoManager::QzInfoXmlPath());
    }
    if (!WriteWhole(dstReadme, readmeText, readmeTime) || !WriteWhole(dstId, idText, idTime)) {
        QzLog::WriteLine(QzCat("ERROR: ", fn, " could not write dst=", dstId, ", src=", source));
        return false;
    }
    QzLog::WriteLine(QzCat("SUCCESS: ", fn, " src=", source, ", dst=", dstId));
    return true;
}

}  // namespace QzFile
