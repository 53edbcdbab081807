// The exclusion rule tree: the rules of every data set grouped by their
// "skipFirstCharThenStartsWith" prefix, within a group by file extension,
// and the per-file decision made against it.
//
// Layout: a fixed array of prefix groups in load order. A group is a chain
// of extension nodes (one per distinct extension, "*" included), each the
// head of a chain of rule nodes sharing prefix and extension. Matching walks
// the groups in array order and the first rule that matches a path raises its
// hit count and excludes the file. A derived index (QzRuleIndex) answers the
// same question faster and is rebuilt whenever the tree has changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "QzString.h"

// One criterion of a rule: absent when the file gives "*".
struct QzRuleText {
    bool isSet = false;
    QzString text;
};

// The criteria of one rule, folded to lower case (ASCII letters only).
struct QzExcludeRuleFields {
    QzRuleText prefix;  // skipFirstCharThenStartsWith
    QzRuleText contains1;
    QzRuleText contains2;
    bool hasDoesNotContain = false;
    std::vector<QzString> doesNotContain;  // split at "|"
    QzRuleText endsWith;
    QzRuleText extension;  // hasFileExtension, without the period
    // Where the rule came from, for explanations: its data set and the line
    // of its element in that data set's text (1 = first line; 0 = unknown).
    // Not a criterion: two rules that differ only here are duplicates.
    QzString dataSet;
    int32_t sourceLine = 0;
};

struct QzExcludeRuleNode {
    QzExcludeRuleFields fields;
    int64_t hitCount = 0;                        // paths this rule has excluded
    QzExcludeRuleNode* nextRule = nullptr;       // same prefix and extension
    QzExcludeRuleNode* nextExtension = nullptr;  // next extension node of the group (on chain heads)
};

struct QzStringHash {
    size_t operator()(const QzString& s) const;
};
struct QzStringEqual {
    bool operator()(const QzString& a, const QzString& b) const { return a.Equals(b); }
};

class QzRuleIndex;

class QzRuleTree {
public:
    static constexpr int32_t kMaxPrefixGroups = 10000;
    static constexpr int32_t kMaxRulesPerDataSet = 9997;
    // A prefix is compared with a path over at most this many characters.
    static constexpr int32_t kMaxPrefixCompare = 5000;

    QzRuleTree();
    ~QzRuleTree();
    QzRuleTree(const QzRuleTree&) = delete;
    QzRuleTree& operator=(const QzRuleTree&) = delete;

    // Removes every rule.
    void Clear();

    // Adds the rules of one data set ("mandatory_rules", "editable_rules",
    // "qzinfo.xml", "registry_rules", ...). False when the set is unusable: a
    // null text, no rule element at all, or more than kMaxRulesPerDataSet of
    // them. A single bad rule is logged and skipped.
    bool ParseExcludeFileNameRules(const QzString* xmlContainingExcludeRules, const char* dataSet);

    // Adds one rule to the group whose first node is `groupHead`: to the
    // chain of its extension, or as a new extension node. False when the
    // rule was not added (null group, duplicate, no memory).
    bool InsertRuleWithSameSkipFirstCharThenStartsWith(QzExcludeRuleNode* groupHead,
                                                       QzExcludeRuleFields&& rule);

    // True when the file is to be backed up: not larger than maxSize (same
    // unit as fileSize) and matched by no rule. A match raises that rule's
    // hit count.
    bool UserWantsThisFileBackedUpEx(const QzString& fullPath, int64_t fileSize, int64_t maxSize);

    // The rule that excluded the path in the last call that returned false
    // because of a rule; null otherwise.
    const QzExcludeRuleNode* LastExcludingRule() const { return lastHit_; }

    // The same decision made by walking the nodes one by one, as the layout
    // describes. Used when the index cannot be built, and as the reference
    // the index is checked against. Raises no hit count.
    QzExcludeRuleNode* FindExcludingRuleByWalkingTheTree(const char* path, int32_t len);

    int32_t NumPrefixGroups() const { return numGroups_; }
    const QzExcludeRuleNode* PrefixGroup(int32_t i) const { return groups_[i]; }
    int32_t NumRules() const { return numRules_; }
    // Duplicates dropped since the tree was last cleared.
    int32_t NumDuplicatesDropped() const { return numDuplicates_; }

private:
    // Folds and checks one element; false (logged) when it is skipped.
    bool AddRuleFromElement(const QzString& element, int32_t ruleNum, const char* dataSet, int32_t sourceLine,
                            bool* appliedRet);
    QzExcludeRuleNode* NewNode(QzExcludeRuleFields&& fields, const char* allocWhat);
    void PrepareLowerPath(const char* path, int32_t len);

    std::unique_ptr<QzExcludeRuleNode*[]> groups_;
    int32_t numGroups_ = 0;
    int32_t numRules_ = 0;
    int32_t numDuplicates_ = 0;
    int32_t starGroup_ = -1;  // the group of the rules whose prefix is "*"
    std::unordered_map<QzString, int32_t, QzStringHash, QzStringEqual> groupByPrefix_;
    // Insertion without walking the chains: per group and extension its node
    // and the last rule of its chain, and every rule already in the tree.
    struct ExtensionChain {
        QzExcludeRuleNode* node;
        QzExcludeRuleNode* lastRule;
    };
    std::unordered_map<std::string, ExtensionChain> chains_;
    std::unordered_set<std::string> ruleKeys_;

    std::unique_ptr<QzRuleIndex> index_;
    bool indexStale_ = true;
    bool indexUsable_ = false;
    const QzExcludeRuleNode* lastHit_ = nullptr;
    QzString lowerPath_;  // scratch of the tree walk
};
