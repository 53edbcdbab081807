// File sets (named groups of extensions offered by the control panel), the
// statistics categories built from them, and the directories to watch.
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileXml.h"
#include "QzInfoManager.h"
#include "QzLog.h"
#include "QzRuleFiles.h"
#include "QzSystem.h"
#include "QzTime.h"

namespace {

using QzInfoManager::QzFileSetDef;

constexpr size_t kMaxAnnouncedFileSets = 150;
constexpr size_t kFileSetsKeptWhenClipping = 149;  // one fewer than announced, as it always was
constexpr int32_t kMaxDirFilters = 9999;

// The empty "excludefiletypes" warning: nine times in full, then one in a
// hundred, until ten minutes pass without one.
constexpr int64_t kWarningsBeforeLowRate = 9;
constexpr int64_t kLowRateEvery = 100;
constexpr int64_t kQuietSpellMillis = 10 * 60 * 1000;

struct WarningSuppressionRecord {
    int64_t lastMillis = 0;
    int64_t count = 0;
    bool rateIsLow = false;
};
WarningSuppressionRecord* g_emptyTypesWarning = nullptr;

void Log(const QzString& line) {
    QzLog::WriteLine(line);
}

void SplitAtCommas(const QzString& text, std::vector<QzString>* items) {
    int32_t from = 0;
    for (;;) {
        const int32_t comma = text.Find(",", from);
        const int32_t end = comma < 0 ? text.Length() : comma;
        if (end > from) items->emplace_back(text.c_str() + from, end - from);
        if (comma < 0) return;
        from = comma + 1;
    }
}

void ParseFileSetDefs(std::vector<QzString>& elements, std::vector<QzFileSetDef>* defs) {
    if (elements.size() > kMaxAnnouncedFileSets) {
        Log("too many filesetdef definitions, 150 is the max, clipping to 150!");
        elements.resize(kFileSetsKeptWhenClipping);
    }
    for (const QzString& element : elements) {
        QzFileSetDef def;
        if (!QzFile::GetUniqueStrAttrFromXmlSnippet(element, "filesetname", &def.name)) {
            Log(QzCat("QzFile::GetUniqueStrAttrFromXmlSnippet NO filesetdefs name",
                      "in this filesetdef snippet:", element));
            continue;
        }
        QzString extensions;
        if (QzFile::GetUniqueStrAttrFromXmlSnippet(element, "extensions", &extensions))
            SplitAtCommas(extensions, &def.extensions);
        defs->push_back(std::move(def));
    }
}

bool FileSetDefsFromText(const QzString& path, const QzString& text, std::vector<QzFileSetDef>* defs) {
    defs->clear();
    std::vector<QzString> elements;
    if (!QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "filesetdef",
                                                       &elements)) {
        Log(QzCat("QzFile::GetAllXmlSnippetsWithTagNameInXmlFile NO filesetdefs in", "qzinfoFile:", path));
        return false;
    }
    ParseFileSetDefs(elements, defs);
    return true;
}

bool FileSetDefsFromFile(const QzString& path, std::vector<QzFileSetDef>* defs) {
    QzString text, err;
    if (!QzFile::ReadEntireFile(path.c_str(), &text, &err)) text.Clear();
    return FileSetDefsFromText(path, text, defs);
}

void WarnEmptyExcludeFileTypes(const QzString& path) {
    if (!g_emptyTypesWarning) {
        Log("Initializing warningSuppressionTimerRecord.");
        g_emptyTypesWarning = new WarningSuppressionRecord;
    }
    WarningSuppressionRecord& r = *g_emptyTypesWarning;
    const int64_t now = QzTime::GetCurrentGmtMillis();
    if (r.count > 0 && now - r.lastMillis >= kQuietSpellMillis) {
        if (r.rateIsLow) Log("INFO: QzInfoManager::ParseQzInfoForFilesToWatch logging resuming normal rate.");
        r.count = 0;
        r.rateIsLow = false;
    }
    r.lastMillis = now;
    ++r.count;
    if (r.count == kWarningsBeforeLowRate + 1) {
        Log("INFO: QzInfoManager::ParseQzInfoForFilesToWatch logging rate is forced low to prevent log "
            "clutter.");
        r.rateIsLow = true;
        return;
    }
    if (r.count <= kWarningsBeforeLowRate || r.count % kLowRateEvery == 0)
        Log(QzCat("WARNING: QzInfoManager::ParseQzInfoForFilesToWatch processId=", QzSystem::GetProcessId(),
                  ")  excludefiletypes val zero len (hitWarningCount=", static_cast<long long>(r.count),
                  ") in qzinfo file :", path));
}

}  // namespace

