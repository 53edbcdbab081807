// The built-in rule texts: their counts, their layout line by line, and what
// the parser makes of them.
#include <gtest/gtest.h>

#include <map>
#include <regex>

#include "QzRuleTexts.h"
#include "QzRuleTree.h"
#include "RuleTestSupport.h"

using QzRuleTest::CountOf;
using QzRuleTest::Lines;
using QzRuleTest::Str;

namespace {

const std::regex kRuleLine(
    "<excludefname_rule (qzmergeblock=\"(\\d{3})\" )?plat=\"(win|mac)\" osVers=\"([^\"]+)\"  "
    "ruleIsOptional=\"([tf])\" skipFirstCharThenStartsWith=\"([^\"]+)\" contains_1=\"([^\"]+)\" "
    "contains_2=\"([^\"]+)\" doesNotContain=\"([^\"]+)\" endsWith=\"([^\"]+)\" hasFileExtension=\"([^\"]+)\" "
    "/>");

struct RuleCounts {
    int win = 0, mac = 0, optional = 0, mandatory = 0;
    std::map<std::string, int> perBlock;  // "001/win" -> n
};

// Every line of the text that holds a rule must be one well-formed rule line.
RuleCounts CountRules(const std::string& text) {
    RuleCounts c;
    for (const std::string& line : Lines(text)) {
        if (line.find("<excludefname_rule") == std::string::npos) continue;
        std::smatch m;
        EXPECT_TRUE(std::regex_match(line, m, kRuleLine)) << line;
        if (m.empty()) continue;
        (m[3] == "win" ? c.win : c.mac)++;
        (m[5] == "t" ? c.optional : c.mandatory)++;
        if (m[2].matched) c.perBlock[m[2].str() + "/" + m[3].str()]++;
        const std::string prefix = m[6];
        EXPECT_TRUE(prefix == "*" || prefix.size() >= 4) << line;
    }
    return c;
}

}  // namespace

TEST(QzRuleTextsTest, MandatoryTextHas114WindowsAnd164OtherRules) {
    const std::string text = Str(QzRuleTexts::MandatoryText());
    const RuleCounts c = CountRules(text);
    EXPECT_EQ(c.win, 114);
    EXPECT_EQ(c.mac, 164);
    EXPECT_EQ(c.mandatory, 278);
    EXPECT_TRUE(c.perBlock.empty());
    EXPECT_NE(
        text.find(
            "\n<excludefname_rule plat=\"win\" osVers=\"*\"  ruleIsOptional=\"f\" "
            "skipFirstCharThenStartsWith=\":\\ProgramData\\Korvatine\\\" contains_1=\"*\" contains_2=\"*\" "
            "doesNotContain=\"*\" endsWith=\"*\" hasFileExtension=\"*\" />\n"),
        std::string::npos);
    EXPECT_NE(
        text.find(
            "<!-- This block is for \"Microsoft\\Search\\Data\" files, part of Windows Desktop Search -->"),
        std::string::npos);
    EXPECT_NE(
        text.find("<!-- Below here are rules that are VERY expensive to execute. No quick pruning of 90% of "
                  "cases, forcing a lot of execution.  Try to reduce the number of these! -->"),
        std::string::npos);
    EXPECT_NE(text.find("Mandatory Exclusions: editing this file DOES NOT DO ANYTHING."), std::string::npos);
}

TEST(QzRuleTextsTest, EditableTextHas42WindowsRulesWithTheTempGroupTwiceAnd7OtherRules) {
    const std::string text = Str(QzRuleTexts::EditableText());
    const RuleCounts c = CountRules(text);
    EXPECT_EQ(c.win, 42);
    EXPECT_EQ(c.mac, 7);
    EXPECT_EQ(c.optional, 49);
    EXPECT_EQ(CountOf(text, "skipFirstCharThenStartsWith=\"users/\""), 7);
    EXPECT_EQ(CountOf(text, "<!-- This block is for temporary internet files and cookies, temp folders -->"),
              2);
    EXPECT_EQ(CountOf(text, "contains_1=\"\\appdata\\local\\temp\\\""), 2);
    EXPECT_NE(text.find("contains_2=\"\\appdata\\local\\google\\chrome\\user data\" "
                        "doesNotContain=\"bookmarks|shortcuts|preferences\""),
              std::string::npos);
    EXPECT_NE(text.find("Editable Exclusions: You may edit this file.  WARNING: ONLY FOR ADVANCED USERS!"),
              std::string::npos);
    EXPECT_EQ(text.find("Mandatory Exclusions"), std::string::npos);
}

TEST(QzRuleTextsTest, MergeBlocksHold30WindowsRulesAnd7OtherRulesInFourBlocks) {
    const std::string text = Str(QzRuleTexts::MergeBlocksText());
    const RuleCounts c = CountRules(text);
    EXPECT_EQ(c.win, 30);
    EXPECT_EQ(c.mac, 7);
    EXPECT_EQ(c.optional, 37);
    const std::map<std::string, int> want = {{"001/win", 25}, {"001/mac", 6}, {"002/win", 3},
                                             {"002/mac", 1},  {"003/win", 1}, {"004/win", 1}};
    EXPECT_EQ(c.perBlock, want);
    // Each block is closed right after its last rule, in order.
    size_t last = 0;
    for (const char* end : {"<!-- end of merge block 001 -->", "<!-- end of merge block 002 -->",
                            "<!-- end of merge block 003 -->", "<!-- end of merge block 004 -->"}) {
        const size_t at = text.find(end);
        ASSERT_NE(at, std::string::npos) << end;
        EXPECT_GT(at, last);
        last = at;
    }
    EXPECT_NE(text.find("<!-- This block is all about various logging and diagnosis, added 11/17/2019 -->"),
              std::string::npos);
}

