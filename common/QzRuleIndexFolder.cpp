// The folder part of the exclusion decision, and the decision's entry; see
// QzRuleIndex.h.
//
// A path is its folder part F (up to and including its last "\" or "/")
// followed by a name that holds neither. What can be known from F alone:
// - a group's prefix that ends within F matches or not; one that runs on
//   past F matches no name when the rest holds a slash, else F cannot tell;
// - a text with a slash can lie in the path only within F, or across F's
//   end when F ends with the text up to its last slash; a text whose last
//   slash is followed by an ends-with match needs F to end the same way;
// - a does-not-contain text found in F rules its rule out.
// A rule ruled out for F cannot hold for any file of F; the others are
// tested in full, in list order, so the answers stay those of the tree.
#include <algorithm>
#include <cstring>

#include "QzRuleIndex.h"
#include "QzRuleTree.h"

using namespace QzRuleIndexWords;

namespace {

bool HasSlash(const char* s, int32_t n) {
    for (int32_t i = 0; i < n; ++i)
        if (s[i] == '\\' || s[i] == '/') return true;
    return false;
}

}  // namespace

void QzRuleIndex::PrepareFolder(const char* path, int32_t folderLen) {
    folderPrepared_ = true;
    folderGroups_.clear();
    folderUsable_ = false;

    // The bytes this folder shares with the one examined before (in a walk
    // its parent or a sibling): they are folded already, and the texts found
    // within them are found again.
    int32_t common = 0;
    const int32_t shorter = folderLen < prepLen_ ? folderLen : prepLen_;
    while (common + 8 <= shorter && Load64(path + common) == Load64(prepRaw_.data() + common)) common += 8;
    while (common < shorter && path[common] == prepRaw_[static_cast<size_t>(common)]) ++common;
    prepRaw_.resize(static_cast<size_t>(folderLen) + 8);
    std::memcpy(prepRaw_.data(), path, static_cast<size_t>(folderLen));
    prepLen_ = folderLen;
    folderLower_.resize(static_cast<size_t>(folderLen) + 8);
    char* f = folderLower_.data();
    for (int32_t i = common; i < folderLen; ++i)
        f[i] = static_cast<char>(QzStringUtil::ToLower(static_cast<unsigned char>(path[i])));

    // The texts that occur in the folder: at each end position, those whose
    // last four bytes hash alike are compared. The heads it ends with: those
    // whose last four bytes hash like the folder's.
    auto set = [](std::vector<uint64_t>& bits, int32_t id) {
        bits[static_cast<size_t>(id) >> 6] |= 1ULL << (id & 63);
    };
    folderPresent_.swap(prevPresent_);
    folderHeads_.swap(prevHeads_);
    std::fill(folderPresent_.begin(), folderPresent_.end(), 0);
    size_t kept = 0;
    for (const Found& found : folderFound_) {
        if (found.end > common) break;
        folderFound_[kept++] = found;
        set(folderPresent_, found.id);
    }
    folderFound_.resize(kept);
    for (int32_t end = common < 4 ? 4 : common + 1; end <= folderLen; ++end) {
        const uint16_t g = Gram4(f + end - 4);
        for (int32_t k = needleIndex_.start[g]; k < needleIndex_.start[g + 1u]; ++k) {
            const int32_t id = needleIndex_.ids[static_cast<size_t>(k)];
            const NeedleText& n = needles_[static_cast<size_t>(id)];
            if (n.len <= end && SameBytes(f + end - n.len, n.text, n.len)) {
                set(folderPresent_, id);
                folderFound_.push_back(Found{id, end});
            }
        }
    }
    for (const int32_t id : needleIndex_.shortIds) {
        const NeedleText& n = needles_[static_cast<size_t>(id)];
        if (ContainsFrom(f, folderLen, n.text, n.len)) set(folderPresent_, id);
    }
    std::fill(folderHeads_.begin(), folderHeads_.end(), 0);
    auto endsWith = [&](int32_t id) {
        const NeedleText& n = heads_[static_cast<size_t>(id)];
        if (n.len <= folderLen && SameBytes(f + folderLen - n.len, n.text, n.len)) set(folderHeads_, id);
    };
    const uint16_t last = Gram4(f + folderLen - 4);
    for (int32_t k = headIndex_.start[last]; k < headIndex_.start[last + 1u]; ++k)
        endsWith(headIndex_.ids[static_cast<size_t>(k)]);
    for (const int32_t id : headIndex_.shortIds) endsWith(id);

    // The rules that survive depend on these texts only: a folder that shows
    // the same ones as the folder before keeps its survivors.
    if (!haveSurvivors_ || folderPresent_ != prevPresent_ || folderHeads_ != prevHeads_) {
        if (++folderStamp_ == 0) {
            for (FolderList& fl : folderLists_) fl.stamp = 0;
            folderStamp_ = 1;
        }
        folderRules_.clear();
        haveSurvivors_ = true;
    }

    const size_t key =
        (static_cast<size_t>(static_cast<unsigned char>(f[3])) << 8) | static_cast<unsigned char>(f[4]);
    const int32_t b = keyToBucket_.empty() ? -1 : keyToBucket_[key];
    if (b >= 0 && !CollectFolderGroups(b)) return;
    if (starGroup_ >= 0) folderGroups_.push_back(starGroup_);
    SortGroups(folderGroups_);
    folderUsable_ = true;
}

