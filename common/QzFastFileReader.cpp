#include "QzFastFileReader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "QzFile.h"

namespace {

unsigned char Low(char c) {
    return QzStringUtil::ToLower(static_cast<unsigned char>(c));
}

uint64_t Load64(const char* p) {
    uint64_t w;
    std::memcpy(&w, p, 8);
    return w;
}

// ASCII A-Z to a-z in eight bytes at once; every other byte stays as it is.
uint64_t LowerAscii8(uint64_t x) {
    constexpr uint64_t kOnes = 0x0101010101010101ULL;
    constexpr uint64_t kLow7 = 0x7F7F7F7F7F7F7F7FULL;
    const uint64_t heptets = x & kLow7;
    const uint64_t atLeastA = heptets + (0x80 - 'A') * kOnes;
    const uint64_t aboveZ = heptets + (0x80 - 'Z' - 1) * kOnes;
    const uint64_t upper = atLeastA & ~aboveZ & ~x & (0x80 * kOnes);
    return x | (upper >> 2);
}

// How many leading bytes of s equal p (s folded when kFold; p is folded
// already), at most n. Compares eight bytes at a time.
template <bool kFold>
int32_t CommonPrefix(const char* s, const char* p, int32_t n) {
    int32_t i = 0;
    for (; n - i >= 8; i += 8) {
        const uint64_t w = kFold ? LowerAscii8(Load64(s + i)) : Load64(s + i);
        if (w != Load64(p + i)) break;
    }
    for (; i < n; ++i)
        if ((kFold ? Low(s[i]) : static_cast<unsigned char>(s[i])) != static_cast<unsigned char>(p[i])) break;
    return i;
}

// The first c in [s, e), or e.
const char* FindByte(const char* s, unsigned char c, const char* e) {
    const void* p = std::memchr(s, c, static_cast<size_t>(e - s));
    return p ? static_cast<const char*>(p) : e;
}

// Substring search over raw bytes, optionally folding ASCII letters.
//
// A pattern that holds a byte rare in the file (an upper-case letter, a
// blank, a digit in a run of letters) is searched by jumping with memchr from
// one occurrence of its rarest byte to the next and comparing the pattern
// around each. Which byte is rarest is counted on the first block of the file.
// A pattern made only of common bytes is searched with shifts chosen from the
// last two bytes of the window (a Horspool variant over byte pairs): file
// lists are full of digits and separators that single bytes of a pattern also
// hold, but pairs of them rarely.
// Either way, once comparisons have cost more than a few times the bytes
// passed (a pattern that nearly matches everywhere), the rest of the range is
// searched by Knuth-Morris-Pratt, which is linear whatever the input.
class Finder {
public:
    Finder(const char* pattern, int32_t len, bool fold, const char* sample, int32_t sampleLen)
        : pat_(pattern, pattern + len), len_(len), fold_(fold) {
        if (fold_)
            for (char& c : pat_) c = static_cast<char>(Low(c));
        if (len_ == 0) return;
        int64_t counts[256] = {};
        for (int32_t i = 0; i < sampleLen; ++i) ++counts[static_cast<unsigned char>(sample[i])];
        int64_t rarest = INT64_MAX;
        for (int32_t i = 0; i < len_; ++i) {
            const auto c = static_cast<unsigned char>(pat_[i]);
            const auto other = static_cast<unsigned char>(fold_ && c >= 'a' && c <= 'z' ? c - 32 : c);
            const int64_t n = counts[c] + (other != c ? counts[other] : 0);
            if (n < rarest) {
                rarest = n;
                rareAt_ = i;
                rare_[0] = c;
                rare_[1] = other;
            }
        }
        byRareByte_ = len_ < 2 || rarest * kRareRatio <= sampleLen;
        if (!byRareByte_) BuildPairShifts();
    }

    // First match in [s, e), or e.
    const char* Find(const char* s, const char* e) {
        if (len_ == 0) return s;
        if (byRareByte_) return fold_ ? ByRareByte<true>(s, e) : ByRareByte<false>(s, e);
        return fold_ ? ByPairs<true>(s, e) : ByPairs<false>(s, e);
    }

private:
    // A byte is rare enough to search by when at most one byte in this many is one.
    static constexpr int64_t kRareRatio = 64;
    // Comparison work allowed per byte passed (and once per search) before
    // the linear search takes over.
    static constexpr int64_t kWorkPerByte = 8;
    static constexpr int64_t kWorkSlack = 4096;

