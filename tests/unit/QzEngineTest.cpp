// The top-level directory list's resume index across entries the writer
// leaves out, which a whole-program run cannot set up. The anomaly filters,
// the statistics and the list's read-back are checked by their fuzz targets
// and by the whole-program scan tests.
#include <gtest/gtest.h>

#include "QzTopDirs.h"
#include "TestScratch.h"

TEST(QzTopDirs, ResumeIndexPointsAtTheSameDirectoryAfterUnwrittenEntries) {
    QzTopDirs t;
    t.secondsToScanEachDir.assign(10, 0);
    t.Add('0', QzString("D:\\"), QzString("v1"));
    t.Add('1', QzString("D:\\gone"), QzString(""));  // its volume vanished: not written
    t.Add('1', QzString("D:\\a"), QzString("v1"));
    t.Add('2', QzString("D:\\a\\b&<c>"), QzString("v1"));
    t.startAtDir = 3;
    t.secondsToScanEachDir[2] = 7;
    const QzString path = QzCat(QzTest::NewScratchSubdir("topdirs"), "topdirs.xml");
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
