// A lookup structure derived from the exclusion rule tree that gives, for a
// path, the same first matching rule as walking the tree, with less work:
//
// - Groups are bucketed by the two key characters (prefix positions 2 and 3,
//   path positions 3 and 4), so one table look-up replaces the key test of
//   every group. A bucket with many groups keeps their prefixes in a trie,
//   walked once along the path.
// - Per group, the rules of each extension node and of the "any extension"
//   node are laid out flat (a "list" each). A path with an extension that
//   has a node tests that node's list and the "any" list, in the order the
//   tree visits the two nodes; every rule is stored once, so the index grows
//   linearly with the rules.
// - Each rule has a key that any path it matches must show: the last four
//   bytes of its ends-with text, or else a word of a contains text. A
//   contains text found in a path puts its separators ("\", "/", ":") on the
//   path's separators, so the four or eight bytes after one of its
//   separators also follow one of the path's. Per call the path's words are
//   hashed once; a rule whose key the path lacks is skipped without reading
//   the path. A long list keeps its rules by key, so only the rules whose key
//   the path shows are visited at all.
// These are necessary conditions only: a rule that passes them is tested in
// full, in list order, so answers never change.
//
// A walk asks about the files of one folder in a row. The folder part of a
// path (up to its last "\" or "/") is examined once: which groups its
// prefix selects, and per list which rules can still hold for some name in
// that folder (a name holds no "\" or "/"). The folder's next files are
// tested against those rules only.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "QzRuleIndexWords.h"
#include "QzString.h"

struct QzExcludeRuleNode;

class QzRuleIndex {
public:
    // Rebuilds from the tree's groups, in array order. False when memory ran out.
    bool Build(QzExcludeRuleNode* const* groups, int32_t numGroups);

    // The rule that walking the tree would find first for this path, or null.
    QzExcludeRuleNode* FindExcludingRule(const char* path, int32_t len);

private:
    static constexpr int kMaxProbes = 4;
    static constexpr int kHashSize = 1 << QzRuleIndexWords::kHashBits;
    static constexpr int32_t kLinearBucketLimit = 8;  // more groups per key: trie
    static constexpr int32_t kLinearListLimit = 16;   // more rules per list: by key

    // Kinds of key; a key's number is kind * kHashSize + hash.
    enum : uint8_t { kWord4 = 0, kWord8 = 1, kTail = 2, kNoKey = 3 };
    static constexpr int kNumKeys = 3 * kHashSize;

    struct Needle {
        const char* text = nullptr;
        int32_t len = -1;        // -1: criterion absent
        int32_t separator = -1;  // offset of its first separator, -1 when it has none
        int32_t lastSlash = -1;  // offset of its last "\" or "/", -1 when it has none
        int32_t id = -1;         // into needles_ for contains and does-not-contain texts
        int32_t headId = -1;     // into heads_: the text up to and including its last slash
    };
    struct Probe {
        uint16_t hash = 0;
        uint8_t kind = kNoKey;
    };
    struct Rule {
        QzExcludeRuleNode* node = nullptr;
        Needle endsWith, contains1, contains2;
        uint64_t endTail = 0, endMask = 0;  // the ends-with text's last (up to) eight bytes, packed
        int32_t dncBegin = 0, dncCount = 0;
        Probe probes[kMaxProbes];  // words of the contains texts
        uint8_t numProbes = 0;
        bool never = false;  // an empty contains text never holds
    };
    struct List {
        int32_t begin = 0, count = 0;  // into rules_
        int32_t byKey = -1;            // into byKey_ for long lists
        int32_t id = 0;                // into folderLists_
    };
    struct ExtRules {
        const char* ext;
        int32_t len;
        uint32_t hash;
        uint64_t word;  // PackWord of the text
        List list;
        bool anyFirst;  // the tree visits the "any" node before this one
    };
    struct Group {
        List any;                            // for an extension without a node of its own
        int32_t extBegin = 0, extCount = 0;  // into exts_
        int32_t extTable = 0, extMask = -1;  // open-addressed table of exts_ indexes, in extTable_
        const char* prefix = nullptr;        // compared part; null for the "*" group
        int32_t prefixLen = 0;
    };
    struct ByKey {
        int32_t offsets = 0;     // into keyOffsets_: kNumKeys + 1 starts into keyPositions_
        int32_t alwaysBits = 0;  // into alwaysBits_: the rules without a key
        int32_t words = 0;       // 64-bit words per candidate set
    };
    struct Bucket {
        int32_t groupsBegin = 0, groupsCount = 0;  // into bucketGroups_, array order
        int32_t trieRoot = -1;                     // for large buckets
    };
    struct TrieNode {
        int32_t firstChild = -1, nextSibling = -1;
        int32_t group = -1;  // first group whose prefix ends here
        unsigned char byte = 0;
    };