    void BuildPairShifts() {
        const auto* p = reinterpret_cast<const unsigned char*>(pat_.data());
        // Shifts up to the pattern length; a shorter shift is always safe, so
        // a pattern longer than the table's 16 bits takes the largest entry.
        auto clamp = [](int32_t v) { return static_cast<uint16_t>(std::min(v, 65535)); };
        shift_.assign(65536, clamp(len_));
        for (int a = 0; a < 256; ++a) shift_[static_cast<size_t>(a << 8 | p[0])] = clamp(len_ - 1);
        for (int32_t j = 1; j < len_; ++j)
            shift_[static_cast<size_t>(p[j - 1] << 8 | p[j])] = clamp(len_ - 1 - j);
        // After a failed check at the candidate pair, move as if that pair
        // ended the pattern nowhere but earlier.
        afterMiss_ = clamp(p[0] == p[len_ - 1] ? len_ - 1 : len_);
        for (int32_t j = 1; j < len_ - 1; ++j)
            if (p[j - 1] == p[len_ - 2] && p[j] == p[len_ - 1]) afterMiss_ = clamp(len_ - 1 - j);
    }

    template <bool kFold>
    const char* ByRareByte(const char* s, const char* e) {
        if (e - s < len_) return e;
        const char* const start = s;
        const unsigned char a = rare_[0], b = rare_[1];
        // Candidates are the positions of the rare byte in [from, to).
        const char* from = s + rareAt_;
        const char* const to = e - len_ + rareAt_ + 1;
        // With both cases of a letter to look for, the two are searched window
        // by window, the window growing while it holds none, so that a search
        // ending at a near hit has not scanned far ahead for the other case.
        int64_t window = a == b ? INT64_MAX : 256;
        int64_t work = 0;
        while (from < to) {
            const char* const wend = to - from > window ? from + window : to;
            const char* na = FindByte(from, a, wend);
            const char* nb = a == b ? wend : FindByte(from, b, wend);
            while (na < wend || nb < wend) {
                const char* c;
                if (na < nb) {
                    c = na;
                    na = FindByte(c + 1, a, wend);
                } else {
                    c = nb;
                    nb = FindByte(c + 1, b, wend);
                }
                const char* const candidate = c - rareAt_;
                const int32_t same = CommonPrefix<kFold>(candidate, pat_.data(), len_);
                if (same == len_) return candidate;
                work += same + 16;
                if (work > kWorkPerByte * (c - start) + kWorkSlack) return Linear<kFold>(candidate + 1, e);
            }
            from = wend;
            if (window < (1 << 20)) window *= 2;
        }
        return e;
    }

    template <bool kFold>
    const char* ByPairs(const char* s, const char* e) {
        const char* const start = s;
        const int32_t m2 = len_ - 2;
        int64_t work = 0;
        while (e - s >= len_) {
            const unsigned x = kFold ? Low(s[m2]) : static_cast<unsigned char>(s[m2]);
            const unsigned y = kFold ? Low(s[m2 + 1]) : static_cast<unsigned char>(s[m2 + 1]);
            const uint16_t sh = shift_[x << 8 | y];
            if (sh != 0) {
                s += sh;
                continue;
            }
            // The window's last pair is the pattern's; compare the rest.
            const int32_t same = CommonPrefix<kFold>(s, pat_.data(), m2);
            if (same == m2) return s;
            work += same + 16;
            if (work > kWorkPerByte * (s - start) + kWorkSlack) return Linear<kFold>(s + 1, e);
            s += afterMiss_;
        }
        return e;
    }

    template <bool kFold>
    const char* Linear(const char* s, const char* e) {
        const auto* p = reinterpret_cast<const unsigned char*>(pat_.data());
        if (border_.empty()) {
            // border_[i]: length of the longest proper prefix of p[0..i] that is also its suffix.
            border_.assign(static_cast<size_t>(len_), 0);
            for (int32_t i = 1, k = 0; i < len_; ++i) {
                while (k > 0 && p[i] != p[k]) k = border_[static_cast<size_t>(k - 1)];
                if (p[i] == p[k]) ++k;
                border_[static_cast<size_t>(i)] = k;
            }
        }
        int32_t q = 0;  // bytes of the pattern matched so far
        for (; s < e; ++s) {
            const unsigned char c = kFold ? Low(*s) : static_cast<unsigned char>(*s);
            while (q > 0 && p[q] != c) q = border_[static_cast<size_t>(q - 1)];
            if (p[q] == c && ++q == len_) return s - (len_ - 1);
        }
        return e;
    }

