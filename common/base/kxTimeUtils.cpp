#include "base/kxTimeUtils.h"

#include <cmath>

namespace kxTimeUtils {

const int _afxMonthDays[13] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365};

namespace {

// Days from 0000-01-01 (proleptic; year 0 is a leap year) to 1899-12-30.
constexpr long kDaysToEpoch = 693959;
constexpr long kDaysPer400Years = 146097;
constexpr long kDaysPerCentury = 36524;  // a century whose first year is not a leap year
constexpr long kDaysPer4Years = 1461;    // a block whose first year is a leap year
constexpr long kSecondsPerDay = 86400;

bool IsLeapYear(long year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

// The calendar fields of a date, in the conventions of _AfxTmFromOleDate.
struct Fields {
    long year, month, day, hour, minute, second, weekday, yearDay;
};

bool FieldsFromDate(double date, Fields& out) {
    if (!(date >= kxMinDate && date <= kxMaxDate))
        return false;

    // Round on the continuous form so that a time just before midnight moves to the next day
    // for early dates too (on the raw form it would move away from it).
    const double x = _AfxDoubleFromDate(date) + kxHalfSecond;
    const double whole = std::floor(x);
    long days = static_cast<long>(whole);
    long secondsInDay = static_cast<long>((x - whole) * kSecondsPerDay);
    if (secondsInDay >= kSecondsPerDay) {
        ++days;
        secondsInDay = 0;
    }

    out.weekday = (days + kDaysToEpoch - 1) % 7 + 1;

    // Peel off 400-year cycles, centuries, 4-year blocks and years, tracking whether the first
    // year of the current block is a leap year.
    long n = days + kDaysToEpoch;
    long year = 400 * (n / kDaysPer400Years);
    n %= kDaysPer400Years;

    bool centuryStartsLeap = true;  // the first century of a cycle starts with year 400k
    if (n >= kDaysPerCentury + 1) {
        n -= kDaysPerCentury + 1;
        year += 100 + 100 * (n / kDaysPerCentury);
        n %= kDaysPerCentury;
        centuryStartsLeap = false;
    }

    bool blockStartsLeap = true;
    if (centuryStartsLeap) {
        year += 4 * (n / kDaysPer4Years);
        n %= kDaysPer4Years;
    } else if (n >= kDaysPer4Years - 1) {
        n -= kDaysPer4Years - 1;
        year += 4 + 4 * (n / kDaysPer4Years);
        n %= kDaysPer4Years;
    } else {
        blockStartsLeap = false;  // the block starts with the century year, which is not leap
    }

    bool leap = false;
    if (!blockStartsLeap) {
        year += n / 365;
        n %= 365;
    } else if (n >= 366) {
        n -= 366;
        year += 1 + n / 365;
        n %= 365;
    } else {
        leap = true;
    }

    out.year = year;
    out.yearDay = n + 1;

    long dayOfYear = out.yearDay;
    if (leap && dayOfYear == 60) {
        out.month = 2;
        out.day = 29;
    } else {
        if (leap && dayOfYear > 60)
            --dayOfYear;
        long month = dayOfYear / 32 + 1;
        while (_afxMonthDays[month] < dayOfYear)
            ++month;
        out.month = month;
        out.day = dayOfYear - _afxMonthDays[month - 1];
    }

    out.second = secondsInDay % 60;
    out.minute = (secondsInDay / 60) % 60;
    out.hour = secondsInDay / 3600;
    return true;
}

}  // namespace

bool _AfxOleDateFromTm(uint16_t year, uint16_t month, uint16_t day, uint16_t hour,
                       uint16_t minute, uint16_t second, double& out) {
    if (year > 9999 || month < 1 || month > 12 || day == 0)
        return false;
    const bool leap = IsLeapYear(year);
    const int monthLength =
        _afxMonthDays[month] - _afxMonthDays[month - 1] + ((leap && month == 2) ? 1 : 0);
    if (day > monthLength || hour >= 24 || minute >= 60 || second >= 60)
        return false;

    long days = 365L * year + year / 4 - year / 100 + year / 400 + _afxMonthDays[month - 1] + day;
    if (month <= 2 && leap)
        --days;
    days -= kDaysToEpoch;

    const double time = static_cast<double>(hour * 3600L + minute * 60L + second) / kSecondsPerDay;
    out = days >= 0 ? days + time : days - time;
    return true;
}

bool _AfxTmFromOleDate(double date, tm& out) {
    Fields f;
    if (!FieldsFromDate(date, f))
        return false;
    out = tm{};
    out.tm_year = static_cast<int>(f.year);
    out.tm_mon = static_cast<int>(f.month);
    out.tm_mday = static_cast<int>(f.day);
    out.tm_hour = static_cast<int>(f.hour);
    out.tm_min = static_cast<int>(f.minute);
    out.tm_sec = static_cast<int>(f.second);
    out.tm_wday = static_cast<int>(f.weekday);
    out.tm_yday = static_cast<int>(f.yearDay);
    return true;
}

void _AfxTmConvertToStandardFormat(tm& value) {
    value.tm_year -= 1900;
    value.tm_mon -= 1;
    value.tm_wday -= 1;
    value.tm_yday -= 1;
}

bool _AfxSystemTimeFromOleDate(double date, _SYSTEMTIME& out) {
    Fields f;
    if (!FieldsFromDate(date, f))
        return false;
    out.wYear = static_cast<uint16_t>(f.year);
    out.wMonth = static_cast<uint16_t>(f.month);
    out.wDayOfWeek = static_cast<uint16_t>(f.weekday - 1);
    out.wDay = static_cast<uint16_t>(f.day);
    out.wHour = static_cast<uint16_t>(f.hour);
    out.wMinute = static_cast<uint16_t>(f.minute);
    out.wSecond = static_cast<uint16_t>(f.second);
    out.wMilliseconds = 0;
    return true;
}

double _AfxDoubleFromDate(double date) {
    if (date >= 0)
        return date;
    const double c = std::ceil(date);
    return c - (date - c);
}

double _AfxDateFromDouble(double value) {
    if (value >= 0)
        return value;
    const double f = std::floor(value);
    return f + (f - value);
}

}  // namespace kxTimeUtils
