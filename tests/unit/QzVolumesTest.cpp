// Volume identity where the real program cannot reach: the marker folder's
// refusals and the system marker's repair of the settings; the registry's
// GUID clock wait and rejection texts; the alert levels' table, retries and
// five-minute cache; and the per-volume list names. The fuzz targets check
// what the marker, registry and alert readers take and refuse.
#include <chrono>
#include <cstdio>
#include <filesystem>

#include "QzFile.h"
#include "QzFileVolumes.h"
#include "QzOs.h"
#include "QzUiUtil.h"
#include "QzVolumeInfo.h"
#include "TestScratch.h"

namespace {

constexpr const char* kMine = "0123456789abcdef01234567";
constexpr const char* kOther = "fedcba9876543210fedcba98";
constexpr const char* kGuid = "v00a0123456789ab0123456789ab";
constexpr const char* kGuid2 = "v00b0123456789ab0123456789ab";

std::string IdXml(const std::string& vguid, const std::string& hguid,
                  const std::string& readme =
                      "WARNING: deleting this file will stop Korvatine from backing up this drive volume") {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<readme txt=\"" + readme +
           "\" />\n<qzvolume vguid=\"" + vguid + "\" associated_hguid=\"" + hguid + "\" />\n</contents>\n";
}

class QzVolumesTest : public QzTest::MachineTest {
protected:
    static QzVolumeInfo Info(const QzString& mountPoint) {
        QzVolumeInfo v;
        EXPECT_TRUE(QzFile::GetInfoAboutAttachedVolume(mountPoint, &v)) << mountPoint.c_str();
        return v;
    }
    // Writes the system volume's marker and makes its copy in the data
    // directory an hour older (or newer) than the install descriptor.
    static void SystemMarker(const char* hguid, int hours) {
        QzString token;
        ASSERT_TRUE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume("C:\\", kGuid, hguid, &token));
        const auto t = std::filesystem::last_write_time(QzTest::HostPath(Descriptor()));
        std::filesystem::last_write_time(QzTest::HostPath(Data("qzvol_system_volume\\qzvol_id.xml")),
                                         t + std::chrono::hours(hours));
    }
    static std::string Record(const char* guid, int level, int listed) {
        return std::string("<qzvolume qzVolumeGuid=\"") + guid +
               "\" mountPointPathHex=\"443a5c\" vol_defcon_level=\"" + std::to_string(level) +
               "\" vol_last_seen_in_days=\"1\" vol_last_filelisted_in_days=\"" + std::to_string(listed) +
               "\" vol_last_file_pushed_in_days=\"3\" />\n";
    }
    static std::string Defcon(const std::string& most, const std::string& records) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<volume_defcon_summary "
               "most_critial_volume_defcon=\"" +
               most + "\" />\n" + records + "</contents>\n";
    }
    static bool ReadDefcon(int32_t* most, std::vector<QzVolDefconRecord>* records) {
        return QzUiUtil::QzVolDefcon_HitDisk_ReadQzDefconXmlFile(records, most);
    }
    static bool CachedDefcon(int32_t* most) {
        std::vector<QzVolDefconRecord> records;
        return QzUiUtil::QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile(most, &records);
    }
    static std::string Guid(int n) {  // well-formed, sorting in the order of n
        char buf[32];
        std::snprintf(buf, sizeof buf, "v%03x0123456789ab%012x", n + 1, n);
        return buf;
    }
    static std::string ListName(const std::string& guid, const char* mount) {
        QzString name;
        QzUiUtil::GetPerVolumeFileListName(guid.c_str(), mount, &name);
        return name.c_str();
    }
};

