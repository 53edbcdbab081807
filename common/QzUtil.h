// Small shared helpers: number parsing, hexadecimal encoding and XML text escaping.
#pragma once

#include <cstdint>

#include "QzString.h"

namespace QzUtil {

// A whole text as a signed decimal integer: an optional "-", at least one
// digit and nothing else, without overflow.
bool ParseDecimal(const char* text, int32_t len, int64_t* valueRet);
inline bool ParseDecimal(const QzString& text, int64_t* valueRet) {
    return ParseDecimal(text.c_str(), text.Length(), valueRet);
}
// One to sixteen hexadecimal digits (either case) and nothing else.
bool ParseHex64(const char* text, int32_t len, int64_t* valueRet);
inline bool ParseHex64(const QzString& text, int64_t* valueRet) {
    return ParseHex64(text.c_str(), text.Length(), valueRet);
}

// Appends two lower-case hexadecimal digits per byte.
void AppendHexEncoded(QzString& out, const void* bytes, int32_t len);
// Decodes hexadecimal (either case) and appends the bytes. Fails, leaving out
// as it was, on an odd length or a character that is not a hex digit.
bool AppendHexDecoded(QzString& out, const char* hex, int32_t len);

// Appends text with &, <, >, " and ' written as entities.
void AppendXmlEscaped(QzString& out, const char* text, int32_t len);
inline void AppendXmlEscaped(QzString& out, const QzString& text) {
    AppendXmlEscaped(out, text.c_str(), text.Length());
}

// "1.5 GB", "12.0 MB", "512 bytes": sizes for people.
void AppendHumanReadableBytes(QzString& out, int64_t bytes);

}  // namespace QzUtil
