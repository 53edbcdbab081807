// The exclusion rules: the built-in texts (a digest of each); what the parser
// refuses and logs; the per-file decision; and the rule files of a data
// directory (refusals and retries, migration, rules made from the settings,
// the whole load, the coarse directory test).
// The fuzz target checks the index against the walk over the tree and the
// merge step on arbitrary files.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "QzFile.h"
#include "QzOs.h"
#include "QzRuleFiles.h"
#include "QzRuleTexts.h"
#include "QzRuleTree.h"
#include "TestScratch.h"

using QzTest::LoggedCount;
using QzTest::Str;

namespace {

constexpr const char* kFileStart = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?> \n\n<qzexclusions>\n";

// FNV-1a, 64 bits: pins every byte of a default rule file in one number.
uint64_t Digest(const QzString& text) {
    uint64_t h = 14695981039346656037ull;
    for (int32_t i = 0; i < text.Length(); ++i)
        h = (h ^ static_cast<unsigned char>(text.c_str()[i])) * 1099511628211ull;
    return h;
}

// One rule element in the layout of the default files.
std::string Rule(const std::string& prefix, const std::string& c1 = "*", const std::string& c2 = "*",
                 const std::string& dnc = "*", const std::string& ends = "*", const std::string& ext = "*",
                 const std::string& plat = "win", const std::string& osVers = "*") {
    return "<excludefname_rule plat=\"" + plat + "\" osVers=\"" + osVers +
           "\"  ruleIsOptional=\"t\" skipFirstCharThenStartsWith=\"" + prefix + "\" contains_1=\"" + c1 +
           "\" contains_2=\"" + c2 + "\" doesNotContain=\"" + dnc + "\" endsWith=\"" + ends +
           "\" hasFileExtension=\"" + ext + "\" />\n";
}

std::string RuleFile(const std::string& rules) {
    return kFileStart + rules + "</qzexclusions>\n";
}

constexpr int64_t kNoLimit = 4000LL << 20;

// The rule files live in the fresh machine's data directory.
class QzRulesTest : public QzTest::MachineTest {
protected:
    bool Parse(const std::string& text, const char* dataSet = "test_rules") {
        const QzString xml(text.c_str(), static_cast<int32_t>(text.size()));
        return tree_.ParseExcludeFileNameRules(&xml, dataSet);
    }
    bool Wanted(const std::string& path, int64_t size = 1000, int64_t max = kNoLimit) {
        return tree_.UserWantsThisFileBackedUpEx(QzString(path.c_str()), size, max);
    }
    // The rule that excluded the last path, as its contains_1 (or "*").
    std::string Hit() const {
        const QzExcludeRuleNode* r = tree_.LastExcludingRule();
        return !r ? "(none)" : r->fields.contains1.isSet ? r->fields.contains1.text.c_str() : "*";
    }
    QzString Editable() const { return QzRuleFiles::EditablePath(dir_); }
    QzString Mandatory() const { return QzRuleFiles::MandatoryPath(dir_); }
    void Write(const QzString& path, const std::string& text) { ASSERT_TRUE(QzTest::WriteFile(path, text)); }
    void WriteQzInfo(const std::string& text) { Write(QzRuleFiles::QzInfoPath(dir_), text); }

    const QzString dir_ = QzFile::GetDataDir();
    QzRuleTree tree_;
};

}  // namespace

