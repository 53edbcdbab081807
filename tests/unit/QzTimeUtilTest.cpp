// The time texts and the age in days with its cap. Hexadecimal and XML
// escaping are round-tripped by the fuzz targets.
#include <gtest/gtest.h>

#include "QzTime.h"

TEST(QzTime, FormatsGmtMillisConvertsFileTimesAndCapsAgeAt9001Days) {
    const struct {
        int64_t millis;
        const char *hex16, *text14, *log;
    } cases[] = {{0, "0000000000000000", "19700101000000", "1970-01-01 00:00:00"},
                 {1622118896000, "00000179add21180", "20210527123456", "2021-05-27 12:34:56"},
                 {951786123000, "000000dd9adfaef8", "20000229010203", "2000-02-29 01:02:03"},  // leap day
                 {-1000, "fffffffffffffc18", "19691231235959", "1969-12-31 23:59:59"}};
    for (const auto& c : cases) {
        QzString hex, text, log;
        QzTime::AppendGmtMillisAsHex16(hex, c.millis);
        QzTime::AppendDateTime14(text, c.millis);
        QzTime::AppendLogDateTime(log, c.millis);
        EXPECT_STREQ(hex.c_str(), c.hex16) << c.millis;
        EXPECT_STREQ(text.c_str(), c.text14) << c.millis;
        EXPECT_STREQ(log.c_str(), c.log) << c.millis;
    }
    EXPECT_EQ(QzTime::FileTimeToGmtMillis(116444736000000000LL + 12345678), 1234);
    const int64_t day = QzTime::kMillisPerDay;
    EXPECT_EQ(QzTime::AgeInDays(10 * day, 10 * day), 0);
    EXPECT_EQ(QzTime::AgeInDays(10 * day, 3 * day + 1), 6);
    EXPECT_EQ(QzTime::AgeInDays(3 * day, 10 * day), 7);  // a future time counts too
    EXPECT_EQ(QzTime::AgeInDays(9002 * day, 0), 9001);
    EXPECT_EQ(QzTime::AgeInDays(INT64_MAX, INT64_MIN), 9001);
}
