// Times the exclusion decision over a generated corpus of Windows paths:
//   bench_rules [paths (default 1000000)] [repetitions (default 5)]
//   bench_rules --check [paths (default 200000)]
// The default rules are loaded the way a scan loads them (rule files written
// into a scratch data directory, merge blocks applied, rules made from a
// sample "qzinfo.xml"), then 2,000 synthetic rules are added. Each time, the
// rule tree is measured next to a naive matcher that tests every rule in
// turn, and both must give the same rule for every path. Last, 8,000 rules of
// the shapes users and their settings produce are added to the default set,
// and the heap they cost and the time to parse them and build the index are
// reported.
//
// --check is the form the test command runs: instead of absolute times it
// compares the matcher with a floor that any matcher must pay, a lower-case
// copy of each path and one substring search in it, on the same paths in the
// same run, and fails when the ratio or the heap of the 8,000 rules exceeds
// its limit. A slower matcher fails it on any machine, without a timed test.
#include <malloc.h>
#include <stdlib.h>
#include <time.h>
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
    // A scan asks about the files of one folder in a row: folders of 1 to 24
    // files each, as in a generated volume (about 12 files per folder).
    std::string folder, p;
    size_t left = 0;
    for (size_t i = 0; i < count; ++i) {
        if (left == 0) {
            left = 1 + rnd() % 24;
            const unsigned where = static_cast<unsigned>(rnd() % 100);
            folder = where < 95 || rnd() % 2 ? "C:\\" : "D:\\";
            if (where < 70) {
                folder += "Users\\";
                folder += Pick(rnd, kUsers);
                folder += '\\';
                folder += Pick(rnd, kUserAreas);
            } else if (where < 82) {
                folder += "ProgramData\\";
                folder += Pick(rnd, kProgramData);
            } else {
                folder += Pick(rnd, kTop);
            }
            for (int depth = static_cast<int>(rnd() % 4); depth > 0; --depth) {
                folder += '\\';
                folder += Pick(rnd, kSubdirs);
            }
            folder += '\\';
        }
        --left;
        p = folder;
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

// The processor time this thread has used: the machine may be shared, and
// time spent waiting for a processor must not count.
struct CpuClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<CpuClock>;
    static time_point now() {
        timespec ts{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        return time_point(duration(int64_t{ts.tv_sec} * 1000000000 + ts.tv_nsec));
    }
};
double Seconds(CpuClock::duration d) {
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
            auto t0 = CpuClock::now();
            for (size_t i = begin; i < end; ++i) {
                tree.UserWantsThisFileBackedUpEx(paths[i], 1000, 4000LL << 20);
                treeHits[i] = tree.LastExcludingRule();
            }
            bestTree = std::min(bestTree, Seconds(CpuClock::now() - t0));
            size_t wrong = 0;
            t0 = CpuClock::now();
            for (size_t i = begin; i < end; ++i) wrong += naive.Find(paths[i]) != treeHits[i];
            bestNaive = std::min(bestNaive, Seconds(CpuClock::now() - t0));
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

// Bytes in use on the heap (malloc, realloc and new alike).
long long HeapBytes() {
    const struct mallinfo2 mi = mallinfo2();
    return static_cast<long long>(mi.uordblks + mi.hblkhd);
}

// A made-up program or vendor name, different for each i.
std::string Name(int i) {
    static const char* const kParts[] = {"ab",  "cor", "del", "fin", "gra", "hex", "ion", "jet",
                                         "kra", "lum", "mo",  "nov", "pix", "qua", "ro",  "syn"};
    std::string name;
    for (unsigned v = static_cast<unsigned>(i) * 2654435761u, k = 0; k < 3; ++k, v /= 16)
        name += kParts[v % 16];
    return name + std::to_string(i);
}

// 8,000 rules of the shapes that stress the index: many extensions and many
// "any extension" rules in the same group (the settings' excluded file types
// next to folder and file-name rules), folders of one prefix group with many
// extensions of their own, and many prefix groups.
QzString ManyRules() {
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
    for (int i = 0; i < 2000; ++i) rule("*", "*", "*", "t" + std::to_string(i));
    for (int i = 0; i < 2000; ++i) rule("*", "\\" + Name(i) + "\\", "*", "*");
    for (int i = 0; i < 1000; ++i) rule(":\\Users\\", "*", "*", "u" + std::to_string(i));
    for (int i = 0; i < 1000; ++i)
        rule(":\\Users\\", "\\appdata\\roaming\\" + Name(i + 2000) + "\\", "*", "*");
    for (int i = 0; i < 2000; ++i) rule(":\\Archive\\" + std::to_string(i) + "\\", "*", "*", "*");
    xml.Append("</qzexclusions>\n");
    return xml;
}

struct ManyRulesCost {
    double parseMs, indexMs;
    long long heapBytes;
};

// What the 8,000 rules cost on top of the default set: heap, and the time to
// parse them and to build the index (on the first decision).
ManyRulesCost AddManyRules(QzRuleTree& tree) {
    const QzString many = ManyRules();
    const QzString probe("C:\\Users\\Bob\\Documents\\report.docx");
    tree.UserWantsThisFileBackedUpEx(probe, 1, 1);  // the default set's index is built
    const long long before = HeapBytes();
    auto t0 = CpuClock::now();
    if (!tree.ParseExcludeFileNameRules(&many, "many_rules")) std::exit(1);
    auto t1 = CpuClock::now();
    tree.UserWantsThisFileBackedUpEx(probe, 1, 1);
    auto t2 = CpuClock::now();
    return {Seconds(t1 - t0) * 1e3, Seconds(t2 - t1) * 1e3, HeapBytes() - before};
}

// The floor: a lower-case copy of each path and one substring search in it.
double FloorNsPerPath(const std::vector<QzString>& paths, int reps) {
    std::string lower;
    size_t found = 0;
    double best = 1e9;
    for (int r = 0; r < reps; ++r) {
        const auto t0 = CpuClock::now();
        for (const QzString& path : paths) {
            lower.assign(path.c_str(), static_cast<size_t>(path.Length()));
            for (char& c : lower)
                if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
            found += lower.find("\\appdata\\") != std::string::npos;
        }
        best = std::min(best, Seconds(CpuClock::now() - t0));
    }
    if (found == 0) std::printf("(no path has the floor's substring)\n");
    return best * 1e9 / static_cast<double>(paths.size());
}

// The matcher alone over the same paths, best of `reps`.
double TreeNsPerPath(QzRuleTree& tree, const std::vector<QzString>& paths, int reps) {
    double best = 1e9;
    size_t kept = 0;
    for (int r = 0; r < reps; ++r) {
        const auto t0 = CpuClock::now();
        for (const QzString& path : paths) kept += tree.UserWantsThisFileBackedUpEx(path, 1000, 4000LL << 20);
        best = std::min(best, Seconds(CpuClock::now() - t0));
    }
    if (kept == 0) std::printf("(every path excluded)\n");
    return best * 1e9 / static_cast<double>(paths.size());
}

std::string g_scratch;
void RemoveScratch() {
    std::error_code ec;
    std::filesystem::remove_all(g_scratch, ec);
}

}  // namespace

int main(int argc, char** argv) {
    const bool check = argc > 1 && std::strcmp(argv[1], "--check") == 0;
    if (check) {
        --argc;
        ++argv;
    }
    const size_t count = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : check ? 200000 : 1000000;
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

    if (check) {
        // Limits with room for machines that favour one side: the matcher
        // runs in about 2.2 times the floor today.
        constexpr double kMaxRatio = 4.0;
        constexpr long long kMaxManyRulesBytes = 64LL << 20;
        Measure(tree, paths, 1);  // the same answers as the naive matcher
        const double floorNs = FloorNsPerPath(paths, reps);
        const double treeNs = TreeNsPerPath(tree, paths, reps);
        const ManyRulesCost many = AddManyRules(tree);
        const auto some = static_cast<std::ptrdiff_t>(std::min<size_t>(paths.size(), 2000));
        Measure(tree, std::vector<QzString>(paths.begin(), paths.begin() + some), 1);
        const double manyNs = TreeNsPerPath(tree, paths, reps);
        std::printf(
            "default rules: %.1f ns/path, floor (lower-case copy + one search) %.1f ns/path, ratio %.2f "
            "(limit %.1f)\n",
            treeNs, floorNs, treeNs / floorNs, kMaxRatio);
        std::printf(
            "8,000 more rules: %.1f MiB of heap (limit 64), parse %.1f ms, index %.1f ms, %.1f ns/path\n",
            static_cast<double>(many.heapBytes) / 1048576.0, many.parseMs, many.indexMs, manyNs);
        bool ok = true;
        if (treeNs / floorNs > kMaxRatio) {
            std::fprintf(stderr, "FAILED: the matcher takes %.2f times the floor\n", treeNs / floorNs);
            ok = false;
        }
        if (many.heapBytes > kMaxManyRulesBytes) {
            std::fprintf(stderr, "FAILED: 8,000 rules cost more than 64 MiB\n");
            ok = false;
        }
        return ok ? 0 : 1;
    }

    std::printf("exclusion decision, %zu generated paths, best of %d turns per chunk of 20,000\n",
                paths.size(), reps);
    const Timing defaults = Measure(tree, paths, reps);
    Report("default rules:", defaults);
    std::printf("  %-28s %7.1f ns/path\n", "floor (lower + 1 search):", FloorNsPerPath(paths, reps));

    const QzString synthetic = SyntheticRules();
    if (!tree.ParseExcludeFileNameRules(&synthetic, "synthetic_rules")) return 1;
    const Timing extra = Measure(tree, paths, reps);
    Report("with 2,000 synthetic rules:", extra);

    QzRuleTree big;
    if (!QzRuleFiles::LoadAllRules("C:\\qzdata\\", &big)) return 1;
    const ManyRulesCost many = AddManyRules(big);
    std::printf("8,000 more rules on the default set: heap %.1f MiB, parse %.1f ms, index build %.1f ms\n",
                static_cast<double>(many.heapBytes) / 1048576.0, many.parseMs, many.indexMs);
    const Timing manyTiming = Measure(big, paths, reps);
    Report("with 8,000 more rules:", manyTiming);
    return 0;
}
