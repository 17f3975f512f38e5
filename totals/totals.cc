// Folding every VLAN's usage into the all-VLAN totals, rebuilt each tick.
// The sums go position by position, not by date: slot 1 is every VLAN's
// newest closed hour. All records share one clock, so their rings hold the
// same periods.
#include "totals/totals.h"

#include "daemon/base/clock.h"
#include "daemon/base/layout.h"

#include <cstring>

namespace {

void
add(wu_pair *to, wu_pair amount)
{
	to->first += amount.first;
	to->second += amount.second;
}

int32_t
at_least(int32_t count, uint32_t n)
{
	return n > static_cast<uint32_t>(count) ? static_cast<int32_t>(n) : count;
}

// A record's news for the totals files: a closed period means a full write.
void
take_changed(wu_totals *totals, wu_usage *wu, uint8_t bit, uint32_t dirty)
{
	if (wu->changed & bit) {
		totals->totals_flags |= dirty;
		wu->changed &= static_cast<uint8_t>(~bit);
	}
}

// The totals of a record's hours or days.
struct total_kind {
	const wu_period &period;
	wu_total_slot *(*slots)(wu_totals *totals);
	int32_t wu_totals::*count;
	uint32_t size; // the running period and the closed ones taken
	uint32_t dirty;
};

wu_total_slot *
hour_totals(wu_totals *totals)
{
	return totals->hour_totals;
}

wu_total_slot *
day_totals(wu_totals *totals)
{
	return totals->day_totals;
}

const total_kind hour_kind = {WU_HOURS, hour_totals, &wu_totals::hour_count, TOTAL_HOURS,
			      TOTALS_HOURLY_DIRTY};
const total_kind day_kind = {WU_DAYS, day_totals, &wu_totals::day_count, TOTAL_DAYS,
			     TOTALS_DAILY_DIRTY};

// Slot 0 is the running period, then the closed ones newest first.
void
fold_ring(wu_totals *totals, wu_usage *wu, const total_kind &k)
{
	const wu_period &p = k.period;
	if (wu->*p.time == 0)
		return;
	wu_total_slot *slots = k.slots(totals);
	localtime_r(&(wu->*p.time), &slots[0].start_tm);
	add(&slots[0].usage, wu->*p.usage);
	uint32_t i = 1;
	wu_ring_walk(p.ring(wu), [&](uint32_t, const wu_slot &slot) {
		slots[i].start_tm = wu_start_tm(slot.start_tm);
		add(&slots[i].usage, slot.usage);
		return ++i < k.size;
	});
	take_changed(totals, wu, p.changed, k.dirty);
	totals->*k.count = at_least(totals->*k.count, i);
}

// 23:59:59 on the last day of the month of start, whatever the record's
// own clock says.
struct tm
month_end(const struct tm &start)
{
	time_t t = cal_month_end(&start);
	struct tm end;
	localtime_r(&t, &end);
	end.tm_hour = 23;
	end.tm_min = 59;
	end.tm_sec = 59;
	end.tm_isdst = -1;
	return end;
}

// The filed months come from the VLAN's monthly history, in its order; a
// line that does not parse keeps the amounts of the line before it, and
// its cleared dates keep it out of the file.
uint32_t
fold_history_months(wu_totals *totals, const wu_usage *wu)
{
	char path[256];
	wu_vlan_path(path, sizeof path, wu->vlan, MONTHLY_HISTORY);
	in_file f;
	uint32_t m = 1;
	if (!in_open(&f, path))
		return m;
	char line[256];
	uint64_t first = 0, second = 0;
	for (; m < TOTAL_MONTHS && in_line(&f, line); m++) {
		wu_month_slot &slot = totals->month_totals[m];
		wu_parse_month_line(line, &slot.start_tm, &slot.end_tm, &first, &second);
		add(&slot.usage, {first << 10, second << 10});
	}
	in_close(&f);
	return m;
}

} // namespace

void
wu_totals_clear(wu_totals *totals)
{
	uint32_t flags = totals->totals_flags;
	memset(totals, 0, sizeof *totals);
	totals->totals_flags = flags;
}

void
wu_update_hourly_total(wu_totals *totals, wu_usage *wu, int)
{
	fold_ring(totals, wu, hour_kind);
}

void
wu_update_daily_total(wu_totals *totals, wu_usage *wu, int)
{
	fold_ring(totals, wu, day_kind);
}

void
wu_update_monthly_total(wu_totals *totals, wu_usage *wu)
{
	if (wu->month_start == 0)
		return;
	wu_month_slot &running = totals->month_totals[0];
	localtime_r(&wu->month_start, &running.start_tm);
	running.end_tm = month_end(running.start_tm);
	add(&running.usage, wu->month_usage);
	uint32_t m = fold_history_months(totals, wu);
	take_changed(totals, wu, WU_CHANGED_MONTH, TOTALS_MONTHLY_DIRTY);
	totals->month_count = at_least(totals->month_count, m);
}
