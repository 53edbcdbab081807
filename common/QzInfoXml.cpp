#include "QzInfoXml.h"

#include "QzDataPaths.h"
#include "QzFileRead.h"
#include "QzFileWrite.h"
#include "QzFileXml.h"

namespace QzInfoManager {

const QzInfoVolumeKind kSelectedVolume = {"qzvolume", "qzVolumeGuid", "mountPointPath"};
const QzInfoVolumeKind kScratchDrive = {"scratch_drive", "scratch_vol_guid", "scratch_mountpoint"};

QzString QzInfoXmlPath() {
    return QzFile::DataPath(QzFile::DataFile::Settings);
}

QzFile::ReadStatus ReadQzInfoXmlText(const QzString& path, QzString* textRet,
                                     const QzFile::ReadPolicy& policy) {
    return QzFile::ReadFilePatiently(path.c_str(), textRet, policy);
}

bool WriteQzInfoXmlText(const QzString& path, const QzString& text) {
    return QzFile::WriteFileAtomically(path, text);
}

namespace {
QzInfoVolumeRef RefOf(QzString element, const QzInfoVolumeKind& kind) {
    QzInfoVolumeRef r;
    r.hasGuid = QzFile::GetUniqueStrAttrFromXmlSnippet(element, kind.guidAttr, &r.vguid);
    r.hasMount = QzFile::GetUniqueStrAttrFromXmlSnippet(element, kind.mountAttr, &r.mountPoint);
    r.element = std::move(element);
    return r;
}
}  // namespace

std::vector<QzInfoVolumeRef> GetVolumeRefs(const QzString& text, const QzInfoVolumeKind& kind) {
    std::vector<QzString> elements;
    QzFile::GetAllXmlSnippetsWithTagNameInXmlText(text.c_str(), text.Length(), kind.tag, &elements);
    std::vector<QzInfoVolumeRef> refs;
    for (QzString& e : elements) refs.push_back(RefOf(std::move(e), kind));
    return refs;
}

int EditVolumeRefs(QzString* text, const QzInfoVolumeKind& kind, const QzInfoVolumeEdit& edit) {
    int changed = 0;
    int32_t shift = 0;  // how far earlier edits moved the later elements
    for (QzFile::XmlElementAt& at : QzFile::GetXmlElementsWithOffsets(*text, kind.tag)) {
        const int32_t from = at.offset + shift;
        const int32_t length = at.text.Length();
        const QzInfoVolumeRef ref = RefOf(std::move(at.text), kind);
        QzString vguid(ref.vguid), mount(ref.mountPoint);
        if (!edit(ref, &vguid, &mount)) continue;
        const int32_t before = text->Length();
        bool any = false;
        if (!vguid.Equals(ref.vguid))
            any = QzFile::SetUniqueStrAttrInXmlText(text, from, from + length, kind.guidAttr, vguid) || any;
        const int32_t grown = text->Length() - before;
        if (!mount.Equals(ref.mountPoint))
            any =
                QzFile::SetUniqueStrAttrInXmlText(text, from, from + length + grown, kind.mountAttr, mount) ||
                any;
        shift += text->Length() - before;
        changed += any ? 1 : 0;
    }
    return changed;
}

bool InsertSelectedVolume(QzString* text, const QzString& vguid, const QzString& mountPoint) {
    const int32_t end = text->Find("</hard_drives_to_backup>");
    if (end < 0) return false;
    // Two blanks before "mountPointPath", as the control panel writes it.
    QzString line("<qzvolume qzVolumeGuid=\"\"  mountPointPath=\"\" />\n");
    QzFile::SetUniqueStrAttrInXmlSnippet(&line, "qzVolumeGuid", vguid);
    QzFile::SetUniqueStrAttrInXmlSnippet(&line, "mountPointPath", mountPoint);
    QzString out(text->c_str(), end);
    out.Append(line);
    out.Append(text->c_str() + end, text->Length() - end);
    *text = std::move(out);
    return true;
}

bool SameMountPoint(const QzString& a, const QzString& b) {
    QzString x(a), y(b);
    if (x.Last() == '\\' || x.Last() == '/') x.Truncate(x.Length() - 1);
    if (y.Last() == '\\' || y.Last() == '/') y.Truncate(y.Length() - 1);
    return !x.IsEmpty() && x.EqualsIgnoreCase(y.c_str());
}

}  // namespace QzInfoManager
