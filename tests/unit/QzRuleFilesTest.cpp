// The rule files in a data directory: creating them, merging the default
// blocks, the migration test, the rules made from the settings, the whole
// load and the coarse directory test. Each test has a data directory of its
// own and its own log.
#include <gtest/gtest.h>

#include <algorithm>

#include "QzFile.h"
#include "QzFileXml.h"
#include "QzOs.h"
#include "QzRuleTexts.h"
#include "QzRuleTree.h"
#include "RuleTestSupport.h"

using QzRuleTest::LogCapture;
using QzRuleTest::NoSleep;
using QzRuleTest::Rule;
using QzRuleTest::RuleFile;
using QzRuleTest::Str;

namespace {

class QzRuleFilesTest : public ::testing::Test {
protected:
    void SetUp() override { dir_ = QzTest::NewScratchSubdir("data"); }

    QzString Editable() const { return QzRuleFiles::EditablePath(dir_); }
    QzString Mandatory() const { return QzRuleFiles::MandatoryPath(dir_); }
    QzString MergeLog() const { return QzRuleFiles::MergeLogPath(dir_); }
    std::string Read(const QzString& path) const { return QzTest::ReadFile(path); }
    void Write(const QzString& path, const std::string& text) { ASSERT_TRUE(QzTest::WriteFile(path, text)); }
    void WriteQzInfo(const std::string& text) { Write(QzRuleFiles::QzInfoPath(dir_), text); }

    QzString dir_;
    LogCapture log_;
    NoSleep noSleep_;
};

}  // namespace

TEST_F(QzRuleFilesTest, EditableFileThatCannotTakeRulesIsLeftAlone) {
    EXPECT_FALSE(QzRuleFiles::MergeEditableRuleBlocks(dir_));
    EXPECT_TRUE(
        log_.Has("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, editable rules file does not exist "
                 "fileName="));

    Write(Editable(), "<qzexclusions></qzexclusion");
    EXPECT_FALSE(QzRuleFiles::MergeEditableRuleBlocks(dir_));
    EXPECT_TRUE(
        log_.Has("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, file exists, read in, but length too "
                 "short for editable rules fileName="));
    EXPECT_FALSE(QzFile::PathExists(MergeLog().c_str()));

    // An end tag within the first ten characters: every rule is refused, but
    // the blocks were logged as merged before that test.
    const std::string early = "</qzexclusions>                    ";
    Write(Editable(), early);
    EXPECT_FALSE(QzRuleFiles::MergeEditableRuleBlocks(dir_));
    EXPECT_EQ(Read(Editable()), early);
    EXPECT_EQ(log_.Count("impossible path_D"), 30);
    const std::string mergeLog = Read(MergeLog());
    EXPECT_EQ(std::count(mergeLog.begin(), mergeLog.end(), '\n'), 37);
}

TEST_F(QzRuleFilesTest, FailedWritesLeaveTheOldFilesAsTheyWere) {
    Write(Editable(), Str(QzRuleTexts::EditableText()));
    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(QzCat(Editable(), ".tmp").c_str()));
    EXPECT_FALSE(QzRuleFiles::MergeEditableRuleBlocks(dir_));
    EXPECT_EQ(Read(Editable()), Str(QzRuleTexts::EditableText()));
    EXPECT_TRUE(log_.Has(
        QzCat("ERROR - MakeSureAllEditableExcludeRuleBlocksAreMerged, failed to write tmp fileNameTmp=",
              Editable(), ".tmp")
            .c_str()));

    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(QzCat(Mandatory(), ".tmp").c_str()));
    EXPECT_FALSE(QzRuleFiles::MakeSureRuleFilesExist(dir_, nullptr));
    EXPECT_FALSE(QzFile::FileExists(Mandatory().c_str()));
    EXPECT_TRUE(log_.Has(
        "ERROR: MakeSureExcludeRulesFilesExistIn_qzdata_Folder - something bad occurred, i=10, j=0"));
    EXPECT_EQ(NoSleep::Pauses(), 9);  // between ten attempts
}

