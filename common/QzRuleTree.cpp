// Building the exclusion rule tree from rule-file text, and the reference
// decision that walks it node by node.
#include "QzRuleTree.h"

#include <cstring>
#include <new>

#include "QzFileXml.h"
#include "QzLog.h"
#include "QzRuleIndex.h"

namespace {

constexpr int32_t kMaxLoggedCommentStart = 300;

void Log(const QzString& line) {
    QzLog::WriteLine(line);
}

void FoldInPlace(QzString& s) {
    char* d = s.Data();
    for (int32_t i = 0; i < s.Length(); ++i)
        d[i] = static_cast<char>(QzStringUtil::ToLower(static_cast<unsigned char>(d[i])));
}

// "*" becomes an absent criterion; anything else is kept folded.
QzRuleText Criterion(QzString&& value) {
    QzRuleText t;
    if (value.Equals("*")) return t;
    FoldInPlace(value);
    t.isSet = true;
    t.text = std::move(value);
    return t;
}

void AppendKeyText(std::string& key, const QzString& s) {
    const int32_t len = s.Length();
    key.append(reinterpret_cast<const char*>(&len), sizeof len);
    key.append(s.c_str(), static_cast<size_t>(len));
}
void AppendKeyText(std::string& key, const QzRuleText& t) {
    key.push_back(t.isSet ? '1' : '0');
    if (t.isSet) AppendKeyText(key, t.text);
}

// The group (by its first node) and the extension: one chain of rules.
std::string ChainKey(const QzExcludeRuleNode* groupHead, const QzRuleText& extension) {
    std::string key(reinterpret_cast<const char*>(&groupHead), sizeof groupHead);
    AppendKeyText(key, extension);
    return key;
}

// Two rules of a group are the same when every criterion but the prefix is.
std::string RuleKey(const QzExcludeRuleNode* groupHead, const QzExcludeRuleFields& f) {
    std::string key = ChainKey(groupHead, f.extension);
    AppendKeyText(key, f.contains1);
    AppendKeyText(key, f.contains2);
    AppendKeyText(key, f.endsWith);
    key.push_back(f.hasDoesNotContain ? '1' : '0');
    for (const QzString& t : f.doesNotContain) AppendKeyText(key, t);
    return key;
}

const char* Shown(const QzRuleText& t) {
    return t.isSet ? t.text.c_str() : "*";
}

// Rule text for a log line: the log keeps one event per line.
QzString OneLine(const char* text, int32_t len) {
    QzString s(text, len);
    for (int32_t i = 0; i < s.Length(); ++i)
        if (s[i] == '\n' || s[i] == '\r') s.Data()[i] = ' ';
    return s;
}
QzString OneLine(const QzString& text) {
    return OneLine(text.c_str(), text.Length());
}

// Removes the comments; an unterminated one is logged with the text that
// follows its start, and that text is dropped.
void StripComments(const QzString& in, QzString* out) {
    int32_t at = 0;
    if (QzFile::RemoveXmlComments(in, out, &at)) return;
    const int32_t shown =
        in.Length() - at < kMaxLoggedCommentStart ? in.Length() - at : kMaxLoggedCommentStart;
    Log(QzCat("ERROR: QzInfoManager::ParseExcludeFileNameRules_AddToArray -",
              "could not find end of comment, where START of comment is:", OneLine(in.c_str() + at, shown)));
}

bool EndsWith(const char* s, int32_t len, const QzString& suffix) {
    return suffix.Length() <= len &&
           std::memcmp(s + len - suffix.Length(), suffix.c_str(), suffix.Length()) == 0;
}

bool Contains(const char* s, int32_t len, const QzString& needle) {
    return !needle.IsEmpty() &&
           QzStringUtil::FindBytes(s, len, needle.c_str(), needle.Length(), 0, false) >= 0;
}

// The tests of one rule in their documented order; an absent criterion holds.
bool RuleHolds(const QzExcludeRuleFields& f, const char* s, int32_t len) {
    if (f.endsWith.isSet && !EndsWith(s, len, f.endsWith.text)) return false;
    if (f.contains1.isSet && !Contains(s, len, f.contains1.text)) return false;
    if (f.contains2.isSet && !Contains(s, len, f.contains2.text)) return false;
    for (const QzString& t : f.doesNotContain)
        if (Contains(s, len, t)) return false;
    return true;
}

unsigned char CharAt(const QzString& s, int32_t i) {
    return i < s.Length() ? static_cast<unsigned char>(s[i]) : 0;
}

// The line (from 1) in `original` of each element, given the elements'
// offsets in the same text with its comments removed the way StripComments
// removes them: kept stretches are mapped back to where they stood.
std::vector<int32_t> ElementLines(const QzString& original, const std::vector<int32_t>& strippedOffsets) {
    std::vector<int32_t> lines;
    lines.reserve(strippedOffsets.size());
    int32_t pos = 0;       // original offset of the current kept stretch
    int32_t stripped = 0;  // its offset in the stripped text
    int32_t line = 1, counted = 0;
    size_t next = 0;
    while (next < strippedOffsets.size()) {
        int32_t start = original.Find("<!--", pos);
        if (start < 0) start = original.Length();
        const int32_t keptEnd = stripped + (start - pos);
        while (next < strippedOffsets.size() && strippedOffsets[next] < keptEnd) {
            const int32_t at = pos + (strippedOffsets[next] - stripped);
            for (; counted < at; ++counted)
                if (original[counted] == '\n') ++line;
            lines.push_back(line);
            ++next;
        }
        if (start >= original.Length()) break;
        const int32_t end = original.Find("-->", start + 4);
        if (end < 0) break;
        stripped = keptEnd;
        pos = end + 3;
    }
    lines.resize(strippedOffsets.size(), 0);
    return lines;
}

}  // namespace

