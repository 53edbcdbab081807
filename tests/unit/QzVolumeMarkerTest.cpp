// The volume marker folder: what is written, how each damaged marker is
// reported, the system volume's copy in the data directory, its repair when
// it names another machine, the simulated contents and the clone.
#include <chrono>
#include <filesystem>

#include "MachineTestSupport.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileVolumes.h"
#include "QzOs.h"
#include "QzVolumeInfo.h"

namespace {

constexpr const char* kMine = "0123456789abcdef01234567";
constexpr const char* kOther = "fedcba9876543210fedcba98";
constexpr const char* kGuid = "v00a0123456789ab0123456789ab";
constexpr const char* kGuid2 = "v00b0123456789ab0123456789ab";

std::string IdXml(const std::string& readme, const std::string& vguid, const std::string& hguid) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<readme txt=\"" + readme +
           "\" />\n<qzvolume vguid=\"" + vguid + "\" associated_hguid=\"" + hguid + "\" />\n</contents>\n";
}

class QzVolumeMarkerTest : public QzTest::MachineTest {
protected:
    static QzString SystemMarker() {
        return QzCat(QzFile::GetDataDir(), "qzvol_system_volume\\qzvol_id.xml");
    }
    // Makes `path` an hour older (or newer) than the install descriptor.
    static void AgeAgainstDescriptor(const QzString& path, int hours) {
        const auto t = std::filesystem::last_write_time(QzTest::HostPath(Descriptor()));
        std::filesystem::last_write_time(QzTest::HostPath(path), t + std::chrono::hours(hours));
    }
    static QzVolumeInfo Info(const QzString& mountPoint) {
        QzVolumeInfo v;
        EXPECT_TRUE(QzFile::GetInfoAboutAttachedVolume(mountPoint, &v)) << mountPoint.c_str();
        return v;
    }
};

TEST_F(QzVolumeMarkerTest, WriteRefusesMissingOrMalformedIdentifiersAndWritesNothing) {
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
    for (const auto& c : cases) {
        QzString token;
        EXPECT_FALSE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume(c.mount, c.vguid, c.hguid, &token));
        EXPECT_STREQ(token.c_str(), c.token);
    }
    EXPECT_FALSE(QzFile::PathExists(QzCat(vol, ".qzvol").c_str()));
    EXPECT_TRUE(
        Logged("ERROR: QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume failed ERR_Vguid_wrong_length=27"));
}

TEST_F(QzVolumeMarkerTest, WriteMakesTheHiddenFolderWithItsFilesWithOrWithoutTrailingBackslash) {
    const QzString vol = QzTest::NewScratchSubdir("vol");
    const QzString bare(vol.c_str(), vol.Length() - 1);
    QzString token;
    ASSERT_TRUE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume(bare, kGuid, kMine, &token)) << token.c_str();
    const QzString folder = QzCat(vol, ".qzvol\\");
    EXPECT_EQ(QzTest::ReadFile(QzCat(folder, "qzvol_id.xml")),
              IdXml("WARNING: deleting this file will stop Korvatine from backing up this drive volume",
                    kGuid, kMine));
    const std::string readme = QzTest::ReadFile(QzCat(folder, "README.txt"));
    EXPECT_EQ(readme.rfind("WARNING: do not delete this directory or these files.  If you do,\r\n"
                           "Korvatine will stop backing up this drive volume and also remove \r\n"
                           "any previously backed up files from the Korvatine datacenter.  More\r\n",
                           0),
              0u)
        << readme;
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
        ASSERT_EQ(QzOs::GetFileAttributesEx(folders[i].c_str(), &attrs), QzOs::ErrSuccess)
            << folders[i].c_str();
        EXPECT_EQ(attrs.attributes & QzOs::AttrDirectory, QzOs::AttrDirectory) << folders[i].c_str();
        EXPECT_EQ(attrs.attributes & QzOs::AttrHidden, i == 0 ? QzOs::AttrHidden : hidden)
            << folders[i].c_str();
    }

    // Written again through "<vol>\": the same folder, the old file replaced, nothing set aside left behind.
    ASSERT_TRUE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume(vol, kGuid2, kOther, &token)) << token.c_str();
    int files = 0;
    for (const auto& e : std::filesystem::directory_iterator(QzTest::HostPath(folder)))
        files += e.is_regular_file();
    EXPECT_EQ(files, 2);  // qzvol_id.xml and README.txt
    QzVolumeInfo v = Info(vol);
    EXPECT_STREQ(v.volumeGuid.c_str(), kGuid2);
    EXPECT_STREQ(v.associatedHguid.c_str(), kOther);  // another machine's volume is read as it is
    EXPECT_TRUE(v.markerError.IsEmpty());
    ASSERT_TRUE(QzFile::GetInfoAboutAttachedVolume(v.mountPoint, &v));  // refilled from its own field
    EXPECT_STREQ(v.volumeGuid.c_str(), kGuid2);
}