    std::vector<char> pat_;  // folded when fold_
    int32_t len_;
    bool fold_;
    bool byRareByte_ = true;
    int32_t rareAt_ = 0;              // where the rarest byte sits in the pattern
    unsigned char rare_[2] = {0, 0};  // that byte, and its other case (the same byte if none)
    std::vector<uint16_t> shift_;
    uint16_t afterMiss_ = 1;
    std::vector<int32_t> border_;  // for the linear search, made when first needed
};

// Counts "\n" bytes. Sixteen one-byte counters take up to 255 blocks of 16
// bytes before they are summed: a loop the compiler turns into vector compares.
int64_t CountNewlines(const char* s, const char* e) {
    int64_t n = 0;
    while (e - s >= 16) {
        const int64_t blocks = std::min<int64_t>((e - s) / 16, 255);
        unsigned char lanes[16] = {};
        for (int64_t b = 0; b < blocks; ++b, s += 16)
            for (int i = 0; i < 16; ++i) lanes[i] = static_cast<unsigned char>(lanes[i] + (s[i] == '\n'));
        for (const unsigned char c : lanes) n += c;
    }
    for (; s < e; ++s) n += *s == '\n';
    return n;
}

int32_t WithoutCr(const char* line, int32_t len) {
    return len > 0 && line[len - 1] == '\r' ? len - 1 : len;
}

const char* LastNewline(const char* s, const char* e) {
    while (e > s)
        if (*--e == '\n') return e;
    return nullptr;
}

}  // namespace

QzFastFileReader::QzFastFileReader(int32_t chunkBytes)
    : cap_(std::max<int32_t>(chunkBytes, 2 * kMaxPatternBytes + 16)) {}

QzFastFileReader::~QzFastFileReader() {
    Close();
    std::free(buf_);
}

bool QzFastFileReader::Open(const char* path) {
    Close();
    error_.Clear();
    begin_ = end_ = 0;
    eof_ = false;
    lineNumber_ = 0;
    longLine_.Clear();
    if (!buf_ && !(buf_ = static_cast<char*>(std::malloc(static_cast<size_t>(cap_))))) {
        error_ = QzCat("error_could_not_malloc_rawbuf_of_", cap_, "_bytes");
        return false;
    }
    const uint32_t err =
        path ? QzOs::OpenFile(path, QzOs::OpenMode::ReadShared, &handle_) : QzOs::ErrInvalidParameter;
    if (err == QzOs::ErrSuccess) return true;
    if (err == QzOs::ErrFileNotFound || err == QzOs::ErrPathNotFound)
        error_.Set("file_does_not_exist");
    else
        error_ = QzFile::OpenFailureText(err);
    return false;
}

void QzFastFileReader::Close() {
    if (handle_ != QzOs::kInvalidHandle) QzOs::CloseFile(handle_);
    handle_ = QzOs::kInvalidHandle;
}

bool QzFastFileReader::Fill() {
    if (eof_ || handle_ == QzOs::kInvalidHandle) {
        eof_ = true;
        return false;
    }
    if (begin_ > 0) {
        std::memmove(buf_, buf_ + begin_, static_cast<size_t>(end_ - begin_));
        end_ -= begin_;
        begin_ = 0;
    }
    uint32_t got = 0;
    const uint32_t err = QzOs::ReadFile(handle_, buf_ + end_, static_cast<uint32_t>(cap_ - end_), &got);
    if (err != QzOs::ErrSuccess) {
        error_ = QzFile::ReadFailureText(err);
        eof_ = true;
        return false;
    }
    if (got == 0) {
        eof_ = true;
        return false;
    }
    end_ += static_cast<int32_t>(got);
    return true;
}

namespace {
// Appends to a kept long line up to the display limit; says whether it was cut.
void Keep(QzString& line, const char* s, int32_t n, bool* cut) {
    const int32_t room = QzFastFileReader::kMaxKeptLineBytes - line.Length();
    if (n > room) {
        *cut = true;
        n = room > 0 ? room : 0;
    }
    line.Append(s, n);
}
}  // namespace

bool QzFastFileReader::NextLine(const char** dataRet, int32_t* lenRet, bool* truncatedRet) {
    bool cut = false;
    bool inLong = false;
    longLine_.Clear();
    for (;;) {
        const char* s = buf_ + begin_;
        const auto* nl = static_cast<const char*>(std::memchr(s, '\n', static_cast<size_t>(end_ - begin_)));
        if (nl || (eof_ && (begin_ < end_ || inLong))) {
            const int32_t n = nl ? static_cast<int32_t>(nl - s) : end_ - begin_;
            begin_ += n + (nl ? 1 : 0);
            ++lineNumber_;
            if (truncatedRet) *truncatedRet = false;
            if (!inLong) {
                *dataRet = s;
                *lenRet = WithoutCr(s, n);
                return true;
            }
            Keep(longLine_, s, n, &cut);
            *dataRet = longLine_.c_str();
            *lenRet = cut ? longLine_.Length() : WithoutCr(longLine_.c_str(), longLine_.Length());
            if (truncatedRet) *truncatedRet = cut;
            return true;
        }
        if (eof_) return false;
        if (begin_ == 0 && end_ == cap_) {  // the buffer holds part of one line only
            inLong = true;
            Keep(longLine_, buf_, end_, &cut);
            begin_ = end_;
        }
        if (!Fill() && !error_.IsEmpty()) return false;
    }
}

