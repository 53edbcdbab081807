// The program's XML files are small and flat, written one element per line;
// they are read with these two cutters rather than a general parser, and
// edited one attribute value at a time.
#include "QzFileXml.h"

#include <cstring>

#include "QzFile.h"
#include "QzLog.h"
#include "QzUtil.h"

namespace QzFile {

namespace {
bool IsNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == ':' || c == '.';
}

// A malformed element loses itself only; the log names it by its start tag.
void LogMalformedElement(const char* tag, const char* start, const char* startTagEnd) {
    constexpr int32_t kMaxShown = 300;
    int32_t n = static_cast<int32_t>(startTagEnd - start);
    if (n > kMaxShown) n = kMaxShown;
    QzString shown(start, n);
    for (int32_t i = 0; i < shown.Length(); ++i)
        if (shown[i] == '\n' || shown[i] == '\r') shown.Data()[i] = ' ';  // one event per log line
    QzLog::WriteLine(QzCat("ERROR: QzFile::GetAllXmlSnippetsWithTagNameInXmlText - skipping a malformed <",
                           tag, "> element, closed neither by \"/>\" nor by its end tag: ", shown));
}

const char* FindBytes(const char* from, const char* end, const char* needle, size_t nlen) {
    if (nlen == 0) return from;
    while (from + nlen <= end) {
        const void* p = std::memchr(from, needle[0], static_cast<size_t>(end - from) - nlen + 1);
        if (!p) return nullptr;
        const char* c = static_cast<const char*>(p);
        if (std::memcmp(c, needle, nlen) == 0) return c;
        from = c + 1;
    }
    return nullptr;
}
}  // namespace

bool GetAllXmlSnippetsWithTagNameInXmlText(const char* text, int32_t len, const char* tag,
                                           std::vector<QzString>* snippetsRet) {
    if (!snippetsRet) return false;
    snippetsRet->clear();
    if (!text || !tag || !*tag || len < 0) return false;
    const size_t tagLen = std::strlen(tag);
    QzString open = QzCat("<", tag);
    QzString close = QzCat("</", tag, ">");
    const char* end = text + len;
    // The next "<tag" at or after `from` that is not the start of a longer name.
    auto nextStart = [&](const char* from) -> const char* {
        const char* p = from;
        while ((p = FindBytes(p, end, open.c_str(), static_cast<size_t>(open.Length()))) != nullptr) {
            const char* after = p + 1 + tagLen;
            if (after >= end || !IsNameChar(*after)) return p;  // "<qzvolume" must not match "<qzvolumes"
            p = after;
        }
        return nullptr;
    };
    for (const char* p = nextStart(text); p;) {
        const char* after = p + 1 + tagLen;
        const char* following = nextStart(after);
        const char* limit = following ? following : end;
        // The start tag ends at the first ">"; a "<" before it means it was never closed.
        const auto span = static_cast<size_t>(limit - after);
        const char* gt = static_cast<const char*>(std::memchr(after, '>', span));
        const char* lt = static_cast<const char*>(std::memchr(after, '<', span));
        const bool startTagClosed = gt && (!lt || gt < lt);
        const char* stop = nullptr;
        if (startTagClosed && gt[-1] == '/') {
            stop = gt + 1;
        } else if (startTagClosed) {
            // Content up to the end tag, which must come before the next element of the tag.
            const char* c = FindBytes(gt + 1, limit, close.c_str(), static_cast<size_t>(close.Length()));
            if (c) stop = c + close.Length();
        }
        if (stop)
            snippetsRet->emplace_back(p, static_cast<int32_t>(stop - p));
        else
            LogMalformedElement(tag, p, startTagClosed ? gt + 1 : (lt ? lt : limit));
        p = following;
    }
    return !snippetsRet->empty();
}

