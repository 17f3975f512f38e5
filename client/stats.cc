// The sFlow agent's statistics file, read once per tick into the client
// tables of every VLAN.
//
// The file is read through two windows of fixed size, one over the host
// descriptors and one over the records, with positioned reads: a file laid
// out in order costs one read per window's worth, and memory does not grow
// with the file. A mapping would answer an agent that shrinks the file
// mid-read with SIGBUS. A record or descriptor that a read does not return
// whole is short, and so is every one after it.
#include "client/internal.h"
#include "client/sflow.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint64_t reread_files = 3; // bytes read again, in file sizes

struct window {
	int fd;
	uint64_t start; // file offset of data[0]
	size_t len;
	uint8_t data[32768];
};

// Records are read as their descriptors claim them, even where claims
// overlap. A record below the furthest byte read so far may be read a
// second time, and such reads are paid from a budget of a few times the
// file's size, so no file costs a tick more than a few times its size and
// a file whose records are each read once never runs out.
struct reading {
	window hosts;
	window records;
	uint64_t read_up_to;
	uint64_t reread_budget;
};

// As much of data as the file holds from offset on.
size_t
read_at(int fd, uint8_t *data, size_t size, uint64_t offset)
{
	size_t got = 0;
	while (got < size) {
		ssize_t n = pread(fd, data + got, size - got, static_cast<off_t>(offset + got));
		if (n < 0 && errno == EINTR)
			continue;
		if (n <= 0)
			break;
		got += static_cast<size_t>(n);
	}
	return got;
}

// The length bytes at offset, or null when the file ends before them.
const uint8_t *
window_at(window &w, uint64_t offset, size_t length)
{
	if (offset < w.start || offset + length > w.start + w.len) {
		w.start = offset;
		w.len = read_at(w.fd, w.data, sizeof w.data, offset);
	}
	return offset + length <= w.start + w.len ? w.data + (offset - w.start) : nullptr;
}

// False once the budget for reading records again is spent.
bool
pay_for_record(reading &r, uint64_t offset)
{
	if (offset >= r.read_up_to) {
		r.read_up_to = offset + SFLOW_RECORD_SIZE;
		return true;
	}
	if (r.reread_budget < SFLOW_RECORD_SIZE)
		return false;
	r.reread_budget -= SFLOW_RECORD_SIZE;
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
read_host(reading &r, uint64_t index, time_t now, client_vlan_lookup lookup)
{
	const uint8_t *at = window_at(r.hosts, SFLOW_HEADER_SIZE + index * SFLOW_HOST_SIZE,
				      SFLOW_HOST_SIZE);
	if (at == nullptr)
		return false;
	sflow_host host = sflow_decode_host(at);
	uint64_t mac = mac_number(host.mac);
	for (uint64_t j = 0; j < host.record_count; j++) {
		uint64_t offset = host.record_offset + j * SFLOW_RECORD_SIZE;
		const uint8_t *record = window_at(r.records, offset, SFLOW_RECORD_SIZE);
		if (record == nullptr)
			break;
		if (!pay_for_record(r, offset))
			return false;
		sflow_record rec = sflow_decode_record(record);
		if (rec.valid == 0)
			continue;
		client_usage_set *clients = lookup.find_or_add(lookup.context, rec.vlan);
		if (clients == nullptr)
			break;
		add_record(clients, rec, mac, now);
	}
	return true;
}

} // namespace

bool
client_stats_open(client_stats *stats, const char *path)
{
	stats->fd = open(path, O_RDONLY | O_CLOEXEC);
	return stats->fd >= 0;
}

void
client_stats_read(client_stats *stats, const client_tick &tick, client_vlan_lookup lookup)
{
	static reading r;
	struct stat st;
	uint64_t size = fstat(stats->fd, &st) == 0 ? static_cast<uint64_t>(st.st_size) : 0;
	for (window *w : {&r.hosts, &r.records}) {
		w->fd = stats->fd;
		w->start = 0;
		w->len = 0;
	}
	r.read_up_to = 0;
	r.reread_budget = reread_files * size;
	const uint8_t *at = window_at(r.hosts, 0, SFLOW_HEADER_SIZE);
	if (at == nullptr)
		return;
	sflow_header h = sflow_decode_header(at);
	if (h.magic != SFLOW_MAGIC)
		return;
	for (uint64_t i = 0; i < h.host_count; i++)
		if (!read_host(r, i, tick.now, lookup))
			break;
}

void
client_stats_close(client_stats *stats)
{
	(void)close(stats->fd);
}
