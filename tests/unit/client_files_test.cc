// Client files: which clients are listed and in what order, and the
// trimming of client directories. Written under a temporary root.
#include "client/internal.h"
#include "daemon/base/fs.h"
#include "daemon/base/layout.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

// Sun 2020-09-13 12:26:40 UTC: in the past, so no file is taken for a
// future one even where the clock marker happens to exist.
constexpr time_t T = 1600000000;

struct ClientFiles : testing::Test {
	std::string root;
	client_usage_set *vlan = client_usage_set_new(105);

	void SetUp() override
	{
		setenv("TZ", "UTC", 1);
		tzset();
		std::string pattern = testing::TempDir() + "client_files.XXXXXX";
		ASSERT_NE(mkdtemp(pattern.data()), nullptr);
		root = pattern;
		for (const char *dir : sw_usage_dir)
			ASSERT_EQ(recursive_mkdir((root + "/5/105/" + dir).c_str()), 0);
		for (client_usage_table &t : vlan->tables)
			t.update_time = T;
	}
	void TearDown() override
	{
		client_usage_set_free(vlan);
		ASSERT_EQ(system(("rm -rf '" + root + "'").c_str()), 0);
		unsetenv("TZ");
		tzset();
	}

	// A client's first two samples only set baselines; the third counts.
	void traffic(const char *ip, uint64_t mac, uint32_t tag, uint64_t first, uint64_t second)
	{
		for (client_usage_table &t : vlan->tables) {
			add_client_usage(&t, ip, 1000, 1000, mac, tag, 1);
			add_client_usage(&t, ip, 2000, 2000, mac, tag, 1);
			add_client_usage(&t, ip, 2000 + first, 2000 + second, mac, tag, 1);
		}
	}
	void write() { ASSERT_TRUE(client_usage_write_vlan(vlan, 105, root.c_str(), tmp().c_str())); }
	std::string tmp() const { return root + "/client.tmp"; }
	std::string file(const char *dir, const char *name) const
	{
		return root + "/5/105/sw_client/sw_client_usage_" + dir + "/" + name;
	}
};

std::string
read_file(const std::string &path)
{
	FILE *f = fopen(path.c_str(), "r");
	if (f == nullptr)
		return "(absent)";
	std::string text;
	char buf[512];
	while (size_t n = fread(buf, 1, sizeof buf, f))
		text.append(buf, n);
	fclose(f);
	return text;
}

void
write_file(const std::string &path, const char *text)
{
	FILE *f = fopen(path.c_str(), "w");
	ASSERT_NE(f, nullptr);
	fputs(text, f);
	fclose(f);
}

TEST_F(ClientFiles, ListsClientsFrom1KiBByBucketNewestFirst)
{
	traffic("0.0.0.6", 0x0a, 0, 1024, 0);      // bucket 6
	traffic("0.0.0.3", 0x0b, 7, 0, 1024);      // bucket 3
	traffic("0.0.32.5", 0, 0, 2047, 5000);     // bucket 6 as well: 8197 mod 8191
	traffic("10.0.0.1", 0x0c, 0, 1023, 1023);  // below 1 KiB both ways
	traffic("10.0.0.2", 0x0d, 65535, 1 << 20, 0); // bucket 4100
	write();
	const char *expected = "0.0.0.3,0,1,00:00:00:00:00:0B,7\n"
			       "0.0.32.5,1,4,,0\n"
			       "0.0.0.6,1,0,00:00:00:00:00:0A,0\n"
			       "10.0.0.2,1024,0,00:00:00:00:00:0D,65535\n";
	EXPECT_EQ(read_file(file("hourly", "2020-09-13-12.csv")), expected);
	EXPECT_EQ(read_file(file("daily", "2020-09-13.csv")), expected);
	EXPECT_EQ(read_file(file("monthly", "2020-09-01.csv")), expected);
	EXPECT_EQ(access(tmp().c_str(), F_OK), -1);
}

TEST_F(ClientFiles, APeriodWithoutListedClientsKeepsAnOlderFile)
{
	traffic("10.0.0.1", 0x0c, 0, 1023, 1023);
	write_file(file("hourly", "2020-09-13-12.csv"), "old\n");
	write();
	EXPECT_EQ(read_file(file("hourly", "2020-09-13-12.csv")), "old\n");
	EXPECT_EQ(read_file(file("daily", "2020-09-13.csv")), "(absent)");
	EXPECT_EQ(access(tmp().c_str(), F_OK), -1);
}

