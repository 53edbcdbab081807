// The file-based lock: the doubling wait, the stale time judged by the file
// system's clock, refreshes at most every fifteen seconds, a lock rewritten by
// another process, release after replacement, and the scan's heartbeat.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "QzFile.h"
#include "QzLock.h"
#include "QzTime.h"
#include "TestScratch.h"

namespace {

// The program's clock and pauses are simulated (a pause moves the clock on);
// the file system's clock is the real one, as it is for the lock.
std::vector<uint32_t> g_sleeps;

class QzLockTest : public QzTest::MachineTest {
protected:
    void SetUp() override {
        MachineTest::SetUp();
        dir_ = QzTest::NewScratchSubdir("lock");
        path_ = QzCat(dir_, "qzfilelist_hour_lock.lck");
        g_sleeps.clear();
        QzTime::SetSleepForTesting([](uint32_t millis) {
            g_sleeps.push_back(millis);
            now_ += millis;
        });
    }
    void TearDown() override {
        QzLock::SetGlobalThreeHourLock(nullptr);
        MachineTest::TearDown();
    }

    // Moves the lock file's modification time by `seconds` and returns it.
    int64_t Shift(int seconds) {
        const std::string host = QzTest::HostPath(path_);
        std::filesystem::last_write_time(
            host, std::filesystem::last_write_time(host) + std::chrono::seconds(seconds));
        return ModTime();
    }
    int64_t ModTime() const { return QzFile::GetFileLastModMillis(path_.c_str()); }
    std::unique_ptr<QzLock::FileBasedLock> Grab(int64_t staleSeconds = 10800) {
        return QzLock::GrabFileBasedLock(path_, staleSeconds, 3);
    }
    // Nothing but the lock in its folder: no clock probe, no temporary.
    bool NoLeftovers() const {
        for (const auto& e : std::filesystem::directory_iterator(QzTest::HostPath(dir_)))
            if (e.path().filename() != "qzfilelist_hour_lock.lck") return false;
        return true;
    }

    QzString dir_, path_;
};

}  // namespace

TEST_F(QzLockTest, FreeLockIsTakenAtOnceAndAHeldOneAfterTheDoublingWait) {
    auto first = Grab();
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(g_sleeps.empty());
    EXPECT_EQ(first->staleMillis, 10800000);
    EXPECT_EQ(first->fileModTime, ModTime());
    EXPECT_EQ(first->lastRefresh, now_);

    // A live holder: the waiter sleeps 5, 10, 20 ... ms while the doubled
    // pause stays under a quarter of the budget left, then gives up after
    // just over three seconds without touching the file.
    const int64_t held = ModTime();
    EXPECT_EQ(Grab(), nullptr);
    ASSERT_GE(g_sleeps.size(), 8u);
    EXPECT_EQ(std::vector<uint32_t>(g_sleeps.begin(), g_sleeps.begin() + 8),
              (std::vector<uint32_t>{5, 10, 20, 40, 80, 160, 320, 320}));
    int64_t total = 0;
    for (uint32_t s : g_sleeps) total += s;
    EXPECT_TRUE(total > 3000 && total <= 3320) << total;
    EXPECT_EQ(ModTime(), held);
    EXPECT_TRUE(NoLeftovers());
    QzLock::ReleaseFileBasedLock(first.get());
    EXPECT_FALSE(QzFile::FileExists(path_.c_str()));
}

TEST_F(QzLockTest, StaleTimeIsJudgedByTheFileSystemClock) {
    ASSERT_TRUE(QzTest::WriteFile(path_, ""));
    Shift(-10799);
    EXPECT_EQ(Grab(), nullptr);
    EXPECT_FALSE(Logged("breaking"));
    Shift(-2);  // now 10,801 seconds old
    auto lock = Grab();
    ASSERT_NE(lock, nullptr);
    EXPECT_TRUE(Logged("ERROR: QzLock::GrabFileBasedLock breaking log named: " + std::string(path_.c_str())));
    EXPECT_EQ(lock->fileModTime, ModTime());
    now_ += 7LL * 24 * 3600 * 1000;  // the program's own clock is far off; only the file's counts
    EXPECT_EQ(Grab(), nullptr);
    EXPECT_TRUE(NoLeftovers());
}

