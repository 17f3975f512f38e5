// Statistics reader, client tables and client files over many ticks,
// in-process: time per tick and per record, and what the tables cost in
// memory.
//
// Usage: tally-bench-reader [DIR]  (DIR receives the generated statistics
// file and a client file tree; default: the current directory)
#include "client/internal.h"
#include "daemon/base/fs.h"
#include "daemon/base/layout.h"
#include "tests/support/sflow_encode.h"
#include "tests/support/vlans.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <string>
#include <time.h>
#include <vector>

namespace {

constexpr int vlan_count = 1000;
constexpr int ticks = 15;
constexpr time_t start = 1795219200; // 2026-11-21 00:00 UTC

double
seconds_now()
{
	struct timespec ts;
	clock_gettime(CLOCK_MONOTONIC, &ts);
	return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

size_t
heap_in_use()
{
	struct mallinfo2 m = mallinfo2();
	return m.uordblks + m.hblkhd;
}

// One station per record: distinct addresses and MACs over the VLANs.
std::vector<uint8_t>
build_file(int records)
{
	size_t first_record = SFLOW_HEADER_SIZE + static_cast<size_t>(records) * SFLOW_HOST_SIZE;
	std::vector<uint8_t> file(first_record + static_cast<size_t>(records) * SFLOW_RECORD_SIZE);
	sflow_encode_header({SFLOW_MAGIC, static_cast<uint32_t>(records)}, file.data());
	for (int i = 0; i < records; i++) {
		auto n = static_cast<uint32_t>(i);
		sflow_host h = {{0x02, 0, static_cast<uint8_t>(n >> 24), static_cast<uint8_t>(n >> 16),
				 static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)},
				1, static_cast<uint32_t>(first_record + n * SFLOW_RECORD_SIZE)};
		sflow_encode_host(h, file.data() + SFLOW_HEADER_SIZE + n * SFLOW_HOST_SIZE);
		sflow_record r = {static_cast<uint16_t>(1 + i % vlan_count), 0, 1, 0x0a000000 + n * 13, 0, 0};
		sflow_encode_record(r, file.data() + h.record_offset);
	}
	return file;
}

// Every client moves some traffic each tick.
void
advance_counters(std::vector<uint8_t> &file, int records, int tick)
{
	for (int i = 0; i < records; i++) {
		size_t at = SFLOW_HEADER_SIZE + static_cast<size_t>(records) * SFLOW_HOST_SIZE +
			    static_cast<size_t>(i) * SFLOW_RECORD_SIZE;
		sflow_record r = sflow_decode_record(file.data() + at);
		r.first_counter += 1500u * static_cast<unsigned>(tick + i % 7);
		r.second_counter += 100u * static_cast<unsigned>(tick + 1);
		sflow_encode_record(r, file.data() + at);
	}
}

bool
write_file(const std::string &path, const std::vector<uint8_t> &bytes)
{
	FILE *f = fopen(path.c_str(), "wb");
	if (f == nullptr)
		return false;
	bool ok = fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
	return fclose(f) == 0 && ok;
}

int
run(const std::string &dir, int records)
{
	std::string path = dir + "/bench-stat.bin";
	std::string tree = dir + "/bench-clients";
	std::string tmp = dir + "/bench-client.tmp";
	std::vector<uint8_t> file = build_file(records);

	std::vector<client_usage_set *> sets(vlan_count);
	size_t heap_sets = heap_in_use();
	for (client_usage_set *&set : sets)
		set = client_usage_set_new(1);
	double idle_tables = static_cast<double>(heap_in_use() - heap_sets) / vlan_count;
	for (client_usage_set *set : sets)
		client_usage_set_free(set);

	auto *vlans = new test_vlans;
	size_t heap_before = heap_in_use();
	for (int v = 1; v <= vlan_count; v++)
		if (vlans->find_or_add(v) == nullptr)
			return 1;
	size_t heap_idle = heap_in_use();
	for (int v = 1; v <= vlan_count; v++) {
		for (const char *sub : sw_usage_dir) {
			char client_dir[512];
			snprintf(client_dir, sizeof client_dir, "%s/%d/%d/%s", tree.c_str(), v % 100, v, sub);
			(void)recursive_mkdir(client_dir);
		}
	}

	std::vector<double> times, write_times;
	size_t heap_peak = heap_idle;
	for (int tick = 0; tick < ticks; tick++) {
		advance_counters(file, records, tick);
		if (!write_file(path, file)) {
			fprintf(stderr, "cannot write %s\n", path.c_str());
			return 1;
		}
		double t0 = seconds_now();
		vlans->read_stats(path.c_str(), start + 30 * tick);
		times.push_back(seconds_now() - t0);
		heap_peak = std::max(heap_peak, heap_in_use());
		t0 = seconds_now();
		vlans->write_files(tree.c_str(), tmp.c_str());
		write_times.push_back(seconds_now() - t0);
	}
	remove(path.c_str());
	(void)recursive_remove(tree.c_str());
	std::sort(times.begin(), times.end());
	std::sort(write_times.begin(), write_times.end());
	double median = times[times.size() / 2];
	double write_median = write_times[write_times.size() / 2];

	// Entry pool, hash heads and allocator overhead, per entry of each of
	// the three tables.
	double per_entry = static_cast<double>(heap_peak - heap_idle) / (3.0 * records);
	printf("%7d records %4d VLANs | read %8.3f ms %6.3f us/record | client files %8.3f ms | "
	       "heap %7.0f KiB | idle VLAN's client tables %4.0f B | "
	       "client entry %5.1f B/table | file read per tick %6.0f KiB\n",
	       records, vlan_count, median * 1e3, median * 1e6 / records, write_median * 1e3,
	       static_cast<double>(heap_peak - heap_before) / 1024, idle_tables,
	       per_entry, static_cast<double>(file.size()) / 1024);
	delete vlans;
	return 0;
}

} // namespace

int
main(int argc, char **argv)
{
	std::string dir = argc > 1 ? argv[1] : ".";
	setenv("TZ", "UTC", 1);
	tzset();
	printf("sizeof client_usage_entry %zu B, client_usage_set %zu B, pointer %zu B, time_t %zu B\n",
	       sizeof(client_usage_entry), sizeof(client_usage_set), sizeof(void *), sizeof(time_t));
	for (int records : {1000, 10000, 100000})
		if (run(dir, records) != 0)
			return 1;
	return 0;
}
