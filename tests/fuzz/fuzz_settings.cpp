// Feeds arbitrary bytes to the settings reader as "qzinfo.xml". Every value
// taken must be one a user could have chosen (counts within their bounds,
// well-formed selected volumes without duplicates, extensions that can be
// extensions), and the rules made from the same file must be rules the
// program's own parser takes, excluding a file of each excluded type.
#include <cstdint>
#include <string>

#include "FuzzMachine.h"
#include "QzInfoManager.h"
#include "QzRuleTree.h"

using FuzzMachine::Check;
using FuzzMachine::View;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view in;
    if (!FuzzMachine::PlaceInput(data, size, "qzinfo.xml", &in)) return 0;
    Check(QzInfoManager::ReadControlPanelSettingsFromQzInfoXmlFile(), "a readable settings file was refused");
    const QzSettings& s = QzInfoManager::Settings();
    Check(s.numDaysWarnIfNoBackup <= 7, "warning days out of range");
    Check(s.numBackupThreads >= 1 && s.numBackupThreads <= 200, "thread count out of range");
    Check(s.maxFileSizeMb >= 0 && s.maxFileSizeMb <= 1000000000, "size limit out of range");
    Check(s.blockedNetworkNames.size() == s.blockedNetworkMacAddrs.size(),
          "blocked networks lost their pairs");
    for (size_t i = 0; i < s.selectedVolumes.size(); ++i) {
        const QzSettings::SelectedVolume& v = s.selectedVolumes[i];
        Check(QzInfoManager::IsWellFormedVolumeGuid(v.volumeGuid), "a bad volume identifier was selected");
        const std::string_view m = View(v.mountPointPath);
        Check(m.size() >= 3 && m[1] == ':' && m[2] == '\\' && std::isalpha(static_cast<unsigned char>(m[0])),
              "a bad mount point was selected", m);
        for (size_t j = 0; j < i; ++j)
            Check(!(v.volumeGuid.Equals(s.selectedVolumes[j].volumeGuid) &&
                    v.mountPointPath.EqualsIgnoreCase(s.selectedVolumes[j].mountPointPath.c_str())),
                  "a volume was selected twice");
    }
    for (const QzString& ext : s.excludeFileTypes)
        Check(!ext.IsEmpty() && View(ext).find_first_of("*\\/|<>") == std::string_view::npos,
              "an excluded type that is no extension", View(ext));

    QzString xml;
    Check(QzInfoManager::ParseQzInfo_MakeIntoExcludeFileNameRulesXml(&xml), "no rules from a readable file");
    static QzRuleTree* tree = new QzRuleTree;
    tree->Clear();
    const bool parsed = tree->ParseExcludeFileNameRules(&xml, "qzinfo.xml rules");
    Check(parsed || tree->NumRules() == 0, "a refused data set left rules behind");
    if (!parsed) {
        // The parser refuses a data set without rules (so settings that exclude
        // nothing make the whole load fail, as they always have) or with more
        // rules than one data set may hold; nothing else.
        size_t rules = 0;
        for (size_t at = View(xml).find("<excludefname_rule"); at != std::string_view::npos;
             at = View(xml).find("<excludefname_rule", at + 1))
            ++rules;
        Check(rules == 0 || rules > QzRuleTree::kMaxRulesPerDataSet,
              "the parser refused the rules made from settings", View(xml).substr(0, 300));
        return 0;
    }
    for (const QzString& ext : s.excludeFileTypes) {
        if (View(ext).find_first_of(".\"&' ") != std::string_view::npos) continue;
        const QzString file = QzCat("C:\\Users\\Bob\\report.", ext);
        Check(!tree->UserWantsThisFileBackedUpEx(file, 1, 1 << 30), "a file of an excluded type is backed up",
              View(file));
    }
    return 0;
}
