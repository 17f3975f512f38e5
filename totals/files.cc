// The three totals files of the run-time tree: written in full from the
// totals slots, or cheaply by replacing only the running period's line and
// keeping the lines below it from the file on disk.
#include "totals/totals.h"

#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

namespace {

constexpr int kept_hours = TOTAL_HOURS - 1; // below the running line
constexpr int kept_days = TOTAL_DAYS - 1;
constexpr int kept_months = TOTAL_MONTHS - 1;

void
print_hour(out_file *o, const wu_total_slot &slot)
{
	wu_print_hour_line(o, &slot.start_tm, slot.usage.first >> 10, slot.usage.second >> 10);
}

void
print_day(out_file *o, const wu_total_slot &slot)
{
	wu_print_day_line(o, &slot.start_tm, slot.usage.first >> 10, slot.usage.second >> 10);
}

void
print_month(out_file *o, const wu_month_slot &slot)
{
	wu_print_month_line(o, &slot.start_tm, &slot.end_tm, slot.usage.first >> 10,
			    slot.usage.second >> 10);
}

// A file that could not be written in full is written in full again on the
// next tick: a cheap write would keep its stale lines.
template <typename Slot>
void
save_full(wu_totals *totals, uint32_t dirty, const char *name, const Slot *slots, int32_t count,
	  void (*print)(out_file *, const Slot &))
{
	char path[256];
	layout_root_path(path, sizeof path, RUN_ROOT, name);
	replace_status status = replace_file(TMP_FILE, path, [&](out_file *o) {
		for (int32_t i = 0; i < count; i++)
			print(o, slots[i]);
	});
	if (status != REPLACE_DONE)
		totals->totals_flags |= dirty;
}

// Relies on the old file's first line being the running period: when the
// running period was left out, a closed period's line goes in its place
// until the next full write.
template <typename Slot>
void
save_cheap(const char *name, const Slot *slots, int32_t count, int kept,
	   void (*print)(out_file *, const Slot &))
{
	char path[256];
	layout_root_path(path, sizeof path, RUN_ROOT, name);
	replace_file(TMP_FILE, path, [&](out_file *o) {
		if (count > 0)
			print(o, slots[0]);
		in_file old;
		if (!in_open(&old, path))
			return;
		char line[256];
		if (in_line(&old, line))
			copy_lines(o, &old, kept);
		in_close(&old);
	});
}

} // namespace

void
wu_save_hourly_total_full(wu_totals *totals, int, int)
{
	save_full(totals, TOTALS_HOURLY_DIRTY, HOURLY_TOTALS, totals->hour_totals, totals->hour_count,
		  print_hour);
}

void
wu_save_daily_total_full(wu_totals *totals, int, int)
{
	save_full(totals, TOTALS_DAILY_DIRTY, DAILY_TOTALS, totals->day_totals, totals->day_count,
		  print_day);
}

void
wu_save_monthly_total_full(wu_totals *totals, int, int)
{
	save_full(totals, TOTALS_MONTHLY_DIRTY, MONTHLY_TOTALS, totals->month_totals,
		  totals->month_count, print_month);
}

void
wu_save_hourly_total(wu_totals *totals)
{
	save_cheap(HOURLY_TOTALS, totals->hour_totals, totals->hour_count, kept_hours, print_hour);
}

void
wu_save_daily_total(wu_totals *totals)
{
	save_cheap(DAILY_TOTALS, totals->day_totals, totals->day_count, kept_days, print_day);
}

void
wu_save_monthly_total(wu_totals *totals)
{
	save_cheap(MONTHLY_TOTALS, totals->month_totals, totals->month_count, kept_months,
		   print_month);
}
