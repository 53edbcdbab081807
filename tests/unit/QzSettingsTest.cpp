// The settings file "qzinfo.xml": defaults, the clamps and special values of
// its attributes, and the checks on its repeated elements.
#include <string>

#include "MachineTestSupport.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileXml.h"
#include "QzInfoManager.h"

namespace {

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
};

constexpr const char* kGuid = "v0010123456789ab0123456789ab";

TEST_F(QzSettingsTest, MissingFileKeepsEveryDefault) {
    ReadWith("numdays_warn_if_no_backup=\"3\" online_hostname=\"h\"");
    QzFile::DeleteFileIfExists(QzCat(QzFile::GetDataDir(), "qzinfo.xml").c_str());
    EXPECT_FALSE(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile());
    EXPECT_TRUE(
        Logged("WARNING: qzinfo.xml file does not exist here=" + std::string(QzFile::GetDataDir().c_str()) +
               "qzinfo.xml, which is normal in the installer, but bad any other time."));
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
    for (const char* v : {"3", " 3", "\t5 ", "0", "7"}) EXPECT_EQ(days(v), std::stoul(v)) << v;
    // Above 7 or not a plain number: the default.
    for (const char* v : {"30", "-1", "8", "abc", "", "3x", "- 3", "99999999999999999999"})
        EXPECT_EQ(days(v), 7u) << v;

    EXPECT_EQ(ReadWith("max_filesize_mb=\"none\"").maxFileSizeMb, 1000000000);
    EXPECT_EQ(ReadWith("max_filesize_mb=\"250\"").maxFileSizeMb, 250);
    EXPECT_EQ(ReadWith("max_filesize_mb=\" 250\"").maxFileSizeMb, 250);
    EXPECT_EQ(ReadWith("other=\"1\"").maxFileSizeMb, 4000);
    // A limit beyond any disk means none; in bytes it must still be a positive number.
    for (const char* huge : {"9000000000000", "1000000001", "99999999999999999999"}) {
        const int64_t mb = ReadWith(std::string("max_filesize_mb=\"") + huge + "\"").maxFileSizeMb;
        EXPECT_EQ(mb, 1000000000) << huge;
        EXPECT_GT(mb << 20, int64_t{1} << 49) << huge;
    }
    EXPECT_TRUE(Logged("max_filesize_mb=9000000000000 is more than any disk holds, keeping 1000000000"));

    const struct {
        const char* attrs;
        int threads;
    } threads[] = {{"net_auto_throttle=\"false\" num_backup_threads=\"500\"", 8},
                   {"net_auto_throttle=\"f\" num_backup_threads=\" 12\"", 12},
                   {"net_auto_throttle=\"false\" num_backup_threads=\"0\"", 8},
                   {"net_auto_throttle=\"false\" num_backup_threads=\"none\"", 1},
                   {"net_auto_throttle=\"true\" num_backup_threads=\"500\"", 1},
                   {"num_backup_threads=\"12\"", 1}};
    for (const auto& c : threads) EXPECT_EQ(ReadWith(c.attrs).numBackupThreads, c.threads) << c.attrs;
}

TEST_F(QzSettingsTest, FlagsScheduleAndTexts) {
    const struct {
        const char* value;
        int code;
    } schedules[] = {{"continuously", 0}, {"when_files_change", 0},          {"when_idle", 0},
                     {"once_per_day", 2}, {"only_when_click_backup_now", 3}, {"weekly", 0}};
    for (const auto& c : schedules)
        EXPECT_EQ(ReadWith(std::string("backup_schedule_type=\"") + c.value + "\"").backupScheduleType,
                  c.code);
    EXPECT_EQ(ReadWith("other=\"1\"").backupScheduleType, 1);  // read, but no value

    const QzSettings& s = ReadWith(
        "allow_network_tests=\"true\" backup_on_battery=\"t\" net_auto_throttle=\"no\" "
        "qzlogin=\"me@example.com\" "
        "excludefiletypes=\"mp3,, .tmp ,*,\"");
    EXPECT_FALSE(s.allowNetworkTests);  // only "t" turns it on
    EXPECT_TRUE(s.backupOnBattery);
    EXPECT_TRUE(s.netAutoThrottle);  // only "false" or "f" turn it off
    EXPECT_STREQ(s.qzLogin.c_str(), "me@example.com");
    ASSERT_EQ(s.excludeFileTypes.size(), 2u);
    EXPECT_STREQ(s.excludeFileTypes[1].c_str(), "tmp");
}

