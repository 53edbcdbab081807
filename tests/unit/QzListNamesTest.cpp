// Per-volume file list names: the mount tag, and the lists of the volumes the
// settings select (sorted, missing ones skipped, at most 1000).
#include <cstdio>

#include "QzUiUtil.h"
#include "RegistryTestFixture.h"

namespace {

class QzListNamesTest : public QzRegistryTest::Fixture {
protected:
    static std::string Guid(int n) {  // well-formed, sorting in the order of n
        char buf[32];
        std::snprintf(buf, sizeof buf, "v%03x0123456789ab%012x", n + 1, n);
        return buf;
    }
    static std::string Name(const std::string& guid, const char* mount) {
        QzString name;
        QzUiUtil::GetPerVolumeFileListName(guid.c_str(), mount, &name);
        return name.c_str();
    }
    void Select(int count) {
        std::string text = "<qzinfo>\n<hard_drives_to_backup>\n";
        for (int i = count - 1; i >= 0; --i)  // unsorted in the file
            text += "<qzvolume qzVolumeGuid=\"" + Guid(i) + "\" mountPointPath=\"F:\\\" />\n";
        Write("qzinfo.xml", text + "</hard_drives_to_backup>\n</qzinfo>\n");
    }
};

TEST_F(QzListNamesTest, DriveRootsShareOneTagAndOtherMountPointsAreCutToFour) {
    const char* const cases[][2] = {{"C:\\", "c___"},
                                    {"D:\\", "c___"},
                                    {"D:\\Data", "D__D"},
                                    {"E:", "E___"},
                                    {"", "____"},
                                    {"a,b/c", "a_b_"},
                                    {"X:\\\xc3\xa9t\xc3\xa9", "X___"}};
    for (const auto& c : cases)
        EXPECT_EQ(Name(Guid(0), c[0]),
                  std::string(data_.c_str()) + "qzfilelists\\" + Guid(0) + "_" + c[1] + "_filelist.dat")
            << c[0];
}

TEST_F(QzListNamesTest, SelectedListsAreSortedMissingOnesSkippedAndCutAtAThousand) {
    for (int i = 0; i < 1002; ++i)  // every list but the sixth
        ASSERT_TRUE(i == 5 ||
                    QzTest::WriteFile(Name(Guid(i), "F:\\").c_str(), "# GmtMillisThisListWasStarted: 0\n"));
    std::vector<QzString> names;
    Select(1001);  // 1000 lists exist: all kept
    ASSERT_TRUE(QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(&names));
    ASSERT_EQ(names.size(), 1000u);
    EXPECT_EQ(names[4].c_str(), Name(Guid(4), "F:\\"));
    EXPECT_EQ(names[5].c_str(), Name(Guid(6), "F:\\"));
    EXPECT_TRUE(
        Logged("ERROR: QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList- failed could not find file for "
               "selected drive:F:\\, vGuid=" +
               Guid(5) + ", fileName=" + Name(Guid(5), "F:\\")));
    EXPECT_FALSE(Logged("too many volumes selected"));
    Select(1002);  // 1001 lists: the last is cut
    ASSERT_TRUE(QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(&names));
    ASSERT_EQ(names.size(), 1000u);
    EXPECT_EQ(names[999].c_str(), Name(Guid(1000), "F:\\"));
    EXPECT_TRUE(Logged("too many volumes selected for backup so truncating list:1001"));
    EXPECT_FALSE(QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(nullptr));
}

}  // namespace
