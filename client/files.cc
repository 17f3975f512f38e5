// The client files: per VLAN and period, one CSV of the clients that moved
// at least 1 KiB, written each tick after the directory is trimmed; and the
// close of a table's period when the clock has moved into a new one.
#include "client/client.h"

#include "daemon/base/layout.h"
#include "daemon/base/paths.h"
#include "daemon/registry.h"

#include <cstdio>
#include <unistd.h>
#include <vector>

namespace {

constexpr int dir_limits[3] = {24, 32, 60}; // files kept: hours, days, months
constexpr int name_list_flag = 2;

// Start of the period of the table's kind that contains tm; false for a
// period of no known kind.
bool
period_start_of(uint32_t period, struct tm *tm, struct tm *start)
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
print_client(FILE *f, const client_usage_entry *e)
{
	char ip[16], mac[20];
	fprintf(f, "%s,%lld,%lld,%s,%d\n", client_usage_ip_text(e, ip),
		static_cast<long long>(e->acc_first >> 10), static_cast<long long>(e->acc_second >> 10),
		ull2mac(e->mac, mac, sizeof mac), static_cast<int>(e->tag));
}

// Returns false when the temporary file cannot be made, which ends the
// writer for this tick. A file with no client is not written, and an older
// one of the same name stays.
bool
write_table(const client_usage_table *t, const char *root, int vlan, const char *tmp)
{
	struct tm local, start;
	localtime_r(&t->update_time, &local);
	period_start_of(t->period, &local, &start);
	char name[32], path[256];
	client_file_name(name, sizeof name, t->period, &start);
	layout_vlan_path(path, sizeof path, root, vlan, sw_usage_dir[t->period], name);

	FILE *f = fopen(tmp, "w");
	if (f == nullptr)
		return false;
	static std::vector<const client_usage_entry *> listed;
	client_usage_listed(t, &listed);
	for (const client_usage_entry *e : listed)
		print_client(f, e);
	fclose(f);
	if (listed.empty())
		(void)unlink(tmp);
	else
		(void)rename(tmp, path);
	return true;
}

} // namespace

void
client_usage_write_files(sw_vlan_entry *vlans)
{
	client_usage_write_files_under(vlans, RUN_ROOT, TMP_CLIENT_FILE);
}

void
client_usage_write_files_under(sw_vlan_entry *vlans, const char *root, const char *tmp)
{
	for (sw_vlan_entry *e = vlans->next; e != vlans; e = e->next) {
		for (uint32_t p = CLIENT_HOURLY; p <= CLIENT_MONTHLY; p++) {
			char dir[256];
			layout_vlan_path(dir, sizeof dir, root, e->vlan, sw_usage_dir[p]);
			client_usage_dir_limit(dir, static_cast<int>(p), dir_limits[p], name_list_flag);
		}
		for (const client_usage_table &t : e->clients->tables)
			if (!write_table(&t, root, e->vlan, tmp))
				return;
	}
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
	localtime_r(&start, &start_tm);
	localtime_r(&table->update_time, &updated);
	if (!period_start_of(table->period, &updated, &updated_start))
		return;
	char name[32];
	client_file_name(name, sizeof name, table->period, &start_tm);
	updated_start.tm_isdst = -1;
	if (mktime(&updated_start) == start)
		return;

	client_usage_close_period(table);
	char path[256];
	layout_vlan_path(path, sizeof path, RUN_ROOT, vlan, sw_usage_dir[table->period], name);
	FILE *f = fopen(path, "r");
	if (f == nullptr)
		return;
	fclose(f);
	read_client_backup_usage(&start_tm, table, static_cast<int>(table->period),
				 access(CLOCK_MARKER, R_OK) == 0 ? 1 : 0);
}
