// The statistics reader on well-formed, broken and hostile files. Files are
// built here byte by byte, big-endian as the appliance's agent writes them.
#include "client/internal.h"
#include "tests/support/sflow_encode.h"
#include "tests/support/vlans.h"

#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

constexpr time_t NOW = 1795256225;

struct station {
	uint8_t mac[6];
	std::vector<sflow_record> records;
};

// Header, descriptors, then each station's records in order.
std::vector<uint8_t>
build(const std::vector<station> &stations, uint32_t magic = SFLOW_MAGIC)
{
	size_t records_at = SFLOW_HEADER_SIZE + stations.size() * SFLOW_HOST_SIZE;
	size_t total = records_at;
	for (const station &s : stations)
		total += s.records.size() * SFLOW_RECORD_SIZE;
	std::vector<uint8_t> file(total);
	sflow_encode_header({magic, static_cast<uint32_t>(stations.size())}, file.data());
	size_t at = records_at;
	for (size_t i = 0; i < stations.size(); i++) {
		sflow_host h = {{}, static_cast<uint32_t>(stations[i].records.size()),
				static_cast<uint32_t>(at)};
		memcpy(h.mac, stations[i].mac, 6);
		sflow_encode_host(h, file.data() + SFLOW_HEADER_SIZE + i * SFLOW_HOST_SIZE);
		for (const sflow_record &r : stations[i].records) {
			sflow_encode_record(r, file.data() + at);
			at += SFLOW_RECORD_SIZE;
		}
	}
	return file;
}

sflow_record
record(uint16_t vlan, uint32_t ip, uint64_t first, uint64_t second, uint8_t valid = 1)
{
	return {vlan, 0, valid, ip, second, first};
}

struct Reader : testing::Test {
	test_vlans vlans;
	// Per process: CTest runs each test in its own, in parallel.
	std::string path = testing::TempDir() + "stats_test." + std::to_string(getpid()) + ".bin";

	void SetUp() override
	{
		for (int vlan : {10, 20})
			ASSERT_NE(vlans.find_or_add(vlan), nullptr);
	}
	void TearDown() override { remove(path.c_str()); }

	void write(const std::vector<uint8_t> &bytes)
	{
		FILE *f = fopen(path.c_str(), "wb");
		ASSERT_NE(f, nullptr);
		fwrite(bytes.data(), 1, bytes.size(), f);
		fclose(f);
	}
	void read(time_t now = NOW) { ASSERT_TRUE(vlans.read_stats(path.c_str(), now)); }
	const client_usage_table &hourly(int vlan) { return vlans.find(vlan)->tables[CLIENT_HOURLY]; }
	// Three reads: a sighting, a baseline, then traffic of (first, second).
	void feed_three(std::vector<uint8_t> (*file)(uint64_t step))
	{
		for (uint64_t step = 0; step < 3; step++) {
			write(file(step));
			read(NOW + 30 * static_cast<time_t>(step));
		}
	}
};

std::vector<uint8_t>
two_vlans(uint64_t step)
{
	return build({{{0x00, 0x11, 0x22, 0x33, 0x44, 0x55},
		       {record(10, 0x0a000001, 1000 * step, 100 * step),
			record(20, 0x0a000002, 3000 * step, 300 * step),
			record(10, 0x0a000003, 5000 * step, 500 * step, 0)}}});
}

TEST_F(Reader, CountersBecomeTickSumsPerVlan)
{
	feed_three(two_vlans);
	EXPECT_EQ(hourly(10).tick_first, 1000u);
	EXPECT_EQ(hourly(10).tick_second, 100u);
	EXPECT_EQ(hourly(20).tick_first, 3000u);
	EXPECT_EQ(hourly(20).tick_second, 300u);
	EXPECT_EQ(hourly(10).count, 1u) << "an invalid record is ignored";
	EXPECT_EQ(hourly(10).update_time, NOW + 60);
	const client_usage_table &daily = vlans.find(10)->tables[CLIENT_DAILY];
	const client_usage_entry *e = client_usage_find(&daily, 0x0a000001, 0x001122334455, 0);
	ASSERT_NE(e, nullptr);
	EXPECT_EQ(e->acc_first, 1000u);
}

TEST_F(Reader, WideCountersDecodeAlikeOnEveryHost)
{
	feed_three([](uint64_t step) {
		return build({{{0xfe, 0xdc, 0xba, 0x98, 0x76, 0x54},
			       {record(10, 0xc0a80101, 0x0102030405060708ull * step,
				       0x1112131415161718ull * step)}}});
	});
	EXPECT_EQ(hourly(10).tick_first, 0x0102030405060708ull);
	EXPECT_EQ(hourly(10).tick_second, 0x1112131415161718ull);
	EXPECT_NE(client_usage_find(&hourly(10), 0xc0a80101, 0xfedcba987654ull, 0), nullptr);
}

