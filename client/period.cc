// Client periods: their starts in local time, the names of their files,
// and closing a table's period when the clock has left it.
#include "client/internal.h"

#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Through mktime and back, with daylight saving decided afresh.
void
normalise(const struct tm *in, struct tm *out)
{
	struct tm copy = *in;
	time_t t = local_mktime(&copy);
	localtime_r(&t, out);
}

} // namespace

bool
client_period_start(uint32_t period, struct tm *tm, struct tm *start)
{
	switch (period) {
	case CLIENT_HOURLY:
		get_hour(tm, start);
		return true;
	case CLIENT_DAILY:
		get_day(tm, start);
		return true;
	case CLIENT_MONTHLY:
		get_month(tm, start);
		return true;
	}
	return false;
}

void
get_hour(const struct tm *in, struct tm *out)
{
	normalise(in, out);
	cal_truncate(out, CAL_HOUR);
}

void
get_day(const struct tm *in, struct tm *out)
{
	normalise(in, out);
	cal_truncate(out, CAL_DAY);
}

// Normalises in in place, as callers rely on.
void
get_month(struct tm *in, struct tm *out)
{
	time_t t = local_mktime(in);
	localtime_r(&t, out);
	cal_truncate(out, CAL_MONTH);
}

void
client_file_name(char name[CLIENT_FILE_NAME_MAX], uint32_t period, const struct tm *start)
{
	char *end = text_date(name, start, period == CLIENT_HOURLY);
	memcpy(end, ".csv", 5);
}

client_tick
client_tick_at(time_t now)
{
	client_tick tick = {now, {}};
	struct tm local, start;
	localtime_r(&now, &local);
	for (uint32_t p = CLIENT_HOURLY; p <= CLIENT_MONTHLY; p++) {
		client_period_start(p, &local, &start);
		tick.starts[p] = local_mktime(&start);
	}
	return tick;
}

void
client_usage_start_tick(client_usage_set *set, int vlan, const client_tick &tick)
{
	set->tables[CLIENT_HOURLY].tick_first = 0;
	set->tables[CLIENT_HOURLY].tick_second = 0;
	for (uint32_t p = CLIENT_HOURLY; p <= CLIENT_MONTHLY; p++)
		client_usage_fixup(&set->tables[p], vlan, tick.starts[p]);
}

// A period that has been published before (its run-time file exists, say
// after the clock went back into it) takes back the figures the backup
// holds for it.
void
client_usage_fixup(client_usage_table *table, int vlan, time_t start)
{
	if (table == nullptr)
		return;
	struct tm start_tm, updated, updated_start;
	localtime_r(&table->update_time, &updated);
	if (!client_period_start(table->period, &updated, &updated_start))
		return;
	if (local_mktime(&updated_start) == start)
		return;

	// A file whose last write failed (a full disk) gets one more chance
	// before its period's figures are gone.
	if (table->unwritten)
		(void)client_usage_write_table(table, vlan, RUN_ROOT, TMP_CLIENT_FILE);
	client_usage_close_period(table);
	localtime_r(&start, &start_tm);
	char name[CLIENT_FILE_NAME_MAX], path[256];
	client_file_name(name, table->period, &start_tm);
	layout_vlan_path(path, sizeof path, RUN_ROOT, vlan, sw_usage_dir[table->period], name);
	int fd = open(path, O_RDONLY | O_CLOEXEC);
	if (fd < 0)
		return;
	(void)close(fd);
	read_client_backup_usage(&start_tm, table, static_cast<int>(table->period),
				 access(CLOCK_MARKER, R_OK) == 0 ? 1 : 0);
}
