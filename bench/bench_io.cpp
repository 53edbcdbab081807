// Times the directory listing and grep on real inputs:
//   bench_io list <dir in Windows form> [repetitions]
//   bench_io grep <pattern> <file in Windows form> [repetitions] [-i]
// Prints the best wall time of the repetitions (grep: also the median) and
// what was found.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "QzFastFileReader.h"
#include "QzFile.h"
#include "QzFileInfo.h"
#include "QzFileListing.h"

namespace {
double Seconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double>(d).count();
}
}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: bench_io list DIR [reps] | grep PATTERN FILE [reps] [-i]\n");
        return 2;
    }
    if (std::strcmp(argv[1], "list") == 0) {
        const int reps = argc > 3 ? std::atoi(argv[3]) : 5;
        const QzString dir(argv[2]);
        QzFileInfoList list;
        double best = 1e9;
        for (int r = 0; r < reps; ++r) {
            const auto t0 = std::chrono::steady_clock::now();
            if (!QzFile::GetListOfFileInfosInDir(&dir, &list)) return 1;
            best = std::min(best, Seconds(std::chrono::steady_clock::now() - t0));
        }
        std::printf("list: %d entries, best %.1f ms (%.0f ns per entry)\n", list.Count(), best * 1e3,
                    best * 1e9 / (list.Count() ? list.Count() : 1));
        return 0;
    }
    if (std::strcmp(argv[1], "grep") == 0 && argc >= 4) {
        const int reps = argc > 4 ? std::atoi(argv[4]) : 3;
        const bool ignoreCase = argc > 5 && std::strcmp(argv[5], "-i") == 0;
        std::vector<double> times;
        int64_t hits = 0;
        for (int r = 0; r < reps; ++r) {
            QzFastFileReader reader;
            if (!reader.Open(argv[3])) return 1;
            hits = 0;
            const auto t0 = std::chrono::steady_clock::now();
            if (!reader.Grep(argv[2], ignoreCase, INT64_MAX,
                             [&](int64_t, const char*, int32_t, bool) { ++hits; }))
                return 1;
            times.push_back(Seconds(std::chrono::steady_clock::now() - t0));
        }
        if (times.empty()) return 2;
        std::sort(times.begin(), times.end());
        const double median = times[times.size() / 2];
        const int64_t bytes = QzFile::GetFileSizeInBytes(argv[3]);
        std::printf("grep%s '%s': %lld matching lines, median %.0f ms, best %.0f ms (%.0f MB/s)\n",
                    ignoreCase ? " -i" : "", argv[2], static_cast<long long>(hits), median * 1e3,
                    times[0] * 1e3, static_cast<double>(bytes) / 1e6 / median);
        return 0;
    }
    return 2;
}
