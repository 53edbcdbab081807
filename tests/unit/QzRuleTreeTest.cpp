// The rule tree: how rule text is parsed into groups, what is refused and
// logged, and the per-file decision, against the default rules and against
// the node-by-node walk on generated rules and paths.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "QzRuleTree.h"
#include "RuleTestSupport.h"

using QzRuleTest::LogCapture;
using QzRuleTest::Rule;
using QzRuleTest::RuleFile;

namespace {

constexpr int64_t kNoLimit = 4000LL << 20;

class QzRuleTreeTest : public ::testing::Test {
protected:
    bool Parse(const std::string& text, const char* dataSet = "test_rules") {
        const QzString xml(text.c_str(), static_cast<int32_t>(text.size()));
        return tree_.ParseExcludeFileNameRules(&xml, dataSet);
    }
    bool Wanted(const char* path, int64_t size = 1000, int64_t max = kNoLimit) {
        return tree_.UserWantsThisFileBackedUpEx(QzString(path), size, max);
    }
    // The rule that excluded the last path, as its contains_1 (or "*").
    std::string Hit() {
        const QzExcludeRuleNode* r = tree_.LastExcludingRule();
        if (!r) return "(none)";
        return r->fields.contains1.isSet ? r->fields.contains1.text.c_str() : "*";
    }
    LogCapture log_;
    QzRuleTree tree_;
};

// The default rules of a fresh data directory, loaded as a scan loads them.
class QzDefaultRulesTest : public QzRuleTreeTest {
protected:
    void SetUp() override {
        const QzString dataDir = QzTest::NewScratchSubdir("defaults");
        ASSERT_TRUE(QzTest::WriteFile(QzCat(dataDir, "qzinfo.xml"), "<qzinfo excludefiletypes=\"tmp\" />\n"));
        ASSERT_TRUE(QzRuleFiles::LoadAllRules(dataDir, &tree_));
    }
};

}  // namespace

TEST_F(QzDefaultRulesTest, RegistryHiveUnderUsersIsExcludedInAnyCase) {
    for (const char* p :
         {"C:\\Users\\Bob\\NTUSER.DAT", "c:\\users\\bob\\ntuser.dat", "E:\\USERS\\x\\NtUser.Dat"}) {
        EXPECT_FALSE(Wanted(p)) << p;
        ASSERT_NE(tree_.LastExcludingRule(), nullptr);
        EXPECT_STREQ(tree_.LastExcludingRule()->fields.endsWith.text.c_str(), "\\ntuser.dat");
        EXPECT_STREQ(tree_.LastExcludingRule()->fields.extension.text.c_str(), "dat");
    }
    // The prefix is matched from the second character: the rule needs "\Users\" at the top.
    EXPECT_TRUE(Wanted("C:\\Data\\Users\\Bob\\NTUSER.DAT"));
    EXPECT_TRUE(Wanted("C:\\Users\\Bob\\NTUSER.DAT.bak"));
}

TEST_F(QzDefaultRulesTest, WindowsFolderIsExcludedOnEveryDrive) {
    EXPECT_FALSE(Wanted("D:\\Windows\\notepad.exe"));
    EXPECT_FALSE(Wanted("C:\\WINDOWS\\System32\\drivers\\etc\\hosts"));
    EXPECT_FALSE(Wanted("Z:\\Program Files (x86)\\App\\app.exe"));
    EXPECT_TRUE(Wanted("D:\\Windowsill\\plan.docx"));
    EXPECT_TRUE(Wanted("D:\\Projects\\Windows\\notes.txt"));
}

TEST_F(QzDefaultRulesTest, ExtensionIsComparedFoldedAndOnlyAfterTheLastPeriod) {
    // "DAT" selects the "dat" node; without an extension only "*" nodes apply.
    EXPECT_FALSE(Wanted("C:\\Users\\Bob\\AppData\\Local\\Microsoft\\Windows\\WebCache\\WebCacheV01.DAT"));
    EXPECT_TRUE(Wanted("C:\\Users\\Bob\\AppData\\Local\\Microsoft\\Windows\\WebCache\\WebCacheV01"));
    EXPECT_FALSE(Wanted("C:\\Users\\Bob\\Documents\\scratch.TMP"));  // from "excludefiletypes"
    EXPECT_TRUE(Wanted("C:\\Users\\Bob\\Documents\\scratch.tmp.docx"));
    EXPECT_TRUE(Wanted("C:\\Users\\Bob\\a.tmp\\report"));  // a period in a folder is no extension
}

