// The attached-volume enumeration as the registry and alert-level code call it.
#include "QzFileVolumes.h"
#include "QzUiUtil.h"

namespace QzUiUtil {

bool QueryAllAttachedVolumesForVolumeInfo(std::vector<QzVolumeInfo>* volumesRet) {
    return QzFile::QueryAllAttachedVolumesForVolumeInfo(volumesRet);
}

}  // namespace QzUiUtil
