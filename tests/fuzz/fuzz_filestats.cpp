// Feeds arbitrary bytes to the statistics read-back as "filestats.xml". Each
// counter must be the documented reading of its attribute (an optional minus
// and decimal digits) or keep its value; the picture counters are looked up
// under names the writer never writes. What was read must come back the same
// through the writer's text, pictures excepted (they start again from zero).
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

#include "FuzzMachine.h"
#include "QzFileStats.h"

using FuzzMachine::Check;
using FuzzMachine::View;

namespace {

const char* const kNames[QzFileStats::kNumCategories][2] = {
    {"docsnum", "docstotbytes"},
    {"spreadsheetsnum", "spreadsheetstotbytes"},
    {"presentationsnum", "presentationstotbytes"},
    {"financialnum", "financialtotbytes"},
    {"picturesnum", "picturestotbytes"},
    {"musicnum", "musictotbytes"},
    {"videonum", "videototbytes"},
    {"emailnum", "emailtotbytes"},
    {"zipsnum", "zipstotbytes"},
    {"browserfavoritesnum", "browserfavoritestotbytes"},
    {"othernum", "othertotbytes"},
    {"everythingnum", "everythingtotbytes"}};

// The documented reading of a counter: its attribute's value, an optional
// minus and decimal digits only.
std::optional<int64_t> Number(std::string_view s, std::string_view name) {
    const std::optional<std::string_view> text = FuzzMachine::Attr(s, name);
    int64_t n = 0;
    if (!text) return std::nullopt;
    const auto [at, err] = std::from_chars(text->data(), text->data() + text->size(), n);
    if (err != std::errc() || at != text->data() + text->size() || n == INT64_MIN) return std::nullopt;
    return n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in;
    if (!FuzzMachine::PlaceInput(data, size, "filestats.xml", &in)) return 0;
    QzFileStats::Counters first;
    for (int i = 0; i < QzFileStats::kNumCategories; ++i) first.num[i] = first.bytes[i] = 7;
    Check(QzFileStats::ReadFileStatsBack(QzString("T:\\filestats.xml"), &first),
          "a readable file was refused");
    for (int i = 0; i < QzFileStats::kNumCategories; ++i) {
        Check(first.num[i] == Number(in, kNames[i][0]).value_or(7), "a count differs from the model",
              kNames[i][0]);
        Check(first.bytes[i] == Number(in, kNames[i][1]).value_or(7), "a size differs from the model",
              kNames[i][1]);
    }

    QzFileStats::Identity who;
    who.accountName.Set("a&b");
    FuzzMachine::WriteT("filestats.xml", View(QzFileStats::FileStatsXmlText(first, who, 0, true, true)));
    QzFileStats::Counters second;
    Check(QzFileStats::ReadFileStatsBack(QzString("T:\\filestats.xml"), &second),
          "the written file was refused");
    for (int i = 0; i < QzFileStats::kNumCategories; ++i) {
        const bool pictures = i == QzFileStats::kPictures;
        Check(second.num[i] == (pictures ? 0 : first.num[i]), "a count changed on the way through the file",
              kNames[i][0]);
        Check(second.bytes[i] == (pictures ? 0 : first.bytes[i]),
              "a size changed on the way through the file", kNames[i][1]);
    }
    return 0;
}