TEST_F(QzVolumeMarkerTest, ReadingNamesEachDamageAndLeavesTheIdentityEmpty) {
    const QzString vol = QzTest::NewScratchSubdir("vol");
    const QzString marker = QzCat(vol, ".qzvol\\qzvol_id.xml");
    QzVolumeInfo v = Info(vol);
    EXPECT_TRUE(v.attached);
    EXPECT_TRUE(v.volumeGuid.IsEmpty());
    EXPECT_TRUE(v.markerError.IsEmpty());  // no marker yet is no error

    const std::string guid27(kGuid, 27);
    const struct {
        std::string text;
        std::string token;
    } cases[] = {
        {"<qzvolume", "read_qzvol_id_file_but_too_few_bytes=9"},
        {"<contents> </contents>", "no_vguid_in_qzvol_id_file"},
        {IdXml("x", guid27, kMine), "bad_format_vguid_in_qzvol_id_file_" + guid27},
        {"<qzvolume vguid=\"" + std::string(kGuid) + "\" />", "no_associated_hguid_in_qzvol_id_file"},
        {IdXml("x", kGuid, "0123"), "bad_format_hguid_in_qzvol_id_file_0123"},
    };
    for (const auto& c : cases) {
        ASSERT_TRUE(QzTest::WriteFile(marker, c.text));
        v = Info(vol);
        EXPECT_STREQ(v.markerError.c_str(), c.token.c_str());
        EXPECT_TRUE(v.volumeGuid.IsEmpty()) << c.token;
        EXPECT_TRUE(v.associatedHguid.IsEmpty()) << c.token;
        EXPECT_TRUE(Logged("could not use the volume marker, " + c.token)) << c.token;
    }
}

TEST_F(QzVolumeMarkerTest, StaleSystemMarkerIsRepairedAndTheSettingsCorrected) {
    SetHostGuid(kMine);
    QzString token;
    ASSERT_TRUE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume("C:\\", kGuid, kOther, &token));
    AgeAgainstDescriptor(SystemMarker(), -1);
    WriteSettings(
        "<scratch_drive scratch_vol_guid=\"v00f0123456789ab0123456789ab\" scratch_mountpoint=\"C:\\\" />\n"
        "<hard_drives_to_backup>\n<qzvolume qzVolumeGuid=\"" +
        std::string(kGuid2) + "\" mountPointPath=\"D:\\\" />\n</hard_drives_to_backup>\n");

    const QzVolumeInfo v = Info("C:\\");
    EXPECT_STREQ(v.associatedHguid.c_str(), kMine);
    EXPECT_STREQ(v.volumeGuid.c_str(), kGuid);
    EXPECT_NE(QzTest::ReadFile(SystemMarker()).find(std::string("associated_hguid=\"") + kMine + "\""),
              std::string::npos);
    EXPECT_TRUE(
        Logged(std::string("ERROR: QzFile::GetInfoAboutAttachedVolume,on the SystemBootVolume myHguid=") +
               kMine + ", which doesn't match assocHguid=" + kOther + ", so attempting repair."));
    EXPECT_TRUE(Logged("never found the system qzVolumeGuid in qzinfo.xml so using the one in qzvol_id.xml"));
    EXPECT_TRUE(
        Logged("SUCCESS - QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder repaired "
               "fileName="));
    EXPECT_TRUE(Logged("and the opportunistic repairs, leaving function now."));
    EXPECT_EQ(QzTest::ReadFile(QzCat(QzFile::GetDataDir(), "qzinfo.xml")),
              std::string("<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n"
                          "<scratch_drive scratch_vol_guid=\"") +
                  kGuid +
                  "\" scratch_mountpoint=\"C:\\\" />\n"
                  "<hard_drives_to_backup>\n<qzvolume qzVolumeGuid=\"" +
                  kGuid2 +
                  "\" mountPointPath=\"D:\\\" />\n"
                  "<qzvolume qzVolumeGuid=\"" +
                  kGuid +
                  "\"  mountPointPath=\"C:\\\" />\n"
                  "</hard_drives_to_backup>\n</contents>\n");

    // The settings' own identifier of the system volume wins over the marker's.
    ASSERT_TRUE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume("C:\\", kGuid, kOther, &token));
    AgeAgainstDescriptor(SystemMarker(), -1);
    EXPECT_STREQ(Info("C:\\").volumeGuid.c_str(), kGuid);  // settings already say kGuid for C:
    EXPECT_TRUE(Logged("VERY_GOOD - did not find ANY incorrect volGuid in qzinfo.xml, so no repairs needed"));
}

TEST_F(QzVolumeMarkerTest, SystemMarkerIsLeftAloneWhenNewerOrWhenThisMachineIsUnknown) {
    QzString token;
    // No install descriptor: this machine's identifier is the unknown one.
    ASSERT_TRUE(QzFile::WriteVolumeGuidIntoDotQzVolDirOnVolume("C:\\", kGuid, kOther, &token));
    EXPECT_STREQ(Info("C:\\").associatedHguid.c_str(), kOther);
    EXPECT_FALSE(Logged("so attempting repair."));

    SetHostGuid(kMine);
    AgeAgainstDescriptor(SystemMarker(), +1);
    EXPECT_STREQ(Info("C:\\").associatedHguid.c_str(), kOther);
    EXPECT_TRUE(
        Logged(std::string("IMPORTANT: QzFile::GetInfoAboutAttachedVolume,on the SystemBootVolume myHguid=") +
               kMine + ", changedToTheMoreRecent=" + kOther + ", so NOT attempting repair."));

    // The repair itself refuses missing arguments and the unknown identifier.
    const QzString unknown(QzFile::kUnknownHostGuid), other(kOther), name(SystemMarker()), text("x");
    EXPECT_FALSE(QzFile::QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder(
        nullptr, &other, &name, &text));
    EXPECT_TRUE(
        Logged("ERROR: QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder NULL myHguid, "
               "bailing"));
    EXPECT_FALSE(QzFile::QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder(
        &unknown, &other, &name, &text));
    const QzString elsewhere("D:\\Data\\qzvol_system_volume\\qzvol_id.xml"), mine(kMine);
    EXPECT_FALSE(QzFile::QzMyInternalAttemptRepairBad_assocHguid_in_qzvol_system_volume_folder(
        &mine, &other, &elsewhere, &text));
    EXPECT_TRUE(Logged(
        "impossible situation, the trimmed fileName does not end in qzdata, trimmedFileName=D:\\Data\\"));
}

}  // namespace