size_t QzStringHash::operator()(const QzString& s) const {
    uint64_t h = 1469598103934665603ULL;
    for (int32_t i = 0; i < s.Length(); ++i) {
        h ^= static_cast<unsigned char>(s[i]);
        h *= 1099511628211ULL;
    }
    return static_cast<size_t>(h);
}

QzRuleTree::QzRuleTree()
    : groups_(new QzExcludeRuleNode*[kMaxPrefixGroups]()), index_(std::make_unique<QzRuleIndex>()) {}

QzRuleTree::~QzRuleTree() {
    Clear();
}

void QzRuleTree::Clear() {
    for (int32_t g = 0; g < numGroups_; ++g) {
        for (QzExcludeRuleNode* ext = groups_[g]; ext;) {
            QzExcludeRuleNode* nextExt = ext->nextExtension;
            for (QzExcludeRuleNode* r = ext; r;) {
                QzExcludeRuleNode* next = r->nextRule;
                delete r;
                r = next;
            }
            ext = nextExt;
        }
        groups_[g] = nullptr;
    }
    numGroups_ = numRules_ = numDuplicates_ = 0;
    starGroup_ = -1;
    groupByPrefix_.clear();
    chains_.clear();
    ruleKeys_.clear();
    indexStale_ = true;
    lastHit_ = nullptr;
}

QzExcludeRuleNode* QzRuleTree::NewNode(QzExcludeRuleFields&& fields, const char* allocWhat) {
    auto* node = new (std::nothrow) QzExcludeRuleNode;
    if (!node) {
        Log(
            QzCat("ERROR - QzInfoManager::InsertRuleWithSameSkipFirstCharThenStartsWith - malloc of tiny "
                  "amount of ",
                  allocWhat, " failed. skipFirstCharPat=", Shown(fields.prefix)));
        return nullptr;
    }
    node->fields = std::move(fields);
    return node;
}

