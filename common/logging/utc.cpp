#include "utc.h"

#include <cstdint>

namespace {

constexpr int64_t kSecondsPerDay = 86400;
constexpr int64_t kDaysPerEra = 146097;       // 400 years
constexpr int64_t kDaysBeforeEpoch = 719468;  // from March 1st of the year 0, with which the first era begins

int64_t floorModulo(int64_t value, int64_t divisor) {
    return (value % divisor + divisor) % divisor;
}

}  // namespace

void breakDownUtc(time_t now, struct tm* utc) {
    const int64_t seconds = floorModulo(now, kSecondsPerDay);
    const int64_t day = floorModulo((now - seconds) / kSecondsPerDay + kDaysBeforeEpoch, kDaysPerEra);
    const int64_t year = (day - day / 1460 + day / 36524 - day / 146096) / 365;  // of the era
    const int64_t dayOfYear = day - (365 * year + year / 4 - year / 100);        // from March 1st
    const int64_t month = (5 * dayOfYear + 2) / 153;                             // from March
    *utc = {};
    utc->tm_mon = static_cast<int>(month < 10 ? month + 2 : month - 10);
    utc->tm_mday = static_cast<int>(dayOfYear - (153 * month + 2) / 5 + 1);
    utc->tm_hour = static_cast<int>(seconds / 3600);
    utc->tm_min = static_cast<int>(seconds / 60 % 60);
    utc->tm_sec = static_cast<int>(seconds % 60);
    utc->tm_zone = "GMT";  // or strftime() would ask for the time zone
}
