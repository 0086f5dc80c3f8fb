// The log formatter against the C library's vsnprintf: the same bytes and the same result for
// every format, whether formatted here or handed on.
#include "base/kxLogFormat.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

namespace {

int Ours(char* out, size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int n = kxLogFormat(out, size, format, args);
    va_end(args);
    return n;
}

int Theirs(char* out, size_t size, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int n = vsnprintf(out, size, format, args);
    va_end(args);
    return n;
}

// Formats with both and compares result and bytes (the terminator included), into a buffer of
// `size` bytes.
template <typename... Args>
void Same(size_t size, const std::string& format, Args... args) {
    char ours[512], theirs[512];
    memset(ours, 0x55, sizeof ours);
    memset(theirs, 0x55, sizeof theirs);
    const int a = Ours(ours, size, format.c_str(), args...);
    const int b = Theirs(theirs, size, format.c_str(), args...);
    ASSERT_EQ(b, a) << '"' << format << '"';
    ASSERT_EQ(0, memcmp(ours, theirs, sizeof ours)) << '"' << format << "\" gave \"" << ours << '"';
}

template <typename... Args>
void Same(const std::string& format, Args... args) {
    Same(512, format, args...);
}

TEST(KxLogFormat, TypicalLogLinesMatchTheCLibrary) {
    Same("request %06ld from host-%02ld completed in %4ld us status ok!!", 123456L, 7L, 42L);
    Same("%s: error %d creating mutex (name='%s')", "KMutex::Create(ASCII)", -13, "LOG_MUTEX");
    Same("%s: <%s> 0x%08X %u%%", "KFileUnix::GetFileSize", "/tmp/a b", 0xE0020103u, 99u);
    Same("%c%c%c|%-5c|%5c", 'a', 'b', 'c', 'x', 'y');
    Same("%.3s|%-8.2s|%8s|%-8s|%.0s|", "abcdef", "xyz", "right", "left", "gone");
    Same("%hhd %hhu %hd %hu %lld %llu %zu %zd %jd %td", 300, 300, 70000, 70000, LLONG_MIN,
         ULLONG_MAX, static_cast<size_t>(12345), static_cast<ssize_t>(-5),
         static_cast<intmax_t>(-77), static_cast<ptrdiff_t>(-9));
    Same("%d %d %i %ld %lx %lX", INT_MIN, INT_MAX, 0, LONG_MIN, ULONG_MAX, 0xABCDEFUL);
    Same("%+d %+d % d % d %+ d %-+6d| %06d %-06d| %+06d %x %+x % u", 5, -5, 5, -5, 5, 5, -42, -42,
         42, 255u, 255u, 7u);
    Same("no conversions at all, just text with UTF-8: \xc3\xa9\xe2\x82\xac");
    Same("");
}

TEST(KxLogFormat, EverythingElseIsHandedToTheCLibrary) {
    Same("%5.2f %e %g %a", 3.14159, 2.5e-10, 1e100, 0.5);
    Same("%*d|%-*d|%.*s", 6, 42, 4, 7, 3, "abcdef");
    Same("%#x %#o %o %p", 255u, 8u, 8u, reinterpret_cast<void*>(0x1234));
    Same("%2$s %1$s", "world", "hello");
    Same("%.5d %.0d %8.3d", 42, 0, -7);
    Same("%s|%5s", static_cast<const char*>(nullptr), static_cast<const char*>(nullptr));
    Same("%05s|%05c", "ab", 'c');
    Same("%ls", L"wide");
    Same("trailing %");
}

TEST(KxLogFormat, ResultsThatDoNotFitAreCutLikeTheCLibraryCutsThem) {
    for (size_t size : {0u, 1u, 2u, 5u, 10u, 17u})
        Same(size, "%s and %08d then %-6s.", "some text", -123, "end");
    Same(8, "exactly7");
    Same(8, "exactly8!");
}

}  // namespace