TEST_F(QzRuleFilesTest, MigrationLoadsRegistryRulesUnlessTheMandatoryFileRestrictsThemToXp) {
    const char* who = "ERROR: QzInfoManager::WeNeedToLoadRegistryExclusionRulesBecauseMigration - ";
    EXPECT_TRUE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));
    EXPECT_TRUE(log_.Has(std::string(who) + "mandatory file does not exist, default to YES parse rules"));

    const std::string padding = "<!-- " + std::string(1000, '-') + " -->\n";
    const std::string four = Rule(":\\a\\") + Rule(":\\b\\") + Rule(":\\c\\") + Rule(":\\d\\");
    Write(Mandatory(), std::string(999, ' '));
    EXPECT_TRUE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));
    EXPECT_TRUE(log_.Has("not long enough! default to YES parse rules, contentsTooShortFileName="));
    Write(Mandatory(), RuleFile(padding + four));
    EXPECT_TRUE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));
    EXPECT_TRUE(log_.Has("had too few rules for fileName="));

    const std::string hive = Rule(":\\Users\\", "*", "*", "*", "\\ntuser.dat", "dat", "win", "XP");
    Write(Mandatory(), RuleFile(padding + four + hive));
    EXPECT_FALSE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));
    Write(Mandatory(), RuleFile(padding + four + Rule(":\\Users\\", "*", "*", "*", "\\ntuser.dat", "dat")));
    EXPECT_TRUE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));
    Write(Mandatory(), RuleFile(padding + four + Rule(":\\e\\", "*", "*", "*", "\\NTUSER.DAT")));
    EXPECT_TRUE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));  // no rule for "\ntuser.dat" itself
    std::string noEnds = Rule(":\\e\\");
    noEnds.erase(noEnds.find(" endsWith=\"*\""), 13);
    Write(Mandatory(), RuleFile(padding + four + noEnds + hive));
    EXPECT_TRUE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));
    EXPECT_TRUE(log_.Has("had no endsWith tag, snippet=<excludefname_rule plat=\"win\""));

    Write(Mandatory(), Str(QzRuleTexts::MandatoryText()));
    EXPECT_FALSE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));
}

TEST_F(QzRuleFilesTest, SettingsRulesComeFromExcludedTypesAndExcludedFolders) {
    WriteQzInfo(
        "<qzinfo excludefiletypes=\"tmp,, bak,.ISO ,*,a\\b,x|y\" >\n<do_backup>\n"
        "<qzdirfilter dir=\"C:\" whichfiles=\"none\" />\n"
        "<qzdirfilter dir=\"D:\\Data\" whichfiles=\"none\" />\n"
        "<qzdirfilter dir=\"E:\\Keep\\\" whichfiles=\"docs\" />\n"
        "<qzdirfilter dir=\"F:\\Old\\\" whichfiles=\"NONE\" />\n"
        "<qzdirfilter dir=\"G\" whichfiles=\"none\" />\n"
        "<qzdirfilter whichfiles=\"none\" />\n<qzdirfilter dir=\"H:\\x\" />\n</do_backup>\n</qzinfo>\n");
    QzString xml;
    ASSERT_TRUE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    auto rule = [](const char* prefix, const char* ext) { return Rule(prefix, "*", "*", "*", "*", ext); };
    EXPECT_EQ(Str(xml), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<qzexclusions>\n" + rule("*", "tmp") +
                            rule("*", "bak") + rule("*", "ISO") + rule(":\\", "*") + rule(":\\Data\\", "*") +
                            rule(":\\Old\\", "*") + "</qzexclusions>\n");
    for (const char* entry : {"*", "a\\b", "x|y"})
        EXPECT_TRUE(log_.Has(std::string("ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml "
                                         "skipping excludefiletypes entry that is no file extension: \"") +
                             entry + "\" in qzinfo file:"))
            << entry;
    EXPECT_TRUE(
        log_.Has("skipping exclusion \"dir\" attribute is TOO SHORT on \"qzdirfilter\" in qzinfo file:"));
    EXPECT_TRUE(
        log_.Has("skipping exclusion because no \"dir\" attribute on \"qzdirfilter\" in qzinfo file:"));
    EXPECT_TRUE(log_.Has(
        "skipping exclusion because no \"whichfiles\" attribute on \"qzdirfilter\" in qzinfo file:"));
    // The drive-only folder gives ":\", which the parser refuses.
    QzRuleTree tree;
    ASSERT_TRUE(tree.ParseExcludeFileNameRules(&xml, "qzinfo.xml"));
    EXPECT_EQ(tree.NumRules(), 5);
    EXPECT_EQ(log_.Count("BAD_EXCLUDEFNAME_RULE_D"), 1);
    EXPECT_FALSE(tree.UserWantsThisFileBackedUpEx("X:\\Media\\disc.iso", 1, 1));
    EXPECT_TRUE(tree.UserWantsThisFileBackedUpEx("X:\\Media\\notes.txt", 1, 1));  // no rule for every file
    EXPECT_FALSE(tree.UserWantsThisFileBackedUpEx("X:\\Data\\a.txt", 1, 1));
    EXPECT_TRUE(tree.UserWantsThisFileBackedUpEx("X:\\Database\\a.txt", 1, 1));
}