TEST_F(QzDefaultRulesTest, ChromeBookmarksAreKeptWhileItsCacheIsExcluded) {
    const char* dir = "C:\\Users\\x\\AppData\\Local\\Google\\Chrome\\User Data\\Default\\";
    EXPECT_TRUE(Wanted((std::string(dir) + "Bookmarks").c_str()));
    EXPECT_TRUE(Wanted((std::string(dir) + "Preferences").c_str()));
    EXPECT_FALSE(Wanted((std::string(dir) + "Cache\\Cache_Data\\f_000123").c_str()));
    EXPECT_EQ(Hit(), "\\appdata\\local\\google\\");
    EXPECT_FALSE(Wanted((std::string(dir) + "History").c_str()));
}

TEST_F(QzDefaultRulesTest, ShortPathsCanOnlyBeExcludedByRulesWithoutPrefix) {
    EXPECT_TRUE(Wanted("C:\\"));
    EXPECT_TRUE(Wanted("C:\\x"));
    EXPECT_FALSE(Wanted("C:\\x.tmp"));  // the "*" group still applies
    EXPECT_TRUE(Wanted(""));
}

TEST_F(QzDefaultRulesTest, SizeLimitComesFirstAndAFileAtTheLimitIsWanted) {
    EXPECT_TRUE(Wanted("C:\\Data\\big.iso", 4000LL << 20, 4000LL << 20));
    EXPECT_FALSE(Wanted("C:\\Data\\big.iso", (4000LL << 20) + 1, 4000LL << 20));
    EXPECT_EQ(tree_.LastExcludingRule(), nullptr);  // no rule was involved
    EXPECT_FALSE(Wanted("C:\\Data\\empty.txt", 0, -1));
}

TEST_F(QzDefaultRulesTest, HitCountsGrowOnTheRuleThatExcluded) {
    EXPECT_FALSE(Wanted("C:\\Users\\Bob\\NTUSER.DAT"));
    const QzExcludeRuleNode* rule = tree_.LastExcludingRule();
    ASSERT_NE(rule, nullptr);
    EXPECT_EQ(rule->hitCount, 1);
    EXPECT_FALSE(Wanted("C:\\Users\\Alice\\ntuser.dat"));
    EXPECT_EQ(rule->hitCount, 2);
    EXPECT_TRUE(Wanted("C:\\Users\\Alice\\notes.txt"));
    EXPECT_EQ(tree_.LastExcludingRule(), nullptr);
}

TEST_F(QzRuleTreeTest, MissingCriteriaSkipTheRuleWithTheirCode) {
    const std::string good = Rule(":\\keep\\");
    const std::string attrs[] = {"plat",       "osVers",          "skipFirstCharThenStartsWith",
                                 "contains_1", "contains_2",      "doesNotContain",
                                 "endsWith",   "hasFileExtension"};
    const char* codes = "ABCEFGHI";
    std::string rules = good;
    for (const std::string& a : attrs) {
        std::string r = Rule(":\\gone\\");
        const size_t at = r.find(" " + a + "=\"");
        r.erase(at, r.find('"', r.find('"', at) + 1) + 1 - at);
        rules += r;
    }
    ASSERT_TRUE(Parse(RuleFile(rules), "editable_rules"));
    EXPECT_EQ(tree_.NumRules(), 1);
    for (int i = 0; i < 8; ++i) {
        const std::string want =
            std::string("ERROR - QzInfoManager::ParseExcludeFileNameRules - BAD_EXCLUDEFNAME_RULE_") +
            codes[i] + ".  XML rule num=" + std::to_string(i + 2) + " did not contain criteria \"" +
            attrs[i] + "\" so it will be skipped! From dataSet=editable_rules";
        EXPECT_EQ(log_.Count(want), 1) << want;
    }
    EXPECT_TRUE(log_.Has("SUCCESSFULLY PARSED 9, and found 1 that applied to me, with 1 unique"));
}

