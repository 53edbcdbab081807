#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "QzFile.h"
#include "QzLock.h"
#include "QzLog.h"
#include "QzTime.h"
#include "TestScratch.h"

namespace {

// The program's clock and pauses are simulated; the file system's clock is
// the real one, as it is for the lock.
int64_t g_now = 0;
std::vector<uint32_t> g_sleeps;
int64_t FakeClock() {
    return g_now;
}
void FakeSleep(uint32_t millis) {
    g_sleeps.push_back(millis);
    g_now += millis;
}

class QzLockTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = QzTest::NewScratchSubdir("lock");
        path_ = QzCat(dir_, "qzfilelist_hour_lock.lck");
        QzTest::OpenScratchLog("locklog");
        g_now = QzFile::GetFileLastModMillis(QzCat(dir_, ".").c_str());
        if (g_now == 0) g_now = 1700000000000LL;
        g_sleeps.clear();
        QzTime::SetClockForTesting(FakeClock);
        QzTime::SetSleepForTesting(FakeSleep);
    }
    void TearDown() override {
        QzLock::SetGlobalThreeHourLock(nullptr);
        QzTime::SetClockForTesting(nullptr);
        QzTime::SetSleepForTesting(nullptr);
        QzLog::Close();
    }

    // Moves the file's modification time by `seconds` (negative: into the past).
    static void ShiftModTime(const QzString& path, int seconds) {
        const std::string host = QzTest::HostPath(path);
        std::filesystem::last_write_time(
            host, std::filesystem::last_write_time(host) + std::chrono::seconds(seconds));
    }
    static int64_t ModTime(const QzString& path) { return QzFile::GetFileLastModMillis(path.c_str()); }

    static bool Logged(const std::string& text) { return QzTest::Logged(text); }

    // Files in the lock's folder other than the lock itself (probes, temporaries).
    size_t LeftoverFiles() const {
        size_t n = 0;
        for (const auto& e : std::filesystem::directory_iterator(QzTest::HostPath(dir_)))
            if (e.path().filename() != "qzfilelist_hour_lock.lck") ++n;
        return n;
    }

    QzString dir_;
    QzString path_;
};

}  // namespace

TEST_F(QzLockTest, FreeLockIsTakenAtOnceAndAHeldOneAfterTheDoublingWait) {
    auto first = QzLock::GrabFileBasedLock(path_, 10800, 3);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(g_sleeps.empty());
    EXPECT_EQ(first->staleMillis, 10800000);
    EXPECT_EQ(first->fileModTime, ModTime(path_));
    EXPECT_EQ(first->lastRefresh, g_now);

    // A live holder: the waiter sleeps 5, 10, 20 ... ms while the doubled
    // pause stays under a quarter of the budget left, then gives up after
    // just over three seconds without touching the file.
    const int64_t held = ModTime(path_);
    EXPECT_EQ(QzLock::GrabFileBasedLock(path_, 10800, 3), nullptr);
    ASSERT_GE(g_sleeps.size(), 8u);
    EXPECT_EQ(std::vector<uint32_t>(g_sleeps.begin(), g_sleeps.begin() + 8),
              (std::vector<uint32_t>{5, 10, 20, 40, 80, 160, 320, 320}));
    int64_t total = 0;
    for (uint32_t s : g_sleeps) total += s;
    EXPECT_GT(total, 3000);
    EXPECT_LT(total, 3000 + 320 + 1);
    EXPECT_EQ(ModTime(path_), held);
    EXPECT_EQ(LeftoverFiles(), 0u);  // the clock probe is gone

    QzLock::ReleaseFileBasedLock(first.get());
    EXPECT_FALSE(QzFile::FileExists(path_.c_str()));
}

TEST_F(QzLockTest, StaleTimeIsJudgedByTheFileSystemClock) {
    ASSERT_TRUE(QzTest::WriteFile(path_, ""));
    ShiftModTime(path_, -10799);
    EXPECT_EQ(QzLock::GrabFileBasedLock(path_, 10800, 3), nullptr);
    EXPECT_FALSE(Logged("breaking"));

    ShiftModTime(path_, -2);  // now 10,801 seconds old
    auto lock = QzLock::GrabFileBasedLock(path_, 10800, 3);
    ASSERT_NE(lock, nullptr);
    EXPECT_TRUE(Logged("ERROR: QzLock::GrabFileBasedLock breaking log named: " + std::string(path_.c_str())));
    EXPECT_EQ(lock->fileModTime, ModTime(path_));
    // The program's own clock is far off; only the file system's counts.
    g_now += 7LL * 24 * 3600 * 1000;
    EXPECT_EQ(QzLock::GrabFileBasedLock(path_, 10800, 3), nullptr);
    EXPECT_EQ(LeftoverFiles(), 0u);
}

