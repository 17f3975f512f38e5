// Refilling a usage record from its backup CSVs at start, so that usage
// survives a restart: the running periods, the rings of closed hours and
// days, and the run-time monthly history.
//
// The backup's order is trusted (running period first, then newest to
// oldest): a line is dropped only when it repeats the period of the line
// before it, and a ring stops taking lines when it is full.
#include "backup/backup.h"

#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

#include <cstdlib>
#include <cstring>

namespace {

// One file's working state: the line's time and pair, and the time of the
// last line taken. A line whose date does not parse has an all-zero time
// and keeps the pair of the line before it.
struct parsed {
	struct tm start;
	struct tm end;
	wu_pair usage;
	struct tm previous;
};

// Nothing past the line's end is read: a missing field reads as empty.
const char *
skip_one(const char *p)
{
	return *p != '\0' ? p + 1 : p;
}

void
parse_amounts(const char *p, wu_pair *usage)
{
	char *end;
	p = skip_one(p);
	usage->first = strtoull(p, &end, 10);
	usage->second = strtoull(skip_one(end), &end, 10);
}

void
parse_period_line(const char *line, const char *format, parsed *w)
{
	memset(&w->start, 0, sizeof w->start);
	const char *p = strptime(line, format, &w->start);
	if (p == nullptr) {
		memset(&w->start, 0, sizeof w->start);
		return;
	}
	parse_amounts(p, &w->usage);
}

void
parse_month_line(const char *line, parsed *w)
{
	memset(&w->start, 0, sizeof w->start);
	memset(&w->end, 0, sizeof w->end);
	const char *p = strptime(line, "%Y-%m-%d", &w->start);
	if (p != nullptr)
		p = strptime(skip_one(p), "%Y-%m-%d", &w->end);
	if (p == nullptr) {
		memset(&w->start, 0, sizeof w->start);
		memset(&w->end, 0, sizeof w->end);
		return;
	}
	parse_amounts(p, &w->usage);
}

time_t
make_time(struct tm *tm)
{
	tm->tm_isdst = -1;
	return mktime(tm);
}

FILE *
open_backup(int vlan, const char *name)
{
	char path[256];
	layout_vlan_path(path, sizeof path, BACKUP_ROOT, vlan, VLAN_DIR, name);
	return fopen(path, "r");
}

struct ring_file {
	const char *name;
	const char *format;
	bool day; // compare down to the day, else down to the hour
	time_t wu_usage::*time;
	wu_pair wu_usage::*usage;
	wu_slot *(*slots)(wu_usage *);
	uint32_t size;
	uint32_t wu_usage::*tail;
	uint32_t wu_usage::*head;
	void (*write_history)(wu_usage *);
};

bool
same_period(const struct tm &a, const struct tm &b, bool day)
{
	return a.tm_year == b.tm_year && a.tm_mon == b.tm_mon && a.tm_mday == b.tm_mday &&
	       (day || a.tm_hour == b.tm_hour);
}

// The tail moves backwards, so the file's newest history line lands next to
// the head and the ring ends up in the order it was written.
void
restore_ring(wu_usage *wu, const ring_file &r)
{
	FILE *f = open_backup(wu->vlan, r.name);
	if (f == nullptr)
		return;
	parsed w = {};
	char line[256];
	if (fgets(line, sizeof line, f) != nullptr) {
		parse_period_line(line, r.format, &w);
		wu->*r.usage = w.usage;
		wu->*r.time = make_time(&w.start);
		w.previous = w.start;
	}
	uint32_t mask = r.size - 1;
	wu->*r.head = 0;
	wu->*r.tail = 0;
	wu_slot *slots = r.slots(wu);
	while (fgets(line, sizeof line, f) != nullptr) {
		parse_period_line(line, r.format, &w);
		if (same_period(w.start, w.previous, r.day))
			continue;
		if (((wu->*r.tail - 1) & mask) == (wu->*r.head & mask))
			break;
		--(wu->*r.tail);
		w.previous = w.start;
		slots[wu->*r.tail & mask] = {w.usage, wu_start_of(&w.start)};
	}
	fclose(f);
	r.write_history(wu);
}

wu_slot *
hour_slots(wu_usage *wu)
{
	return wu->hour_slots;
}

wu_slot *
day_slots(wu_usage *wu)
{
	return wu->day_slots;
}

const ring_file hourly_file = {HOURLY_BACKUP, "%Y-%m-%d-%H", false, &wu_usage::hour_time,
			       &wu_usage::hour_usage, hour_slots, WU_HOUR_SLOTS,
			       &wu_usage::hour_tail, &wu_usage::hour_head, wu_write_hourly_history};
const ring_file daily_file = {DAILY_BACKUP, "%Y-%m-%d", true, &wu_usage::day_time,
			      &wu_usage::day_usage, day_slots, WU_DAY_SLOTS,
			      &wu_usage::day_tail, &wu_usage::day_head, wu_write_daily_history};

// The monthly history has no ring: it lives in the run-time file, written
// here in place, back in KiB.
void
restore_months(wu_usage *wu)
{
	FILE *f = open_backup(wu->vlan, MONTHLY_BACKUP);
	if (f == nullptr)
		return;
	parsed w = {};
	char line[256];
	if (fgets(line, sizeof line, f) != nullptr) {
		parse_month_line(line, &w);
		wu->month_start = make_time(&w.start);
		wu->update_time = make_time(&w.end);
		wu->month_usage = w.usage;
		w.previous = w.start;
	}
	char path[256];
	wu_vlan_path(path, sizeof path, wu->vlan, MONTHLY_HISTORY);
	FILE *history = fopen(path, "w");
	if (history == nullptr) {
		fclose(f);
		return;
	}
	while (fgets(line, sizeof line, f) != nullptr) {
		parse_month_line(line, &w);
		if (w.start.tm_year == w.previous.tm_year && w.start.tm_mon == w.previous.tm_mon)
			continue;
		w.previous = w.start;
		wu_print_month_line(history, &w.start, &w.end, w.usage.first >> 10, w.usage.second >> 10);
	}
	fclose(history);
	fclose(f);
}

} // namespace

void
read_backup_ex(wu_usage *wu, int, int, int)
{
	restore_ring(wu, hourly_file);
	restore_ring(wu, daily_file);
	restore_months(wu);
}
