// Building the rule index from the tree; see QzRuleIndex.h.
#include <numeric>
#include <string_view>
#include <unordered_map>

#include "QzRuleIndex.h"
#include "QzRuleTree.h"

using namespace QzRuleIndexWords;

bool QzRuleIndex::Build(QzExcludeRuleNode* const* groups, int32_t numGroups) {
    try {
        BuildOrThrow(groups, numGroups);
        return true;
    } catch (...) {
        rules_.clear();
        ruleKey_.clear();
        groups_.clear();
        byKey_.clear();
        return false;
    }
}

QzRuleIndex::Needle QzRuleIndex::MakeNeedle(const QzString& text) {
    Needle n;
    n.text = text.c_str();
    n.len = text.Length();
    for (int32_t i = 0; i < n.len; ++i) {
        if (IsSeparator(n.text[i]) && n.separator < 0) n.separator = i;
        if (n.text[i] == '\\' || n.text[i] == '/') n.lastSlash = i;
    }
    return n;
}

void QzRuleIndex::AppendChain(QzExcludeRuleNode* head) {
    for (QzExcludeRuleNode* n = head; n; n = n->nextRule) {
        const QzExcludeRuleFields& f = n->fields;
        Rule r;
        r.node = n;
        if (f.endsWith.isSet) r.endsWith = MakeNeedle(f.endsWith.text);
        if (f.contains1.isSet) r.contains1 = MakeNeedle(f.contains1.text);
        if (f.contains2.isSet) r.contains2 = MakeNeedle(f.contains2.text);
        r.never = r.contains1.len == 0 || r.contains2.len == 0;
        r.dncBegin = static_cast<int32_t>(doesNotContain_.size());
        for (const QzString& t : f.doesNotContain)
            if (!t.IsEmpty()) doesNotContain_.push_back(MakeNeedle(t));  // "" never occurs
        r.dncCount = static_cast<int32_t>(doesNotContain_.size()) - r.dncBegin;
        NumberNeedle(r.contains1, true);
        NumberNeedle(r.contains2, true);
        NumberNeedle(r.endsWith, false);
        for (int32_t i = r.dncBegin; i < r.dncBegin + r.dncCount; ++i)
            NumberNeedle(doesNotContain_[static_cast<size_t>(i)], true);
        if (r.endsWith.len > 0) {
            r.endTail = PackedTail(r.endsWith.text, r.endsWith.len);
            r.endMask = r.endsWith.len >= 8 ? ~0ULL : (1ULL << (8 * r.endsWith.len)) - 1;
        }
        AddProbes(r);
        // The key: the ends-with text's last four bytes, else a word of a contains text.
        Probe key;
        if (r.endsWith.len >= 4)
            key = Probe{Hash4(r.endsWith.text + r.endsWith.len - 4), kTail};
        else if (r.numProbes)
            key = r.probes[0];
        rules_.push_back(r);
        ruleKey_.push_back(key);
    }
}

// Texts alike get one number: a folder looks each up once.
void QzRuleIndex::NumberNeedle(Needle& n, bool contained) {
    if (n.len <= 0) return;
    auto number = [](std::vector<NeedleText>& texts, std::unordered_map<std::string_view, int32_t>& seen,
                     const char* text, int32_t len) {
        const auto [it, added] = seen.emplace(std::string_view(text, static_cast<size_t>(len)),
                                              static_cast<int32_t>(texts.size()));
        if (added) texts.push_back(NeedleText{text, len});
        return it->second;
    };
    if (contained) n.id = number(needles_, needleIds_, n.text, n.len);
    if (n.lastSlash >= 0) n.headId = number(heads_, headIds_, n.text, n.lastSlash + 1);
}

// Per hash of the last four bytes, the texts that end so; the shorter texts apart.
void QzRuleIndex::IndexByLastGram(const std::vector<NeedleText>& texts, GramIndex* index) {
    index->start.assign(kGramSize + 1, 0);
    for (const NeedleText& n : texts)
        if (n.len >= 4) ++index->start[Gram4(n.text + n.len - 4) + 1u];
    std::partial_sum(index->start.begin(), index->start.end(), index->start.begin());
    index->ids.resize(static_cast<size_t>(index->start[kGramSize]));
    std::vector<int32_t> fill(index->start.begin(), index->start.end() - 1);
    index->shortIds.clear();
    for (int32_t id = 0; id < static_cast<int32_t>(texts.size()); ++id) {
        const NeedleText& n = texts[static_cast<size_t>(id)];
        if (n.len >= 4)
            index->ids[static_cast<size_t>(fill[Gram4(n.text + n.len - 4)]++)] = id;
        else
            index->shortIds.push_back(id);
    }
}

QzRuleIndex::List QzRuleIndex::AppendRules(QzExcludeRuleNode* chain) {
    List list;
    list.id = numLists_++;
    list.begin = static_cast<int32_t>(rules_.size());
    AppendChain(chain);
    list.count = static_cast<int32_t>(rules_.size()) - list.begin;
    if (list.count > kLinearListLimit) IndexByKey(list);
    return list;
}