bool GetAllXmlSnippetsWithTagNameInXmlFile(const char* fileName, const char* tag,
                                           std::vector<QzString>* snippetsRet) {
    if (snippetsRet) snippetsRet->clear();
    QzString content;
    QzString err;
    if (!ReadEntireFile(fileName, &content, &err)) return false;
    return GetAllXmlSnippetsWithTagNameInXmlText(content.c_str(), content.Length(), tag, snippetsRet);
}

namespace {
// The value of the first `name="..."` in [begin, end) whose name is not the
// tail of a longer name (e.g. "hguid" in "associated_hguid"): the reader's
// rule and the splicer's, so that an edit changes exactly what is read.
bool FindAttrValue(const char* begin, const char* end, const char* name, const char** valueRet,
                   const char** valueEndRet) {
    if (!begin || !name || !*name) return false;
    const QzString key = QzCat(name, "=\"");
    const char* p = begin;
    while ((p = FindBytes(p, end, key.c_str(), static_cast<size_t>(key.Length()))) != nullptr) {
        if (p > begin && IsNameChar(p[-1])) {
            ++p;
            continue;
        }
        const char* v = p + key.Length();
        const char* q = static_cast<const char*>(std::memchr(v, '"', static_cast<size_t>(end - v)));
        if (!q) return false;
        *valueRet = v;
        *valueEndRet = q;
        return true;
    }
    return false;
}
}  // namespace

bool GetUniqueStrAttrFromXmlSnippet(const char* snippet, const char* name, QzString* valueRet) {
    if (!valueRet) return false;
    valueRet->Clear();
    if (!snippet) return false;
    const char* v = nullptr;
    const char* q = nullptr;
    if (!FindAttrValue(snippet, snippet + std::strlen(snippet), name, &v, &q)) return false;
    return valueRet->Set(v, static_cast<int32_t>(q - v));
}

bool SetUniqueStrAttrInXmlText(QzString* text, int32_t from, int32_t to, const char* name,
                               const QzString& value) {
    if (!text || from < 0 || from > text->Length()) return false;
    if (to < 0 || to > text->Length()) to = text->Length();
    if (to < from) return false;
    const char* base = text->c_str();
    const char* v = nullptr;
    const char* q = nullptr;
    if (!FindAttrValue(base + from, base + to, name, &v, &q)) return false;
    QzString out(base, static_cast<int32_t>(v - base));
    QzUtil::AppendXmlEscaped(out, value);
    out.Append(q, static_cast<int32_t>(base + text->Length() - q));
    *text = std::move(out);
    return true;
}

std::vector<XmlElementAt> GetXmlElementsWithOffsets(const QzString& text, const char* tag) {
    std::vector<QzString> snippets;
    GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), tag, &snippets);
    std::vector<XmlElementAt> out;
    int32_t cursor = 0;
    for (QzString& s : snippets) {
        const int32_t at = text.Find(s.c_str(), cursor);
        if (at < 0) break;
        cursor = at + s.Length();
        out.push_back({at, std::move(s)});
    }
    return out;
}

bool RemoveXmlComments(const QzString& in, QzString* out, int32_t* unterminatedAtRet) {
    out->Clear();
    int32_t pos = 0;
    for (;;) {
        const int32_t start = in.Find("<!--", pos);
        if (start < 0) {
            out->Append(in.c_str() + pos, in.Length() - pos);
            return true;
        }
        out->Append(in.c_str() + pos, start - pos);
        const int32_t end = in.Find("-->", start + 4);
        if (end < 0) {
            if (unterminatedAtRet) *unterminatedAtRet = start;
            return false;
        }
        pos = end + 3;
    }
}

bool GetUniqueStrAttrFromXmlFile(const char* fileName, const char* name, QzString* valueRet) {
    if (valueRet) valueRet->Clear();
    QzString content;
    QzString err;
    if (!ReadEntireFile(fileName, &content, &err)) return false;
    return GetUniqueStrAttrFromXmlSnippet(content.c_str(), name, valueRet);
}

}  // namespace QzFile
