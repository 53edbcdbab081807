// Feeds arbitrary bytes to the XML cutters and the line splitter, in memory
// and through a file, and checks what they return against the input.
//
// The file runs go through drive T:, mapped once to a private temporary
// directory (this target is built only by the POSIX fuzz preset).
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "QzFile.h"
#include "QzFileXml.h"
#include "QzString.h"

namespace {

std::string g_dir;
std::string g_hostFile;
const char* const kFile = "T:\\fuzz.xml";

void RemoveScratch() {
    if (!g_hostFile.empty()) ::unlink(g_hostFile.c_str());
    if (!g_dir.empty()) ::rmdir(g_dir.c_str());
}

void Fail(const char* what, std::string_view detail = {}) {
    std::fprintf(stderr, "INVARIANT BROKEN: %s %.*s\n", what, static_cast<int>(detail.size()), detail.data());
    RemoveScratch();  // abort() skips the atexit handler
    std::abort();
}

void Check(bool ok, const char* what, std::string_view detail = {}) {
    if (!ok) Fail(what, detail);
}

std::string_view View(const QzString& s) {
    return {s.c_str(), static_cast<size_t>(s.Length())};
}

bool IsNameChar(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == ':' || c == '.';
}

// "<tag" at p, not followed by another name character: where an element starts.
bool ElementStartsAt(std::string_view in, size_t p, std::string_view open) {
    if (in.compare(p, open.size(), open) != 0) return false;
    const size_t after = p + open.size();
    return after >= in.size() || !IsNameChar(static_cast<unsigned char>(in[after]));
}

size_t NextElementStart(std::string_view in, size_t from, std::string_view open) {
    for (size_t p = in.find(open, from); p != std::string_view::npos; p = in.find(open, p + 1))
        if (ElementStartsAt(in, p, open)) return p;
    return std::string_view::npos;
}

// The attribute as documented: the text between the quotes after the first
// `name="` that is not the tail of a longer name; nothing when that value's
// closing quote is missing. Only the text up to the first NUL counts.
std::optional<std::string_view> ModelAttr(std::string_view s, std::string_view name) {
    s = s.substr(0, s.find('\0'));
    const std::string key = std::string(name) + "=\"";
    for (size_t p = s.find(key); p != std::string_view::npos; p = s.find(key, p + 1)) {
        if (p > 0 && IsNameChar(static_cast<unsigned char>(s[p - 1]))) continue;
        const size_t v = p + key.size();
        const size_t q = s.find('"', v);
        if (q == std::string_view::npos) return std::nullopt;
        return s.substr(v, q - v);
    }
    return std::nullopt;
}

void CheckAttr(const char* text, std::string_view name) {
    QzString value("stale");
    const bool ok = QzFile::GetUniqueStrAttrFromXmlSnippet(text, std::string(name).c_str(), &value);
    const std::optional<std::string_view> want = ModelAttr(text, name);
    Check(ok == want.has_value(), "attribute found/not found differs from the model for", name);
    if (!ok) {
        Check(value.Length() == 0, "a failed attribute lookup left a value");
        return;
    }
    Check(View(value) == *want, "attribute value differs from the model for", name);
    Check(View(value).find('"') == std::string_view::npos, "attribute value holds a quote");
}

// The elements as documented, in text order: an element ends at its start
// tag's "/>", or at its end tag when that comes before the next element of the
// tag. A start tag without ">" before the next "<", or a ">" without such an
// end tag, makes the element malformed: it is left out, the others are kept.
std::vector<std::string_view> ModelSnippets(std::string_view in, const std::string& tag) {
    const std::string open = "<" + tag;
    const std::string close = "</" + tag + ">";
    std::vector<std::string_view> out;
    for (size_t at = NextElementStart(in, 0, open); at != std::string_view::npos;) {
        const size_t next = NextElementStart(in, at + open.size(), open);
        const size_t limit = next == std::string_view::npos ? in.size() : next;
        const std::string_view start = in.substr(at + open.size(), limit - at - open.size());
        const size_t gt = start.find('>');
        const size_t lt = start.find('<');
        if (gt != std::string_view::npos && (lt == std::string_view::npos || gt < lt)) {
            const size_t gtAt = at + open.size() + gt;
            if (in[gtAt - 1] == '/') {
                out.push_back(in.substr(at, gtAt + 1 - at));
            } else {
                const size_t c = in.substr(0, limit).find(close, gtAt + 1);
                if (c != std::string_view::npos) out.push_back(in.substr(at, c + close.size() - at));
            }
        }
        at = next;
    }
    return out;
}

void CheckSnippets(std::string_view in, const std::string& tag, const std::vector<QzString>& snippets) {
    const std::vector<std::string_view> want = ModelSnippets(in, tag);
    Check(snippets.size() == want.size(), "number of snippets differs from the model for", tag);
    for (size_t i = 0; i < snippets.size() && i < want.size(); ++i) {
        const std::string_view sv = View(snippets[i]);
        Check(sv == want[i], "snippet differs from the model:", sv.substr(0, 40));
    }
}

void CheckLines(std::string_view in, const std::vector<QzString>& lines) {
    std::string joined;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i) joined.push_back('\n');
        joined.append(View(lines[i]));
    }
    if (!in.empty() && in.back() == '\n') joined.push_back('\n');
    std::string want;
    for (size_t i = 0; i < in.size(); ++i)
        if (!(in[i] == '\r' && i + 1 < in.size() && in[i + 1] == '\n')) want.push_back(in[i]);
    Check(joined == want, "lines joined with newlines do not give back the text");
}