    void BuildOrThrow(QzExcludeRuleNode* const* groups, int32_t numGroups);
    List AppendRules(QzExcludeRuleNode* chain);
    static Needle MakeNeedle(const QzString& text);
    void AppendChain(QzExcludeRuleNode* head);
    void AddProbes(Rule& r) const;
    void IndexByKey(List& list);
    int32_t BuildTrie(const int32_t* groupIndices, int32_t count);
    void CollectTrieMatches(int32_t root);
    void PrepareExtension();
    void PrepareWords();
    void SetWordBit(uint32_t key);
    bool MayHold(Probe key);
    bool Contains(const Needle& n);
    bool RuleHolds(const Rule& r);
    QzExcludeRuleNode* TestList(const List& list);
    QzExcludeRuleNode* TestGroup(int32_t g, bool inFolder);
    void LowerPath(const char* path, int32_t len, int32_t from);
    void PrepareTail(const char* path, int32_t len);
    void EnsureLower();
    static void SortGroups(std::vector<int32_t>& groups);
    static int32_t FolderPartLength(const char* path, int32_t len);
    // The folder part: see QzRuleIndexFolder.cpp.
    void PrepareFolder(const char* path, int32_t folderLen);
    bool CollectFolderGroups(int32_t bucket);
    bool FolderHas(const Needle& n) const;
    bool FolderEndsWithHead(const Needle& n) const;
    int ContainsInFolder(const Needle& n) const;
    bool DeadInFolder(const Rule& r, uint32_t* known) const;
    bool RuleHoldsInFolder(const Rule& r, uint32_t known);
    QzExcludeRuleNode* TestListInFolder(const List& list);
    bool ContainsPastFolder(const Needle& n);

    std::vector<Rule> rules_;
    std::vector<Probe> ruleKey_;  // per rule, packed for the scan over a list
    std::vector<Needle> doesNotContain_;
    std::vector<ExtRules> exts_;
    std::vector<int32_t> extTable_;  // per group: 2^n slots holding an exts_ index or -1
    std::vector<Group> groups_;
    int32_t starGroup_ = -1;
    std::vector<int32_t> keyToBucket_;  // 65536 entries, -1 when no group has that key
    std::vector<uint16_t> bucketKeys_;  // the keys that have a bucket
    std::vector<Bucket> buckets_;
    std::vector<int32_t> bucketGroups_;
    std::vector<TrieNode> trie_;
    std::vector<int32_t> sameKeyNext_;  // per group: next group with the same compared prefix
    std::vector<ByKey> byKey_;
    std::vector<int32_t> keyOffsets_, keyPositions_;
    std::vector<uint64_t> alwaysBits_;
    // The contains and does-not-contain texts, found in a folder through the
    // hash of their last four bytes (shorter ones are searched for in turn).
    struct NeedleText {
        const char* text;
        int32_t len;
    };
    // Likewise the heads (texts up to their last slash), found at the
    // folder's end.
    struct GramIndex {
        std::vector<int32_t> start, ids, shortIds;
    };
    std::vector<NeedleText> needles_, heads_;
    std::unordered_map<std::string_view, int32_t> needleIds_, headIds_;  // while building
    GramIndex needleIndex_, headIndex_;
    void NumberNeedle(Needle& n, bool contained);
    static void IndexByLastGram(const std::vector<NeedleText>& texts, GramIndex* index);

