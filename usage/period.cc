// Folding each tick's traffic into the running hour, day and month:
// closing a period when the clock has left it, undoing periods when the
// clock went back, and summing the month from the closed days.
#include "usage/usage.h"

#include "daemon/base/clock.h"

namespace {

constexpr time_t first_valid = 1230768001; // a clock before 2009 was never set

void
add(wu_pair *to, wu_pair amount)
{
	to->first += amount.first;
	to->second += amount.second;
}

time_t
current_start(const wu_period &p)
{
	return p.day ? tick.day_start : tick.hour_start;
}

time_t
current_end(const wu_period &p)
{
	return p.day ? tick.day_end : tick.hour_end;
}

// Start of the period containing t, as a slot keeps it.
wu_start
start_of(time_t t, const wu_period &p)
{
	struct tm tm;
	localtime_r(&t, &tm);
	if (p.day)
		tm.tm_hour = 0;
	return wu_start_of(&tm);
}

time_t
start_time(const wu_slot &slot)
{
	struct tm tm = wu_start_tm(slot.start_tm);
	return local_mktime(&tm);
}

time_t
end_time(const wu_slot &slot, const wu_period &p)
{
	struct tm tm = wu_start_tm(slot.start_tm);
	if (p.day)
		tm.tm_hour = 23;
	tm.tm_min = 59;
	tm.tm_sec = 59;
	return local_mktime(&tm);
}

// The whole running period is filed under the period in which it last took
// traffic; periods skipped while the daemon was stopped get nothing.
void
close_period(wu_usage *wu, const wu_period &p)
{
	wu_ring_push(p.ring(wu), {wu->*p.usage, start_of(wu->*p.time, p)});
	wu->*p.usage = {0, 0};
	p.write_history(wu);
	wu->changed |= p.changed;
}

// The clock went back before the running period. Periods that start at or
// after the new clock are dropped, and so is the newest one that started
// before it; that one's traffic comes back as the running period's only
// when the clock still lies inside it. The oldest period is never looked
// at, so a ring of one is simply emptied. Returns false when there was
// nothing to undo and the running period is just this tick's traffic.
bool
undo_periods(wu_usage *wu, const wu_period &p)
{
	wu_ring r = p.ring(wu);
	wu->*p.usage = {0, 0};
	if (wu_ring_empty(r)) {
		wu->*p.usage = wu->delta;
		wu->*p.time = wu->now;
		return false;
	}
	uint32_t new_head = *r.head;
	const wu_slot *examined = nullptr;
	wu_ring_walk(r, [&](uint32_t i, const wu_slot &slot) {
		new_head = i;
		if ((i & r.mask) == (*r.tail & r.mask))
			return false;
		examined = &slot;
		return start_time(slot) >= wu->now;
	});
	*r.head = new_head;
	if (examined != nullptr && wu->now < end_time(*examined, p))
		wu->*p.usage = examined->usage;
	p.write_history(wu);
	wu->changed |= p.changed;
	return true;
}

void
update_period(wu_usage *wu, const wu_period &p)
{
	time_t t = wu->*p.time;
	if (t >= first_valid && t < current_start(p))
		close_period(wu, p);
	else if (t > current_end(p) && !undo_periods(wu, p))
		return;
	add(&(wu->*p.usage), wu->delta);
	wu->*p.time = wu->now;
}

time_t
local_start(time_t t, cal_period period)
{
	struct tm tm;
	localtime_r(&t, &tm);
	cal_truncate(&tm, period);
	return mktime_near(&tm, t);
}

} // namespace

void
wu_update_hourly(wu_usage *wu)
{
	update_period(wu, WU_HOURS);
}

void
wu_update_daily(wu_usage *wu)
{
	update_period(wu, WU_DAYS);
}

// Recomputed from scratch each tick: the closed days that began at or after
// month_start, newest first, and the running day.
void
wu_update_monthly(wu_usage *wu)
{
	wu->month_usage = {0, 0};
	wu_ring_walk(WU_DAYS.ring(wu), [wu](uint32_t, const wu_slot &slot) {
		if (start_time(slot) < wu->month_start)
			return false;
		add(&wu->month_usage, slot.usage);
		return true;
	});
	add(&wu->month_usage, wu->day_usage);
}

void
update_wu_usage_time_after_time_sync(wu_usage *wu)
{
	if (!wu->time_synced)
		wu_time_sync(wu);
}

// The running hour and day keep their traffic; only their times move into
// the current hour and day. Later records of the same tick see the new
// tick bounds.
void
wu_time_sync(wu_usage *wu)
{
	wu->prev_time = wu->now;
	wu->now = time(nullptr);
	localtime_r(&wu->now, &wu->now_tm);
	wu->update_time = wu->now;
	compute_tick_bounds();
	wu->hour_time = local_start(wu->now, CAL_HOUR);
	wu->day_time = local_start(wu->now, CAL_DAY);
	wu->time_synced = 1;
}
