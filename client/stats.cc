// The sFlow agent's statistics file, read once per tick into the client
// tables of every VLAN.
//
// The file is read whole with one read into memory and decoded from there:
// a seek out to each station's records and back would defeat buffering, and
// the agent may rewrite or shrink the file at any moment, which a mapping
// would answer with SIGBUS. A record or descriptor that the snapshot does
// not hold completely is short, and so is every one after it.
#include "client/client.h"

#include "daemon/base/paths.h"
#include "daemon/registry.h"

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

namespace {

struct snapshot {
	uint8_t *data;
	uint64_t size;
	// Records the file can hold without overlapping; descriptors that share
	// records cannot make a tick cost more than this many.
	uint64_t record_budget;
};

// The whole file, or an empty snapshot when memory runs out.
snapshot
read_whole(FILE *f)
{
	struct stat st;
	size_t capacity = fstat(fileno(f), &st) == 0 && st.st_size > 0
				  ? static_cast<size_t>(st.st_size) + 1 : 4096;
	snapshot s = {static_cast<uint8_t *>(malloc(capacity)), 0, 0};
	while (s.data != nullptr) {
		s.size += fread(s.data + s.size, 1, capacity - s.size, f);
		if (s.size < capacity)
			return s; // end of file, or an error that ends the read alike
		// The agent made the file longer meanwhile.
		auto *grown = static_cast<uint8_t *>(realloc(s.data, capacity * 2));
		if (grown == nullptr)
			break;
		s.data = grown;
		capacity *= 2;
	}
	free(s.data);
	return {nullptr, 0, 0};
}

bool
holds(const snapshot &s, uint64_t offset, uint64_t length)
{
	return offset + length <= s.size;
}

void
clear_tick_sums(sw_vlan_entry *vlans)
{
	for (sw_vlan_entry *e = vlans->next; e != vlans; e = e->next) {
		e->clients->tables[CLIENT_HOURLY].tick_first = 0;
		e->clients->tables[CLIENT_HOURLY].tick_second = 0;
		e->tick_bytes[0] = 0;
		e->tick_bytes[1] = 0;
	}
}

// Each table closes its period when the clock has left it.
void
fix_up_periods(sw_vlan_entry *vlans, time_t now)
{
	struct tm local, start;
	localtime_r(&now, &local);
	time_t starts[3];
	get_hour(&local, &start);
	start.tm_isdst = -1;
	starts[CLIENT_HOURLY] = mktime(&start);
	get_day(&local, &start);
	start.tm_isdst = -1;
	starts[CLIENT_DAILY] = mktime(&start);
	get_month(&local, &start);
	start.tm_isdst = -1;
	starts[CLIENT_MONTHLY] = mktime(&start);

	for (sw_vlan_entry *e = vlans->next; e != vlans; e = e->next)
		for (uint32_t p = CLIENT_HOURLY; p <= CLIENT_MONTHLY; p++)
			client_usage_fixup(&e->clients->tables[p], e->vlan, starts[p]);
}

uint64_t
mac_number(const uint8_t mac[6])
{
	uint64_t value = 0;
	for (int i = 0; i < 6; i++)
		value = value << 8 | mac[i];
	return value;
}

// The record's VLAN, made on first sight; null when memory ran out.
sw_vlan_entry *
vlan_of(sw_usage_registry *registry, int vlan)
{
	sw_vlan_entry *entry = tally_sw_vlan_find(registry, vlan);
	if (entry != nullptr)
		return entry;
	entry = tally_sw_vlan_add(registry, vlan);
	if (entry != nullptr)
		create_vlan_run_dirs(vlan);
	return entry;
}

// The hourly table's prev_time takes its own previous update_time at the
// first record of a tick and now after that; the other tables always take
// now. Nothing reads prev_time, but it stays as it always was.
void
add_record(client_usage_set *clients, const sflow_record &r, uint64_t mac, time_t now)
{
	client_usage_table *tables = clients->tables;
	for (uint32_t p = CLIENT_HOURLY; p <= CLIENT_MONTHLY; p++) {
		add_client_usage_addr(&tables[p], r.ip, r.first_counter, r.second_counter, mac, r.tag, 1);
		tables[p].prev_time = tables[CLIENT_HOURLY].update_time;
		tables[p].update_time = now;
	}
}

// Returns false when the rest of the file is short.
bool
read_host(sw_usage_registry *registry, snapshot &s, uint64_t index, time_t now)
{
	uint64_t at = SFLOW_HEADER_SIZE + index * SFLOW_HOST_SIZE;
	if (!holds(s, at, SFLOW_HOST_SIZE))
		return false;
	sflow_host host = sflow_decode_host(s.data + at);
	uint64_t mac = mac_number(host.mac);
	for (uint64_t j = 0; j < host.record_count; j++) {
		uint64_t offset = host.record_offset + j * SFLOW_RECORD_SIZE;
		if (!holds(s, offset, SFLOW_RECORD_SIZE) || s.record_budget == 0)
			break;
		s.record_budget--;
		sflow_record r = sflow_decode_record(s.data + offset);
		if (r.valid == 0)
			continue;
		sw_vlan_entry *vlan = vlan_of(registry, r.vlan);
		if (vlan == nullptr)
			break;
		add_record(vlan->clients, r, mac, now);
	}
	return true;
}

} // namespace

void
client_usage_read_stats(sw_usage_registry *registry, time_t now)
{
	client_usage_read_stats_file(registry, now, STATS_FILE);
}

// A missing file leaves the tick sums as the previous read left them, so
// the usage records take that traffic once more: long-standing behaviour
// that the management interface's figures are known by.
void
client_usage_read_stats_file(sw_usage_registry *registry, time_t now, const char *path)
{
	FILE *f = fopen(path, "rb");
	if (f == nullptr)
		return;
	clear_tick_sums(registry->vlans);
	fix_up_periods(registry->vlans, now);

	snapshot s = read_whole(f);
	fclose(f);
	s.record_budget = s.size / SFLOW_RECORD_SIZE;
	if (holds(s, 0, SFLOW_HEADER_SIZE)) {
		sflow_header h = sflow_decode_header(s.data);
		if (h.magic == SFLOW_MAGIC)
			for (uint64_t i = 0; i < h.host_count; i++)
				if (!read_host(registry, s, i, now))
					break;
	}
	free(s.data);
}
