// Greps a file made from arbitrary bytes and compares every hit with a plain
// line-by-line search. The first byte chooses case folding, the hit limit and
// (one input in sixteen) whether the file is the rest of the input repeated past
// a buffer fill (lines longer than the buffer, matches across a refill);
// the pattern runs to the first NUL, the file text follows it.
#include <cstdint>
#include <string>
#include <vector>

#include "FuzzMachine.h"
#include "QzFastFileReader.h"

using FuzzMachine::Check;

namespace {

void Fold(std::string& s) {
    for (char& c : s)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
}

struct Hit {
    int64_t number;
    std::string_view text;
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
    // The large strings are kept between inputs: a fresh one of this size is
    // a mapping of its own under the address sanitizer.
    static std::string file, hay;
    file.assign(nul == std::string_view::npos ? std::string_view() : rest.substr(nul + 1));
    if ((how & 0x3C) == 0x3C && !file.empty()) {
        const size_t body = file.size();
        while (file.size() < 140000) file.append(file, 0, body);  // past one fill of the smallest buffer
    }
    FuzzMachine::WriteT("grep.txt", file);

    // The plain search over the folded text: lines end at "\n"; one "\r"
    // before it is searched (a pattern may end in it) but not shown.
    std::vector<Hit> want;
    if (pattern.find('\n') == std::string::npos) {
        std::string needle = pattern;
        if (ignoreCase) {
            hay = file;
            Fold(hay);
            Fold(needle);
        }
        const std::string_view searched = ignoreCase ? hay : file;
        int64_t number = 0;
        for (size_t start = 0; start < file.size() && static_cast<int64_t>(want.size()) < maxHits;) {
            size_t nl = file.find('\n', start);
            if (nl == std::string::npos) nl = file.size();
            const size_t len = nl - start - (nl > start && file[nl - 1] == '\r');
            ++number;
            if (searched.substr(start, nl - start).find(needle) != std::string_view::npos)
                want.push_back({number, std::string_view(file).substr(start, len)});
            start = nl + 1;
        }
    }

    // One reader for all inputs: its buffer is allocated once.
    static QzFastFileReader* reader = new QzFastFileReader(0);  // the smallest buffer
    Check(reader->Open("T:\\grep.txt"), "the file could not be opened");
    size_t got = 0;
    const bool ok = reader->Grep(
        pattern.c_str(), ignoreCase, maxHits, [&](int64_t n, const char* line, int32_t len, bool cut) {
            Check(!cut, "a line below the kept length was cut");
            Check(got < want.size(), "grep found a line the plain search did not");
            Check(n == want[got].number && std::string_view(line, len) == want[got].text,
                  "grep and the plain search differ on line", std::to_string(want[got].number));
            ++got;
        });
    reader->Close();
    Check(ok, "grep failed on a readable file");
    Check(got == want.size(), "grep and the plain search found different numbers of lines");
    return 0;
}
