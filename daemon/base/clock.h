// The local hour and day the current tick falls in, shared by every usage
// record of the tick.
#pragma once

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

// mktime with daylight saving decided afresh (tm_isdst -1). A local time
// that occurs twice when the clocks go back resolves to the occurrence in
// the same offset as clock value near: the C library takes the offset of
// its previous conversion as its guess, so that conversion is made first.
time_t mktime_near(struct tm *tm, time_t near);
