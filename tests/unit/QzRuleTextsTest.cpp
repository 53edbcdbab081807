// The built-in rule texts against the table of every Windows rule, group
// comment and header line kept in tests/unit/data/rule_texts.tsv, and what
// the parser makes of them.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <string>
#include <vector>

#include "QzRuleTexts.h"
#include "QzRuleTree.h"
#include "RuleTestSupport.h"

using QzRuleTest::Lines;
using QzRuleTest::Str;

namespace {

const char* const kGoldenTable =
#include "RuleTextsGolden.inc"
    ;

const std::regex kRuleLine(
    "<excludefname_rule (qzmergeblock=\"(\\d{3})\" )?plat=\"(win|mac)\" osVers=\"([^\"]+)\"  "
    "ruleIsOptional=\"([tf])\" skipFirstCharThenStartsWith=\"([^\"]+)\" contains_1=\"([^\"]+)\" "
    "contains_2=\"([^\"]+)\" doesNotContain=\"([^\"]+)\" endsWith=\"([^\"]+)\" hasFileExtension=\"([^\"]+)\" "
    "/>");

// The table's sections, by their "[name]" line.
std::map<std::string, std::vector<std::string>> GoldenSections() {
    std::map<std::string, std::vector<std::string>> sections;
    std::vector<std::string>* current = nullptr;
    for (const std::string& line : Lines(kGoldenTable)) {
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[')
            current = &sections[line.substr(1, line.size() - 2)];
        else if (current)
            current->push_back(line);
    }
    return sections;
}

struct Parsed {
    std::vector<std::string> header;  // "line\t" + text of each header comment line
    std::vector<std::string> items;   // "comment\t..." and "rule\t..." as in the table
    int macRules = 0;
};

// Reads a rule text back line by line into the table's form. Each line must
// be a comment, a rule in the one layout of the default files, a blank line
// or the root's tags; "mac" rules and the comments opening their groups are
// counted, not listed.
Parsed Parse(const std::string& text, const char* ruleIsOptional, bool hasHeader) {
    Parsed p;
    const std::vector<std::string> lines = Lines(text);
    size_t i = 0;
    if (hasHeader) {
        EXPECT_GT(lines.size(), 3u);
        EXPECT_EQ(lines[0], "<?xml version=\"1.0\" encoding=\"UTF-8\" ?> ");
        EXPECT_EQ(lines[1], "");
        EXPECT_EQ(lines[2], "<qzexclusions>");
        EXPECT_EQ(lines.back(), "</qzexclusions>");
        EXPECT_EQ(text.back(), '\n');
        // The header: comment lines padded to one width, up to the first blank line.
        for (i = 3; i < lines.size() && !lines[i].empty(); ++i) {
            const std::string& l = lines[i];
            EXPECT_EQ(l.size(), lines[3].size()) << l;
            EXPECT_TRUE(l.size() > 9 && l.rfind("<!-- ", 0) == 0 && l.substr(l.size() - 4) == " -->") << l;
            std::string body = l.substr(5, l.size() - 9);
            body.erase(body.find_last_not_of(' ') + 1);
            p.header.push_back("line\t" + body);
        }
    }
    std::vector<std::string> items;
    std::vector<bool> isMac;
    for (; i < lines.size(); ++i) {
        const std::string& l = lines[i];
        std::smatch m;
        if (l.empty() || l == "<qzexclusions>" || l == "</qzexclusions>") continue;
        if (l.rfind("<!-- ", 0) == 0 && l.size() > 9 && l.substr(l.size() - 4) == " -->") {
            items.push_back("comment\t" + l.substr(5, l.size() - 9));
            isMac.push_back(false);
        } else if (std::regex_match(l, m, kRuleLine)) {
            EXPECT_EQ(m[5], ruleIsOptional) << l;
            std::string row = "rule";
            if (m[2].matched) row += "\t" + m[2].str();
            for (int k = 4; k <= 11; ++k)
                if (k != 5) row += "\t" + m[k].str();
            items.push_back(row);
            isMac.push_back(m[3] == "mac");
        } else {
            ADD_FAILURE() << "line " << i + 1 << " is no comment and no rule: " << l;
        }
    }
    for (size_t k = 0; k < items.size(); ++k) {
        if (isMac[k]) {
            ++p.macRules;
            continue;
        }
        const bool opensMacGroup =
            items[k].rfind("comment\t", 0) == 0 && k + 1 < items.size() && isMac[k + 1];
        if (!opensMacGroup) p.items.push_back(items[k]);
    }
    return p;
}

void ExpectSameRows(const std::vector<std::string>& got, const std::vector<std::string>& want,
                    const char* what) {
    for (size_t k = 0; k < std::max(got.size(), want.size()); ++k) {
        const std::string g = k < got.size() ? got[k] : "(nothing)";
        const std::string w = k < want.size() ? want[k] : "(nothing)";
        EXPECT_EQ(g, w) << what << ", row " << k + 1;
        if (g != w) return;  // later rows would only repeat the shift
    }
}

}  // namespace

TEST(QzRuleTextsTest, EveryWindowsRuleGroupCommentAndHeaderLineIsAsTheTableSays) {
    auto golden = GoldenSections();
    ASSERT_EQ(golden.size(), 5u);

    const Parsed mandatory = Parse(Str(QzRuleTexts::MandatoryText()), "f", true);
    ExpectSameRows(mandatory.header, golden["mandatory header"], "mandatory header");
    ExpectSameRows(mandatory.items, golden["mandatory"], "mandatory rules");
    EXPECT_EQ(mandatory.macRules, 164);

    const Parsed editable = Parse(Str(QzRuleTexts::EditableText()), "t", true);
    ExpectSameRows(editable.header, golden["editable header"], "editable header");
    ExpectSameRows(editable.items, golden["editable"], "editable rules");
    EXPECT_EQ(editable.macRules, 7);

    const Parsed blocks = Parse(Str(QzRuleTexts::MergeBlocksText()), "t", false);
    ExpectSameRows(blocks.items, golden["merge blocks"], "merge blocks");
    EXPECT_EQ(blocks.macRules, 7);
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
