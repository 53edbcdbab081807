#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "QzFastFileReader.h"
#include "TestScratch.h"

namespace {

struct Hit {
    int64_t line;
    std::string text;
    bool truncated;
    bool operator==(const Hit& o) const {
        return line == o.line && text == o.text && truncated == o.truncated;
    }
};

std::vector<Hit> Grep(const std::string& content, const char* pattern, bool ignoreCase, int64_t max = 10000,
                      int32_t chunk = 0) {
    static const QzString path = QzCat(QzTest::NewScratchSubdir("grep"), "list.dat");
    EXPECT_TRUE(QzTest::WriteFile(path, content));
    QzFastFileReader reader(chunk);
    EXPECT_TRUE(reader.Open(path.c_str())) << reader.Error().c_str();
    std::vector<Hit> hits;
    EXPECT_TRUE(reader.Grep(pattern, ignoreCase, max, [&](int64_t n, const char* s, int32_t len, bool cut) {
        hits.push_back({n, std::string(s, static_cast<size_t>(len)), cut});
    }));
    return hits;
}

std::string Folded(std::string s) {
    for (char& c : s)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
    return s;
}

// The hits a plain line-by-line search finds: lines split at "\n" are
// searched whole and shown without one "\r" before the "\n".
std::vector<Hit> PlainGrep(const std::string& content, const std::string& pattern, bool ignoreCase) {
    std::vector<Hit> hits;
    const std::string pat = ignoreCase ? Folded(pattern) : pattern;
    size_t at = 0;
    for (int64_t n = 1; at < content.size(); ++n) {
        size_t end = content.find('\n', at);
        if (end == std::string::npos) end = content.size();
        const std::string line = content.substr(at, end - at);
        if ((ignoreCase ? Folded(line) : line).find(pat) != std::string::npos)
            hits.push_back({n, line.substr(0, line.size() - (!line.empty() && line.back() == '\r')), false});
        at = end + 1;
    }
    return hits;
}

std::vector<std::string> Lines(const std::string& content, std::vector<int64_t>* numbers = nullptr) {
    const QzString path = QzCat(QzTest::NewScratchSubdir("lines"), "list.dat");
    EXPECT_TRUE(QzTest::WriteFile(path, content));
    QzFastFileReader reader(0);
    EXPECT_TRUE(reader.Open(path.c_str()));
    std::vector<std::string> lines;
    const char* s;
    int32_t len;
    while (reader.NextLine(&s, &len)) {
        lines.emplace_back(s, static_cast<size_t>(len));
        if (numbers) numbers->push_back(reader.LineNumber());
    }
    return lines;
}

}  // namespace

TEST(QzFastFileReader, GrepAgreesWithAPlainSearch) {
    // Small alphabets make every byte common and near matches frequent; one
    // byte in 200 comes from a second set, rare enough to search by.
    const std::pair<std::string, std::string> alphabets[] = {
        {"ab", "Z"}, {"aab\\", "B\r"}, {"abcAB \\_0", "Qq"}, {"xyz0123456789_\\.:C", " "}};
    std::mt19937 rnd(20240611);
    auto pick = [&](size_t n) { return static_cast<size_t>(rnd() % n); };
    for (int round = 0; round < 250; ++round) {
        const auto& [common, rare] = alphabets[pick(std::size(alphabets))];
        std::string text;
        for (size_t lines = pick(40); lines > 0; --lines) {
            for (size_t len = pick(8) == 0 ? 200 + pick(400) : pick(60); len > 0; --len)
                text += pick(200) == 0 ? rare[pick(rare.size())] : common[pick(common.size())];
            text += "\n";
        }
        if (pick(2) == 0 && !text.empty()) text.pop_back();  // a last line without "\n"
        std::string pattern;
        const size_t rareAt = text.find_first_of(rare, text.empty() ? 0 : pick(text.size()));
        if (rareAt != std::string::npos && pick(2) == 0) {  // around a rare byte
            const size_t before = std::min(rareAt, pick(6));
            pattern = text.substr(rareAt - before, before + 1 + pick(6));
        } else if (!text.empty() && pick(2) == 0) {  // anywhere, maybe across a line end
            pattern = text.substr(pick(text.size()), 1 + pick(12));
        } else {
            for (size_t k = 1 + pick(6); k > 0; --k) pattern += common[pick(common.size())];
        }
        for (char& c : pattern)  // swap the case of some letters
            if (pick(3) == 0 && std::isalpha(static_cast<unsigned char>(c))) c = static_cast<char>(c ^ 0x20);
        for (const bool ignoreCase : {false, true}) {
            const std::vector<Hit> want = pattern.find('\n') != std::string::npos
                                              ? std::vector<Hit>{}
                                              : PlainGrep(text, pattern, ignoreCase);
            EXPECT_EQ(Grep(text, pattern.c_str(), ignoreCase), want)
                << "round " << round << ", pattern \"" << pattern << "\", ignoreCase " << ignoreCase;
        }
    }
}

