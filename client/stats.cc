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

constexpr uint64_t reread_files = 3; // bytes read again, in file sizes

// Records are read as their descriptors claim them, even where claims
// overlap. A record below the furthest byte read so far may be read a
// second time, and such reads are paid from a budget of a few times the
// file's size, so no file costs a tick more than a few times its size and
// a file whose records are each read once never runs out.
struct snapshot {
	uint8_t *data;
	uint64_t size;
	uint64_t read_up_to;
	uint64_t reread_budget;
};

// The whole file, or an empty snapshot when memory runs out.
snapshot
read_whole(FILE *f)
{
	struct stat st;
	size_t capacity = fstat(fileno(f), &st) == 0 && st.st_size > 0
				  ? static_cast<size_t>(st.st_size) + 1 : 4096;
	snapshot s = {static_cast<uint8_t *>(malloc(capacity)), 0, 0, 0};
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
	return {nullptr, 0, 0, 0};
}

bool
holds(const snapshot &s, uint64_t offset, uint64_t length)
{
	return offset + length <= s.size;
}

// False once the budget for reading records again is spent.
bool
pay_for_record(snapshot &s, uint64_t offset)
{
	if (offset >= s.read_up_to) {
		s.read_up_to = offset + SFLOW_RECORD_SIZE;
		return true;
	}
	if (s.reread_budget < SFLOW_RECORD_SIZE)
		return false;
	s.reread_budget -= SFLOW_RECORD_SIZE;
	return true;
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
		tables[p].unwritten = 1;
	}
}

// Returns false when the rest of the file is short, or the budget spent.
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
		if (!holds(s, offset, SFLOW_RECORD_SIZE))
			break;
		if (!pay_for_record(s, offset))
			return false;
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
	s.reread_budget = reread_files * s.size;
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
