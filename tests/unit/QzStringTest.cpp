#include "QzString.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "QzUtf16String.h"

TEST(QzString, NullBufferReadsAsEmpty) {
    QzString s;
    EXPECT_STREQ(s.c_str(), "");
    EXPECT_EQ(s.Length(), 0);
    EXPECT_TRUE(s.Equals(""));
    EXPECT_TRUE(s.StartsWith(""));
    EXPECT_EQ(s.Find("x"), -1);
}

TEST(QzString, ReservePolicyFollowsTheGrowthTable) {
    // Below 15 always 15; plain requests get 11 spare bytes.
    EXPECT_EQ(QzString::CapacityForRequest(1, 0, false), 15);
    EXPECT_EQ(QzString::CapacityForRequest(14, 0, true), 15);
    EXPECT_EQ(QzString::CapacityForRequest(15, 0, false), 26);
    EXPECT_EQ(QzString::CapacityForRequest(500, 0, false), 511);
    // Generous steps are chosen by the current capacity.
    EXPECT_EQ(QzString::CapacityForRequest(15, 0, true), 35);
    EXPECT_EQ(QzString::CapacityForRequest(54, 999, true), 75);
    EXPECT_EQ(QzString::CapacityForRequest(1500, 1000, true), 2501);
    EXPECT_EQ(QzString::CapacityForRequest(1500, 9999, true), 2501);
    EXPECT_EQ(QzString::CapacityForRequest(20000, 10000, true), 120001);
    EXPECT_EQ(QzString::CapacityForRequest(500000, 400000, true), 10500001);
    EXPECT_EQ(QzString::CapacityForRequest(30000000, 20000000, true), 50000001);
    EXPECT_EQ(QzString::CapacityForRequest(70000000, 60000000, true), 170000001);
    // Never above the limit.
    EXPECT_EQ(QzString::CapacityForRequest(2100000000, 60000000, true), QzString::kMaxCapacity);
    EXPECT_EQ(QzString::CapacityForRequest(QzString::kMaxCapacity - 6, 0, false), QzString::kMaxCapacity);
}

TEST(QzString, ReserveIsANoOpBelowCapacityAndRefusesBeyondTheLimit) {
    QzString s("abc");
    const int32_t cap = s.Capacity();
    ASSERT_GE(cap, 15);
    const char* before = s.c_str();
    EXPECT_TRUE(s.Reserve(cap - 1));
    EXPECT_EQ(s.c_str(), before);
    EXPECT_EQ(s.Capacity(), cap);
    EXPECT_TRUE(s.Reserve(cap));  // n equal to the capacity grows
    EXPECT_EQ(s.Capacity(), cap + 11);
    // n + 6 above the limit fails and keeps the text.
    EXPECT_FALSE(s.Reserve(QzString::kMaxCapacity - 5));
    EXPECT_TRUE(s.Equals("abc"));
}

TEST(QzString, AppendsTextNumbersAndPadding) {
    QzString s;
    s.Append("n=");
    s.AppendInt(-9223372036854775807LL - 1);
    s.AppendChar(',');
    s.AppendPaddedInt(42, 5);
    s.AppendChar(',');
    s.AppendPaddedInt(-42, 5);  // the sign counts in the width, as printf does
    s.AppendChar(',');
    s.AppendPaddedInt(123456, 3);
    s.AppendChar(',');
    s.AppendPaddedHex(255, 4);
    s.AppendChar(',');
    s.AppendPaddedHex(-1, 4);  // all 64 bits
    EXPECT_STREQ(s.c_str(), "n=-9223372036854775808,00042,-0042,123456,00ff,ffffffffffffffff");
}

TEST(QzString, AppendOfItselfSurvivesReallocation) {
    QzString s("0123456789abcd");  // capacity 15 exactly full
    for (int i = 0; i < 6; ++i) s.Append(s);
    EXPECT_EQ(s.Length(), 14 * 64);
    EXPECT_TRUE(s.StartsWith("0123456789abcd0123456789abcd"));
    EXPECT_TRUE(s.EndsWith("abcd"));
}

