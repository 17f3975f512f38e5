// Client files read back into a table: at start from the backup tree, and
// when the clock returns into a period that was published before.
#include "client/internal.h"

#include "daemon/base/layout.h"
#include "daemon/base/paths.h"

namespace {

// Existing clients take the file's figures instead of adding them.
void
restore_line(client_usage_table *t, const char *line, int mode)
{
	char text[256], mac_text[18];
	unsigned long long first, second;
	int tag;
	if (sscanf(line, "%255[^:,],%llu,%llu,%17[0-9A-Fa-f:],%d", text, &first, &second, mac_text,
		   &tag) < 5)
		return;
	first <<= 10; // the files hold KiB
	second <<= 10;
	uint64_t mac = mac2ull(mac_text);
	uint32_t ip = 0;
	(void)client_parse_ip(text, &ip);

	client_usage_entry *e = client_usage_find(t, ip, mac, static_cast<uint32_t>(tag));
	if (e == nullptr) {
		(void)client_insert(t, text, ip, 1, first, second, mac, static_cast<uint32_t>(tag),
				    mode == 1);
		return;
	}
	if (mode == 1)
		e->fresh = 1;
	e->touched = 1;
	e->acc_first = first;
	e->acc_second = second;
}

} // namespace

void
read_client_backup_usage(const struct tm *when, client_usage_table *table, int period, int mode)
{
	if (static_cast<unsigned>(period) > CLIENT_MONTHLY)
		return;
	char name[CLIENT_FILE_NAME_MAX], path[256];
	client_file_name(name, static_cast<uint32_t>(period), when);
	layout_vlan_path(path, sizeof path, BACKUP_ROOT, static_cast<int>(table->vlan),
			 sw_usage_dir[period], name);
	in_file in;
	if (!in_open(&in, path))
		return;
	struct tm start = *when;
	cal_truncate(&start, static_cast<cal_period>(period));
	table->prev_time = table->update_time;
	table->update_time = local_mktime(&start);
	client_usage_restore_lines(table, &in, mode);
	in_close(&in);
}

void
client_usage_restore_lines(client_usage_table *table, in_file *in, int mode)
{
	char line[256];
	while (in_line(in, line))
		restore_line(table, line, mode);
}

void
client_usage_restore(client_usage_set *set, time_t now)
{
	struct tm tm;
	localtime_r(&now, &tm);
	read_client_backup_usage(&tm, &set->tables[CLIENT_HOURLY], CLIENT_HOURLY, 1);
	read_client_backup_usage(&tm, &set->tables[CLIENT_DAILY], CLIENT_DAILY, 1);
	tm.tm_mday = 1;
	read_client_backup_usage(&tm, &set->tables[CLIENT_MONTHLY], CLIENT_MONTHLY, 1);
}
