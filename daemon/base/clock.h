// Local calendar work shared by every module: the hour and day the current
// tick falls in, the start of an hour, day or month, and conversions that
// leave daylight saving to the C library.
#pragma once

#include <cstdint>
#include <ctime>

struct tick_bounds {
	time_t hour_start; // mm:ss 00:00 of the current local hour
	time_t hour_end;   // 59:59 of it
	time_t day_start;  // 00:00:00 of the current local day
	time_t day_end;    // 23:59:59 of it
};

extern tick_bounds tick;

// Recomputes tick from the system clock.
void compute_tick_bounds();

// Recomputes tick for clock value t.
void compute_tick_bounds_at(time_t t);

// Calendar periods, numbered as the client tables number theirs.
enum cal_period : uint32_t {
	CAL_HOUR = 0,
	CAL_DAY = 1,
	CAL_MONTH = 2,
};

// Cuts tm's fields to the start of its hour, day or month; no conversion.
void cal_truncate(struct tm *tm, cal_period period);

// mktime with daylight saving decided afresh (tm_isdst -1); normalises tm.
time_t local_mktime(struct tm *tm);

// The same, where a local time that occurs twice when the clocks go back
// resolves to the occurrence in the same offset as clock value near: the C
// library takes the offset of its previous conversion as its guess, so
// that conversion is made first.
time_t mktime_near(struct tm *tm, time_t near);

// 23:59:59 on the last day of the month of start.
time_t cal_month_end(const struct tm *start);
