// A VLAN's usage record: creation, the per-tick clock and traffic, and the
// rings of closed hours and days.
#include "usage/usage.h"

#include "daemon/base/clock.h"
#include "daemon/base/layout.h"

#include <cstdlib>

namespace {

constexpr int hour_history_lines = 23; // and the running hour: 24 display lines
constexpr int day_history_lines = 59;  // and 60

wu_ring
hour_ring(wu_usage *wu)
{
	return {wu->hour_slots, WU_HOUR_SLOTS - 1, &wu->hour_tail, &wu->hour_head};
}

wu_ring
day_ring(wu_usage *wu)
{
	return {wu->day_slots, WU_DAY_SLOTS - 1, &wu->day_tail, &wu->day_head};
}

} // namespace

const wu_period WU_HOURS = {hour_ring, &wu_usage::hour_time, &wu_usage::hour_usage, false,
			    wu_print_hour_line, HOURLY_HISTORY,
			    HOURLY_DISPLAY, hour_history_lines, wu_write_hourly_history,
			    HOURLY_BACKUP, WU_CHANGED_HOUR};
const wu_period WU_DAYS = {day_ring, &wu_usage::day_time, &wu_usage::day_usage, true,
			   wu_print_day_line, DAILY_HISTORY,
			   DAILY_DISPLAY, day_history_lines, wu_write_daily_history,
			   DAILY_BACKUP, WU_CHANGED_DAY};

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

bool
wu_ring_empty(const wu_ring &r)
{
	return (*r.head & r.mask) == (*r.tail & r.mask);
}

void
wu_ring_push(const wu_ring &r, const wu_slot &slot)
{
	r.slots[*r.head & r.mask] = slot;
	++*r.head;
	if (wu_ring_empty(r))
		++*r.tail;
}

bool
wu_ring_push_oldest(const wu_ring &r, const wu_slot &slot)
{
	if (((*r.tail - 1) & r.mask) == (*r.head & r.mask))
		return false;
	--*r.tail;
	r.slots[*r.tail & r.mask] = slot;
	return true;
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
