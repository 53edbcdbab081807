// File sets, the statistics categories built from them, and the directories
// to watch with the rate-limited warning about an empty "excludefiletypes".
#include <gtest/gtest.h>

#include <string>

#include "QzFileXml.h"
#include "QzInfoManager.h"
#include "QzTime.h"
#include "RuleTestSupport.h"

using QzInfoManager::QzFileSetDef;
using QzInfoManager::QzFileSetHashes;
using QzRuleTest::LogCapture;

namespace {

int64_t g_now = 0;
int64_t FakeClock() {
    return g_now;
}
constexpr int64_t kMinute = 60000;

class QzFileSetsTest : public ::testing::Test {
protected:
    void SetUp() override {
        path_ = QzCat(QzTest::NewScratchSubdir("fileset"), "qzinfo.xml");
        QzTime::SetClockForTesting(FakeClock);
        g_now = 1795780800000LL;
        QzRuleFiles::ResetFilesToWatchWarningForTesting();
    }
    void TearDown() override { QzTime::SetClockForTesting(nullptr); }

    void Write(const std::string& text) { ASSERT_TRUE(QzTest::WriteFile(path_, text)); }
    QzFilesToWatch Watch(const std::string& text) {
        QzFilesToWatch w;
        const QzString t(text.c_str(), static_cast<int32_t>(text.size()));
        EXPECT_TRUE(QzInfoManager::ParseQzInfoForFilesToWatch(path_, t, &w));
        return w;
    }
    static std::string Filter(const std::string& dir, const std::string& which) {
        return "<qzdirfilter dir=\"" + dir + "\" whichfiles=\"" + which + "\" />\n";
    }

    QzString path_;
    LogCapture log_;
};

}  // namespace

TEST_F(QzFileSetsTest, DefinitionsAreReadInOrderAndClippedTo149) {
    std::string text = "<qzinfo>\n<filesetdef extensions=\"x\" />\n";
    for (int i = 0; i < 151; ++i)
        text += "<filesetdef filesetname=\"fs" + std::to_string(i) + "\" extensions=\"a,,b\" />\n";
    Write(text + "</qzinfo>\n");
    std::vector<QzFileSetDef> defs;
    ASSERT_TRUE(QzInfoManager::GetAllFileSetDefsFromQzInfoFile(path_, &defs));
    EXPECT_TRUE(log_.Has("too many filesetdef definitions, 150 is the max, clipping to 150!"));
    // 152 elements cut to 149; the first, without a name, is skipped.
    ASSERT_EQ(defs.size(), 148u);
    EXPECT_STREQ(defs.front().name.c_str(), "fs0");
    EXPECT_STREQ(defs.back().name.c_str(), "fs147");
    ASSERT_EQ(defs.front().extensions.size(), 2u);
    EXPECT_STREQ(defs.front().extensions[1].c_str(), "b");
    EXPECT_TRUE(
        log_.Has("QzFile::GetUniqueStrAttrFromXmlSnippet NO filesetdefs namein this filesetdef snippet:"
                 "<filesetdef extensions=\"x\" />"));

    Write("<qzinfo />");
    EXPECT_FALSE(QzInfoManager::GetAllFileSetDefsFromQzInfoFile(path_, &defs));
    EXPECT_TRUE(defs.empty());
    EXPECT_TRUE(log_.Has(
        QzCat("QzFile::GetAllXmlSnippetsWithTagNameInXmlFile NO filesetdefs inqzinfoFile:", path_).c_str()));
}

TEST_F(QzFileSetsTest, AFileCountsInEveryCategoryWhoseSetHoldsItsExtension) {
    Write(
        "<qzinfo>\n<filesetdef filesetname=\"docs\" extensions=\"DOC,docx, .PDF ,*,a/b\" />\n"
        "<filesetdef filesetname=\"music\" extensions=\"mp3,docx\" />\n"
        "<filesetdef filesetname=\"pictures\" extensions=\"jpg\" />\n"
        "<filesetdef filesetname=\"browserfavorites\" extensions=\"url,pdf\" />\n"
        "<filesetdef filesetname=\"other\" extensions=\"zzz\" />\n</qzinfo>\n");
    QzFileSetHashes h;
    ASSERT_TRUE(QzInfoManager::ParseQzInfoForFileSetHashes(path_, &h));
    EXPECT_STREQ(QzFileSetHashes::kCategoryNames[0], "docs");
    EXPECT_STREQ(QzFileSetHashes::kCategoryNames[9], "browserfavorites");
    EXPECT_EQ(h.CategoriesOf("doc"), 1u << 0);
    EXPECT_EQ(h.CategoriesOf("docx"), (1u << 0) | (1u << 5));  // docs and music
    EXPECT_EQ(h.CategoriesOf("pdf"), (1u << 0) | (1u << 9));   // " .PDF " read as the reader reads lists
    EXPECT_EQ(h.CategoriesOf("jpg"), 1u << 4);
    EXPECT_EQ(h.CategoriesOf("zzz"), 0u);   // "other" is no statistics category
    EXPECT_EQ(h.CategoriesOf("DOC"), 0u);   // callers look up the lower-case extension
    EXPECT_EQ(h.extensions[0].size(), 3u);  // "*" and "a/b" are no extensions
}

