// Names of the per-volume file lists: the volume GUID makes the name follow
// the volume across drive letters; a four-character mount tag helps people
// reading the folder.
#include <algorithm>
#include <cstddef>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzInfoManager.h"
#include "QzUiUtil.h"
#include "QzUiUtilInternal.h"

using namespace QzUiUtilInternal;

namespace {

constexpr std::size_t kMaxSelectedLists = 1000;

// "c___" for any drive root; otherwise the mount point with "/", "\", ":" and
// "," made "_", padded with underscores and cut to four characters. Bytes of
// multi-byte characters also become "_", so the cut never splits a character.
QzString MountTag(const QzString& mountPoint) {
    const char* m = mountPoint.c_str();
    const bool isLetter = (m[0] >= 'A' && m[0] <= 'Z') || (m[0] >= 'a' && m[0] <= 'z');
    if (mountPoint.Length() == 3 && isLetter && m[1] == ':' && m[2] == '\\') return QzString("c___");
    QzString tag;
    for (int32_t i = 0; i < mountPoint.Length() && tag.Length() < 4; ++i) {
        const char c = m[i];
        const bool replace =
            c == '/' || c == '\\' || c == ':' || c == ',' || (static_cast<unsigned char>(c) & 0x80);
        tag.AppendChar(replace ? '_' : c);
    }
    tag.Append("______");
    tag.Truncate(4);
    return tag;
}

}  // namespace

namespace QzUiUtil {

void GetPerVolumeFileListName(const QzString& vguid, const QzString& mountPoint, QzString* nameRet) {
    if (!nameRet) return;
    *nameRet = QzCat(QzFile::DataPath(QzFile::DataFile::FileListsFolder), "\\", vguid, "_",
                     MountTag(mountPoint), "_filelist.dat");
}

bool GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(std::vector<QzString>* namesRet) {
    constexpr const char* kFn = "GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames";
    if (!namesRet) {
        QzLog::WriteLine(
            "ERROR: QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames"
            "- failed because passed in NULL arg");
        return false;
    }
    namesRet->clear();
    if (!QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile()) {
        Log("ERROR", kFn, "could not read the settings, so no volumes are selected for backup");
        return false;
    }
    std::vector<QzSettings::SelectedVolume> selected = QzInfoManager::Settings().selectedVolumes;
    std::sort(selected.begin(), selected.end(), [](const auto& a, const auto& b) {
        const int byGuid = a.volumeGuid.Compare(b.volumeGuid);
        return byGuid != 0 ? byGuid < 0 : a.mountPointPath.Compare(b.mountPointPath) < 0;
    });
    for (const auto& v : selected) {
        QzString name;
        GetPerVolumeFileListName(v.volumeGuid, v.mountPointPath, &name);
        if (!QzFile::FileExists(name.c_str())) {
            QzLog::WriteLine(QzCat("ERROR: QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList",
                                   "- failed could not find file for selected drive:", v.mountPointPath,
                                   ", vGuid=", v.volumeGuid, ", fileName=", name));
            continue;
        }
        namesRet->push_back(std::move(name));
    }
    if (namesRet->size() > kMaxSelectedLists) {
        Log("WARNING", kFn, "too many volumes selected for backup so truncating list:",
            QzCat(static_cast<unsigned long long>(namesRet->size())));
        namesRet->resize(kMaxSelectedLists);
    }
    return true;
}

}  // namespace QzUiUtil
