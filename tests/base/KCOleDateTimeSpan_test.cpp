#include "base/KCOleDateTimeSpan.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

// Every second of a day, so that no unit boundary truncates the wrong way.
TEST(KCOleDateTimeSpan, PartsOfAWholeSecondSpan) {
    EXPECT_EQ(KCOleDateTimeSpan(3, 7, 45, 12).GetDays(), 3);
    for (int s = 0; s < 86400; s += 7) {
        const KCOleDateTimeSpan t(0, 0, 0, s);
        ASSERT_EQ(t.GetHours(), s / 3600) << s;
        ASSERT_EQ(t.GetMinutes(), s / 60 % 60) << s;
        ASSERT_EQ(t.GetSeconds(), s % 60) << s;
    }
}

// The rounding term is half a second of a day added to a fraction of the getter's own unit:
// results that look inconsistent are the expected ones.
TEST(KCOleDateTimeSpan, GettersRoundInTheirOwnUnit) {
    EXPECT_EQ(KCOleDateTimeSpan(1.999999).GetHours(), 0);  // 23:59:59.91 rounds to 24, wraps
    EXPECT_EQ(KCOleDateTimeSpan(1.999999).GetMinutes(), 59);

    // 10 min 59.99 s: the minutes round up, the seconds do not.
    const KCOleDateTimeSpan span((10 * 60 + 59.99) / 86400.0);
    EXPECT_EQ(span.GetMinutes(), 11);
    EXPECT_EQ(span.GetSeconds(), 59);
    // 0.4 s short of the next second: a true rounding would give 5, these give 4.
    EXPECT_EQ(KCOleDateTimeSpan(4.6 / 86400.0).GetSeconds(), 4);
}

TEST(KCOleDateTimeSpan, NegativeSpansMirrorPositiveOnes) {
    for (double days : {0.25, 1.75, 1.999999, (10 * 60 + 59.99) / 86400.0, 3.5 + 61 / 86400.0}) {
        const KCOleDateTimeSpan pos(days), neg(-days);
        EXPECT_EQ(neg.GetHours(), -pos.GetHours()) << days;
        EXPECT_EQ(neg.GetMinutes(), -pos.GetMinutes()) << days;
        EXPECT_EQ(neg.GetSeconds(), -pos.GetSeconds()) << days;
        EXPECT_EQ(neg.GetDays(), -pos.GetDays()) << days;
    }
    EXPECT_EQ(KCOleDateTimeSpan(-1, -6, 0, 0).GetHours(), -6);

    // Nonsense numbers give defined answers rather than undefined conversions.
    const KCOleDateTimeSpan nan(std::nan("")), huge(1e300);
    EXPECT_EQ(nan.GetDays() + nan.GetHours() + nan.GetMinutes() + nan.GetSeconds(), 0);
    EXPECT_EQ(huge.GetDays(), std::numeric_limits<long>::max());
}

TEST(KCOleDateTimeSpan, ArithmeticStatusAndRange) {
    const KCOleDateTimeSpan a(1.5), b(0.25);
    EXPECT_EQ((a + b).GetTotalDays(), 1.75);
    EXPECT_EQ((b - a).GetTotalDays(), -1.25);

    KCOleDateTimeSpan nul, bad;
    nul.SetStatus(KCOleDateTimeSpan::null);
    bad.SetStatus(KCOleDateTimeSpan::invalid);
    EXPECT_EQ((a + nul).GetStatus(), KCOleDateTimeSpan::null);
    EXPECT_EQ((bad - nul).GetStatus(), KCOleDateTimeSpan::null);  // null wins over invalid
    EXPECT_EQ((bad + a).GetStatus(), KCOleDateTimeSpan::invalid);
    EXPECT_EQ((a - bad).GetStatus(), KCOleDateTimeSpan::invalid);

    const KCOleDateTimeSpan edge(KCOleDateTimeSpan::kxMaxSpan - 1);
    EXPECT_EQ((edge + KCOleDateTimeSpan(1.0)).GetStatus(), KCOleDateTimeSpan::valid);
    EXPECT_EQ((edge + KCOleDateTimeSpan(1.5)).GetStatus(), KCOleDateTimeSpan::invalid);
    EXPECT_EQ((KCOleDateTimeSpan(-edge.GetTotalDays()) - KCOleDateTimeSpan(2.0)).GetStatus(),
              KCOleDateTimeSpan::invalid);

    // Assigning a number makes a span valid again, without a range check.
    bad = 1e9;
    EXPECT_EQ(bad.GetStatus(), KCOleDateTimeSpan::valid);
    bad.CheckRange();
    EXPECT_EQ(bad.GetStatus(), KCOleDateTimeSpan::invalid);
}

}  // namespace
