// Feeds arbitrary bytes to the volume marker reader as "T:\.qzvol\qzvol_id.xml".
// The volume is used with the identifiers exactly when the marker holds a
// 28-character "vguid" and a 24-character "associated_hguid" (as the
// documented attribute reading finds them); otherwise both stay empty and the
// reason is given. The marker itself is never changed by reading it.
#include <cstdint>
#include <optional>
#include <string>

#include "FuzzMachine.h"
#include "QzFileVolumes.h"
#include "QzVolumeInfo.h"

using FuzzMachine::Attr;
using FuzzMachine::Check;
using FuzzMachine::View;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in;
    if (!FuzzMachine::PlaceInput(data, size, ".qzvol/qzvol_id.xml", &in)) return 0;
    QzVolumeInfo info;
    Check(QzFile::GetInfoAboutAttachedVolume(QzString("T:\\"), &info), "the scratch volume is not attached");
    Check(FuzzMachine::ReadT(".qzvol/qzvol_id.xml") == in, "reading the marker changed it");

    const std::optional<std::string_view> vguid = Attr(in, "vguid");
    const std::optional<std::string_view> hguid = Attr(in, "associated_hguid");
    const bool usable = size >= 10 && vguid && vguid->size() == 28 && hguid && hguid->size() == 24;
    if (!usable) {
        Check(info.volumeGuid.IsEmpty() && info.associatedHguid.IsEmpty(),
              "an unusable marker gave an identity");
        Check(!info.markerError.IsEmpty(), "an unusable marker without a reason");
        return 0;
    }
    Check(info.markerError.IsEmpty(), "a usable marker was refused", View(info.markerError));
    Check(View(info.volumeGuid) == *vguid, "volume identifier differs from the marker");
    Check(View(info.associatedHguid) == *hguid, "host identifier differs from the marker");
    return 0;
}
