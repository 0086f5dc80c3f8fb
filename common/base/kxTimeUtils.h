// Conversions between the day-count form of a date and broken-down calendar fields.
//
// Day-count form: a double whose whole part counts days from 1899-12-30 and whose fraction is the
// time of day as a part of 86400 seconds. Before 1899-12-30 the whole part is negative while the
// fraction still counts forward from midnight (-1.25 is 1899-12-29 06:00), so the stored values
// are not continuous around 0. Kept that way for compatibility with stored dates; arithmetic goes
// through _AfxDoubleFromDate / _AfxDateFromDouble. The calendar is the proleptic Gregorian one.
//
// Convention: boolean results (true: converted; false: input out of range or invalid), no logging,
// no exceptions. All functions are pure and safe from any thread.
#pragma once

#include <cstdint>
#include <ctime>

#include "base/kxWin32Types.h"

namespace kxTimeUtils {

// Valid day counts: -657434 (0100-01-01 00:00) ... 2958465 (9999-12-31 00:00), compared as stored.
// So later times on 9999-12-31 are out of range, and so are times after midnight on 0100-01-01
// (their stored values lie below -657434); kept as it is for compatibility with stored values.
constexpr double kxMinDate = -657434.0;
constexpr double kxMaxDate = 2958465.0;
// Half a second in days: the rounding step to the nearest second.
constexpr double kxHalfSecond = 1.0 / 172800.0;

// Days before the first of each month in a non-leap year; [12] is the length of the year.
extern const int _afxMonthDays[13];

// Day count of a calendar date and time (year in full, month 1-12, day 1-31, hour 0-23,
// minute 0-59, second 0-59). False when year > 9999, the month or day is out of its range
// (February 29 only in leap years) or a time field is too large; `out` is then unchanged.
// Years 0-99 are computed but lie below kxMinDate; callers range-check the result.
bool _AfxOleDateFromTm(uint16_t year, uint16_t month, uint16_t day, uint16_t hour,
                       uint16_t minute, uint16_t second, double& out);

// Breaks a day count down, rounded to the nearest second, into `out` with these conventions:
// tm_year in full, tm_mon 1-12, tm_mday 1-31, tm_hour/min/sec as usual, tm_wday 1-7 with
// 1 = Sunday, tm_yday 1-366; every other field is 0. False (and `out` unchanged) outside
// kxMinDate ... kxMaxDate or for NaN.
// A date before 1899-12-30 less than half a second before midnight rounds into the next day,
// as for later dates: the rounding is done on the continuous form of the value.
bool _AfxTmFromOleDate(double date, tm& out);

// Turns the conventions of _AfxTmFromOleDate into those of struct tm: year - 1900, month - 1,
// weekday - 1 (0 = Sunday), day of year - 1.
void _AfxTmConvertToStandardFormat(tm& value);

// The decomposition of _AfxTmFromOleDate as a _SYSTEMTIME: full year, month 1-12, day of week
// 0-6 with 0 = Sunday, milliseconds 0. False (and `out` unchanged) when out of range.
bool _AfxSystemTimeFromOleDate(double date, _SYSTEMTIME& out);

// Day count -> continuous number of days: d when d >= 0, else c - (d - c) with c = ceil(d).
double _AfxDoubleFromDate(double date);
// Continuous number of days -> day count: x when x >= 0, else f + (f - x) with f = floor(x).
double _AfxDateFromDouble(double value);

}  // namespace kxTimeUtils
