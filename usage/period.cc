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

// One ring of closed periods with its fields in the record.
struct ring {
	wu_slot *slots;
	uint32_t mask;
	uint32_t *tail;
	uint32_t *head;

	bool empty() const { return (*head & mask) == (*tail & mask); }
	wu_slot &at(uint32_t i) const { return slots[i & mask]; }

	// A full ring drops its oldest period: one slot always stays free.
	void push(const wu_slot &slot)
	{
		at(*head) = slot;
		++*head;
		if ((*head & mask) == (*tail & mask))
			++*tail;
	}
};

ring
hours(wu_usage *wu)
{
	return {wu->hour_slots, WU_HOUR_SLOTS - 1, &wu->hour_tail, &wu->hour_head};
}

ring
days(wu_usage *wu)
{
	return {wu->day_slots, WU_DAY_SLOTS - 1, &wu->day_tail, &wu->day_head};
}

// What differs between the hour and the day.
struct period_kind {
	ring (*ring_of)(wu_usage *);
	time_t wu_usage::*time;
	wu_pair wu_usage::*usage;
	const time_t *start; // the tick bounds of the current period
	const time_t *end;
	bool day;
	void (*write_history)(wu_usage *);
	uint8_t changed;
};

const period_kind hour_kind = {hours, &wu_usage::hour_time, &wu_usage::hour_usage,
			       &tick.hour_start, &tick.hour_end, false,
			       wu_write_hourly_history, WU_CHANGED_HOUR};
const period_kind day_kind = {days, &wu_usage::day_time, &wu_usage::day_usage,
			      &tick.day_start, &tick.day_end, true,
			      wu_write_daily_history, WU_CHANGED_DAY};

// Start of the period containing t, as a slot keeps it.
wu_start
start_of(time_t t, const period_kind &k)
{
	struct tm tm;
	localtime_r(&t, &tm);
	if (k.day)
		tm.tm_hour = 0;
	return wu_start_of(&tm);
}

time_t
start_time(const wu_slot &slot)
{
	struct tm tm = wu_start_tm(slot.start_tm);
	return mktime(&tm);
}

time_t
end_time(const wu_slot &slot, const period_kind &k)
{
	struct tm tm = wu_start_tm(slot.start_tm);
	if (k.day)
		tm.tm_hour = 23;
	tm.tm_min = 59;
	tm.tm_sec = 59;
	return mktime(&tm);
}

// The whole running period is filed under the period in which it last took
// traffic; periods skipped while the daemon was stopped get nothing.
void
close_period(wu_usage *wu, const period_kind &k)
{
	k.ring_of(wu).push({wu->*k.usage, start_of(wu->*k.time, k)});
	wu->*k.usage = {0, 0};
	k.write_history(wu);
	wu->changed |= k.changed;
}

// The clock went back before the running period. Periods that start at or
// after the new clock are dropped, and so is the newest one that started
// before it; that one's traffic comes back as the running period's only
// when the clock still lies inside it. The oldest period is never looked
// at, and a ring of one is simply emptied. Returns false when there was
// nothing to undo and the running period is just this tick's traffic.
bool
undo_periods(wu_usage *wu, const period_kind &k)
{
	ring r = k.ring_of(wu);
	wu->*k.usage = {0, 0};
	if (r.empty()) {
		wu->*k.usage = wu->delta;
		wu->*k.time = wu->now;
		return false;
	}
	uint32_t i = *r.head - 1;
	if ((i & r.mask) == (*r.tail & r.mask)) {
		*r.head = i;
	} else {
		uint32_t examined;
		time_t examined_end;
		for (;;) {
			examined = i;
			examined_end = end_time(r.at(i), k);
			if (start_time(r.at(i)) < wu->now)
				break;
			i--;
			if ((i & r.mask) == (*r.tail & r.mask))
				break;
		}
		*r.head = i;
		if (wu->now < examined_end)
			wu->*k.usage = r.at(examined).usage;
	}
	k.write_history(wu);
	wu->changed |= k.changed;
	return true;
}

void
update_period(wu_usage *wu, const period_kind &k)
{
	time_t t = wu->*k.time;
	if (t >= first_valid && t < *k.start)
		close_period(wu, k);
	else if (t > *k.end && !undo_periods(wu, k))
		return;
	add(&(wu->*k.usage), wu->delta);
	wu->*k.time = wu->now;
}

time_t
local_start(time_t t, bool day)
{
	struct tm tm;
	localtime_r(&t, &tm);
	tm.tm_min = 0;
	tm.tm_sec = 0;
	if (day)
		tm.tm_hour = 0;
	return mktime_near(&tm, t);
}

} // namespace

void
wu_update_hourly(wu_usage *wu)
{
	update_period(wu, hour_kind);
}

void
wu_update_daily(wu_usage *wu)
{
	update_period(wu, day_kind);
}

// Recomputed from scratch each tick: the closed days that began at or after
// month_start, newest first, and the running day.
void
wu_update_monthly(wu_usage *wu)
{
	wu->month_usage = {0, 0};
	ring r = days(wu);
	if (!r.empty()) {
		for (uint32_t i = *r.head - 1;; i--) {
			if (start_time(r.at(i)) < wu->month_start)
				break;
			add(&wu->month_usage, r.at(i).usage);
			if ((i & r.mask) == (*r.tail & r.mask))
				break;
		}
	}
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
	wu->hour_time = local_start(wu->now, false);
	wu->day_time = local_start(wu->now, true);
	wu->time_synced = 1;
}
