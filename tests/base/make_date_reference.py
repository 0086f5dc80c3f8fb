#!/usr/bin/env python3
"""Writes kxDateReference.inc: calendar reference values for the date-time tests.

Only dates in the valid range are written: day counts from -657434 (0100-01-01 00:00) to 2958465
(9999-12-31 00:00); later times on 9999-12-31, and times after midnight on 0100-01-01 (whose day
counts lie below -657434), are outside it.

The values come from Python's own calendar (datetime, proleptic Gregorian) and time-zone
database (zoneinfo), so that the C++ day-count arithmetic is checked against an independent
implementation rather than against itself. Run it from anywhere; it rewrites the file beside it:

    python3 tests/base/make_date_reference.py

The output is deterministic (fixed random seed), so rerunning it must leave the file unchanged.

Day-count form of a date: whole days since 1899-12-30 00:00, plus the time of day as a fraction
of 86400 seconds. Before 1899-12-30 the whole part is negative and the fraction still counts
forward from midnight, so it is subtracted: 1899-12-29 06:00 is -1.25.
"""

import datetime as dt
import os
import random
import zoneinfo

EPOCH = dt.datetime(1899, 12, 30)
UNIX_EPOCH = dt.datetime(1970, 1, 1, tzinfo=dt.timezone.utc)
ZONES = ["UTC", "Europe/Berlin", "America/New_York"]


def ole_value(moment):
    """The day-count form of a naive datetime, as an exact double."""
    delta = moment - EPOCH
    days = delta.days  # floor: the calendar day, counted from 1899-12-30
    day_start = EPOCH + dt.timedelta(days=days)
    seconds = (moment - day_start) / dt.timedelta(seconds=1)  # forward from midnight
    fraction = seconds / 86400
    return days + fraction if days >= 0 else days - fraction


def continuous_value(moment):
    """Days since 1899-12-30 00:00 on a continuous time line (negative before it)."""
    return (moment - EPOCH) / dt.timedelta(days=1)


def weekday_sunday_one(moment):
    return moment.isoweekday() % 7 + 1


