// The built-in exclusion rule texts: the mandatory rules, the default
// editable rules, the numbered merge blocks that bring new default rules into
// an existing editable file, and the registry block loaded for old installs.
//
// The rules are kept as rows (comments and rules in file order) and turned
// into rule-file text once per process, in the one layout every rule file of
// the client uses.
#pragma once

#include <cstddef>

#include "QzString.h"

namespace QzRuleTexts {

enum class RowKind : unsigned char {
    Section,   // a platform heading, set off by blank lines
    Group,     // the one-line comment that says what the following rules are for
    Rule,      // one "excludefname_rule" element
    BlockEnd,  // "end of merge block NNN", right after the block's last rule
};

struct Row {
    RowKind kind;
    const char* text;  // comment text; null for rules
    const char* plat;
    const char* osVers;
    const char* prefix;  // skipFirstCharThenStartsWith
    const char* contains1;
    const char* contains2;
    const char* doesNotContain;
    const char* endsWith;
    const char* extension;   // hasFileExtension
    const char* mergeBlock;  // three digits in a merge block, else null
};

constexpr Row Section(const char* text) {
    return {RowKind::Section, text,    nullptr, nullptr, nullptr, nullptr,
            nullptr,          nullptr, nullptr, nullptr, nullptr};
}
constexpr Row Group(const char* text) {
    return {RowKind::Group, text,    nullptr, nullptr, nullptr, nullptr,
            nullptr,        nullptr, nullptr, nullptr, nullptr};
}
constexpr Row BlockEnd(const char* text) {
    return {RowKind::BlockEnd, text,    nullptr, nullptr, nullptr, nullptr,
            nullptr,           nullptr, nullptr, nullptr, nullptr};
}
constexpr Row Win(const char* osVers, const char* prefix, const char* c1, const char* c2, const char* dnc,
                  const char* ends, const char* ext) {
    return {RowKind::Rule, nullptr, "win", osVers, prefix, c1, c2, dnc, ends, ext, nullptr};
}
constexpr Row Mac(const char* osVers, const char* prefix, const char* c1, const char* c2, const char* dnc,
                  const char* ends, const char* ext) {
    return {RowKind::Rule, nullptr, "mac", osVers, prefix, c1, c2, dnc, ends, ext, nullptr};
}
constexpr Row InBlock(const char* block, Row rule) {
    rule.mergeBlock = block;
    return rule;
}

struct Rows {
    const Row* rows;
    size_t count;
};

// Rows in file order, by text and platform.
Rows MandatoryWinRows();
Rows MandatoryMacRows();
Rows EditableWinRows();
Rows EditableMacRows();
Rows MergeBlockRows();  // blocks "001" to "004", both platforms

// The texts, built once per process.
const QzString& MandatoryText();      // "qzexcluderules_mandatory.xml"
const QzString& EditableText();       // "qzexcluderules_editable.xml" before any merge block
const QzString& MergeBlocksText();    // every merge block, concatenated
const QzString& RegistryRulesText();  // the editable registry group as a rule file of its own

// Rule-file pieces shared with the rules made from the settings.
constexpr const char* kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>";
// Appends one rule element (no line feed) in the layout of the default files.
void AppendRuleElement(QzString& out, const Row& rule, const char* ruleIsOptional);

}  // namespace QzRuleTexts
