// The settings file "qzinfo.xml" (defaults, clamps and special values, the
// repeated elements, file sets and their statistics categories, the
// directories to watch with the rate-limited warning) and the install
// descriptor's values. The fuzz target checks that every value read is one a
// user could have chosen.
#include <string>

#include "QzFile.h"
#include "QzInfoManager.h"
#include "QzRuleFiles.h"
#include "QzUiUtil.h"
#include "TestScratch.h"

using QzInfoManager::QzFileSetDef;
using QzInfoManager::QzFileSetHashes;

namespace {

constexpr const char* kGuid = "v0010123456789ab0123456789ab";

class QzSettingsTest : public QzTest::MachineTest {
protected:
    // Reads a settings file holding one element with these attributes.
    const QzSettings& ReadWith(const std::string& attrs) {
        WriteSettings("<qzsettings " + attrs + " />\n");
        EXPECT_TRUE(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile());
        return QzInfoManager::Settings();
    }
    static std::string Volume(const std::string& guid, const std::string& mount) {
        return "<qzvolume qzVolumeGuid=\"" + guid + "\" mountPointPath=\"" + mount + "\" />\n";
    }
    static std::string Filter(const std::string& dir, const std::string& which) {
        return "<qzdirfilter dir=\"" + dir + "\" whichfiles=\"" + which + "\" />\n";
    }
    static QzFilesToWatch Watch(const std::string& text) {
        QzFilesToWatch w;
        EXPECT_TRUE(QzInfoManager::ParseQzInfoForFilesToWatch(
            Data("qzinfo.xml"), QzString(text.c_str(), static_cast<int32_t>(text.size())), &w));
        return w;
    }
};

TEST_F(QzSettingsTest, MissingFileKeepsEveryDefault) {
    ReadWith("numdays_warn_if_no_backup=\"3\" online_hostname=\"h\"");
    QzFile::DeleteFileIfExists(Data("qzinfo.xml").c_str());
    EXPECT_FALSE(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile());
    EXPECT_TRUE(
        Logged("WARNING: qzinfo.xml file does not exist here=" + std::string(Data("qzinfo.xml").c_str()) +
               ", which is normal in the installer, but bad any other time."));
    const QzSettings& s = QzInfoManager::Settings();
    EXPECT_EQ(s.numDaysWarnIfNoBackup, 7u);
    EXPECT_EQ(s.backupScheduleType, 0);  // reset; 1 is for a file read without the attribute
    EXPECT_STREQ(s.backupScheduleDetail.c_str(), "none");
    EXPECT_STREQ(s.onlineHostname.c_str(), "none");
    EXPECT_STREQ(s.qzLogin.c_str(), "unknown");
    EXPECT_EQ(s.maxFileSizeMb, 4000);
    EXPECT_TRUE(s.netAutoThrottle);
    EXPECT_EQ(s.numBackupThreads, 1);
    EXPECT_TRUE(s.selectedVolumes.empty());
}

TEST_F(QzSettingsTest, NumbersAreClampedAsTheClientExpects) {
    auto days = [this](const char* v) {
        return ReadWith(std::string("numdays_warn_if_no_backup=\"") + v + "\"").numDaysWarnIfNoBackup;
    };
    for (const char* v : {" 3", "\t5 ", "0", "7"}) EXPECT_EQ(days(v), std::stoul(v)) << v;
    // Above 7 or not a plain number: the default.
    for (const char* v : {"30", "-1", "8", "abc", "", "3x", "- 3", "99999999999999999999"})
        EXPECT_EQ(days(v), 7u) << v;

    // A limit beyond any disk means none.
    for (const char* v : {"none", "9000000000000", "1000000001", "99999999999999999999"})
        EXPECT_EQ(ReadWith(std::string("max_filesize_mb=\"") + v + "\"").maxFileSizeMb, 1000000000) << v;
    EXPECT_EQ(ReadWith("max_filesize_mb=\" 250\"").maxFileSizeMb, 250);
    EXPECT_EQ(ReadWith("other=\"1\"").maxFileSizeMb, 4000);
    EXPECT_TRUE(Logged("max_filesize_mb=9000000000000 is more than any disk holds, keeping 1000000000"));

    const std::pair<const char*, int> threads[] = {
        {"net_auto_throttle=\"false\" num_backup_threads=\"500\"", 8},
        {"net_auto_throttle=\"f\" num_backup_threads=\" 12\"", 12},
        {"net_auto_throttle=\"false\" num_backup_threads=\"0\"", 8},
        {"net_auto_throttle=\"false\" num_backup_threads=\"none\"", 1},
        {"net_auto_throttle=\"true\" num_backup_threads=\"500\"", 1},
        {"num_backup_threads=\"12\"", 1}};
    for (const auto& [attrs, n] : threads) EXPECT_EQ(ReadWith(attrs).numBackupThreads, n) << attrs;
}

TEST_F(QzSettingsTest, FlagsScheduleAndTexts) {
    const std::pair<const char*, int> schedules[] = {
        {"continuously", 0}, {"when_files_change", 0},          {"when_idle", 0},
        {"once_per_day", 2}, {"only_when_click_backup_now", 3}, {"weekly", 0}};
    for (const auto& [value, code] : schedules)
        EXPECT_EQ(ReadWith(std::string("backup_schedule_type=\"") + value + "\"").backupScheduleType, code);
    EXPECT_EQ(ReadWith("other=\"1\"").backupScheduleType, 1);  // read, but no value

    const QzSettings& s = ReadWith(
        "allow_network_tests=\"true\" backup_on_battery=\"t\" net_auto_throttle=\"no\" "
        "qzlogin=\"me@example.com\" excludefiletypes=\"mp3,, .tmp ,*,\"");
    EXPECT_FALSE(s.allowNetworkTests);  // only "t" turns it on
    EXPECT_TRUE(s.backupOnBattery);
    EXPECT_TRUE(s.netAutoThrottle);  // only "false" or "f" turn it off
    EXPECT_STREQ(s.qzLogin.c_str(), "me@example.com");
    ASSERT_EQ(s.excludeFileTypes.size(), 2u);
    EXPECT_STREQ(s.excludeFileTypes[1].c_str(), "tmp");
}

TEST_F(QzSettingsTest, RepeatedElementsAreCheckedAndDuplicatesDropped) {
    // Which volumes may be selected is checked by the settings fuzz target; here that the others stay.
    WriteSettings(
        Volume(kGuid, "D:\\") + Volume(kGuid, "D:\\") + Volume(kGuid, "E:\\") +
        "<qzblocked_network blocked_network_name=\"Cafe\" blocked_network_mac_addr=\"00-11-22-33-44-55\" />\n"
        "<qzblocked_network blocked_network_name=\"Home\" />\n"
        "<qzblocked_network blocked_network_name=\"Work\" blocked_network_mac_addr=\"00112233445\" />\n"
        "<filesetdef filesetname=\"docs\" extensions=\"doc\" />\n<do_backup>\n" +
        Filter("C:\\Users", "docs") + "</do_backup>\n");
    ASSERT_TRUE(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile());
    const QzSettings& s = QzInfoManager::Settings();
    ASSERT_EQ(s.selectedVolumes.size(), 2u);
    EXPECT_STREQ(s.selectedVolumes[1].mountPointPath.c_str(), "E:\\");
    ASSERT_EQ(s.blockedNetworkNames.size(), 1u);
    EXPECT_STREQ(s.blockedNetworkMacAddrs[0].c_str(), "00-11-22-33-44-55");
    EXPECT_TRUE(
        Logged("ERROR: ReadControlPanelSettingsFromQzInfoXmlFile - bad XML with too short "
               "blocked_network_mac_addr=00112233445"));
    ASSERT_EQ(s.filesToWatch.dirs.size(), 1u);  // the directories to watch are read along
    EXPECT_STREQ(s.filesToWatch.dirs[0].whichFiles.c_str(), "docs");

    WriteSettings("<qzsettings />\n");
    ASSERT_TRUE(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile());
    EXPECT_TRUE(QzInfoManager::Settings().selectedVolumes.empty());
    EXPECT_TRUE(
        Logged("ERROR: ReadControlPanelSettingsFromQzInfoXmlF,found no <qzvolume ... /> tags in qzinfo.xml "
               "which is bad."));
}

TEST_F(QzSettingsTest, FileSetsAreClippedTo149AndAFileCountsInEveryCategoryHoldingItsExtension) {
    std::string text = "<qzinfo>\n<filesetdef extensions=\"x\" />\n";
    for (int i = 0; i < 151; ++i)
        text += "<filesetdef filesetname=\"fs" + std::to_string(i) + "\" extensions=\"a,,b\" />\n";
    Write("qzinfo.xml", text + "</qzinfo>\n");
    std::vector<QzFileSetDef> defs;
    ASSERT_TRUE(QzInfoManager::GetAllFileSetDefsFromQzInfoFile(Data("qzinfo.xml"), &defs));
    EXPECT_TRUE(Logged("too many filesetdef definitions, 150 is the max, clipping to 150!"));
    // 152 elements cut to 149; the first, without a name, is skipped.
    ASSERT_EQ(defs.size(), 148u);
    EXPECT_STREQ(defs.back().name.c_str(), "fs147");
    ASSERT_EQ(defs.front().extensions.size(), 2u);
    EXPECT_TRUE(
        Logged("QzFile::GetUniqueStrAttrFromXmlSnippet NO filesetdefs namein this filesetdef snippet:"
               "<filesetdef extensions=\"x\" />"));

    Write("qzinfo.xml",
          "<qzinfo>\n<filesetdef filesetname=\"docs\" extensions=\"DOC,docx, .PDF ,*,a/b\" />\n"
          "<filesetdef filesetname=\"music\" extensions=\"mp3,docx\" />\n"
          "<filesetdef filesetname=\"pictures\" extensions=\"jpg\" />\n"
          "<filesetdef filesetname=\"browserfavorites\" extensions=\"url,pdf\" />\n"
          "<filesetdef filesetname=\"other\" extensions=\"zzz\" />\n</qzinfo>\n");
    QzFileSetHashes h;
    ASSERT_TRUE(QzInfoManager::ParseQzInfoForFileSetHashes(Data("qzinfo.xml"), &h));
    EXPECT_EQ(h.CategoriesOf("doc"), 1u << 0);
    EXPECT_EQ(h.CategoriesOf("docx"), (1u << 0) | (1u << 5));  // docs and music
    EXPECT_EQ(h.CategoriesOf("pdf"), (1u << 0) | (1u << 9));   // " .PDF "; 9 is "browserfavorites"
    EXPECT_EQ(h.CategoriesOf("jpg"), 1u << 4);
    EXPECT_EQ(h.CategoriesOf("zzz"), 0u);   // "other" is no statistics category
    EXPECT_EQ(h.CategoriesOf("DOC"), 0u);   // callers look up the lower-case extension
    EXPECT_EQ(h.extensions[0].size(), 3u);  // "*" and "a/b" are no extensions
}

TEST_F(QzSettingsTest, WatchedDirectoriesNeedAKnownFileSetOrNone) {
    const QzFilesToWatch w = Watch(
        "<qzinfo excludefiletypes=\"tmp,bak\" smartwatchfilesets=\"docs,pictures\">\n"
        "<filesetdef filesetname=\"docs\" extensions=\"doc\" />\n<do_backup>\n" +
        Filter("C:\\Users\\Bob\\Videos", "none") + Filter("C:\\Users\\Bob\\Documents", "docs") +
        Filter("C:\\Users\\Bob\\Music", "music") +
        "<qzdirfilter dir=\"C:\\x\" />\n</do_backup>\n<do_backup>\n" + Filter("D:\\Old", "None") +
        "</do_backup>\n</qzinfo>\n");
    ASSERT_EQ(w.dirs.size(), 3u);
    EXPECT_TRUE(w.dirs[0].excluded);
    EXPECT_STREQ(w.dirs[1].whichFiles.c_str(), "docs");
    EXPECT_FALSE(w.dirs[1].excluded);
    EXPECT_TRUE(w.dirs[2].excluded);
    EXPECT_STREQ(w.excludeFileTypes.c_str(), "tmp,bak");
    EXPECT_STREQ(w.smartWatchFileSets.c_str(), "docs,pictures");
    EXPECT_TRUE(
        Logged("ERROR: parsing qzinfo.xml, a qzdirfiltercontains a fileset that does not make sense:music, "
               "qzdirfilter=<qzdirfilter dir=\"C:\\Users\\Bob\\Music\" whichfiles=\"music\" />"));
    EXPECT_TRUE(Watch("<qzinfo />").dirs.empty());
    EXPECT_TRUE(Logged("ERROR: no excludefiletypes tag in qzinfo file:"));
}

TEST_F(QzSettingsTest, EmptyExcludedTypesWarnNineTimesThenRarelyUntilAQuietSpell) {
    QzRuleFiles::ResetFilesToWatchWarningForTesting();
    const std::string text = "<qzinfo excludefiletypes=\"\" />";
    for (int i = 0; i < 10; ++i) Watch(text);
    EXPECT_EQ(QzTest::LoggedCount("Initializing warningSuppressionTimerRecord."), 1);
    const std::vector<std::string> warnings = QzTest::LoggedLines("excludefiletypes val zero len");
    ASSERT_EQ(warnings.size(), 9u);
    EXPECT_EQ(warnings[0].rfind("WARNING: QzInfoManager::ParseQzInfoForFilesToWatch processId=", 0), 0u);
    EXPECT_NE(warnings[8].find(")  excludefiletypes val zero len (hitWarningCount=9) in qzinfo file :"),
              std::string::npos);
    EXPECT_EQ(
        QzTest::LoggedCount("INFO: QzInfoManager::ParseQzInfoForFilesToWatch logging rate is forced low to "
                            "prevent log clutter."),
        1);
    // While the rate is low, one in a hundred is logged.
    for (int i = 11; i <= 100; ++i) {
        now_ += 60000;
        Watch(text);
    }
    EXPECT_EQ(QzTest::LoggedCount("excludefiletypes val zero len"), 10);
    EXPECT_TRUE(Logged("(hitWarningCount=100)"));
    // A call after ten quiet minutes resumes the normal rate.
    now_ += 600000;
    Watch(text);
    EXPECT_EQ(
        QzTest::LoggedCount("INFO: QzInfoManager::ParseQzInfoForFilesToWatch logging resuming normal rate."),
        1);
    EXPECT_EQ(QzTest::LoggedCount("(hitWarningCount=1)"), 2);
}

TEST_F(QzSettingsTest, InstallDescriptorValuesAreCachedAndTheInstallerReaderFailsInsteadOfFallingBack) {
    QzString hguid;
    EXPECT_FALSE(QzUiUtil::Installer_GetThisMachinesHguid(&hguid));
    EXPECT_TRUE(Logged(
        " - In QzUiUtil::Installer_GetThisMachinesHguid no qzinstall.xmlso probably a fresh install\n"));
    ASSERT_TRUE(QzTest::WriteFile(Descriptor(), "<qzinstall datadir=\"E:\\one\" />"));
    QzFile::ResetLocationCachesForTesting();
    EXPECT_FALSE(QzUiUtil::Installer_GetThisMachinesHguid(&hguid));
    EXPECT_TRUE(
        Logged(" - ERROR: In QzUiUtil::Installer_GetThisMachinesHguid foundqzinstall.xml but could not find "
               "hguid\n"));
    EXPECT_STREQ(QzFile::GetDataDir().c_str(), "E:\\one\\");
    SetHostGuid("abcdefabcdefabcdefabcdef");  // without "datadir": the default data directory
    EXPECT_TRUE(QzUiUtil::Installer_GetThisMachinesHguid(&hguid));
    EXPECT_STREQ(hguid.c_str(), "abcdefabcdefabcdefabcdef");
    EXPECT_STREQ(QzFile::GetMyHostGuid().c_str(), "abcdefabcdefabcdefabcdef");
    const QzString dataDir = QzFile::GetDataDir();
    ASSERT_TRUE(QzTest::WriteFile(Descriptor(),
                                  "<qzinstall datadir=\"E:\\two\" hguid=\"222222222222222222222222\" />"));
    EXPECT_STREQ(QzFile::GetMyHostGuid().c_str(), "abcdefabcdefabcdefabcdef");  // cached for the process
    EXPECT_STREQ(QzFile::GetDataDir().c_str(), dataDir.c_str());
}

}  // namespace