// A change of the default rule files changes what every client writes into
// its data directory. When the change is intended, put the digest the failure
// shows into the table.
TEST_F(QzRulesTest, BuiltInTextsAreAsPinnedAndParseAsCounted) {
    const std::pair<const QzString*, uint64_t> files[] = {
        {&QzRuleTexts::MandatoryText(), 0xb70672fde63ffea2ull},
        {&QzRuleTexts::EditableText(), 0x6b2ac13d58573748ull},
        {&QzRuleTexts::MergeBlocksText(), 0x44141d89410a1ae1ull}};
    for (const auto& [text, digest] : files)
        EXPECT_EQ(Digest(*text), digest) << "a default rule text changed; if that is intended, put 0x"
                                         << std::hex << Digest(*text) << " into this table";

    // 114 Windows rules less the 13 for "xp"; the "mac" rules are skipped silently.
    ASSERT_TRUE(tree_.ParseExcludeFileNameRules(&QzRuleTexts::MandatoryText(), "mandatory_rules"));
    EXPECT_TRUE(
        Logged("QzInfoManager::ParseExcludeFileNameRules - found 278, now beginning to parse the rules"));
    EXPECT_TRUE(Logged(
        "QzInfoManager::ParseExcludeFileNameRules - SUCCESSFULLY PARSED 278, and found 101 that applied to "
        "me, with 21 unique skipFirstCharThenStartsWith now in the array, returning success."));
    // 42 less 5 "xp" rules; 6 of the second temporary-files group are copies.
    ASSERT_TRUE(tree_.ParseExcludeFileNameRules(&QzRuleTexts::EditableText(), "editable_rules"));
    EXPECT_EQ(tree_.NumRules(), 101 + 37 - 6);
    EXPECT_EQ(tree_.NumPrefixGroups(), 21);
    EXPECT_EQ(LoggedCount("-duplicate XML rule_1 skipFirstChar="), 6);
    EXPECT_TRUE(Logged(
        "INTERESTING (sometimes happens) - QzInfoManager::ParseExcludeFileNameRules -duplicate XML rule_1 "
        "skipFirstChar=:\\users\\, fileExt=*, contains_1=\\appdata\\local\\temp\\, contains_2=*, "
        "endsWith=*"));
    EXPECT_EQ(LoggedCount("ERROR"), 0);
}

// The default rules of a fresh data directory, loaded as a scan loads them.
TEST_F(QzRulesTest, LoadOfAFreshDataDirectoryAndItsDecisions) {
    WriteQzInfo("<qzinfo excludefiletypes=\"tmp\" />");
    ASSERT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree_));
    ASSERT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree_));  // a second load starts afresh
    EXPECT_EQ(tree_.NumPrefixGroups(), 21);
    // Per load: six copies in the editable defaults, three merged rules equal to defaults.
    EXPECT_EQ(LoggedCount("-duplicate XML rule_1 skipFirstChar="), 18);
    EXPECT_EQ(LoggedCount("with 21 unique skipFirstCharThenStartsWith now in the array, returning success."),
              6);
    EXPECT_EQ(LoggedCount("ERROR"), 0);
    EXPECT_FALSE(Logged("registry_rules"));

    const std::string chrome = "C:\\Users\\x\\AppData\\Local\\Google\\Chrome\\User Data\\Default\\";
    // One row per kind of default rule; the matching itself is checked on
    // rules of the test's own below. The hit is contains_1 of the excluding rule.
    const std::tuple<std::string, bool, const char*> cases[] = {
        {"E:\\USERS\\x\\NtUser.Dat", false, "*"},
        {"C:\\Data\\Users\\Bob\\NTUSER.DAT", true, nullptr},  // a prefix starts at the 2nd character
        {"C:\\Users\\Bob\\NTUSER.DAT.bak", true, nullptr},
        {"D:\\Windows\\notepad.exe", false, nullptr},
        {"D:\\Windowsill\\plan.docx", true, nullptr},
        {"C:\\Users\\Bob\\AppData\\Local\\Microsoft\\Windows\\WebCache\\WebCacheV01.DAT", false, nullptr},
        {"C:\\Users\\Bob\\Documents\\scratch.TMP", false, nullptr},  // from "excludefiletypes"
        {"C:\\Users\\Bob\\a.tmp\\report", true, nullptr},            // a period in a folder is no extension
        {"C:\\Pictures\\desktop.ini", false, nullptr},               // merge block 004
        {"C:\\Work\\.svn\\entries", false, nullptr},                 // merge block 001
        {chrome + "Bookmarks", true, nullptr},
        {chrome + "Cache\\Cache_Data\\f_000123", false, "\\appdata\\local\\google\\"},
        {"C:\\", true, nullptr},
        {"C:\\x.tmp", false, nullptr},  // short paths meet only the rules without prefix
        {"", true, nullptr},
    };
    for (const auto& [path, wanted, hit] : cases) {
        EXPECT_EQ(Wanted(path), wanted) << path;
        EXPECT_TRUE(!hit || Hit() == hit) << path << ": " << Hit();
    }
    // The size limit comes first, and a file at the limit is wanted.
    EXPECT_TRUE(Wanted("C:\\Data\\big.iso", kNoLimit, kNoLimit));
    EXPECT_FALSE(Wanted("C:\\Data\\big.iso", kNoLimit + 1, kNoLimit));
    EXPECT_EQ(tree_.LastExcludingRule(), nullptr);
    EXPECT_FALSE(Wanted("C:\\Data\\empty.txt", 0, -1));
}