// The groups of the bucket that every path of the folder matches; false
// when some group's match depends on the name.
bool QzRuleIndex::CollectFolderGroups(int32_t b) {
    const char* f = folderLower_.data() + 1;  // prefixes are compared from the second character
    const int32_t avail = folderLen_ - 1;
    const Bucket& bucket = buckets_[static_cast<size_t>(b)];
    if (bucket.trieRoot < 0) {
        for (int32_t k = 0; k < bucket.groupsCount; ++k) {
            const int32_t gi = bucketGroups_[static_cast<size_t>(bucket.groupsBegin + k)];
            const Group& g = groups_[static_cast<size_t>(gi)];
            if (g.prefixLen <= avail) {
                if (SameBytes(f, g.prefix, g.prefixLen)) folderGroups_.push_back(gi);
            } else if (SameBytes(f, g.prefix, avail) && !HasSlash(g.prefix + avail, g.prefixLen - avail)) {
                return false;
            }
        }
        return true;
    }
    const int32_t limit = avail < QzRuleTree::kMaxPrefixCompare ? avail : QzRuleTree::kMaxPrefixCompare;
    int32_t node = bucket.trieRoot;
    for (int32_t i = 0; i < limit; ++i) {
        const auto c = static_cast<unsigned char>(f[i]);
        int32_t child = trie_[static_cast<size_t>(node)].firstChild;
        while (child >= 0 && trie_[static_cast<size_t>(child)].byte != c)
            child = trie_[static_cast<size_t>(child)].nextSibling;
        if (child < 0) return true;
        node = child;
        for (int32_t g = trie_[static_cast<size_t>(node)].group; g >= 0;
             g = sameKeyNext_[static_cast<size_t>(g)])
            folderGroups_.push_back(g);
    }
    // Longer prefixes go on into the name unless they go on with a slash.
    for (int32_t child = trie_[static_cast<size_t>(node)].firstChild; child >= 0;
         child = trie_[static_cast<size_t>(child)].nextSibling) {
        const unsigned char c = trie_[static_cast<size_t>(child)].byte;
        if (c != '\\' && c != '/') return false;
    }
    return true;
}

bool QzRuleIndex::FolderHas(const Needle& n) const {
    return n.id >= 0 && ((folderPresent_[static_cast<size_t>(n.id) >> 6] >> (n.id & 63)) & 1);
}

bool QzRuleIndex::FolderEndsWithHead(const Needle& n) const {
    return n.headId >= 0 && ((folderHeads_[static_cast<size_t>(n.headId) >> 6] >> (n.headId & 63)) & 1);
}

// For a contains criterion: 0 it holds for no name of the folder, 1 it
// depends on the name, 2 it holds for every name (or is absent).
int QzRuleIndex::ContainsInFolder(const Needle& n) const {
    if (n.len < 0 || FolderHas(n)) return 2;
    if (n.lastSlash < 0 || FolderEndsWithHead(n)) return 1;
    return 0;
}