TEST_F(QzRuleTreeTest, ShortPrefixOtherPlatformsAndVersionsAreSkipped) {
    ASSERT_TRUE(Parse(RuleFile(Rule(":\\x") + Rule(":\\mac\\", "*", "*", "*", "*", "*", "mac") +
                               Rule(":\\xp\\", "*", "*", "*", "*", "*", "win", "xp") +
                               Rule(":\\ok\\", "*", "*", "*", "*", "*", "WIN", "*"))));
    EXPECT_EQ(tree_.NumRules(), 1);
    EXPECT_FALSE(Wanted("C:\\OK\\a"));
    EXPECT_TRUE(Wanted("C:\\xp\\a"));
    EXPECT_TRUE(
        log_.Has("BAD_EXCLUDEFNAME_RULE_D.  XML rule num=1 criteria \"skipFirstCharThenStartsWith\" is to "
                 "short so this rule will be skipped! From dataSet=test_rules"));
    EXPECT_EQ(log_.Count("ERROR"), 1);  // the other platform and version are skipped silently
}

TEST_F(QzRuleTreeTest, UnusableDataSetsAreRefused) {
    EXPECT_FALSE(tree_.ParseExcludeFileNameRules(nullptr, "editable_rules"));
    EXPECT_TRUE(
        log_.Has("ERROR: QzInfoManager::ParseExcludeFileNameRules, xmlContainingExcludeRules bad NULL param "
                 "for dataSet=editable_rules"));
    EXPECT_FALSE(Parse(RuleFile(""), "qzinfo.xml"));
    EXPECT_TRUE(
        log_.Has("ERROR: QzInfoManager::ParseExcludeFileNameRules, could not parse any excludefname_rule out "
                 "of dataSet=qzinfo.xml"));
    std::string many;
    for (int i = 0; i < 9998; ++i) many += Rule(":\\r" + std::to_string(i) + "\\");
    EXPECT_FALSE(Parse(RuleFile(many), "big"));
    EXPECT_TRUE(
        log_.Has("ERROR - QzInfoManager::ParseExcludeFileNameRules - TOO_MANY_EXCLUEFNAME_RULE.  We found "
                 "9998 excludefname_rule from dataSet=big, which is too many for our static datastructures "
                 "to handle so we are bailing out."));
    EXPECT_EQ(tree_.NumRules(), 0);
    many.resize(many.size() - Rule(":\\r9997\\").size());
    EXPECT_TRUE(Parse(RuleFile(many), "big"));
    EXPECT_EQ(tree_.NumPrefixGroups(), 9997);
}

TEST_F(QzRuleTreeTest, PrefixGroupsStopAtTheArrayCapacity) {
    std::string a, b;
    for (int i = 0; i < 6000; ++i) a += Rule(":\\a" + std::to_string(i) + "\\");
    for (int i = 0; i < 6000; ++i) b += Rule(":\\b" + std::to_string(i) + "\\");
    ASSERT_TRUE(Parse(RuleFile(a)));
    ASSERT_TRUE(Parse(RuleFile(b)));
    EXPECT_EQ(tree_.NumPrefixGroups(), QzRuleTree::kMaxPrefixGroups);
    EXPECT_EQ(log_.Count("TOO_MANY_UNIQUE_SKIPFIRSTCHAR"), 2000);
    EXPECT_FALSE(Wanted("C:\\b3999\\x"));
    EXPECT_TRUE(Wanted("C:\\b4000\\x"));
    EXPECT_FALSE(Wanted("C:\\a17\\x"));
}

TEST_F(QzRuleTreeTest, CommentsAreRemovedAndAnUnterminatedOneEndsTheText) {
    ASSERT_TRUE(Parse(RuleFile("<!-- " + Rule(":\\commented\\") + " -->\n" + Rule(":\\kept\\") +
                               "<!-- open\n" + Rule(":\\after\\"))));
    EXPECT_EQ(tree_.NumRules(), 1);
    EXPECT_FALSE(Wanted("C:\\kept\\a"));
    EXPECT_TRUE(Wanted("C:\\commented\\a"));
    EXPECT_TRUE(
        log_.Has("ERROR: QzInfoManager::ParseExcludeFileNameRules_AddToArray -could not find end of comment, "
                 "where START of comment is:<!-- open"));
}

TEST_F(QzRuleTreeTest, DuplicatesAreDroppedWithOneMessageEach) {
    const std::string r = Rule(":\\Users\\", "\\A\\", "*", "x|y", "\\f.dat", "DAT");
    ASSERT_TRUE(Parse(RuleFile(r + Rule(":\\users\\", "\\a\\", "*", "X|Y", "\\F.DAT", "dat") + r)));
    EXPECT_EQ(tree_.NumRules(), 1);
    EXPECT_EQ(tree_.NumDuplicatesDropped(), 2);
    EXPECT_EQ(log_.Count(
                  "INTERESTING (sometimes happens) - QzInfoManager::ParseExcludeFileNameRules -duplicate XML "
                  "rule_1 skipFirstChar=:\\users\\, fileExt=dat, contains_1=\\a\\, contains_2=*, "
                  "endsWith=\\f.dat"),
              2);
    // Differing in one criterion, or in the order of the does-not-contain texts, is another rule.
    ASSERT_TRUE(Parse(RuleFile(Rule(":\\users\\", "\\a\\", "*", "y|x", "\\f.dat", "dat") +
                               Rule(":\\users\\", "\\a\\", "", "x|y", "\\f.dat", "dat"))));
    EXPECT_EQ(tree_.NumRules(), 3);
}

