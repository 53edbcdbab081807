// Fixed points of the string and UTF-16 types on both builds: the growth
// table, the long-path prefix's bound, a prefix given and a prepared search
// pattern. The fuzz target checks every operation against a std::string
// model and round-trips UTF-8 (as text and as a path), UTF-16 and hexadecimal.
#include <gtest/gtest.h>

#include <string>

#include "QzString.h"
#include "QzUtf16String.h"

TEST(QzString, ReservePolicyFollowsTheGrowthTable) {
    const int32_t cases[][4] = {// n, current capacity, generous, expected
                                {1, 0, 0, 15},
                                {14, 0, 1, 15},
                                {15, 0, 0, 26},
                                {15, 0, 1, 35},
                                {54, 999, 1, 75},
                                {1500, 1000, 1, 2501},
                                {20000, 10000, 1, 120001},
                                {500000, 400000, 1, 10500001},
                                {30000000, 20000000, 1, 50000001},
                                {70000000, 60000000, 1, 170000001},
                                {2100000000, 60000000, 1, QzString::kMaxCapacity},
                                {QzString::kMaxCapacity - 6, 0, 0, QzString::kMaxCapacity}};
    for (const auto& c : cases) EXPECT_EQ(QzString::CapacityForRequest(c[0], c[1], c[2] != 0), c[3]) << c[0];
}

TEST(QzUtf16String, PathsOf251BytesAndMoreTakeTheLongPathPrefix) {
    QzUtf16String w;
    QzString p250("C:\\");
    while (p250.Length() < 250) p250.AppendChar('a');
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(p250));
    EXPECT_EQ(w.Length(), 250);
    const QzString p251 = QzCat(p250, "b");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(p251));
    EXPECT_EQ(std::u16string(w.Data(), 5), u"\\\\?\\C");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(QzCat("\\\\?\\", p251)));  // not prefixed twice
    EXPECT_EQ(w.Length(), 255);
    // A search pattern comes prepared: its directory's length decided the prefix.
    const QzString pattern = QzCat(QzString(p250.c_str(), 249), "\\*");
    ASSERT_TRUE(w.ConvertUtf8PreparedPathToUtf16(pattern.c_str(), pattern.Length()));
    EXPECT_EQ(w.Length(), 251);
}