// For a long list: per key, the positions of the rules with that key, and
// the set of rules that have none.
void QzRuleIndex::IndexByKey(List& list) {
    ByKey bk;
    bk.words = (list.count + 63) / 64;
    bk.alwaysBits = static_cast<int32_t>(alwaysBits_.size());
    alwaysBits_.resize(alwaysBits_.size() + static_cast<size_t>(bk.words), 0);
    bk.offsets = static_cast<int32_t>(keyOffsets_.size());
    std::vector<int32_t> counts(kNumKeys + 1, 0);
    for (int32_t pos = 0; pos < list.count; ++pos) {
        const Probe key = ruleKey_[static_cast<size_t>(list.begin + pos)];
        if (key.kind == kNoKey)
            alwaysBits_[static_cast<size_t>(bk.alwaysBits + pos / 64)] |= 1ULL << (pos % 64);
        else
            ++counts[static_cast<size_t>(key.kind * kHashSize + key.hash)];
    }
    int32_t start = static_cast<int32_t>(keyPositions_.size());
    for (int k = 0; k <= kNumKeys; ++k) {
        keyOffsets_.push_back(start);
        start += counts[static_cast<size_t>(k)];
    }
    keyPositions_.resize(static_cast<size_t>(start));
    std::vector<int32_t> fill(keyOffsets_.begin() + bk.offsets, keyOffsets_.end());
    for (int32_t pos = 0; pos < list.count; ++pos) {
        const Probe key = ruleKey_[static_cast<size_t>(list.begin + pos)];
        if (key.kind != kNoKey)
            keyPositions_[static_cast<size_t>(fill[static_cast<size_t>(key.kind * kHashSize + key.hash)]++)] =
                pos;
    }
    if (candidates_.size() < static_cast<size_t>(bk.words)) candidates_.resize(static_cast<size_t>(bk.words));
    list.byKey = static_cast<int32_t>(byKey_.size());
    byKey_.push_back(bk);
}

// Words after the separators of the contains texts, the last separators
// first (where such texts differ from one another), alternating between the
// two texts.
void QzRuleIndex::AddProbes(Rule& r) const {
    const Needle* needles[2] = {&r.contains1, &r.contains2};
    int32_t at[2] = {r.contains1.len, r.contains2.len};  // look below this offset
    for (bool more = true; more && r.numProbes < kMaxProbes;) {
        more = false;
        for (int k = 0; k < 2 && r.numProbes < kMaxProbes; ++k) {
            const Needle& n = *needles[k];
            int32_t q = at[k] - 1;
            while (q >= 0 && !(IsSeparator(n.text[q]) && n.len - q >= 4)) --q;
            at[k] = q;
            if (q < 0) continue;
            more = true;
            const Probe p =
                n.len - q >= 8 ? Probe{Hash8(n.text + q), kWord8} : Probe{Hash4(n.text + q), kWord4};
            bool dup = false;
            for (int i = 0; i < r.numProbes; ++i)
                dup = dup || (r.probes[i].hash == p.hash && r.probes[i].kind == p.kind);
            if (!dup) r.probes[r.numProbes++] = p;
        }
    }
}

int32_t QzRuleIndex::BuildTrie(const int32_t* groupIndices, int32_t count) {
    const auto root = static_cast<int32_t>(trie_.size());
    trie_.emplace_back();
    for (int32_t i = 0; i < count; ++i) {
        const int32_t g = groupIndices[i];
        const Group& grp = groups_[static_cast<size_t>(g)];
        int32_t node = root;
        for (int32_t k = 0; k < grp.prefixLen; ++k) {
            const auto c = static_cast<unsigned char>(grp.prefix[k]);
            int32_t child = trie_[static_cast<size_t>(node)].firstChild;
            while (child >= 0 && trie_[static_cast<size_t>(child)].byte != c)
                child = trie_[static_cast<size_t>(child)].nextSibling;
            if (child < 0) {
                child = static_cast<int32_t>(trie_.size());
                TrieNode t;
                t.byte = c;
                t.nextSibling = trie_[static_cast<size_t>(node)].firstChild;
                trie_.push_back(t);
                trie_[static_cast<size_t>(node)].firstChild = child;
            }
            node = child;
        }
        // Groups ending at the same node (prefixes alike in their compared
        // part) are chained in array order.
        int32_t* link = &trie_[static_cast<size_t>(node)].group;
        while (*link >= 0) link = &sameKeyNext_[static_cast<size_t>(*link)];
        *link = g;
    }
    return root;
}

