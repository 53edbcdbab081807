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

std::optional<int64_t> Number(std::string_view s, std::string_view name) {
    s = s.substr(0, s.find('\0'));
    const std::string key = std::string(name) + "=\"";
    for (size_t p = s.find(key); p != std::string_view::npos; p = s.find(key, p + 1)) {
        const char c = p > 0 ? s[p - 1] : ' ';
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '_' || c == '-' || c == ':' || c == '.')
            continue;
        const size_t v = p + key.size();
        const size_t q = s.find('"', v);
        if (q == std::string_view::npos) return std::nullopt;
        int64_t n = 0;
        const char* end = s.data() + q;
        const auto [at, err] = std::from_chars(s.data() + v, end, n);
        if (err != std::errc() || at != end || n == INT64_MIN) return std::nullopt;
        return n;
    }
    return std::nullopt;
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
