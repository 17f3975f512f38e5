// The backup CSVs of a usage record: the running period first, then the
// history newest first, in bytes. Written on the backup cadence into the
// tree that the configuration save persists across reboots.
#include "backup/backup.h"

#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

namespace {

// The same lines as the history files, with whole byte counts.
void
write_hour_line(FILE *f, const struct tm *start_tm, wu_pair usage)
{
	wu_print_hour_line(f, start_tm, usage.first, usage.second);
}

void
write_period_line(FILE *f, const struct tm *start_tm, const struct tm *end_tm, wu_pair usage)
{
	if (end_tm == nullptr)
		wu_print_day_line(f, start_tm, usage.first, usage.second);
	else
		wu_print_month_line(f, start_tm, end_tm, usage.first, usage.second);
}

// Every closed period of a ring, newest first.
template <typename Write>
void
write_ring(FILE *f, const wu_slot *slots, uint32_t size, uint32_t tail, uint32_t head, Write write)
{
	uint32_t mask = size - 1;
	for (uint32_t i = head; (i & mask) != (tail & mask);) {
		--i;
		struct tm tm = wu_start_tm(slots[i & mask].start_tm);
		write(f, &tm, slots[i & mask].usage);
	}
}

int
replace_backup(const wu_usage *wu, const char *name, void (*fill)(FILE *, const wu_usage *))
{
	char path[256];
	layout_vlan_path(path, sizeof path, BACKUP_ROOT, wu->vlan, VLAN_DIR, name);
	return replace_file(TMP_FILE, path, [&](FILE *f) { fill(f, wu); }) ? 0 : -1;
}

} // namespace

int
create_backup_hourly(wu_usage *wu)
{
	return replace_backup(wu, HOURLY_BACKUP, [](FILE *f, const wu_usage *w) {
		struct tm tm;
		localtime_r(&w->hour_time, &tm);
		write_hour_line(f, &tm, w->hour_usage);
		write_ring(f, w->hour_slots, WU_HOUR_SLOTS, w->hour_tail, w->hour_head, write_hour_line);
	});
}

int
create_backup_daily(wu_usage *wu)
{
	return replace_backup(wu, DAILY_BACKUP, [](FILE *f, const wu_usage *w) {
		struct tm tm;
		localtime_r(&w->day_time, &tm);
		write_period_line(f, &tm, nullptr, w->day_usage);
		write_ring(f, w->day_slots, WU_DAY_SLOTS, w->day_tail, w->day_head,
			   [](FILE *out, const struct tm *start, wu_pair usage) {
				   write_period_line(out, start, nullptr, usage);
			   });
	});
}

// Months are kept only in the run-time monthly history, so that file is
// what the backup copies, back in bytes.
int
create_backup_monthly(wu_usage *wu)
{
	return replace_backup(wu, MONTHLY_BACKUP, [](FILE *f, const wu_usage *w) {
		struct tm start, end;
		localtime_r(&w->month_start, &start);
		localtime_r(&w->update_time, &end);
		write_period_line(f, &start, &end, w->month_usage);

		char history[256];
		wu_vlan_path(history, sizeof history, w->vlan, MONTHLY_HISTORY);
		FILE *in = fopen(history, "r");
		if (in == nullptr)
			return;
		char line[256];
		uint64_t first = 0, second = 0;
		while (fgets(line, sizeof line, in) != nullptr) {
			wu_parse_month_line(line, &start, &end, &first, &second);
			write_period_line(f, &start, &end, {first << 10, second << 10});
		}
		fclose(in);
	});
}