void QzRuleIndex::BuildOrThrow(QzExcludeRuleNode* const* groups, int32_t numGroups) {
    rules_.clear();
    ruleKey_.clear();
    doesNotContain_.clear();
    needles_.clear();
    heads_.clear();
    needleIds_.clear();
    headIds_.clear();
    exts_.clear();
    extTable_.clear();
    groups_.assign(static_cast<size_t>(numGroups), Group{});
    starGroup_ = -1;
    // The key table is filled once; a rebuild clears only the keys it set.
    if (keyToBucket_.size() != 65536)
        keyToBucket_.assign(65536, -1);
    else
        for (const uint16_t key : bucketKeys_) keyToBucket_[key] = -1;
    bucketKeys_.clear();
    buckets_.clear();
    bucketGroups_.clear();
    trie_.clear();
    sameKeyNext_.assign(static_cast<size_t>(numGroups), -1);
    byKey_.clear();
    keyOffsets_.clear();
    keyPositions_.clear();
    alwaysBits_.clear();
    matched_.clear();
    matched_.reserve(static_cast<size_t>(numGroups) + 1);
    numLists_ = 0;
    folderLen_ = -1;
    folderPrepared_ = folderUsable_ = lowerHoldsFolder_ = false;
    folderRun_ = 0;

    std::vector<QzExcludeRuleNode*> extNodes;
    std::vector<std::vector<int32_t>> bucketLists;
    for (int32_t gi = 0; gi < numGroups; ++gi) {
        QzExcludeRuleNode* head = groups[gi];
        Group& g = groups_[static_cast<size_t>(gi)];
        extNodes.clear();
        QzExcludeRuleNode* any = nullptr;
        size_t anyAt = 0;
        for (QzExcludeRuleNode* e = head; e; e = e->nextExtension) {
            if (!e->fields.extension.isSet) {
                any = e;
                anyAt = extNodes.size();
            }
            extNodes.push_back(e);
        }
        g.any = AppendRules(any);
        g.extBegin = static_cast<int32_t>(exts_.size());
        for (size_t k = 0; k < extNodes.size(); ++k) {
            QzExcludeRuleNode* e = extNodes[k];
            if (!e->fields.extension.isSet) continue;
            const QzString& ext = e->fields.extension.text;
            // The tree visits this node and the "any" node in chain order.
            const bool anyFirst = any && anyAt < k;
            exts_.push_back(ExtRules{ext.c_str(), ext.Length(), ExtensionHash(ext.c_str(), ext.Length()),
                                     PackWord(ext.c_str(), ext.Length()), AppendRules(e), anyFirst});
        }
        g.extCount = static_cast<int32_t>(exts_.size()) - g.extBegin;
        if (g.extCount > 0) {
            int32_t slots = 4;
            while (slots < 2 * g.extCount) slots *= 2;
            g.extTable = static_cast<int32_t>(extTable_.size());
            g.extMask = slots - 1;
            extTable_.resize(extTable_.size() + static_cast<size_t>(slots), -1);
            for (int32_t i = g.extBegin; i < g.extBegin + g.extCount; ++i) {
                uint32_t slot = exts_[static_cast<size_t>(i)].hash & static_cast<uint32_t>(g.extMask);
                while (extTable_[static_cast<size_t>(g.extTable) + slot] >= 0)
                    slot = (slot + 1) & static_cast<uint32_t>(g.extMask);
                extTable_[static_cast<size_t>(g.extTable) + slot] = i;
            }
        }

        const QzRuleText& prefix = head->fields.prefix;
        if (!prefix.isSet) {
            starGroup_ = gi;
            continue;
        }
        g.prefix = prefix.text.c_str();
        g.prefixLen = prefix.text.Length() < QzRuleTree::kMaxPrefixCompare ? prefix.text.Length()
                                                                           : QzRuleTree::kMaxPrefixCompare;
        const auto k2 = static_cast<unsigned char>(prefix.text.Length() > 2 ? prefix.text[2] : 0);
        const auto k3 = static_cast<unsigned char>(prefix.text.Length() > 3 ? prefix.text[3] : 0);
        const auto key = static_cast<uint16_t>((k2 << 8) | k3);
        int32_t& b = keyToBucket_[key];
        if (b < 0) {
            bucketKeys_.push_back(key);  // first: a build that fails later leaves no key uncleared
            b = static_cast<int32_t>(bucketLists.size());
            bucketLists.emplace_back();
        }
        bucketLists[static_cast<size_t>(b)].push_back(gi);
    }
    for (const std::vector<int32_t>& list : bucketLists) {
        Bucket bucket;
        bucket.groupsBegin = static_cast<int32_t>(bucketGroups_.size());
        bucket.groupsCount = static_cast<int32_t>(list.size());
        bucketGroups_.insert(bucketGroups_.end(), list.begin(), list.end());
        if (bucket.groupsCount > kLinearBucketLimit)
            bucket.trieRoot = BuildTrie(list.data(), bucket.groupsCount);
        buckets_.push_back(bucket);
    }
    needleIds_.clear();  // they name texts of the tree, which may change before the next build
    headIds_.clear();
    IndexByLastGram(needles_, &needleIndex_);
    IndexByLastGram(heads_, &headIndex_);
    folderPresent_.assign((needles_.size() + 63) / 64, 0);
    folderHeads_.assign((heads_.size() + 63) / 64, 0);
    prevPresent_ = folderPresent_;
    prevHeads_ = folderHeads_;
    prepLen_ = 0;
    folderFound_.clear();
    haveSurvivors_ = false;
    folderLists_.assign(static_cast<size_t>(numLists_), FolderList{});
    folderStamp_ = 0;
    folderGroups_.reserve(static_cast<size_t>(numGroups) + 1);
}
