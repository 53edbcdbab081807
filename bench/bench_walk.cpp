// The scan benchmark's baseline: the least a walker can do to write the same
// file list lines as the program - readdir and one fstatat per entry, depth
// first in listing order, into one large buffer.
//   bench_walk ROOT DRIVE_LETTER OUT_FILE [--replace]
// ROOT is the host directory of the volume, DRIVE_LETTER the letter it is
// mapped to; paths in the list are in Windows form ("D:\Users\x.txt"). Like
// the program it leaves out the system folders that are never entries of the
// top-level list at the first and second level (Windows, Program Files, ...).
// POSIX only.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

constexpr size_t kFlushBytes = 20u << 20;

std::string g_out;
int g_outFd = -1;

void Flush() {
    size_t done = 0;
    while (done < g_out.size()) {
        const ssize_t n = ::write(g_outFd, g_out.data() + done, g_out.size() - done);
        if (n <= 0) {
            std::perror("write");
            std::exit(1);
        }
        done += static_cast<size_t>(n);
    }
    g_out.clear();
}

void AppendHex16(std::string& out, int64_t v) {
    static const char kDigits[] = "0123456789abcdef";
    char buf[16];
    auto u = static_cast<uint64_t>(v);
    for (int i = 15; i >= 0; --i, u >>= 4) buf[i] = kDigits[u & 15];
    out.append(buf, 16);
}

void AppendDecimal(std::string& out, int64_t v) {
    char buf[24];
    const int n = std::snprintf(buf, sizeof buf, "%lld", static_cast<long long>(v));
    out.append(buf, static_cast<size_t>(n));
}

std::string Lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The folders the program never makes top-level entries of (path with a
// trailing backslash, without regard to case).
bool SkippedAtTopLevels(const std::string& winPath) {
    const std::string p = Lower(winPath + "\\");
    static const char* const kStarts[] = {":\\windows\\", ":\\windows.old\\", ":\\filehistory\\"};
    for (const char* s : kStarts)
        if (p.compare(1, std::strlen(s), s) == 0) return true;
    static const char* const kContains[] = {"\\windows\\",
                                            "\\windows.old\\",
                                            "\\program files\\",
                                            "\\program files (x86)\\",
                                            "\\system volume information\\",
                                            "\\$recycle.bin\\",
                                            "\\$recycler\\",
                                            "\\$windows.~bt\\",
                                            "\\$windows.~ws\\",
                                            "\\wd smartware.swstor\\",
                                            "\\wdsmartware.swstor\\",
                                            "\\wdbackup.swstor\\",
                                            "\\recycler\\",
                                            "\\msocache\\",
                                            "\\users\\all users\\microsoft help\\",
                                            "\\i386\\"};
    for (const char* s : kContains)
        if (p.find(s) != std::string::npos) return true;
    return false;
}

// Writes one directory's block, then walks its subdirectories in listing order.
void Walk(int parentFd, const char* name, const std::string& winPath, int level) {
    const int fd = parentFd < 0 ? ::open(name, O_RDONLY | O_DIRECTORY)
                                : ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (fd < 0) return;
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
        ::close(fd);
        return;
    }
    std::vector<std::string> subdirs;
    // The block header (with the count) comes first, so the file lines wait
    // here; one buffer serves every level, as it is emptied before recursing.
    static std::string lines;
    lines.clear();
    int64_t files = 0;
    const std::string prefix = winPath.back() == '\\' ? winPath : winPath + "\\";
    while (dirent* e = ::readdir(dir)) {
        if (e->d_name[0] == '.' && (e->d_name[1] == 0 || (e->d_name[1] == '.' && e->d_name[2] == 0)))
            continue;
        struct stat st;
        if (::fstatat(fd, e->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;
        if (S_ISDIR(st.st_mode)) {
            subdirs.emplace_back(e->d_name);
            continue;
        }
        ++files;
        lines.push_back(S_ISLNK(st.st_mode) ? 's' : 'f');
        lines.push_back('\t');
        AppendHex16(lines, static_cast<int64_t>(st.st_mtim.tv_sec) * 1000 + st.st_mtim.tv_nsec / 1000000);
        lines.push_back('\t');
        AppendDecimal(lines, st.st_size);
        lines.push_back('\t');
        lines.append(prefix);
        lines.append(e->d_name);
        lines.push_back('\n');
    }
    g_out.append("#\n# Dir: ");
    g_out.append(winPath);
    g_out.append("\n# Files: ");
    AppendDecimal(g_out, files);
    g_out.push_back('\n');
    g_out.append(lines);
    if (g_out.size() > kFlushBytes) Flush();
    for (const std::string& sub : subdirs) {
        const std::string child = prefix + sub;
        if (level < 2 && SkippedAtTopLevels(child)) continue;
        Walk(fd, sub.c_str(), child, level + 1);
    }
    ::closedir(dir);
}

}  // namespace

int main(int argc, char** argv) {
    const bool replace = argc == 5 && std::strcmp(argv[4], "--replace") == 0;
    if ((argc != 4 && !replace) || !std::isalpha(static_cast<unsigned char>(argv[2][0]))) {
        std::fprintf(stderr, "usage: bench_walk ROOT DRIVE_LETTER OUT_FILE [--replace]\n");
        return 2;
    }
    // --replace: write OUT_FILE.tmp and rename it over OUT_FILE at the end, so
    // the previous file stays whole until then (as the program keeps its lists).
    const std::string out = replace ? std::string(argv[3]) + ".tmp" : std::string(argv[3]);
    g_outFd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (g_outFd < 0) {
        std::perror(out.c_str());
        return 1;
    }
    g_out.reserve(kFlushBytes + (1u << 20));
    const time_t now = ::time(nullptr);
    struct tm t;
    ::gmtime_r(&now, &t);
    char header[128];
    std::snprintf(header, sizeof header,
                  "# GmtMillisThisListWasStarted: %016llx, GmtDateTime: %04d%02d%02d%02d%02d%02d\n",
                  static_cast<long long>(now) * 1000, t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, t.tm_hour,
                  t.tm_min, t.tm_sec);
    g_out.append(header);
    const std::string root = std::string(1, argv[2][0]) + ":\\";
    Walk(-1, argv[1], root, 0);
    Flush();
    ::close(g_outFd);
    if (replace && ::rename(out.c_str(), argv[3]) != 0) {
        std::perror(argv[3]);
        return 1;
    }
    return 0;
}