TEST_F(QzRulesTest, RefusedRulesAndDataSetsAreLogged) {
    // A missing criterion skips the rule with its code; so do a short prefix
    // (code D), while other platforms and versions are skipped silently.
    const std::string attrs[] = {"plat",       "osVers",          "skipFirstCharThenStartsWith",
                                 "contains_1", "contains_2",      "doesNotContain",
                                 "endsWith",   "hasFileExtension"};
    std::string rules = Rule(":\\keep\\", "*", "*", "*", "*", "*", "WIN") + Rule(":\\x") +
                        Rule(":\\mac\\", "*", "*", "*", "*", "*", "mac") +
                        Rule(":\\xp\\", "*", "*", "*", "*", "*", "WIN", "xp");
    for (const std::string& a : attrs) {
        std::string r = Rule(":\\gone\\");
        const size_t at = r.find(" " + a + "=\"");
        rules += r.erase(at, r.find('"', r.find('"', at) + 1) + 1 - at);
    }
    ASSERT_TRUE(Parse(RuleFile(rules), "editable_rules"));
    EXPECT_EQ(tree_.NumRules(), 1);
    EXPECT_FALSE(Wanted("C:\\KEEP\\a"));
    EXPECT_TRUE(Wanted("C:\\xp\\a"));
    for (int i = 0; i < 8; ++i)
        EXPECT_TRUE(Logged(
            std::string("ERROR - QzInfoManager::ParseExcludeFileNameRules - BAD_EXCLUDEFNAME_RULE_") +
            "ABCEFGHI"[i] + ".  XML rule num=" + std::to_string(i + 5) + " did not contain criteria \"" +
            attrs[i] + "\" so it will be skipped! From dataSet=editable_rules"))
            << attrs[i];
    EXPECT_TRUE(
        Logged("BAD_EXCLUDEFNAME_RULE_D.  XML rule num=2 criteria \"skipFirstCharThenStartsWith\" is to "
               "short so this rule will be skipped! From dataSet=editable_rules"));
    EXPECT_EQ(LoggedCount("ERROR"), 9);
    EXPECT_TRUE(Logged("SUCCESSFULLY PARSED 12, and found 1 that applied to me, with 1 unique"));

    EXPECT_FALSE(tree_.ParseExcludeFileNameRules(nullptr, "editable_rules"));
    EXPECT_TRUE(
        Logged("ERROR: QzInfoManager::ParseExcludeFileNameRules, xmlContainingExcludeRules bad NULL param "
               "for dataSet=editable_rules"));
    EXPECT_FALSE(Parse(RuleFile(""), "qzinfo.xml"));
    EXPECT_TRUE(
        Logged("ERROR: QzInfoManager::ParseExcludeFileNameRules, could not parse any excludefname_rule out "
               "of dataSet=qzinfo.xml"));
    tree_.Clear();
    std::string many;
    for (int i = 0; i < 9998; ++i) many += Rule(":\\r" + std::to_string(i) + "\\");
    EXPECT_FALSE(Parse(RuleFile(many), "big"));
    EXPECT_TRUE(
        Logged("ERROR - QzInfoManager::ParseExcludeFileNameRules - TOO_MANY_EXCLUEFNAME_RULE.  We found "
               "9998 excludefname_rule from dataSet=big, which is too many for our static datastructures "
               "to handle so we are bailing out."));
    EXPECT_EQ(tree_.NumRules(), 0);
    many.resize(many.size() - Rule(":\\r9997\\").size());
    EXPECT_TRUE(Parse(RuleFile(many), "big"));
    EXPECT_EQ(tree_.NumPrefixGroups(), 9997);

    // Comments are removed; one without its end ends the text.
    tree_.Clear();
    ASSERT_TRUE(Parse(RuleFile("<!-- " + Rule(":\\commented\\") + " -->\n" + Rule(":\\kept\\") +
                               "<!-- open\n" + Rule(":\\after\\"))));
    EXPECT_EQ(tree_.NumRules(), 1);
    EXPECT_TRUE(Wanted("C:\\commented\\a"));
    EXPECT_TRUE(
        Logged("ERROR: QzInfoManager::ParseExcludeFileNameRules_AddToArray -could not find end of comment, "
               "where START of comment is:<!-- open"));
}

