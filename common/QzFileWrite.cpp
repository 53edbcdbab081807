#include "QzFileWrite.h"

#include <cstdio>
#include <cstdlib>

#include "QzFile.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzTime.h"

namespace QzFile {

namespace {
// Appends at least this large are written behind (see FutureFile::Append).
constexpr int64_t kWriteBehindMinBytes = 1 << 20;
constexpr int64_t kWriteBehindSliceBytes = 4 << 20;

int64_t g_crashStep = 0;
int64_t g_stepsDone = 0;

// Counts one durable step; true when it is the one at which the process ends.
bool IsCrashStep(const char* kind, const char* path) {
    if (g_crashStep <= 0 || ++g_stepsDone != g_crashStep) return false;
    std::fprintf(stderr, "crash point %lld: %s %s\n", static_cast<long long>(g_stepsDone), kind,
                 path ? path : "");
    std::fflush(stderr);
    return true;
}

[[noreturn]] void EndAbruptly() {
    std::_Exit(kCrashExitCode);
}

// Writes everything in pieces the OS layer takes in one call. At the crash
// step only the first half is written before the process ends.
bool WriteAll(QzOs::Handle h, const char* data, int64_t len, const char* kind, const char* path) {
    const bool crash = IsCrashStep(kind, path);
    if (crash) len /= 2;
    for (int64_t done = 0; done < len;) {
        const int64_t chunk = len - done < (1 << 24) ? len - done : (1 << 24);
        if (QzOs::WriteFile(h, data + done, static_cast<uint32_t>(chunk)) != QzOs::ErrSuccess) return false;
        done += chunk;
    }
    if (crash) EndAbruptly();
    return true;
}

bool FlushDurably(QzOs::Handle h, const char* path) {
    if (IsCrashStep("flush", path)) EndAbruptly();
    return QzOs::FlushFile(h) == QzOs::ErrSuccess;
}
}  // namespace

void SetCrashStepForTesting(int64_t step) {
    g_crashStep = step;
    g_stepsDone = 0;
}

bool AppendToFile(const char* path, const char* data, int64_t len) {
    QzOs::Handle h;
    if (!path || QzOs::OpenFile(path, QzOs::OpenMode::Append, &h) != QzOs::ErrSuccess) return false;
    const bool ok = WriteAll(h, data, len, "append", path);
    QzOs::CloseFile(h);
    return ok;
}

bool WriteEntireFile(const char* fileName, const char* data, int64_t len) {
    QzOs::Handle h;
    if (!fileName || QzOs::OpenFile(fileName, QzOs::OpenMode::CreateAlways, &h) != QzOs::ErrSuccess)
        return false;
    bool ok = WriteAll(h, data, len, "write", fileName) && FlushDurably(h, fileName);
    QzOs::CloseFile(h);
    return ok;
}

bool AtomicMoveFile(const char* source, const char* target) {
    if (!source || !target) return false;
    if (IsCrashStep("move", target)) EndAbruptly();
    return QzOs::MoveFileReplace(source, target) == QzOs::ErrSuccess;
}

bool AtomicMoveFileWithRetry(const char* source, const char* target) {
    const QzString src(source ? source : ""), dst(target ? target : "");
    if (MoveWithRetry(source, target, 10, 100, [&](int) {
            QzLog::WriteLine(QzCat("INFO: AtomicMoveFileWithRetry attempt failed: ", src, " ", dst));
        }))
        return true;
    QzLog::WriteLine(QzCat("ERROR: AtomicMoveFileWithRetry failed after 10 retries: ", src, " ", dst));
    return false;
}

bool MoveWithRetry(const char* source, const char* target, int attempts, uint32_t pauseMillis,
                   const MoveFailureFn& onFailure) {
    for (int failures = 0; failures < attempts;) {
        if (AtomicMoveFile(source, target)) return true;
        ++failures;
        if (onFailure) onFailure(failures);
        if (failures < attempts) QzTime::SleepMillis(pauseMillis);
    }
    return false;
}

bool WriteFileAtomically(const char* path, const char* data, int64_t len, const ReplacePolicy& policy,
                         ReplaceResult* resultRet) {
    ReplaceResult local;
    ReplaceResult& r = resultRet ? *resultRet : local;
    r = ReplaceResult{};
    if (!path || (!data && len > 0)) return false;
    const QzString tmp = QzCat(path, policy.tmpSuffix);
    while (!r.written && r.writeAttempts < policy.writeAttempts) {
        if (r.writeAttempts++ > 0) QzTime::SleepMillis(policy.pauseMillis);
        r.written = WriteEntireFile(tmp.c_str(), data, len);
    }
    if (r.written && policy.lastWriteTime != 0)
        r.written = QzOs::SetFileLastWriteTime(tmp.c_str(), policy.lastWriteTime) == QzOs::ErrSuccess;
    if (!r.written) {
        DeleteFileIfExists(tmp.c_str());
        return false;
    }
    const char* name = policy.logName;
    r.moved = MoveWithRetry(tmp.c_str(), path, policy.moveAttempts, policy.pauseMillis, [&](int failures) {
        r.moveAttempts = failures;
        if (name) QzLog::WriteLine(QzCat("INFO: ", name, " attempt failed: ", tmp, " ", path));
        if (policy.onMoveFailure) policy.onMoveFailure(failures);
    });
    if (r.moved) {
        ++r.moveAttempts;
        return true;
    }
    if (name)
        QzLog::WriteLine(
            QzCat("ERROR: ", name, " failed after ", policy.moveAttempts, " retries: ", tmp, " ", path));
    DeleteFileIfExists(tmp.c_str());
    return false;
}

void FutureFile::SetFinalPath(const QzString& finalPath) {
    Close();
    final_ = finalPath;
    future_ = QzCat(finalPath, ".future");
}

bool FutureFile::FutureExists() const {
    return FileExists(future_.c_str());
}

bool FutureFile::OpenForAppend() {
    if (handle_ != QzOs::kInvalidHandle) return true;
    QzOs::Handle h;
    if (QzOs::OpenFile(future_.c_str(), QzOs::OpenMode::Append, &h) != QzOs::ErrSuccess) return false;
    handle_ = h;
    if (QzOs::GetFileSize(h, &end_) != QzOs::ErrSuccess) end_ = -1;
    startedTo_ = cachedFrom_ = end_;
    return true;
}

bool FutureFile::Create(const char* header, int64_t len) {
    Close();
    QzOs::Handle h;
    if (QzOs::OpenFile(future_.c_str(), QzOs::OpenMode::CreateAlways, &h) != QzOs::ErrSuccess) return false;
    bool ok = WriteAll(h, header, len, "create", future_.c_str());
    if (ok && writeThrough_) ok = FlushDurably(h, future_.c_str());
    QzOs::CloseFile(h);
    return ok;
}

bool FutureFile::Append(const char* data, int64_t len) {
    if (len <= 0) return true;
    if (!OpenForAppend()) return false;
    // A large append (a list's buffer) is written in slices of a few MiB,
    // each starting its own write-back at once. The bytes of the append
    // before this one (written while the walk filled this buffer, so mostly
    // on the disk by now) are settled first and dropped from the cache: at
    // most two appends of the file stay in the cache, their pages are
    // recycled for the next ones, the walk seldom waits for the disk, and
    // closing has little left to flush.
    const bool behind = len >= kWriteBehindMinBytes && !writeThrough_ && end_ >= 0;
    if (behind) {
        QzOs::WriteBehind(handle_, cachedFrom_, startedTo_, startedTo_);
        cachedFrom_ = startedTo_;
    }
    const int64_t slice = behind ? kWriteBehindSliceBytes : len;
    for (int64_t done = 0; done < len;) {
        const int64_t n = len - done < slice ? len - done : slice;
        bool ok = WriteAll(handle_, data + done, n, "append", future_.c_str());
        if (ok && writeThrough_) ok = FlushDurably(handle_, future_.c_str());
        if (!ok) {
            end_ = -1;  // a short write leaves the end unknown: no more write-behind
            return false;
        }
        done += n;
        if (end_ >= 0) end_ += n;
        if (behind) {
            QzOs::WriteBehind(handle_, startedTo_, startedTo_, end_);
            startedTo_ = end_;
        }
    }
    return true;
}

bool FutureFile::Flush() {
    return handle_ == QzOs::kInvalidHandle || FlushDurably(handle_, future_.c_str());
}

void FutureFile::Close() {
    if (handle_ == QzOs::kInvalidHandle) return;
    QzOs::FlushFile(handle_);
    QzOs::CloseFile(handle_);
    handle_ = QzOs::kInvalidHandle;
}

bool FutureFile::Finish(int attempts, uint32_t pauseMillis, const MoveFailureFn& onFailure) {
    Close();
    return MoveWithRetry(future_.c_str(), final_.c_str(), attempts, pauseMillis, onFailure);
}

bool FutureFile::Abandon() {
    Close();
    return DeleteFileIfExists(future_.c_str());
}

}  // namespace QzFile