bool QzRuleTree::InsertRuleWithSameSkipFirstCharThenStartsWith(QzExcludeRuleNode* groupHead,
                                                               QzExcludeRuleFields&& rule) {
    if (!groupHead) {
        Log("ERROR: InsertRuleWithSameSkipFirstCharThenStartsWith called with NULL topRuleTree, not valid!");
        return false;
    }
    rule.prefix = groupHead->fields.prefix;
    std::string ruleKey, chainKey;
    try {
        ruleKey = RuleKey(groupHead, rule);
        chainKey = ChainKey(groupHead, rule.extension);
    } catch (...) {
        Log(
            QzCat("ERROR - QzInfoManager::InsertRuleWithSameSkipFirstCharThenStartsWith - malloc of tiny "
                  "amount of memory_Z_11 failed. skipFirstCharPat=",
                  Shown(rule.prefix)));
        return false;
    }
    if (ruleKeys_.count(ruleKey)) {
        Log(
            QzCat("INTERESTING (sometimes happens) - QzInfoManager::ParseExcludeFileNameRules -duplicate XML "
                  "rule_1 skipFirstChar=",
                  Shown(groupHead->fields.prefix), ", fileExt=", Shown(rule.extension),
                  ", contains_1=", Shown(rule.contains1), ", contains_2=", Shown(rule.contains2),
                  ", endsWith=", Shown(rule.endsWith)));
        ++numDuplicates_;
        return false;
    }
    const auto chain = chains_.find(chainKey);
    const bool newExtension = chain == chains_.end();
    QzExcludeRuleNode* node = NewNode(std::move(rule), newExtension ? "memory_Z_22" : "memory_Z_11");
    if (!node) return false;
    auto added = ruleKeys_.end();
    try {
        added = ruleKeys_.insert(std::move(ruleKey)).first;
        if (newExtension) chains_.emplace(std::move(chainKey), ExtensionChain{node, node});
    } catch (...) {
        if (added != ruleKeys_.end()) ruleKeys_.erase(added);
        delete node;
        Log(
            QzCat("ERROR - QzInfoManager::InsertRuleWithSameSkipFirstCharThenStartsWith - malloc of tiny "
                  "amount of memory_Z_22 failed. skipFirstCharPat=",
                  Shown(groupHead->fields.prefix)));
        return false;
    }
    if (!newExtension) {
        chain->second.lastRule->nextRule = node;
        chain->second.lastRule = node;
    } else if (node->fields.extension.isSet) {
        // A real extension goes right behind the group's first node...
        node->nextExtension = groupHead->nextExtension;
        groupHead->nextExtension = node;
    } else {
        // ...and "any extension" at the end of the chain (once per group).
        QzExcludeRuleNode* lastExt = groupHead;
        while (lastExt->nextExtension) lastExt = lastExt->nextExtension;
        lastExt->nextExtension = node;
    }
    ++numRules_;
    indexStale_ = true;
    return true;
}

