// QzString: the program's byte string. Always UTF-8, always zero-terminated;
// a string without a buffer reads as "". Length and capacity are signed 32-bit.
#pragma once

#include <cstdint>

class QzString {
public:
    // Largest capacity a string may ever have; a request whose size plus 6
    // exceeds it is refused.
    static constexpr int32_t kMaxCapacity = 2147483628;

    QzString() = default;
    QzString(const char* text);  // NOLINT(google-explicit-constructor): used like a literal
    QzString(const char* text, int32_t len);
    QzString(const QzString& other);
    QzString(QzString&& other) noexcept;
    QzString& operator=(const QzString& other);
    QzString& operator=(QzString&& other) noexcept;
    ~QzString();

    const char* c_str() const { return buf_ ? buf_ : ""; }
    char* Data() { return buf_; }
    int32_t Length() const { return len_; }
    int32_t Capacity() const { return cap_; }
    bool IsEmpty() const { return len_ == 0; }
    char operator[](int32_t i) const { return buf_[i]; }
    char Last() const { return len_ > 0 ? buf_[len_ - 1] : '\0'; }

    // Makes room for n bytes (terminator included). Does nothing while n is
    // below the capacity. "generous" grows by a step chosen from the current
    // capacity, for strings that keep growing. A failed allocation leaves the
    // string empty; a request beyond kMaxCapacity fails and changes nothing.
    bool Reserve(int32_t n, bool generous = false);
    static int32_t CapacityForRequest(int32_t n, int32_t currentCapacity, bool generous);

    void Clear() { SetLength(0); }
    void Free();
    // Sets the length and writes the terminator, for text written through
    // Data() after a Reserve. False, changing nothing, when len is negative or
    // leaves no room for the terminator within the capacity.
    bool SetLength(int32_t len);
    void Truncate(int32_t len) {
        if (len >= 0 && len < len_) SetLength(len);
    }

    // Text may be a slice of this string's own text; a slice reaching past
    // the current length is refused (false, nothing changed).
    bool Set(const char* text);
    bool Set(const char* text, int32_t len);
    bool Set(const QzString& other) { return Set(other.c_str(), other.len_); }

    bool Append(const char* text);
    bool Append(const char* text, int32_t len);
    bool Append(const QzString& other) { return Append(other.c_str(), other.len_); }
    bool AppendChar(char c);
    bool AppendInt(int64_t value);
    // Zero-padded to at least `width` characters, as printf's "%0*lld".
    bool AppendPaddedInt(int64_t value, int width);
    // Lower-case hexadecimal of the value's 64 bits, zero-padded, as "%0*llx".
    bool AppendPaddedHex(int64_t value, int width);

    int Compare(const QzString& other) const;
    int CompareIgnoreCase(const QzString& other) const;
    bool Equals(const char* text) const;
    bool Equals(const QzString& other) const;
    bool EqualsIgnoreCase(const char* text) const;
    bool StartsWith(const char* prefix) const;
    bool StartsWithIgnoreCase(const char* prefix) const;
    bool EndsWith(const char* suffix) const;
    bool EndsWithIgnoreCase(const char* suffix) const;
    // Byte offset of the first occurrence at or after `from`, or -1.
    int32_t Find(const char* needle, int32_t from = 0) const;
    int32_t FindIgnoreCase(const char* needle, int32_t from = 0) const;
    bool Contains(const char* needle) const { return Find(needle) >= 0; }
    bool ContainsIgnoreCase(const char* needle) const { return FindIgnoreCase(needle) >= 0; }

private:
    // Whether text points into our buffer (*insideRet); false when such a
    // slice would reach past the current text into unwritten bytes.
    bool IsOwnSlice(const char* text, int32_t len, bool* insideRet) const;

    char* buf_ = nullptr;
    int32_t len_ = 0;
    int32_t cap_ = 0;
};

namespace QzStringUtil {
// ASCII upper-case letters map to lower case; every other byte to itself.
extern const unsigned char kLowerTable[256];
inline unsigned char ToLower(unsigned char c) {
    return kLowerTable[c];
}
int CompareBytes(const char* a, int32_t alen, const char* b, int32_t blen, bool ignoreCase);
int32_t FindBytes(const char* hay, int32_t haylen, const char* needle, int32_t nlen, int32_t from,
                  bool ignoreCase);
}  // namespace QzStringUtil

// Builds a QzString by concatenating text, QzStrings and integers, the way
// the program's log lines and file names are put together.
namespace QzStringDetail {
inline void AppendPart(QzString& s, const char* p) {
    s.Append(p);
}
inline void AppendPart(QzString& s, const QzString& p) {
    s.Append(p);
}
inline void AppendPart(QzString& s, char c) {
    s.AppendChar(c);
}
inline void AppendPart(QzString& s, int v) {
    s.AppendInt(v);
}
inline void AppendPart(QzString& s, long v) {
    s.AppendInt(v);
}
inline void AppendPart(QzString& s, long long v) {
    s.AppendInt(v);
}
inline void AppendPart(QzString& s, unsigned v) {
    s.AppendInt(v);
}
inline void AppendPart(QzString& s, unsigned long v) {
    s.AppendInt(static_cast<int64_t>(v));
}
inline void AppendPart(QzString& s, unsigned long long v) {
    s.AppendInt(static_cast<int64_t>(v));
}
void AppendPart(QzString& s, bool) = delete;
}  // namespace QzStringDetail

template <typename... Parts>
QzString QzCat(const Parts&... parts) {
    QzString s;
    (QzStringDetail::AppendPart(s, parts), ...);
    return s;
}
