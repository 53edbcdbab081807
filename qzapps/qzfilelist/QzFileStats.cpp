#include "QzFileStats.h"

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileRead.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"
#include "QzLog.h"
#include "QzSystem.h"
#include "QzTime.h"
#include "QzUtil.h"

namespace QzFileStats {

namespace {

// Attribute names of the counters in file order: count, then bytes.
struct CounterNames {
    const char* num;
    const char* bytes;
};
constexpr CounterNames kWrittenNames[kNumCategories] = {
    {"docsnum", "docstotbytes"},
    {"spreadsheetsnum", "spreadsheetstotbytes"},
    {"presentationsnum", "presentationstotbytes"},
    {"financialnum", "financialtotbytes"},
    {"pictnum", "picttotbytes"},
    {"musicnum", "musictotbytes"},
    {"videonum", "videototbytes"},
    {"emailnum", "emailtotbytes"},
    {"zipsnum", "zipstotbytes"},
    {"browserfavoritesnum", "browserfavoritestotbytes"},
    {"othernum", "othertotbytes"},
    {"everythingnum", "everythingtotbytes"},
};

// The reader's names: the same except for the pictures, whose names the
// writer has never used. Kept so: the client relies on restarted picture counts.
CounterNames ReadName(int i) {
    if (i == kPictures) return {"picturesnum", "picturestotbytes"};
    return kWrittenNames[i];
}

}  // namespace

void CategoryTable::Build(const QzInfoManager::QzFileSetHashes& hashes) {
    masks_.clear();
    for (int i = 0; i < QzInfoManager::QzFileSetHashes::kNumCategories && i < kOther; ++i)
        for (const QzString& ext : hashes.extensions[i])
            masks_[std::string(ext.c_str(), static_cast<size_t>(ext.Length()))] |= 1u << i;
}

uint32_t CategoryTable::CategoriesOf(std::string_view lowerExtension) const {
    if (masks_.empty()) return 0;
    const auto it = masks_.find(lowerExtension);
    return it == masks_.end() ? 0 : it->second;
}

void CountSelectedFile(const CategoryTable& table, const QzString& fullPath, int64_t size, Counters* c) {
    ++c->num[kEverything];
    c->bytes[kEverything] += size;
    // The extension is what follows the last period of the name.
    const char* p = fullPath.c_str();
    int32_t dot = -1;
    for (int32_t i = fullPath.Length() - 1; i >= 0; --i) {
        if (p[i] == '.') {
            dot = i;
            break;
        }
        if (p[i] == '\\' || p[i] == '/') break;
    }
    if (dot < 0 || dot + 1 >= fullPath.Length()) return;
    char lower[64];
    const int32_t n = fullPath.Length() - dot - 1;
    uint32_t mask = 0;
    if (n <= static_cast<int32_t>(sizeof lower)) {
        for (int32_t i = 0; i < n; ++i)
            lower[i] = static_cast<char>(QzStringUtil::ToLower(static_cast<unsigned char>(p[dot + 1 + i])));
        mask = table.CategoriesOf(std::string_view(lower, static_cast<size_t>(n)));
    }
    if (mask == 0) {
        ++c->num[kOther];
        c->bytes[kOther] += size;
        return;
    }
    for (int i = 0; i < kOther; ++i) {
        if (mask & (1u << i)) {
            ++c->num[i];
            c->bytes[i] += size;
        }
    }
}

void ReadIdentity(Identity* id) {
    const QzSettings& s = QzInfoManager::Settings();
    id->accountName = s.qzLogin;
    QzSystem::DescribeOperatingSystem(&id->osDetail);
    id->hostGuid = QzFile::GetMyHostGuid();
    // The account's host identifier and its creation time are kept in the
    // settings by the control panel; without them this machine's stands in.
    const QzString settings = QzFile::DataPath(QzFile::DataFile::Settings);
    if (!QzFile::GetUniqueStrAttrFromXmlFile(settings.c_str(), "ahguid", &id->accountHguid))
        id->accountHguid = id->hostGuid;
    if (!QzFile::GetUniqueStrAttrFromXmlFile(settings.c_str(), "ahguidcreated", &id->accountHguidCreated))
        id->accountHguidCreated = "unknown";
}

QzString FileStatsXmlText(const Counters& c, const Identity& id, int64_t gmtMillis, bool goodForInstaller,
                          bool totallyFinal) {
    QzString t;
    t.Append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<filestats>\n");
    t.Append(QzCat("<progress good_for_installer=\"", goodForInstaller ? "true" : "false",
                   "\" totally_final=\"", totallyFinal ? "true" : "false", "\" />\n"));
    t.Append("<info datetime=\"");
    if (gmtMillis >= 0)
        QzTime::AppendDateTime14(t, gmtMillis);
    else
        t.Append("bad_date");
    t.Append("\" aonlinename=\"");
    QzUtil::AppendXmlEscaped(t, id.accountName);
    t.Append("\" plat=\"win32\" osdetail=\"");
    QzUtil::AppendXmlEscaped(t, id.osDetail);
    t.Append(QzCat("\" hguid=\"", id.hostGuid, "\" ahguid=\"", id.accountHguid, "\" ahguidcreated=\"",
                   id.accountHguidCreated, "\""));
    for (int i = 0; i < kNumCategories; ++i) {
        t.Append(QzCat(" ", kWrittenNames[i].num, "=\"", static_cast<long long>(c.num[i]), "\" ",
                       kWrittenNames[i].bytes, "=\"", static_cast<long long>(c.bytes[i]), "\""));
    }
    t.Append("/>\n</filestats>\n");
    return t;
}

bool WriteFileStatsOut(const QzString& path, const Counters& counters, const Identity& identity,
                       bool goodForInstaller, bool totallyFinal) {
    const QzString text =
        FileStatsXmlText(counters, identity, QzTime::GetCurrentGmtMillis(), goodForInstaller, totallyFinal);
    const int32_t infoAt = text.Find("<info ");
    if (infoAt < 0) {
        QzLog::WriteLine("ERROR, no <info> lines A in XML");
        return false;
    }
    QzFile::ReplaceResult result;
    if (!QzFile::WriteFileAtomically(path, text, QzFile::ReplacePolicy{}, &result)) {
        QzLog::WriteLine(QzCat(result.written ? "ERROR: WriteFileStatsOut, could not AtomicMove file: "
                                              : "ERROR: WriteFileStatsOut, could not write out file: ",
                               path));
        return false;
    }
    if (totallyFinal) {
        const int32_t end = text.Find("\n", infoAt);
        if (end < 0) {
            QzLog::WriteLine("ERROR, no <info> lines Bin XML");
            return true;
        }
        QzLog::WriteLine(QzCat("Leaving WriteFileStatsXmlOut to final file, stats:",
                               QzString(text.c_str() + infoAt, end - infoAt)));
    }
    return true;
}

bool ReadFileStatsBack(const QzString& path, Counters* counters) {
    QzString text, err;
    if (QzFile::ReadFilePatiently(path.c_str(), &text, QzFile::ReadPolicy{}, &err) != QzFile::ReadStatus::Ok)
        return false;
    QzString value;
    for (int i = 0; i < kNumCategories; ++i) {
        const CounterNames names = ReadName(i);
        int64_t v = 0;
        if (QzFile::GetUniqueStrAttrFromXmlSnippet(text, names.num, &value) &&
            QzUtil::ParseDecimal(value, &v))
            counters->num[i] = v;
        if (QzFile::GetUniqueStrAttrFromXmlSnippet(text, names.bytes, &value) &&
            QzUtil::ParseDecimal(value, &v))
            counters->bytes[i] = v;
    }
    return true;
}

}  // namespace QzFileStats