namespace QzRuleFiles {
void ResetFilesToWatchWarningForTesting() {
    delete g_emptyTypesWarning;
    g_emptyTypesWarning = nullptr;
}
}  // namespace QzRuleFiles

namespace QzInfoManager {

const char* const QzFileSetHashes::kCategoryNames[kNumCategories] = {
    "docs",  "spreadsheets", "presentations", "financial", "pictures",
    "music", "video",        "email",         "zips",      "browserfavorites",
};

uint32_t QzFileSetHashes::CategoriesOf(const QzString& lowerExtension) const {
    uint32_t bits = 0;
    for (int i = 0; i < kNumCategories; ++i)
        if (extensions[i].count(lowerExtension)) bits |= 1u << i;
    return bits;
}

bool ExtensionFromListEntry(const QzString& entry, QzString* extensionRet) {
    int32_t b = 0, e = entry.Length();
    while (b < e && (entry[b] == ' ' || entry[b] == '\t')) ++b;
    while (e > b && (entry[e - 1] == ' ' || entry[e - 1] == '\t')) --e;
    if (b < e && entry[b] == '.') ++b;
    if (!extensionRet->Set(entry.c_str() + b, e - b) || extensionRet->IsEmpty()) return false;
    for (const char c : {'*', '\\', '/', '|', '<', '>'})
        if (extensionRet->Find(QzString(&c, 1).c_str()) >= 0) return false;
    return true;
}

bool GetAllFileSetDefsFromQzInfoFile(const QzString& qzinfoPath, std::vector<QzFileSetDef>* defsRet) {
    return FileSetDefsFromFile(qzinfoPath, defsRet);
}

bool GetAllFileSetDefsFromQzInfoFile(std::vector<QzFileSetDef>* defsRet) {
    return FileSetDefsFromFile(QzRuleFiles::QzInfoPath(QzFile::GetDataDir()), defsRet);
}

bool ParseQzInfoForFileSetHashes(const QzString& qzinfoPath, QzFileSetHashes* hashesRet) {
    for (auto& set : hashesRet->extensions) set.clear();
    std::vector<QzFileSetDef> defs;
    if (!FileSetDefsFromFile(qzinfoPath, &defs)) return false;
    for (int i = 0; i < QzFileSetHashes::kNumCategories; ++i) {
        for (const QzFileSetDef& def : defs) {
            if (!def.name.Equals(QzFileSetHashes::kCategoryNames[i])) continue;
            for (const QzString& ext : def.extensions) {
                QzString e;
                if (!ExtensionFromListEntry(ext, &e)) continue;
                char* d = e.Data();
                for (int32_t k = 0; k < e.Length(); ++k)
                    d[k] = static_cast<char>(QzStringUtil::ToLower(static_cast<unsigned char>(d[k])));
                hashesRet->extensions[i].insert(std::move(e));
            }
        }
    }
    return true;
}

bool ParseQzInfoForFileSetHashes(QzFileSetHashes* hashesRet) {
    return ParseQzInfoForFileSetHashes(QzRuleFiles::QzInfoPath(QzFile::GetDataDir()), hashesRet);
}

bool ParseQzInfoForFilesToWatch(const QzString& path, const QzString& text, QzFilesToWatch* watchRet) {
    QzFilesToWatch& w = *watchRet;
    w = QzFilesToWatch();
    QzString types;
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(text, "excludefiletypes", &types))
        Log(QzCat("ERROR: no excludefiletypes tag in qzinfo file:", path));
    else if (types.IsEmpty())
        WarnEmptyExcludeFileTypes(path);
    else
        w.excludeFileTypes = std::move(types);