TEST_F(QzRulesTest, PrefixGroupsStopAtTheCapacityAndCompareTheirFirst5000Characters) {
    std::string a, b;
    for (int i = 0; i < 6000; ++i) a += Rule(":\\a" + std::to_string(i) + "\\");
    for (int i = 0; i < 6000; ++i) b += Rule(":\\b" + std::to_string(i) + "\\");
    ASSERT_TRUE(Parse(RuleFile(a)));
    ASSERT_TRUE(Parse(RuleFile(b)));
    EXPECT_EQ(tree_.NumPrefixGroups(), QzRuleTree::kMaxPrefixGroups);
    EXPECT_EQ(LoggedCount("TOO_MANY_UNIQUE_SKIPFIRSTCHAR"), 2000);
    EXPECT_FALSE(Wanted("C:\\b3999\\x"));
    EXPECT_TRUE(Wanted("C:\\b4000\\x"));

    // Ten prefixes alike in their first 5000 characters: ten groups under one
    // key, all of which apply to a path that shares those characters.
    tree_.Clear();
    const std::string body(4998, 'q');
    std::string rules;
    for (int i = 0; i < 10; ++i)
        rules += Rule(":\\" + body + "TAIL" + std::to_string(i) + "\\", "*", "*", "*", "*",
                      "e" + std::to_string(i));
    ASSERT_TRUE(Parse(RuleFile(rules)));
    EXPECT_EQ(tree_.NumPrefixGroups(), 10);
    const std::string path = "C:\\" + body + "zz\\file.";
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(Wanted(path + "e" + std::to_string(i))) << i;
        ASSERT_NE(tree_.LastExcludingRule(), nullptr);
        EXPECT_EQ(tree_.LastExcludingRule()->fields.extension.text.c_str(), "e" + std::to_string(i));
    }
    EXPECT_TRUE(Wanted(path + "e10"));
    EXPECT_TRUE(Wanted("C:\\" + body.substr(0, 4997) + ".e1"));  // the path ends first
}

TEST_F(QzRulesTest, DuplicatesAreDroppedWithOneMessageEach) {
    const std::string r = Rule(":\\Users\\", "\\A\\", "*", "x|y", "\\f.dat", "DAT");
    ASSERT_TRUE(Parse(RuleFile(r + Rule(":\\users\\", "\\a\\", "*", "X|Y", "\\F.DAT", "dat") + r)));
    EXPECT_EQ(tree_.NumRules(), 1);
    EXPECT_EQ(tree_.NumDuplicatesDropped(), 2);
    EXPECT_EQ(
        LoggedCount("INTERESTING (sometimes happens) - QzInfoManager::ParseExcludeFileNameRules -duplicate "
                    "XML rule_1 skipFirstChar=:\\users\\, fileExt=dat, contains_1=\\a\\, contains_2=*, "
                    "endsWith=\\f.dat"),
        2);
    // Differing in one criterion, or in the order of the does-not-contain texts, is another rule.
    ASSERT_TRUE(Parse(RuleFile(Rule(":\\users\\", "\\a\\", "*", "y|x", "\\f.dat", "dat") +
                               Rule(":\\users\\", "\\a\\", "", "x|y", "\\f.dat", "dat"))));
    EXPECT_EQ(tree_.NumRules(), 3);
}