TEST(QzRuleTextsTest, FilesShareTheLayoutOfDeclarationHeaderGroupsAndEnd) {
    for (const QzString* t : {&QzRuleTexts::MandatoryText(), &QzRuleTexts::EditableText()}) {
        const std::string text = Str(*t);
        const std::vector<std::string> lines = Lines(text);
        ASSERT_GT(lines.size(), 40u);
        EXPECT_EQ(lines[0], "<?xml version=\"1.0\" encoding=\"UTF-8\" ?> ");
        EXPECT_EQ(lines[1], "");
        EXPECT_EQ(lines[2], "<qzexclusions>");
        EXPECT_EQ(lines.back(), "</qzexclusions>");
        EXPECT_EQ(text.back(), '\n');
        EXPECT_EQ(CountOf(text, "</qzexclusions>"), 1);
        // The header: comment lines of one width, up to the first blank line.
        size_t i = 3;
        const size_t width = lines[i].size();
        for (; i < lines.size() && !lines[i].empty(); ++i) {
            EXPECT_EQ(lines[i].size(), width) << lines[i];
            EXPECT_EQ(lines[i].rfind("<!-- ", 0), 0u) << lines[i];
            EXPECT_EQ(lines[i].substr(lines[i].size() - 4), " -->") << lines[i];
        }
        EXPECT_GT(i, 20u);
        EXPECT_NE(
            text.find(
                "<!-- Rule 4: \"skipFirstCharThenStartsWith\" - is \"*\" or must be at least 4 chars long."),
            std::string::npos);
        EXPECT_NE(text.find("<!-- Below here is for Microsoft Windows systems (7, 8, 10, 11) -->"),
                  std::string::npos);
        EXPECT_NE(
            text.find("<!-- Below here is for Apple Laptop and Desktop Operating systems (OS X running on "
                      "Macintosh) -->"),
            std::string::npos);
        // Rules come in groups: each opened by a comment, closed by a blank
        // line; no rule follows a blank line.
        for (size_t k = i; k + 1 < lines.size(); ++k) {
            const std::string& next = lines[k + 1];
            if (lines[k].empty()) {
                EXPECT_TRUE(next.rfind("<!-- ", 0) == 0 || next == "</qzexclusions>") << "line " << k + 2;
            }
            if (next.rfind("<excludefname_rule", 0) == 0) {
                EXPECT_TRUE(lines[k].rfind("<excludefname_rule", 0) == 0 || lines[k].rfind("<!-- ", 0) == 0)
                    << "line " << k + 2;
            }
        }
    }
}

TEST(QzRuleTextsTest, ParserTakesTheApplicableWindowsRulesAndDropsTheDeliberateCopies) {
    QzRuleTest::LogCapture log;
    QzRuleTree tree;
    ASSERT_TRUE(tree.ParseExcludeFileNameRules(&QzRuleTexts::MandatoryText(), "mandatory_rules"));
    // 114 Windows rules less the 13 for "xp"; the "mac" rules are skipped silently.
    EXPECT_EQ(tree.NumRules(), 101);
    EXPECT_EQ(tree.NumPrefixGroups(), 21);
    EXPECT_TRUE(
        log.Has("QzInfoManager::ParseExcludeFileNameRules - found 278, now beginning to parse the rules"));
    EXPECT_TRUE(
        log.Has("QzInfoManager::ParseExcludeFileNameRules - SUCCESSFULLY PARSED 278, and found 101 that "
                "applied to me, with 21 unique skipFirstCharThenStartsWith now in the array, returning "
                "success."));
    EXPECT_EQ(log.Count("ERROR"), 0);

    ASSERT_TRUE(tree.ParseExcludeFileNameRules(&QzRuleTexts::EditableText(), "editable_rules"));
    // 42 less 5 "xp" rules; 6 of the second temporary-files group are copies.
    EXPECT_EQ(tree.NumRules(), 101 + 37 - 6);
    EXPECT_EQ(log.Count("-duplicate XML rule_1 skipFirstChar="), 6);
    EXPECT_TRUE(
        log.Has("INTERESTING (sometimes happens) - QzInfoManager::ParseExcludeFileNameRules -duplicate XML "
                "rule_1 skipFirstChar=:\\users\\, fileExt=*, contains_1=\\appdata\\local\\temp\\, "
                "contains_2=*, endsWith=*"));
    EXPECT_EQ(tree.NumPrefixGroups(), 21);
}

TEST(QzRuleTextsTest, RegistryTextIsTheEditableRegistryGroup) {
    const std::string registry = Str(QzRuleTexts::RegistryRulesText());
    const RuleCounts c = CountRules(registry);
    EXPECT_EQ(c.win, 10);
    EXPECT_EQ(c.mac, 0);
    const std::string editable = Str(QzRuleTexts::EditableText());
    for (const std::string& line : Lines(registry))
        if (line.rfind("<excludefname_rule", 0) == 0) {
            EXPECT_NE(editable.find(line), std::string::npos) << line;
        }
    EXPECT_NE(registry.find("endsWith=\"\\ntuser.dat\""), std::string::npos);
    EXPECT_NE(registry.find("endsWith=\"\\ntuser.ini\""), std::string::npos);
    QzRuleTree tree;
    EXPECT_TRUE(tree.ParseExcludeFileNameRules(&QzRuleTexts::RegistryRulesText(), "registry_rules"));
    EXPECT_EQ(tree.NumRules(), 10);
}