TEST_F(QzSettingsTest, VolumeEntriesAreCheckedAndDuplicatesDropped) {
    WriteSettings(Volume(kGuid, "D:\\") + Volume(kGuid, "D:\\") + Volume(kGuid, "E:\\") +
                  "<qzvolume mountPointPath=\"F:\\\" />\n" + Volume("v0010123456789ab0123456789a", "G:\\") +
                  Volume("v001012345678AB0123456789abc", "G:\\") + "<qzvolume qzVolumeGuid=\"" + kGuid +
                  "\" />\n" + Volume(kGuid, "") + Volume(kGuid, "H:"));
    ASSERT_TRUE(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile());
    const auto& sel = QzInfoManager::Settings().selectedVolumes;
    ASSERT_EQ(sel.size(), 2u);
    EXPECT_STREQ(sel[0].mountPointPath.c_str(), "D:\\");
    EXPECT_STREQ(sel[1].mountPointPath.c_str(), "E:\\");
    EXPECT_TRUE(
        Logged(std::string("ERROR: QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile - removing dup "
                           "qzvolume qzVolGuid=") +
               kGuid + ", mountPoint=D:\\"));
    EXPECT_TRUE(
        Logged("bogus <qzvolume ... /> tag in qzinfo.xml no vGuid:<qzvolume mountPointPath=\"F:\\\" />"));
    EXPECT_TRUE(Logged("bogus <qzvolume ... /> tag in qzinfo.xml bad vGuid:"));
    EXPECT_TRUE(Logged("bogus <qzvolume ... /> tag in qzinfo.xml no mnt:"));
    EXPECT_TRUE(
        Logged("bogus <qzvolume ... /> tag in qzinfo.xml bad mnt:" + Volume(kGuid, "H:").substr(0, 66)));

    WriteSettings("<qzsettings />\n");
    ASSERT_TRUE(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile());
    EXPECT_TRUE(QzInfoManager::Settings().selectedVolumes.empty());
    EXPECT_TRUE(
        Logged("ERROR: ReadControlPanelSettingsFromQzInfoXmlF,found no <qzvolume ... /> tags in qzinfo.xml "
               "which is bad."));
}

TEST_F(QzSettingsTest, BlockedNetworksNeedBothValues) {
    WriteSettings(
        "<qzblocked_network blocked_network_name=\"Cafe\" blocked_network_mac_addr=\"00-11-22-33-44-55\" />\n"
        "<qzblocked_network blocked_network_mac_addr=\"001122334455\" />\n"
        "<qzblocked_network blocked_network_name=\"Home\" />\n"
        "<qzblocked_network blocked_network_name=\"\" blocked_network_mac_addr=\"001122334455\" />\n"
        "<qzblocked_network blocked_network_name=\"Work\" blocked_network_mac_addr=\"00112233445\" />\n"
        "<filesetdef filesetname=\"docs\" extensions=\"doc,docx\" />\n"
        "<do_backup>\n<qzdirfilter dir=\"C:\\Users\" whichfiles=\"docs\" />\n</do_backup>\n");
    ASSERT_TRUE(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile());
    const QzSettings& s = QzInfoManager::Settings();
    ASSERT_EQ(s.blockedNetworkNames.size(), 1u);
    EXPECT_STREQ(s.blockedNetworkMacAddrs[0].c_str(), "00-11-22-33-44-55");
    const std::string prefix = "ERROR: ReadControlPanelSettingsFromQzInfoXmlFile - bad XML with ";
    EXPECT_TRUE(Logged(prefix + "no blocked_network_name="));
    EXPECT_TRUE(Logged(prefix + "no blocked_network_mac_addr="));
    EXPECT_TRUE(Logged(prefix + "too short blocked_network_name="));
    EXPECT_TRUE(Logged(prefix + "too short blocked_network_mac_addr=00112233445"));
    // The directories to watch are read along with the settings.
    ASSERT_EQ(s.filesToWatch.dirs.size(), 1u);
    EXPECT_STREQ(s.filesToWatch.dirs[0].dir.c_str(), "C:\\Users");
    EXPECT_STREQ(s.filesToWatch.dirs[0].whichFiles.c_str(), "docs");
}

}  // namespace
