// Feeds arbitrary bytes to the exclusion rules, in one of two ways chosen by
// the first byte:
//   even: the rest is a rule file for the parser; then paths taken from the
//         same bytes (one per line) are decided by the rule index and by the
//         walk over the tree, which must name the same rule;
//   odd:  the rest is an editable rule file and, after the first NUL, a merge
//         log; the merge step runs over them in a scratch data directory. The
//         file must then be either untouched or the old text with whole
//         merge-block rules inserted before its first end tag, and no
//         temporary file may remain.
// The data directory is drive T: of the scratch machine.
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "FuzzMachine.h"
#include "QzRuleFiles.h"
#include "QzRuleTexts.h"
#include "QzRuleTree.h"

using FuzzMachine::Check;

namespace {

const QzString kDataDir("T:\\");

void FuzzParser(std::string_view in) {
    static QzRuleTree* tree = new QzRuleTree;
    tree->Clear();
    const QzString text(in.data(), static_cast<int32_t>(in.size()));
    const bool ok = tree->ParseExcludeFileNameRules(&text, "fuzz");
    Check(ok || tree->NumRules() == 0, "a refused data set left rules behind");
    Check(tree->NumPrefixGroups() <= QzRuleTree::kMaxPrefixGroups, "too many groups");
    Check(tree->NumRules() <= QzRuleTree::kMaxRulesPerDataSet, "too many rules");

    std::vector<std::string> paths = {"C:\\Users\\Bob\\NTUSER.DAT", "C:\\", "", "D:\\Windows\\x.exe"};
    size_t start = 0;
    while (start < in.size() && paths.size() < 64) {
        size_t nl = in.find('\n', start);
        if (nl == std::string_view::npos) nl = in.size();
        paths.emplace_back(in.substr(start, nl - start));
        start = nl + 1;
    }
    auto agree = [&](const std::string& p) {
        const QzString path(p.data(), static_cast<int32_t>(p.size()));
        const QzExcludeRuleNode* walked =
            tree->FindExcludingRuleByWalkingTheTree(path.c_str(), path.Length());
        const bool wanted = tree->UserWantsThisFileBackedUpEx(path, 0, 0);
        Check(wanted == (walked == nullptr), "the index and the walk disagree on the answer for", p);
        Check(tree->LastExcludingRule() == walked, "the index and the walk name different rules for", p);
    };
    for (const std::string& p : paths) agree(p);
    // A walk asks about a folder's files in a row, and the index examines a
    // folder once for them: each folder of the first paths with the names of
    // the first paths, folder after folder.
    auto folderOf = [](const std::string& p) { return p.substr(0, p.find_last_of("\\/") + 1); };
    for (size_t i = 0; i < paths.size() && i < 12; ++i)
        for (size_t j = 0; j < paths.size() && j < 6; ++j)
            agree(folderOf(paths[i]) + paths[j].substr(folderOf(paths[j]).size()));
}

void FuzzMerge(std::string_view in) {
    const size_t nul = in.find('\0');
    const std::string_view editable = in.substr(0, nul);
    FuzzMachine::WriteT("qzexcluderules_editable.xml", editable);
    if (nul == std::string_view::npos)
        std::filesystem::remove(FuzzMachine::OnT("qzreports/qzexcluderules_editable_mergelog.txt"));
    else
        FuzzMachine::WriteT("qzreports/qzexcluderules_editable_mergelog.txt", in.substr(nul + 1));

    const bool changed = QzRuleFiles::MergeEditableRuleBlocks(kDataDir);
    const std::string after = FuzzMachine::ReadT("qzexcluderules_editable.xml");
    Check(!std::filesystem::exists(FuzzMachine::OnT("qzexcluderules_editable.xml.tmp")),
          "a temporary file was left");
    if (!changed) {
        Check(after == editable, "the editable file changed although the merge said it did not");
        return;
    }
    // The old text, with whole merge-block rule lines before its first end
    // tag that does not stand inside a comment.
    size_t end = std::string_view::npos;
    for (size_t pos = 0;;) {
        const size_t tag = editable.find("</qzexclusions>", pos);
        const size_t comment = editable.find("<!--", pos);
        if (tag == std::string_view::npos || comment == std::string_view::npos || tag < comment) {
            end = tag;
            break;
        }
        const size_t commentEnd = editable.find("-->", comment + 4);
        if (commentEnd == std::string_view::npos) break;
        pos = commentEnd + 3;
    }
    Check(end != std::string_view::npos && end >= 10, "a merge without a usable end tag");
    Check(after.size() > editable.size(), "a merge that added nothing");
    const size_t added = after.size() - editable.size();
    Check(after.compare(0, end, editable.substr(0, end)) == 0, "the text before the end tag changed");
    Check(after.compare(end + added, std::string::npos, editable.substr(end)) == 0,
          "the text from the end tag changed");
    const std::string merged = after.substr(end, added);
    const std::string blocks(QzRuleTexts::MergeBlocksText().c_str());
    for (size_t pos = 0; pos < merged.size();) {
        const size_t nl = merged.find('\n', pos);
        Check(nl != std::string::npos, "an inserted rule without its line feed");
        const std::string line = merged.substr(pos, nl - pos);
        Check(line.find("plat=\"win\"") != std::string::npos && blocks.find(line + "\n") != std::string::npos,
              "an inserted line is not a Windows rule of the merge blocks:", line);
        pos = nl + 1;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > (1u << 20)) return 0;
    const std::string_view in(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] & 1)
        FuzzMerge(in);
    else
        FuzzParser(in);
    return 0;
}
