// Folding every VLAN's usage into the all-VLAN totals, rebuilt each tick.
// The sums go position by position, not by date: slot 1 is every VLAN's
// newest closed hour. All records share one clock, so their rings hold the
// same periods.
#include "totals/totals.h"

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

// 23:59:59 on the last day of the month of start, whatever the record's
// own clock says.
struct tm
month_end(const struct tm &start)
{
	time_t t = wu_month_end(&start);
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
	FILE *f = fopen(path, "r");
	uint32_t m = 1;
	if (f == nullptr)
		return m;
	char line[256];
	uint64_t first = 0, second = 0;
	for (; m < TOTAL_MONTHS && fgets(line, sizeof line, f) != nullptr; m++) {
		wu_month_slot &slot = totals->month_totals[m];
		wu_parse_month_line(line, &slot.start_tm, &slot.end_tm, &first, &second);
		add(&slot.usage, {first << 10, second << 10});
	}
	fclose(f);
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
	if (wu->hour_time == 0)
		return;
	localtime_r(&wu->hour_time, &totals->hour_totals[0].start_tm);
	add(&totals->hour_totals[0].usage, wu->hour_usage);
	uint32_t i = 1;
	for (uint32_t k = wu->hour_head; (k % WU_HOUR_SLOTS) != (wu->hour_tail % WU_HOUR_SLOTS) &&
					 i < TOTAL_HOURS;
	     i++) {
		--k;
		const wu_slot &slot = wu->hour_slots[k % WU_HOUR_SLOTS];
		totals->hour_totals[i].start_tm = wu_start_tm(slot.start_tm);
		add(&totals->hour_totals[i].usage, slot.usage);
	}
	take_changed(totals, wu, WU_CHANGED_HOUR, TOTALS_HOURLY_DIRTY);
	totals->hour_count = at_least(totals->hour_count, i);
}

void
wu_update_daily_total(wu_totals *totals, wu_usage *wu, int)
{
	if (wu->day_time == 0)
		return;
	localtime_r(&wu->day_time, &totals->day_totals[0].start_tm);
	add(&totals->day_totals[0].usage, wu->day_usage);
	uint32_t j = 1;
	if (wu->day_head % WU_DAY_SLOTS != wu->day_tail % WU_DAY_SLOTS) {
		for (; j < TOTAL_DAYS; j++) {
			uint32_t k = (wu->day_head - j) % WU_DAY_SLOTS;
			totals->day_totals[j].start_tm = wu_start_tm(wu->day_slots[k].start_tm);
			add(&totals->day_totals[j].usage, wu->day_slots[k].usage);
			if (k == wu->day_tail % WU_DAY_SLOTS) {
				j++;
				break;
			}
		}
	}
	take_changed(totals, wu, WU_CHANGED_DAY, TOTALS_DAILY_DIRTY);
	totals->day_count = at_least(totals->day_count, j);
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
