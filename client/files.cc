// The client files: per VLAN and period, one CSV of the clients that moved
// at least 1 KiB, written each tick after the directory is trimmed.
#include "client/internal.h"

#include "daemon/base/fs.h"
#include "daemon/base/layout.h"

#include <cstring>
#include <vector>

namespace {

constexpr int dir_limits[3] = {24, 32, 60}; // files kept: hours, days, months
constexpr int name_list_flag = 2;

constexpr size_t client_line_max = 16 + 4 * TEXT_FIELD_MAX; // address, then the rest

// address,first KiB,second KiB,MAC,tag: the tag as a signed int, since a
// line restored from an edited file may have made it negative.
void
print_client(out_file *o, const client_usage_entry *e)
{
	char *p = out_room(o, client_line_max);
	if (e->odd_text) {
		char ip[16];
		p = stpcpy(p, client_usage_ip_text(e, ip));
	} else {
		p = text_ip(p, e->ip);
	}
	*p++ = ',';
	p = text_u64(p, e->acc_first >> 10);
	*p++ = ',';
	p = text_u64(p, e->acc_second >> 10);
	*p++ = ',';
	p = text_mac(p, e->mac);
	*p++ = ',';
	if (e->tag < 10)
		*p++ = static_cast<char>('0' + e->tag);
	else
		p = text_i64(p, static_cast<int32_t>(e->tag));
	*p++ = '\n';
	out_commit(o, p);
}

// The file of the period (of a table's kind) that contains when. Every
// table that took records in a tick has that tick's clock, so the name last
// made for each kind of period is kept: a name depends on the clock value
// alone.
const char *
file_name_of(time_t when, uint32_t period)
{
	static struct {
		time_t when;
		bool known;
		char name[CLIENT_FILE_NAME_MAX];
	} last[3];
	auto &made = last[period];
	if (!made.known || made.when != when) {
		struct tm local, start;
		localtime_r(&when, &local);
		client_period_start(period, &local, &start);
		client_file_name(made.name, period, &start);
		made.when = when;
		made.known = true;
	}
	return made.name;
}

} // namespace

// A file with no client is not written, and an older one of the same name
// stays.
replace_status
client_usage_write_table(client_usage_table *t, int vlan, const char *root, const char *tmp)
{
	char path[256];
	layout_vlan_path(path, sizeof path, root, vlan, sw_usage_dir[t->period],
			 file_name_of(t->update_time, t->period));
	replace_status status = replace_file(tmp, path, [t](out_file *o) {
		static std::vector<const client_usage_entry *> listed;
		client_usage_listed(t, &listed);
		for (const client_usage_entry *e : listed)
			print_client(o, e);
		return !listed.empty();
	});
	if (status == REPLACE_DONE)
		t->unwritten = 0;
	return status;
}

bool
client_usage_write_vlan(client_usage_set *set, int vlan, const char *root, const char *tmp)
{
	for (uint32_t p = CLIENT_HOURLY; p <= CLIENT_MONTHLY; p++) {
		char dir[256];
		layout_vlan_path(dir, sizeof dir, root, vlan, sw_usage_dir[p]);
		client_usage_dir_limit(dir, static_cast<int>(p), dir_limits[p], name_list_flag);
	}
	for (client_usage_table &t : set->tables)
		if (client_usage_write_table(&t, vlan, root, tmp) == REPLACE_NO_TEMPORARY)
			return false;
	return true;
}
