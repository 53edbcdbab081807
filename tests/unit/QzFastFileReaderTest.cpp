#include "QzFastFileReader.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestScratch.h"

namespace {

struct Hit {
    int64_t line;
    std::string text;
    bool truncated;
    bool operator==(const Hit& o) const { return line == o.line && text == o.text && truncated == o.truncated; }
};

std::vector<Hit> Grep(const std::string& content, const char* pattern, bool ignoreCase, int64_t max = 10000,
                      int32_t chunk = 0) {
    const QzString path = QzCat(QzTest::NewScratchSubdir("grep"), "list.dat");
    EXPECT_TRUE(QzTest::WriteFile(path, content));
    QzFastFileReader reader(chunk);
    EXPECT_TRUE(reader.Open(path.c_str())) << reader.Error().c_str();
    std::vector<Hit> hits;
    EXPECT_TRUE(reader.Grep(pattern, ignoreCase, max, [&](int64_t n, const char* s, int32_t len, bool cut) {
        hits.push_back({n, std::string(s, static_cast<size_t>(len)), cut});
    }));
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

TEST(QzFastFileReader, GrepReportsLineNumbersAndFoldsOnlyAscii) {
    const std::string text = "C:\\Users\\Bob\\a.txt\r\nC:\\users\\BOB\\b.txt\nno match\nÉTÉ bob\nété BOB\nlast bob";
    EXPECT_EQ(Grep(text, "Bob", false), (std::vector<Hit>{{1, "C:\\Users\\Bob\\a.txt", false}}));
    EXPECT_EQ(Grep(text, "bob", true),
              (std::vector<Hit>{{1, "C:\\Users\\Bob\\a.txt", false},
                                {2, "C:\\users\\BOB\\b.txt", false},
                                {4, "ÉTÉ bob", false},
                                {5, "été BOB", false},
                                {6, "last bob", false}}));
    EXPECT_EQ(Grep(text, "été bob", true), (std::vector<Hit>{{5, "été BOB", false}}));
    EXPECT_EQ(Grep(text, "ÉTÉ BOB", true).size(), 1u);  // É is not folded to é
    EXPECT_EQ(Grep(text, "bob", true, 2).size(), 2u);    // stops at the hit limit
    EXPECT_EQ(Grep(text, "", false).size(), 6u);         // an empty pattern matches every line
    EXPECT_TRUE(Grep(text, "a.txt\nC", false).empty());  // a pattern cannot span lines
    EXPECT_TRUE(Grep("", "x", false).empty());
}

TEST(QzFastFileReader, HitsAcrossChunkBoundariesKeepTheirLineNumbers) {
    // 20,000 lines of varying length over the smallest buffer: every 997th
    // line holds the needle, wherever the chunk boundaries fall.
    std::string text;
    std::vector<Hit> expected;
    for (int i = 1; i <= 20000; ++i) {
        std::string line = "C:\\Users\\bob\\dir" + std::to_string(i % 37) + "\\file" + std::to_string(i) + ".dat";
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

TEST(QzFastFileReader, OpenFailuresSayWhy) {
    QzFastFileReader reader;
    EXPECT_FALSE(reader.Open(QzCat(QzTest::NewScratchSubdir("nofile"), "missing.dat").c_str()));
    EXPECT_STREQ(reader.Error().c_str(), "file_does_not_exist");
    EXPECT_FALSE(reader.Open(QzTest::NewScratchSubdir("adir").c_str()));
    EXPECT_STREQ(reader.Error().c_str(), "error_win32_CreateF_failed_5_ERROR_ACCESS_DENIED");
}
