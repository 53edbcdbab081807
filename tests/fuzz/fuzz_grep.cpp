// Greps a file made from arbitrary bytes and compares every hit with a plain
// line-by-line search. The first byte chooses case folding, the hit limit and
// whether the file is the rest of the input repeated past several buffer
// fills (lines longer than the buffer, matches across refills); the pattern
// runs to the first NUL, the file text follows it.
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzMachine.h"
#include "QzFastFileReader.h"

using FuzzMachine::Check;

namespace {

char Fold(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool Holds(std::string_view line, std::string_view pattern, bool ignoreCase) {
    if (!ignoreCase) return line.find(pattern) != std::string_view::npos;
    std::string l(line), p(pattern);
    for (char& c : l) c = Fold(c);
    for (char& c : p) c = Fold(c);
    return l.find(p) != std::string::npos;
}

struct Hit {
    int64_t number;
    std::string text;
    bool operator==(const Hit&) const = default;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1 || size > 8192) return 0;
    const uint8_t how = data[0];
    const bool ignoreCase = how & 1;
    const int64_t maxHits = (how & 2) ? 1 + (how >> 4) : 10000;
    const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    const size_t nul = rest.find('\0');
    const std::string pattern(rest.substr(0, nul));
    std::string file(nul == std::string_view::npos ? std::string_view() : rest.substr(nul + 1));
    if ((how & 4) && !file.empty()) {
        const std::string body = file;
        while (file.size() < 300000) file += body;
    }
    FuzzMachine::WriteT("grep.txt", file);

    // The plain search: lines end at "\n", one "\r" before it is not part of the line.
    std::vector<Hit> want;
    if (pattern.find('\n') == std::string::npos) {
        int64_t number = 0;
        for (size_t start = 0; start < file.size() && static_cast<int64_t>(want.size()) < maxHits;) {
            size_t nl = file.find('\n', start);
            const bool last = nl == std::string::npos;
            if (last) nl = file.size();
            std::string_view line(file.data() + start, nl - start);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            ++number;
            if (Holds(line, pattern, ignoreCase)) want.push_back({number, std::string(line)});
            start = nl + 1;
        }
    }

    QzFastFileReader reader(0);  // the smallest buffer: long lines and refills come cheap
    Check(reader.Open("T:\\grep.txt"), "the file could not be opened");
    std::vector<Hit> got;
    const bool ok = reader.Grep(pattern.c_str(), ignoreCase, maxHits,
                                [&](int64_t n, const char* line, int32_t len, bool cut) {
                                    Check(!cut, "a line below the kept length was cut");
                                    got.push_back({n, std::string(line, static_cast<size_t>(len))});
                                });
    Check(ok, "grep failed on a readable file");
    Check(got.size() == want.size(), "grep and the plain search found different numbers of lines");
    for (size_t i = 0; i < got.size(); ++i)
        Check(got[i] == want[i], "grep and the plain search differ on line", std::to_string(want[i].number));
    return 0;
}
