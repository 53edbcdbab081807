// Feeds arbitrary bytes to the client version reader as "clientversion.xml".
// Reading may fail only by the reader's own error; a file of a format before
// revision 4 never ends the program's life; and the version comparison is a
// total order on the texts in the file (reflexive, antisymmetric, and the
// same as comparing four "%d"-style numbers).
#include <array>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzMachine.h"
#include "QzClientVersionManager.h"
#include "QzFileXml.h"
#include "QzVersion.h"

using FuzzMachine::Check;

namespace {

// The version as four numbers: each is what strtol reads (clamped to int),
// the next read only after a ".", and a part that cannot be read ends it.
std::array<long long, 4> Model(const char* s) {
    std::array<long long, 4> parts{};
    for (int i = 0; i < 4; ++i) {
        const char* p = s;
        while (*p == ' ' || (*p >= '\t' && *p <= '\r')) ++p;
        if (*p == '+' || *p == '-') ++p;
        if (*p < '0' || *p > '9') break;
        char* end = nullptr;
        long long v = std::strtoll(s, &end, 10);
        if (v > INT_MAX) v = INT_MAX;
        if (v < -INT_MAX) v = -INT_MAX;
        parts[i] = v;
        if (*end != '.') break;
        s = end + 1;
    }
    return parts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in;
    if (!FuzzMachine::PlaceInput(data, size, "qzupdates/clientversion.xml", &in)) return 0;
    try {
        QzClientVersionManager m;
        const int revision = m.detect_revision();
        const bool eol = m.IsEndOfLife();
        Check(!(eol && revision >= 1 && revision < 4), "an old-format file ended the program's life");
    } catch (const QzClientVersionError&) {
        // A current-format file without its end-of-life entry: the caller reports it.
    }

    // Every attribute value in the file is a version text to compare.
    std::vector<std::string> versions = {kQzProgramVersion, "", "1.2.3.4"};
    for (size_t q = in.find('"'); q != std::string_view::npos && versions.size() < 16;) {
        const size_t end = in.find('"', q + 1);
        if (end == std::string_view::npos) break;
        versions.emplace_back(in.substr(q + 1, end - q - 1).data(), end - q - 1);
        versions.back().resize(std::string_view(versions.back().c_str()).size());
        q = in.find('"', end + 1);
    }
    std::vector<std::array<long long, 4>> models;
    for (const std::string& v : versions) models.push_back(Model(v.c_str()));
    for (size_t i = 0; i < versions.size(); ++i) {
        const char* a = versions[i].c_str();
        Check(QzClientVersionManager::CompareVersions(a, a) == 0, "a version differs from itself", a);
        for (size_t j = 0; j < i; ++j) {
            const char* b = versions[j].c_str();
            const int ab = QzClientVersionManager::CompareVersions(a, b);
            const int want = models[i] < models[j] ? -1 : models[i] > models[j] ? 1 : 0;
            if (ab != -QzClientVersionManager::CompareVersions(b, a))
                FuzzMachine::Fail("comparison not antisymmetric", versions[i] + " vs " + versions[j]);
            if (ab != want)
                FuzzMachine::Fail("comparison differs from the model", versions[i] + " vs " + versions[j]);
        }
    }
    return 0;
}
