// The local hour and day the current tick falls in.
#include "daemon/base/clock.h"

tick_bounds tick;

void
compute_tick_bounds()
{
	compute_tick_bounds_at(time(nullptr));
}

time_t
mktime_near(struct tm *tm, time_t near)
{
	struct tm guide;
	localtime_r(&near, &guide);
	(void)mktime(&guide);
	tm->tm_isdst = -1;
	return mktime(tm);
}

// One tm is reused on purpose: each mktime normalises it before the next
// fields are set, and daylight saving is decided afresh for every bound, so
// 23- and 25-hour days come out right, and in the hour that occurs twice
// the bounds are those of the occurrence the clock is in.
void
compute_tick_bounds_at(time_t t)
{
	struct tm tm;
	localtime_r(&t, &tm);

	tm.tm_min = 0;
	tm.tm_sec = 0;
	tick.hour_start = mktime_near(&tm, t);

	tm.tm_min = 59;
	tm.tm_sec = 59;
	tick.hour_end = mktime_near(&tm, t);

	tm.tm_hour = 0;
	tm.tm_min = 0;
	tm.tm_sec = 0;
	tick.day_start = mktime_near(&tm, t);

	tm.tm_hour = 23;
	tm.tm_min = 59;
	tm.tm_sec = 59;
	tick.day_end = mktime_near(&tm, t);
}
