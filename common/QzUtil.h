// Small shared helpers: hexadecimal encoding and XML text escaping.
#pragma once

#include <cstdint>

#include "QzString.h"

namespace QzUtil {

// Appends two lower-case hexadecimal digits per byte.
void AppendHexEncoded(QzString& out, const void* bytes, int32_t len);
// Decodes hexadecimal (either case) and appends the bytes. Fails, leaving out
// as it was, on an odd length or a character that is not a hex digit.
bool AppendHexDecoded(QzString& out, const char* hex, int32_t len);

// Appends text with &, <, >, " and ' written as entities.
void AppendXmlEscaped(QzString& out, const char* text, int32_t len);
inline void AppendXmlEscaped(QzString& out, const QzString& text) { AppendXmlEscaped(out, text.c_str(), text.Length()); }

// "1.5 GB", "12.0 MB", "512 bytes": sizes for people.
void AppendHumanReadableBytes(QzString& out, int64_t bytes);

}  // namespace QzUtil