    std::vector<QzString> blocks;
    if (!QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), "do_backup", &blocks))
        Log(QzCat("QzFile::GetAllXmlSnippetsWithTagNameInXmlFile NO top level dirs",
                  "to watch in qzinfoFile:", path));

    if (QzFile::GetUniqueStrAttrFromXmlSnippet(text, "smartwatchfilesets", &w.smartWatchFileSets))
        Log(QzCat("Found these smartwatch filesets in qzinfo:", w.smartWatchFileSets));
    else
        Log(QzCat("no smartwatchfilesets in qzinfo.xml file:", path));

    std::vector<QzFileSetDef> defs;
    if (!blocks.empty()) FileSetDefsFromText(path, text, &defs);
    auto isFileSet = [&defs](const QzString& name) {
        for (const QzFileSetDef& d : defs)
            if (d.name.Equals(name)) return true;
        return false;
    };
    int32_t taken = 0;
    for (size_t b = 0; b < blocks.size(); ++b) {
        if (b > 0 && taken >= kMaxDirFilters) {
            Log(QzCat("ERROR: parsing qzinfo.xml, found more than ", "QZ_INFO_MAX_NUM_DIR_FILTERS=",
                      kMaxDirFilters, " qzdirfilters, so ignoring the rest - location B"));
            break;
        }
        std::vector<QzString> filters;
        QzFile::GetAllXmlSnippetsWithTagNameInXmlText(blocks[b].c_str(), blocks[b].Length(), "qzdirfilter",
                                                      &filters);
        bool full = false;
        for (const QzString& filter : filters) {
            if (taken >= kMaxDirFilters) {
                Log(QzCat("ERROR: parsing qzinfo.xml, found more than ", "QZ_INFO_MAX_NUM_DIR_FILTERS=",
                          kMaxDirFilters, " qzdirfilters, so ignoring the rest - location A"));
                full = true;
                break;
            }
            QzWatchedDir d;
            if (!QzFile::GetUniqueStrAttrFromXmlSnippet(filter, "dir", &d.dir)) {
                Log(QzCat("QzFile::GetUniqueStrAttrFromXmlSnippet NO dir",
                          "in this qzdirfilter snippet:", filter));
                continue;
            }
            if (!QzFile::GetUniqueStrAttrFromXmlSnippet(filter, "whichfiles", &d.whichFiles)) {
                Log(QzCat("QzFile::GetUniqueStrAttrFromXmlSnippet NO whichfiles",
                          "in this qzdirfilter snippet:", filter));
                continue;
            }
            d.excluded = d.whichFiles.EqualsIgnoreCase("none");
            if (!d.excluded && !isFileSet(d.whichFiles)) {
                Log(QzCat("ERROR: parsing qzinfo.xml, a qzdirfilter",
                          "contains a fileset that does not make sense:", d.whichFiles,
                          ", qzdirfilter=", filter));
                continue;
            }
            w.dirs.push_back(std::move(d));
            ++taken;
        }
        if (full) break;
    }
    return true;
}

bool ParseQzInfoForFilesToWatch(QzFilesToWatch* watchRet) {
    const QzString path = QzRuleFiles::QzInfoPath(QzFile::GetDataDir());
    QzString text, err;
    if (!QzFile::ReadEntireFile(path.c_str(), &text, &err)) {
        Log(QzCat("ERROR: QzInfoManager::ParseQzInfoForFilesToWatch could not read qzinfo.xml file:", path,
                  ", err=", err));
        *watchRet = QzFilesToWatch();
        return false;
    }
    return ParseQzInfoForFilesToWatch(path, text, watchRet);
}

}  // namespace QzInfoManager
