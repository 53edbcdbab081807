// The exclusion decision for one path against the index's lists; see
// QzRuleIndex.h. The decision's entry and its folder part are in
// QzRuleIndexFolder.cpp. It must give exactly the rule the tree walk
// (QzRuleTree::FindExcludingRuleByWalkingTheTree) gives.
#include "QzRuleIndex.h"

#include "QzRuleTree.h"

using namespace QzRuleIndexWords;

// The length of the path's folder part: up to and including its last "\"
// or "/", eight bytes at a time from the end.
int32_t QzRuleIndex::FolderPartLength(const char* path, int32_t len) {
    int32_t end = len;
    if (kLittleEndian) {
        for (; end >= 8; end -= 8) {
            const uint64_t w = Load64(path + end - 8);
            const uint64_t m = BytesEqual(w, '\\') | BytesEqual(w, '/');
            if (m) return end - 8 + (63 - std::countl_zero(m)) / 8 + 1;
        }
    }
    while (end > 0 && path[end - 1] != '\\' && path[end - 1] != '/') --end;
    return end;
}

// Groups are visited in array order; there are only a few.
void QzRuleIndex::SortGroups(std::vector<int32_t>& groups) {
    for (size_t a = 1; a < groups.size(); ++a) {
        const int32_t v = groups[a];
        size_t k = a;
        for (; k > 0 && groups[k - 1] > v; --k) groups[k] = groups[k - 1];
        groups[k] = v;
    }
}

void QzRuleIndex::CollectTrieMatches(int32_t root) {
    const char* s = lower_.c_str() + 1;  // prefixes are compared from the path's second character
    int32_t limit = len_ - 1;
    if (limit > QzRuleTree::kMaxPrefixCompare) limit = QzRuleTree::kMaxPrefixCompare;
    int32_t node = root;
    for (int32_t i = 0; i < limit; ++i) {
        const auto c = static_cast<unsigned char>(s[i]);
        int32_t child = trie_[static_cast<size_t>(node)].firstChild;
        while (child >= 0 && trie_[static_cast<size_t>(child)].byte != c)
            child = trie_[static_cast<size_t>(child)].nextSibling;
        if (child < 0) return;
        node = child;
        for (int32_t g = trie_[static_cast<size_t>(node)].group; g >= 0;
             g = sameKeyNext_[static_cast<size_t>(g)])
            matched_.push_back(g);
    }
}

// The extension: after the last period of the final name component, folded.
// Periods and separators are the same in the path as given and folded.
void QzRuleIndex::PrepareExtension() {
    haveExt_ = true;
    const char* p = path_;
    int32_t start = len_;
    if (nameStart_ >= 0) {
        // Within a folder the name holds no separator. Most extensions lie
        // in the last eight bytes: one word tells where the last "." is.
        int32_t i = len_ - 1;
        if (kLittleEndian && len_ - 8 >= nameStart_) {
            const uint64_t dots = BytesEqual(Load64(p + len_ - 8), '.');
            if (dots) {
                start = len_ - 8 + (63 - std::countl_zero(dots)) / 8 + 1;
                i = -1;
            } else {
                i = len_ - 9;
            }
        }
        for (; i >= nameStart_; --i) {
            if (p[i] == '.') {
                start = i + 1;
                break;
            }
        }
    } else {
        for (int32_t i = len_ - 1; i >= 0 && p[i] != '\\' && p[i] != '/'; --i) {
            if (p[i] == '.') {
                start = i + 1;
                break;
            }
        }
    }
    extLen_ = len_ - start;
    if (kLittleEndian && extLen_ <= 8 && len_ >= 8) {
        // The extension ends the path: its word is the path's last eight
        // bytes without those before it, folded.
        const uint64_t last = Load64(p + len_ - 8);
        extWord_ = extLen_ == 0 ? 0 : LowerAscii8(last >> (8 * (8 - extLen_)));
        extHash_ = WordHash(extWord_, extLen_);
        ext_ = nullptr;  // an extension of up to eight bytes compares by its word
        return;
    }
    if (extLen_ <= kExtBufSize) {
        for (int32_t i = 0; i < extLen_; ++i)
            extBuf_[i] = static_cast<char>(QzStringUtil::ToLower(static_cast<unsigned char>(p[start + i])));
        ext_ = extBuf_;
    } else {
        EnsureLower();
        ext_ = lower_.c_str() + start;
    }
    extHash_ = ExtensionHash(ext_, extLen_);
    extWord_ = PackWord(ext_, extLen_);
}

// Sets the bit of one of the path's words (a key of kind kWord4 or kWord8).
inline void QzRuleIndex::SetWordBit(uint32_t key) {
    words_[key >> kHashBits][(key & (kHashSize - 1)) >> 6] |= 1ULL << (key & 63);
}