TEST_F(QzLockTest, RefreshTouchesAtMostEveryFifteenSeconds) {
    auto lock = Grab();
    ASSERT_NE(lock, nullptr);
    const int64_t old = lock->fileModTime = Shift(-60);  // as if grabbed a minute ago
    now_ += 20000;
    ASSERT_TRUE(QzLock::RefreshFileBasedLock(lock.get()));
    EXPECT_GT(ModTime(), old);
    EXPECT_EQ(lock->fileModTime, ModTime());
    EXPECT_EQ(lock->lastRefresh, now_);
    // Ten seconds later: no touch, which the moved time would show.
    now_ += 10000;
    lock->fileModTime = Shift(-60);
    ASSERT_TRUE(QzLock::RefreshFileBasedLock(lock.get()));
    EXPECT_EQ(ModTime(), lock->fileModTime);
    EXPECT_TRUE(NoLeftovers());
    EXPECT_FALSE(Logged("ERROR"));
}

TEST_F(QzLockTest, RewrittenLockFailsRefreshAndCannotBeRegrabbedWhileItsOwnerLives) {
    auto lock = Grab();
    ASSERT_NE(lock, nullptr);
    const int64_t ours = lock->fileModTime, theirs = Shift(-5);  // another process wrote the file
    now_ += 20000;
    EXPECT_FALSE(QzLock::RefreshFileBasedLock(lock.get()));
    EXPECT_TRUE(Logged(std::string(" failed to refresh lock because file mod time changed: ") +
                       path_.c_str() + " time was supposed to be " + std::to_string(ours) +
                       " but instead the fileLastModTime was " + std::to_string(theirs) +
                       " which is a difference of " + std::to_string(theirs - ours) + " millis (" +
                       std::to_string((theirs - ours) / 1000) + " seconds)"));
    EXPECT_EQ(Grab(3600), nullptr);
    // Releasing what is no longer ours leaves the other holder's file.
    QzLock::ReleaseFileBasedLock(lock.get());
    EXPECT_EQ(ModTime(), theirs);
    EXPECT_TRUE(Logged("ERROR: QzLock::ReleaseFileBasedLock, not our lock: " + std::string(path_.c_str())));
    // A lock that vanished cannot be refreshed either.
    std::filesystem::remove(QzTest::HostPath(path_));
    lock->fileModTime = theirs;
    now_ += 20000;
    EXPECT_FALSE(QzLock::RefreshFileBasedLock(lock.get()));
    EXPECT_TRUE(Logged(" failed to refresh lock because file does not exist: " + std::string(path_.c_str())));
}

TEST_F(QzLockTest, HeartbeatRefreshesEveryFiveMinutesAndRegrabsAStaleLock) {
    QzLock::SetGlobalThreeHourLock(Grab());
    ASSERT_NE(QzLock::GlobalThreeHourLock(), nullptr);
    const int64_t before = QzLock::GlobalThreeHourLock()->fileModTime = Shift(-100);
    now_ += 300000;  // not yet due
    QzLock::RefreshGlobalThreeHourLock_ExitIfFail("C:\\Users");
    EXPECT_EQ(ModTime(), before);
    now_ += 1;
    QzLock::RefreshGlobalThreeHourLock_ExitIfFail("C:\\Users");
    EXPECT_GT(ModTime(), before);

    // This process slept past its stale time: the refresh refuses, and the
    // one-hour re-grab breaks the old file and carries on.
    QzLock::GlobalThreeHourLock()->fileModTime = Shift(-4 * 3600);
    now_ += 3000001;
    QzLock::RefreshGlobalThreeHourLock_ExitIfFail("C:\\Users");
    for (const char* line :
         {" more than 50 minutes since last refresh, elapsedMillis=3000001, startDirIn=C:\\Users",
          " failed to refresh lock because file mod time too long ago: ",
          " lost hour lock but grabbed it back again, so continuing on..."})
        EXPECT_TRUE(Logged(line)) << line;
    ASSERT_NE(QzLock::GlobalThreeHourLock(), nullptr);
    EXPECT_EQ(QzLock::GlobalThreeHourLock()->staleMillis, 3600000);
    EXPECT_EQ(QzLock::GlobalThreeHourLock()->fileModTime, ModTime());
}

// Windows death tests re-run the test binary, which the mingw build of the
// test framework cannot do. The failed refresh and the failed re-grab that
// lead to the exit are tested on both builds above; the exit is shared code.
#ifndef _WIN32
TEST_F(QzLockTest, HeartbeatExitsWithOneWhenAnotherProcessOwnsTheLock) {
    QzLock::SetGlobalThreeHourLock(Grab());
    ASSERT_NE(QzLock::GlobalThreeHourLock(), nullptr);
    Shift(-5);
    now_ += 300001;
    EXPECT_EXIT(QzLock::RefreshGlobalThreeHourLock_ExitIfFail("C:\\Users"), ::testing::ExitedWithCode(1), "");
    // The forked child wrote into this test's log.
    EXPECT_TRUE(Logged(" failed to refresh lock because file mod time changed: "));
    EXPECT_TRUE(Logged(" lost hour lock and could not grab it again, exiting!!"));
}
#endif