TEST_F(QzRuleFilesTest, SettingsWithoutExclusionsGiveNoRuleAndAreLogged) {
    QzString xml;
    EXPECT_FALSE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    EXPECT_TRUE(log_.Has(
        "ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml no qzinfo.xml found at:"));
    EXPECT_EQ(Str(xml), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<qzexclusions>\n</qzexclusions>\n");

    WriteQzInfo("<qzinfo excludefiletypes=\"\" />");
    EXPECT_TRUE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    EXPECT_TRUE(log_.Has(" excludefiletypes val zero len in qzinfo file, cleared by user :"));
    EXPECT_TRUE(
        log_.Has("INTERESTING: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml found zero "
                 "qzdirfilter in qzinfo file, probably cleared by user:"));
    WriteQzInfo("<qzinfo />");
    EXPECT_TRUE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    EXPECT_TRUE(
        log_.Has("ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml no excludefiletypes tag "
                 "in qzinfo file:"));
    EXPECT_EQ(xml.Find("<excludefname_rule"), -1);
}

TEST_F(QzRuleFilesTest, UnreadableSettingsAreRetriedSeventeenTimes) {
    WriteQzInfo("<qzinfo excludefiletypes=\"tmp\" />");
    QzOs::Handle h;
    ASSERT_EQ(QzOs::OpenFile(QzRuleFiles::QzInfoPath(dir_).c_str(), QzOs::OpenMode::ReadExclusive, &h),
              QzOs::ErrSuccess);
    QzString xml;
    EXPECT_FALSE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    QzOs::CloseFile(h);
    EXPECT_EQ(NoSleep::Pauses(), 17);
    EXPECT_EQ(log_.Count("WARNING: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml could not read "
                         "qzinfo.xml so pausing and trying again found at: "),
              17);
    EXPECT_TRUE(log_.Has(
        "ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml could not read qzinfo.xml "
        "after 17 tries, found at: "));
    EXPECT_TRUE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
}

TEST_F(QzRuleFilesTest, LoadOfAFreshDataDirectoryLogsGroupsAndDuplicatesAndNoError) {
    WriteQzInfo("<qzinfo excludefiletypes=\"tmp\" />");
    QzRuleTree tree;
    ASSERT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree));
    EXPECT_EQ(tree.NumPrefixGroups(), 21);
    // Copies: six in the editable defaults, three merged rules equal to defaults.
    EXPECT_EQ(log_.Count("-duplicate XML rule_1 skipFirstChar="), 9);
    EXPECT_EQ(log_.Count("with 21 unique skipFirstCharThenStartsWith now in the array, returning success."),
              3);
    EXPECT_EQ(log_.Count("ERROR"), 0);
    EXPECT_FALSE(log_.Has("registry_rules"));
    EXPECT_FALSE(tree.UserWantsThisFileBackedUpEx("C:\\Pictures\\desktop.ini", 1, 1));  // block 004
    EXPECT_FALSE(tree.UserWantsThisFileBackedUpEx("C:\\Work\\.svn\\entries", 1, 1));    // block 001
    EXPECT_FALSE(tree.UserWantsThisFileBackedUpEx("C:\\Work\\old.TMP", 1, 1));          // the settings

    // A second load starts afresh.
    ASSERT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree));
    EXPECT_EQ(tree.NumPrefixGroups(), 21);
}