TEST_F(QzVolumesTest, MarkerWriteRefusesBadIdentifiersAndWritesTheHiddenFolder) {
    const QzString vol = QzTest::NewScratchSubdir("vol");
    const std::string guid27(kGuid, 27);
    const struct {
        QzString mount, vguid, hguid;
        const char* token;
    } cases[] = {
        {"", kGuid, kMine, "ERR_NullMountPointIn"},
        {vol, "", kMine, "ERR_NullVguid"},
        {vol, kGuid, "", "ERR_NullAssociatedHguid"},
        {vol, guid27.c_str(), kMine, "ERR_Vguid_wrong_length=27"},
        {vol, kGuid, "0123456789abcdef0123456", "ERR_AssociatedHguid_wrong_length=23"},
        {vol, kGuid, QzFile::kUnknownHostGuid, "ERR_AssociatedHguid_is_unknown_999"},
    };
    QzString token;
    for (const auto& c : cases) {
        EXPECT_FALSE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume(c.mount, c.vguid, c.hguid, &token));
        EXPECT_STREQ(token.c_str(), c.token);
    }
    EXPECT_FALSE(QzFile::PathExists(QzCat(vol, ".qzvol").c_str()));
    EXPECT_TRUE(
        Logged("ERROR: QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume failed ERR_Vguid_wrong_length=27"));

    // Without the trailing backslash, then again with it: the old file replaced, nothing set aside left.
    ASSERT_TRUE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume(QzString(vol.c_str(), vol.Length() - 1), kGuid,
                                                               kMine, &token));
    ASSERT_TRUE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume(vol, kGuid2, kOther, &token)) << token.c_str();
    const QzString folder = QzCat(vol, ".qzvol\\");
    EXPECT_EQ(QzTest::ReadFile(QzCat(folder, "qzvol_id.xml")), IdXml(kGuid2, kOther));
    int files = 0;
    for (const auto& e : std::filesystem::directory_iterator(QzTest::HostPath(folder)))
        files += e.is_regular_file();
    EXPECT_EQ(files, 2);  // qzvol_id.xml and README.txt
    // POSIX stores no hidden attribute: there only the dot of ".qzvol" hides it.
#ifdef _WIN32
    const uint32_t hidden = QzOs::AttrHidden;
#else
    const uint32_t hidden = 0;
#endif
    const QzString folders[] = {QzCat(vol, ".qzvol"), QzCat(folder, "qzscratch"),
                                QzCat(folder, "qzcurrentlargefile")};
    for (int i = 0; i < 3; ++i) {
        QzOs::FileAttrData attrs;
        ASSERT_EQ(QzOs::GetFileAttributesEx(folders[i].c_str(), &attrs), QzOs::ErrSuccess);
        EXPECT_EQ(attrs.attributes & (QzOs::AttrHidden | QzOs::AttrDirectory),
                  (i == 0 ? QzOs::AttrHidden : hidden) | QzOs::AttrDirectory)
            << folders[i].c_str();
    }
}

