// tally-statdump: prints every record of a statistics file, one line each,
// then reports what in the file's structure would mislead a reader.
#include "client/sflow.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char usage_text[] =
	"Usage: tally-statdump FILE\n"
	"Prints each record of a statistics file as one line:\n"
	"  host=H mac=XX:XX:XX:XX:XX:XX vlan=V tag=T valid=0|1 ip=A.B.C.D first=N second=N\n"
	"H counts host descriptors from 0. Structural problems go to standard error\n"
	"after every readable record is printed, and the exit status is then 1.\n";

struct dump_state {
	const uint8_t *data;
	uint64_t size;
	uint64_t table_end; // end of the host descriptors that are there
	std::vector<std::string> problems;
};

__attribute__((format(printf, 2, 3))) void
add_problem(dump_state *d, const char *fmt, ...)
{
	char line[256];
	va_list ap;
	va_start(ap, fmt);
	vsnprintf(line, sizeof line, fmt, ap);
	va_end(ap);
	d->problems.push_back(line);
}

void
print_record(uint32_t host_index, const char *mac, const sflow_record &r)
{
	printf("host=%" PRIu32 " mac=%s vlan=%u tag=%u valid=%u ip=%u.%u.%u.%u first=%" PRIu64
	       " second=%" PRIu64 "\n",
	       host_index, mac, r.vlan, r.tag, r.valid, r.ip >> 24, r.ip >> 16 & 0xff, r.ip >> 8 & 0xff,
	       r.ip & 0xff, r.first_counter, r.second_counter);
}

// The daemon reads a zero MAC as none at all; here it still gets a column.
void
format_mac(const sflow_host &host, char text[18])
{
	const uint8_t *m = host.mac;
	snprintf(text, 18, "%02X:%02X:%02X:%02X:%02X:%02X", m[0], m[1], m[2], m[3], m[4], m[5]);
}

// 64-bit sums: offset + count * 168 passes 32 bits easily, and a
// wrapped sum would look like a record inside the file.
void
dump_host(dump_state *d, uint32_t index, const sflow_host &host)
{
	uint64_t start = host.record_offset;
	uint64_t end = start + uint64_t{host.record_count} * SFLOW_RECORD_SIZE;
	uint64_t room = start < d->size ? (d->size - start) / SFLOW_RECORD_SIZE : 0;
	uint64_t readable = std::min<uint64_t>(host.record_count, room);
	char mac[18];
	format_mac(host, mac);
	for (uint64_t i = 0; i < readable; i++)
		print_record(index, mac, sflow_decode_record(d->data + start + i * SFLOW_RECORD_SIZE));

	if (host.record_count > 0 && start < d->table_end)
		add_problem(d, "host %" PRIu32 ": records at offset %" PRIu64 " overlap the header or host table",
			    index, start);
	if (end > d->size)
		add_problem(d,
			    "host %" PRIu32 ": %" PRIu32 " records from offset %" PRIu64 " end at %" PRIu64
			    ", past the end of the file (%" PRIu64 " bytes)",
			    index, host.record_count, start, end, d->size);
}

// Only what the file holds is walked, whatever its header claims.
void
dump(dump_state *d)
{
	if (d->size < SFLOW_HEADER_SIZE) {
		add_problem(d, "short header: %" PRIu64 " bytes, need %zu", d->size, SFLOW_HEADER_SIZE);
		return;
	}
	sflow_header header = sflow_decode_header(d->data);
	if (header.magic != SFLOW_MAGIC) {
		add_problem(d, "bad magic 0x%08" PRIX32 ", expected 0x%08" PRIX32, header.magic, SFLOW_MAGIC);
		return;
	}
	uint64_t room = (d->size - SFLOW_HEADER_SIZE) / SFLOW_HOST_SIZE;
	uint64_t hosts = std::min<uint64_t>(header.host_count, room);
	if (header.host_count > room)
		add_problem(d, "host count %" PRIu32 ": descriptors past the end of the file, which holds %" PRIu64,
			    header.host_count, room);
	d->table_end = SFLOW_HEADER_SIZE + hosts * SFLOW_HOST_SIZE;
	for (uint64_t h = 0; h < hosts; h++) {
		const uint8_t *p = d->data + SFLOW_HEADER_SIZE + h * SFLOW_HOST_SIZE;
		dump_host(d, static_cast<uint32_t>(h), sflow_decode_host(p));
	}
}

bool
read_file(const char *path, std::vector<uint8_t> *data)
{
	FILE *f = fopen(path, "rb");
	if (f == nullptr)
		return false;
	uint8_t chunk[65536];
	size_t n;
	while ((n = fread(chunk, 1, sizeof chunk, f)) > 0)
		data->insert(data->end(), chunk, chunk + n);
	bool ok = !ferror(f);
	fclose(f);
	return ok;
}

} // namespace

int
main(int argc, char **argv)
{
	if (argc == 2 && strcmp(argv[1], "--help") == 0) {
		fputs(usage_text, stdout);
		return 0;
	}
	if (argc != 2) {
		fputs("tally-statdump: expects one FILE (see --help)\n", stderr);
		return 2;
	}
	const char *path = argv[1];
	if (path[0] == '-') {
		fprintf(stderr, "tally-statdump: unknown option '%s' (see --help)\n", path);
		return 2;
	}
	std::vector<uint8_t> data;
	if (!read_file(path, &data)) {
		fprintf(stderr, "tally-statdump: cannot read %s: %s\n", path, strerror(errno));
		return 1;
	}
	static char out_buffer[1 << 16];
	setvbuf(stdout, out_buffer, _IOFBF, sizeof out_buffer);
	dump_state d{data.data(), data.size(), 0, {}};
	dump(&d);
	if (fflush(stdout) != 0) {
		fprintf(stderr, "tally-statdump: cannot write the records: %s\n", strerror(errno));
		return 1;
	}
	for (const std::string &problem : d.problems)
		fprintf(stderr, "tally-statdump: %s: %s\n", path, problem.c_str());
	return d.problems.empty() ? 0 : 1;
}
