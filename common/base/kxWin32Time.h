// Win32 time calls with their Win32 names and shapes and Unix semantics: sleeping, tick counts
// and the conversions between system time, local time and FILETIME. They sit in base because
// the date values there (KCOleDateTime) convert through them; platform/kxWin32.h includes them.
//
// Convention: functions return a BOOL (1 success, 0 failure) unless stated otherwise. None of
// these functions logs or throws.
//
// Thread safety: all may be called from any thread.
#pragma once

#include "base/kxWin32Types.h"

// Sleeps the whole time, resuming after signals.
void Sleep(DWORD milliseconds);

// Milliseconds of process clock ticks (times()), advancing in whole seconds: the tick count is
// divided by the tick rate before it is multiplied by 1000. The one-second resolution is
// deliberate; callers use it for coarse intervals only. If the rate is unknown the raw ticks
// are returned.
DWORD GetTickCount();

// Current UTC time; a null argument does nothing; a failing clock gives a zeroed record.
void GetSystemTime(_SYSTEMTIME* st);
// Current local wall-clock time (system time converted through FileTimeToSystemTime).
void GetLocalTime(_SYSTEMTIME* st);
// Current UTC time as a FILETIME, microsecond precision; 0 if the clock fails.
void GetSystemTimeAsFileTime(_FILETIME* ft);

// Reads st as local standard time (mktime with the daylight-saving flag 0), deliberately not as
// UTC; milliseconds and day of week are ignored. Fails on null arguments, years before 1970 and
// times before the epoch.
BOOL SystemTimeToFileTime(const _SYSTEMTIME* st, _FILETIME* ft);
// Breaks ft down as local time (localtime_r), deliberately: it is the inverse of
// SystemTimeToFileTime. Fails on null arguments or when the time cannot be broken down.
BOOL FileTimeToSystemTime(const _FILETIME* ft, _SYSTEMTIME* st);
// Adds (resp. subtracts) mktime(localtime_r(now)) - now seconds, which is normally zero: the
// local conversion is done by FileTimeToSystemTime. Fails on null arguments.
BOOL FileTimeToLocalFileTime(const _FILETIME* in, _FILETIME* out);
BOOL LocalFileTimeToFileTime(const _FILETIME* in, _FILETIME* out);
