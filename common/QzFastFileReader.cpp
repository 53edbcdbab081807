#include "QzFastFileReader.h"

#include "QzFile.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Substring search over raw bytes, optionally folding ASCII letters. The
// shift is chosen from the last two bytes of the window (a Horspool variant
// over byte pairs): file lists are full of digits and separators that single
// bytes of a pattern also hold, but pairs of them rarely.
class Finder {
public:
    Finder(const char* pattern, int32_t len, bool fold) : len_(len), fold_(fold) {
        pat_.Set(pattern, len);
        if (fold_)
            for (int32_t i = 0; i < len_; ++i) pat_.Data()[i] = static_cast<char>(Low(pat_[i]));
        if (len_ < 2) return;
        const auto* p = reinterpret_cast<const unsigned char*>(pat_.c_str());
        const auto m = static_cast<uint16_t>(len_);
        shift_.assign(65536, m);
        for (int a = 0; a < 256; ++a) shift_[static_cast<size_t>(a << 8 | p[0])] = static_cast<uint16_t>(m - 1);
        for (int32_t j = 1; j < len_; ++j)
            shift_[static_cast<size_t>(p[j - 1] << 8 | p[j])] = static_cast<uint16_t>(len_ - 1 - j);
        // After a failed check at the candidate pair, move as if that pair
        // ended the pattern nowhere but earlier.
        afterMiss_ = static_cast<uint16_t>(p[0] == p[len_ - 1] ? m - 1 : m);
        for (int32_t j = 1; j < len_ - 1; ++j)
            if (p[j - 1] == p[len_ - 2] && p[j] == p[len_ - 1]) afterMiss_ = static_cast<uint16_t>(len_ - 1 - j);
    }

    // First match in [s, e), or e.
    const char* Find(const char* s, const char* e) const { return fold_ ? Scan<true>(s, e) : Scan<false>(s, e); }

private:
    static unsigned char Low(char c) { return QzStringUtil::ToLower(static_cast<unsigned char>(c)); }

    template <bool kFold>
    const char* Scan(const char* s, const char* e) const {
        const auto* p = reinterpret_cast<const unsigned char*>(pat_.c_str());
        if (len_ == 0) return s;
        if (len_ == 1) {
            for (; s < e; ++s)
                if ((kFold ? Low(*s) : static_cast<unsigned char>(*s)) == p[0]) return s;
            return e;
        }
        const int32_t m2 = len_ - 2;
        while (e - s >= len_) {
            const unsigned a = kFold ? Low(s[m2]) : static_cast<unsigned char>(s[m2]);
            const unsigned b = kFold ? Low(s[m2 + 1]) : static_cast<unsigned char>(s[m2 + 1]);
            const uint16_t sh = shift_[a << 8 | b];
            if (sh != 0) {
                s += sh;
                continue;
            }
            if (Same<kFold>(s, p, m2)) return s;
            s += afterMiss_;
        }
        return e;
    }

    template <bool kFold>
    static bool Same(const char* s, const unsigned char* p, int32_t n) {
        if (!kFold) return std::memcmp(s, p, static_cast<size_t>(n)) == 0;
        for (int32_t i = 0; i < n; ++i)
            if (Low(s[i]) != p[i]) return false;
        return true;
    }

    QzString pat_;
    int32_t len_;
    bool fold_;
    std::vector<uint16_t> shift_;
    uint16_t afterMiss_ = 1;
};

// Counts "\n" bytes eight at a time: a byte of x is zero exactly where the
// input held a newline, and the mask below has one bit per zero byte.
int64_t CountNewlines(const char* s, const char* e) {
    int64_t n = 0;
    for (; s < e && (reinterpret_cast<uintptr_t>(s) & 7) != 0; ++s) n += *s == '\n';
    constexpr uint64_t kLow7 = 0x7F7F7F7F7F7F7F7FULL;
    constexpr uint64_t kNewlines = 0x0A0A0A0A0A0A0A0AULL;
    for (; e - s >= 8; s += 8) {
        uint64_t w;
        std::memcpy(&w, s, 8);
        const uint64_t x = w ^ kNewlines;
        const uint64_t zeroBytes = ~(((x & kLow7) + kLow7) | x | kLow7);
        n += __builtin_popcountll(zeroBytes);
    }
    for (; s < e; ++s) n += *s == '\n';
    return n;
}

int32_t WithoutCr(const char* line, int32_t len) { return len > 0 && line[len - 1] == '\r' ? len - 1 : len; }

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
    const uint32_t err = path ? QzOs::OpenFile(path, QzOs::OpenMode::ReadShared, &handle_) : QzOs::ErrInvalidParameter;
    if (err == QzOs::ErrSuccess) return true;
    if (err == QzOs::ErrFileNotFound || err == QzOs::ErrPathNotFound) error_.Set("file_does_not_exist");
    else error_ = QzFile::OpenFailureText(err);
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
    const int32_t plen = pattern ? static_cast<int32_t>(std::strlen(pattern)) : -1;
    if (plen < 0 || plen > kMaxPatternBytes) {
        error_.Set(plen < 0 ? "bad_argument: pattern was NULL" : "error_pattern_is_too_long");
        return false;
    }
    if (!buf_ || handle_ == QzOs::kInvalidHandle) {
        if (error_.IsEmpty()) error_.Set("error_file_not_open");
        return false;
    }
    int64_t hits = 0;
    if (std::memchr(pattern, '\n', static_cast<size_t>(plen))) return true;  // no line can hold it
    if (plen == 0) {  // every line matches
        const char* line;
        int32_t len;
        bool truncated;
        while (hits < maxHits && NextLine(&line, &len, &truncated)) {
            onHit(lineNumber_, line, len, truncated);
            ++hits;
        }
        return error_.IsEmpty();
    }
    const Finder finder(pattern, plen, ignoreCase);

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
                          longCut ? longLine_.Length() : WithoutCr(longLine_.c_str(), longLine_.Length()), longCut);
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
