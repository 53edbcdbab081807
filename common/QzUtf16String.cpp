#include "QzUtf16String.h"

#include <cstdlib>
#include <cstring>

namespace {
// Decodes one strict UTF-8 sequence at s[i]; returns its length, or 0 when invalid.
int DecodeUtf8(const unsigned char* s, int32_t len, int32_t i, uint32_t* cp) {
    const unsigned char c = s[i];
    if (c < 0x80) {
        *cp = c;
        return 1;
    }
    int n;
    uint32_t v;
    uint32_t min;
    if ((c & 0xE0) == 0xC0) {
        n = 2, v = c & 0x1F, min = 0x80;
    } else if ((c & 0xF0) == 0xE0) {
        n = 3, v = c & 0x0F, min = 0x800;
    } else if ((c & 0xF8) == 0xF0) {
        n = 4, v = c & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (i + n > len) return 0;
    for (int k = 1; k < n; ++k) {
        if ((s[i + k] & 0xC0) != 0x80) return 0;
        v = (v << 6) | (s[i + k] & 0x3F);
    }
    if (v < min || v > 0x10FFFF || (v >= 0xD800 && v <= 0xDFFF)) return 0;
    *cp = v;
    return n;
}
}  // namespace

namespace QzUtf8 {
bool IsValid(const char* s, int32_t len) {
    const auto* u = reinterpret_cast<const unsigned char*>(s);
    constexpr uint64_t kHighBits = 0x8080808080808080ULL;
    uint64_t eight;
    for (int32_t i = 0; i < len;) {
        // Eight ASCII bytes at a time: most names are nothing else. The last
        // few are read as the text's last eight when there are that many.
        if (i + 8 <= len) {
            std::memcpy(&eight, u + i, 8);
            if ((eight & kHighBits) == 0) {
                i += 8;
                continue;
            }
        } else if (len >= 8) {
            std::memcpy(&eight, u + len - 8, 8);
            if ((eight & kHighBits) == 0) return true;
        }
        if (u[i] < 0x80) {
            ++i;
            continue;
        }
        uint32_t cp;
        const int n = DecodeUtf8(u, len, i, &cp);
        if (n == 0) return false;
        i += n;
    }
    return true;
}
}  // namespace QzUtf8

QzUtf16String::~QzUtf16String() {
    std::free(buf_);
}

bool QzUtf16String::Reserve(int32_t units) {
    if (units <= cap_) return true;
    auto* p = static_cast<char16_t*>(std::realloc(buf_, static_cast<size_t>(units) * sizeof(char16_t)));
    if (!p) return false;
    buf_ = p;
    cap_ = units;
    return true;
}

namespace {
bool IsSeparator(char c) {
    return c == '\\' || c == '/';
}

// "\\server\share\...", either separator; not the device forms "\\?\" and "\\.\".
bool IsUncPath(const char* p, int32_t len) {
    return len >= 3 && IsSeparator(p[0]) && IsSeparator(p[1]) && p[2] != '?' && p[2] != '.' &&
           !IsSeparator(p[2]);
}

// "C:\..." or "C:/...", and network paths "\\server\share": the paths a
// long-path prefix can be put before. "\x" and "x\y" are relative.
bool IsAbsolutePath(const char* p, int32_t len) {
    if (len >= 3 && ((p[0] | 0x20) >= 'a' && (p[0] | 0x20) <= 'z') && p[1] == ':' && IsSeparator(p[2]))
        return true;
    return IsUncPath(p, len);
}
}  // namespace

bool QzUtf16String::ConvertUtf8QzStringToUtf16(const char* utf8, int32_t len, bool asPath,
                                               int32_t initialUnits) {
    return Convert(utf8, len, asPath ? Form::Path : Form::Text, initialUnits);
}

bool QzUtf16String::ConvertUtf8PreparedPathToUtf16(const char* utf8, int32_t len) {
    return Convert(utf8, len, Form::PreparedPath, 220);
}

bool QzUtf16String::Convert(const char* utf8, int32_t len, Form form, int32_t initialUnits) {
    len_ = 0;
    if (buf_) buf_[0] = 0;
    if (!utf8 || len < 0) return false;
    const bool given = form != Form::Text && len >= 4 && std::strncmp(utf8, "\\\\?\\", 4) == 0;
    const bool prefix = form == Form::Path && !given && len > 250 && IsAbsolutePath(utf8, len);
    // A long network path "\\server\share\..." takes the form "\\?\UNC\server\share\...".
    const bool unc = prefix && IsUncPath(utf8, len);
    if (unc) {
        utf8 += 2;
        len -= 2;
    }
    const bool backslashesOnly = given || prefix;
    // Every UTF-8 byte yields at most one UTF-16 unit.
    const int64_t worst = static_cast<int64_t>(len) + (prefix ? 8 : 0) + 1;
    if (worst > INT32_MAX / 2) return false;
    if (!Reserve(initialUnits > worst ? initialUnits : static_cast<int32_t>(worst))) return false;
    int32_t o = 0;
    if (prefix) {
        buf_[o++] = u'\\';
        buf_[o++] = u'\\';
        buf_[o++] = u'?';
        buf_[o++] = u'\\';
        if (unc) {
            buf_[o++] = u'U';
            buf_[o++] = u'N';
            buf_[o++] = u'C';
            buf_[o++] = u'\\';
        }
    }
    const auto* s = reinterpret_cast<const unsigned char*>(utf8);
    for (int32_t i = 0; i < len;) {
        uint32_t cp;
        const int n = DecodeUtf8(s, len, i, &cp);
        if (n == 0) {
            buf_[0] = 0;
            return false;
        }
        i += n;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            buf_[o++] = static_cast<char16_t>(0xD800 + (cp >> 10));
            buf_[o++] = static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
        } else {
            buf_[o++] = cp == '/' && backslashesOnly ? u'\\' : static_cast<char16_t>(cp);
        }
    }
    buf_[o] = 0;
    len_ = o;
    return true;
}

bool QzUtf16String::ConvertQzUtf16StringToUtf8(const char16_t* w, int32_t units, QzString* out) {
    out->Clear();
    if (!w || units < 0 || static_cast<int64_t>(units) * 3 + 1 > QzString::kMaxCapacity - 6) return false;
    if (!out->Reserve(units * 3 + 1)) return false;
    char* d = out->Data();
    int32_t o = 0;
    for (int32_t i = 0; i < units; ++i) {
        uint32_t cp = w[i];
        if (cp >= 0xD800 && cp <= 0xDBFF) {
            if (i + 1 >= units || w[i + 1] < 0xDC00 || w[i + 1] > 0xDFFF) {
                out->SetLength(0);
                return false;
            }
            cp = 0x10000 + ((cp - 0xD800) << 10) + (w[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xDC00 && cp <= 0xDFFF) {
            out->SetLength(0);
            return false;
        }
        if (cp < 0x80) {
            d[o++] = static_cast<char>(cp);
        } else if (cp < 0x800) {
            d[o++] = static_cast<char>(0xC0 | (cp >> 6));
            d[o++] = static_cast<char>(0x80 | (cp & 0x3F));
        } else if (cp < 0x10000) {
            d[o++] = static_cast<char>(0xE0 | (cp >> 12));
            d[o++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            d[o++] = static_cast<char>(0x80 | (cp & 0x3F));
        } else {
            d[o++] = static_cast<char>(0xF0 | (cp >> 18));
            d[o++] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
            d[o++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            d[o++] = static_cast<char>(0x80 | (cp & 0x3F));
        }
    }
    out->SetLength(o);
    return true;
}
