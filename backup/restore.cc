// Refilling a usage record from its backup CSVs at start, so that usage
// survives a restart: the running periods, the rings of closed hours and
// days, and the run-time monthly history.
//
// The backup's order is trusted (running period first, then newest to
// oldest): a line is dropped only when it repeats the period of the line
// before it, and a ring stops taking lines when it is full. A line whose
// date does not parse has an all-zero time and keeps the amounts of the
// line before it.
#include "backup/backup.h"

#include "daemon/base/clock.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

#include <fcntl.h>

namespace {

// The backup holds whole byte counts, read as strtoull reads them.
uint64_t
read_bytes(const char *text, const char **end)
{
	text_number n = text_parse_number(text, end);
	if (n.overflow)
		return UINT64_MAX;
	return n.negative ? 0 - n.magnitude : n.magnitude;
}

bool
open_backup(in_file *in, int vlan, const char *name)
{
	char path[256];
	layout_vlan_path(path, sizeof path, BACKUP_ROOT, vlan, VLAN_DIR, name);
	return in_open(in, path);
}

bool
same_period(const struct tm &a, const struct tm &b, bool day)
{
	return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
	       (day || a.tm_hour == b.tm_hour);
}

// The tail moves backwards, so the file's newest history line lands next to
// the head and the ring ends up in the order it was written.
void
restore_ring(wu_usage *wu, const wu_period &period)
{
	in_file f;
	if (!open_backup(&f, wu->vlan, period.backup))
		return;
	struct tm start = {}, previous = {};
	wu_pair usage = {0, 0};
	char line[256];
	if (in_line(&f, line)) {
		wu_parse_line(line, !period.day, &start, nullptr, read_bytes, &usage);
		wu->*period.usage = usage;
		wu->*period.time = local_mktime(&start);
		previous = start;
	}
	wu_ring ring = period.ring(wu);
	*ring.head = 0;
	*ring.tail = 0;
	while (in_line(&f, line)) {
		wu_parse_line(line, !period.day, &start, nullptr, read_bytes, &usage);
		if (same_period(start, previous, period.day))
			continue;
		if (!wu_ring_push_oldest(ring, {usage, wu_start_of(&start)}))
			break;
		previous = start;
	}
	in_close(&f);
	period.write_history(wu);
}

// The monthly history has no ring: it lives in the run-time file, written
// here in place, back in KiB.
void
restore_months(wu_usage *wu)
{
	in_file f;
	if (!open_backup(&f, wu->vlan, MONTHLY_BACKUP))
		return;
	struct tm start = {}, end = {}, previous = {};
	wu_pair usage = {0, 0};
	char line[256];
	if (in_line(&f, line)) {
		wu_parse_line(line, false, &start, &end, read_bytes, &usage);
		wu->month_start = local_mktime(&start);
		wu->update_time = local_mktime(&end);
		wu->month_usage = usage;
		previous = start;
	}
	char path[256];
	wu_vlan_path(path, sizeof path, wu->vlan, MONTHLY_HISTORY);
	int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
	if (fd < 0) {
		in_close(&f);
		return;
	}
	out_file history;
	out_start(&history, fd);
	while (in_line(&f, line)) {
		wu_parse_line(line, false, &start, &end, read_bytes, &usage);
		if (start.tm_year == previous.tm_year && start.tm_mon == previous.tm_mon)
			continue;
		previous = start;
		wu_print_month_line(&history, &start, &end, usage.first >> 10, usage.second >> 10);
	}
	(void)out_finish(&history);
	in_close(&f);
}

} // namespace

void
read_backup_ex(wu_usage *wu, int, int, int)
{
	restore_ring(wu, WU_HOURS);
	restore_ring(wu, WU_DAYS);
	restore_months(wu);
}
