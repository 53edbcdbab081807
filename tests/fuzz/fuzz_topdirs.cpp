// Feeds arbitrary bytes to the top-level directory list reader as
// "topdirs.xml". A list the reader takes must come back the same after the
// writer has written it and the reader has read it again: the entries the
// writer keeps (text and volume identifier both non-empty), their times, the
// figures and the next entry to walk, which must stay within the list.
#include <cstdint>
#include <string>

#include "FuzzMachine.h"
#include "QzTopDirs.h"

using FuzzMachine::Check;
using FuzzMachine::View;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in;
    if (!FuzzMachine::PlaceInput(data, size, "topdirs.xml", &in)) return 0;
    const QzString path("T:\\topdirs.xml");
    QzTopDirs first;
    first.secondsToScanEachDir.assign(64, -1);
    if (!QzTopDirsFile::ReadTopDirsXmlFile(path, &first)) return 0;
    Check(first.startAtDir >= 0 && first.startAtDir <= first.Count(), "next entry outside the list");
    Check(first.vGuidToIndex.size() == first.dirToIndex.size(), "entries and identifiers differ in number");

    // What the writer keeps, in order, and where the next entry to walk falls among them.
    QzTopDirs kept;
    int32_t next = 0;
    for (int32_t i = 0; i < first.Count(); ++i) {
        if (first.dirToIndex[i].IsEmpty() || first.vGuidToIndex[i].IsEmpty()) continue;
        if (i < first.startAtDir) ++next;
        kept.dirToIndex.push_back(first.dirToIndex[i]);
        kept.vGuidToIndex.push_back(first.vGuidToIndex[i]);
        kept.secondsToScanEachDir.push_back(i < 64 ? first.secondsToScanEachDir[i] : 0);
    }

    FuzzMachine::WriteT("topdirs.xml", View(QzTopDirsFile::TopDirsXmlText(first)));
    QzTopDirs second;
    second.secondsToScanEachDir.assign(64, -1);
    const bool ok = QzTopDirsFile::ReadTopDirsXmlFile(path, &second);
    if (kept.Count() == 0) return 0;  // a list without entries is refused: nothing to walk
    // Identifiers are written as they are, before the other attributes: one
    // holding "name=" text would hide them from the reader, one holding "<" or
    // ">" cuts its element short. Real identifiers are 28 letters and digits.
    for (const QzString& v : kept.vGuidToIndex)
        if (View(v).find_first_of("=<>") != std::string_view::npos) return 0;
    if (!ok) FuzzMachine::Fail("the reader refused what the writer wrote", FuzzMachine::ReadT("topdirs.xml"));
    Check(second.Count() == kept.Count(), "entries were lost or gained on the way through the file");
    Check(second.startAtDir == next, "the next entry moved on the way through the file");
    Check(second.millisToProduce == first.millisToProduce && second.gmtMillis == first.gmtMillis &&
              second.timesMountPointsVerified == first.timesMountPointsVerified,
          "a figure changed on the way through the file");
    for (int32_t i = 0; i < kept.Count(); ++i) {
        Check(View(second.dirToIndex[i]) == View(kept.dirToIndex[i]), "an entry changed",
              View(kept.dirToIndex[i]));
        Check(View(second.vGuidToIndex[i]) == View(kept.vGuidToIndex[i]), "an identifier changed");
        if (i < 64) Check(second.secondsToScanEachDir[i] == kept.secondsToScanEachDir[i], "a time changed");
    }
    return 0;
}
