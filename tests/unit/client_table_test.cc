// Client tables: cumulative counters turned into per-period usage, and
// client files read back into a table.
#include "client/internal.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>
#include <gtest/gtest.h>
#include <vector>

namespace {

constexpr uint64_t MAC1 = 0x001122334455;
constexpr uint64_t MAC2 = 0x00aabbccddee;
constexpr uint32_t IP_A = 0x0a000001; // 10.0.0.1

struct sample {
	uint64_t mac;
	uint64_t first, second;
};

struct usage {
	uint64_t mac;
	uint64_t acc_first, acc_second;
};

struct delta_case {
	const char *fault;
	std::vector<sample> samples; // all for 10.0.0.1, tag 0
	std::vector<usage> expected;
	uint64_t tick_first; // sum over all samples
};

// Each sample is fed as a separate tick sum; the total is compared.
const delta_case delta_cases[] = {
	{"first sighting and the first change only set baselines",
	 {{MAC1, 100, 10}, {MAC1, 200, 20}, {MAC1, 250, 25}},
	 {{MAC1, 50, 5}}, 50},
	{"an identical sample changes nothing",
	 {{MAC1, 100, 10}, {MAC1, 200, 20}, {MAC1, 200, 20}, {MAC1, 260, 26}},
	 {{MAC1, 60, 6}}, 60},
	{"a counter going backwards re-baselines without traffic",
	 {{MAC1, 100, 10}, {MAC1, 1000, 100}, {MAC1, 1500, 90}, {MAC1, 1600, 95}},
	 {{MAC1, 100, 5}}, 100},
	{"the first counter going backwards alone also re-baselines",
	 {{MAC1, 100, 10}, {MAC1, 1000, 100}, {MAC1, 900, 200}, {MAC1, 1000, 210}},
	 {{MAC1, 100, 10}}, 100},
	// MAC2 takes the address: its first sample becomes its baseline because
	// MAC1 held the address, its second only re-baselines (fresh). When
	// MAC1 comes back it goes on from MAC2's baselines.
	{"an address moving back continues from the other MAC's baselines",
	 {{MAC1, 100, 10}, {MAC1, 200, 20}, {MAC1, 300, 30},
	  {MAC2, 350, 35}, {MAC2, 400, 40}, {MAC1, 500, 50}},
	 {{MAC1, 200, 20}, {MAC2, 0, 0}}, 200},
	{"below the other MAC's baselines the whole counters count",
	 {{MAC1, 100, 10}, {MAC1, 200, 20}, {MAC1, 300, 30},
	  {MAC2, 350, 35}, {MAC2, 400, 40}, {MAC1, 380, 38}},
	 {{MAC1, 100 + 380, 10 + 38}, {MAC2, 0, 0}}, 480},
};

struct ClientTable : testing::Test {
	client_usage_set *set = client_usage_set_new(10);
	client_usage_set *next_set = nullptr;

