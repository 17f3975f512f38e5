// The local hour and day the current tick falls in, and the calendar
// helpers every module converts with.
#include "daemon/base/clock.h"

tick_bounds tick;

void
compute_tick_bounds()
{
	compute_tick_bounds_at(time(nullptr));
}

void
cal_truncate(struct tm *tm, cal_period period)
{
	tm->tm_sec = 0;
	tm->tm_min = 0;
	if (period == CAL_HOUR)
		return;
	tm->tm_hour = 0;
	if (period == CAL_MONTH)
		tm->tm_mday = 1;
}

time_t
local_mktime(struct tm *tm)
{
	tm->tm_isdst = -1;
	return mktime(tm);
}

time_t
mktime_near(struct tm *tm, time_t near)
{
	struct tm guide;
	localtime_r(&near, &guide);
	(void)mktime(&guide);
	return local_mktime(tm);
}

// Day 0 of the next month is the last day of this one.
time_t
cal_month_end(const struct tm *start)
{
	struct tm tm = *start;
	if (++tm.tm_mon == 12) {
		tm.tm_mon = 0;
		tm.tm_year++;
	}
	tm.tm_mday = 0;
	tm.tm_hour = 23;
	tm.tm_min = 59;
	tm.tm_sec = 59;
	return local_mktime(&tm);
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

	cal_truncate(&tm, CAL_HOUR);
	tick.hour_start = mktime_near(&tm, t);

	tm.tm_min = 59;
	tm.tm_sec = 59;
	tick.hour_end = mktime_near(&tm, t);

	cal_truncate(&tm, CAL_DAY);
	tick.day_start = mktime_near(&tm, t);

	tm.tm_hour = 23;
	tm.tm_min = 59;
	tm.tm_sec = 59;
	tick.day_end = mktime_near(&tm, t);
}
