// Reading a file line by line. Grep is compared with a plain search by its
// fuzz target and run on real files by the whole-program tests.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "QzFastFileReader.h"
#include "TestScratch.h"

namespace {

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

TEST(QzFastFileReader, NextLineSplitsAtNewlinesDropsOneCarriageReturnAndCutsLongLines) {
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

TEST(QzFastFileReader, GrepShowsAHitOnALineLongerThanWhatIsKeptCut) {
    const QzString path = QzCat(QzTest::NewScratchSubdir("grep"), "list.dat");
    const std::string longLine = std::string(300000, 'a') + "NEEDLE" + std::string(3000000, 'b');
    ASSERT_TRUE(QzTest::WriteFile(
        path, "first\n" + longLine + "\nNEEDLE third\n" + std::string(400000, 'c') + "NEED"));
    QzFastFileReader reader(1);
    ASSERT_TRUE(reader.Open(path.c_str()));
    std::vector<std::pair<int64_t, std::string>> hits;
    std::vector<bool> cut;
    ASSERT_TRUE(reader.Grep("NEED", false, 100, [&](int64_t n, const char* s, int32_t len, bool c) {
        hits.emplace_back(n, std::string(s, static_cast<size_t>(len)));
        cut.push_back(c);
    }));
    ASSERT_EQ(hits.size(), 3u);
    EXPECT_EQ(hits[0].first, 2);
    EXPECT_EQ(hits[0].second, longLine.substr(0, QzFastFileReader::kMaxKeptLineBytes));
    EXPECT_EQ(cut, (std::vector<bool>{true, false, false}));
    EXPECT_EQ(hits[1], (std::pair<int64_t, std::string>{3, "NEEDLE third"}));
    EXPECT_EQ(hits[2].first, 4);  // the last line without a newline counts
}