TEST_F(QzLockTest, RefreshTouchesAtMostEveryFifteenSeconds) {
    auto lock = QzLock::GrabFileBasedLock(path_, 10800, 3);
    ASSERT_NE(lock, nullptr);
    // Pretend the grab happened a minute ago.
    ShiftModTime(path_, -60);
    lock->fileModTime = ModTime(path_);
    const int64_t old = lock->fileModTime;

    g_now += 20000;
    ASSERT_TRUE(QzLock::RefreshFileBasedLock(lock.get()));
    const int64_t touched = ModTime(path_);
    EXPECT_GT(touched, old);
    EXPECT_EQ(lock->fileModTime, touched);
    EXPECT_EQ(lock->lastRefresh, g_now);

    g_now += 10000;
    ShiftModTime(path_, -60);  // any touch now would be visible
    lock->fileModTime = ModTime(path_);
    ASSERT_TRUE(QzLock::RefreshFileBasedLock(lock.get()));
    EXPECT_EQ(ModTime(path_), lock->fileModTime);
    EXPECT_EQ(LeftoverFiles(), 0u);
    EXPECT_FALSE(Logged("ERROR"));
}

TEST_F(QzLockTest, RewrittenLockFailsRefreshAndCannotBeRegrabbedWhileItsOwnerLives) {
    auto lock = QzLock::GrabFileBasedLock(path_, 10800, 3);
    ASSERT_NE(lock, nullptr);
    const int64_t ours = lock->fileModTime;
    ShiftModTime(path_, -5);  // another process wrote the file
    const int64_t theirs = ModTime(path_);

    g_now += 20000;
    EXPECT_FALSE(QzLock::RefreshFileBasedLock(lock.get()));
    EXPECT_TRUE(Logged(std::string(" failed to refresh lock because file mod time changed: ") +
                       path_.c_str() + " time was supposed to be " + std::to_string(ours) +
                       " but instead the fileLastModTime was " + std::to_string(theirs) +
                       " which is a difference of " + std::to_string(theirs - ours) + " millis (" +
                       std::to_string((theirs - ours) / 1000) + " seconds)"));
    EXPECT_EQ(QzLock::GrabFileBasedLock(path_, 3600, 3), nullptr);

    // Releasing what is no longer ours leaves the other holder's file.
    QzLock::ReleaseFileBasedLock(lock.get());
    EXPECT_TRUE(QzFile::FileExists(path_.c_str()));
    EXPECT_EQ(ModTime(path_), theirs);
    EXPECT_TRUE(Logged("ERROR: QzLock::ReleaseFileBasedLock, not our lock: " + std::string(path_.c_str())));

    // A lock that vanished cannot be refreshed either.
    std::filesystem::remove(QzTest::HostPath(path_));
    lock->fileModTime = theirs;
    g_now += 20000;
    EXPECT_FALSE(QzLock::RefreshFileBasedLock(lock.get()));
    EXPECT_TRUE(Logged(" failed to refresh lock because file does not exist: " + std::string(path_.c_str())));
}

TEST_F(QzLockTest, HeartbeatRefreshesEveryFiveMinutesAndRegrabsAStaleLock) {
    QzLock::SetGlobalThreeHourLock(QzLock::GrabFileBasedLock(path_, 10800, 3));
    ASSERT_NE(QzLock::GlobalThreeHourLock(), nullptr);
    ShiftModTime(path_, -100);
    QzLock::GlobalThreeHourLock()->fileModTime = ModTime(path_);
    const int64_t before = ModTime(path_);

    g_now += 300000;  // not yet due
    QzLock::RefreshGlobalThreeHourLock_ExitIfFail("C:\\Users");
    EXPECT_EQ(ModTime(path_), before);
    g_now += 1;
    QzLock::RefreshGlobalThreeHourLock_ExitIfFail("C:\\Users");
    EXPECT_GT(ModTime(path_), before);

    // This process slept past its stale time: the refresh refuses, and the
    // one-hour re-grab breaks the old file and carries on.
    ShiftModTime(path_, -4 * 3600);
    QzLock::GlobalThreeHourLock()->fileModTime = ModTime(path_);
    g_now += 3000001;
    QzLock::RefreshGlobalThreeHourLock_ExitIfFail("C:\\Users");
    EXPECT_TRUE(
        Logged(" more than 50 minutes since last refresh, elapsedMillis=3000001, startDirIn=C:\\Users"));
    EXPECT_TRUE(Logged(" failed to refresh lock because file mod time too long ago: "));
    EXPECT_TRUE(Logged(" lost hour lock but grabbed it back again, so continuing on..."));
    ASSERT_NE(QzLock::GlobalThreeHourLock(), nullptr);
    EXPECT_EQ(QzLock::GlobalThreeHourLock()->staleMillis, 3600000);
    EXPECT_EQ(QzLock::GlobalThreeHourLock()->fileModTime, ModTime(path_));
}

// Windows death tests re-run the test binary, which the mingw build of the
// test framework cannot do; the whole-program tests cover the exit there.
#ifndef _WIN32
TEST_F(QzLockTest, HeartbeatExitsWithOneWhenAnotherProcessOwnsTheLock) {
    QzLock::SetGlobalThreeHourLock(QzLock::GrabFileBasedLock(path_, 10800, 3));
    ASSERT_NE(QzLock::GlobalThreeHourLock(), nullptr);
    ShiftModTime(path_, -5);
    g_now += 300001;
    EXPECT_EXIT(QzLock::RefreshGlobalThreeHourLock_ExitIfFail("C:\\Users"), ::testing::ExitedWithCode(1), "");
    // The forked child wrote into this test's log.
    EXPECT_TRUE(Logged(" failed to refresh lock because file mod time changed: "));
    EXPECT_TRUE(Logged(" lost hour lock and could not grab it again, exiting!!"));
}
#endif