def calendar_moments(rng):
    fixed = [
        (100, 1, 1, 0, 0, 0), (100, 1, 2, 0, 0, 0), (100, 2, 28, 23, 59, 59), (100, 3, 1, 0, 0, 0),
        (100, 12, 31, 12, 0, 0), (101, 1, 1, 0, 0, 1), (104, 2, 29, 6, 30, 0),
        (400, 2, 29, 0, 0, 0), (400, 12, 31, 0, 0, 0), (401, 1, 1, 0, 0, 0),
        (1582, 10, 4, 0, 0, 0), (1582, 10, 15, 0, 0, 0), (1600, 2, 29, 0, 0, 0),
        (1600, 12, 31, 23, 59, 59), (1700, 2, 28, 0, 0, 0), (1700, 3, 1, 0, 0, 0),
        (1800, 12, 31, 0, 0, 0), (1899, 1, 1, 0, 0, 0), (1899, 12, 28, 18, 0, 0),
        (1899, 12, 29, 0, 0, 0), (1899, 12, 29, 6, 0, 0), (1899, 12, 29, 23, 59, 59),
        (1899, 12, 30, 0, 0, 0), (1899, 12, 30, 0, 0, 1), (1899, 12, 31, 0, 0, 0),
        (1900, 1, 1, 12, 0, 0), (1900, 2, 28, 0, 0, 0), (1900, 3, 1, 0, 0, 0),
        (1969, 12, 31, 23, 59, 59), (1970, 1, 1, 0, 0, 0), (2000, 2, 29, 0, 0, 0),
        (2000, 12, 31, 0, 0, 0), (2023, 2, 28, 0, 0, 0), (2023, 3, 1, 0, 0, 0),
        (2024, 2, 29, 0, 0, 0), (2024, 12, 31, 23, 59, 59), (2038, 1, 19, 3, 14, 7),
        (2100, 2, 28, 0, 0, 0), (2100, 3, 1, 0, 0, 0), (9999, 12, 30, 23, 59, 59),
        (9999, 12, 31, 0, 0, 0),
    ]
    moments = [dt.datetime(*f) for f in fixed]
    # The first and last day of every month of a leap year and of a century year that is not.
    for year in (1900, 2024):
        for month in range(1, 13):
            first = dt.datetime(year, month, 1, 8, 15, 30)
            moments.append(first)
            moments.append(first.replace(month=month % 12 + 1, year=year + month // 12)
                           - dt.timedelta(days=1))
    # Year ends and leap days around the ends of 400-year cycles, centuries and 4-year blocks.
    for year in (104, 399, 400, 1700, 1704, 1800, 2100, 2400, 9996, 9999):
        moments.append(dt.datetime(year, 1, 1, 0, 0, 0))
        moments.append(dt.datetime(year, 2, 28, 23, 0, 0))
        moments.append(dt.datetime(year, 3, 1, 1, 0, 0))
        if year != 9999:
            moments.append(dt.datetime(year, 12, 31, 22, 0, 0))
        if year % 4 == 0 and (year % 100 != 0 or year % 400 == 0):
            moments.append(dt.datetime(year, 2, 29, 12, 0, 0))
    lo = dt.datetime(100, 1, 2).toordinal()
    hi = dt.datetime(9999, 12, 30).toordinal()
    for _ in range(40):
        day = dt.datetime.fromordinal(rng.randint(lo, hi))
        moments.append(day.replace(hour=rng.randrange(24), minute=rng.randrange(60),
                                   second=rng.randrange(60)))
    return moments


def rounding_moments(rng):
    """Instants with a part of a second, away from the half second, and what they round to."""
    fixed = [
        dt.datetime(2024, 6, 1, 12, 0, 0, 700000), dt.datetime(2024, 6, 1, 12, 0, 0, 300000),
        dt.datetime(2024, 12, 31, 23, 59, 59, 800000), dt.datetime(1899, 12, 30, 0, 0, 0, 200000),
        dt.datetime(1899, 12, 29, 23, 59, 59, 700000), dt.datetime(1899, 12, 29, 23, 59, 59, 200000),
        dt.datetime(1899, 12, 29, 0, 0, 0, 300000), dt.datetime(1800, 2, 28, 23, 59, 59, 900000),
        dt.datetime(100, 1, 2, 0, 0, 0, 400000), dt.datetime(100, 1, 2, 23, 59, 59, 900000),
        dt.datetime(9999, 12, 30, 23, 59, 59, 700000), dt.datetime(9999, 12, 30, 23, 59, 58, 300000),
    ]
    moments = list(fixed)
    lo = dt.datetime(100, 1, 2).toordinal()
    hi = dt.datetime(9999, 12, 29).toordinal()
    for _ in range(20):
        day = dt.datetime.fromordinal(rng.randint(lo, hi))
        moments.append(day.replace(hour=rng.randrange(24), minute=rng.randrange(60),
                                   second=rng.randrange(60),
                                   microsecond=rng.choice([100000, 250000, 700000, 900000])))
    rows = []
    for moment in moments:
        rounded = moment.replace(microsecond=0)
        if moment.microsecond >= 500000:
            rounded += dt.timedelta(seconds=1)
        rows.append((ole_value(moment), rounded))
    return rows


def zone_instants():
    """Unix times around the daylight-saving changes of the test zones, and plain ones."""
    instants = [0, 1, 86399, 86400, 951782400, 1000000000, 1234567890, 1700000000, 2147483647]
    # 1996 and 2007: years in which the two zones changed their rules.
    for year in (1996, 2007):
        for zone in ZONES[1:]:
            tz = zoneinfo.ZoneInfo(zone)
            # Find the transitions by scanning the year hour by hour.
            start = int(dt.datetime(year, 1, 1, tzinfo=dt.timezone.utc).timestamp())
            previous = None
            for t in range(start, start + 366 * 86400, 3600):
                offset = dt.datetime.fromtimestamp(t, tz).utcoffset()
                if previous is not None and offset != previous:
                    instants.extend([t - 1, t, t + 3600])
                previous = offset
    return sorted(set(i for i in instants if 0 <= i <= 2147483647))


def main():
    rng = random.Random(20240229)
    lines = [
        "// Generated by make_date_reference.py from Python's datetime and zoneinfo; do not edit.",
        "// Regenerate with: python3 tests/base/make_date_reference.py",
        "",
        "// {year, month, day, hour, minute, second, day of week (1 = Sunday), day of year,",
        "//  day count, continuous days}",
        "static const CalendarRow kCalendarRows[] = {",
    ]
    for m in calendar_moments(rng):
        lines.append("    {%d, %d, %d, %d, %d, %d, %d, %d, %s, %s}," % (
            m.year, m.month, m.day, m.hour, m.minute, m.second, weekday_sunday_one(m),
            m.timetuple().tm_yday, ole_value(m).hex(), continuous_value(m).hex()))
    lines += [
        "};",
        "",
        "// A day count with a part of a second, and the date it rounds to:",
        "// {day count, year, month, day, hour, minute, second}",
        "static const RoundingRow kRoundingRows[] = {",
    ]
    for value, r in rounding_moments(rng):
        lines.append("    {%s, %d, %d, %d, %d, %d, %d}," % (
            value.hex(), r.year, r.month, r.day, r.hour, r.minute, r.second))
    lines += [
        "};",
        "",
        "// Local time of a Unix time in a zone:",
        "// {zone, unix time, year, month, day, hour, minute, second, day of week (0 = Sunday), dst}",
        "static const ZoneRow kZoneRows[] = {",
    ]
    for zone in ZONES:
        tz = zoneinfo.ZoneInfo(zone)
        for t in zone_instants():
            m = (UNIX_EPOCH + dt.timedelta(seconds=t)).astimezone(tz)
            dst = 1 if m.dst() else 0
            lines.append('    {"%s", %d, %d, %d, %d, %d, %d, %d, %d, %d},' % (
                zone, t, m.year, m.month, m.day, m.hour, m.minute, m.second,
                m.isoweekday() % 7, dst))
    lines += ["};", ""]
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "kxDateReference.inc")
    with open(path, "w", encoding="ascii") as out:
        out.write("\n".join(lines))


if __name__ == "__main__":
    main()