TEST_F(QzRulesTest, CriteriaSemanticsAndTheFirstMatchingRule) {
    ASSERT_TRUE(Parse(RuleFile(Rule(":\\empty\\", "") +                    // never holds
                               Rule(":\\ends\\", "*", "*", "*", "") +      // "" always holds
                               Rule(":\\dnc\\", "*", "*", "keep||also") +  // "" occurs nowhere
                               Rule(":\\both\\", "\\one\\", "\\two\\") +   // both must occur
                               Rule(":\\\303\211cole\\") +                 // "É", not folded
                               Rule("*", "*", "*", "*", "\\Z.txt", "TXT"))));
    const std::pair<const char*, bool> cases[] = {{"C:\\empty\\a", true},
                                                  {"C:\\ends\\a", false},
                                                  {"C:\\dnc\\a", false},
                                                  {"C:\\dnc\\KEEP\\a", true},
                                                  {"C:\\dnc\\also", true},
                                                  {"C:\\both\\one\\a", true},
                                                  {"C:\\both\\TWO\\x\\One\\a", false},
                                                  {"C:\\\303\211cole\\a", false},
                                                  {"C:\\\303\251cole\\a", true},
                                                  {"C:\\dir\\z.TXT", false},
                                                  {"C:\\dir\\z.txt.gz", true}};
    for (const auto& [path, wanted] : cases) EXPECT_EQ(Wanted(path), wanted) << path;

    // Group ":\a\" comes first; within it the "txt" node precedes the "*" node
    // only when the "*" rule came later.
    tree_.Clear();
    ASSERT_TRUE(Parse(RuleFile(Rule(":\\a\\b\\", "first") + Rule(":\\a\\", "*", "*", "*", "*", "txt") +
                               Rule(":\\a\\", "second") + Rule("*", "third"))));
    const std::pair<const char*, const char*> hits[] = {{"C:\\a\\b\\first second third.txt", "first"},
                                                        {"C:\\a\\second third.txt", "*"},
                                                        {"C:\\a\\second third.doc", "second"},
                                                        {"C:\\x\\third", "third"}};
    for (const auto& [path, hit] : hits) {
        EXPECT_FALSE(Wanted(path)) << path;
        EXPECT_EQ(Hit(), hit) << path;
    }
}

TEST_F(QzRulesTest, MissingOrShortFilesAreRefusedAndAFailedWriteIsTriedTenTimes) {
    EXPECT_FALSE(QzRuleFiles::MergeEditableRuleBlocks(dir_));
    EXPECT_TRUE(
        Logged("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, editable rules file does not exist "
               "fileName="));
    Write(Editable(), "<qzexclusions></qzexclusion");
    EXPECT_FALSE(QzRuleFiles::MergeEditableRuleBlocks(dir_));
    EXPECT_TRUE(
        Logged("ERROR MakeSureAllEditableExcludeRuleBlocksAreMerged, file exists, read in, but length too "
               "short for editable rules fileName="));

    // The replacement itself is the shared atomic write; here only the retries.
    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(QzCat(Mandatory(), ".tmp").c_str()));
    pauses_.pauses = 0;
    EXPECT_FALSE(QzRuleFiles::MakeSureRuleFilesExist(dir_, nullptr));
    EXPECT_FALSE(QzFile::FileExists(Mandatory().c_str()));
    EXPECT_TRUE(
        Logged("ERROR: MakeSureExcludeRulesFilesExistIn_qzdata_Folder - something bad occurred, i=10, j=0"));
    EXPECT_EQ(pauses_.pauses, 9);  // between ten attempts
}

TEST_F(QzRulesTest, MigrationLoadsRegistryRulesUnlessTheMandatoryFileRestrictsThemToXp) {
    const char* who = "ERROR: QzInfoManager::WeNeedToLoadRegistryExclusionRulesBecauseMigration - ";
    EXPECT_TRUE(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_));
    EXPECT_TRUE(Logged(std::string(who) + "mandatory file does not exist, default to YES parse rules"));

    const std::string four = "<!-- " + std::string(1000, '-') + " -->\n" + Rule(":\\a\\") + Rule(":\\b\\") +
                             Rule(":\\c\\") + Rule(":\\d\\");
    const std::string hive = Rule(":\\Users\\", "*", "*", "*", "\\ntuser.dat", "dat", "win", "XP");
    std::string noEnds = Rule(":\\e\\");
    noEnds.erase(noEnds.find(" endsWith=\"*\""), 13);
    const struct {
        std::string text;
        bool need;
        const char* logged;
    } cases[] = {
        {RuleFile(four), true, "had too few rules for fileName="},
        {RuleFile(four + hive), false, nullptr},
        {RuleFile(four + Rule(":\\Users\\", "*", "*", "*", "\\ntuser.dat", "dat")), true, nullptr},
        {RuleFile(four + Rule(":\\e\\", "*", "*", "*", "\\NTUSER.DAT")), true,
         nullptr},  // not "\ntuser.dat" itself
        {RuleFile(four + noEnds + hive), true,
         "had no endsWith tag, snippet=<excludefname_rule plat=\"win\""},
        {Str(QzRuleTexts::MandatoryText()), false, nullptr},
        {std::string(999, ' '), true,
         "not long enough! default to YES parse rules, contentsTooShortFileName="},
    };
    for (const auto& c : cases) {
        Write(Mandatory(), c.text);
        EXPECT_EQ(QzRuleFiles::NeedRegistryRulesBecauseMigration(dir_), c.need) << c.text;
        EXPECT_TRUE(!c.logged || Logged(c.logged)) << c.logged;
    }
    // The too-short file is left in place: the load adds the registry rules,
    // all ten of which are already in the editable rules.
    WriteQzInfo("<qzinfo excludefiletypes=\"tmp\" />");
    ASSERT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree_));
    EXPECT_TRUE(
        Logged("QzInfoManager::ParseExcludeFileNameRules - found 10, now beginning to parse the rules"));
    EXPECT_EQ(LoggedCount("-duplicate XML rule_1 skipFirstChar="), 19);
}

