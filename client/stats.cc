// The sFlow agent's statistics file, read once per tick into the client
// tables of every VLAN.
//
// The file is read whole with one read into memory and decoded from there:
// a seek out to each station's records and back would defeat buffering, and
// the agent may rewrite or shrink the file at any moment, which a mapping
// would answer with SIGBUS. A record or descriptor that the snapshot does
// not hold completely is short, and so is every one after it.
#include "client/internal.h"
#include "client/sflow.h"

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

uint64_t
mac_number(const uint8_t mac[6])
{
	uint64_t value = 0;
	for (int i = 0; i < 6; i++)
		value = value << 8 | mac[i];
	return value;
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
read_host(snapshot &s, uint64_t index, time_t now, client_vlan_lookup lookup)
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
		client_usage_set *clients = lookup.find_or_add(lookup.context, r.vlan);
		if (clients == nullptr)
			break;
		add_record(clients, r, mac, now);
	}
	return true;
}

} // namespace

bool
client_stats_open(client_stats *stats, const char *path)
{
	stats->file = fopen(path, "rb");
	return stats->file != nullptr;
}

void
client_stats_read(client_stats *stats, const client_tick &tick, client_vlan_lookup lookup)
{
	snapshot s = read_whole(stats->file);
	s.record_budget = s.size / SFLOW_RECORD_SIZE;
	if (holds(s, 0, SFLOW_HEADER_SIZE)) {
		sflow_header h = sflow_decode_header(s.data);
		if (h.magic == SFLOW_MAGIC)
			for (uint64_t i = 0; i < h.host_count; i++)
				if (!read_host(s, i, tick.now, lookup))
					break;
	}
	free(s.data);
}

void
client_stats_close(client_stats *stats)
{
	fclose(stats->file);
}
