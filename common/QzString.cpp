#include "QzString.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace QzStringUtil {

const unsigned char kLowerTable[256] = {
#define QZ_L(i) static_cast<unsigned char>((i) >= 'A' && (i) <= 'Z' ? (i) + 32 : (i))
#define QZ_L4(i) QZ_L(i), QZ_L(i + 1), QZ_L(i + 2), QZ_L(i + 3)
#define QZ_L16(i) QZ_L4(i), QZ_L4(i + 4), QZ_L4(i + 8), QZ_L4(i + 12)
#define QZ_L64(i) QZ_L16(i), QZ_L16(i + 16), QZ_L16(i + 32), QZ_L16(i + 48)
    QZ_L64(0), QZ_L64(64), QZ_L64(128), QZ_L64(192)
#undef QZ_L64
#undef QZ_L16
#undef QZ_L4
#undef QZ_L
};

int CompareBytes(const char* a, int32_t alen, const char* b, int32_t blen, bool ignoreCase) {
    const int32_t n = alen < blen ? alen : blen;
    const auto* ua = reinterpret_cast<const unsigned char*>(a);
    const auto* ub = reinterpret_cast<const unsigned char*>(b);
    for (int32_t i = 0; i < n; ++i) {
        const unsigned char ca = ignoreCase ? kLowerTable[ua[i]] : ua[i];
        const unsigned char cb = ignoreCase ? kLowerTable[ub[i]] : ub[i];
        if (ca != cb) return ca < cb ? -1 : 1;
    }
    if (alen == blen) return 0;
    return alen < blen ? -1 : 1;
}

int32_t FindBytes(const char* hay, int32_t haylen, const char* needle, int32_t nlen, int32_t from,
                  bool ignoreCase) {
    if (from < 0) from = 0;
    if (nlen == 0) return from <= haylen ? from : -1;
    if (nlen > haylen) return -1;
    const auto* h = reinterpret_cast<const unsigned char*>(hay);
    const auto* nd = reinterpret_cast<const unsigned char*>(needle);
    const unsigned char first = ignoreCase ? kLowerTable[nd[0]] : nd[0];
    for (int32_t i = from; i <= haylen - nlen; ++i) {
        const unsigned char c = ignoreCase ? kLowerTable[h[i]] : h[i];
        if (c != first) continue;
        int32_t k = 1;
        for (; k < nlen; ++k) {
            const unsigned char x = ignoreCase ? kLowerTable[h[i + k]] : h[i + k];
            const unsigned char y = ignoreCase ? kLowerTable[nd[k]] : nd[k];
            if (x != y) break;
        }
        if (k == nlen) return i;
    }
    return -1;
}

}  // namespace QzStringUtil

namespace {
int32_t SafeLen(const char* text) {
    if (!text) return 0;
    const size_t n = std::strlen(text);
    return n > static_cast<size_t>(QzString::kMaxCapacity) ? -1 : static_cast<int32_t>(n);
}

// Writes the decimal digits of |value| backwards into the end of buf; returns
// the number of digits.
int UnsignedDigits(uint64_t v, char* end, int base) {
    static const char kDigits[] = "0123456789abcdef";
    int n = 0;
    do {
        *--end = kDigits[v % static_cast<uint64_t>(base)];
        v /= static_cast<uint64_t>(base);
        ++n;
    } while (v != 0);
    return n;
}
}  // namespace

QzString::QzString(const char* text) {
    Set(text);
}
QzString::QzString(const char* text, int32_t len) {
    Set(text, len);
}
QzString::QzString(const QzString& other) {
    Set(other);
}
QzString::QzString(QzString&& other) noexcept
    : buf_(std::exchange(other.buf_, nullptr)),
      len_(std::exchange(other.len_, 0)),
      cap_(std::exchange(other.cap_, 0)) {}

QzString& QzString::operator=(const QzString& other) {
    if (this != &other) Set(other);
    return *this;
}

QzString& QzString::operator=(QzString&& other) noexcept {
    if (this != &other) {
        std::free(buf_);
        buf_ = std::exchange(other.buf_, nullptr);
        len_ = std::exchange(other.len_, 0);
        cap_ = std::exchange(other.cap_, 0);
    }
    return *this;
}

QzString::~QzString() {
    std::free(buf_);
}

void QzString::Free() {
    std::free(buf_);
    buf_ = nullptr;
    len_ = 0;
    cap_ = 0;
}

int32_t QzString::CapacityForRequest(int32_t n, int32_t cap, bool generous) {
    int64_t want;
    if (n < 15) {
        want = 15;
    } else if (!generous) {
        want = static_cast<int64_t>(n) + 11;
    } else if (cap < 1000) {
        want = (static_cast<int64_t>(n - 14) / 20) * 20 + 35;
    } else if (cap < 10000) {
        want = static_cast<int64_t>(n) + 1001;
    } else if (cap < 400000) {
        want = static_cast<int64_t>(n) + 100001;
    } else if (cap < 20000000) {
        want = static_cast<int64_t>(n) + 10000001;
    } else if (cap < 60000000) {
        want = static_cast<int64_t>(n) + 20000001;
    } else {
        want = static_cast<int64_t>(n) + 100000001;
    }
    return want > kMaxCapacity ? kMaxCapacity : static_cast<int32_t>(want);
}

bool QzString::Reserve(int32_t n, bool generous) {
    if (n < 0) return false;
    if (n < cap_) return true;
    if (static_cast<int64_t>(n) + 6 > kMaxCapacity) return false;
    const int32_t newCap = CapacityForRequest(n, cap_, generous);
    char* p = static_cast<char*>(std::realloc(buf_, static_cast<size_t>(newCap)));
    if (!p) {
        Free();
        return false;
    }
    if (!buf_) p[0] = '\0';
    buf_ = p;
    cap_ = newCap;
    return true;
}

