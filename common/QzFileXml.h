// The program's XML files are small and flat, written one element per line.
// They are read with two cutters rather than a general parser, and edited by
// replacing one attribute value in place, so that everything else in the file
// (the other program's layout, comments, unknown elements) stays as it was.
#pragma once

#include <cstdint>
#include <vector>

#include "QzString.h"

namespace QzFile {

// Every element of `tag` in text order: from "<tag" to its "/>" (or to its
// end tag "</tag>"). A malformed element (its start tag not closed, or "<tag>"
// without "</tag>" before the next "<tag") is logged and left out; the
// elements around it are kept.
bool GetAllXmlSnippetsWithTagNameInXmlText(const char* text, int32_t len, const char* tag,
                                           std::vector<QzString>* snippetsRet);
// The same with the offset of each element in the text.
struct XmlElementAt {
    int32_t offset = 0;
    QzString text;
};
std::vector<XmlElementAt> GetXmlElementsWithOffsets(const QzString& text, const char* tag);
bool GetAllXmlSnippetsWithTagNameInXmlFile(const char* fileName, const char* tag,
                                           std::vector<QzString>* snippetsRet);

// The value between the double quotes after the first `name="` in the snippet
// (the name must not be the tail of a longer attribute name). No entity decoding.
bool GetUniqueStrAttrFromXmlSnippet(const char* snippet, const char* name, QzString* valueRet);
inline bool GetUniqueStrAttrFromXmlSnippet(const QzString& snippet, const char* name, QzString* valueRet) {
    return GetUniqueStrAttrFromXmlSnippet(snippet.c_str(), name, valueRet);
}
// Reads one attribute from anywhere in a file.
bool GetUniqueStrAttrFromXmlFile(const char* fileName, const char* name, QzString* valueRet);

// Replaces the value of the attribute that GetUniqueStrAttrFromXmlSnippet
// would read, within text[from, to) (to < 0: to the end), by `value` escaped
// for XML. False, and the text unchanged, when the attribute is not there.
bool SetUniqueStrAttrInXmlText(QzString* text, int32_t from, int32_t to, const char* name,
                               const QzString& value);
inline bool SetUniqueStrAttrInXmlSnippet(QzString* snippet, const char* name, const QzString& value) {
    return SetUniqueStrAttrInXmlText(snippet, 0, -1, name, value);
}

// Removes every "<!--" ... "-->". On an unterminated comment the text from it
// on is dropped, its offset goes to *unterminatedAtRet and false is returned.
bool RemoveXmlComments(const QzString& in, QzString* out, int32_t* unterminatedAtRet);

}  // namespace QzFile