TEST_F(ClientFiles, WithoutATemporaryFileNothingIsWritten)
{
	traffic("10.0.0.1", 0x0c, 0, 4096, 0);
	EXPECT_FALSE(client_usage_write_vlan(vlan, 105, root.c_str(), (root + "/no/such/dir").c_str()));
	EXPECT_EQ(read_file(file("hourly", "2020-09-13-12.csv")), "(absent)");
}

std::vector<std::string>
listing(const std::string &dir)
{
	std::vector<std::string> names;
	std::string command = "ls -A '" + dir + "'";
	FILE *p = popen(command.c_str(), "r");
	char line[256];
	while (fgets(line, sizeof line, p) != nullptr) {
		line[strcspn(line, "\n")] = '\0';
		names.push_back(line);
	}
	pclose(p);
	return names;
}

struct limit_case {
	int period;
	int limit;
	int files;
	const char *oldest_kept;
};

// Dated files of consecutive days; the oldest go first.
TEST_F(ClientFiles, DirectoriesKeepTheirNewestFiles)
{
	const limit_case cases[] = {
		{CLIENT_HOURLY, 24, 24, "2020-01-01.csv"}, {CLIENT_HOURLY, 24, 25, "2020-01-02.csv"},
		{CLIENT_DAILY, 32, 32, "2020-01-01.csv"},  {CLIENT_DAILY, 32, 34, "2020-01-03.csv"},
		{CLIENT_MONTHLY, 60, 60, "2020-01-01.csv"}, {CLIENT_MONTHLY, 60, 61, "2020-01-02.csv"},
	};
	for (const limit_case &c : cases) {
		SCOPED_TRACE(testing::Message() << c.files << " files, limit " << c.limit);
		std::string dir = root + "/limit";
		ASSERT_EQ(recursive_mkdir(dir.c_str()), 0);
		for (int i = 0; i < c.files; i++) {
			char name[64];
			snprintf(name, sizeof name, "/2020-%02d-%02d.csv", 1 + i / 28, 1 + i % 28);
			write_file(dir + name, "x\n");
		}
		client_usage_dir_limit(dir.c_str(), c.period, c.limit, 2);
		std::vector<std::string> left = listing(dir);
		EXPECT_EQ(static_cast<int>(left.size()), c.limit);
		EXPECT_EQ(left.front(), c.oldest_kept);
		ASSERT_EQ(recursive_remove(dir.c_str()), 0);
	}
}

TEST_F(ClientFiles, StrayEntriesCountAsNamesAndOnlyDotCsvGoes)
{
	std::string dir = root + "/stray";
	ASSERT_EQ(recursive_mkdir((dir + "/2019-12-31-23").c_str()), 0); // a directory
	write_file(dir + "/notes.txt", "keep\n");
	write_file(dir + "/.hidden.csv", "keep\n");
	write_file(dir + "/2020-01-01-00.old.csv", "keep\n");
	write_file(dir + "/2020-01-01-00.csv", "x\n");
	write_file(dir + "/2020-01-01-01.csv", "x\n");
	write_file(dir + "/2020-01-01-02.csv", "x\n");
	// Names: notes, 2020-01-01-02, -01, -00, -00, 2019-12-31-23: keep 3.
	client_usage_dir_limit(dir.c_str(), CLIENT_HOURLY, 3, 2);
	std::vector<std::string> expected = {".hidden.csv", "2019-12-31-23", "2020-01-01-00.old.csv",
					     "2020-01-01-01.csv", "2020-01-01-02.csv", "notes.txt"};
	EXPECT_EQ(listing(dir), expected);

	std::string missing = root + "/missing";
	client_usage_dir_limit(missing.c_str(), CLIENT_HOURLY, 3, 2);
	EXPECT_EQ(access(missing.c_str(), F_OK), -1) << "a missing directory is not made";
	std::string empty = root + "/empty";
	ASSERT_EQ(recursive_mkdir(empty.c_str()), 0);
	client_usage_dir_limit(empty.c_str(), CLIENT_HOURLY, 3, 2);
	EXPECT_TRUE(listing(empty).empty());
}

} // namespace
