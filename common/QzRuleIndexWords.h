// Small word-level helpers shared by the rule index's build
// (QzRuleIndexBuild.cpp) and its look-ups (QzRuleIndex.cpp). Both sides must
// hash the same bytes the same way.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

namespace QzRuleIndexWords {

constexpr uint64_t kOnes = 0x0101010101010101ULL;
constexpr uint64_t kLow7 = 0x7F7F7F7F7F7F7F7FULL;
constexpr bool kLittleEndian = std::endian::native == std::endian::little;
// Words of the path and of the rules are hashed to this many bits.
constexpr int kHashBits = 9;

inline uint64_t Load64(const char* p) {
    uint64_t w;
    std::memcpy(&w, p, 8);
    return w;
}

inline uint32_t Load32(const char* p) {
    uint32_t w;
    std::memcpy(&w, p, 4);
    return w;
}

// ASCII A-Z to a-z in eight bytes at once; other bytes, including those of
// multi-byte UTF-8 sequences, are left alone.
inline uint64_t LowerAscii8(uint64_t x) {
    const uint64_t heptets = x & kLow7;
    const uint64_t atLeastA = heptets + (0x80 - 'A') * kOnes;
    const uint64_t aboveZ = heptets + (0x80 - 'Z' - 1) * kOnes;
    const uint64_t upper = atLeastA & ~aboveZ & ~x & (0x80 * kOnes);
    return x | (upper >> 2);
}

// 0x80 in every byte of x that equals c, 0 elsewhere.
inline uint64_t BytesEqual(uint64_t x, unsigned char c) {
    const uint64_t t = x ^ (c * kOnes);
    return ~(((t & kLow7) + kLow7) | t | kLow7);
}

inline bool IsSeparator(char c) {
    return c == '\\' || c == '/' || c == ':';
}

inline uint16_t Hash8(const char* p) {
    return static_cast<uint16_t>((Load64(p) * 0x9E3779B97F4A7C15ULL) >> (64 - kHashBits));
}
inline uint16_t Hash4(const char* p) {
    return static_cast<uint16_t>((Load32(p) * 0x9E3779B1u) >> (32 - kHashBits));
}

// Four bytes hashed to kGramBits bits, for the folder's set of every four
// bytes it holds.
constexpr int kGramBits = 12;
constexpr int kGramSize = 1 << kGramBits;
inline uint16_t Gram4(const char* p) {
    return static_cast<uint16_t>((Load32(p) * 0x9E3779B1u) >> (32 - kGramBits));
}

// An extension's first (up to) eight bytes as one word, zero-padded; for
// extensions of at most eight bytes it stands for the whole text.
inline uint64_t PackWord(const char* p, int32_t n) {
    uint64_t w = 0;
    std::memcpy(&w, p, static_cast<size_t>(n < 8 ? n : 8));
    return w;
}

inline uint32_t HashBytes(const char* p, int32_t n) {
    uint32_t h = 2166136261u;
    for (int32_t i = 0; i < n; ++i) {
        h ^= static_cast<unsigned char>(p[i]);
        h *= 16777619u;
    }
    return h;
}

// The last min(len, 8) bytes as one number, the last byte lowest.
inline uint64_t PackedTail(const char* s, int32_t len) {
    if (kLittleEndian && len >= 8) return __builtin_bswap64(Load64(s + len - 8));
    uint64_t v = 0;
    const int32_t n = len < 8 ? len : 8;
    for (int32_t i = 0; i < n; ++i) v |= uint64_t{static_cast<unsigned char>(s[len - 1 - i])} << (8 * i);
    return v;
}

// Equality of n bytes, inline: the texts compared here are short.
inline bool SameBytes(const char* a, const char* b, int32_t n) {
    int32_t i = 0;
    for (; i + 8 <= n; i += 8)
        if (Load64(a + i) != Load64(b + i)) return false;
    for (; i < n; ++i)
        if (a[i] != b[i]) return false;
    return true;
}

// Whether needle occurs in hay.
inline bool ContainsFrom(const char* hay, int32_t haylen, const char* needle, int32_t nlen) {
    if (nlen <= 0 || nlen > haylen) return false;
    const char* end = hay + haylen - nlen + 1;  // last start + 1
    for (const char* p = hay; p < end; ++p) {
        p = static_cast<const char*>(std::memchr(p, needle[0], static_cast<size_t>(end - p)));
        if (!p) return false;
        if (SameBytes(p + 1, needle + 1, nlen - 1)) return true;
    }
    return false;
}

inline uint32_t WordHash(uint64_t word, int32_t n) {
    return static_cast<uint32_t>((word * 0x9E3779B97F4A7C15ULL) >> 32) ^ static_cast<uint32_t>(n);
}

// The hash of an extension: of its word when it fits one, else of its bytes.
inline uint32_t ExtensionHash(const char* p, int32_t n) {
    return n <= 8 ? WordHash(PackWord(p, n), n) : HashBytes(p, n);
}

}  // namespace QzRuleIndexWords
