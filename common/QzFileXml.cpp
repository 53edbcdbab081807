// The program's XML files are small and flat, written one element per line;
// they are read with these two cutters rather than a general parser.
#include <cstring>

#include "QzFile.h"

namespace QzFile {

namespace {
bool IsNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
           c == ':' || c == '.';
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
    const char* p = text;
    while ((p = FindBytes(p, end, open.c_str(), static_cast<size_t>(open.Length()))) != nullptr) {
        const char* after = p + 1 + tagLen;
        // "<qzvolume" must not match "<qzvolumes".
        if (after < end && IsNameChar(*after)) {
            p = after;
            continue;
        }
        const char* gt = static_cast<const char*>(std::memchr(after, '>', static_cast<size_t>(end - after)));
        const char* stop;
        if (!gt) {
            stop = end;
        } else if (gt[-1] == '/') {
            stop = gt + 1;
        } else {
            const char* c = FindBytes(gt + 1, end, close.c_str(), static_cast<size_t>(close.Length()));
            stop = c ? c + close.Length() : end;
        }
        snippetsRet->emplace_back(p, static_cast<int32_t>(stop - p));
        p = stop;
    }
    return !snippetsRet->empty();
}

bool GetAllXmlSnippetsWithTagNameInXmlFile(const char* fileName, const char* tag, std::vector<QzString>* snippetsRet) {
    if (snippetsRet) snippetsRet->clear();
    QzString content;
    QzString err;
    if (!ReadEntireFile(fileName, &content, &err)) return false;
    return GetAllXmlSnippetsWithTagNameInXmlText(content.c_str(), content.Length(), tag, snippetsRet);
}

bool GetUniqueStrAttrFromXmlSnippet(const char* snippet, const char* name, QzString* valueRet) {
    if (!valueRet) return false;
    valueRet->Clear();
    if (!snippet || !name || !*name) return false;
    const QzString key = QzCat(name, "=\"");
    const char* end = snippet + std::strlen(snippet);
    const char* p = snippet;
    while ((p = FindBytes(p, end, key.c_str(), static_cast<size_t>(key.Length()))) != nullptr) {
        if (p > snippet && IsNameChar(p[-1])) {  // tail of a longer name, e.g. "associated_hguid"
            ++p;
            continue;
        }
        const char* v = p + key.Length();
        const char* q = static_cast<const char*>(std::memchr(v, '"', static_cast<size_t>(end - v)));
        if (!q) return false;
        return valueRet->Set(v, static_cast<int32_t>(q - v));
    }
    return false;
}

bool GetUniqueStrAttrFromXmlFile(const char* fileName, const char* name, QzString* valueRet) {
    if (valueRet) valueRet->Clear();
    QzString content;
    QzString err;
    if (!ReadEntireFile(fileName, &content, &err)) return false;
    return GetUniqueStrAttrFromXmlSnippet(content.c_str(), name, valueRet);
}

}  // namespace QzFile