TEST_F(QzFileSetsTest, WatchedDirectoriesNeedAKnownFileSetOrNone) {
    const QzFilesToWatch w = Watch(
        "<qzinfo excludefiletypes=\"tmp,bak\" smartwatchfilesets=\"docs,pictures\">\n"
        "<filesetdef filesetname=\"docs\" extensions=\"doc\" />\n"
        "<do_backup>\n" +
        Filter("C:\\Users\\Bob\\Videos", "none") + Filter("C:\\Users\\Bob\\Documents", "docs") +
        Filter("C:\\Users\\Bob\\Music", "music") + "<qzdirfilter whichfiles=\"docs\" />\n" +
        "<qzdirfilter dir=\"C:\\x\" />\n</do_backup>\n<do_backup>\n" + Filter("D:\\Old", "None") +
        "</do_backup>\n</qzinfo>\n");
    ASSERT_EQ(w.dirs.size(), 3u);
    EXPECT_STREQ(w.dirs[0].dir.c_str(), "C:\\Users\\Bob\\Videos");
    EXPECT_TRUE(w.dirs[0].excluded);
    EXPECT_STREQ(w.dirs[1].whichFiles.c_str(), "docs");
    EXPECT_FALSE(w.dirs[1].excluded);
    EXPECT_TRUE(w.dirs[2].excluded);
    EXPECT_STREQ(w.excludeFileTypes.c_str(), "tmp,bak");
    EXPECT_STREQ(w.smartWatchFileSets.c_str(), "docs,pictures");
    EXPECT_TRUE(log_.Has("Found these smartwatch filesets in qzinfo:docs,pictures"));
    EXPECT_TRUE(
        log_.Has("ERROR: parsing qzinfo.xml, a qzdirfiltercontains a fileset that does not make sense:music, "
                 "qzdirfilter=<qzdirfilter dir=\"C:\\Users\\Bob\\Music\" whichfiles=\"music\" />"));
    EXPECT_TRUE(log_.Has("QzFile::GetUniqueStrAttrFromXmlSnippet NO dirin this qzdirfilter snippet:"));
    EXPECT_TRUE(log_.Has("QzFile::GetUniqueStrAttrFromXmlSnippet NO whichfilesin this qzdirfilter snippet:"));

    const QzFilesToWatch none = Watch("<qzinfo />");
    EXPECT_TRUE(none.dirs.empty());
    EXPECT_TRUE(log_.Has("ERROR: no excludefiletypes tag in qzinfo file:"));
    EXPECT_TRUE(
        log_.Has("QzFile::GetAllXmlSnippetsWithTagNameInXmlFile NO top level dirsto watch in qzinfoFile:"));
    EXPECT_TRUE(log_.Has("no smartwatchfilesets in qzinfo.xml file:"));
}

TEST_F(QzFileSetsTest, EmptyExcludedTypesWarnNineTimesThenRarelyUntilAQuietSpell) {
    const std::string text = "<qzinfo excludefiletypes=\"\" />";
    for (int i = 0; i < 10; ++i) Watch(text);
    EXPECT_EQ(log_.Count("Initializing warningSuppressionTimerRecord."), 1);
    const std::vector<std::string> warnings = log_.Matching("excludefiletypes val zero len");
    ASSERT_EQ(warnings.size(), 9u);
    EXPECT_EQ(warnings[0].rfind("WARNING: QzInfoManager::ParseQzInfoForFilesToWatch processId=", 0), 0u);
    EXPECT_NE(warnings[8].find(")  excludefiletypes val zero len (hitWarningCount=9) in qzinfo file :"),
              std::string::npos);
    EXPECT_EQ(log_.Count(
                  "INFO: QzInfoManager::ParseQzInfoForFilesToWatch logging rate is forced low to prevent log "
                  "clutter."),
              1);
    // While the rate is low, one in a hundred is logged.
    for (int i = 11; i <= 100; ++i) {
        g_now += kMinute;
        Watch(text);
    }
    EXPECT_EQ(log_.Count("excludefiletypes val zero len"), 10);
    EXPECT_TRUE(log_.Has("(hitWarningCount=100)"));
    // A call after ten quiet minutes resumes the normal rate.
    g_now += 10 * kMinute;
    Watch(text);
    EXPECT_EQ(log_.Count("INFO: QzInfoManager::ParseQzInfoForFilesToWatch logging resuming normal rate."), 1);
    EXPECT_EQ(log_.Count("(hitWarningCount=1)"), 2);
    EXPECT_EQ(log_.Count("Initializing warningSuppressionTimerRecord."), 1);
}
