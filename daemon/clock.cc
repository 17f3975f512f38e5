// The local hour and day the current tick falls in.
#include "daemon/clock.h"

tick_bounds tick;

void
compute_tick_bounds()
{
	compute_tick_bounds_at(time(nullptr));
}

// One tm is reused on purpose: each mktime normalises it before the next
// fields are set, and tm_isdst = -1 lets the C library decide daylight
// saving afresh for every bound, so 23- and 25-hour days come out right.
void
compute_tick_bounds_at(time_t t)
{
	struct tm tm;
	localtime_r(&t, &tm);

	tm.tm_min = 0;
	tm.tm_sec = 0;
	tm.tm_isdst = -1;
	tick.hour_start = mktime(&tm);

	tm.tm_min = 59;
	tm.tm_sec = 59;
	tm.tm_isdst = -1;
	tick.hour_end = mktime(&tm);

	tm.tm_hour = 0;
	tm.tm_min = 0;
	tm.tm_sec = 0;
	tm.tm_isdst = -1;
	tick.day_start = mktime(&tm);

	tm.tm_hour = 23;
	tm.tm_min = 59;
	tm.tm_sec = 59;
	tm.tm_isdst = -1;
	tick.day_end = mktime(&tm);
}