TEST_F(QzVolumesTest, StaleSystemMarkerIsRepairedAndTheSettingsCorrectedButANewerOneIsLeftAlone) {
    SetHostGuid(kMine);
    SystemMarker(kOther, +1);
    EXPECT_STREQ(Info("C:\\").associatedHguid.c_str(), kOther);
    EXPECT_TRUE(
        Logged(std::string("IMPORTANT: QzFile::GetInfoAboutAttachedVolume,on the SystemBootVolume myHguid=") +
               kMine + ", changedToTheMoreRecent=" + kOther + ", so NOT attempting repair."));

    SystemMarker(kOther, -1);
    const std::string selection = "<hard_drives_to_backup>\n<qzvolume qzVolumeGuid=\"" + std::string(kGuid2) +
                                  "\" mountPointPath=\"D:\\\" />\n";
    WriteSettings(
        "<scratch_drive scratch_vol_guid=\"v00f0123456789ab0123456789ab\" scratch_mountpoint=\"C:\\\" />\n" +
        selection + "</hard_drives_to_backup>\n");
    const QzVolumeInfo v = Info("C:\\");
    EXPECT_STREQ(v.associatedHguid.c_str(), kMine);
    EXPECT_STREQ(v.volumeGuid.c_str(), kGuid);
    EXPECT_EQ(
        QzTest::ReadFile(Data("qzvol_system_volume\\qzvol_id.xml")),
        IdXml(kGuid, kMine,
              "WARNING: deleting this file will stop Korvatine from backing up the System Volume (C:\\)"));
    EXPECT_TRUE(Logged("never found the system qzVolumeGuid in qzinfo.xml so using the one in qzvol_id.xml"));
    EXPECT_TRUE(
        Logged("SUCCESS - QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder repaired"));
    EXPECT_EQ(QzTest::ReadFile(Data("qzinfo.xml")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<scratch_drive scratch_vol_guid=\"" +
                  std::string(kGuid) + "\" scratch_mountpoint=\"C:\\\" />\n" + selection +
                  "<qzvolume qzVolumeGuid=\"" + kGuid +
                  "\"  mountPointPath=\"C:\\\" />\n</hard_drives_to_backup>\n</contents>\n");
    SystemMarker(kOther, -1);
    EXPECT_STREQ(Info("C:\\").volumeGuid.c_str(), kGuid);
    EXPECT_TRUE(Logged("VERY_GOOD - did not find ANY incorrect volGuid in qzinfo.xml, so no repairs needed"));
}

TEST_F(QzVolumesTest, RegistryGuidIsMachinePartThenTimePartAndWaitsForANewMillisecond) {
    static int reads;
    reads = 0;
    // The clock shows one millisecond for three reads, then the next.
    QzTime::SetClockForTesting([]() -> int64_t { return 0x0123456789ABLL + (++reads > 3 ? 1 : 0); });
    QzString a, b;
    ASSERT_TRUE(QzUiUtil::QzVolumesXml_CreateNewQzVolumeGuid(&a));
    ASSERT_TRUE(QzUiUtil::QzVolumesXml_CreateNewQzVolumeGuid(&b));
    const std::string x = a.c_str(), y = b.c_str();
    ASSERT_EQ(x.size(), 28u);
    EXPECT_EQ(x.substr(0, 4), "v001");  // no registry: a fresh machine
    EXPECT_EQ(x.substr(4, 12), y.substr(4, 12));
    EXPECT_TRUE(x[16] >= '0' && x[16] <= '7') << x;  // the random digit
    EXPECT_EQ(x.substr(17), "123456789ab");
    EXPECT_EQ(y.substr(17), "123456789ac");
}

// The fuzz target checks that a registry without its end tag, or with an
// identifier or mount point that cannot be one, is refused whole.
TEST_F(QzVolumesTest, RegistryReaderRefusesWhatItsFuzzTargetCannotJudge) {
    const std::string head = "<contents>\n<qzvol_metadata lastAssignedQzVolShortId=\"7\" />\n";
    const std::string guid = "<qzvolume qzVolumeGuid=\"v0070123456789ab0123456789ab\" ";
    const std::pair<std::string, const char*> cases[] = {
        {head + "<s first_qzinfo_staging=\"yes\" />\n</contents>\n",
         "could not find any <qzvolume ...> snippets in: "},
        {head + guid + "mountPointPathHex=\"zz3a5c\" />\n</contents>\n", "badly_56 formed mountPointPath"},
    };
    std::vector<QzVolumesXmlEntry> entries;
    int64_t last = 0;
    EXPECT_FALSE(QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&entries, &last));
    EXPECT_TRUE(Logged("file did not exist: "));
    for (const auto& [text, logged] : cases) {
        Write("qzvolumes.xml", text);
        entries.resize(1);
        EXPECT_FALSE(QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&entries, &last)) << text;
        EXPECT_TRUE(entries.empty()) << text;
        EXPECT_TRUE(Logged(std::string("QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile (processId=") +
                           std::to_string(QzOs::GetCurrentProcessId()) + ") - " + logged))
            << text;
    }
    // Without the attribute the count starts from 0.
    Write("qzvolumes.xml", "<contents>\n" + guid + "mountPointPath=\"E:\\\" />\n</contents>\n");
    ASSERT_TRUE(QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&entries, &last));
    EXPECT_EQ(last, 0);
    EXPECT_TRUE(Logged("could not find lastAssignedQzVolShortId, default to 0"));
}

TEST(QzDefconLevel, EveryAgeMustBeUnderTheBound) {
    const int cases[][4] = {{7, 7, 7, 5},    {7, 7, 8, 4},    {0, 14, 14, 4}, {15, 0, 0, 3},
                            {0, 0, 21, 3},   {0, 22, 0, 2},   {28, 0, 0, 2},  {29, 0, 0, 1},
                            {0, 0, 9001, 1}, {-1, -1, -1, 5}, {0, -1, 0, 5},  {28, -1, 28, 2}};
    for (const auto& c : cases)
        EXPECT_EQ(QzUiUtil::QzVolDefcon_LevelFromAges(c[0], c[1], c[2]), c[3])
            << c[0] << "/" << c[1] << "/" << c[2];
}

TEST_F(QzVolumesTest, DefconReaderTriesTwentyTimesWhileTheFileIsHeld) {
    Write("qzreports\\qzdefcon.xml", Defcon("4", Record(kGuid, 4, 2)));
    static QzOs::Handle held;
    ASSERT_EQ(QzOs::OpenFile(Data("qzreports\\qzdefcon.xml").c_str(), QzOs::OpenMode::ReadExclusive, &held),
              0u);
    int32_t most = 0;
    std::vector<QzVolDefconRecord> records;
    EXPECT_FALSE(ReadDefcon(&most, &records));
    EXPECT_EQ(pauses_.pauses, 19);  // 20 tries in all
    EXPECT_TRUE(Logged("many tries could not read qzdefcon.xml file but it DOES exist fName="));
    // Released while the reader waits: a later try succeeds.
    pauses_.atPause = [](int n) {
        if (n == 22) QzOs::CloseFile(held);
    };
    EXPECT_TRUE(ReadDefcon(&most, &records));
    EXPECT_EQ(most, 4);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_STREQ(records[0].mountPoint.c_str(), "D:\\");
}

