// Feeds arbitrary bytes to the alert file reader as "qzreports\qzdefcon.xml".
// What it takes must hold a level from 0 to 5, one record per "qzvolume"
// element with each attribute as the model of the documented reading gives
// it; what it refuses must leave no record behind.
#include <cctype>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FuzzMachine.h"
#include "QzFileXml.h"
#include "QzUiUtil.h"

using FuzzMachine::Attr;
using FuzzMachine::Check;
using FuzzMachine::View;

namespace {

std::string Hex(std::string_view s) {
    static const char* const kDigits = "0123456789abcdef";
    std::string out;
    for (unsigned char c : s) {
        out += kDigits[c >> 4];
        out += kDigits[c & 15];
    }
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in;
    if (!FuzzMachine::PlaceInput(data, size, "qzreports/qzdefcon.xml", &in)) return 0;
    std::vector<QzVolDefconRecord> records(3);
    int32_t level = 77;
    if (!QzUiUtil::QzVolDefcon_HitDisk_ReadQzDefconXmlFile(&records, &level)) {
        Check(records.empty() && level == 77, "a refused alert file gave records or a level");
        return 0;
    }
    Check(level >= 0 && level <= 5, "a level out of range was taken");
    Check(size >= 20 && in.find("</contents>") != std::string_view::npos, "a truncated alert file was taken");
    Check(!records.empty(), "an alert file without volumes was taken");
    std::vector<QzString> snippets;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(in.data(), static_cast<int32_t>(size), "qzvolume",
                                                  &snippets);
    Check(snippets.size() == records.size(), "records and elements differ in number");
    for (size_t i = 0; i < records.size(); ++i) {
        const std::string_view s = View(snippets[i]);
        const QzVolDefconRecord& r = records[i];
        Check(Attr(s, "qzVolumeGuid") == View(r.volumeGuid), "identifier differs from the element", s);
        const std::optional<std::string_view> hex = Attr(s, "mountPointPathHex");
        std::string lower(hex ? *hex : std::string_view());
        for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        Check(hex && Hex(View(r.mountPoint)) == lower, "mount point differs from the element", s);
        const std::pair<const char*, int32_t> numbers[] = {
            {"vol_defcon_level", r.defconLevel},
            {"vol_last_seen_in_days", r.lastSeenInDays},
            {"vol_last_filelisted_in_days", r.lastFileListedInDays},
            {"vol_last_file_pushed_in_days", r.lastFilePushedInDays}};
        for (const auto& [name, value] : numbers) {
            const std::optional<std::string_view> text = Attr(s, name);
            Check(text.has_value(), "a record was taken without", name);
            // An optional minus and decimal digits, nothing else.
            int64_t model = 0;
            const char* end = text->data() + text->size();
            const auto [at, err] = std::from_chars(text->data(), end, model);
            Check(err == std::errc() && at == end && value == model, "a number differs from its attribute",
                  name);
        }
    }
    return 0;
}
