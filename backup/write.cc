// The backup CSVs of a usage record: the running period first, then the
// history newest first, in bytes. Written on the backup cadence into the
// tree that the configuration save persists across reboots.
#include "backup/backup.h"

#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

namespace {

template <typename Fill>
int
replace_backup(const wu_usage *wu, const char *name, Fill fill)
{
	char path[256];
	layout_vlan_path(path, sizeof path, BACKUP_ROOT, wu->vlan, VLAN_DIR, name);
	return replace_file(TMP_FILE, path, fill) == REPLACE_DONE ? 0 : -1;
}

// The same lines as the history files, with whole byte counts.
int
backup_ring(wu_usage *wu, const wu_period &period)
{
	return replace_backup(wu, period.backup, [&](out_file *o) {
		struct tm tm;
		localtime_r(&(wu->*period.time), &tm);
		const wu_pair &running = wu->*period.usage;
		period.print_line(o, &tm, running.first, running.second);
		wu_ring_walk(period.ring(wu), [&](uint32_t, const wu_slot &slot) {
			struct tm start = wu_start_tm(slot.start_tm);
			period.print_line(o, &start, slot.usage.first, slot.usage.second);
			return true;
		});
	});
}

} // namespace

int
create_backup_hourly(wu_usage *wu)
{
	return backup_ring(wu, WU_HOURS);
}

int
create_backup_daily(wu_usage *wu)
{
	return backup_ring(wu, WU_DAYS);
}

// Months are kept only in the run-time monthly history, so that file is
// what the backup copies, back in bytes.
int
create_backup_monthly(wu_usage *wu)
{
	return replace_backup(wu, MONTHLY_BACKUP, [wu](out_file *o) {
		struct tm start, end;
		localtime_r(&wu->month_start, &start);
		localtime_r(&wu->update_time, &end);
		wu_print_month_line(o, &start, &end, wu->month_usage.first, wu->month_usage.second);

		char history[256];
		wu_vlan_path(history, sizeof history, wu->vlan, MONTHLY_HISTORY);
		in_file in;
		if (!in_open(&in, history))
			return;
		char line[256];
		uint64_t first = 0, second = 0;
		while (in_line(&in, line)) {
			wu_parse_month_line(line, &start, &end, &first, &second);
			wu_print_month_line(o, &start, &end, first << 10, second << 10);
		}
		in_close(&in);
	});
}