bool QzRuleTree::AddRuleFromElement(const QzString& element, int32_t ruleNum, const char* dataSet,
                                    int32_t sourceLine, bool* appliedRet) {
    *appliedRet = false;
    struct Attr {
        const char* name;
        const char* code;
    };
    static const Attr kAttrs[] = {
        {"plat", "A"},       {"osVers", "B"},           {"skipFirstCharThenStartsWith", "C"},
        {"contains_1", "E"}, {"contains_2", "F"},       {"doesNotContain", "G"},
        {"endsWith", "H"},   {"hasFileExtension", "I"},
    };
    QzString values[8];
    for (int i = 0; i < 8; ++i) {
        if (QzFile::GetUniqueStrAttrFromXmlSnippet(element, kAttrs[i].name, &values[i])) continue;
        Log(QzCat("ERROR - QzInfoManager::ParseExcludeFileNameRules - BAD_EXCLUDEFNAME_RULE_", kAttrs[i].code,
                  ".  XML rule num=", ruleNum, " did not contain criteria \"", kAttrs[i].name,
                  "\" so it will be skipped! From dataSet=", dataSet, ", xmlRule=", OneLine(element)));
        return false;
    }
    FoldInPlace(values[0]);
    FoldInPlace(values[1]);
    if (!values[0].Equals("win") || !values[1].Equals("*")) return false;  // not for this system

    QzExcludeRuleFields f;
    f.prefix = Criterion(std::move(values[2]));
    if (f.prefix.isSet && f.prefix.text.Length() < 4) {
        Log(QzCat(
            "ERROR - QzInfoManager::ParseExcludeFileNameRules - BAD_EXCLUDEFNAME_RULE_D.  XML rule num=",
            ruleNum,
            " criteria \"skipFirstCharThenStartsWith\" is to short so this rule will be skipped! From "
            "dataSet=",
            dataSet, ", xmlRule=", OneLine(element)));
        return false;
    }
    *appliedRet = true;
    f.contains1 = Criterion(std::move(values[3]));
    f.contains2 = Criterion(std::move(values[4]));
    QzRuleText dnc = Criterion(std::move(values[5]));
    if (dnc.isSet) {
        f.hasDoesNotContain = true;
        int32_t from = 0;
        for (;;) {
            const int32_t bar = dnc.text.Find("|", from);
            const int32_t end = bar < 0 ? dnc.text.Length() : bar;
            f.doesNotContain.emplace_back(dnc.text.c_str() + from, end - from);
            if (bar < 0) break;
            from = bar + 1;
        }
    }
    f.endsWith = Criterion(std::move(values[6]));
    f.extension = Criterion(std::move(values[7]));
    f.dataSet.Set(dataSet);
    f.sourceLine = sourceLine;

    const QzString key = f.prefix.isSet ? f.prefix.text : QzString();
    const auto found = f.prefix.isSet ? groupByPrefix_.find(key) : groupByPrefix_.end();
    if (f.prefix.isSet ? found != groupByPrefix_.end() : starGroup_ >= 0) {
        const int32_t g = f.prefix.isSet ? found->second : starGroup_;
        InsertRuleWithSameSkipFirstCharThenStartsWith(groups_[g], std::move(f));
        return true;
    }
    if (numGroups_ >= kMaxPrefixGroups) {
        Log(QzCat(
            "ERROR - QzInfoManager::ParseExcludeFileNameRules - TOO_MANY_UNIQUE_SKIPFIRSTCHAR.  XML rule "
            "num=",
            ruleNum, " needs a new group but all ", kMaxPrefixGroups,
            " are in use, so it will be skipped! From dataSet=", dataSet, ", xmlRule=", OneLine(element)));
        return false;
    }
    QzExcludeRuleNode* node = NewNode(std::move(f), "memory_Z_22");
    if (!node) return false;
    try {
        if (node->fields.prefix.isSet) groupByPrefix_.emplace(node->fields.prefix.text, numGroups_);
        chains_.emplace(ChainKey(node, node->fields.extension), ExtensionChain{node, node});
        ruleKeys_.insert(RuleKey(node, node->fields));
    } catch (...) {
        if (node->fields.prefix.isSet) groupByPrefix_.erase(node->fields.prefix.text);
        chains_.erase(ChainKey(node, node->fields.extension));
        delete node;
        Log("ERROR - QzInfoManager::ParseExcludeFileNameRules - out of memory for the prefix lookup");
        return false;
    }
    if (!node->fields.prefix.isSet) starGroup_ = numGroups_;
    groups_[numGroups_++] = node;
    ++numRules_;
    indexStale_ = true;
    return true;
}

bool QzRuleTree::ParseExcludeFileNameRules(const QzString* xmlContainingExcludeRules, const char* dataSet) {
    const char* name = dataSet ? dataSet : "";
    if (!xmlContainingExcludeRules) {
        Log(QzCat(
            "ERROR: QzInfoManager::ParseExcludeFileNameRules, xmlContainingExcludeRules bad NULL param for "
            "dataSet=",
            name));
        return false;
    }
    QzString text;
    StripComments(*xmlContainingExcludeRules, &text);
    std::vector<QzString> elements;
    std::vector<int32_t> offsets;
    for (QzFile::XmlElementAt& e : QzFile::GetXmlElementsWithOffsets(text, "excludefname_rule")) {
        offsets.push_back(e.offset);
        elements.push_back(std::move(e.text));
    }
    if (elements.empty()) {
        Log(QzCat(
            "ERROR: QzInfoManager::ParseExcludeFileNameRules, could not parse any excludefname_rule out of "
            "dataSet=",
            name));
        return false;
    }
    const auto count = static_cast<int32_t>(elements.size());
    if (count > kMaxRulesPerDataSet) {
        Log(QzCat("ERROR - QzInfoManager::ParseExcludeFileNameRules - TOO_MANY_EXCLUEFNAME_RULE.  We found ",
                  count, " excludefname_rule from dataSet=", name,
                  ", which is too many for our static datastructures to handle so we are bailing out."));
        return false;
    }
    Log(QzCat("QzInfoManager::ParseExcludeFileNameRules - found ", count,
              ", now beginning to parse the rules"));
    const std::vector<int32_t> lines = ElementLines(*xmlContainingExcludeRules, offsets);
    int32_t applied = 0;
    for (int32_t i = 0; i < count; ++i) {
        bool thisApplied = false;
        AddRuleFromElement(elements[static_cast<size_t>(i)], i + 1, name, lines[static_cast<size_t>(i)],
                           &thisApplied);
        if (thisApplied) ++applied;
    }
    Log(QzCat("QzInfoManager::ParseExcludeFileNameRules - SUCCESSFULLY PARSED ", count, ", and found ",
              applied, " that applied to me, with ", numGroups_,
              " unique skipFirstCharThenStartsWith now in the array, returning success."));
    return true;
}

