// Fixed points of the string and UTF-16 types on both builds; the fuzz target
// checks every operation against a std::string model.
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

    QzString s("abc");
    const int32_t cap = s.Capacity();
    const char* before = s.c_str();
    EXPECT_TRUE(s.Reserve(cap - 1));  // below the capacity: nothing moves
    EXPECT_EQ(s.c_str(), before);
    EXPECT_TRUE(s.Reserve(cap));
    EXPECT_EQ(s.Capacity(), cap + 11);
    EXPECT_FALSE(s.Reserve(QzString::kMaxCapacity - 5));  // n + 6 above the limit
    EXPECT_TRUE(s.Equals("abc"));

    QzString grown;
    int reallocations = 0;
    for (int i = 0, c = grown.Capacity(); i < 200000; ++i) {
        grown.Append("0123456789");
        if (grown.Capacity() != c) ++reallocations, c = grown.Capacity();
    }
    EXPECT_LT(reallocations, 120);
}

TEST(QzString, FormatsAndFoldsAsWritten) {
    QzString s;
    s.AppendInt(-9223372036854775807LL - 1);
    s.AppendChar(',');
    s.AppendPaddedInt(-42, 5);  // the sign counts in the width, as printf does
    s.AppendChar(',');
    s.AppendPaddedHex(-1, 4);  // all 64 bits
    EXPECT_STREQ(s.c_str(), "-9223372036854775808,-0042,ffffffffffffffff");
    const QzString a("C:\\Users\\ÄBC\\NTUSER.DAT");
    EXPECT_TRUE(a.EqualsIgnoreCase("c:\\users\\ÄBC\\ntuser.dat"));
    EXPECT_FALSE(a.EqualsIgnoreCase("c:\\users\\äbc\\ntuser.dat"));  // non-ASCII bytes are not folded
    EXPECT_LT(QzString("[").CompareIgnoreCase(QzString("a")), 0);    // '[' (0x5B) sorts before 'a'
    EXPECT_GT(QzString("\xC3").Compare(QzString("z")), 0);           // bytes compare unsigned
}

TEST(QzUtf16String, ConvertsBothWaysAndPrefixesLongPaths) {
    QzUtf16String w;
    const QzString path("C:\\Résumé\\日本語\\😀.txt");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(path));
    EXPECT_EQ(std::u16string(w.Data()), u"C:\\Résumé\\日本語\\😀.txt");
    QzString back;
    ASSERT_TRUE(QzUtf16String::ConvertQzUtf16StringToUtf8(w.Data(), w.Length(), &back));
    EXPECT_TRUE(back.Equals(path));

    QzString p250("C:\\");
    while (p250.Length() < 250) p250.AppendChar('a');
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(p250));
    EXPECT_EQ(w.Length(), 250);
    const QzString p251 = QzCat(p250, "b");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(p251));
    EXPECT_EQ(std::u16string(w.Data(), 5), u"\\\\?\\C");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(QzCat("\\\\server\\share\\", p250)));
    EXPECT_EQ(std::u16string(w.Data(), 22), u"\\\\?\\UNC\\server\\share\\C");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(QzCat("\\\\?\\", p251)));  // not prefixed twice
    EXPECT_EQ(w.Length(), 255);
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(QzCat("C:/", p251.c_str() + 3, "/x/y")));
    EXPECT_EQ(std::u16string(w.Data()).find(u'/'),
              std::u16string::npos);  // behind the prefix "/" is no separator
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(QzCat("dir\\", p251)));
    EXPECT_EQ(w.Data()[0], u'd');  // a relative path cannot take the prefix
    // A search pattern comes prepared: its directory's length decided the prefix.
    const QzString pattern = QzCat(QzString(p250.c_str(), 249), "\\*");
    ASSERT_TRUE(w.ConvertUtf8PreparedPathToUtf16(pattern.c_str(), pattern.Length()));
    EXPECT_EQ(w.Length(), 251);

    for (const char* bad : {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "abc\xE2\x82"})
        EXPECT_FALSE(w.ConvertUtf8QzStringToUtf16(QzString(bad))) << bad;
    const char16_t lone[] = {u'a', 0xD800, u'b'};
    EXPECT_FALSE(QzUtf16String::ConvertQzUtf16StringToUtf8(lone, 3, &back));
    EXPECT_EQ(back.Length(), 0);
}
