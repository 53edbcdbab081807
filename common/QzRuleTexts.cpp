// Turns the rule rows into the rule-file texts. Every rule file has the same
// layout: the declaration line (with a blank after "?>"), a blank line, the
// root start tag, the header comment padded to one width, then per platform a
// heading and groups of rules, each group opened by its comment and set off
// from the next by a blank line, and last the root end tag.
#include "QzRuleTexts.h"

#include <cstring>

namespace QzRuleTexts {

namespace {

// Width of the header's comment lines between "<!-- " and " -->".
constexpr int32_t kHeaderWidth = 82;

const char* const kMandatoryOpening[] = {
    "Mandatory Exclusions: editing this file DOES NOT DO ANYTHING.",
    "Look at qzexcluderules_editable.xml for editable rules.",
    "If you accidentally edited this file, to restore the",
    "original, just remove this file (the orig will reappear).",
};

const char* const kEditableOpening[] = {
    "Editable Exclusions: You may edit this file.  WARNING: ONLY FOR ADVANCED USERS!",
    "To restore the defaults, remove this file (it will return).",
};

// The rest of the header, shared by both files; "" is a blank comment line.
const char* const kHeaderBody[] = {
    "",
    "Rule 1: All the excludefname_rule below are case insensitive.",
    "Rule 2: a file must match ALL criteria on the line to be excluded from backup.",
    "Rule 3: An excludefname_rule must specify all criteria. Use \"*\" to skip criteria.",
    "Rule 4: \"skipFirstCharThenStartsWith\" - is \"*\" or must be at least 4 chars long.",
    "Rule 5: All rules apply to all attached volumes.  On Windows this means all",
    R"(rules are applied to C:\, D:\, E:\, etc.  On Mac, this means "/" and)",
    "also /Volumes/externalUsbDrive/ and /Volumes/movies/, etc.",
    "",
    "List of valid osVers for windows: seven, eight, ten, eleven",
    "List of valid osVers for mac: 10.9, 10.10, 10.11, 10.12, 10.13, 10.14, 10.15,",
    "11, 12, 13",
    "",
    "hasFileExtension vs endsWith: a file extension is strictly the text after the",
    "last period of the file name.  It is made of non-space simple ASCII characters",
    "and never holds a forward slash or a back slash.  endsWith is more general: it",
    "may hold blanks and either slash.  hasFileExtension is faster and lets rules be",
    "grouped by extension, so always give hasFileExtension where possible.",
    "",
    "Performance hints: always give skipFirstCharThenStartsWith where possible, it is",
    "very fast and prunes 99% of files from further tests.  Rules with identical",
    "skipFirstCharThenStartsWith are grouped so the prefix comparison is done once,",
    "not once per rule.  Next give hasFileExtension, else endsWith, both faster",
    "than contains_1 and contains_2.  On a Windows 7 system the lines under the",
    "users folder are 10 percent of the per-volume file lists, so that prefix",
    "prunes 90% of the remaining tests.",
};

void AppendComment(QzString& out, const char* text) {
    out.Append("<!-- ");
    out.Append(text);
    out.Append(" -->\n");
}

void AppendPaddedComment(QzString& out, const char* text) {
    out.Append("<!-- ");
    out.Append(text);
    for (auto n = static_cast<int32_t>(std::strlen(text)); n < kHeaderWidth; ++n) out.AppendChar(' ');
    out.Append(" -->\n");
}

template <size_t N>
void AppendPaddedComments(QzString& out, const char* const (&lines)[N]) {
    for (const char* line : lines) AppendPaddedComment(out, line);
}

// Writes rows after `prev`, the kind of what was written last; a heading or a
// group comment after anything but a group comment gets a blank line first.
void AppendRows(QzString& out, Rows rows, const char* ruleIsOptional, RowKind& prev) {
    for (size_t i = 0; i < rows.count; ++i) {
        const Row& row = rows.rows[i];
        switch (row.kind) {
            case RowKind::Section:
                out.AppendChar('\n');
                AppendComment(out, row.text);
                break;
            case RowKind::Group:
                if (prev != RowKind::Group) out.AppendChar('\n');
                AppendComment(out, row.text);
                break;
            case RowKind::Rule:
                AppendRuleElement(out, row, ruleIsOptional);
                out.AppendChar('\n');
                break;
            case RowKind::BlockEnd:
                AppendComment(out, row.text);
                break;
        }
        prev = row.kind;
    }
}

void AppendFileStart(QzString& out) {
    out.Append(kDeclaration);
    out.Append(" \n\n<qzexclusions>\n");
}

void AppendFileEnd(QzString& out) {
    out.Append("\n</qzexclusions>\n");
}

QzString BuildMandatory() {
    QzString out;
    AppendFileStart(out);
    AppendPaddedComments(out, kMandatoryOpening);
    AppendPaddedComments(out, kHeaderBody);
    RowKind prev = RowKind::Section;
    AppendRows(out, MandatoryWinRows(), "f", prev);
    AppendRows(out, MandatoryMacRows(), "f", prev);
    AppendFileEnd(out);
    return out;
}

QzString BuildEditable() {
    QzString out;
    AppendFileStart(out);
    AppendPaddedComments(out, kEditableOpening);
    AppendPaddedComments(out, kHeaderBody);
    RowKind prev = RowKind::Section;
    AppendRows(out, EditableWinRows(), "t", prev);
    AppendRows(out, EditableMacRows(), "t", prev);
    AppendFileEnd(out);
    return out;
}

QzString BuildMergeBlocks() {
    QzString out;
    RowKind prev = RowKind::Rule;
    AppendRows(out, MergeBlockRows(), "t", prev);
    return out;
}

// The editable defaults' registry group, from its comment to the next one.
QzString BuildRegistryRules() {
    static const char* const kRegistryGroup =
        "This block is to exclude the Windows registry file which is 8 GBytes and changes every second of "
        "every day "
        "and is part of \"programs\" that can be reinstalled";
    const Rows all = EditableWinRows();
    size_t begin = 0;
    while (begin < all.count && !(all.rows[begin].kind == RowKind::Group &&
                                  std::strcmp(all.rows[begin].text, kRegistryGroup) == 0))
        ++begin;
    size_t end = begin + 1;
    while (end < all.count && all.rows[end].kind == RowKind::Rule) ++end;
    QzString out;
    AppendFileStart(out);
    RowKind prev = RowKind::Section;
    AppendRows(out, Rows{all.rows + begin, begin < all.count ? end - begin : 0}, "t", prev);
    AppendFileEnd(out);
    return out;
}

}  // namespace

void AppendRuleElement(QzString& out, const Row& rule, const char* ruleIsOptional) {
    out.Append("<excludefname_rule ");
    if (rule.mergeBlock) out.Append(QzCat("qzmergeblock=\"", rule.mergeBlock, "\" "));
    out.Append(QzCat("plat=\"", rule.plat, "\" osVers=\"", rule.osVers, "\"  ruleIsOptional=\"",
                     ruleIsOptional, "\" skipFirstCharThenStartsWith=\"", rule.prefix, "\" contains_1=\"",
                     rule.contains1, "\" contains_2=\"", rule.contains2, "\" doesNotContain=\"",
                     rule.doesNotContain, "\" endsWith=\"", rule.endsWith, "\" hasFileExtension=\"",
                     rule.extension, "\" />"));
}

const QzString& MandatoryText() {
    static const QzString text = BuildMandatory();
    return text;
}

const QzString& EditableText() {
    static const QzString text = BuildEditable();
    return text;
}

const QzString& MergeBlocksText() {
    static const QzString text = BuildMergeBlocks();
    return text;
}

const QzString& RegistryRulesText() {
    static const QzString text = BuildRegistryRules();
    return text;
}

}  // namespace QzRuleTexts