bool SameStrings(const std::vector<QzString>& a, const std::vector<QzString>& b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (View(a[i]) != View(b[i])) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    char templ[] = "/tmp/qzfuzzxml.XXXXXX";
    if (!::mkdtemp(templ)) {
        std::perror("mkdtemp");
        std::abort();
    }
    g_dir = templ;
    g_hostFile = g_dir + "/fuzz.xml";
    ::setenv("QZ_DRIVES", ("T=" + g_dir).c_str(), 1);
    std::atexit(RemoveScratch);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > (1u << 20)) return 0;
    const char* text = reinterpret_cast<const char*>(data);
    const std::string_view in(text, size);
    const int32_t len = static_cast<int32_t>(size);

    std::vector<std::string> tags = {"qzvolume", "do_backup", "qzinstall"};
    size_t n = 0;
    while (n < size && n < 12 && IsNameChar(data[n])) ++n;
    if (n > 0) tags.emplace_back(text, n);

    std::vector<std::vector<QzString>> memorySnippets;
    for (const std::string& tag : tags) {
        std::vector<QzString> snippets;
        const bool ok = QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text, len, tag.c_str(), &snippets);
        Check(ok == !snippets.empty(), "result does not say whether snippets were found");
        CheckSnippets(in, tag, snippets);
        for (const QzString& s : snippets) {
            for (const char* name : {"qzVolumeGuid", "mountPointPath", "datadir", "hguid"})
                CheckAttr(s.c_str(), name);
            CheckAttr(s.c_str(), tag);
        }
        memorySnippets.push_back(std::move(snippets));
    }
    std::vector<QzString> none;
    Check(!QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text, len, "", &none) && none.empty(),
          "an empty tag matched");

    const std::string whole(in);  // NUL-terminated copy
    for (const char* name : {"qzVolumeGuid", "mountPointPath", "datadir", "hguid", "a"})
        CheckAttr(whole.c_str(), name);
    if (n > 0) CheckAttr(whole.c_str(), std::string(text, n));

    std::vector<QzString> lines;
    QzFile::SplitIntoLines(text, len, &lines);
    CheckLines(in, lines);

    // The same through a file on drive T:.
    FILE* f = std::fopen(g_hostFile.c_str(), "wb");
    Check(f != nullptr, "cannot write the scratch file");
    Check(std::fwrite(data, 1, size, f) == size && std::fclose(f) == 0, "cannot write the scratch file");
    std::vector<QzString> fileLines;
    QzString err;
    Check(QzFile::ReadFileIntoLines(kFile, &fileLines, &err), "ReadFileIntoLines failed:", View(err));
    Check(SameStrings(fileLines, lines), "lines read from the file differ from the lines of the text");
    for (size_t i = 0; i < tags.size(); ++i) {
        std::vector<QzString> fileSnippets;
        const bool ok = QzFile::GetAllXmlSnippetsWithTagNameInXmlFile(kFile, tags[i].c_str(), &fileSnippets);
        Check(ok == !fileSnippets.empty(), "file result does not say whether snippets were found");
        Check(SameStrings(fileSnippets, memorySnippets[i]),
              "snippets from the file differ from those of the text");
    }
    return 0;
}