TEST_F(QzVolumesTest, DefconCacheServesTheFileForFiveMinutesEitherWayOfTheClock) {
    now_ += 1000 * QzTime::kMillisPerDay;  // far from any earlier fill of the process-wide cache
    const int64_t t = now_;
    Write("qzreports\\qzdefcon.xml", Defcon("3", Record(kGuid, 3, 20) + Record("v001short", 5, 0)));
    int32_t most = 0;
    std::vector<QzVolDefconRecord> records;
    ASSERT_TRUE(QzUiUtil::QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile(&most, &records));
    EXPECT_EQ(most, 3);
    EXPECT_EQ(records.size(), 1u);  // a GUID shorter than 28 characters is not handed out
    Write("qzreports\\qzdefcon.xml", Defcon("2", Record(kGuid, 2, 25)));
    for (int64_t offset : {299000LL, 300000LL, -299000LL, -300000LL}) {
        now_ = t + offset;
        ASSERT_TRUE(CachedDefcon(&most));
        EXPECT_EQ(most, 3) << "the disk was read again at " << offset;
    }
    now_ = t + 301000;
    ASSERT_TRUE(CachedDefcon(&most));
    EXPECT_EQ(most, 2);
    // A failed refresh hands out nothing.
    QzFile::DeleteFileIfExists(Data("qzreports\\qzdefcon.xml").c_str());
    now_ = t;
    EXPECT_FALSE(CachedDefcon(&most));
    EXPECT_TRUE(Logged("qzdefcon.xml file did not exist fName="));
    EXPECT_TRUE(Logged("refresh of cache failed call"));
}

TEST_F(QzVolumesTest, ListNamesShareOneTagForDriveRootsAndSelectedListsAreSortedAndCutAtAThousand) {
    const char* const tags[][2] = {{"C:\\", "c___"},
                                   {"D:\\", "c___"},
                                   {"D:\\Data", "D__D"},
                                   {"E:", "E___"},
                                   {"", "____"},
                                   {"a,b/c", "a_b_"},
                                   {"X:\\\xc3\xa9t\xc3\xa9", "X___"}};
    for (const auto& c : tags)
        EXPECT_EQ(ListName(Guid(0), c[0]),
                  std::string(Data("qzfilelists\\").c_str()) + Guid(0) + "_" + c[1] + "_filelist.dat")
            << c[0];

    for (int i = 0; i < 1002; ++i)  // every list but the sixth
        ASSERT_TRUE(i == 5 || QzTest::WriteFile(ListName(Guid(i), "F:\\").c_str(), "x\n"));
    auto select = [](int count) {
        std::string text = "<qzinfo>\n<hard_drives_to_backup>\n";
        for (int i = count - 1; i >= 0; --i)  // unsorted in the file
            text += "<qzvolume qzVolumeGuid=\"" + Guid(i) + "\" mountPointPath=\"F:\\\" />\n";
        Write("qzinfo.xml", text + "</hard_drives_to_backup>\n</qzinfo>\n");
    };
    std::vector<QzString> names;
    select(1001);  // 1000 lists exist: all kept
    ASSERT_TRUE(QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(&names));
    ASSERT_EQ(names.size(), 1000u);
    EXPECT_EQ(names[4].c_str(), ListName(Guid(4), "F:\\"));
    EXPECT_EQ(names[5].c_str(), ListName(Guid(6), "F:\\"));
    EXPECT_TRUE(
        Logged("ERROR: QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList- failed could not find file "
               "for selected drive:F:\\, vGuid=" +
               Guid(5) + ", fileName=" + ListName(Guid(5), "F:\\")));
    EXPECT_FALSE(Logged("too many volumes selected"));
    select(1002);  // 1001 lists: the last is cut
    ASSERT_TRUE(QzUiUtil::GetVecOf_SelForBackup_PerVolumeGuidFileList_FileNames(&names));
    ASSERT_EQ(names.size(), 1000u);
    EXPECT_EQ(names[999].c_str(), ListName(Guid(1000), "F:\\"));
    EXPECT_TRUE(Logged("too many volumes selected for backup so truncating list:1001"));
}

}  // namespace
