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

TEST_F(QzDefaultRulesTest, DecisionsOnTypicalPaths) {
    const char* const chrome = "C:\\Users\\x\\AppData\\Local\\Google\\Chrome\\User Data\\Default\\";
    const struct {
        std::string path;
        bool wanted;
        const char* hit;  // contains_1 of the excluding rule, or nullptr
    } cases[] = {
        {"c:\\users\\bob\\ntuser.dat", false, "*"},
        {"E:\\USERS\\x\\NtUser.Dat", false, "*"},
        {"C:\\Data\\Users\\Bob\\NTUSER.DAT", true,
         nullptr},  // the prefix is matched from the second character
        {"C:\\Users\\Bob\\NTUSER.DAT.bak", true, nullptr},
        {"D:\\Windows\\notepad.exe", false, nullptr},
        {"Z:\\Program Files (x86)\\App\\app.exe", false, nullptr},
        {"D:\\Windowsill\\plan.docx", true, nullptr},
        {"D:\\Projects\\Windows\\notes.txt", true, nullptr},
        {"C:\\Users\\Bob\\AppData\\Local\\Microsoft\\Windows\\WebCache\\WebCacheV01.DAT", false, nullptr},
        {"C:\\Users\\Bob\\AppData\\Local\\Microsoft\\Windows\\WebCache\\WebCacheV01", true, nullptr},
        {"C:\\Users\\Bob\\Documents\\scratch.TMP", false, nullptr},  // from "excludefiletypes"
        {"C:\\Users\\Bob\\Documents\\scratch.tmp.docx", true, nullptr},
        {"C:\\Users\\Bob\\a.tmp\\report", true, nullptr},  // a period in a folder is no extension
        {std::string(chrome) + "Bookmarks", true, nullptr},
        {std::string(chrome) + "Cache\\Cache_Data\\f_000123", false, "\\appdata\\local\\google\\"},
        {std::string(chrome) + "History", false, nullptr},
        {"C:\\", true, nullptr},
        {"C:\\x.tmp", false, nullptr},  // short paths meet only the rules without prefix
        {"", true, nullptr},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Wanted(c.path.c_str()), c.wanted) << c.path;
        if (c.hit) {
            EXPECT_EQ(Hit(), c.hit) << c.path;
        }
    }
}

TEST_F(QzDefaultRulesTest, SizeLimitComesFirstAndAFileAtTheLimitIsWanted) {
    EXPECT_TRUE(Wanted("C:\\Data\\big.iso", 4000LL << 20, 4000LL << 20));
    EXPECT_FALSE(Wanted("C:\\Data\\big.iso", (4000LL << 20) + 1, 4000LL << 20));
    EXPECT_EQ(tree_.LastExcludingRule(), nullptr);  // no rule was involved
    EXPECT_FALSE(Wanted("C:\\Data\\empty.txt", 0, -1));
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

// The matcher's hit tells its data set and the line of its element, counted
// in the text as given (comments spanning lines included); a duplicate in a
// later data set leaves the first rule as the one that matches.
TEST_F(QzRuleTreeTest, TheExcludingRuleKnowsItsDataSetAndLine) {
    ASSERT_TRUE(Parse(RuleFile("<!-- one\n two\n three -->\n" + Rule(":\\users\\", "\\a\\") + "<!-- x -->" +
                               Rule(":\\users\\", "\\b\\")),
                      "editable_rules"));
    ASSERT_TRUE(Parse(RuleFile(Rule(":\\users\\", "\\a\\") + Rule("*", "\\c\\")), "qzinfo.xml"));
    const struct {
        const char* path;
        const char* dataSet;
        int32_t line;
    } kCases[] = {{"C:\\Users\\a\\f", "editable_rules", 7},
                  {"C:\\Users\\b\\f", "editable_rules", 8},
                  {"C:\\x\\c\\f", "qzinfo.xml", 5}};
    for (const auto& c : kCases) {
        EXPECT_FALSE(Wanted(c.path)) << c.path;
        const QzExcludeRuleNode* hit = tree_.LastExcludingRule();
        ASSERT_NE(hit, nullptr) << c.path;
        EXPECT_STREQ(hit->fields.dataSet.c_str(), c.dataSet) << c.path;
        EXPECT_EQ(hit->fields.sourceLine, c.line) << c.path;
    }
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
                               Rule(":\\\303\211cole\\") +                 // "É", not folded
                               Rule("*", "*", "*", "*", "\\Z.txt", "TXT"))));
    EXPECT_TRUE(Wanted("C:\\empty\\a"));
    EXPECT_FALSE(Wanted("C:\\ends\\a"));
    EXPECT_FALSE(Wanted("C:\\dnc\\a"));
    EXPECT_TRUE(Wanted("C:\\dnc\\KEEP\\a"));
    EXPECT_TRUE(Wanted("C:\\dnc\\also"));
    EXPECT_TRUE(Wanted("C:\\both\\one\\a"));
    EXPECT_FALSE(Wanted("C:\\both\\TWO\\x\\One\\a"));
    EXPECT_FALSE(Wanted("C:\\\303\211cole\\a"));
    EXPECT_TRUE(Wanted("C:\\\303\251cole\\a"));  // "é" is not "É" folded
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
            // No prefix, the users folder, a user, a folder below a user, a data folder.
            const std::string prefixes[] = {"*", ":\\users\\", ":\\users\\" + pick(users) + "\\",
                                            ":\\users\\" + pick(users) + piece() + "\\",
                                            ":\\data" + piece() + "\\"};
            const std::string prefix = prefixes[rnd() % 5];
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
                const QzExcludeRuleNode* walked =
                    tree_.FindExcludingRuleByWalkingTheTree(p.c_str(), p.Length());
                EXPECT_EQ(tree_.UserWantsThisFileBackedUpEx(p, 1, 1), walked == nullptr) << asked;
                ASSERT_EQ(tree_.LastExcludingRule(), walked) << "round " << round << ": " << asked;
            }
        }
    }
}
