// Listing one directory: the long-path prefix decided on the directory's
// length, the list's growth steps and the failure log lines. Names (those a
// POSIX host holds that Windows cannot included), sizes, reparse points and
// the outcomes of a listing are checked by the whole-program tests.
#include <gtest/gtest.h>

#include "QzFileInfo.h"
#include "QzFileListing.h"
#include "QzOs.h"
#include "TestScratch.h"

using QzListingTest = QzTest::MachineTest;

// The directory's length decides the long-path prefix: 251 bytes and more get
// it, 249 and 250 do not, although their search pattern ("\\*" added) is
// longer than 250 bytes.
TEST_F(QzListingTest, LongPathPrefixIsDecidedOnTheDirectory) {
    const QzString base = QzTest::NewScratchSubdir("longprefix");
    ASSERT_TRUE(QzTest::WriteFile(QzCat(base, "real\\inside.txt"), "x"));
    QzFileInfoList list;
    for (const int32_t len : {249, 250, 251, 300}) {
        QzString missing = QzCat(base, "gone");
        while (missing.Length() < len) missing.AppendChar('g');
        EXPECT_FALSE(QzFile::GetListOfFileInfosInDir(&missing, &list));
        const QzString pattern = QzCat(len >= 251 ? "\\\\?\\" : "", missing, "\\*");
        EXPECT_TRUE(Logged(QzCat("dirPat=", pattern, ", GetLastError=").c_str())) << len;
        EXPECT_EQ(Logged(QzCat("?\\", missing, "\\*, GetLastError=").c_str()), len >= 251) << len;

        // The same length reaching a real directory through "..", which only
        // an unprefixed path resolves: below 251 bytes the search itself must
        // not be prefixed either.
        QzString viaParent = QzCat(base, "real\\");
        while (viaParent.Length() < len - 3) viaParent.AppendChar('z');
        viaParent.Append("\\..");
        ASSERT_EQ(viaParent.Length(), len);
        if (len < 251) {
            ASSERT_TRUE(QzFile::GetListOfFileInfosInDir(&viaParent, &list)) << len;
            ASSERT_EQ(list.Count(), 1) << len;
            EXPECT_STREQ(list.At(0)->Name(), "inside.txt");
        }
    }

    // A long directory named with "/" separators: behind the prefix the
    // system would take "/" literally, so the listing turns it into "\".
    QzString deep = QzCat(base, "deep");
    for (int i = 0; i < 5; ++i) deep.Append(QzCat("\\", i, QzString(std::string(50, 'd').c_str())));
    ASSERT_TRUE(QzTest::WriteFile(QzCat(deep, "\\leaf.txt"), "x"));
    QzString slashed(deep);
    for (int32_t i = base.Length(); i < slashed.Length(); ++i)
        if (slashed[i] == '\\') slashed.Data()[i] = '/';
    ASSERT_GE(slashed.Length(), 251);
    ASSERT_TRUE(QzFile::GetListOfFileInfosInDir(&slashed, &list));
    ASSERT_EQ(list.Count(), 1);
    EXPECT_STREQ(list.At(0)->Name(), "leaf.txt");
}

TEST(QzFileInfoList, GrowsInTheDocumentedSteps) {
    // {count, capacity, capacity after growing}
    const int32_t steps[][3] = {{0, 0, 5},
                                {4, 0, 5},
                                {5, 5, 55},
                                {55, 55, 105},
                                {3955, 3955, 4005},
                                {4005, 4005, 100005},
                                {100005, 100005, 200005},
                                {200005, 200005, 5000005}};
    for (const auto& c : steps) EXPECT_EQ(QzFileInfoList::GrownCapacity(c[0], c[1]), c[2]) << c[0];

    QzFileInfoList list;
    EXPECT_EQ(list.Capacity(), 5);
    for (int i = 0; i < 150000; ++i) ASSERT_NE(list.Next(), nullptr);
    EXPECT_EQ(list.Count(), 150000);
    EXPECT_EQ(list.Capacity(), 200005);
    // Reuse: a second listing overwrites records in place and allocates nothing.
    QzFileInfo* first = list.At(0);
    list.Reset();
    EXPECT_EQ(list.Next(), first);
    EXPECT_EQ(list.Capacity(), 200005);
}

TEST_F(QzListingTest, FailuresAreLoggedAndReturnFalse) {
    const QzString dir = QzTest::NewScratchSubdir("fail");
    QzFileInfoList list;
    const QzString missing = QzCat(dir, "no\\such\\dir");
    EXPECT_FALSE(QzFile::GetListOfFileInfosInDir(&missing, &list));
    EXPECT_TRUE(Logged(QzCat(") FindFirstFile_C failed, dirPat=", missing,
                             "\\*, GetLastError=3, and_a_lastError_of_3_means ERROR_PATH_NOT_FOUND, check if "
                             "dirPat starts with a letter-colon in this log line.\n")
                           .c_str()));
    EXPECT_TRUE(Logged("ERROR: GetListOfFileInfosInDir (processId="));

    const QzString badUtf8("C:\\bad\xFF\\dir");
    EXPECT_FALSE(QzFile::GetListOfFileInfosInDir(&badUtf8, &list));
    EXPECT_TRUE(Logged(") QzUtf16String::ConvertUtf8QzStringToUtf16_A failed, dirPat=C:\\bad\xFF\\dir\\*\n"));
}