TEST_F(QzRuleFilesTest, LoadFailsOnAnyRequiredDataSet) {
    QzRuleTree tree;
    const char* who = "ERROR: QzInfoManager::LoadAllExcludeFilenameRulesProperly - ";
    WriteQzInfo("<qzinfo excludefiletypes=\"\" />");
    EXPECT_FALSE(QzRuleFiles::LoadAllRules(dir_, &tree));
    EXPECT_TRUE(log_.Has(std::string(who) +
                         "QzInfoManager::ParseExcludeFileNameRules returned FALSE for qzinfo.xml "
                         "rules."));

    WriteQzInfo("<qzinfo excludefiletypes=\"tmp\" />");
    Write(Editable(), RuleFile("<!-- nothing here --></qzexclusions>"));
    EXPECT_FALSE(QzRuleFiles::LoadAllRules(dir_, &tree));
    EXPECT_TRUE(log_.Has(std::string(who) + "QzInfoManager::ParseExcludeFileNameRules returned FALSE for "
                                            "editable_rules."));

    // No end tag: nothing can be merged, but the rules still load.
    Write(Editable(), "<qzexclusions>\n" + Rule(":\\Mine\\"));
    EXPECT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree));
    EXPECT_FALSE(tree.UserWantsThisFileBackedUpEx("C:\\mine\\x", 1, 1));

    ASSERT_TRUE(QzFile::DeleteFileIfExists(Editable().c_str()));
    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(Editable().c_str()));  // cannot be written
    EXPECT_FALSE(QzRuleFiles::LoadAllRules(dir_, &tree));
    EXPECT_TRUE(log_.Has(std::string(who) + "file does not exist, do not go forward:"));
}

TEST_F(QzRuleFilesTest, OldMandatoryFileMakesTheLoadAddTheRegistryRules) {
    WriteQzInfo("<qzinfo excludefiletypes=\"tmp\" />");
    Write(Mandatory(), std::string(999, ' '));
    QzRuleTree tree;
    ASSERT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree));
    EXPECT_TRUE(
        log_.Has("QzInfoManager::ParseExcludeFileNameRules - found 10, now beginning to parse the rules"));
    // They are already in the editable rules: ten more copies.
    EXPECT_EQ(log_.Count("-duplicate XML rule_1 skipFirstChar="), 19);
}

TEST_F(QzRuleFilesTest, DirectoryTestComparesWholePathsWithFiltersAndRulePrefixes) {
    WriteQzInfo(
        "<qzinfo>\n<qzdirfilter dir=\"C:\\Users\\Bob\\Videos\" whichfiles=\"none\" />\n"
        "<qzdirfilter dir=\"C:\\Keep\" whichfiles=\"docs\" />\n</qzinfo>\n");
    Write(Editable(), RuleFile(Rule(":\\Projects\\Old\\", "\\x\\") + "<!-- " + Rule(":\\Commented\\") +
                               " -->\n" + Rule("dev/", "*", "*", "*", "*", "*", "mac")));
    QzRuleFiles::DirExclusions d;
    d.Load(dir_);
    EXPECT_TRUE(d.IsExcluded("C:\\Windows\\"));
    EXPECT_TRUE(d.IsExcluded("e:\\WINDOWS\\"));
    EXPECT_FALSE(d.IsExcluded("C:\\Windows"));
    EXPECT_TRUE(d.IsExcluded("c:\\users\\bob\\videos"));
    EXPECT_FALSE(d.IsExcluded("C:\\Users\\Bob\\Videos\\"));
    EXPECT_FALSE(d.IsExcluded("C:\\Keep"));
    EXPECT_TRUE(d.IsExcluded("D:\\Projects\\Old\\"));  // only the prefix counts
    EXPECT_FALSE(d.IsExcluded("C:\\Commented\\"));
    EXPECT_FALSE(d.IsExcluded("Cdev/"));
    EXPECT_TRUE(d.IsExcluded("C:\\Documents and Settings\\"));  // an "xp" rule counts here
    EXPECT_FALSE(d.IsExcluded("C:\\"));
    EXPECT_FALSE(d.IsExcluded(""));
    EXPECT_FALSE(log_.Has("could not find any"));

    QzRuleFiles::DirExclusions empty;
    empty.Load(QzTest::NewScratchSubdir("empty"));
    EXPECT_TRUE(log_.Has("could not find any qzdirfilters in qzinfo.xml"));
    EXPECT_TRUE(log_.Has("could not find any excludefname_rule in qzexcluderules_editable.xml"));
    EXPECT_TRUE(empty.IsExcluded("C:\\Windows\\"));
}
