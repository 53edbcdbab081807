// QzFastFileReader: reads large text files (file lists of millions of lines)
// line by line through one fixed-size buffer, and greps them. Memory stays
// constant whatever the file size; a line longer than the buffer is still one
// line (its first kMaxKeptLineBytes are kept for display).
#pragma once

#include <cstdint>
#include <functional>

#include "QzOs.h"
#include "QzString.h"

class QzFastFileReader {
public:
    static constexpr int32_t kDefaultChunkBytes = 4 << 20;
    static constexpr int32_t kMaxKeptLineBytes = 1 << 20;
    static constexpr int32_t kMaxPatternBytes = 64 << 10;
    static constexpr int32_t kSampleBytes = 1 << 20;  // bytes counted to find a pattern's rarest byte

    explicit QzFastFileReader(int32_t chunkBytes = kDefaultChunkBytes);
    QzFastFileReader(const QzFastFileReader&) = delete;
    QzFastFileReader& operator=(const QzFastFileReader&) = delete;
    ~QzFastFileReader();

    // Opens the file for reading; on failure Error() says why, in the words of
    // the whole-file reader ("file_does_not_exist", "error_win32_CreateF_failed_5", ...).
    bool Open(const char* path);
    void Close();
    const QzString& Error() const { return error_; }

    // The next line without its "\n" (and without one "\r" before it). The
    // view stays valid until the next call. False at the end or on an error.
    // A line longer than kMaxKeptLineBytes comes back cut, with *truncatedRet set.
    bool NextLine(const char** dataRet, int32_t* lenRet, bool* truncatedRet = nullptr);
    // Number of the line NextLine returned last, from 1.
    int64_t LineNumber() const { return lineNumber_; }

    using HitFn = std::function<void(int64_t lineNumber, const char* line, int32_t len, bool truncated)>;
    // Calls onHit for every line containing the pattern (ASCII letters folded
    // when ignoreCase), in file order, stopping after maxHits. Reads from the
    // current position. False on a read error or an over-long pattern.
    bool Grep(const char* pattern, bool ignoreCase, int64_t maxHits, const HitFn& onHit);

private:
    bool Fill();  // moves unread bytes to the front and reads more; false at end or error

    QzOs::Handle handle_ = QzOs::kInvalidHandle;
    char* buf_ = nullptr;
    int32_t cap_ = 0;
    int32_t begin_ = 0;  // first unread byte
    int32_t end_ = 0;    // one past the last valid byte
    bool eof_ = false;
    int64_t lineNumber_ = 0;
    QzString longLine_;  // a line that did not fit the buffer
    QzString error_;
};
