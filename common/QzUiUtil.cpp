#include "QzUiUtil.h"

#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileXml.h"
#include "QzLog.h"

namespace QzUiUtil {

bool Installer_GetThisMachinesHguid(QzString* hguidRet) {
    hguidRet->Clear();
    const QzString descriptor = QzFile::GetInstallDescriptorPath();
    if (!QzFile::FileExists(descriptor.c_str())) {
        QzLog::WriteLine(QzCat("In QzUiUtil::Installer_GetThisMachinesHguid no qzinstall.xml",
                               "so probably a fresh install"));
        return false;
    }
    if (!QzFile::GetUniqueStrAttrFromXmlFile(descriptor.c_str(), "hguid", hguidRet) || hguidRet->IsEmpty()) {
        QzLog::WriteLine(QzCat("ERROR: In QzUiUtil::Installer_GetThisMachinesHguid found",
                               "qzinstall.xml but could not find hguid"));
        hguidRet->Clear();
        return false;
    }
    return true;
}

}  // namespace QzUiUtil
