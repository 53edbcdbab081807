// File statistics: every file the exclusion rules select is counted by
// category while the lists are written, and the counts are kept in
// "filestats.xml" ("filestats.xml.future" while a scan is in progress) where
// the installer and the client read how much the user has of each kind.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>

#include "QzInfoManager.h"
#include "QzString.h"

namespace QzFileStats {

// The counted categories, in the order they are written.
enum Category {
    kDocs,
    kSpreadsheets,
    kPresentations,
    kFinancial,
    kPictures,
    kMusic,
    kVideo,
    kEmail,
    kZips,
    kBrowserFavorites,
    kOther,
    kEverything,
    kNumCategories
};

struct Counters {
    int64_t num[kNumCategories] = {};
    int64_t bytes[kNumCategories] = {};
};

// Which categories hold an extension: one look-up per selected file, without
// building a string. An extension in several file sets counts in each.
class CategoryTable {
public:
    void Build(const QzInfoManager::QzFileSetHashes& hashes);
    // Bit i set for category i (kDocs .. kBrowserFavorites); 0 when none.
    uint32_t CategoriesOf(std::string_view lowerExtension) const;

private:
    struct Hash {
        using is_transparent = void;
        size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
    };
    std::unordered_map<std::string, uint32_t, Hash, std::equal_to<>> masks_;
};

// Adds one selected file: "everything" always, each category holding its
// lower-cased extension, or "other" when it has an extension that none holds.
void CountSelectedFile(const CategoryTable& table, const QzString& fullPath, int64_t size,
                       Counters* counters);

// What the "info" element says besides the counters.
struct Identity {
    QzString accountName;          // "aonlinename"
    QzString osDetail;             // "osdetail"
    QzString hostGuid;             // "hguid"
    QzString accountHguid;         // "ahguid"
    QzString accountHguidCreated;  // "ahguidcreated"
};
// From the settings file and this machine's host identifier.
void ReadIdentity(Identity* identityRet);

// Writes the statistics to `path` (through path + ".tmp" and an atomic move).
// totallyFinal marks the write that ends a complete scan; it logs the "info" line.
bool WriteFileStatsOut(const QzString& path, const Counters& counters, const Identity& identity,
                       bool goodForInstaller, bool totallyFinal);
// The whole text the writer produces (tests compare it).
QzString FileStatsXmlText(const Counters& counters, const Identity& identity, int64_t gmtMillis,
                          bool goodForInstaller, bool totallyFinal);
// A resumed scan takes its counts back from the checkpoint. The picture
// counters are looked up as "picturesnum" and "picturestotbytes", which the
// writer never writes, so they start again from zero.
bool ReadFileStatsBack(const QzString& path, Counters* counters);

}  // namespace QzFileStats