TEST_F(QzRuleTreeTest, CriteriaSemantics) {
    ASSERT_TRUE(Parse(RuleFile(Rule(":\\empty\\", "") +                    // never holds
                               Rule(":\\ends\\", "*", "*", "*", "") +      // "" always holds
                               Rule(":\\dnc\\", "*", "*", "keep||also") +  // "" occurs nowhere
                               Rule(":\\both\\", "\\one\\", "\\two\\") +   // both must occur
                               Rule(":\\\xC3\x89"
                                    "cole\\") +  // not folded
                               Rule("*", "*", "*", "*", "\\Z.txt", "TXT"))));
    EXPECT_TRUE(Wanted("C:\\empty\\a"));
    EXPECT_FALSE(Wanted("C:\\ends\\a"));
    EXPECT_FALSE(Wanted("C:\\dnc\\a"));
    EXPECT_TRUE(Wanted("C:\\dnc\\KEEP\\a"));
    EXPECT_TRUE(Wanted("C:\\dnc\\also"));
    EXPECT_TRUE(Wanted("C:\\both\\one\\a"));
    EXPECT_FALSE(Wanted("C:\\both\\TWO\\x\\One\\a"));
    EXPECT_FALSE(
        Wanted("C:\\\xC3\x89"
               "cole\\a"));
    EXPECT_TRUE(
        Wanted("C:\\\xC3\xA9"
               "cole\\a"));  // "é" is not "É" folded
    EXPECT_FALSE(Wanted("C:\\dir\\z.TXT"));
    EXPECT_TRUE(Wanted("C:\\dir\\z.txt.gz"));
}

TEST_F(QzRuleTreeTest, FirstMatchInArrayAndChainOrderTakesTheHit) {
    // Group ":\a\" comes first; within it the "txt" node precedes the "*" node
    // only when the "*" rule came later.
    ASSERT_TRUE(Parse(RuleFile(Rule(":\\a\\b\\", "first") + Rule(":\\a\\", "*", "*", "*", "*", "txt") +
                               Rule(":\\a\\", "second") + Rule("*", "third"))));
    EXPECT_FALSE(Wanted("C:\\a\\b\\first second third.txt"));
    EXPECT_EQ(Hit(), "first");
    EXPECT_FALSE(Wanted("C:\\a\\second third.txt"));
    EXPECT_EQ(Hit(), "*");  // the "txt" node is the group's first node
    EXPECT_FALSE(Wanted("C:\\a\\second third.doc"));
    EXPECT_EQ(Hit(), "second");
    EXPECT_FALSE(Wanted("C:\\x\\third"));
    EXPECT_EQ(Hit(), "third");
}

TEST_F(QzRuleTreeTest, LongPrefixesAreComparedOverTheirFirst5000Characters) {
    // Ten prefixes alike in their first 5000 characters: ten groups under one
    // key, all of which apply to a path that shares those characters.
    const std::string body(5200, 'q');
    std::string rules;
    for (int i = 0; i < 10; ++i)
        rules += Rule(":\\" + body.substr(0, 4998) + "TAIL" + std::to_string(i) + "\\", "*", "*", "*", "*",
                      "e" + std::to_string(i));
    ASSERT_TRUE(Parse(RuleFile(rules)));
    EXPECT_EQ(tree_.NumPrefixGroups(), 10);
    const std::string path = "C:\\" + body.substr(0, 4998) + "zz\\file.";
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(Wanted((path + "e" + std::to_string(i)).c_str())) << i;
        ASSERT_NE(tree_.LastExcludingRule(), nullptr);
        EXPECT_EQ(tree_.LastExcludingRule()->fields.extension.text.c_str(), "e" + std::to_string(i));
    }
    EXPECT_TRUE(Wanted((path + "e10").c_str()));
    EXPECT_TRUE(Wanted(("C:\\" + body.substr(0, 4997) + ".e1").c_str()));  // the path ends first
}