bool QzString::SetLength(int32_t len) {
    if (!buf_) return len == 0;
    if (len < 0 || len >= cap_) return false;
    len_ = len;
    buf_[len_] = '\0';
    return true;
}

bool QzString::IsOwnSlice(const char* text, int32_t len, bool* insideRet) const {
    *insideRet = buf_ && text >= buf_ && text < buf_ + cap_;
    return !*insideRet || static_cast<int64_t>(text - buf_) + len <= len_;
}

bool QzString::Set(const char* text) {
    const int32_t n = SafeLen(text);
    return n >= 0 && Set(text, n);
}

bool QzString::Set(const char* text, int32_t len) {
    bool inside;
    if (len < 0 || !IsOwnSlice(text, len, &inside)) return false;
    if (inside) {  // a slice of our own text: move it to the front
        std::memmove(buf_, text, static_cast<size_t>(len));
        return SetLength(len);
    }
    Clear();
    return Append(text, len);
}

bool QzString::Append(const char* text) {
    const int32_t n = SafeLen(text);
    return n >= 0 && Append(text, n);
}

bool QzString::Append(const char* text, int32_t len) {
    if (len < 0) return false;
    if (len == 0) {
        if (!buf_) return Reserve(1);
        return true;
    }
    const int64_t need = static_cast<int64_t>(len_) + len + 1;
    if (need + 6 > kMaxCapacity) return false;
    // The text may point into our own buffer, which Reserve can move.
    bool inside;
    if (!IsOwnSlice(text, len, &inside)) return false;
    const int64_t offset = inside ? text - buf_ : 0;
    if (!Reserve(static_cast<int32_t>(need), true)) return false;
    if (inside) text = buf_ + offset;
    std::memmove(buf_ + len_, text, static_cast<size_t>(len));
    len_ += len;
    buf_[len_] = '\0';
    return true;
}

bool QzString::AppendChar(char c) {
    return Append(&c, 1);
}

bool QzString::AppendInt(int64_t value) {
    return AppendPaddedInt(value, 0);
}

bool QzString::AppendPaddedInt(int64_t value, int width) {
    char tmp[96];
    char* end = tmp + sizeof tmp;
    const bool neg = value < 0;
    const uint64_t mag = neg ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    const int digits = UnsignedDigits(mag, end, 10);
    char* p = end - digits;
    if (width > 64) width = 64;
    // printf puts the sign before the zeros and counts it in the width.
    int zeros = width - digits - (neg ? 1 : 0);
    while (zeros-- > 0) *--p = '0';
    if (neg) *--p = '-';
    return Append(p, static_cast<int32_t>(end - p));
}

bool QzString::AppendPaddedHex(int64_t value, int width) {
    char tmp[96];
    char* end = tmp + sizeof tmp;
    const int digits = UnsignedDigits(static_cast<uint64_t>(value), end, 16);
    char* p = end - digits;
    if (width > 64) width = 64;
    int zeros = width - digits;
    while (zeros-- > 0) *--p = '0';
    return Append(p, static_cast<int32_t>(end - p));
}

int QzString::Compare(const QzString& o) const {
    return QzStringUtil::CompareBytes(c_str(), len_, o.c_str(), o.len_, false);
}
int QzString::CompareIgnoreCase(const QzString& o) const {
    return QzStringUtil::CompareBytes(c_str(), len_, o.c_str(), o.len_, true);
}
bool QzString::Equals(const QzString& o) const {
    return len_ == o.len_ && std::memcmp(c_str(), o.c_str(), static_cast<size_t>(len_)) == 0;
}
bool QzString::Equals(const char* text) const {
    const int32_t n = SafeLen(text);
    return n == len_ && std::memcmp(c_str(), text ? text : "", static_cast<size_t>(n)) == 0;
}
bool QzString::EqualsIgnoreCase(const char* text) const {
    const int32_t n = SafeLen(text);
    return n == len_ && QzStringUtil::CompareBytes(c_str(), len_, text ? text : "", n, true) == 0;
}
bool QzString::StartsWith(const char* prefix) const {
    const int32_t n = SafeLen(prefix);
    return n >= 0 && n <= len_ && std::memcmp(c_str(), prefix ? prefix : "", static_cast<size_t>(n)) == 0;
}
bool QzString::StartsWithIgnoreCase(const char* prefix) const {
    const int32_t n = SafeLen(prefix);
    return n >= 0 && n <= len_ && QzStringUtil::CompareBytes(c_str(), n, prefix ? prefix : "", n, true) == 0;
}
bool QzString::EndsWith(const char* suffix) const {
    const int32_t n = SafeLen(suffix);
    return n >= 0 && n <= len_ &&
           std::memcmp(c_str() + len_ - n, suffix ? suffix : "", static_cast<size_t>(n)) == 0;
}
bool QzString::EndsWithIgnoreCase(const char* suffix) const {
    const int32_t n = SafeLen(suffix);
    return n >= 0 && n <= len_ &&
           QzStringUtil::CompareBytes(c_str() + len_ - n, n, suffix ? suffix : "", n, true) == 0;
}
int32_t QzString::Find(const char* needle, int32_t from) const {
    const int32_t n = SafeLen(needle);
    if (n < 0) return -1;
    return QzStringUtil::FindBytes(c_str(), len_, needle ? needle : "", n, from, false);
}
int32_t QzString::FindIgnoreCase(const char* needle, int32_t from) const {
    const int32_t n = SafeLen(needle);
    if (n < 0) return -1;
    return QzStringUtil::FindBytes(c_str(), len_, needle ? needle : "", n, from, true);
}
