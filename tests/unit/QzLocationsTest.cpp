#include <gtest/gtest.h>

#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzLog.h"
#include "QzUiUtil.h"
#include "TestScratch.h"

namespace {

// The install directory has no registry value here, so it is the Program
// Files fallback on both builds; tests write its descriptor there.
class QzLocationsTest : public ::testing::Test {
protected:
    void SetUp() override {
        QzFile::ResetLocationCachesForTesting();
        descriptor_ = QzCat(QzFile::GetInstallDir(), "qzinstall.xml");
        QzFile::DeleteFileIfExists(descriptor_.c_str());
        QzTest::OpenScratchLog("loclog");
    }
    void TearDown() override {
        QzFile::DeleteFileIfExists(descriptor_.c_str());
        QzFile::ResetLocationCachesForTesting();
        QzLog::Close();
    }
    void Describe(const std::string& attrs) {
        ASSERT_TRUE(QzTest::WriteFile(
            descriptor_, "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<qzinstall " + attrs +
                             " />\n</contents>\n"));
        QzFile::ResetLocationCachesForTesting();
    }
    static std::string Log() { return QzTest::LogText(); }
    QzString descriptor_;
};

}  // namespace

TEST_F(QzLocationsTest, ValuesAreCachedForTheProcess) {
    Describe("datadir=\"E:\\one\" hguid=\"111111111111111111111111\"");
    EXPECT_STREQ(QzFile::GetDataDir().c_str(), "E:\\one\\");
    EXPECT_STREQ(QzFile::GetMyHostGuid().c_str(), "111111111111111111111111");
    ASSERT_TRUE(QzTest::WriteFile(descriptor_,
                                  "<qzinstall datadir=\"E:\\two\" hguid=\"222222222222222222222222\" />"));
    EXPECT_STREQ(QzFile::GetDataDir().c_str(), "E:\\one\\");
    EXPECT_STREQ(QzFile::GetMyHostGuid().c_str(), "111111111111111111111111");
}

TEST_F(QzLocationsTest, InstallerReaderFailsInsteadOfFallingBack) {
    QzString hguid;
    EXPECT_FALSE(QzUiUtil::Installer_GetThisMachinesHguid(&hguid));
    EXPECT_NE(
        Log().find(
            " - In QzUiUtil::Installer_GetThisMachinesHguid no qzinstall.xmlso probably a fresh install\n"),
        std::string::npos);
    Describe("datadir=\"D:\\x\"");
    EXPECT_FALSE(QzUiUtil::Installer_GetThisMachinesHguid(&hguid));
    EXPECT_NE(
        Log().find(
            " - ERROR: In QzUiUtil::Installer_GetThisMachinesHguid foundqzinstall.xml but could not find "
            "hguid\n"),
        std::string::npos);
    Describe("hguid=\"abcdefabcdefabcdefabcdef\"");
    EXPECT_TRUE(QzUiUtil::Installer_GetThisMachinesHguid(&hguid));
    EXPECT_STREQ(hguid.c_str(), "abcdefabcdefabcdefabcdef");
}