TEST_F(QzRulesTest, SettingsRulesComeFromExcludedTypesAndExcludedFolders) {
    WriteQzInfo(
        "<qzinfo excludefiletypes=\"tmp,, bak,.ISO ,*,a\\b,x|y\" >\n<do_backup>\n"
        "<qzdirfilter dir=\"C:\" whichfiles=\"none\" />\n<qzdirfilter dir=\"D:\\Data\" whichfiles=\"none\" "
        "/>\n"
        "<qzdirfilter dir=\"E:\\Keep\\\" whichfiles=\"docs\" />\n<qzdirfilter dir=\"F:\\Old\\\" "
        "whichfiles=\"NONE\" />\n"
        "<qzdirfilter dir=\"G\" whichfiles=\"none\" />\n<qzdirfilter whichfiles=\"none\" />\n"
        "<qzdirfilter dir=\"H:\\x\" />\n</do_backup>\n</qzinfo>\n");
    QzString xml;
    ASSERT_TRUE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    auto rule = [](const char* prefix, const char* ext) { return Rule(prefix, "*", "*", "*", "*", ext); };
    EXPECT_EQ(Str(xml), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<qzexclusions>\n" + rule("*", "tmp") +
                            rule("*", "bak") + rule("*", "ISO") + rule(":\\", "*") + rule(":\\Data\\", "*") +
                            rule(":\\Old\\", "*") + "</qzexclusions>\n");
    const std::string who = "ERROR: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml ";
    for (const char* entry : {"*", "a\\b", "x|y"})
        EXPECT_TRUE(Logged(who + "skipping excludefiletypes entry that is no file extension: \"" + entry +
                           "\" in qzinfo file:"))
            << entry;
    EXPECT_TRUE(
        Logged("skipping exclusion \"dir\" attribute is TOO SHORT on \"qzdirfilter\" in qzinfo file:"));
    EXPECT_TRUE(Logged("skipping exclusion because no \"dir\" attribute on \"qzdirfilter\" in qzinfo file:"));
    EXPECT_TRUE(
        Logged("skipping exclusion because no \"whichfiles\" attribute on \"qzdirfilter\" in qzinfo file:"));

    // Settings without exclusions give no rule, which the load refuses.
    WriteQzInfo("<qzinfo excludefiletypes=\"\" />");
    EXPECT_TRUE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    EXPECT_EQ(Str(xml), "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<qzexclusions>\n</qzexclusions>\n");
    EXPECT_TRUE(Logged(" excludefiletypes val zero len in qzinfo file, cleared by user :"));
    EXPECT_TRUE(
        Logged("INTERESTING: QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml found zero "
               "qzdirfilter in qzinfo file, probably cleared by user:"));
    EXPECT_FALSE(QzRuleFiles::LoadAllRules(dir_, &tree_));
    EXPECT_TRUE(
        Logged("ERROR: QzInfoManager::LoadAllExcludeFilenameRulesProperly - QzInfoManager::"
               "ParseExcludeFileNameRules returned FALSE for qzinfo.xml rules."));
    WriteQzInfo("<qzinfo />");
    EXPECT_TRUE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    EXPECT_TRUE(Logged(who + "no excludefiletypes tag in qzinfo file:"));
    QzFile::DeleteFileIfExists(QzRuleFiles::QzInfoPath(dir_).c_str());
    EXPECT_FALSE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    EXPECT_TRUE(Logged(who + "no qzinfo.xml found at:"));
}

