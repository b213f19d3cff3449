// UTC without the C library's lock on the time zone.

#pragma once

#include <ctime>

/// Breaks `now` down as gmtime_r() does, the day of the week, the day of the year and the year excepted, which are 0. Takes
/// no lock, so a signal handler may call it.
/// See H. Hinnant, "chrono-Compatible Low-Level Date Algorithms", civil_from_days().
void breakDownUtc(time_t now, struct tm* utc);