// Finds the path's separators and hashes the four and eight bytes from each.
// The separators and words that lie wholly within the bytes this path shares
// with the previous one are taken over from it.
void QzRuleIndex::PrepareWords() {
    haveWords_ = true;
    EnsureLower();
    std::memset(words_, 0, sizeof words_);
    if (separators_.size() < static_cast<size_t>(len_)) {
        separators_.resize(static_cast<size_t>(len_));
        keysThroughSeparator_.resize(static_cast<size_t>(len_));
        pathKeys_.resize(2 * static_cast<size_t>(len_));
    }
    const char* p = lower_.c_str();
    int32_t* seps = separators_.data();
    int32_t* keysThrough = keysThroughSeparator_.data();
    uint16_t* keys = pathKeys_.data();

    int32_t common = 0;
    const int32_t shorter = len_ < wordsPathLen_ ? len_ : wordsPathLen_;
    const char* prev = wordsPath_.data();
    while (common + 8 <= shorter && Load64(p + common) == Load64(prev + common)) common += 8;
    while (common < shorter && p[common] == prev[common]) ++common;
    int32_t n = 0;
    while (n < numSeparators_ && seps[n] + 8 <= common) ++n;
    const int32_t k0 = n > 0 ? keysThrough[n - 1] : 0;
    // The next file of the same folder keeps at least the folder's words.
    int32_t j = 0;
    if (folderKeys_ >= 0 && n >= folderSeparators_) {
        std::memcpy(words_, folderWords_, sizeof words_);
        j = folderKeys_;
    } else {
        folderKeys_ = -1;
    }
    for (; j < k0; ++j) SetWordBit(keys[j]);
    int32_t k = k0;
    const int32_t firstNew = n;

    int32_t i = n > 0 ? seps[n - 1] + 1 : 0;
    if (kLittleEndian) {
        for (; i + 8 <= len_; i += 8) {
            const uint64_t w = Load64(p + i);
            for (uint64_t m = BytesEqual(w, '\\') | BytesEqual(w, '/') | BytesEqual(w, ':'); m; m &= m - 1)
                seps[n++] = i + std::countr_zero(m) / 8;
        }
    }
    for (; i < len_; ++i)
        if (IsSeparator(p[i])) seps[n++] = i;
    numSeparators_ = n;

    for (int32_t s = firstNew; s < n; ++s) {
        const int32_t at = seps[s];
        if (at + 4 <= len_) {
            const uint16_t h4 = Hash4(p + at);
            words_[kWord4][h4 >> 6] |= 1ULL << (h4 & 63);
            keys[k++] = static_cast<uint16_t>(kWord4 * kHashSize + h4);
            if (at + 8 <= len_) {
                const uint16_t h8 = Hash8(p + at);
                words_[kWord8][h8 >> 6] |= 1ULL << (h8 & 63);
                keys[k++] = static_cast<uint16_t>(kWord8 * kHashSize + h8);
            }
        }
        keysThrough[s] = k;
    }
    numPathKeys_ = k;

    // The words that end within the folder part (up to the last separator),
    // kept for the folder's next files.
    const int32_t folderEnd = n > 0 ? seps[n - 1] + 1 : 0;
    int32_t f = 0;
    while (f < n && seps[f] + 8 <= folderEnd) ++f;
    if (folderKeys_ < 0 || f != folderSeparators_) {
        folderSeparators_ = f;
        folderKeys_ = f > 0 ? keysThrough[f - 1] : 0;
        std::memset(folderWords_, 0, sizeof folderWords_);
        for (int32_t i2 = 0; i2 < folderKeys_; ++i2) {
            const uint32_t key = keys[i2];
            folderWords_[key >> kHashBits][(key & (kHashSize - 1)) >> 6] |= 1ULL << (key & 63);
        }
    }

    if (wordsPath_.size() < static_cast<size_t>(len_) + 1) wordsPath_.resize(static_cast<size_t>(len_) + 1);
    std::memcpy(wordsPath_.data(), p, static_cast<size_t>(len_));
    wordsPathLen_ = len_;
}

// A text with a separator can only lie where its separator meets one of the
// path's; one without is searched for byte by byte.
bool QzRuleIndex::Contains(const Needle& n) {
    if (n.len <= 0 || n.len > len_) return false;
    EnsureLower();
    const char* p = lower_.c_str();
    if (n.separator < 0) return ContainsFrom(p, len_, n.text, n.len);
    if (!haveWords_) PrepareWords();
    for (int32_t s = 0; s < numSeparators_; ++s) {
        const int32_t start = separators_[static_cast<size_t>(s)] - n.separator;
        if (start < 0) continue;
        if (start + n.len > len_) return false;
        if (SameBytes(p + start, n.text, n.len)) return true;
    }
    return false;
}

bool QzRuleIndex::MayHold(Probe key) {
    switch (key.kind) {
        case kWord4:
        case kWord8:
            if (!haveWords_) PrepareWords();
            return (words_[key.kind][key.hash >> 6] >> (key.hash & 63)) & 1;
        case kTail:
            return key.hash == tailHash_;
        default:
            return true;
    }
}

