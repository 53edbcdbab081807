#include "QzLock.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileWrite.h"
#include "QzLog.h"
#include "QzOs.h"
#include "QzSystem.h"
#include "QzTime.h"

namespace QzLock {

namespace {

constexpr int64_t kMaxBackoffMillis = 3000;
constexpr int64_t kRefreshQuietMillis = 15000;
constexpr int64_t kClockSkewWarnMillis = 300000;
constexpr int64_t kHeartbeatMillis = 300000;
constexpr int64_t kHeartbeatLateMillis = 3000000;
constexpr int64_t kRegrabStaleSeconds = 3600;
constexpr int kRegrabWaitSeconds = 3;

// Makes the probe and temporary names of this process unique even when the
// clock does not move between two of them.
std::atomic<int64_t> g_nameCounter{0};

std::unique_ptr<FileBasedLock> g_globalLock;
int64_t g_globalLastRefresh = 0;

// Creates an empty file, failing when it exists already.
bool CreateExclusively(const char* path) {
    QzOs::Handle h;
    if (QzOs::OpenFile(path, QzOs::OpenMode::CreateNew, &h) != QzOs::ErrSuccess) return false;
    QzOs::CloseFile(h);
    return true;
}

// Records a successful grab in the lock object.
std::unique_ptr<FileBasedLock> Grabbed(std::unique_ptr<FileBasedLock> lock) {
    lock->fileModTime = QzFile::GetFileLastModMillis(lock->path.c_str());
    lock->lastRefresh = QzTime::GetCurrentGmtMillis();
    return lock;
}

QzString Pid() {
    return QzCat(QzSystem::GetProcessId());
}

}  // namespace

int64_t FileSystemNowMillis(const QzString& lockPath) {
    const QzString probe = QzCat(lockPath, static_cast<long long>(QzTime::GetCurrentGmtMillis()),
                                 static_cast<long long>(++g_nameCounter));
    if (!CreateExclusively(probe.c_str())) return 0;
    const int64_t now = QzFile::GetFileLastModMillis(probe.c_str());
    QzOs::DeleteFile(probe.c_str());
    return now;
}

std::unique_ptr<FileBasedLock> GrabFileBasedLock(const QzString& path, int64_t staleSeconds,
                                                 int waitSeconds) {
    auto lock = std::make_unique<FileBasedLock>();
    lock->path = path;
    lock->staleMillis = staleSeconds * 1000;
    lock->lastRefresh = QzTime::GetCurrentGmtMillis();

    // Exclusive create decides who wins a free lock. Between tries the pause
    // doubles while that still leaves most of the waiting budget for tries.
    const int64_t budget = static_cast<int64_t>(waitSeconds) * 1000;
    int64_t pause = 5;
    int64_t elapsed = 0;
    for (;;) {
        if (CreateExclusively(path.c_str())) return Grabbed(std::move(lock));
        if (elapsed > budget) break;
        QzTime::SleepMillis(static_cast<uint32_t>(pause));
        elapsed += pause;
        const int64_t doubled = pause * 2 < kMaxBackoffMillis ? pause * 2 : kMaxBackoffMillis;
        if (doubled < (budget - elapsed) / 4) pause = doubled;
    }

    // Still held: break it only when its heartbeat is older than the stale
    // time by the file system's own clock.
    const int64_t modTime = QzFile::GetFileLastModMillis(path.c_str());
    if (modTime == 0) {
        // The holder released it while we waited.
        if (CreateExclusively(path.c_str())) return Grabbed(std::move(lock));
        return nullptr;
    }
    const int64_t fsNow = FileSystemNowMillis(path);
    if (fsNow == 0 || fsNow - modTime <= lock->staleMillis) return nullptr;
    QzLog::WriteLine(QzCat("ERROR: QzLock::GrabFileBasedLock breaking log named: ", path));
    QzOs::DeleteFile(path.c_str());
    if (CreateExclusively(path.c_str())) return Grabbed(std::move(lock));
    return nullptr;
}

bool RefreshFileBasedLock(FileBasedLock* lock) {
    if (!lock) return false;
    const int64_t now = QzTime::GetCurrentGmtMillis();
    if (now >= lock->lastRefresh && now - lock->lastRefresh <= kRefreshQuietMillis) return true;

    const int64_t actual = QzFile::GetFileLastModMillis(lock->path.c_str());
    if (actual == 0) {
        QzLog::WriteLine(QzCat("ERROR: processId=", Pid(),
                               " failed to refresh lock because file does not exist: ", lock->path));
        return false;
    }
    if (actual != lock->fileModTime) {
        const int64_t diff = actual - lock->fileModTime;
        QzLog::WriteLine(QzCat("ERROR: processId=", Pid(),
                               " failed to refresh lock because file mod time changed: ", lock->path,
                               " time was supposed to be ", static_cast<long long>(lock->fileModTime),
                               " but instead the fileLastModTime was ", static_cast<long long>(actual),
                               " which is a difference of ", static_cast<long long>(diff), " millis (",
                               static_cast<long long>(diff / 1000), " seconds)"));
        return false;
    }
    const int64_t fsNow = FileSystemNowMillis(lock->path);
    if (fsNow - actual > lock->staleMillis) {
        // This process slept past its own stale time; another may already
        // have broken the lock.
        QzLog::WriteLine(QzCat("ERROR: processId=", Pid(),
                               " failed to refresh lock because file mod time too long ago: ", lock->path));
        return false;
    }

    // Touch by replacement: a fresh empty file moved over the lock in one
    // step, so the lock never disappears while it is refreshed.
    static std::mt19937 random{std::random_device{}()};
    const QzString fresh = QzCat(lock->path, "_", static_cast<unsigned>(random() % 65536u),
                                 static_cast<long long>(now), static_cast<long long>(++g_nameCounter));
    if (!CreateExclusively(fresh.c_str())) {
        QzLog::WriteLine(QzCat("ERROR: processId=", Pid(),
                               " failed to refresh lock because could not write out file: ", fresh));
        return false;
    }
    const int64_t freshModTime = QzFile::GetFileLastModMillis(fresh.c_str());
    if (!QzFile::AtomicMoveFile(fresh.c_str(), lock->path.c_str())) {
        QzLog::WriteLine(QzCat("ERROR: processId=", Pid(),
                               " failed to refresh lock because could not AtomicMove file: ", fresh));
        QzOs::DeleteFile(fresh.c_str());
        return false;
    }
    lock->fileModTime = QzFile::GetFileLastModMillis(lock->path.c_str());
    lock->lastRefresh = QzTime::GetCurrentGmtMillis();
    if (freshModTime != lock->fileModTime)
        QzLog::WriteLine(QzCat("ERROR: processId=", Pid(),
                               " refresh lock AtomicMove before and after mod times ",
                               "do not match: ", lock->path));
    const int64_t skew = lock->lastRefresh - lock->fileModTime;
    if (skew > kClockSkewWarnMillis || skew < -kClockSkewWarnMillis)
        QzLog::WriteLine(QzCat(
            "WARNING: processId=", Pid(),
            " file system believes time is more than 5 min off CPU, millis=", static_cast<long long>(skew)));
    return true;
}

void ReleaseFileBasedLock(FileBasedLock* lock) {
    if (!lock) return;
    if (lock->fileModTime == 0 || lock->fileModTime == QzFile::GetFileLastModMillis(lock->path.c_str())) {
        QzOs::DeleteFile(lock->path.c_str());
        return;
    }
    QzLog::WriteLine(QzCat("ERROR: QzLock::ReleaseFileBasedLock, not our lock: ", lock->path));
}

FileBasedLock* GlobalThreeHourLock() {
    return g_globalLock.get();
}

void SetGlobalThreeHourLock(std::unique_ptr<FileBasedLock> lock) {
    g_globalLock = std::move(lock);
    g_globalLastRefresh = QzTime::GetCurrentGmtMillis();
}

namespace {
// The heartbeat rule; `dirSuffix` (", startDirIn=" + the directory, or
// nothing) ends the lines that name where the walk was.
void RefreshGlobalLock(const QzString& dirSuffix) {
    const int64_t now = QzTime::GetCurrentGmtMillis();
    const int64_t elapsed = now - g_globalLastRefresh;
    if (elapsed >= 0 && elapsed <= kHeartbeatMillis) return;
    if (elapsed > kHeartbeatLateMillis)
        QzLog::WriteLine(QzCat("WARNING: qzfilelist processId= ", Pid(),
                               " more than 50 minutes since last refresh, elapsedMillis=",
                               static_cast<long long>(elapsed), dirSuffix));

    bool refreshed = false;
    if (!g_globalLock) {
        QzLog::WriteLine(QzCat("ERROR: RefreshGlobalThreeHourLock_ExitIfFail - processId=", Pid(),
                               " called when global_threeHour lock ptr is NULL, not possible", dirSuffix));
    } else {
        refreshed = RefreshFileBasedLock(g_globalLock.get());
    }
    if (!refreshed) {
        const QzString path =
            g_globalLock ? g_globalLock->path : QzFile::DataPath(QzFile::DataFile::HourLock);
        std::unique_ptr<FileBasedLock> again =
            GrabFileBasedLock(path, kRegrabStaleSeconds, kRegrabWaitSeconds);
        if (!again) {
            QzLog::WriteLine(QzCat("ERROR: qzfilelist processId= ", Pid(),
                                   " lost hour lock and could not grab it again, exiting!!"));
            std::fflush(stdout);
            std::fflush(stderr);
            std::exit(1);
        }
        QzLog::WriteLine(QzCat("ERROR: qzfilelist processId= ", Pid(),
                               " lost hour lock but grabbed it back again, ", "so continuing on..."));
        g_globalLock = std::move(again);
    }
    g_globalLastRefresh = QzTime::GetCurrentGmtMillis();
}
}  // namespace

void RefreshGlobalThreeHourLock_ExitIfFail(const QzString& startDirIn) {
    RefreshGlobalLock(QzCat(", startDirIn=", startDirIn));
}

void RefreshGlobalThreeHourLock_ExitIfFail() {
    RefreshGlobalLock(QzString());
}

}  // namespace QzLock