TEST(QzString, GrowsGenerouslyWhileAppending) {
    QzString s;
    int reallocations = 0;
    int32_t cap = s.Capacity();
    for (int i = 0; i < 200000; ++i) {
        s.Append("0123456789");
        if (s.Capacity() != cap) ++reallocations, cap = s.Capacity();
    }
    EXPECT_EQ(s.Length(), 2000000);
    EXPECT_LT(reallocations, 120);
}

TEST(QzString, CompareAndSearchFoldOnlyAsciiLetters) {
    const QzString a("C:\\Users\\ÄBC\\NTUSER.DAT");
    EXPECT_TRUE(a.EqualsIgnoreCase("c:\\users\\ÄBC\\ntuser.dat"));
    EXPECT_FALSE(a.EqualsIgnoreCase("c:\\users\\äbc\\ntuser.dat"));  // non-ASCII bytes are not folded
    EXPECT_TRUE(a.StartsWithIgnoreCase("c:\\USERS"));
    EXPECT_FALSE(a.StartsWith("c:\\USERS"));
    EXPECT_TRUE(a.EndsWithIgnoreCase(".dat"));
    EXPECT_FALSE(a.EndsWith(".dat"));
    EXPECT_EQ(a.FindIgnoreCase("ntuser"), a.Find("NTUSER"));
    EXPECT_EQ(a.Find("NTUSER", a.Find("NTUSER") + 1), -1);
    EXPECT_TRUE(a.ContainsIgnoreCase("\\users\\"));
    EXPECT_FALSE(a.Contains("\\users\\"));
    EXPECT_EQ(a.Find(""), 0);

    EXPECT_LT(QzString("abc").Compare(QzString("abd")), 0);
    EXPECT_GT(QzString("abc").Compare(QzString("ab")), 0);
    EXPECT_EQ(QzString("ABC").CompareIgnoreCase(QzString("abc")), 0);
    EXPECT_LT(QzString("[").CompareIgnoreCase(QzString("a")), 0);  // '[' (0x5B) sorts before 'a' (0x61)
    EXPECT_GT(QzString("\xC3").Compare(QzString("z")), 0);         // bytes compare unsigned
}

TEST(QzString, CopyMoveAndTruncate) {
    QzString a("hello world");
    QzString b = a;
    QzString c = std::move(a);
    EXPECT_TRUE(b.Equals(c));
    EXPECT_STREQ(a.c_str(), "");  // NOLINT(bugprone-use-after-move): moved-from reads as empty
    c.Truncate(5);
    EXPECT_STREQ(c.c_str(), "hello");
    c.Truncate(50);
    EXPECT_STREQ(c.c_str(), "hello");
    c.Truncate(-1);  // nonsense lengths change nothing
    EXPECT_STREQ(c.c_str(), "hello");
    EXPECT_FALSE(c.Reserve(-5));
    EXPECT_TRUE(QzCat("a", 1, "b", -2LL, QzString("c")).Equals("a1b-2c"));
}

TEST(QzString, OwnSlicesAndLengthsNeverReachUnwrittenBytes) {
    QzString s("hello world");
    ASSERT_TRUE(s.Reserve(100));
    const int32_t cap = s.Capacity();
    // Slices of our own text: a prefix, a middle part, refused past the text.
    EXPECT_FALSE(s.Set(s.c_str(), 50));       // within the capacity, past the text
    EXPECT_FALSE(s.Set(s.c_str(), cap + 5));  // past the capacity
    EXPECT_FALSE(s.Set(s.c_str() + 6, 6));    // "world" plus one byte past the terminator
    EXPECT_FALSE(s.Append(s.c_str() + 6, 20));
    EXPECT_STREQ(s.c_str(), "hello world");
    EXPECT_EQ(s.Length(), 11);
    EXPECT_TRUE(s.Set(s.c_str() + 6, 5));
    EXPECT_STREQ(s.c_str(), "world");
    EXPECT_TRUE(s.Set(s.c_str(), 2));
    EXPECT_STREQ(s.c_str(), "wo");
    EXPECT_TRUE(s.Set(s.c_str()));  // the whole text, terminator and all
    EXPECT_STREQ(s.c_str(), "wo");

    // Text written through Data() is taken in by SetLength; a length with no
    // room for the terminator is refused.
    std::memcpy(s.Data() + 2, "rld", 3);
    EXPECT_TRUE(s.SetLength(5));
    EXPECT_STREQ(s.c_str(), "world");
    EXPECT_FALSE(s.SetLength(cap));
    EXPECT_FALSE(s.SetLength(-1));
    EXPECT_EQ(s.Length(), 5);
    EXPECT_TRUE(s.SetLength(cap - 1));
    QzString none;
    EXPECT_TRUE(none.SetLength(0));
    EXPECT_FALSE(none.SetLength(1));
}

