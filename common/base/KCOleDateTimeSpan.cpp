#include "base/KCOleDateTimeSpan.h"

#include <cmath>
#include <limits>

#include "base/kxTimeUtils.h"

namespace {

// See GetHours: `fraction` is the part of one unit, `units` how many smaller units it holds.
long SmallerUnits(double fraction, long units) {
    if (std::isnan(fraction))
        return 0;
    const double half = fraction < 0 ? -kxTimeUtils::kxHalfSecond : kxTimeUtils::kxHalfSecond;
    long n = static_cast<long>((fraction + half) * units);
    if (n >= units)
        n -= units;
    else if (n <= -units)
        n += units;
    return n;
}

double Fraction(double value) {
    double whole;
    return std::modf(value, &whole);
}

}  // namespace

KCOleDateTimeSpan& KCOleDateTimeSpan::operator=(double days) {
    m_span = days;
    m_status = valid;
    return *this;
}

void KCOleDateTimeSpan::SetDateTimeSpan(long days, int hours, int minutes, int seconds) {
    m_span = days + hours / 24.0 + minutes / 1440.0 + seconds / 86400.0;
    m_status = valid;
}

KCOleDateTimeSpan KCOleDateTimeSpan::operator+(const KCOleDateTimeSpan& other) const {
    KCOleDateTimeSpan result;
    if (m_status == null || other.m_status == null) {
        result.m_status = null;
    } else if (m_status == invalid || other.m_status == invalid) {
        result.m_status = invalid;
    } else {
        result.m_span = m_span + other.m_span;
        result.CheckRange();
    }
    return result;
}

KCOleDateTimeSpan KCOleDateTimeSpan::operator-(const KCOleDateTimeSpan& other) const {
    KCOleDateTimeSpan negated(other);
    negated.m_span = -other.m_span;
    return *this + negated;
}

long KCOleDateTimeSpan::GetDays() const {
    constexpr double kLow = static_cast<double>(std::numeric_limits<long>::min());
    // 2^63 or 2^31: the first value above the range of long.
    constexpr double kHigh = -kLow;
    if (std::isnan(m_span))
        return 0;
    if (m_span <= kLow)
        return std::numeric_limits<long>::min();
    if (m_span >= kHigh)
        return std::numeric_limits<long>::max();
    return static_cast<long>(m_span);
}

long KCOleDateTimeSpan::GetHours() const { return SmallerUnits(Fraction(m_span), 24); }

long KCOleDateTimeSpan::GetMinutes() const { return SmallerUnits(Fraction(24 * m_span), 60); }

long KCOleDateTimeSpan::GetSeconds() const { return SmallerUnits(Fraction(1440 * m_span), 60); }

void KCOleDateTimeSpan::CheckRange() {
    if (!(m_span >= -kxMaxSpan && m_span <= kxMaxSpan))
        m_status = invalid;
}

const char* KCOleDateTimeSpan::GetInvalidDateTimeSpanString() { return "Invalid DateTimeSpan"; }
