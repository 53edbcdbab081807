// Alert levels where the real program cannot reach: the level table, the
// reader's checks and its retries while another program holds the file, and
// the five-minute cache under a moved clock.
#include "QzFile.h"
#include "QzOs.h"
#include "QzUiUtil.h"
#include "RegistryTestFixture.h"

namespace {

class QzDefconTest : public QzRegistryTest::Fixture {
protected:
    static std::string Record(const char* guid, int level, int listed) {
        return std::string("<qzvolume qzVolumeGuid=\"") + guid +
               "\" mountPointPathHex=\"443a5c\" vol_defcon_level=\"" + std::to_string(level) +
               "\" vol_last_seen_in_days=\"1\" vol_last_filelisted_in_days=\"" + std::to_string(listed) +
               "\" vol_last_file_pushed_in_days=\"3\" />\n";
    }
    static std::string Text(const std::string& most, const std::string& records) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<contents>\n<volume_defcon_summary "
               "most_critial_volume_defcon=\"" +
               most + "\" />\n" + records + "</contents>\n";
    }
    static std::string Replaced(std::string text, const std::string& from, const std::string& to) {
        return text.replace(text.find(from), from.size(), to);
    }
    void WriteDefcon(const std::string& text) { Write("qzreports\\qzdefcon.xml", text); }
    bool Read(int32_t* mostRet, std::vector<QzVolDefconRecord>* recordsRet) {
        return QzUiUtil::QzVolDefcon_HitDisk_ReadQzDefconXmlFile(recordsRet, mostRet);
    }
    bool Cached(int32_t* mostRet) {
        std::vector<QzVolDefconRecord> records;
        return QzUiUtil::QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile(mostRet, &records);
    }
    static constexpr const char* kGuid = "v0010123456789ab0123456789ab";
};

TEST(QzDefconLevel, EveryAgeMustBeUnderTheBound) {
    const int cases[][4] = {{7, 7, 7, 5},    {7, 7, 8, 4},    {0, 14, 14, 4}, {15, 0, 0, 3},
                            {0, 0, 21, 3},   {0, 22, 0, 2},   {28, 0, 0, 2},  {29, 0, 0, 1},
                            {0, 0, 9001, 1}, {-1, -1, -1, 5}, {0, -1, 0, 5},  {28, -1, 28, 2}};
    for (const auto& c : cases)
        EXPECT_EQ(QzUiUtil::QzVolDefcon_LevelFromAges(c[0], c[1], c[2]), c[3])
            << c[0] << "/" << c[1] << "/" << c[2];
}

TEST_F(QzDefconTest, ReaderRefusesEachDamageWithItsOwnLogLine) {
    const std::string good = Record(kGuid, 4, 2);
    const struct {
        std::string text;
        const char* logged;
    } cases[] = {
        {"<contents></content", "read qzdefcon.xml file but too short fName="},  // 19 bytes
        {Text("4", good).substr(0, 150), "so it is truncated fName="},
        {"<contents>\n" + good + "</contents>\n", "could not find most_critial_volume_defcon"},
        {Replaced(Text("4", good), "critial", "critical"), "could not find most_critial_volume_defcon"},
        {Text("6", good), "most_critial_volume_defcon out_of_range=6"},
        {Text("-1", good), "most_critial_volume_defcon out_of_range=-1"},
        {Text("5", ""), "found no <qzvolume ...> elements"},
        {Text("4", good + "<qzvolume qzVolumeGuid=\"x\" mountPointPathHex=\"44\" />\n"),
         "problem parsing vol_defcon_level for i=1"},
        {Text("4", "<qzvolume mountPointPathHex=\"44\" />\n"), "problem parsing qzVolumeGuid for i=0"},
        {Text("4", Replaced(good, "443a5c", "443a5g")), "problem parsing mountPointPathHex for i=0"},
        {Text("4", Replaced(good, "pushed_in_days=\"3", "pushed_in_days=\"3x")),
         "problem parsing vol_last_file_pushed_in_days for i=0"},
    };
    int32_t most = 9;
    std::vector<QzVolDefconRecord> records;
    EXPECT_FALSE(Read(&most, &records));
    EXPECT_TRUE(Logged("qzdefcon.xml file did not exist fName="));
    for (const auto& c : cases) {
        WriteDefcon(c.text);
        records.resize(1);
        EXPECT_FALSE(Read(&most, &records)) << c.text;
        EXPECT_TRUE(records.empty() && most == 9) << c.text;
        EXPECT_TRUE(Logged(c.logged)) << c.text;
    }
}

TEST_F(QzDefconTest, ReaderTriesTwentyTimesWhileTheFileIsHeld) {
    WriteDefcon(Text("4", Record(kGuid, 4, 2)));
    static QzOs::Handle held;
    static int pauses;
    pauses = 0;
    ASSERT_EQ(QzOs::OpenFile(Data("qzreports\\qzdefcon.xml").c_str(), QzOs::OpenMode::ReadExclusive, &held),
              0u);
    QzTime::SetSleepForTesting([](uint32_t) { ++pauses; });
    int32_t most = 0;
    std::vector<QzVolDefconRecord> records;
    EXPECT_FALSE(Read(&most, &records));
    EXPECT_EQ(pauses, 19);  // 20 tries in all
    EXPECT_TRUE(Logged("many tries could not read qzdefcon.xml file but it DOES exist fName="));
    // Released while the reader waits: a later try succeeds.
    QzTime::SetSleepForTesting([](uint32_t) {
        if (++pauses == 22) QzOs::CloseFile(held);
    });
    EXPECT_TRUE(Read(&most, &records));
    QzTime::SetSleepForTesting(nullptr);
    EXPECT_EQ(most, 4);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_STREQ(records[0].mountPoint.c_str(), "D:\\");
}

TEST_F(QzDefconTest, CacheServesTheFileForFiveMinutesEitherWayOfTheClock) {
    now_ += 1000 * QzRegistryTest::kDay;  // far from any earlier fill of the process-wide cache
    const int64_t t = now_;
    WriteDefcon(Text("3", Record(kGuid, 3, 20) + Record("v001short", 5, 0)));
    int32_t most = 0;
    std::vector<QzVolDefconRecord> records;
    ASSERT_TRUE(QzUiUtil::QzVolDefcon_CacheForFiveMinutes_ReadQzDefconXmlFile(&most, &records));
    EXPECT_EQ(most, 3);
    EXPECT_EQ(records.size(), 1u);  // a GUID shorter than 28 characters is not handed out
    WriteDefcon(Text("2", Record(kGuid, 2, 25)));
    for (int64_t offset : {299000LL, 300000LL, -299000LL, -300000LL}) {
        now_ = t + offset;
        ASSERT_TRUE(Cached(&most));
        EXPECT_EQ(most, 3) << "the disk was read again at " << offset;
    }
    now_ = t + 301000;
    ASSERT_TRUE(Cached(&most));
    EXPECT_EQ(most, 2);
    // A failed refresh hands out nothing.
    QzFile::DeleteFileIfExists(Data("qzreports\\qzdefcon.xml").c_str());
    now_ = t;
    EXPECT_FALSE(Cached(&most));
    EXPECT_TRUE(Logged("refresh of cache failed call"));
}

}  // namespace
