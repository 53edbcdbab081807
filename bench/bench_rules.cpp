// Times the exclusion decision over a generated corpus of Windows paths:
//   bench_rules [paths (default 1000000)] [repetitions (default 5)]
// The default rules are loaded the way a scan loads them (rule files written
// into a scratch data directory, merge blocks applied, rules made from a
// sample "qzinfo.xml"), then 2,000 synthetic rules are added. Each time, the
// rule tree is measured next to a naive matcher that tests every rule in
// turn, and both must give the same rule for every path.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "QzRuleFiles.h"
#include "QzRuleTree.h"

namespace {

// ---- the naive matcher: every rule, in the tree's order, tested in full ----
struct NaiveRule {
    const QzExcludeRuleNode* node;
    bool hasPrefix, hasC1, hasC2, hasEnds, hasExt;
    std::string prefix, c1, c2, ends, ext;
    std::vector<std::string> dnc;
};

std::vector<NaiveRule> CollectRules(const QzRuleTree& tree) {
    std::vector<NaiveRule> rules;
    for (int32_t g = 0; g < tree.NumPrefixGroups(); ++g) {
        for (const QzExcludeRuleNode* e = tree.PrefixGroup(g); e; e = e->nextExtension) {
            for (const QzExcludeRuleNode* r = e; r; r = r->nextRule) {
                const QzExcludeRuleFields& f = r->fields;
                NaiveRule n{r,
                            f.prefix.isSet,
                            f.contains1.isSet,
                            f.contains2.isSet,
                            f.endsWith.isSet,
                            f.extension.isSet,
                            f.prefix.text.c_str(),
                            f.contains1.text.c_str(),
                            f.contains2.text.c_str(),
                            f.endsWith.text.c_str(),
                            f.extension.text.c_str(),
                            {}};
                for (const QzString& d : f.doesNotContain) n.dnc.emplace_back(d.c_str());
                rules.push_back(std::move(n));
            }
        }
    }
    return rules;
}

class NaiveMatcher {
public:
    explicit NaiveMatcher(std::vector<NaiveRule> rules) : rules_(std::move(rules)) {}
    const QzExcludeRuleNode* Find(const QzString& path) {
        lower_.assign(path.c_str(), static_cast<size_t>(path.Length()));
        for (char& c : lower_)
            if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        const std::string_view p(lower_);
        const size_t sep = p.find_last_of("\\/");
        const size_t dot = p.find_last_of('.');
        const std::string_view ext =
            dot != std::string_view::npos && (sep == std::string_view::npos || dot > sep) ? p.substr(dot + 1)
                                                                                          : "";
        for (const NaiveRule& r : rules_) {
            if (r.hasPrefix) {
                const size_t n = std::min<size_t>(r.prefix.size(), QzRuleTree::kMaxPrefixCompare);
                if (p.size() < n + 1 || p.compare(1, n, r.prefix, 0, n) != 0) continue;
            }
            if (r.hasExt && ext != r.ext) continue;
            if (r.hasEnds && !(p.size() >= r.ends.size() && p.substr(p.size() - r.ends.size()) == r.ends))
                continue;
            if (r.hasC1 && (r.c1.empty() || p.find(r.c1) == std::string_view::npos)) continue;
            if (r.hasC2 && (r.c2.empty() || p.find(r.c2) == std::string_view::npos)) continue;
            bool excludedByDnc = false;
            for (const std::string& d : r.dnc)
                excludedByDnc = excludedByDnc || (!d.empty() && p.find(d) != p.npos);
            if (excludedByDnc) continue;
            return r.node;
        }
        return nullptr;
    }
    size_t NumRules() const { return rules_.size(); }

private:
    std::vector<NaiveRule> rules_;
    std::string lower_;
};

// ---- the corpus ----
template <size_t N>
const char* Pick(std::mt19937_64& rnd, const char* const (&items)[N]) {
    return items[rnd() % N];
}

std::vector<QzString> MakeCorpus(size_t count) {
    static const char* const kUsers[] = {"Bob", "alice", "Carol Smith", "Administrator", "dev", "Public"};
    static const char* const kUserAreas[] = {
        "Documents",
        "Documents\\Projects",
        "Pictures\\2023\\Vacation",
        "Desktop",
        "Downloads",
        "Music\\iTunes\\iTunes Media\\Music",
        "OneDrive\\Documents",
        "source\\repos\\app\\src",
        "source\\repos\\app\\node_modules\\lib",
        "source\\repos\\app\\.git\\objects",
        "AppData\\Local\\Google\\Chrome\\User Data\\Default\\Cache\\Cache_Data",
        "AppData\\Local\\Google\\Chrome\\User Data\\Default",
        "AppData\\Local\\Microsoft\\Windows\\INetCache\\IE",
        "AppData\\Local\\Microsoft\\Windows\\Explorer",
        "AppData\\Roaming\\Microsoft\\Windows\\Recent",
        "AppData\\Local\\Temp",
        "AppData\\Local\\Packages\\Microsoft.Windows.Cortana_cw5n1h2txyewy\\LocalState",
        "AppData\\Local\\Mozilla\\Firefox\\Profiles\\x1y2.default\\cache2\\entries",
        "AppData\\Roaming\\Slack\\Service Worker\\CacheStorage",
        "AppData\\Roaming\\Microsoft\\Excel",
        "Videos",
    };
    static const char* const kProgramData[] = {
        "Microsoft\\Windows\\WER\\ReportArchive",
        "Package Cache",
        "Intel\\Logs",
        "Microsoft\\Search\\Data\\Applications",
        "NVIDIA Corporation\\Drs",
        "Microsoft\\Windows Defender\\Scans",
        "Adobe\\ARM",
        "chocolatey\\lib",
    };
    static const char* const kTop[] = {"Program Files\\Common Files",
                                       "Program Files (x86)\\Steam\\steamapps",
                                       "Windows\\System32",
                                       "Windows\\WinSxS",
                                       "Projects\\website",
                                       "$Recycle.Bin\\S-1-5",
                                       "Photos\\Scans",
                                       "Games\\Saves"};
    static const char* const kNames[] = {"report", "IMG_",    "cache",     "notes",  "data",
                                         "index",  "setup",   "thumbs",    "budget", "f_",
                                         "NTUSER", "desktop", "Bookmarks", "module", "lib"};
    static const char* const kExts[] = {"docx", "xlsx", "pdf", "jpg", "JPG", "png",  "mp3", "dll",
                                        "exe",  "dat",  "log", "tmp", "js",  "json", "txt", "db",
                                        "ini",  "lnk",  "",    "DAT", "etl", "xml"};
    static const char* const kSubdirs[] = {"2019", "old", "backup", "New folder",
                                           "x64",  "v2",  "drafts", "misc"};
    std::mt19937_64 rnd(20261121);
    std::vector<QzString> paths;
    paths.reserve(count);
    std::string p;
    for (size_t i = 0; i < count; ++i) {
        const unsigned where = static_cast<unsigned>(rnd() % 100);
        p = where < 95 || rnd() % 2 ? "C:\\" : "D:\\";
        if (where < 70) {
            p += "Users\\";
            p += Pick(rnd, kUsers);
            p += '\\';
            p += Pick(rnd, kUserAreas);
        } else if (where < 82) {
            p += "ProgramData\\";
            p += Pick(rnd, kProgramData);
        } else {
            p += Pick(rnd, kTop);
        }
        for (int depth = static_cast<int>(rnd() % 4); depth > 0; --depth) {
            p += '\\';
            p += Pick(rnd, kSubdirs);
        }
        p += '\\';
        p += Pick(rnd, kNames);
        p += std::to_string(rnd() % 5000);
        const char* ext = Pick(rnd, kExts);
        if (*ext) {
            p += '.';
            p += ext;
        }
        paths.emplace_back(p.c_str(), static_cast<int32_t>(p.size()));
    }
    return paths;
}

// 2,000 rules of the kinds users add: folders, extensions, vendor folders
// under the profile and ProgramData, file names anywhere.
QzString SyntheticRules() {
    QzString xml("<qzexclusions>\n");
    auto rule = [&xml](const std::string& prefix, const std::string& c1, const std::string& ends,
                       const std::string& ext) {
        xml.Append(("<excludefname_rule plat=\"win\" osVers=\"*\"  ruleIsOptional=\"t\" "
                    "skipFirstCharThenStartsWith=\"" +
                    prefix + "\" contains_1=\"" + c1 +
                    "\" contains_2=\"*\" doesNotContain=\"*\" endsWith=\"" + ends + "\" hasFileExtension=\"" +
                    ext + "\" />\n")
                       .c_str());
    };
    static const char* const kUsers[] = {"Bob", "alice", "Carol Smith", "Administrator", "dev", "Public"};
    for (int i = 0; i < 800; ++i)
        rule(std::string(":\\Users\\") + kUsers[i % 6] + "\\Projects\\old_" + std::to_string(i) + "\\", "*",
             "*", "*");
    for (int i = 0; i < 400; ++i) rule("*", "*", "*", "x" + std::to_string(i));
    for (int i = 0; i < 400; ++i)
        rule(":\\Users\\", "\\appdata\\local\\vendor" + std::to_string(i) + "\\", "*", "*");
    for (int i = 0; i < 200; ++i)
        rule(":\\ProgramData\\", ":\\programdata\\vendor" + std::to_string(i) + "\\", "*", "*");
    for (int i = 0; i < 200; ++i) rule("*", "*", "\\cache" + std::to_string(i) + ".db", "db");
    xml.Append("</qzexclusions>\n");
    return xml;
}

double Seconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

struct Timing {
    double treeNs, naiveNs;
};

// The corpus is timed in chunks, the tree and the naive matcher taking turns
// on each chunk; per chunk the best of `reps` turns counts. This keeps other
// work on the machine from favouring either side. Aborts when the two give a
// different rule for any path.
Timing Measure(QzRuleTree& tree, const std::vector<QzString>& paths, int reps) {
    NaiveMatcher naive(CollectRules(tree));
    constexpr size_t kChunk = 20000;
    std::vector<const QzExcludeRuleNode*> treeHits(paths.size());
    double treeTotal = 0, naiveTotal = 0;
    size_t excluded = 0, mismatches = 0;
    for (size_t begin = 0; begin < paths.size(); begin += kChunk) {
        const size_t end = std::min(paths.size(), begin + kChunk);
        double bestTree = 1e9, bestNaive = 1e9;
        for (int r = 0; r < reps; ++r) {
            auto t0 = std::chrono::steady_clock::now();
            for (size_t i = begin; i < end; ++i) {
                tree.UserWantsThisFileBackedUpEx(paths[i], 1000, 4000LL << 20);
                treeHits[i] = tree.LastExcludingRule();
            }
            bestTree = std::min(bestTree, Seconds(std::chrono::steady_clock::now() - t0));
            size_t wrong = 0;
            t0 = std::chrono::steady_clock::now();
            for (size_t i = begin; i < end; ++i) wrong += naive.Find(paths[i]) != treeHits[i];
            bestNaive = std::min(bestNaive, Seconds(std::chrono::steady_clock::now() - t0));
            if (r == 0) mismatches += wrong;
        }
        treeTotal += bestTree;
        naiveTotal += bestNaive;
        for (size_t i = begin; i < end; ++i) excluded += treeHits[i] != nullptr;
    }
    if (mismatches) {
        std::fprintf(stderr, "FAILED: the tree and the naive matcher disagree on %zu paths\n", mismatches);
        std::exit(1);
    }
    const double n = static_cast<double>(paths.size());
    std::printf("  %zu rules in %d prefix groups; %zu of %zu paths excluded (%.1f%%)\n", naive.NumRules(),
                tree.NumPrefixGroups(), excluded, paths.size(), 100.0 * static_cast<double>(excluded) / n);
    return {treeTotal * 1e9 / n, naiveTotal * 1e9 / n};
}

void Report(const char* what, const Timing& t) {
    std::printf("  %-28s tree %7.1f ns/path   naive %8.1f ns/path   speed-up %.1fx\n", what, t.treeNs,
                t.naiveNs, t.naiveNs / t.treeNs);
}

std::string g_scratch;
void RemoveScratch() {
    std::error_code ec;
    std::filesystem::remove_all(g_scratch, ec);
}

}  // namespace

