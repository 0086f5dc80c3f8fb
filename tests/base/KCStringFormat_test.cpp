#include <gtest/gtest.h>

#include <cfloat>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "base/KCString.h"

namespace {

// Variadic front ends without format checking, so that the library's own prefixes ("I64",
// "hs") can be used in tests.
int Est(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    int n = KCString::FormatEstimate(fmt, args);
    va_end(args);
    return n;
}

KCString Fmt(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    KCString s;
    s.FormatV(fmt, args);
    va_end(args);
    return s;
}

// The estimate is only the first capacity tried (longer output is still whole, below); what
// matters is that it takes every argument at its size, or it reads the wrong ones after it.
TEST(KCStringFormat, EstimateTakesEachArgumentAtItsSize) {
    // A following string is read correctly only if the earlier argument was taken whole.
    const long long big = 1LL << 40;
    EXPECT_EQ(Est("%I64d%s", big, "0123456789"), 42);
    EXPECT_EQ(Est("%lld%s", big, "0123456789"), 42);
    EXPECT_EQ(Est("%jd%s", static_cast<intmax_t>(big), "0123456789"), 42);
    EXPECT_EQ(Est("%zu%s", sizeof(int), "0123456789"), 42);
    EXPECT_EQ(Est("%hhd%hd%s", 1, 2, "0123456789"), 74);
    EXPECT_EQ(Est("%E%s", 1.0, "xyz"), 3);
    EXPECT_EQ(Est("%Le%s", static_cast<long double>(1.0), "xyz"), 131);
    EXPECT_EQ(Est("%Lf%s", static_cast<long double>(1.0), "xyz"), 11);
    EXPECT_EQ(Est("%.*s%s", 2, "hello", "xyz"), 5);
    EXPECT_EQ(Est("%n%#x%y", static_cast<int*>(nullptr), 255), 34);  // "#" adds room for "0x"
}

TEST(KCStringFormat, OutputMatchesPrintf) {
    char expected[256];
    snprintf(expected, sizeof expected, "[%5.2f|%-4d|%x|%c|%.3s|%e|%g]", 3.14159, 7, 255, 'q',
             "abcdef", 12345.678, 0.5);
    KCString s;
    s.Format("[%5.2f|%-4d|%x|%c|%.3s|%e|%g]", 3.14159, 7, 255, 'q', "abcdef", 12345.678, 0.5);
    EXPECT_EQ(s, expected);

    EXPECT_EQ(Fmt("%I64d/%I64u", -(1LL << 40), 1ULL << 63), "-1099511627776/9223372036854775808");
    EXPECT_EQ(Fmt("%s", static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(Fmt("%ls", L"wide"), "wide");
    EXPECT_EQ(Fmt("%d%%", 50), "50%");
}

TEST(KCStringFormat, OutputLongerThanTheEstimateIsStillWhole) {
    // "%E" is not counted by the estimate; the text must come out complete anyway.
    KCString s = Fmt("%E%E%E", 1e100, -2e-100, 3.0);
    char expected[128];
    snprintf(expected, sizeof expected, "%E%E%E", 1e100, -2e-100, 3.0);
    EXPECT_EQ(s, expected);
}

TEST(KCStringFormat, ArgumentsMayComeFromTheStringItself) {
    KCString s("abc");
    s.Format("%s|%s|%s", s.c_str(), s.c_str(), s.c_str());
    EXPECT_EQ(s, "abc|abc|abc");
    KCString shared(s);
    s.Format("<%s>", shared.c_str());
    EXPECT_EQ(s, "<abc|abc|abc>");
    EXPECT_EQ(shared, "abc|abc|abc");

    char* locked = s.LockBuffer();
    s.Format("%d", 5);
    EXPECT_EQ(s.c_str(), locked);  // a locked block stays where it is
    EXPECT_EQ(s, "5");
    s.UnlockBuffer();
}

}  // namespace
