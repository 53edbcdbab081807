// Feeds arbitrary bytes to the XML cutters and the line splitter, in memory
// and through a file on drive T: of the scratch machine, and checks what they
// return against the input.
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzMachine.h"
#include "QzFile.h"
#include "QzFileXml.h"

using FuzzMachine::Check;
using FuzzMachine::View;

namespace {

// Where an element of the tag starts: "<tag" not followed by another name character.
size_t NextElementStart(std::string_view in, size_t from, std::string_view open) {
    for (size_t p = in.find(open, from); p != std::string_view::npos; p = in.find(open, p + 1))
        if (p + open.size() >= in.size() ||
            !FuzzMachine::IsNameChar(static_cast<unsigned char>(in[p + open.size()])))
            return p;
    return std::string_view::npos;
}

void CheckAttr(const char* text, std::string_view name) {
    QzString value("stale");
    const bool ok = QzFile::GetUniqueStrAttrFromXmlSnippet(text, std::string(name).c_str(), &value);
    const auto want = FuzzMachine::Attr(text, name);
    Check(ok == want.has_value(), "attribute found/not found differs from the model for", name);
    Check(View(value) == want.value_or(""), "attribute value differs from the model for", name);
    Check(View(value).find('"') == std::string_view::npos, "attribute value holds a quote");
}

// The elements as documented, in text order: an element ends at its start
// tag's "/>", or at its end tag when that comes before the next element of the
// tag. A start tag without ">" before the next "<", or a ">" without such an
// end tag, makes the element malformed: it is left out, the others are kept.
std::vector<std::string_view> ModelSnippets(std::string_view in, const std::string& tag) {
    const std::string open = "<" + tag, close = "</" + tag + ">";
    std::vector<std::string_view> out;
    for (size_t at = NextElementStart(in, 0, open); at != std::string_view::npos;) {
        const size_t next = NextElementStart(in, at + open.size(), open);
        const std::string_view upToNext = in.substr(0, next);
        const size_t gt = upToNext.find('>', at), lt = upToNext.find('<', at + 1);
        if (gt != std::string_view::npos && gt < lt) {
            const size_t end = in[gt - 1] == '/' ? gt + 1 : upToNext.find(close, gt + 1);
            if (end != std::string_view::npos)
                out.push_back(in.substr(at, end - at + (in[gt - 1] == '/' ? 0 : close.size())));
        }
        at = next;
    }
    return out;
}

bool Same(const std::vector<QzString>& got, const std::vector<std::string_view>& want) {
    if (got.size() != want.size()) return false;
    for (size_t i = 0; i < got.size(); ++i)
        if (View(got[i]) != want[i]) return false;
    return true;
}

std::vector<std::string_view> Views(const std::vector<QzString>& v) {
    std::vector<std::string_view> out;
    for (const QzString& s : v) out.push_back(View(s));
    return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in;
    if (!FuzzMachine::PlaceInput(data, size, "fuzz.xml", &in)) return 0;
    const char* text = in.data();
    const auto len = static_cast<int32_t>(size);

    std::vector<std::string> tags = {"qzvolume", "do_backup", "qzinstall"};
    size_t n = 0;
    while (n < size && n < 12 && FuzzMachine::IsNameChar(data[n])) ++n;
    if (n > 0) tags.emplace_back(text, n);

    for (const std::string& tag : tags) {
        std::vector<QzString> snippets, fileSnippets;
        const bool ok = QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text, len, tag.c_str(), &snippets);
        Check(ok == !snippets.empty(), "result does not say whether snippets were found");
        Check(Same(snippets, ModelSnippets(in, tag)), "snippets differ from the model for", tag);
        for (const QzString& s : snippets)
            for (const std::string_view name : {"qzVolumeGuid", "mountPointPath", "datadir", "hguid"})
                CheckAttr(s.c_str(), name);
        for (const QzString& s : snippets) CheckAttr(s.c_str(), tag);
        const bool fileOk =
            QzFile::GetAllXmlSnippetsWithTagNameInXmlFile("T:\\fuzz.xml", tag.c_str(), &fileSnippets);
        Check(fileOk == ok && Same(fileSnippets, Views(snippets)),
              "snippets from the file differ from the text's");
    }
    std::vector<QzString> none;
    Check(!QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text, len, "", &none) && none.empty(),
          "an empty tag matched");

    const std::string whole(in);  // NUL-terminated copy
    for (const std::string_view name : {"qzVolumeGuid", "mountPointPath", "datadir", "hguid", "a"})
        CheckAttr(whole.c_str(), name);
    if (n > 0) CheckAttr(whole.c_str(), tags.back());

    // Lines joined with "\n" give back the text without the "\r" of its "\r\n".
    std::vector<QzString> lines, fileLines;
    QzFile::SplitIntoLines(text, len, &lines);
    std::string joined, want;
    for (size_t i = 0; i < lines.size(); ++i) joined.append(i ? "\n" : "").append(View(lines[i]));
    if (!in.empty() && in.back() == '\n') joined.push_back('\n');
    for (size_t i = 0; i < size; ++i)
        if (!(in[i] == '\r' && i + 1 < size && in[i + 1] == '\n')) want.push_back(in[i]);
    Check(joined == want, "lines joined with newlines do not give back the text");
    QzString err;
    Check(QzFile::ReadFileIntoLines("T:\\fuzz.xml", &fileLines, &err),
          "ReadFileIntoLines failed:", View(err));
    Check(Same(fileLines, Views(lines)), "lines read from the file differ from the lines of the text");
    return 0;
}