TEST(QzFastFileReader, PatternsThatNearlyMatchEverywhereAreSearchedInLinearTime) {
    // Over a 4 MiB run of one byte, each window of these patterns agrees for
    // tens of thousands of bytes before it differs: comparing at every
    // position would take minutes, a linear search milliseconds.
    std::string prefix;  // more than the counted first block, where "b" and "c" are common and "Q" absent
    while (prefix.size() < (1u << 20) + 1000) prefix += "abc\\abba\\bab.dat\n";
    std::string periodic;
    while (periodic.size() < 15000) periodic += "ab";
    const std::pair<std::string, std::string> cases[] = {
        {std::string(30000, 'a') + "b" + std::string(30000, 'a'), "a"},  // made of common bytes
        {periodic + "c" + periodic, "ab"},                               // the same, with a period of two
        {std::string(30001, 'Q') + "R", "Q"}};  // starts with a byte absent from the first block
    for (const auto& [pat, unit] : cases) {
        std::string run;
        while (run.size() < (4u << 20)) run += unit;
        const std::string text = prefix + run + "\n" + run + pat + "\n";
        for (const bool ignoreCase : {false, true}) {
            const std::vector<Hit> hits = Grep(text, pat.c_str(), ignoreCase, 10);
            ASSERT_EQ(hits.size(), 1u);
            EXPECT_EQ(hits[0].line, static_cast<int64_t>(std::count(prefix.begin(), prefix.end(), '\n')) + 2);
        }
    }
}

TEST(QzFastFileReader, HitsAcrossChunkBoundariesKeepTheirLineNumbers) {
    // 20,000 lines of varying length over the smallest buffer: every 997th
    // line holds the needle, wherever the chunk boundaries fall.
    std::string text;
    std::vector<Hit> expected;
    for (int i = 1; i <= 20000; ++i) {
        std::string line =
            "C:\\Users\\bob\\dir" + std::to_string(i % 37) + "\\file" + std::to_string(i) + ".dat";
        line.append(static_cast<size_t>(i % 61), 'x');
        if (i % 997 == 0) {
            line += "NEEDLE";
            expected.push_back({i, line, false});
        }
        text += line + "\n";
    }
    EXPECT_EQ(Grep(text, "NEEDLE", false, 10000, 1), expected);
    EXPECT_EQ(Grep(text, "needle", true, 10000, 1), expected);
}

TEST(QzFastFileReader, LinesLongerThanTheBufferAreOneLine) {
    const std::string longLine = std::string(300000, 'a') + "NEEDLE" + std::string(3000000, 'b');
    const std::string text = "first\n" + longLine + "\nNEEDLE third\n" + std::string(400000, 'c') + "NEED";
    const std::vector<Hit> hits = Grep(text, "NEEDLE", false, 100, 1);
    ASSERT_EQ(hits.size(), 2u);
    EXPECT_EQ(hits[0].line, 2);
    EXPECT_TRUE(hits[0].truncated);
    EXPECT_EQ(hits[0].text.size(), static_cast<size_t>(QzFastFileReader::kMaxKeptLineBytes));
    EXPECT_EQ(hits[0].text.substr(0, 10), "aaaaaaaaaa");
    EXPECT_EQ(hits[1], (Hit{3, "NEEDLE third", false}));
    // A needle split across two refills of a long line is still found.
    for (size_t at : {131088u - 3u, 131088u * 2 - 20u, 131088u * 3 - 1u}) {
        std::string s(600000, 'z');
        s.replace(at, 6, "NEEDLE");
        EXPECT_EQ(Grep("x\n" + s + "\ny\n", "NEEDLE", false, 10, 1).size(), 1u) << at;
    }
    // The last line without a newline counts, also when it is long.
    EXPECT_EQ(Grep(text, "NEED", false, 100, 1).back().line, 4);
}

TEST(QzFastFileReader, NextLineSplitsAtNewlinesAndDropsOneCarriageReturn) {
    std::vector<int64_t> numbers;
    EXPECT_EQ(Lines("a\r\n\nb\r\r\nc", &numbers), (std::vector<std::string>{"a", "", "b\r", "c"}));
    EXPECT_EQ(numbers, (std::vector<int64_t>{1, 2, 3, 4}));
    EXPECT_TRUE(Lines("").empty());
    EXPECT_EQ(Lines("only\n"), (std::vector<std::string>{"only"}));
    const std::vector<std::string> big = Lines("x\n" + std::string(2500000, 'L') + "\ny");
    ASSERT_EQ(big.size(), 3u);
    EXPECT_EQ(big[1].size(), static_cast<size_t>(QzFastFileReader::kMaxKeptLineBytes));
    EXPECT_EQ(big[2], "y");
}
