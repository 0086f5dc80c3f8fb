// Sleeping, tick counts and the conversions between system time, local time and FILETIME.

#include <sys/time.h>
#include <sys/times.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <limits>

#include "base/kxEnv.h"
#include "base/kxWin32Time.h"

namespace {

// Clock ticks per second, cached by the first GetTickCount; 0 until then. Two threads may both
// store the same value, which is harmless.
long g_lClockTicksPerSecond = 0;

void FromTm(const struct tm& tm, uint16_t milliseconds, _SYSTEMTIME* st) {
    st->wYear = static_cast<uint16_t>(tm.tm_year + 1900);
    st->wMonth = static_cast<uint16_t>(tm.tm_mon + 1);
    st->wDayOfWeek = static_cast<uint16_t>(tm.tm_wday);
    st->wDay = static_cast<uint16_t>(tm.tm_mday);
    st->wHour = static_cast<uint16_t>(tm.tm_hour);
    st->wMinute = static_cast<uint16_t>(tm.tm_min);
    st->wSecond = static_cast<uint16_t>(tm.tm_sec);
    st->wMilliseconds = milliseconds;
}

// Seconds from local time to UTC as mktime sees the present moment; normally 0.
bool LocalOffsetSeconds(int64_t* offset) {
    const time_t now = time(nullptr);
    if (now == static_cast<time_t>(-1)) return false;
    struct tm tm;
    if (localtime_r(&now, &tm) == nullptr) return false;
    const time_t back = mktime(&tm);
    if (back == static_cast<time_t>(-1)) return false;
    *offset = static_cast<int64_t>(back) - static_cast<int64_t>(now);
    return true;
}

}  // namespace

void Sleep(DWORD milliseconds) {
    struct timespec request;
    request.tv_sec = static_cast<time_t>(milliseconds / 1000);
    request.tv_nsec = static_cast<long>(milliseconds % 1000) * 1000000L;
    struct timespec remaining;
    kxEnv* env = kxEnv::Default();
    while (env->NanoSleep(&request, &remaining) == -1 && errno == EINTR) request = remaining;
}

DWORD GetTickCount() {
    if (g_lClockTicksPerSecond == 0) g_lClockTicksPerSecond = sysconf(_SC_CLK_TCK);
    struct tms unused;
    const unsigned long ticks = static_cast<unsigned long>(times(&unused));
    if (g_lClockTicksPerSecond == -1) return static_cast<DWORD>(ticks);
    // Dividing before multiplying truncates to whole seconds (kept so; see the declaration).
    return static_cast<DWORD>(ticks / static_cast<unsigned long>(g_lClockTicksPerSecond) * 1000);
}

void GetSystemTime(_SYSTEMTIME* st) {
    if (st == nullptr) return;
    struct timeval tv;
    struct tm tm;
    if (kxEnv::Default()->GetTimeOfDay(&tv) != 0 || gmtime_r(&tv.tv_sec, &tm) == nullptr) {
        memset(st, 0, sizeof(*st));
        return;
    }
    FromTm(tm, static_cast<uint16_t>(tv.tv_usec / 1000), st);
}

void GetSystemTimeAsFileTime(_FILETIME* ft) {
    if (ft == nullptr) return;
    struct timeval tv;
    if (kxEnv::Default()->GetTimeOfDay(&tv) != 0) {
        *ft = kxFileTimeFromTicks(0);
        return;
    }
    const uint64_t micro = static_cast<uint64_t>(tv.tv_sec) * 1000000u + static_cast<uint64_t>(tv.tv_usec);
    *ft = kxFileTimeFromTicks(micro * 10 + kxFileTimeUnixEpoch);
}

void GetLocalTime(_SYSTEMTIME* st) {
    if (st == nullptr) return;
    _FILETIME utc, local;
    GetSystemTimeAsFileTime(&utc);
    if (!FileTimeToLocalFileTime(&utc, &local) || !FileTimeToSystemTime(&local, st))
        memset(st, 0, sizeof(*st));
}

BOOL SystemTimeToFileTime(const _SYSTEMTIME* st, _FILETIME* ft) {
    if (st == nullptr || ft == nullptr || st->wYear < 1970) return FALSE;
    struct tm tm;
    memset(&tm, 0, sizeof(tm));
    tm.tm_year = st->wYear - 1900;
    tm.tm_mon = st->wMonth - 1;
    tm.tm_mday = st->wDay;
    tm.tm_hour = st->wHour;
    tm.tm_min = st->wMinute;
    tm.tm_sec = st->wSecond;
    tm.tm_isdst = 0;  // local standard time, whatever the season
    const time_t seconds = mktime(&tm);
    if (seconds < 0) return FALSE;
    *ft = kxFileTimeFromTicks(static_cast<uint64_t>(seconds) * kxFileTimeTicksPerSecond +
                              kxFileTimeUnixEpoch);
    return TRUE;
}

BOOL FileTimeToSystemTime(const _FILETIME* ft, _SYSTEMTIME* st) {
    if (ft == nullptr || st == nullptr) return FALSE;
    // Signed, floored arithmetic so that times before 1970 break down correctly instead of
    // wrapping round to the far future.
    const int64_t ticks = static_cast<int64_t>(kxFileTimeToTicks(*ft) - kxFileTimeUnixEpoch);
    const int64_t perSecond = static_cast<int64_t>(kxFileTimeTicksPerSecond);
    int64_t seconds = ticks / perSecond;
    int64_t rest = ticks % perSecond;
    if (rest < 0) {
        rest += perSecond;
        --seconds;
    }
    if (seconds < static_cast<int64_t>(std::numeric_limits<time_t>::min()) ||
        seconds > static_cast<int64_t>(std::numeric_limits<time_t>::max())) {
        errno = EOVERFLOW;
        return FALSE;
    }
    const time_t t = static_cast<time_t>(seconds);
    struct tm tm;
    if (localtime_r(&t, &tm) == nullptr) return FALSE;
    FromTm(tm, static_cast<uint16_t>(rest / 10000), st);
    return TRUE;
}

BOOL FileTimeToLocalFileTime(const _FILETIME* in, _FILETIME* out) {
    int64_t offset;
    if (in == nullptr || out == nullptr || !LocalOffsetSeconds(&offset)) return FALSE;
    *out = kxFileTimeFromTicks(kxFileTimeToTicks(*in) +
                               static_cast<uint64_t>(offset) * kxFileTimeTicksPerSecond);
    return TRUE;
}

BOOL LocalFileTimeToFileTime(const _FILETIME* in, _FILETIME* out) {
    int64_t offset;
    if (in == nullptr || out == nullptr || !LocalOffsetSeconds(&offset)) return FALSE;
    *out = kxFileTimeFromTicks(kxFileTimeToTicks(*in) -
                               static_cast<uint64_t>(offset) * kxFileTimeTicksPerSecond);
    return TRUE;
}
