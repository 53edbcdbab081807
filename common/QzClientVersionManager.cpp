#include "QzClientVersionManager.h"

#include <climits>
#include <vector>

#include "QzDataPaths.h"
#include "QzFile.h"
#include "QzFileLocations.h"
#include "QzFileXml.h"
#include "QzLog.h"
#include "QzVersion.h"

QzClientVersionManager::QzClientVersionManager() {
    ReadFile(QzFile::DataPath(QzFile::DataFile::ClientVersion).c_str());
}

QzClientVersionManager::QzClientVersionManager(const char* path) {
    ReadFile(path);
}

void QzClientVersionManager::ReadFile(const char* path) {
    revisionDetected_ = false;
    content_.Clear();
    if (!QzFile::FileExists(path))
        throw QzClientVersionError(QzCat("QzClientVersionManager::ReadFile - ", path, " not found"));
    QzString err;
    if (!QzFile::ReadEntireFile(path, &content_, &err))
        throw QzClientVersionError(QzCat("QzClientVersionManager::ReadFile - ", "Unable to read ", path));
}

void QzClientVersionManager::get_tag_xml(const QzString& content, const char* tag, QzString* result) {
    std::vector<QzString> elements;
    if (!QzFile::GetAllXmlSnippetsWithTagNameInXmlText(content.c_str(), content.Length(), tag, &elements))
        throw QzClientVersionError(
            QzCat("QzClientVersionManager::get_tag_xml - invalid format, <", tag, "> tag not found"));
    *result = std::move(elements.front());
}

void QzClientVersionManager::get_attr_xml(const QzString& element, const char* attr, QzString* result) {
    if (!QzFile::GetUniqueStrAttrFromXmlSnippet(element, attr, result))
        throw QzClientVersionError(
            QzCat("QzClientVersionManager::get_attr_xml - invalid format, ", attr, " attribute not found"));
}

namespace {
// Reads a signed decimal the way "%d" does: blanks, an optional sign, then
// digits up to the first other character. False when there are no digits.
bool ReadInt(const char*& p, int* value) {
    while (*p == ' ' || *p == '\t' || *p == '\n' || *p == '\r' || *p == '\f' || *p == '\v') ++p;
    const char* start = p;
    bool negative = false;
    if (*p == '+' || *p == '-') negative = *p++ == '-';
    if (*p < '0' || *p > '9') {
        p = start;
        return false;
    }
    long long v = 0;
    for (; *p >= '0' && *p <= '9'; ++p)
        if (v <= INT_MAX) v = v * 10 + (*p - '0');
    if (v > INT_MAX) v = INT_MAX;  // out of range clamps instead of wrapping
    *value = static_cast<int>(negative ? -v : v);
    return true;
}

void ReadVersion(const char* text, int parts[4]) {
    for (int i = 0; i < 4; ++i) parts[i] = 0;
    const char* p = text ? text : "";
    for (int i = 0; i < 4; ++i) {
        if (!ReadInt(p, &parts[i])) return;
        if (i < 3) {
            if (*p != '.') return;
            ++p;
        }
    }
}
}  // namespace

int QzClientVersionManager::CompareVersions(const char* a, const char* b) {
    int pa[4];
    int pb[4];
    ReadVersion(a, pa);
    ReadVersion(b, pb);
    for (int i = 0; i < 4; ++i)
        if (pa[i] != pb[i]) return pa[i] < pb[i] ? -1 : 1;
    return 0;
}

int QzClientVersionManager::detect_revision() {
    if (revisionDetected_) return revision_;
    QzString numText;
    int revision = 0;
    try {
        QzString element;
        get_tag_xml(content_, "revision", &element);
        get_attr_xml(element, "num", &numText);
        const char* p = numText.c_str();
        if (!ReadInt(p, &revision)) revision = 0;
    } catch (const QzClientVersionError&) {
        revision = 0;
    }
    if (revision == 0) {
        QZ_LOG_LOCATED_AS(
            -2, "int __cdecl QzClientVersionManager::detect_revision(void)",
            "revision from clientversion.xml is invalid: %s, using legacy compatibility mode (rev1)",
            numText.c_str());
        revision = 1;
    }
    revision_ = revision;
    const bool q2 = revision == 3 || revision == 4;
    releaseEntry_ = q2 ? "release" : "update";
    updateEntry_ = q2 ? "autoupdate" : "update";
    hostPlaceholder_ = q2 ? "%Q2_HOST%" : "%DEST_HOST%";
    revisionDetected_ = true;
    return revision_;
}

bool QzClientVersionManager::IsEndOfLife() {
    const int revision = detect_revision();
    // Compared unsigned: a negative revision counts as a large one.
    if (static_cast<unsigned>(revision) < 4u) {
        QZ_LOG_LOCATED_AS(-2, "bool __cdecl QzClientVersionManager::IsEndOfLife(void)",
                          "QzClientVersionManager::IsEndOfLife - invalid clientversion revision (rev %d)",
                          revision);
        return false;
    }
    QzString element;
    QzString version;
    get_tag_xml(content_, "endoflife", &element);
    get_attr_xml(element, "version", &version);
    return CompareVersions(kQzProgramVersion, version.c_str()) <= 0;
}
