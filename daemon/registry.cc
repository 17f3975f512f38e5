// The VLAN registry, its start-up from the backup tree, the per-tick
// update cycle and the backup pass.
#include "daemon/registry.h"

#include "backup/backup.h"
#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "daemon/base/paths.h"
#include "daemon/base/vlan_dirs.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

namespace {

constexpr int min_vlan = 1;
constexpr int max_vlan = 4095;
constexpr int writer_mode = 3; // what every totals call is given

// Whether the clock marker was readable at the last full totals write.
int time_was_initialized;

struct client_backup_file {
	client_backup_file *next;
	client_backup_file *prev;
};

client_backup_file client_backup_list;

unsigned
page_of(int vlan)
{
	return static_cast<unsigned>(vlan) >> VLAN_PAGE_BITS;
}

unsigned
slot_of(int vlan)
{
	return static_cast<unsigned>(vlan) & ((1u << VLAN_PAGE_BITS) - 1);
}

bool
indexable(int vlan)
{
	return vlan >= 0 && vlan <= 0xffff;
}

// Only the first entry of a number is indexed: records go to it.
bool
index_vlan(sw_usage_registry *registry, sw_vlan_entry *entry)
{
	if (!indexable(entry->vlan))
		return true;
	sw_vlan_entry **&page = registry->vlan_pages[page_of(entry->vlan)];
	if (page == nullptr) {
		page = static_cast<sw_vlan_entry **>(calloc(1u << VLAN_PAGE_BITS, sizeof *page));
		if (page == nullptr)
			return false;
	}
	if (page[slot_of(entry->vlan)] == nullptr)
		page[slot_of(entry->vlan)] = entry;
	return true;
}

// A new VLAN entry with its usage record and client tables, appended at the
// tail of the list; null when memory is exhausted.
sw_vlan_entry *
vlan_add(sw_usage_registry *registry, int vlan)
{
	auto *entry = static_cast<sw_vlan_entry *>(calloc(1, sizeof(sw_vlan_entry)));
	if (entry == nullptr)
		return nullptr;
	entry->vlan = vlan;
	entry->clients = client_usage_set_new(vlan);
	entry->usage = wu_new();
	if (entry->clients == nullptr || entry->usage == nullptr || !index_vlan(registry, entry)) {
		client_usage_set_free(entry->clients);
		free(entry->usage);
		free(entry);
		return nullptr;
	}
	entry->usage->vlan = vlan;
	sw_vlan_entry *vlans = registry->vlans;
	entry->next = vlans;
	entry->prev = vlans->prev;
	vlans->prev->next = entry;
	vlans->prev = entry;
	return entry;
}

// The first entry of the list with this VLAN number, or null.
sw_vlan_entry *
vlan_find(const sw_usage_registry *registry, int vlan)
{
	if (!indexable(vlan))
		return nullptr;
	sw_vlan_entry *const *page = registry->vlan_pages[page_of(vlan)];
	return page == nullptr ? nullptr : page[slot_of(vlan)];
}

sw_usage_registry *
registry_new()
{
	auto *registry = static_cast<sw_usage_registry *>(calloc(1, sizeof(sw_usage_registry)));
	if (registry == nullptr)
		return nullptr;
	auto *sentinel = static_cast<sw_vlan_entry *>(calloc(1, sizeof(sw_vlan_entry)));
	if (sentinel == nullptr) {
		free(registry);
		return nullptr;
	}
	sentinel->next = sentinel->prev = sentinel;
	registry->vlans = sentinel;
	return registry;
}

bool
is_dot_or_dotdot(const char *name)
{
	return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// Returns false when memory ran out, which abandons the rest of the bucket.
bool
restore_vlan(sw_usage_registry *registry, const char *name)
{
	// Range-checked before narrowing, so a name beyond 32 bits is skipped
	// alike where long is 32 and where it is 64 bits wide.
	long id = strtol(name, nullptr, 10);
	if (id < min_vlan || id > max_vlan)
		return true;
	int vlan = static_cast<int>(id);
	sw_vlan_entry *entry = vlan_add(registry, vlan);
	if (entry == nullptr)
		return false;
	create_vlan_run_dirs(vlan);
	client_usage_restore(entry->clients, time(nullptr));
	read_backup_ex(entry->usage, 0, 0, vlan);
	restore_client_dirs(vlan);
	return true;
}

// Bucket names are not checked; a VLAN found under two buckets gets two
// entries.
void
restore_bucket(sw_usage_registry *registry, DIR *bucket)
{
	while (const struct dirent *de = readdir(bucket)) {
		if (is_dot_or_dotdot(de->d_name))
			continue;
		if (!restore_vlan(registry, de->d_name))
			return;
	}
}

void
restore_backup_tree(sw_usage_registry *registry, DIR *root)
{
	while (const struct dirent *de = readdir(root)) {
		if (is_dot_or_dotdot(de->d_name))
			continue;
		char path[256];
		if (!layout_root_path(path, sizeof path, BACKUP_ROOT, de->d_name))
			continue; // a cut name would open some other directory
		DIR *bucket = opendir(path);
		if (bucket == nullptr)
			continue;
		restore_bucket(registry, bucket);
		closedir(bucket);
	}
}

// A VLAN met for the first time in the statistics is made there and then.
client_usage_set *
vlan_clients(void *context, int vlan)
{
	auto *registry = static_cast<sw_usage_registry *>(context);
	sw_vlan_entry *entry = vlan_find(registry, vlan);
	if (entry == nullptr) {
		entry = vlan_add(registry, vlan);
		if (entry == nullptr)
			return nullptr;
		create_vlan_run_dirs(vlan);
	}
	return entry->clients;
}

// A missing file leaves the tick sums as the previous read left them, so
// the usage records take that traffic once more: long-standing behaviour
// that the management interface's figures are known by.
void
read_statistics(sw_usage_registry *registry)
{
	client_stats stats;
	if (!client_stats_open(&stats, STATS_FILE))
		return;
	client_tick tick = client_tick_at(registry->now);
	sw_vlan_entry *vlans = registry->vlans;
	for (sw_vlan_entry *e = vlans->next; e != vlans; e = e->next) {
		e->tick_bytes[0] = 0;
		e->tick_bytes[1] = 0;
		client_usage_start_tick(e->clients, e->vlan, tick);
	}
	client_stats_read(&stats, tick, {vlan_clients, registry});
	client_stats_close(&stats);
}

void
take_tick_traffic(sw_vlan_entry *vlans, time_t now)
{
	for (sw_vlan_entry *e = vlans->next; e != vlans; e = e->next) {
		const client_usage_table &hourly = e->clients->tables[CLIENT_HOURLY];
		wu_update_time(e->usage, now);
		wu_update_usage(e->usage, hourly.tick_first, hourly.tick_second);
	}
}

void
update_periods(wu_usage *wu)
{
	wu_monthly_rollover(wu);
	wu_update_hourly(wu);
	wu_update_daily(wu);
	wu_update_monthly(wu);
	update_wu_usage_time_after_time_sync(wu);
}

void
save_history(wu_usage *wu)
{
	wu_save_hourly(wu);
	wu_save_daily(wu);
	wu_save_monthly(wu);
}

void
fold_totals(wu_totals *totals, wu_usage *wu)
{
	wu_update_hourly_total(totals, wu, writer_mode);
	wu_update_daily_total(totals, wu, writer_mode);
	wu_update_monthly_total(totals, wu);
}

// Between full writes only the running periods move, so each file is
// rewritten whole only after a period closed; a change of clock state
// either way rewrites all three.
void
save_totals(wu_totals *totals, int clock_set)
{
	uint32_t &flags = totals->totals_flags;
	if (!(flags & TOTALS_WRITTEN) || clock_set != time_was_initialized) {
		wu_save_hourly_total_full(totals, 0, writer_mode);
		wu_save_daily_total_full(totals, 0, writer_mode);
		wu_save_monthly_total_full(totals, 0, writer_mode);
		flags |= TOTALS_WRITTEN;
		time_was_initialized = clock_set;
		return;
	}
	// Cleared first: a full write that fails marks its file again.
	uint32_t dirty = flags;
	flags &= ~(TOTALS_HOURLY_DIRTY | TOTALS_DAILY_DIRTY | TOTALS_MONTHLY_DIRTY);
	if (dirty & TOTALS_HOURLY_DIRTY)
		wu_save_hourly_total_full(totals, 0, writer_mode);
	else
		wu_save_hourly_total(totals);
	if (dirty & TOTALS_DAILY_DIRTY)
		wu_save_daily_total_full(totals, 0, writer_mode);
	else
		wu_save_daily_total(totals);
	if (dirty & TOTALS_MONTHLY_DIRTY)
		wu_save_monthly_total_full(totals, 0, writer_mode);
	else
		wu_save_monthly_total(totals);
}

// The client file writer stops for the tick at the first VLAN whose
// temporary file cannot be made.
void
write_client_files(sw_vlan_entry *vlans)
{
	for (sw_vlan_entry *e = vlans->next; e != vlans; e = e->next)
		if (!client_usage_write_vlan(e->clients, e->vlan, RUN_ROOT, TMP_CLIENT_FILE))
			return;
}

} // namespace

void
tally_sw_registry_free(sw_usage_registry *registry)
{
	sw_vlan_entry *vlans = registry->vlans;
	for (sw_vlan_entry *e = vlans->next, *next; e != vlans; e = next) {
		next = e->next;
		client_usage_set_free(e->clients);
		free(e->usage);
		free(e);
	}
	for (sw_vlan_entry **page : registry->vlan_pages)
		free(page);
	free(vlans);
	free(registry);
}

sw_usage_registry *
tally_sw_usage_init()
{
	time_was_initialized = 0;
	sw_usage_registry *registry = registry_new();
	if (registry == nullptr)
		return nullptr;
	registry->prev_time = registry->now = time(nullptr);

	(void)recursive_remove(RUN_ROOT);
	(void)recursive_mkdir(RUN_ROOT);

	DIR *root = opendir(BACKUP_ROOT);
	if (root == nullptr) {
		init_usage_file_list();
		return registry;
	}
	restore_backup_tree(registry, root);
	closedir(root);
	(void)recursive_remove(BACKUP_ROOT);
	init_usage_file_list();
	return registry;
}

void
tally_sw_usage_update(sw_usage_registry *registry)
{
	sw_vlan_entry *vlans = registry->vlans;
	registry->prev_time = registry->now;
	registry->now = time(nullptr);

	read_statistics(registry);
	take_tick_traffic(vlans, registry->now);

	int clock_set = access(CLOCK_MARKER, R_OK) == 0;
	wu_totals_clear(&registry->totals);
	for (sw_vlan_entry *e = vlans->next; e != vlans; e = e->next) {
		if (clock_set)
			update_periods(e->usage);
		save_history(e->usage);
		fold_totals(&registry->totals, e->usage);
	}
	save_totals(&registry->totals, clock_set);

	write_client_files(vlans);
}

void
tally_sw_backup_usage(sw_vlan_entry *vlans)
{
	for (sw_vlan_entry *e = vlans->next; e != vlans; e = e->next) {
		(void)wan_usage_create_backup_dir_ex(0, 3, e->vlan);
		(void)create_backup_hourly(e->usage);
		(void)create_backup_daily(e->usage);
		(void)create_backup_monthly(e->usage);
		(void)backup_client_dirs(e->vlan);
	}
}

void
init_usage_file_list()
{
	client_backup_list.next = client_backup_list.prev = &client_backup_list;
}