// True when the rule holds for no name of the folder; otherwise `known`
// receives the criteria the folder decides (see Survivor).
bool QzRuleIndex::DeadInFolder(const Rule& r, uint32_t* known) const {
    if (r.never) return true;
    if (r.endsWith.len > 0 && r.endsWith.lastSlash >= 0 && !FolderEndsWithHead(r.endsWith)) return true;
    const int c1 = ContainsInFolder(r.contains1);
    if (c1 == 0) return true;
    const int c2 = ContainsInFolder(r.contains2);
    if (c2 == 0) return true;
    *known = (c1 == 2 ? 1u : 0u) | (c2 == 2 ? 2u : 0u);
    for (int32_t i = 0; i < r.dncCount; ++i) {
        const Needle& d = doesNotContain_[static_cast<size_t>(r.dncBegin + i)];
        if (FolderHas(d)) return true;
        if (i < 30 && d.lastSlash >= 0 && !FolderEndsWithHead(d)) *known |= 4u << i;
    }
    return false;
}

// The rule's test with the criteria the folder decided left out.
bool QzRuleIndex::RuleHoldsInFolder(const Rule& r, uint32_t known) {
    if (r.endsWith.len > 0) {
        if (r.endsWith.len > len_ || (tail_ & r.endMask) != r.endTail) return false;
        if (r.endsWith.len > 8) {
            EnsureLower();
            if (!SameBytes(lower_.c_str() + len_ - r.endsWith.len, r.endsWith.text, r.endsWith.len - 8))
                return false;
        }
    }
    if (!(known & 1u) && !ContainsPastFolder(r.contains1)) return false;
    if (!(known & 2u) && !ContainsPastFolder(r.contains2)) return false;
    for (int32_t i = 0; i < r.dncCount; ++i)
        if (!(i < 30 && ((known >> (2 + i)) & 1u)) &&
            ContainsPastFolder(doesNotContain_[static_cast<size_t>(r.dncBegin + i)]))
            return false;
    return true;
}

// For a surviving rule's text that the folder does not hold: whether it
// lies in the path, which it can only do reaching past the folder.
bool QzRuleIndex::ContainsPastFolder(const Needle& n) {
    if (n.len <= 0 || n.len > len_) return false;
    EnsureLower();
    const int32_t from = folderLen_ - n.len + 1 > 0 ? folderLen_ - n.len + 1 : 0;
    return ContainsFrom(lower_.c_str() + from, len_ - from, n.text, n.len);
}

// The list's rules that survive the folder, found on the folder's first
// use of the list; a long list with many survivors keeps its own index.
QzExcludeRuleNode* QzRuleIndex::TestListInFolder(const List& list) {
    if (list.count == 0) return nullptr;
    FolderList& fl = folderLists_[static_cast<size_t>(list.id)];
    if (fl.stamp != folderStamp_) {
        fl.stamp = folderStamp_;
        fl.begin = static_cast<int32_t>(folderRules_.size());
        for (int32_t i = list.begin; i < list.begin + list.count; ++i) {
            uint32_t known = 0;
            const Rule& r = rules_[static_cast<size_t>(i)];
            if (!DeadInFolder(r, &known))
                folderRules_.push_back(Survivor{i, known, r.endsWith.len, r.endMask, r.endTail});
        }
        fl.count = static_cast<int32_t>(folderRules_.size()) - fl.begin;
        if (list.byKey >= 0 && fl.count > kLinearListLimit) {
            folderRules_.resize(static_cast<size_t>(fl.begin));
            fl.count = -1;
        }
    }
    if (fl.count < 0) {
        EnsureLower();
        return TestList(list);
    }
    const Survivor* survivors = folderRules_.data() + fl.begin;
    for (int32_t k = 0; k < fl.count; ++k) {
        const Survivor& s = survivors[k];
        if (s.endLen > 0 && (s.endLen > len_ || (tail_ & s.endMask) != s.endTail)) continue;
        const Rule& r = rules_[static_cast<size_t>(s.rule)];
        if (RuleHoldsInFolder(r, s.known)) return r.node;
    }
    return nullptr;
}