int main(int argc, char** argv) {
    const size_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1000000;
    const int reps = argc > 2 ? std::atoi(argv[2]) : 5;

    char tmpl[] = "/tmp/qzbenchrules-XXXXXX";
    if (!::mkdtemp(tmpl)) return 2;
    g_scratch = tmpl;
    std::atexit(RemoveScratch);
    ::setenv("QZ_DRIVES", ("C=" + g_scratch).c_str(), 1);
    std::filesystem::create_directories(g_scratch + "/qzdata");
    std::ofstream(g_scratch + "/qzdata/qzinfo.xml")
        << "<?xml version=\"1.0\" encoding=\"UTF-8\" ?>\n<qzinfo excludefiletypes=\"tmp,bak\">\n"
           "<do_backup><qzdirfilter dir=\"C:\\Users\\Bob\\Videos\" whichfiles=\"none\" "
           "/></do_backup>\n</qzinfo>\n";

    QzRuleTree tree;
    if (!QzRuleFiles::LoadAllRules("C:\\qzdata\\", &tree)) {
        std::fprintf(stderr, "FAILED: the default rules did not load\n");
        return 1;
    }
    const std::vector<QzString> paths = MakeCorpus(count);
    std::printf("exclusion decision, %zu generated paths, best of %d turns per chunk of 20,000\n",
                paths.size(), reps);
    const Timing defaults = Measure(tree, paths, reps);
    Report("default rules:", defaults);

    const QzString synthetic = SyntheticRules();
    if (!tree.ParseExcludeFileNameRules(&synthetic, "synthetic_rules")) return 1;
    const Timing extra = Measure(tree, paths, reps);
    Report("with 2,000 synthetic rules:", extra);
    return 0;
}
