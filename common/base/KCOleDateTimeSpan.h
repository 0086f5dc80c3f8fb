// KCOleDateTimeSpan: the difference between two dates, in days (may be negative), with a status.
//
// Convention: operations set or return the status (valid, invalid, null); nothing throws or logs.
// A null or invalid span keeps its number, which then means nothing.
// Thread safety: a plain value type; distinct objects may be used from different threads.
#pragma once

#include <cstdint>

class KCOleDateTimeSpan {
public:
    enum DateTimeSpanStatus : int32_t { valid = 0, invalid = 1, null = 2 };

    // Valid spans: -kxMaxSpan ... kxMaxSpan days.
    static constexpr double kxMaxSpan = 3615897.0;

    KCOleDateTimeSpan() = default;  // 0 days, valid
    explicit KCOleDateTimeSpan(double days) : m_span(days) {}  // valid, no range check
    KCOleDateTimeSpan(long days, int hours, int minutes, int seconds) {
        SetDateTimeSpan(days, hours, minutes, seconds);
    }

    // Takes the value; the status becomes valid (no range check).
    KCOleDateTimeSpan& operator=(double days);
    // Copies take the value and the status.

    // days + hours/24 + minutes/1440 + seconds/86400 (any signs mix); valid, no range check.
    void SetDateTimeSpan(long days, int hours, int minutes, int seconds);

    // Null if either side is null, else invalid if either is invalid, else the sum or difference
    // checked by CheckRange.
    KCOleDateTimeSpan operator+(const KCOleDateTimeSpan& other) const;
    KCOleDateTimeSpan operator-(const KCOleDateTimeSpan& other) const;

    // The whole days (towards zero; 0 for NaN, clamped to the range of long), and the span
    // itself, in days.
    long GetDays() const;
    double GetTotalDays() const { return m_span; }

    // Hour, minute and second parts of the span. Each adds 1/172800 (half a second in days) to
    // the fraction of its own unit (of the day count, of 24 x it, of 1440 x it), truncates, and
    // wraps a full unit to 0. So the hours round to the nearest second, the minutes move up only
    // within 0.02 s of the next minute and the seconds within 0.35 ms of the next second:
    // 10 min 59.99 s reads as 11 minutes and 59 seconds, 1.999999 days as 0 hours. Deliberate:
    // callers rely on these exact results; do not "correct" the rounding.
    // A negative span gives the mirror image of the positive one (the half second is taken away
    // from zero, the wrap is at -24 or -60), so GetHours of -x is -GetHours of x. NaN gives 0.
    long GetHours() const;
    long GetMinutes() const;
    long GetSeconds() const;

    // Sets the status to invalid when the span lies outside -kxMaxSpan ... kxMaxSpan (or is NaN).
    void CheckRange();

    DateTimeSpanStatus GetStatus() const { return m_status; }
    void SetStatus(DateTimeSpanStatus status) { m_status = status; }

    // The text that formatting gives for an invalid span: "Invalid DateTimeSpan".
    static const char* GetInvalidDateTimeSpanString();

private:
    double m_span = 0.0;
    DateTimeSpanStatus m_status = valid;
};

#if KX_TARGET_32BIT
static_assert(sizeof(KCOleDateTimeSpan) == 12, "64-bit span and 32-bit status, 4-byte aligned");
#endif