bool QzRuleIndex::RuleHolds(const Rule& r) {
    if (r.never) return false;
    EnsureLower();
    const char* p = lower_.c_str();
    if (r.endsWith.len > 0) {
        if (r.endsWith.len > len_ || (tail_ & r.endMask) != r.endTail) return false;
        if (r.endsWith.len > 8 && !SameBytes(p + len_ - r.endsWith.len, r.endsWith.text, r.endsWith.len - 8))
            return false;
    }
    for (int i = 0; i < r.numProbes; ++i)
        if (!MayHold(r.probes[i])) return false;
    if (r.contains1.len >= 0 && !Contains(r.contains1)) return false;
    if (r.contains2.len >= 0 && !Contains(r.contains2)) return false;
    for (int32_t i = 0; i < r.dncCount; ++i)
        if (Contains(doesNotContain_[static_cast<size_t>(r.dncBegin + i)])) return false;
    return true;
}

QzExcludeRuleNode* QzRuleIndex::TestList(const List& list) {
    if (list.byKey < 0) {
        // Most rules fail on their key; that test runs over a packed array and
        // only the survivors are tested in full.
        const Probe* keys = ruleKey_.data() + list.begin;
        for (int32_t i = 0; i < list.count; ++i) {
            if (!MayHold(keys[i])) continue;
            const Rule& r = rules_[static_cast<size_t>(list.begin + i)];
            if (RuleHolds(r)) return r.node;
        }
        return nullptr;
    }
    // A long list: mark the rules whose key the path shows, then test those
    // (and the rules without a key) in list order.
    const ByKey& bk = byKey_[static_cast<size_t>(list.byKey)];
    uint64_t* cand = candidates_.data();
    std::memcpy(cand, alwaysBits_.data() + bk.alwaysBits, static_cast<size_t>(bk.words) * 8);
    if (!haveWords_) PrepareWords();
    const int32_t* offsets = keyOffsets_.data() + bk.offsets;
    auto mark = [&](int key) {
        for (int32_t k = offsets[key]; k < offsets[key + 1]; ++k) {
            const int32_t pos = keyPositions_[static_cast<size_t>(k)];
            cand[pos >> 6] |= 1ULL << (pos & 63);
        }
    };
    for (int32_t i = 0; i < numPathKeys_; ++i) mark(pathKeys_[static_cast<size_t>(i)]);
    if (tailHash_ < kHashSize) mark(kTail * kHashSize + tailHash_);
    for (int32_t w = 0; w < bk.words; ++w) {
        for (uint64_t m = cand[w]; m; m &= m - 1) {
            const Rule& r = rules_[static_cast<size_t>(list.begin + w * 64 + std::countr_zero(m))];
            if (RuleHolds(r)) return r.node;
        }
    }
    return nullptr;
}

// The lower-case copy (from a given offset on: the bytes before it are
// there already), eight bytes at a time.
void QzRuleIndex::LowerPath(const char* path, int32_t len, int32_t from) {
    char* d = lower_.Data();
    int32_t i = from;
    for (; i + 8 <= len; i += 8) {
        const uint64_t w = LowerAscii8(Load64(path + i));
        std::memcpy(d + i, &w, 8);
    }
    if (i < len && len >= 8 && from <= len - 8) {
        // The last bytes as one word ending at the path's end; folding twice changes nothing.
        const uint64_t w = LowerAscii8(Load64(path + len - 8));
        std::memcpy(d + len - 8, &w, 8);
        i = len;
    }
    for (; i < len; ++i) d[i] = static_cast<char>(QzStringUtil::ToLower(static_cast<unsigned char>(path[i])));
    lower_.SetLength(len);
    lowerValid_ = true;
}

// What every rule test reads first: the path's length, its folded last
// bytes and their hash. The lower-case copy is made when a test needs it.
void QzRuleIndex::PrepareTail(const char* path, int32_t len) {
    path_ = path;
    len_ = len;
    nameStart_ = -1;
    haveExt_ = haveWords_ = lowerValid_ = false;
    char last[8] = {};
    const int32_t n = len < 8 ? len : 8;
    if (n == 8) {
        const uint64_t w = LowerAscii8(Load64(path + len - 8));
        std::memcpy(last, &w, 8);
    } else {
        for (int32_t i = 0; i < n; ++i)
            last[i] = static_cast<char>(QzStringUtil::ToLower(static_cast<unsigned char>(path[len - n + i])));
    }
    tail_ = PackedTail(last, n);
    tailHash_ = len >= 4 ? Hash4(last + n - 4) : 0xFFFF;
}

void QzRuleIndex::EnsureLower() {
    if (lowerValid_) return;
    LowerPath(path_, len_, lowerHoldsFolder_ ? folderLen_ : 0);
    lowerHoldsFolder_ = true;
}
