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

TEST(KCStringFormat, EstimateOfCharactersAndStrings) {
    EXPECT_EQ(Est("plain"), 5);
    EXPECT_EQ(Est("100%%"), 4);
    EXPECT_EQ(Est("%c", 'x'), 2);
    EXPECT_EQ(Est("%C", 'x'), 2);
    EXPECT_EQ(Est("%hc%lc%hC%lC", 'a', 'b', 'c', 'd'), 8);
    EXPECT_EQ(Est("%5c", 'x'), 5);
    EXPECT_EQ(Est("%.1c", 'x'), 1);
    EXPECT_EQ(Est("%s", "hello"), 5);
    EXPECT_EQ(Est("%s", ""), 1);
    EXPECT_EQ(Est("%s", static_cast<const char*>(nullptr)), 6);
    EXPECT_EQ(Est("%hs%hS", "ab", "cde"), 5);
    EXPECT_EQ(Est("%.2s", "hello"), 2);
    EXPECT_EQ(Est("%.9s", "hello"), 5);
    EXPECT_EQ(Est("%10s", "hello"), 10);
    EXPECT_EQ(Est("%3.1s", "hello"), 3);
    EXPECT_EQ(Est("%*s", 8, "ab"), 8);
    EXPECT_EQ(Est("%.*s", 3, "hello"), 3);
    EXPECT_EQ(Est("%S", L"wide"), 4);
    EXPECT_EQ(Est("%ls%lS", L"ab", L""), 3);
    EXPECT_EQ(Est("%S", static_cast<const wchar_t*>(nullptr)), 6);
    EXPECT_EQ(Est("%.1ls", static_cast<const wchar_t*>(nullptr)), 1);
}

TEST(KCStringFormat, EstimateOfNumbers) {
    EXPECT_EQ(Est("%d", 1), 32);
    EXPECT_EQ(Est("%i%u%x%X%o", 1, 2, 3, 4, 5), 160);
    EXPECT_EQ(Est("%40d", 1), 40);
    EXPECT_EQ(Est("%20.30d", 1), 50);
    EXPECT_EQ(Est("%-+ 05d", 1), 32);
    EXPECT_EQ(Est("%#x", 255), 34);  // "#" adds room for "0x"
    EXPECT_EQ(Est("%*.*d", 30, 10, 1), 40);
    EXPECT_EQ(Est("%e", 1.0), 128);
    EXPECT_EQ(Est("%g%G", 1.0, 2.0), 256);
    EXPECT_EQ(Est("%200.10e", 1.0), 210);
    EXPECT_EQ(Est("%p", nullptr), 32);
    int count = 0;
    EXPECT_EQ(Est("%n", &count), 0);
    EXPECT_EQ(Est("%E", 1.0), 0);
    EXPECT_EQ(Est("%y"), 0);
    EXPECT_EQ(Est("%"), 0);
    // "%f": the printed length with six more digits than asked for.
    EXPECT_EQ(Est("%f", 3.25), static_cast<int>(strlen("3.250000")));
    EXPECT_EQ(Est("%.2f", 1.5), static_cast<int>(strlen("1.50000000")));
    EXPECT_EQ(Est("%12f", -2.0), 12);
    EXPECT_EQ(Est("%f", DBL_MAX), 309 + 7);
    EXPECT_EQ(Est("%Lf", static_cast<long double>(1.5)), 8);
}

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
}

TEST(KCStringFormat, FormatsIntoACapacityFromTheEstimate) {
    KCString s;
    s.Format("%s=%d", "key", 42);
    EXPECT_EQ(s, "key=42");
    EXPECT_EQ(s.GetAllocLength(), 64);  // 4 + 32 estimated
    s.Format("%300d", 7);
    EXPECT_EQ(s.GetLength(), 300);
    EXPECT_EQ(s.GetAllocLength(), 512);
    s.Format("%s", "");
    EXPECT_EQ(s.GetLength(), 0);
    EXPECT_EQ(Fmt("").c_str(), kxStrUtils::_afxPchNil);
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
