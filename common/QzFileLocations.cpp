// Where the client is installed, where its data lives, and which machine this
// is. Each is worked out once per process, with fallbacks that let a run go on
// when the installer's record is missing or damaged.
#include "QzFileLocations.h"

#include "QzFile.h"
#include "QzFileXml.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzSystem.h"

namespace QzFile {

namespace {

struct Locations {
    bool haveWindows = false, haveProgramFiles = false, haveInstall = false, haveData = false,
         haveHguid = false;
    QzString windowsDir, programFilesDir, installDir, dataDir, hguid;
};

Locations& Cache() {
    static Locations* c = new Locations;
    return *c;
}

void StripOneTrailingSeparator(QzString& s) {
    if (s.Length() > 0 && (s.Last() == '\\' || s.Last() == '/')) s.Truncate(s.Length() - 1);
}

QzString ComputeInstallDir() {
    QzString dir;
    QzSystem::ReadRegistryValue("HKLM/Software/Korvatine/installdir", &dir);
    if (dir.Length() < 3) QzSystem::ReadRegistryValue("HKLM/Software/Wow6432Node/Korvatine/installdir", &dir);
    if (dir.Length() < 3) dir = QzCat(GetProgramFilesDir(), "\\Korvatine\\");
    StripOneTrailingSeparator(dir);
    dir.AppendChar('\\');
    return dir;
}

QzString ComputeDataDir() {
    const QzString descriptor = GetInstallDescriptorPath();
    QzString dir;
    if (FileExists(descriptor.c_str()) && GetUniqueStrAttrFromXmlFile(descriptor.c_str(), "datadir", &dir) &&
        dir.Length() > 0) {
        StripOneTrailingSeparator(dir);
        dir.AppendChar('\\');
        return dir;
    }
    QzString common;
    if (QzOs::GetCommonAppDataDirectory(&common) != QzOs::ErrSuccess) {
        // Without the shell's answer the data lives one level up, with no
        // "qzdata" folder; existing installs rely on this.
        return QzString("C:\\ProgramData\\Korvatine\\");
    }
    if (common.Length() < 2) common.Set("C:\\ProgramData");
    return QzCat(common, "\\Korvatine\\qzdata\\");
}

QzString ComputeHostGuid() {
    const QzString descriptor = GetInstallDescriptorPath();
    QzString hguid;
    if (!GetUniqueStrAttrFromXmlFile(descriptor.c_str(), "hguid", &hguid) || hguid.Length() != 24) {
        QzLog::WriteLine(
            QzCat("ERROR: QzFile_Internal_Only_GetMyHostGuid - failed to get correct hguid from "
                  "qzinstall.xml, ",
                  "falling back to ", kUnknownHostGuid));
        hguid.Set(kUnknownHostGuid);
    }
    return hguid;
}

// Computes a cached value on first use. One location is built from another,
// so the computation may itself fill other entries of the cache.
const QzString& Cached(bool Locations::*have, QzString Locations::*value, QzString (*compute)()) {
    Locations& c = Cache();
    if (!(c.*have)) {
        c.*value = compute();
        c.*have = true;
    }
    return c.*value;
}

}  // namespace

QzString GetInstallDescriptorPath() {
    return QzCat(GetInstallDir(), "qzinstall.xml");
}

const QzString& GetWindowsDir() {
    return Cached(&Locations::haveWindows, &Locations::windowsDir, [] {
        QzString dir;
        if (QzOs::GetWindowsDirectory(&dir) != QzOs::ErrSuccess || dir.Length() < 2)
            return QzString("C:\\Windows\\");
        StripOneTrailingSeparator(dir);
        dir.AppendChar('\\');
        return dir;
    });
}

const QzString& GetProgramFilesDir() {
    return Cached(&Locations::haveProgramFiles, &Locations::programFilesDir, [] {
        QzString dir;
        if (QzOs::GetProgramFilesDirectory(&dir) != QzOs::ErrSuccess || dir.Length() < 2)
            return QzString("C:\\Program Files");
        return dir;
    });
}

const QzString& GetInstallDir() {
    return Cached(&Locations::haveInstall, &Locations::installDir, ComputeInstallDir);
}
const QzString& GetDataDir() {
    return Cached(&Locations::haveData, &Locations::dataDir, ComputeDataDir);
}
const QzString& GetMyHostGuid() {
    return Cached(&Locations::haveHguid, &Locations::hguid, ComputeHostGuid);
}

void ResetLocationCachesForTesting() {
    Locations& c = Cache();
    c.haveWindows = c.haveProgramFiles = c.haveInstall = c.haveData = c.haveHguid = false;
}

}  // namespace QzFile
