// Feeds arbitrary paths to the path anomaly filters and checks each verdict
// against a direct model of the rule it implements.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "QzPathAnomaly.h"
#include "QzString.h"

namespace {

void Check(bool ok, const char* what, std::string_view detail = {}) {
    if (ok) return;
    std::fprintf(stderr, "INVARIANT BROKEN: %s %.*s\n", what, static_cast<int>(detail.size()), detail.data());
    std::abort();
}

std::string Lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return out;
}

bool ContainsIgnoreCase(std::string_view hay, std::string_view needle) {
    return Lower(hay).find(Lower(needle)) != std::string::npos;
}

std::string View(const QzString& s) {
    return std::string(s.c_str(), static_cast<size_t>(s.Length()));
}

bool IsSep(char c) {
    return c == '\\' || c == '/';
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096) return 0;
    // Paths are zero-terminated strings: the filters see the text up to the first NUL.
    std::string in(reinterpret_cast<const char*>(data), size);
    in.resize(std::string_view(in.c_str()).size());
    const bool crlf = in.find_first_of("\r\n") != std::string::npos;

    for (int platform : {QzPathAnomaly::kBackslashPlatform, QzPathAnomaly::kSlashPlatform}) {
        QzString path(in.c_str());
        QzString log;
        const QzPathAnomaly::EntryVerdict v = QzPathAnomaly::CheckEntryPath(&path, platform, &log);
        const std::string out = View(path);
        if (platform == QzPathAnomaly::kBackslashPlatform) {
            // A clean prefix (no CR, LF or "/") given or not, the answer is the same.
            const QzString original(in.c_str());
            const int32_t folder = QzPathAnomaly::CleanFolderPrefix(original);
            const size_t bad = in.find_first_of("\r\n/");
            const size_t cleanMax = bad == std::string::npos ? in.size() : bad;
            Check(static_cast<size_t>(folder) <= cleanMax, "folder prefix is not clean", in);
            for (const int32_t k : {folder, static_cast<int32_t>(cleanMax)}) {
                QzString again(in.c_str());
                QzString log2;
                const QzPathAnomaly::EntryVerdict v2 =
                    QzPathAnomaly::CheckEntryPath(&again, platform, &log2, k);
                Check(v2 == v && View(again) == out && View(log2) == View(log),
                      "a clean prefix changed the verdict", in);
            }
        }
        if (crlf) {
            Check(v == QzPathAnomaly::EntryVerdict::DropCrLf, "CR/LF not dropped", in);
            std::string want;
            for (char c : in) want += c == '\r' ? "__\\r__" : c == '\n' ? "__\\n__" : std::string(1, c);
            Check(out == want, "CR/LF replacement differs", out);
            Check(View(log) == "WARNING: skipping filename with embedded <CR> or <LF>: " + want,
                  "CR/LF log line");
            continue;
        }
        Check(out.find_first_of("\r\n") == std::string::npos, "a line break survived");
        const bool slashDot = in.find("/.") != std::string::npos;
        if (slashDot && ContainsIgnoreCase(in, "/Users/Shared/.")) {
            Check(v == QzPathAnomaly::EntryVerdict::DropMacShared, "Mac shared not dropped", in);
            continue;
        }
        if (slashDot && ContainsIgnoreCase(in, "././.")) {
            Check(v == QzPathAnomaly::EntryVerdict::DropDotSlashes, "././. not dropped", in);
            continue;
        }
        if (platform == QzPathAnomaly::kSlashPlatform && in.find('\\') != std::string::npos) {
            Check(v == QzPathAnomaly::EntryVerdict::KeepRenamed, "backslash not renamed", in);
            Check(out.find('\\') == std::string::npos, "backslash left on the slash platform", out);
            // The renaming can be undone only when the name held no part of
            // the marker itself: "_-backslash-" followed by a backslash, say,
            // turns into a marker that starts one character early. Undone in
            // one pass: a backslash put back cannot start another marker.
            if (in.find("-backslash-") != std::string::npos) continue;
            std::string back;
            for (size_t from = 0, at; from <= out.size(); from = at + 13) {
                at = std::min(out.find("_-backslash-_", from), out.size());
                back.append(out, from, at - from).append(at < out.size() ? "\\" : "");
            }
            Check(back == in, "renaming does not undo", out);
            continue;
        }
        Check(v == QzPathAnomaly::EntryVerdict::Keep && out == in, "a plain path was changed", in);
        Check(log.IsEmpty(), "a kept path was logged");
    }

    // Directory tests 4 to 8, in their order.
    QzString dir(in.c_str());
    QzString why;
    const QzPathAnomaly::DirVerdict dv = QzPathAnomaly::CheckDirectoryPath(dir, &why);
    bool doubled = false;
    for (size_t i = 2; i < in.size(); ++i)
        if (IsSep(in[i]) && IsSep(in[i - 1])) doubled = true;
    QzPathAnomaly::DirVerdict want = QzPathAnomaly::DirVerdict::Enter;
    if (doubled)
        want = QzPathAnomaly::DirVerdict::DoubleSeparator;
    else if (!in.empty() && IsSep(in.back()))
        want = QzPathAnomaly::DirVerdict::TrailingSeparator;
    else if (in.find("Backups.backupdb") != std::string::npos)
        want = QzPathAnomaly::DirVerdict::TimeMachine;
    else if (in.find(".swstor") != std::string::npos &&
             (ContainsIgnoreCase(in, "wd smartware.swstor") || ContainsIgnoreCase(in, "wdsmartware.swstor") ||
              ContainsIgnoreCase(in, "wdbackup.swstor")))
        want = QzPathAnomaly::DirVerdict::WesternDigitalBackup;
    else if (in.find(".MobileBackups") != std::string::npos)
        want = QzPathAnomaly::DirVerdict::MobileTimeMachine;
    Check(dv == want, "directory verdict differs from the model", in);
    Check((dv == QzPathAnomaly::DirVerdict::Enter) == why.IsEmpty(),
          "directory log line and verdict disagree", in);
    if (!why.IsEmpty())
        Check(View(why).size() >= in.size() &&
                  View(why).compare(View(why).size() - in.size(), in.size(), in) == 0,
              "directory log line does not end with the path", in);

    // Tests 9 and 10.
    const std::string from1 = in.size() > 1 ? Lower(in.substr(1)) : std::string();
    bool junction = false;
    for (const char* j :
         {":\\programdata\\application data\\", ":\\programdata\\desktop\\", ":\\programdata\\favorites\\",
          ":\\programdata\\start menu\\", ":\\programdata\\templates\\"})
        if (from1.rfind(j, 0) == 0) junction = true;
    Check(QzPathAnomaly::IsSharedProgramDataJunction(dir) == junction, "junction verdict differs", in);
    Check(
        QzPathAnomaly::IsLeftOutOfBigFileList(dir) == (from1.rfind(":\\system volume information\\", 0) == 0),
        "large-file verdict differs", in);
    return 0;
}