    // Per-call scratch, reused.
    const char* path_ = nullptr;  // the path as given
    int32_t nameStart_ = -1;      // where its name begins, when it lies in the examined folder
    QzString lower_;
    bool lowerValid_ = false;  // lower_ holds the whole path, folded
    static constexpr int32_t kExtBufSize = 32;
    char extBuf_[kExtBufSize] = {};
    int32_t len_ = 0;
    std::vector<int32_t> matched_;
    bool haveExt_ = false, haveWords_ = false;
    const char* ext_ = nullptr;
    int32_t extLen_ = 0;
    uint32_t extHash_ = 0;
    uint64_t extWord_ = 0;
    uint64_t tail_ = 0;           // the path's last (up to) eight bytes, packed
    uint16_t tailHash_ = 0xFFFF;  // hash of the last four bytes; none for shorter paths

    // The folder of the last path (folderRaw_) and, once examined, its bytes
    // folded, the texts it holds, its groups in array order, and per list
    // (by id, valid while its stamp is the current one) the rules that can
    // still hold there. A folder is examined on the second path in a row
    // that lies in it, or on the first once paths come folder by folder;
    // folderUsable_ is false until then, or when the folder alone cannot
    // tell which groups match.
    int32_t numLists_ = 0;
    int32_t folderLen_ = -1;
    bool folderPrepared_ = false, folderUsable_ = false;
    int32_t folderRun_ = 0;  // paths in a row in the folder
    uint32_t folderStamp_ = 0;
    std::vector<char> folderRaw_, folderLower_;
    bool lowerHoldsFolder_ = false;                  // lower_ begins with the folder, folded
    std::vector<uint64_t> folderPresent_;            // per needle: it occurs in the folder
    std::vector<uint64_t> folderHeads_;              // per head: the folder ends with it
    std::vector<uint64_t> prevPresent_, prevHeads_;  // the same of the folder examined before
    // The folder examined last, as given (the next examined folder reuses
    // what lies in the bytes they share), and where in it texts were found.
    std::vector<char> prepRaw_;
    int32_t prepLen_ = 0;
    struct Found {
        int32_t id, end;
    };
    std::vector<Found> folderFound_;
    bool haveSurvivors_ = false;  // folderRules_ holds survivors of some folder
    std::vector<int32_t> folderGroups_;
    struct FolderList {
        uint32_t stamp = 0;
        int32_t begin = 0, count = 0;  // into folderRules_; count -1: test the whole list
    };
    struct Survivor {
        int32_t rule;
        uint32_t known;  // criteria the folder decides: bit 0, 1 the contains texts hold, bit 2 + i
                         // the i-th does-not-contain text cannot occur
        // The rule's ends-with test, copied here so that most survivors are
        // turned down without reading the rule.
        int32_t endLen;
        uint64_t endMask, endTail;
    };
    std::vector<FolderList> folderLists_;
    std::vector<Survivor> folderRules_;

    // The path's words, found when a rule's key or text needs them.
    uint64_t words_[2][kHashSize / 64] = {};  // the path's words: [kWord4], [kWord8]
    std::vector<int32_t> separators_;         // offsets of the path's separators, ascending
    int32_t numSeparators_ = 0;
    std::vector<uint16_t> pathKeys_;  // the path's words as key numbers
    int32_t numPathKeys_ = 0;
    // The path whose words were found last (a walk asks about the files of
    // one folder in a row, so the next path mostly begins the same way), and
    // per separator the number of keys up to and including its own.
    std::vector<char> wordsPath_;
    int32_t wordsPathLen_ = 0;
    std::vector<int32_t> keysThroughSeparator_;
    // The word bits of the first folderSeparators_ separators of that path
    // (those whose words end within its folder), valid while folderKeys_ >= 0.
    uint64_t folderWords_[2][kHashSize / 64] = {};
    int32_t folderSeparators_ = 0;
    int32_t folderKeys_ = -1;
    std::vector<uint64_t> candidates_;
};