QzExcludeRuleNode* QzRuleIndex::TestGroup(int32_t gi, bool inFolder) {
    const Group& g = groups_[static_cast<size_t>(gi)];
    auto test = [&](const List& list) { return inFolder ? TestListInFolder(list) : TestList(list); };
    if (g.extCount > 0) {
        if (!haveExt_) PrepareExtension();
        const int32_t* table = extTable_.data() + g.extTable;
        for (uint32_t slot = extHash_ & static_cast<uint32_t>(g.extMask);;
             slot = (slot + 1) & static_cast<uint32_t>(g.extMask)) {
            const int32_t i = table[slot];
            if (i < 0) break;
            const ExtRules& x = exts_[static_cast<size_t>(i)];
            if (x.len != extLen_ || x.word != extWord_ || (extLen_ > 8 && !SameBytes(x.ext, ext_, extLen_)))
                continue;
            // The first rule that holds in the two lists, taken in the tree's order.
            QzExcludeRuleNode* hit = test(x.anyFirst ? g.any : x.list);
            return hit ? hit : test(x.anyFirst ? x.list : g.any);
        }
    }
    return test(g.any);
}

QzExcludeRuleNode* QzRuleIndex::FindExcludingRule(const char* path, int32_t len) {
    const auto key3 = QzStringUtil::ToLower(static_cast<unsigned char>(len > 3 ? path[3] : 0));
    const auto key4 = QzStringUtil::ToLower(static_cast<unsigned char>(len > 4 ? path[4] : 0));
    const int32_t b = keyToBucket_.empty() ? -1 : keyToBucket_[(static_cast<size_t>(key3) << 8) | key4];
    if (b < 0 && starGroup_ < 0) return nullptr;
    if (!lower_.Reserve(len + 1, true)) {
        lowerHoldsFolder_ = false;
        return nullptr;
    }

    // Within a folder whose part of the path holds the bucket's key, the
    // folder's groups and surviving rules answer: from the second path in a
    // row on, or from the first once the paths come folder by folder (the
    // folder before had more paths in a row), as in a walk.
    const int32_t folderLen = FolderPartLength(path, len);
    if (folderLen >= 5) {
        // Paths of one folder come in a row: most calls compare the whole
        // folder part, which the library's vectorised compare does fastest.
        if (folderLen != folderLen_ ||
            std::memcmp(path, folderRaw_.data(), static_cast<size_t>(folderLen)) != 0) {
            const bool walking = folderRun_ >= 2;
            folderLen_ = folderLen;
            folderRaw_.assign(path, path + folderLen);
            folderPrepared_ = folderUsable_ = lowerHoldsFolder_ = false;
            folderRun_ = 0;
            if (walking) PrepareFolder(path, folderLen);
        } else if (!folderPrepared_) {
            PrepareFolder(path, folderLen);
        }
        ++folderRun_;
        if (folderUsable_) {
            PrepareTail(path, len);
            nameStart_ = folderLen;
            for (const int32_t gi : folderGroups_)
                if (QzExcludeRuleNode* hit = TestGroup(gi, true)) return hit;
            return nullptr;
        }
    }

    PrepareTail(path, len);
    LowerPath(path, len, 0);
    lowerHoldsFolder_ = folderLen >= 5;
    const char* d = lower_.c_str();
    matched_.clear();
    if (b >= 0) {
        const Bucket& bucket = buckets_[static_cast<size_t>(b)];
        if (bucket.trieRoot >= 0) {
            CollectTrieMatches(bucket.trieRoot);
        } else {
            for (int32_t k = 0; k < bucket.groupsCount; ++k) {
                const int32_t gi = bucketGroups_[static_cast<size_t>(bucket.groupsBegin + k)];
                const Group& g = groups_[static_cast<size_t>(gi)];
                if (len - 1 >= g.prefixLen && SameBytes(d + 1, g.prefix, g.prefixLen)) matched_.push_back(gi);
            }
        }
    }
    if (starGroup_ >= 0) matched_.push_back(starGroup_);
    SortGroups(matched_);
    for (const int32_t gi : matched_)
        if (QzExcludeRuleNode* hit = TestGroup(gi, false)) return hit;
    return nullptr;
}