// Points descriptor index of file at count records from record index first.
void
claim(std::vector<uint8_t> &file, size_t index, uint32_t count, uint32_t first)
{
	uint32_t records_at = sflow_decode_header(file.data()).host_count * SFLOW_HOST_SIZE +
			      SFLOW_HEADER_SIZE;
	sflow_host h = sflow_decode_host(file.data() + SFLOW_HEADER_SIZE + index * SFLOW_HOST_SIZE);
	h.record_count = count;
	h.record_offset = records_at + first * SFLOW_RECORD_SIZE;
	sflow_encode_host(h, file.data() + SFLOW_HEADER_SIZE + index * SFLOW_HOST_SIZE);
}

// A record claimed by several descriptors counts for each of their MACs:
// station 1 claims one record of station 2, station 3 all four records.
TEST_F(Reader, SharedAndOverClaimedRecordsAreReadForEveryDescriptor)
{
	std::vector<uint8_t> f = build({{{0, 0, 0, 0, 0, 1}, {record(10, 1, 1, 1), record(10, 2, 1, 1)}},
					{{0, 0, 0, 0, 0, 2}, {record(10, 3, 1, 1), record(10, 4, 1, 1)}},
					{{0, 0, 0, 0, 0, 3}, {}}});
	claim(f, 0, 3, 0);
	claim(f, 2, 4, 0);
	write(f);
	read();
	const std::pair<uint32_t, uint64_t> clients[] = {{1, 1}, {2, 1}, {3, 1}, {3, 2}, {4, 2},
							  {1, 3}, {2, 3}, {3, 3}, {4, 3}};
	for (auto [ip, mac] : clients)
		EXPECT_NE(client_usage_find(&hourly(10), ip, mac, 0), nullptr) << ip << " on MAC " << mac;
	EXPECT_EQ(hourly(10).count, 9u);
}

// Descriptors that all claim the same records are read only until the
// records read a second time add up to a few times the file.
TEST_F(Reader, RecordsClaimedOverAndOverCostAFewTimesTheFile)
{
	std::vector<station> stations(64);
	for (uint32_t i = 0; i < stations.size(); i++)
		stations[i].mac[5] = static_cast<uint8_t>(i + 1);
	for (uint32_t ip = 1; ip <= 8; ip++)
		stations[0].records.push_back(record(10, ip, 1, 1));
	std::vector<uint8_t> f = build(stations);
	for (size_t i = 1; i < stations.size(); i++)
		claim(f, i, 8, 0);
	write(f);
	read();
	uint64_t file_records = f.size() / SFLOW_RECORD_SIZE;
	EXPECT_GE(hourly(10).count, 16u) << "a second descriptor's claim is read whole";
	EXPECT_LE(hourly(10).count, 4 * file_records);
}

// Broken and hostile files, read in place of a good one: the readable part
// counts, nothing else.
TEST_F(Reader, FilesCountAsFarAsTheyAreReadable)
{
	struct {
		const char *what;
		void (*spoil)(std::vector<uint8_t> &);
		uint64_t vlan10_first;
	} cases[] = {
		{"empty", [](std::vector<uint8_t> &f) { f.clear(); }, 0},
		{"short header", [](std::vector<uint8_t> &f) { f.resize(3); }, 0},
		{"byte-swapped magic", [](std::vector<uint8_t> &f) { std::swap(f[0], f[3]); }, 0},
		{"zero host count", [](std::vector<uint8_t> &f) { memset(f.data() + 4, 0, 4); }, 0},
		{"host count 0xFFFFFFFF", [](std::vector<uint8_t> &f) { memset(f.data() + 4, 0xff, 4); }, 1000},
		{"file cut inside the last record", [](std::vector<uint8_t> &f) { f.resize(f.size() - 100); }, 1000},
		{"file cut inside the first record",
		 [](std::vector<uint8_t> &f) { f.resize(SFLOW_HEADER_SIZE + SFLOW_HOST_SIZE + 10); }, 0},
		{"record offset past the end",
		 [](std::vector<uint8_t> &f) { memset(f.data() + SFLOW_HEADER_SIZE + 12, 0x7f, 4); }, 0},
		{"record offset that wraps 32 bits with the count",
		 [](std::vector<uint8_t> &f) {
			 memset(f.data() + SFLOW_HEADER_SIZE + 8, 0xff, 4);
			 memset(f.data() + SFLOW_HEADER_SIZE + 12, 0xff, 4);
		 }, 0},
		{"record count 0xFFFFFFFF", [](std::vector<uint8_t> &f) { memset(f.data() + SFLOW_HEADER_SIZE + 8, 0xff, 4); }, 1000},
	};
	for (auto &c : cases) {
		SCOPED_TRACE(c.what);
		for (uint64_t step = 0; step < 3; step++) {
			std::vector<uint8_t> f = two_vlans(step);
			if (step == 2)
				c.spoil(f);
			write(f);
			read(NOW + 30 * static_cast<time_t>(step));
		}
		EXPECT_EQ(hourly(10).tick_first, c.vlan10_first);
	}
}

} // namespace