	void TearDown() override
	{
		client_usage_set_free(set);
		client_usage_set_free(next_set);
	}
	// A fresh table, for a test that runs several cases.
	client_usage_table *new_table()
	{
		client_usage_set_free(next_set);
		next_set = client_usage_set_new(10);
		return &next_set->tables[CLIENT_HOURLY];
	}
	client_usage_table *table() { return &set->tables[CLIENT_HOURLY]; }
};

TEST_F(ClientTable, DeltaRules)
{
	for (const delta_case &c : delta_cases) {
		SCOPED_TRACE(c.fault);
		client_usage_table *t = new_table();
		ASSERT_NE(t, nullptr);
		for (const sample &s : c.samples)
			add_client_usage(t, "10.0.0.1", s.first, s.second, s.mac, 0, 1);
		for (const usage &u : c.expected) {
			const client_usage_entry *e = client_usage_find(t, IP_A, u.mac, 0);
			ASSERT_NE(e, nullptr);
			EXPECT_EQ(e->acc_first, u.acc_first);
			EXPECT_EQ(e->acc_second, u.acc_second);
		}
		EXPECT_EQ(t->tick_first, c.tick_first);
	}
}

TEST_F(ClientTable, AddressTagAndMacMakeTheKey)
{
	client_usage_table *t = table();
	add_client_usage(t, "10.0.0.1", 1, 1, MAC1, 0, 1);
	add_client_usage(t, "10.0.0.1", 1, 1, MAC1, 7, 1);
	add_client_usage(t, "10.0.0.2", 1, 1, MAC1, 0, 1);
	add_client_usage(t, "10.0.0.1", 1, 1, MAC1, 0, 1);
	EXPECT_EQ(t->count, 3u);
	// One current holder per address: the latest newcomer.
	EXPECT_FALSE(client_usage_find(t, IP_A, MAC1, 0)->current);
	EXPECT_TRUE(client_usage_find(t, IP_A, MAC1, 7)->current);
}

TEST_F(ClientTable, ManyClientsStayFindable)
{
	client_usage_table *t = table();
	for (uint32_t i = 0; i < 5000; i++)
		add_client_usage_addr(t, 0x0a000000 + i * 7919, i, i, MAC1 + i % 3, i % 2, 1);
	EXPECT_EQ(t->count, 5000u);
	for (uint32_t i = 0; i < 5000; i++)
		ASSERT_NE(client_usage_find(t, 0x0a000000 + i * 7919, MAC1 + i % 3, i % 2), nullptr) << i;
}

struct restore_case {
	const char *fault;
	int mode;
	const char *lines;
	bool held_before; // 10.0.0.1 on MAC2 held the address before the restore
	uint64_t acc_first, acc_second, last_first;
	bool fresh, current;
};

const restore_case restore_cases[] = {
	{"mode 1 takes the figures in KiB as the period's usage", 1,
	 "10.0.0.1,12,3,00:11:22:33:44:55,0\n", false, 12288, 3072, 0, true, false},
	{"mode 0 takes nothing as usage without a holder", 0,
	 "10.0.0.1,12,3,00:11:22:33:44:55,0\n", false, 0, 0, 0, true, true},
	{"mode 0 takes the figures as baselines when the address is held", 0,
	 "10.0.0.1,12,3,00:11:22:33:44:55,0\n", true, 0, 0, 12288, true, true},
	{"a key restored twice is overwritten, not added", 1,
	 "10.0.0.1,12,3,00:11:22:33:44:55,0\n10.0.0.1,5,1,00:11:22:33:44:55,0\n", false,
	 5120, 1024, 0, true, false},
};

// The text as a file being read, through a pipe.
struct text_file {
	in_file in;
	explicit text_file(const char *text)
	{
		int ends[2];
		EXPECT_EQ(pipe(ends), 0);
		EXPECT_EQ(write(ends[1], text, strlen(text)), static_cast<ssize_t>(strlen(text)));
		close(ends[1]);
		in_start(&in, ends[0]);
	}
	~text_file() { in_close(&in); }
};

TEST_F(ClientTable, RestoreModes)
{
	for (const restore_case &c : restore_cases) {
		SCOPED_TRACE(c.fault);
		client_usage_table *t = new_table();
		if (c.held_before)
			add_client_usage(t, "10.0.0.1", 1, 1, MAC2, 0, 1);
		text_file f(c.lines);
		client_usage_restore_lines(t, &f.in, c.mode);
		const client_usage_entry *e = client_usage_find(t, IP_A, MAC1, 0);
		ASSERT_NE(e, nullptr);
		EXPECT_EQ(e->acc_first, c.acc_first);
		EXPECT_EQ(e->acc_second, c.acc_second);
		EXPECT_EQ(e->last_first, c.last_first);
		EXPECT_EQ(e->fresh, c.fresh);
		EXPECT_EQ(e->current, c.current);
		EXPECT_TRUE(e->touched);
	}
}

TEST_F(ClientTable, RestoreOfAnExistingEntryMarksItFreshAndTouched)
{
	client_usage_table *t = table();
	add_client_usage(t, "10.0.0.1", 100, 10, MAC1, 0, 1);
	add_client_usage(t, "10.0.0.1", 200, 20, MAC1, 0, 1);
	auto *e = const_cast<client_usage_entry *>(client_usage_find(t, IP_A, MAC1, 0));
	e->touched = 0;
	text_file f("10.0.0.1,2,1,00:11:22:33:44:55,0\n");
	client_usage_restore_lines(t, &f.in, 1);
	EXPECT_TRUE(e->fresh);
	EXPECT_TRUE(e->touched);
	EXPECT_EQ(e->acc_first, 2048u);
	EXPECT_EQ(e->last_first, 200u) << "baselines stay";
}

TEST_F(ClientTable, MalformedRestoreLinesAreSkippedAndOddTextsKept)
{
	client_usage_table *t = table();
	text_file f("10.0.0.1,1,2,00:11:22:33:44:55\n"       // no tag
			    "10.0.0.2,x,2,00:11:22:33:44:55,0\n"      // no number
			    "10.0.0.3,1,2,00:11:22:33:44:55:66:77,0\n" // MAC over 17 characters
			    "\n"
			    "garbage\n"
			    "010.0.0.9,3,4,00:11:22:33:44:55,1\n"
			    "not-an-address,5,6,,2\n"
		    "10.0.0.4,7,8,00:11:22:33:44:55,3");
	client_usage_restore_lines(t, &f.in, 1);
	EXPECT_EQ(t->count, 2u);
	const client_usage_entry *octal = client_usage_find(t, 0x08000009, MAC1, 1);
	ASSERT_NE(octal, nullptr);
	char text[16];
	EXPECT_STREQ(client_usage_ip_text(octal, text), "010.0.0.9");
	const client_usage_entry *last = client_usage_find(t, 0x0a000004, MAC1, 3);
	ASSERT_NE(last, nullptr) << "a last line without a newline counts";
	EXPECT_STREQ(client_usage_ip_text(last, text), "10.0.0.4");
}

struct mac_case {
	const char *text;
	uint64_t value;
};

const mac_case mac_cases[] = {
	{"00:11:22:33:44:55", 0x001122334455},
	{"aa-BB-cc-DD-ee-FF", 0xaabbccddeeff},
	{"00:11:22:33:44", 0},           // a group without digits
	{"", 0},
	{"1:2:3:4:5:6", 0x010203040506},
	{"100:0:0:0:0:0", 0x10000000000ull * 0x100}, // groups are added whole
	{"FFFFFFFFF:0:0:0:0:0", 0x7fffffffull << 40}, // and read as a 32-bit long
};

TEST(Mac, TextToNumber)
{
	for (const mac_case &c : mac_cases)
		EXPECT_EQ(mac2ull(c.text), c.value) << c.text;
}

TEST(Mac, NumberToText)
{
	char buf[20];
	EXPECT_STREQ(ull2mac(0, buf, sizeof buf), "");
	EXPECT_STREQ(ull2mac(0x00aabbccddee, buf, sizeof buf), "00:AA:BB:CC:DD:EE");
	EXPECT_STREQ(ull2mac(0xff0000aabbccddeeull, buf, sizeof buf), "00:AA:BB:CC:DD:EE");
}

} // namespace
