// QzUtf16String: the UTF-16 form of a path, made only where a wide-character
// system function is called.
#pragma once

#include <cstdint>

#include "QzString.h"

class QzUtf16String {
public:
    QzUtf16String() = default;
    QzUtf16String(const QzUtf16String&) = delete;
    QzUtf16String& operator=(const QzUtf16String&) = delete;
    ~QzUtf16String();

    const char16_t* Data() const { return buf_ ? buf_ : u""; }
    int32_t Length() const { return len_; }  // in code units, terminator excluded

    // Converts strict UTF-8 (no overlong forms, no surrogates, nothing above
    // U+10FFFF); with asPath false the text is converted as is. As a path, an
    // absolute one ("C:\..." or a network path "\\server\share\...") longer
    // than 250 bytes gets the "\\?\" prefix first ("\\?\UNC\server\..." for
    // a network path); a relative path never does. A prefixed path, whether
    // given so or made so, has every "/" turned into "\": behind the prefix
    // the system takes each character literally.
    // `initialUnits` sizes the first buffer. On failure the string is empty.
    bool ConvertUtf8QzStringToUtf16(const char* utf8, int32_t len, bool asPath, int32_t initialUnits = 220);
    bool ConvertUtf8QzStringToUtf16(const QzString& utf8, bool asPath = true) {
        return ConvertUtf8QzStringToUtf16(utf8.c_str(), utf8.Length(), asPath);
    }
    // A path whose prefix its maker has already decided, such as a directory's
    // search pattern (the directory's length decides, not the pattern's): no
    // prefix is added, and a prefixed path has its "/" turned into "\".
    bool ConvertUtf8PreparedPathToUtf16(const char* utf8, int32_t len);

    // Converts UTF-16 to UTF-8; fails (leaving out empty) on an unpaired surrogate.
    static bool ConvertQzUtf16StringToUtf8(const char16_t* utf16, int32_t units, QzString* out);

private:
    enum class Form { Text, Path, PreparedPath };
    bool Convert(const char* utf8, int32_t len, Form form, int32_t initialUnits);
    bool Reserve(int32_t units);
    char16_t* buf_ = nullptr;
    int32_t len_ = 0;
    int32_t cap_ = 0;
};

namespace QzUtf8 {
// True when the bytes are strict UTF-8 (the same rules as the conversion above).
bool IsValid(const char* s, int32_t len);
}  // namespace QzUtf8
