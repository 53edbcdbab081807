// The scan engine's pieces that a whole-program run cannot pin down: the
// anomaly filters' boundary cases, the top-level file's resume index across
// unwritten entries, and the statistics' read-back with its picture names.
#include <gtest/gtest.h>

#include "QzFileStats.h"
#include "QzLog.h"
#include "QzPathAnomaly.h"
#include "QzTopDirs.h"
#include "TestScratch.h"

namespace {

using QzPathAnomaly::DirVerdict;
using QzPathAnomaly::EntryVerdict;

DirVerdict Dir(const char* path) {
    QzString why;
    return QzPathAnomaly::CheckDirectoryPath(QzString(path), &why);
}

TEST(QzPathAnomaly, DirectoryTestsKeepTheirDeliberateEdges) {
    EXPECT_EQ(Dir("C:\\a\\\\b"), DirVerdict::DoubleSeparator);
    EXPECT_EQ(Dir("\\\\server\\share\\dir"), DirVerdict::Enter);  // positions 0 and 1 are exempt
    EXPECT_EQ(Dir("C:\\a/\\b"), DirVerdict::DoubleSeparator);
    EXPECT_EQ(Dir("C:\\a\\"), DirVerdict::TrailingSeparator);
    EXPECT_EQ(Dir("C:\\x\\Backups.backupdb"), DirVerdict::TimeMachine);
    EXPECT_EQ(Dir("C:\\x\\Backups.BackupDB"), DirVerdict::Enter);  // case as written
    EXPECT_EQ(Dir("C:\\x\\My.swstor"), DirVerdict::Enter);
    EXPECT_EQ(Dir("C:\\x\\WDBackup.swstor"), DirVerdict::WesternDigitalBackup);
    EXPECT_EQ(Dir("C:\\x\\.MobileBackups"), DirVerdict::MobileTimeMachine);
}

TEST(QzPathAnomaly, EntryTestsReplaceAndReport) {
    QzString p("C:\\a\r\nb.txt"), log;
    EXPECT_EQ(QzPathAnomaly::CheckEntryPath(&p, QzPathAnomaly::kBackslashPlatform, &log),
              EntryVerdict::DropCrLf);
    EXPECT_STREQ(p.c_str(), "C:\\a__\\r____\\n__b.txt");
    EXPECT_STREQ(log.c_str(),
                 "WARNING: skipping filename with embedded <CR> or <LF>: C:\\a__\\r____\\n__b.txt");
    p = "/users/shared/.x";
    EXPECT_EQ(QzPathAnomaly::CheckEntryPath(&p, QzPathAnomaly::kSlashPlatform, &log),
              EntryVerdict::DropMacShared);
    EXPECT_STREQ(
        log.c_str(),
        "WARNING: skipping single or double-period Mac anomalie file: /users/shared/.x|end_anomalie");
    p = "/a/.hidden/b\\c";
    EXPECT_EQ(QzPathAnomaly::CheckEntryPath(&p, QzPathAnomaly::kSlashPlatform, &log),
              EntryVerdict::KeepRenamed);
    EXPECT_STREQ(p.c_str(), "/a/.hidden/b_-backslash-_c");
    p = "C:\\a\\b";
    EXPECT_EQ(QzPathAnomaly::CheckEntryPath(&p, QzPathAnomaly::kBackslashPlatform, &log), EntryVerdict::Keep);
    EXPECT_TRUE(QzPathAnomaly::IsLeftOutOfBigFileList(QzString("D:\\SYSTEM VOLUME INFORMATION\\x")));
    EXPECT_FALSE(QzPathAnomaly::IsLeftOutOfBigFileList(QzString("D:\\System Volume Informatio")));
    EXPECT_TRUE(QzPathAnomaly::IsSharedProgramDataJunction(QzString("C:\\programdata\\Desktop\\x")));
}

class QzEngineFilesTest : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = QzTest::NewScratchSubdir("engine");
        QzLog::Open(QzCat(dir_, "log\\qzfilelist").c_str(), nullptr);
    }
    void TearDown() override { QzLog::Close(); }
    QzString dir_;
};

TEST_F(QzEngineFilesTest, ResumeIndexPointsAtTheSameDirectoryAfterUnwrittenEntries) {
    QzTopDirs t;
    t.secondsToScanEachDir.assign(10, 0);
    t.Add('0', QzString("D:\\"), QzString("v1"));
    t.Add('1', QzString("D:\\gone"), QzString(""));  // its volume vanished: not written
    t.Add('1', QzString("D:\\a"), QzString("v1"));
    t.Add('2', QzString("D:\\a\\b&<c>"), QzString("v1"));
    t.startAtDir = 3;
    t.secondsToScanEachDir[2] = 7;
    const QzString path = QzCat(dir_, "topdirs.xml");
    ASSERT_TRUE(QzTopDirsFile::WriteTopDirsXmlFile(t, path));
    QzTopDirs back;
    back.secondsToScanEachDir.assign(10, 0);
    ASSERT_TRUE(QzTopDirsFile::ReadTopDirsXmlFile(path, &back));
    ASSERT_EQ(back.Count(), 3);
    EXPECT_EQ(back.startAtDir, 2);
    EXPECT_STREQ(back.dirToIndex[back.startAtDir].c_str(), "2D:\\a\\b&<c>");
    EXPECT_EQ(back.secondsToScanEachDir[1], 7);

    t.startAtDir = 1;  // the only entry before it is unwritten
    t.dirToIndex[0].Clear();
    EXPECT_TRUE(QzTopDirsFile::TopDirsXmlText(t).Contains("next_to_index=\"0\""));
}

TEST_F(QzEngineFilesTest, ReadBackRestoresEveryCounterButThePictures) {
    QzInfoManager::QzFileSetHashes hashes;
    hashes.extensions[0].insert(QzString("txt"));  // docs
    hashes.extensions[4].insert(QzString("txt"));  // pictures
    QzFileStats::CategoryTable table;
    table.Build(hashes);
    QzFileStats::Counters c;
    QzFileStats::CountSelectedFile(table, QzString("C:\\a\\b.TXT"), 10, &c);
    QzFileStats::CountSelectedFile(table, QzString("C:\\a.d\\noext"), 5, &c);
    QzFileStats::CountSelectedFile(table, QzString("C:\\a\\x.zzz"), 1, &c);
    EXPECT_EQ(c.num[QzFileStats::kDocs], 1);
    EXPECT_EQ(c.num[QzFileStats::kPictures], 1);
    EXPECT_EQ(c.num[QzFileStats::kOther], 1);
    EXPECT_EQ(c.num[QzFileStats::kEverything], 3);
    EXPECT_EQ(c.bytes[QzFileStats::kEverything], 16);

    QzFileStats::Identity id;
    id.accountName = "a&b";
    const QzString path = QzCat(dir_, "filestats.xml.future");
    ASSERT_TRUE(QzFileStats::WriteFileStatsOut(path, c, id, false, false));
    QzFileStats::Counters back;
    back.num[QzFileStats::kPictures] = 0;
    ASSERT_TRUE(QzFileStats::ReadFileStatsBack(path, &back));
    EXPECT_EQ(back.num[QzFileStats::kDocs], 1);
    EXPECT_EQ(back.num[QzFileStats::kPictures], 0);
    EXPECT_EQ(back.bytes[QzFileStats::kPictures], 0);
    EXPECT_EQ(back.num[QzFileStats::kEverything], 3);
    EXPECT_TRUE(QzFileStats::FileStatsXmlText(c, id, 0, true, true).Contains("aonlinename=\"a&amp;b\""));
}

}  // namespace
