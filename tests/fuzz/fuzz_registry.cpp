// Feeds arbitrary bytes to the volume registry reader as "qzvolumes.xml".
// A registry the reader takes must come back the same after the writer has
// written it and the reader has read it again (values holding a character the
// writer escapes excepted: values are never decoded on reading), and a
// registry it refuses must leave no entry behind.
#include <cstdint>
#include <cstring>
#include <vector>

#include "FuzzMachine.h"
#include "QzUiUtil.h"

using FuzzMachine::Check;
using FuzzMachine::View;

namespace {

bool Escapable(std::string_view s) {
    return s.find_first_of("<>&\"'") != std::string_view::npos;
}

bool Same(const QzVolumesXmlEntry& a, const QzVolumesXmlEntry& b) {
    return View(a.volumeGuid) == View(b.volumeGuid) && View(a.mountPoint) == View(b.mountPoint) &&
           std::strcmp(a.typeCode, b.typeCode) == 0 &&
           a.lastSeenAttachedGmtMillis == b.lastSeenAttachedGmtMillis && a.bytesFree == b.bytesFree &&
           a.bytesUsed == b.bytesUsed && a.bytesTotal == b.bytesTotal;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in;
    if (!FuzzMachine::PlaceInput(data, size, "qzvolumes.xml", &in)) return 0;
    std::vector<QzVolumesXmlEntry> first;
    int64_t lastId = -1;
    const bool ok = QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&first, &lastId);
    if (!ok) {
        Check(first.empty() && lastId == 0, "a refused registry gave entries or a counter");
        return 0;
    }
    Check(in.find("</contents>") != std::string_view::npos, "a registry without its end tag was taken");
    for (const QzVolumesXmlEntry& e : first) {
        Check(e.volumeGuid.Length() == 28, "an identifier of the wrong length was taken", View(e.volumeGuid));
        Check(
            e.mountPoint.Length() >= 2 && std::strlen(e.mountPoint.c_str()) == size_t(e.mountPoint.Length()),
            "a mount point that cannot be a path was taken", View(e.mountPoint));
    }

    Check(QzUiUtil::QzVolumesXml_WriteQzVolumesXmlFile(first, lastId), "the registry could not be written");
    std::vector<QzVolumesXmlEntry> second;
    int64_t lastId2 = -1;
    const bool ok2 = QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&second, &lastId2);
    // Values are read as the text up to the next quote after the first "name="
    // and never decoded: an identifier holding "=" or an escaped character is
    // not expected back. Real identifiers are 28 letters and digits.
    bool plain = true;
    for (const QzVolumesXmlEntry& e : first)
        plain = plain && !Escapable(View(e.volumeGuid)) &&
                View(e.volumeGuid).find('=') == std::string_view::npos && !Escapable(e.typeCode);
    if (!plain) return 0;
    if (!ok2)
        FuzzMachine::Fail("the reader refused what the writer wrote", FuzzMachine::ReadT("qzvolumes.xml"));
    Check(lastId2 == lastId, "the short id counter changed on the way through the file");
    Check(second.size() == first.size(), "entries were lost or gained on the way through the file");
    for (size_t i = 0; i < first.size(); ++i)
        Check(Same(first[i], second[i]), "an entry changed on the way through the file",
              View(first[i].volumeGuid));
    return 0;
}
