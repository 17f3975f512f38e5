// A VLAN's usage record: creation and the per-tick clock and traffic.
#include "usage/usage.h"

#include <cstdlib>

wu_usage *
wu_new()
{
	return static_cast<wu_usage *>(calloc(1, sizeof(wu_usage)));
}

wu_start
wu_start_of(const struct tm *tm)
{
	return {tm->tm_year, static_cast<uint8_t>(tm->tm_mon), static_cast<uint8_t>(tm->tm_mday),
		static_cast<uint8_t>(tm->tm_hour)};
}

struct tm
wu_start_tm(wu_start start)
{
	struct tm tm = {};
	tm.tm_year = start.year;
	tm.tm_mon = start.mon;
	tm.tm_mday = start.mday;
	tm.tm_hour = start.hour;
	tm.tm_isdst = -1;
	return tm;
}

void
wu_update_time(wu_usage *wu, time_t t)
{
	wu->prev_time = wu->now;
	wu->now = t;
	localtime_r(&t, &wu->now_tm);
	wu->update_time = wu->now;
}

// Unsigned arithmetic wraps modulo 2^64, which is what a counter that has
// run for centuries should do.
void
wu_update_usage(wu_usage *wu, uint64_t first, uint64_t second)
{
	wu->delta = {first, second};
	wu->total.first += first;
	wu->total.second += second;
}