TEST(QzUtf16String, ConvertsBothWaysAndPrefixesLongPaths) {
    QzUtf16String w;
    const QzString path("C:\\Résumé\\日本語\\😀.txt");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(path));
    EXPECT_EQ(std::u16string(w.Data()), u"C:\\Résumé\\日本語\\😀.txt");
    QzString back;
    ASSERT_TRUE(QzUtf16String::ConvertQzUtf16StringToUtf8(w.Data(), w.Length(), &back));
    EXPECT_TRUE(back.Equals(path));

    // 250 bytes keep their form, 251 get the long-path prefix.
    QzString p250("C:\\");
    while (p250.Length() < 250) p250.AppendChar('a');
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(p250));
    EXPECT_EQ(w.Length(), 250);
    EXPECT_EQ(w.Data()[0], u'C');
    QzString p251 = QzCat(p250, "b");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(p251));
    EXPECT_EQ(w.Length(), 255);
    EXPECT_EQ(std::u16string(w.Data(), 5), u"\\\\?\\C");
    // A long network path gets the UNC form of the prefix.
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(QzCat("\\\\server\\share\\", p250)));
    EXPECT_EQ(std::u16string(w.Data(), 22), u"\\\\?\\UNC\\server\\share\\C");
    // Already prefixed: not prefixed again.
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(QzCat("\\\\?\\", p251)));
    EXPECT_EQ(w.Length(), 255);
    // Behind the prefix "/" is no separator, so a prefixed path uses "\" only.
    QzString slashed = QzCat("C:/", QzString(p251.c_str() + 3));
    slashed.Append("/x/y");
    ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(slashed));
    EXPECT_EQ(std::u16string(w.Data()).find(u'/'), std::u16string::npos);
    EXPECT_EQ(std::u16string(w.Data()).substr(0, 7), u"\\\\?\\C:\\");
    // A relative or rooted path cannot take the prefix, however long.
    for (const QzString& rel : {QzCat("dir\\", p251), QzCat("\\", p251.c_str() + 3)}) {
        ASSERT_TRUE(w.ConvertUtf8QzStringToUtf16(rel));
        EXPECT_EQ(w.Length(), rel.Length());
    }
    // A search pattern comes prepared: its directory's length decided the prefix.
    const QzString pattern = QzCat(QzString(p250.c_str(), 249), "\\*");
    ASSERT_TRUE(w.ConvertUtf8PreparedPathToUtf16(pattern.c_str(), pattern.Length()));
    EXPECT_EQ(w.Length(), 251);
    EXPECT_EQ(w.Data()[0], u'C');
    const QzString prefixedPattern = QzCat("\\\\?\\C:/", p250.c_str() + 3, "/*");
    ASSERT_TRUE(w.ConvertUtf8PreparedPathToUtf16(prefixedPattern.c_str(), prefixedPattern.Length()));
    EXPECT_EQ(std::u16string(w.Data()).find(u'/'), std::u16string::npos);
}

TEST(QzUtf16String, RefusesInvalidEncodings) {
    QzUtf16String w;
    for (const char* bad : {"\xC0\xAF", "\xED\xA0\x80", "\xF4\x90\x80\x80", "abc\xE2\x82", "\xFF"}) {
        EXPECT_FALSE(w.ConvertUtf8QzStringToUtf16(QzString(bad))) << bad;
        EXPECT_FALSE(QzUtf8::IsValid(bad, static_cast<int32_t>(std::char_traits<char>::length(bad))));
    }
    QzString out("keep?");
    const char16_t lone[] = {u'a', 0xD800, u'b'};
    EXPECT_FALSE(QzUtf16String::ConvertQzUtf16StringToUtf8(lone, 3, &out));
    EXPECT_EQ(out.Length(), 0);
    const char16_t trailing[] = {u'a', 0xDC00};
    EXPECT_FALSE(QzUtf16String::ConvertQzUtf16StringToUtf8(trailing, 2, &out));
}