void QzRuleTree::PrepareLowerPath(const char* path, int32_t len) {
    lowerPath_.Set(path, len);
    FoldInPlace(lowerPath_);
}

QzExcludeRuleNode* QzRuleTree::FindExcludingRuleByWalkingTheTree(const char* path, int32_t len) {
    const unsigned char key3 = len > 3 ? QzStringUtil::ToLower(static_cast<unsigned char>(path[3])) : 0;
    const unsigned char key4 = len > 4 ? QzStringUtil::ToLower(static_cast<unsigned char>(path[4])) : 0;
    bool prepared = false;
    int32_t extStart = len;
    for (int32_t g = 0; g < numGroups_; ++g) {
        QzExcludeRuleNode* head = groups_[g];
        const QzRuleText& prefix = head->fields.prefix;
        if (prefix.isSet && (CharAt(prefix.text, 2) != key3 || CharAt(prefix.text, 3) != key4)) continue;
        if (!prepared) {
            PrepareLowerPath(path, len);
            // The extension: after the last period of the final name component.
            for (int32_t i = len - 1; i >= 0 && path[i] != '\\' && path[i] != '/'; --i) {
                if (path[i] == '.') {
                    extStart = i + 1;
                    break;
                }
            }
            prepared = true;
        }
        const char* lower = lowerPath_.c_str();
        if (prefix.isSet) {
            const int32_t n =
                prefix.text.Length() < kMaxPrefixCompare ? prefix.text.Length() : kMaxPrefixCompare;
            if (len - 1 < n || std::memcmp(lower + 1, prefix.text.c_str(), static_cast<size_t>(n)) != 0)
                continue;
        }
        for (QzExcludeRuleNode* ext = head; ext; ext = ext->nextExtension) {
            const QzRuleText& e = ext->fields.extension;
            if (e.isSet &&
                (e.text.Length() != len - extStart ||
                 std::memcmp(e.text.c_str(), lower + extStart, static_cast<size_t>(len - extStart)) != 0))
                continue;
            for (QzExcludeRuleNode* r = ext; r; r = r->nextRule)
                if (RuleHolds(r->fields, lower, len)) return r;
        }
    }
    return nullptr;
}

bool QzRuleTree::UserWantsThisFileBackedUpEx(const QzString& fullPath, int64_t fileSize, int64_t maxSize) {
    lastHit_ = nullptr;
    if (maxSize < fileSize) return false;
    if (indexStale_) {
        indexUsable_ = index_->Build(groups_.get(), numGroups_);
        if (!indexUsable_)
            Log("ERROR: QzInfoManager::UserWantsThisFileBackedUpEx - could not build the rule index, "
                "matching "
                "rule by rule");
        indexStale_ = false;
    }
    QzExcludeRuleNode* hit = indexUsable_
                                 ? index_->FindExcludingRule(fullPath.c_str(), fullPath.Length())
                                 : FindExcludingRuleByWalkingTheTree(fullPath.c_str(), fullPath.Length());
    if (!hit) return true;
    ++hit->hitCount;
    lastHit_ = hit;
    return false;
}
