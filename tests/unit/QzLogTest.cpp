// The log's clean-up of coming days' files on fixed dates, and the located
// message format. The line format, the day file and appends from many
// processes are checked by the whole-program tests.
#include <gtest/gtest.h>

#include "QzFile.h"
#include "QzLog.h"
#include "TestScratch.h"

namespace {

constexpr int64_t kMinute = 60000;
constexpr int64_t kNov27Noon = 1795780800000LL;      // 2026-11-27 12:00:00 GMT
constexpr int64_t kNov10Midnight = 1794268800000LL;  // 2026-11-10 00:00:00 GMT

// The machine's log in its scratch folder, on a clock the test sets.
class QzLogTest : public QzTest::MachineTest {
protected:
    static QzString Day(int d, const char* ext) {
        QzString p = QzLog::DayFilePath(d);
        p.Truncate(p.Length() - 4);  // ".log"
        p.Append(ext);
        return p;
    }
    static void MakeDays(int from, int to) {
        for (int d = from; d <= to; ++d) {
            ASSERT_TRUE(QzTest::WriteFile(Day(d, ".log"), "old\n"));
            ASSERT_TRUE(QzTest::WriteFile(Day(d, ".zip"), "old"));
        }
    }
    static bool Exists(int d, const char* ext) { return QzFile::PathExists(Day(d, ext).c_str()); }
};

}  // namespace

TEST_F(QzLogTest, CleanupOnDay27RemovesComingDaysAndTheWrappedOnes) {
    MakeDays(0, 33);
    now_ = kNov27Noon;
    QzLog::WriteLine("x");
    for (int d = 0; d <= 33; ++d) {
        const bool gone = (d >= 29 && d <= 33) || d <= 5;
        EXPECT_EQ(Exists(d, ".log"), !gone) << "day " << d;
        EXPECT_EQ(Exists(d, ".zip"), !gone) << "day " << d;
    }
}

TEST_F(QzLogTest, CleanupRunsAtMostEveryTenMinutes) {
    MakeDays(0, 31);
    now_ = kNov10Midnight;
    QzLog::WriteLine("first");
    for (int d = 0; d <= 31; ++d) EXPECT_EQ(Exists(d, ".log"), d < 12 || d > 16) << "day " << d;

    MakeDays(12, 12);
    now_ = kNov10Midnight + 9 * kMinute;
    QzLog::WriteLine("nine minutes later");
    EXPECT_TRUE(Exists(12, ".log"));

    now_ = kNov10Midnight + 11 * kMinute;
    QzLog::WriteLine("eleven minutes later");
    EXPECT_FALSE(Exists(12, ".log"));
}

TEST_F(QzLogTest, LocatedMessagesNameFileLineFunctionAndLevel) {
    now_ = kNov27Noon;
    QzLog::WriteLocated(-3, "C:\\src\\qzapps\\qzfilelist\\qzfilelist.cpp", 812,
                        "int __cdecl main(int,char *[])",
                        "QZFILELIST - client version has reached End-Of-Life, exiting");
    QzLog::WriteLocated(-2, "/src/common/QzFile.cpp", 7, "f()", "n=%d s=%s", 42, "abc");
    QzLog::WriteLocated(-1, "QzLog.cpp", 1, "g()", "note");
    QzLog::WriteLocated(0, "QzLog.cpp", 2, "h()", "plain");
    EXPECT_EQ(
        QzTest::LoggedLines(""),  // every message of the log, all on the 27th
        (std::vector<std::string>{
            "qzfilelist.cpp:812 [int __cdecl main(int,char *[])] ERROR:\tQZFILELIST - client version has "
            "reached End-Of-Life, exiting",
            "QzFile.cpp:7 [f()] WARNING:\tn=42 s=abc",
            "QzLog.cpp:1 [g()] NOTE:\tnote",
            "QzLog.cpp:2 [h()]:\tplain",
        }));
}
