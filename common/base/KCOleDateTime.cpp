#include "base/KCOleDateTime.h"

#include <algorithm>
#include <ctime>

#include "base/kxTimeUtils.h"
#include "base/kxWin32Time.h"

using namespace kxTimeUtils;

namespace {

// strftime writes into this many characters, terminator included; longer output is cut.
constexpr size_t kFormatChars = 128;
// Room for output that strftime would otherwise refuse outright, so that it can be cut.
constexpr size_t kFormatScratch = 1024;

bool Decompose(const KCOleDateTime& value, tm& fields) {
    return value.GetStatus() == KCOleDateTime::valid && _AfxTmFromOleDate(value.GetDate(), fields);
}

}  // namespace

KCOleDateTime::KCOleDateTime(const _FILETIME& fileTime, bool toLocal) {
    if (toLocal) {
        *this = fileTime;
        return;
    }
    _SYSTEMTIME systemTime;
    if (FileTimeToSystemTime(&fileTime, &systemTime))
        *this = systemTime;
    else
        m_status = invalid;
}

KCOleDateTime& KCOleDateTime::operator=(double date) {
    m_date = date;
    m_status = valid;
    return *this;
}

KCOleDateTime& KCOleDateTime::operator=(const long& unixTime) {
    const time_t t = static_cast<time_t>(unixTime);
    tm local;
    // The year is checked before it is narrowed to 16 bits.
    if (localtime_r(&t, &local) == nullptr || local.tm_year < 100 - 1900 ||
        local.tm_year > 9999 - 1900) {
        m_status = invalid;
        return *this;
    }
    SetDateTime(static_cast<uint16_t>(local.tm_year + 1900), static_cast<uint16_t>(local.tm_mon + 1),
                static_cast<uint16_t>(local.tm_mday), static_cast<uint16_t>(local.tm_hour),
                static_cast<uint16_t>(local.tm_min), static_cast<uint16_t>(local.tm_sec));
    return *this;
}

KCOleDateTime& KCOleDateTime::operator=(const _SYSTEMTIME& systemTime) {
    SetDateTime(systemTime.wYear, systemTime.wMonth, systemTime.wDay, systemTime.wHour,
                systemTime.wMinute, systemTime.wSecond);
    return *this;
}

KCOleDateTime& KCOleDateTime::operator=(const _FILETIME& fileTime) {
    _FILETIME local;
    _SYSTEMTIME systemTime;
    if (FileTimeToLocalFileTime(&fileTime, &local) && FileTimeToSystemTime(&local, &systemTime))
        *this = systemTime;
    else
        m_status = invalid;
    return *this;
}

KCOleDateTime KCOleDateTime::GetTickCount() {
    KCOleDateTime now;
    now = static_cast<long>(time(nullptr));
    return now;
}

KCOleDateTime::DateTimeStatus KCOleDateTime::SetDateTime(uint16_t year, uint16_t month,
                                                         uint16_t day, uint16_t hour,
                                                         uint16_t minute, uint16_t second) {
    double date;
    if (_AfxOleDateFromTm(year, month, day, hour, minute, second, date)) {
        m_date = date;
        m_status = valid;
        CheckRange();
    } else {
        m_status = invalid;
    }
    return m_status;
}

bool KCOleDateTime::GetAsSystemTime(_SYSTEMTIME& systemTime) const {
    return m_status == valid && _AfxSystemTimeFromOleDate(m_date, systemTime);
}

int KCOleDateTime::GetYear() const {
    tm f;
    return Decompose(*this, f) ? f.tm_year : -1;
}

int KCOleDateTime::GetMonth() const {
    tm f;
    return Decompose(*this, f) ? f.tm_mon : -1;
}

int KCOleDateTime::GetDay() const {
    tm f;
    return Decompose(*this, f) ? f.tm_mday : -1;
}

int KCOleDateTime::GetHour() const {
    tm f;
    return Decompose(*this, f) ? f.tm_hour : -1;
}

int KCOleDateTime::GetMinute() const {
    tm f;
    return Decompose(*this, f) ? f.tm_min : -1;
}

int KCOleDateTime::GetSecond() const {
    tm f;
    return Decompose(*this, f) ? f.tm_sec : -1;
}

int KCOleDateTime::GetDayOfWeek() const {
    tm f;
    return Decompose(*this, f) ? f.tm_wday : -1;
}

int KCOleDateTime::GetDayOfYear() const {
    tm f;
    return Decompose(*this, f) ? f.tm_yday : -1;
}

bool KCOleDateTime::operator<(const KCOleDateTime& other) const {
    return _AfxDoubleFromDate(m_date) < _AfxDoubleFromDate(other.m_date);
}

bool KCOleDateTime::operator>(const KCOleDateTime& other) const {
    return _AfxDoubleFromDate(m_date) > _AfxDoubleFromDate(other.m_date);
}

bool KCOleDateTime::operator<=(const KCOleDateTime& other) const {
    return _AfxDoubleFromDate(m_date) <= _AfxDoubleFromDate(other.m_date);
}

bool KCOleDateTime::operator>=(const KCOleDateTime& other) const {
    return _AfxDoubleFromDate(m_date) >= _AfxDoubleFromDate(other.m_date);
}

KCOleDateTime KCOleDateTime::operator+(const KCOleDateTimeSpan& span) const {
    KCOleDateTime result;
    if (m_status == null || span.GetStatus() == KCOleDateTimeSpan::null) {
        result.m_status = null;
    } else if (m_status == invalid || span.GetStatus() == KCOleDateTimeSpan::invalid) {
        result.m_status = invalid;
    } else {
        result.m_date = _AfxDateFromDouble(_AfxDoubleFromDate(m_date) + span.GetTotalDays());
        result.CheckRange();
    }
    return result;
}

KCOleDateTime KCOleDateTime::operator-(const KCOleDateTimeSpan& span) const {
    KCOleDateTimeSpan negated(span);
    negated = -span.GetTotalDays();
    negated.SetStatus(span.GetStatus());
    return *this + negated;
}

KCOleDateTimeSpan KCOleDateTime::operator-(const KCOleDateTime& other) const {
    KCOleDateTimeSpan result;
    if (m_status == null || other.m_status == null)
        result.SetStatus(KCOleDateTimeSpan::null);
    else if (m_status == invalid || other.m_status == invalid)
        result.SetStatus(KCOleDateTimeSpan::invalid);
    else
        result = _AfxDoubleFromDate(m_date) - _AfxDoubleFromDate(other.m_date);
    return result;
}

KCString KCOleDateTime::Format(const char* format) const {
    if (m_status == null || format == nullptr)
        return KCString();
    tm fields;
    if (!Decompose(*this, fields))
        return KCString(GetInvalidDateTimeString());
    _AfxTmConvertToStandardFormat(fields);
    char text[kFormatScratch];
    const size_t length = strftime(text, sizeof(text), format, &fields);
    return KCString(text, static_cast<int>(std::min(length, kFormatChars - 1)));
}

void KCOleDateTime::CheckRange() {
    if (!(m_date >= kxMinDate && m_date <= kxMaxDate))
        m_status = invalid;
}

const char* KCOleDateTime::GetInvalidDateTimeString() { return "Invalid DateTime"; }