bool QzFastFileReader::Grep(const char* pattern, bool ignoreCase, int64_t maxHits, const HitFn& onHit) {
    if (!pattern || std::strlen(pattern) > static_cast<size_t>(kMaxPatternBytes)) {
        error_.Set(pattern ? "error_pattern_is_too_long" : "bad_argument: pattern was NULL");
        return false;
    }
    const auto plen = static_cast<int32_t>(std::strlen(pattern));
    if (!buf_ || handle_ == QzOs::kInvalidHandle) {
        if (error_.IsEmpty()) error_.Set("error_file_not_open");
        return false;
    }
    int64_t hits = 0;
    if (std::memchr(pattern, '\n', static_cast<size_t>(plen))) return true;  // no line can hold it
    if (plen == 0) {                                                         // every line matches
        const char* line;
        int32_t len;
        bool truncated;
        while (hits < maxHits && NextLine(&line, &len, &truncated)) {
            onHit(lineNumber_, line, len, truncated);
            ++hits;
        }
        return error_.IsEmpty();
    }
    // The rarest byte of the pattern is chosen by counting the first block.
    if (begin_ == end_ && !Fill() && !error_.IsEmpty()) return false;
    Finder finder(pattern, plen, ignoreCase, buf_ + begin_, std::min(end_ - begin_, kSampleBytes));

    // A line that outgrew the buffer: its head is kept for display, only the
    // last plen-1 bytes stay in the buffer so a match across refills is found.
    bool inLong = false, longMatched = false, longCut = false;
    int32_t longOverlap = 0;  // bytes at begin_ already searched and kept
    longLine_.Clear();

    for (;;) {
        const char* s = buf_ + begin_;
        const char* e = buf_ + end_;
        if (inLong) {
            const auto* nl = static_cast<const char*>(std::memchr(s, '\n', static_cast<size_t>(e - s)));
            const char* stop = nl ? nl : (eof_ ? e : nullptr);
            if (stop) {
                if (!longMatched && finder.Find(s, stop) != stop) longMatched = true;
                Keep(longLine_, s + longOverlap, static_cast<int32_t>(stop - s) - longOverlap, &longCut);
                ++lineNumber_;
                if (longMatched) {
                    onHit(lineNumber_, longLine_.c_str(),
                          longCut ? longLine_.Length() : WithoutCr(longLine_.c_str(), longLine_.Length()),
                          longCut);
                    if (++hits >= maxHits) return true;
                }
                inLong = longMatched = longCut = false;
                longOverlap = 0;
                longLine_.Clear();
                begin_ = static_cast<int32_t>(stop - buf_) + (nl ? 1 : 0);
                continue;
            }
            if (end_ == cap_) {
                if (!longMatched && finder.Find(s, e) != e) longMatched = true;
                Keep(longLine_, s + longOverlap, static_cast<int32_t>(e - s) - longOverlap, &longCut);
                longOverlap = plen - 1;
                begin_ = end_ - longOverlap;
            }
            if (!Fill() && !error_.IsEmpty()) return false;
            continue;
        }

        // Complete lines in the buffer: search them as one block and map each
        // hit to its line; lines are counted only up to each hit.
        const char* lastNl = LastNewline(s, e);
        const char* block = lastNl ? lastNl + 1 : s;
        const char* pos = s;
        const char* counted = s;
        while (pos < block) {
            const char* h = finder.Find(pos, block);
            if (h == block) break;
            const char* ls = h;
            while (ls > pos && ls[-1] != '\n') --ls;
            const auto* le = static_cast<const char*>(std::memchr(h, '\n', static_cast<size_t>(block - h)));
            lineNumber_ += CountNewlines(counted, ls) + 1;
            onHit(lineNumber_, ls, WithoutCr(ls, static_cast<int32_t>(le - ls)), false);
            counted = pos = le + 1;
            if (++hits >= maxHits) {
                begin_ = static_cast<int32_t>(pos - buf_);
                return true;
            }
        }
        lineNumber_ += CountNewlines(counted, block);
        begin_ = static_cast<int32_t>(block - buf_);

        if (eof_) {
            if (begin_ < end_) {  // a last line without "\n"
                const char* ls = buf_ + begin_;
                ++lineNumber_;
                if (finder.Find(ls, e) != e) {
                    onHit(lineNumber_, ls, WithoutCr(ls, static_cast<int32_t>(e - ls)), false);
                    ++hits;
                }
                begin_ = end_;
            }
            return error_.IsEmpty();
        }
        if (begin_ == 0 && end_ == cap_) {
            inLong = true;
            continue;
        }
        if (!Fill() && !error_.IsEmpty()) return false;
    }
}
