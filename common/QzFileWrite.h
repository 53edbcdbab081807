// The two ways the program writes a file that another program may read at any
// moment: a whole file written under a temporary name and moved over its
// final name in one step, and a growing file built under its ".future" name
// and moved into place once it is complete. A reader therefore sees the old
// complete file or the new complete one, never a half-written one.
#pragma once

#include <cstdint>
#include <functional>

#include "QzString.h"

namespace QzFile {

// Called after each failed move with the number of failures so far, so that a
// caller can log the texts of its own (most callers log from a given failure on).
using MoveFailureFn = std::function<void(int failures)>;

// Creates or truncates the file, writes all bytes and flushes them to disk.
// Only for files no other program reads while they are written; every file
// that others read goes through WriteFileAtomically or FutureFile.
bool WriteEntireFile(const char* fileName, const char* data, int64_t len);
// One move with replace-existing and write-through; the target is replaced in one step.
bool AtomicMoveFile(const char* source, const char* target);
// Up to 10 moves 100 ms apart, logging "INFO: AtomicMoveFileWithRetry attempt
// failed: " after each failure and "ERROR: AtomicMoveFileWithRetry failed after
// 10 retries: " after the last.
bool AtomicMoveFileWithRetry(const char* source, const char* target);

// Appends `data` to a file (created when missing) in one write: for logs that
// grow by whole lines.
bool AppendToFile(const char* path, const char* data, int64_t len);

// Moves `source` over `target` (replace-existing, write-through) up to
// `attempts` times with `pauseMillis` between failed attempts.
bool MoveWithRetry(const char* source, const char* target, int attempts, uint32_t pauseMillis,
                   const MoveFailureFn& onFailure = {});

// How a whole-file replacement is tried.
struct ReplacePolicy {
    const char* tmpSuffix = ".tmp";
    int writeAttempts = 1;
    int moveAttempts = 10;
    uint32_t pauseMillis = 100;
    // Name used in the primitive's own lines ("INFO: <name> attempt failed: ...",
    // "ERROR: <name> failed after N retries: ..."). Null: the primitive logs
    // nothing and the caller reports from the result.
    const char* logName = "AtomicMoveFileWithRetry";
    // Called after each failed move (after the primitive's own line), for
    // callers whose retries log texts of their own.
    MoveFailureFn onMoveFailure;
    // Non-zero: the new file carries this last-modification time (a Win32
    // file time) from the moment it appears, as a copy keeps its original's.
    int64_t lastWriteTime = 0;
};

struct ReplaceResult {
    bool written = false;  // the temporary file was written completely and flushed
    bool moved = false;    // it replaced the target
    int writeAttempts = 0;
    int moveAttempts = 0;
};

// Writes `data` to path + policy.tmpSuffix, flushes it, and moves it over
// `path`. A temporary file that could not be moved into place is deleted, so
// a failure leaves the target exactly as it was.
bool WriteFileAtomically(const char* path, const char* data, int64_t len, const ReplacePolicy& policy = {},
                         ReplaceResult* resultRet = nullptr);
inline bool WriteFileAtomically(const QzString& path, const QzString& text, const ReplacePolicy& policy = {},
                                ReplaceResult* resultRet = nullptr) {
    return WriteFileAtomically(path.c_str(), text.c_str(), text.Length(), policy, resultRet);
}

// A file that grows while it is built: every byte goes to finalPath +
// ".future"; Finish moves it over the final name in one step. The handle is
// kept open between appends and closed before the move.
class FutureFile {
public:
    FutureFile() = default;
    explicit FutureFile(const QzString& finalPath) { SetFinalPath(finalPath); }
    ~FutureFile() { Close(); }
    FutureFile(const FutureFile&) = delete;
    FutureFile& operator=(const FutureFile&) = delete;

    void SetFinalPath(const QzString& finalPath);
    const QzString& FinalPath() const { return final_; }
    const QzString& FuturePath() const { return future_; }
    bool FutureExists() const;

    // Write-through: every append is flushed to the disk before it returns
    // (the diagnostic mode that shows how far a crashing scan got).
    void SetWriteThrough(bool on) { writeThrough_ = on; }

    // Creates the future file afresh (truncating a leftover) holding `header`.
    bool Create(const char* header, int64_t len);
    bool Create(const QzString& header) { return Create(header.c_str(), header.Length()); }
    // Appends to the future file, creating it when missing.
    bool Append(const char* data, int64_t len);
    bool Append(const QzString& text) { return Append(text.c_str(), text.Length()); }
    // Flushes what was appended to the disk.
    bool Flush();
    void Close();

    // Closes the file and moves it over the final name.
    bool Finish(int attempts = 10, uint32_t pauseMillis = 100, const MoveFailureFn& onFailure = {});
    // Closes the file and deletes it; the final file is left as it was.
    bool Abandon();

private:
    bool OpenForAppend();

    QzString final_;
    QzString future_;
    intptr_t handle_ = -1;  // an OS-layer handle, -1 when closed
    bool writeThrough_ = false;
    // Write-behind of large appends: the file's end (-1 when not known), the
    // end of the bytes whose write-back has been started and the start of
    // the bytes still kept in the cache.
    int64_t end_ = -1;
    int64_t startedTo_ = 0;
    int64_t cachedFrom_ = 0;
};

// Crash tests: every durable step of the functions above (the write of a
// whole file, its flush, a move, the creation of or an append to a growing
// file) is counted from 1 at start-up. When the count reaches `step` the
// process ends at once with exit code kCrashExitCode, as a kill would end it:
// a write is cut after half its bytes, a flush or a move does not happen.
// Each ending names the step on stderr ("crash point N: <kind> <path>").
// 0 (the default) never ends the process.
constexpr int kCrashExitCode = 86;
void SetCrashStepForTesting(int64_t step);

}  // namespace QzFile
