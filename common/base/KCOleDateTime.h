// KCOleDateTime: a calendar date and time held as one day count (see base/kxTimeUtils.h for the
// form of the number) with a status, converting from and to _FILETIME, _SYSTEMTIME and time_t and
// formatting through strftime.
//
// Convention: operations set or return the status (valid, invalid, null); getters return -1 and
// Format returns "Invalid DateTime" for a value that is not valid. Nothing throws (except
// std::bad_alloc from KCString in Format) and nothing logs. A failed conversion changes only the
// status; the day count keeps its old value.
// Local time is whatever the process's time zone (TZ) says when a conversion runs.
// Thread safety: a plain value type; distinct objects may be used from different threads.
#pragma once

#include <cstdint>

#include "base/KCOleDateTimeSpan.h"
#include "base/KCString.h"
#include "base/kxWin32Types.h"

class KCOleDateTime {
public:
    enum DateTimeStatus : int32_t { valid = 0, invalid = 1, null = 2 };

    KCOleDateTime() = default;  // 1899-12-30 00:00 (day count 0), valid
    explicit KCOleDateTime(double date) { *this = date; }
    KCOleDateTime(uint16_t year, uint16_t month, uint16_t day, uint16_t hour, uint16_t minute,
                  uint16_t second) {
        SetDateTime(year, month, day, hour, minute, second);
    }
    // toLocal false: the file time is broken down as it is (FileTimeToSystemTime, which gives
    // local wall-clock time); true: as operator=(const _FILETIME&). Invalid when a conversion
    // fails.
    KCOleDateTime(const _FILETIME& fileTime, bool toLocal);

    // Takes the value; the status becomes valid (no range check: see CheckRange).
    KCOleDateTime& operator=(double date);
    // Local time of a Unix time (localtime_r); invalid when it cannot be broken down or the year
    // lies outside 100 ... 9999.
    KCOleDateTime& operator=(const long& unixTime);
    // From year, month, day, hour, minute and second; day of week and milliseconds are ignored.
    KCOleDateTime& operator=(const _SYSTEMTIME& systemTime);
    // FileTimeToLocalFileTime, FileTimeToSystemTime, then as for _SYSTEMTIME; invalid on failure.
    KCOleDateTime& operator=(const _FILETIME& fileTime);

    // The current local time, whole seconds (time(NULL) through operator=(const long&)).
    static KCOleDateTime GetTickCount();

    // Sets the date from calendar fields (rules of kxTimeUtils::_AfxOleDateFromTm, and a year
    // below 100 is out of range). Returns the new status: valid or invalid.
    DateTimeStatus SetDateTime(uint16_t year, uint16_t month, uint16_t day, uint16_t hour,
                               uint16_t minute, uint16_t second);

    // False unless valid and in range; else fills every field, day of week 0-6 with 0 = Sunday,
    // milliseconds 0. The value is rounded to the nearest second.
    bool GetAsSystemTime(_SYSTEMTIME& systemTime) const;

    // Fields of the value rounded to the nearest second: year in full, month 1-12, day 1-31,
    // hour, minute, second, day of week 1-7 with 1 = Sunday, day of year 1-366.
    // -1 when the status is not valid or the value is out of range.
    int GetYear() const;
    int GetMonth() const;
    int GetDay() const;
    int GetHour() const;
    int GetMinute() const;
    int GetSecond() const;
    int GetDayOfWeek() const;
    int GetDayOfYear() const;

    // Compare the continuous forms of the day counts; the status is not consulted.
    bool operator<(const KCOleDateTime& other) const;
    bool operator>(const KCOleDateTime& other) const;
    bool operator<=(const KCOleDateTime& other) const;
    bool operator>=(const KCOleDateTime& other) const;

    // Null if either side is null, else invalid if either is invalid, else the date moved by the
    // span on the continuous time line (0.0 - 0.5 days is 1899-12-29 12:00, day count -1.5),
    // range-checked.
    KCOleDateTime operator+(const KCOleDateTimeSpan& span) const;
    KCOleDateTime operator-(const KCOleDateTimeSpan& span) const;
    // Null if either side is null, else invalid if either is invalid, else the difference of
    // the continuous forms, valid (not range-checked).
    KCOleDateTimeSpan operator-(const KCOleDateTime& other) const;

    // strftime of the value's fields. Null gives ""; invalid or out of range gives
    // "Invalid DateTime"; a null format gives "". Output longer than 127 characters is cut to
    // its first 127 (strftime into 128 characters); output longer than 1023 gives "".
    KCString Format(const char* format) const;

    // Sets the status to invalid when the day count lies outside -657434 ... 2958465 (see
    // kxTimeUtils::kxMinDate: 0100-01-01 00:00 ... 9999-12-31 00:00) or is NaN.
    void CheckRange();

    DateTimeStatus GetStatus() const { return m_status; }
    void SetStatus(DateTimeStatus status) { m_status = status; }
    double GetDate() const { return m_date; }

    // "Invalid DateTime".
    static const char* GetInvalidDateTimeString();

private:
    double m_date = 0.0;
    DateTimeStatus m_status = valid;
};

#if KX_TARGET_32BIT
static_assert(sizeof(KCOleDateTime) == 12, "64-bit day count and 32-bit status, 4-byte aligned");
#endif