TEST_F(QzRuleTreeTest, InsertingIntoAMissingGroupIsRefused) {
    EXPECT_FALSE(tree_.InsertRuleWithSameSkipFirstCharThenStartsWith(nullptr, QzExcludeRuleFields()));
    EXPECT_TRUE(log_.Has(
        "ERROR: InsertRuleWithSameSkipFirstCharThenStartsWith called with NULL topRuleTree, not valid!"));
}

// The index must name the same rule as the walk over the nodes, for rules
// and paths generated from overlapping pieces: many groups under one key
// (the trie), long lists (looked up by key), every criterion, mixed case.
TEST_F(QzRuleTreeTest, IndexAgreesWithTheWalkOverTheTree) {
    std::mt19937 rnd(7);
    auto pick = [&rnd](const std::vector<std::string>& v) { return v[rnd() % v.size()]; };
    const std::vector<std::string> users = {"bob",    "Alice", "carol smith", "x",    "dev", "BOB", "admin",
                                            "public", "guest", "owner",       "test", "sam", "kim"};
    const std::vector<std::string> dirs = {
        "AppData", "Local", "Temp",    "cache",     "Microsoft", "Windows",          "data",
        "a.b",     "x\\y",  "Cookies", "Documents", "caches",    "\xC3\x89t\xC3\xA9"};
    const std::vector<std::string> exts = {"dat", "DAT", "log", "txt", "", "db", "x"};
    auto piece = [&]() {
        std::string s = "\\" + pick(dirs);
        if (rnd() % 2) s += "\\" + pick(dirs);
        return s;
    };
    for (int round = 0; round < 12; ++round) {
        tree_.Clear();
        std::string rules;
        for (int i = 0; i < 150 + round * 40; ++i) {
            std::string prefix = "*";
            switch (rnd() % 5) {
                case 0:
                    prefix = ":\\users\\";
                    break;
                case 1:
                    prefix = ":\\users\\" + pick(users) + "\\";
                    break;
                case 2:
                    prefix = ":\\users\\" + pick(users) + piece() + "\\";
                    break;
                case 3:
                    prefix = ":\\data" + piece() + "\\";
                    break;
                default:
                    break;
            }
            const std::string c1 = rnd() % 3 ? piece() + (rnd() % 2 ? "\\" : "") : (rnd() % 8 ? "*" : "");
            const std::string c2 = rnd() % 4 ? "*" : pick(dirs);
            const std::string dnc = rnd() % 5 ? "*" : pick(dirs) + "|" + pick(dirs) + (rnd() % 2 ? "|" : "");
            const std::string ends =
                rnd() % 3 ? "*" : (rnd() % 2 ? "." + pick(exts) : pick(dirs) + "." + pick(exts));
            const std::string ext = rnd() % 2 ? "*" : pick(exts);
            rules += Rule(prefix, c1, c2, dnc, ends, ext);
        }
        ASSERT_TRUE(Parse(RuleFile(rules)));
        for (int i = 0; i < 3000; ++i) {
            std::string path = std::string(1, static_cast<char>('C' + rnd() % 3)) + ":\\";
            if (rnd() % 10) path += (rnd() % 2 ? "Users\\" : "USERS\\") + pick(users);
            if (rnd() % 3 == 0) path += "\\data";
            for (int d = static_cast<int>(rnd() % 5); d > 0; --d) path += piece();
            if (rnd() % 6) path += "\\" + pick(dirs) + "." + pick(exts);
            if (rnd() % 7 == 0) path = path.substr(0, rnd() % (path.size() + 1));
            // A walk asks about the files of one folder in a row: the path,
            // then siblings whose names differ in length and separators.
            const size_t slash = path.find_last_of('\\');
            const std::string folder = slash == std::string::npos ? path : path.substr(0, slash + 1);
            for (int sibling = 0; sibling < 4; ++sibling) {
                const std::string asked =
                    sibling == 0 ? path : folder + pick(dirs) + (rnd() % 2 ? "." + pick(exts) : "");
                const QzString p(asked.c_str());
                const QzExcludeRuleNode* walked = tree_.FindExcludingRuleByWalkingTheTree(p.c_str(), p.Length());
                EXPECT_EQ(tree_.UserWantsThisFileBackedUpEx(p, 1, 1), walked == nullptr) << asked;
                ASSERT_EQ(tree_.LastExcludingRule(), walked) << "round " << round << ": " << asked;
            }
        }
    }
}