TEST_F(QzRulesTest, HeldSettingsAreRetriedSeventeenTimes) {
    WriteQzInfo("<qzinfo excludefiletypes=\"tmp\" />");
    QzOs::Handle h;
    ASSERT_EQ(QzOs::OpenFile(QzRuleFiles::QzInfoPath(dir_).c_str(), QzOs::OpenMode::ReadExclusive, &h),
              QzOs::ErrSuccess);
    QzString xml;
    EXPECT_FALSE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
    QzOs::CloseFile(h);
    EXPECT_EQ(pauses_.pauses, 17);
    const std::string who =
        "QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml could not read qzinfo.xml ";
    EXPECT_EQ(LoggedCount("WARNING: " + who + "so pausing and trying again found at: "), 17);
    EXPECT_TRUE(Logged("ERROR: " + who + "after 17 tries, found at: "));
    EXPECT_TRUE(QzRuleFiles::MakeQzInfoRulesXml(dir_, &xml));
}

TEST_F(QzRulesTest, LoadFailsOnTheEditableDataSet) {
    const std::string who = "ERROR: QzInfoManager::LoadAllExcludeFilenameRulesProperly - ";
    WriteQzInfo("<qzinfo excludefiletypes=\"tmp\" />");
    ASSERT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree_));  // every block is merged now
    Write(Editable(), RuleFile("<!-- nothing here --></qzexclusions>"));
    EXPECT_FALSE(QzRuleFiles::LoadAllRules(dir_, &tree_));
    EXPECT_TRUE(Logged(who + "QzInfoManager::ParseExcludeFileNameRules returned FALSE for editable_rules."));

    // No end tag: nothing can be merged, but the rules still load.
    Write(Editable(), "<qzexclusions>\n" + Rule(":\\Mine\\"));
    EXPECT_TRUE(QzRuleFiles::LoadAllRules(dir_, &tree_));
    EXPECT_FALSE(Wanted("C:\\mine\\x"));

    ASSERT_TRUE(QzFile::DeleteFileIfExists(Editable().c_str()));
    ASSERT_TRUE(QzFile::CreateDirectoryRecursive(Editable().c_str()));  // cannot be written
    EXPECT_FALSE(QzRuleFiles::LoadAllRules(dir_, &tree_));
    EXPECT_TRUE(Logged(who + "file does not exist, do not go forward:"));
}

TEST_F(QzRulesTest, DirectoryTestComparesWholePathsWithFiltersAndRulePrefixes) {
    QzRuleFiles::DirExclusions empty;
    empty.Load(dir_);
    EXPECT_TRUE(Logged("could not find any qzdirfilters in qzinfo.xml"));
    EXPECT_TRUE(Logged("could not find any excludefname_rule in qzexcluderules_editable.xml"));
    EXPECT_TRUE(empty.IsExcluded("C:\\Windows\\"));

    WriteQzInfo(
        "<qzinfo>\n<qzdirfilter dir=\"C:\\Users\\Bob\\Videos\" whichfiles=\"none\" />\n"
        "<qzdirfilter dir=\"C:\\Keep\" whichfiles=\"docs\" />\n</qzinfo>\n");
    Write(Editable(), RuleFile(Rule(":\\Projects\\Old\\", "\\x\\") + "<!-- " + Rule(":\\Commented\\") +
                               " -->\n" + Rule("dev/", "*", "*", "*", "*", "*", "mac")));
    QzRuleFiles::DirExclusions d;
    d.Load(dir_);
    const std::pair<const char*, bool> cases[] = {
        {"C:\\Windows\\", true},
        {"e:\\WINDOWS\\", true},
        {"C:\\Windows", false},
        {"c:\\users\\bob\\videos", true},
        {"C:\\Users\\Bob\\Videos\\", false},
        {"C:\\Keep", false},
        {"D:\\Projects\\Old\\", true},  // only the prefix counts
        {"C:\\Commented\\", false},
        {"Cdev/", false},
        {"C:\\Documents and Settings\\", true},  // an "xp" rule counts here
        {"C:\\", false},
        {"", false}};
    for (const auto& [dir, excluded] : cases) EXPECT_EQ(d.IsExcluded(dir), excluded) << dir;
}
