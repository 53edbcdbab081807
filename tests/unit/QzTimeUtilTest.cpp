#include <gtest/gtest.h>

#include "QzTime.h"
#include "QzUtil.h"

namespace {
QzString Hex16(int64_t v) {
    QzString s;
    QzTime::AppendGmtMillisAsHex16(s, v);
    return s;
}
QzString Text14(int64_t v) {
    QzString s;
    QzTime::AppendDateTime14(s, v);
    return s;
}
QzString LogText(int64_t v) {
    QzString s;
    QzTime::AppendLogDateTime(s, v);
    return s;
}
}  // namespace

TEST(QzTime, FormatsGmtMillisInTheThreeForms) {
    EXPECT_STREQ(Hex16(0).c_str(), "0000000000000000");
    EXPECT_STREQ(Hex16(1622118896000).c_str(), "00000179add21180");
    EXPECT_STREQ(Text14(1622118896000).c_str(), "20210527123456");
    EXPECT_STREQ(LogText(1622118896000).c_str(), "2021-05-27 12:34:56");
    EXPECT_STREQ(LogText(951786123000).c_str(), "2000-02-29 01:02:03");  // leap day
    EXPECT_STREQ(LogText(-1000).c_str(), "1969-12-31 23:59:59");         // before 1970
    EXPECT_STREQ(Text14(0).c_str(), "19700101000000");
}

TEST(QzTime, ConvertsFileTimesAndCountsAgeInWholeDaysUpTo9001) {
    EXPECT_EQ(QzTime::FileTimeToGmtMillis(116444736000000000LL), 0);
    EXPECT_EQ(QzTime::FileTimeToGmtMillis(116444736000000000LL + 12345678), 1234);
    const int64_t day = QzTime::kMillisPerDay;
    EXPECT_EQ(QzTime::AgeInDays(10 * day, 10 * day), 0);
    EXPECT_EQ(QzTime::AgeInDays(10 * day, 3 * day + 1), 6);
    EXPECT_EQ(QzTime::AgeInDays(3 * day, 10 * day), 7);  // a future time counts too
    EXPECT_EQ(QzTime::AgeInDays(9001 * day + 5, 0), 9001);
    EXPECT_EQ(QzTime::AgeInDays(9002 * day, 0), 9001);
    EXPECT_EQ(QzTime::AgeInDays(INT64_MAX, INT64_MIN), 9001);
}

TEST(QzUtil, HexRoundTripsAndRefusesMalformedInput) {
    QzString hex;
    QzUtil::AppendHexEncoded(hex, "C:\\\xC3\xA9", 5);
    EXPECT_STREQ(hex.c_str(), "433a5cc3a9");
    QzString back;
    ASSERT_TRUE(QzUtil::AppendHexDecoded(back, "433A5cc3a9", 10));
    EXPECT_STREQ(back.c_str(), "C:\\\xC3\xA9");
    QzString untouched("x");
    EXPECT_FALSE(QzUtil::AppendHexDecoded(untouched, "abc", 3));
    EXPECT_FALSE(QzUtil::AppendHexDecoded(untouched, "zz", 2));
    EXPECT_STREQ(untouched.c_str(), "x");
}

TEST(QzUtil, EscapesTheFiveXmlCharacters) {
    QzString out;
    const char* text = "a<b>&\"c'd";
    QzUtil::AppendXmlEscaped(out, text, 9);
    EXPECT_STREQ(out.c_str(), "a&lt;b&gt;&amp;&quot;c&apos;d");
}
