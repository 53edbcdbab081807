// The volume registry where the real program cannot reach: the clock wait
// between two GUIDs, every rejection text of the reader, a failed write.
#include "QzFile.h"
#include "QzOs.h"
#include "QzUiUtil.h"
#include "RegistryTestFixture.h"

namespace {

class QzVolumesXmlTest : public QzRegistryTest::Fixture {};

TEST_F(QzVolumesXmlTest, GuidIsMachinePartThenTimePartAndWaitsForANewMillisecond) {
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

TEST_F(QzVolumesXmlTest, EachDamageIsRefusedWithItsOwnLogLine) {
    const std::string head = "<contents>\n<qzvol_metadata lastAssignedQzVolShortId=\"7\" />\n";
    const std::string guid = "qzVolumeGuid=\"v0070123456789ab0123456789ab\" ";
    const struct {
        std::string text;
        const char* logged;
    } cases[] = {
        {"", "file exists but was not readable or no contents: "},
        {head + "<qzvolume " + guid + "mountPointPathHex=\"443a5c\" />\n", "file exists but was corrupted: "},
        {head + "</contents>\n", "could not find any <qzvolume ...> snippets in: "},
        {head + "<s first_qzinfo_staging=\"yes\" />\n</contents>\n",
         "could not find any <qzvolume ...> snippets in: "},
        {head + "<qzvolume mountPointPathHex=\"443a5c\" />\n</contents>\n",
         "could not find qzVolumeGuid in line: "},
        {head + "<qzvolume qzVolumeGuid=\"v007\" mountPointPathHex=\"443a5c\" />\n</contents>\n",
         "badly_5 formed qzVolumeGuid in line: "},
        {head + "<qzvolume " + guid + "mountPointPathHex=\"443a5\" />\n</contents>\n",
         "badly_56 formed mountPointPath"},
        {head + "<qzvolume " + guid + "mountPointPathHex=\"zz3a5c\" />\n</contents>\n",
         "badly_56 formed mountPointPath"},
        {head + "<qzvolume " + guid + "/>\n</contents>\n",
         "could not find FALLBACK_NONHEX mountPointPath in line: "},
        {head + "<qzvolume " + guid + "mountPointPathHex=\"\" />\n</contents>\n",
         "badly_78 formed mountPointPath"},
        {head + "<qzvolume " + guid + "mountPointPathHex=\"443a005c\" />\n</contents>\n",
         "badly_78 formed mountPointPath"},
    };
    std::vector<QzVolumesXmlEntry> entries;
    int64_t last = 0;
    EXPECT_FALSE(QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&entries, &last));
    EXPECT_TRUE(Logged("file did not exist: "));
    for (const auto& c : cases) {
        Write("qzvolumes.xml", c.text);
        entries.resize(1);
        EXPECT_FALSE(QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&entries, &last)) << c.text;
        EXPECT_TRUE(entries.empty()) << c.text;
        EXPECT_TRUE(Logged(std::string("QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile (processId=") +
                           std::to_string(QzOs::GetCurrentProcessId()) + ") - " + c.logged))
            << c.text;
    }
    // Without the attribute the count starts from 0.
    Write("qzvolumes.xml", "<contents>\n<qzvolume " + guid + "mountPointPath=\"E:\\\" />\n</contents>\n");
    ASSERT_TRUE(QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&entries, &last));
    EXPECT_EQ(last, 0);
    EXPECT_TRUE(Logged("could not find lastAssignedQzVolShortId, default to 0"));
}

TEST_F(QzVolumesXmlTest, AFailedWriteKeepsTheOldFileAndAnUnprintableShortIdIsRefused) {
    std::vector<QzVolumesXmlEntry> entries(1);
    entries[0].volumeGuid = "v00a0123456789ab0123456789ab";
    entries[0].mountPoint =
        "F:\\Donn\xc3\xa9"
        "es & <more>";
    ASSERT_TRUE(QzUiUtil::QzVolumesXml_WriteQzVolumesXmlFile(entries, -2));
    std::vector<QzVolumesXmlEntry> read;
    int64_t last = 0;
    ASSERT_TRUE(QzUiUtil::QzVolumesXml_ReadQzVolumesXmlFile(&read, &last));
    ASSERT_EQ(read.size(), 1u);
    EXPECT_STREQ(read[0].mountPoint.c_str(), entries[0].mountPoint.c_str());

    const std::string before = QzTest::ReadFile(Data("qzvolumes.xml"));
    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(Data("qzvolumes.xml.tmp").c_str()));  // in the way
    EXPECT_FALSE(QzUiUtil::QzVolumesXml_WriteQzVolumesXmlFile({}, 12));
    EXPECT_TRUE(Logged("could not write out temporary file, bailing: "));
    EXPECT_EQ(QzTest::ReadFile(Data("qzvolumes.xml")), before);

    QzString g;  // last short id -2: the next, -1, does not print as three digits
    EXPECT_FALSE(QzUiUtil::QzVolumesXml_CreateNewQzVolumeGuid(&g));
    EXPECT_TRUE(Logged("ERROR: QzUiUtil::CreateNewQzVolumeGuid qzShortVid wrong: ffffffffffffffff"));
}

}  // namespace
