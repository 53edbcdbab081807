#include "QzUtil.h"

namespace QzUtil {

bool ParseDecimal(const char* text, int32_t len, int64_t* valueRet) {
    int32_t i = 0;
    const bool negative = len > 0 && text[0] == '-';
    if (negative) ++i;
    if (i >= len) return false;
    uint64_t v = 0;
    for (; i < len; ++i) {
        const char c = text[i];
        if (c < '0' || c > '9') return false;
        const uint64_t digit = static_cast<uint64_t>(c - '0');
        if (v > (static_cast<uint64_t>(INT64_MAX) - digit) / 10) return false;
        v = v * 10 + digit;
    }
    *valueRet = negative ? -static_cast<int64_t>(v) : static_cast<int64_t>(v);
    return true;
}

bool ParseHex64(const char* text, int32_t len, int64_t* valueRet) {
    if (len < 1 || len > 16) return false;
    uint64_t v = 0;
    for (int32_t i = 0; i < len; ++i) {
        const char c = text[i];
        int d;
        if (c >= '0' && c <= '9')
            d = c - '0';
        else if (c >= 'a' && c <= 'f')
            d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            d = c - 'A' + 10;
        else
            return false;
        v = (v << 4) | static_cast<uint64_t>(d);
    }
    *valueRet = static_cast<int64_t>(v);
    return true;
}

namespace {
int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}
}  // namespace

void AppendHexEncoded(QzString& out, const void* bytes, int32_t len) {
    static const char kDigits[] = "0123456789abcdef";
    const auto* b = static_cast<const unsigned char*>(bytes);
    if (len <= 0 || !out.Reserve(out.Length() + 2 * len + 1, true)) return;
    for (int32_t i = 0; i < len; ++i) {
        const char pair[2] = {kDigits[b[i] >> 4], kDigits[b[i] & 0xF]};
        out.Append(pair, 2);
    }
}

bool AppendHexDecoded(QzString& out, const char* hex, int32_t len) {
    if (!hex || len < 0 || len % 2 != 0) return false;
    for (int32_t i = 0; i < len; ++i)
        if (HexValue(hex[i]) < 0) return false;
    for (int32_t i = 0; i < len; i += 2)
        out.AppendChar(static_cast<char>(HexValue(hex[i]) * 16 + HexValue(hex[i + 1])));
    return true;
}

void AppendXmlEscaped(QzString& out, const char* text, int32_t len) {
    int32_t start = 0;
    for (int32_t i = 0; i < len; ++i) {
        const char* entity = nullptr;
        switch (text[i]) {
            case '<':
                entity = "&lt;";
                break;
            case '>':
                entity = "&gt;";
                break;
            case '&':
                entity = "&amp;";
                break;
            case '"':
                entity = "&quot;";
                break;
            case '\'':
                entity = "&apos;";
                break;
            default:
                continue;
        }
        out.Append(text + start, i - start);
        out.Append(entity);
        start = i + 1;
    }
    out.Append(text + start, len - start);
}

void AppendHumanReadableBytes(QzString& out, int64_t bytes) {
    static const char* const kUnits[] = {"KB", "MB", "GB", "TB", "PB"};
    if (bytes < 1024) {
        out.AppendInt(bytes);
        out.Append(bytes == 1 ? " byte" : " bytes");
        return;
    }
    // One decimal, rounded: tenths of the unit.
    int unit = 0;
    int64_t scale = 1024;
    while (unit < 4 && bytes / scale >= 1024) {
        scale *= 1024;
        ++unit;
    }
    const int64_t tenths = (bytes / scale) * 10 + ((bytes % scale) * 10 + scale / 2) / scale;
    out.AppendInt(tenths / 10);
    out.AppendChar('.');
    out.AppendInt(tenths % 10);
    out.AppendChar(' ');
    out.Append(kUnits[unit]);
}

}  // namespace QzUtil
