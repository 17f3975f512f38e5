// The period lines shared by every history, backup and totals file.
#include "tests/support/printed.h"
#include "usage/usage.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

struct Lines : testing::Test {
	void SetUp() override
	{
		setenv("TZ", "UTC", 1);
		tzset();
	}
	void TearDown() override
	{
		unsetenv("TZ");
		tzset();
	}

	static struct tm at(time_t t)
	{
		struct tm tm;
		gmtime_r(&t, &tm);
		return tm;
	}
};

TEST_F(Lines, PeriodsBefore2009AreLeftOut)
{
	struct tm first = at(1230768000), before = at(1230767999), march = at(1709647200);
	EXPECT_EQ(printed([&](out_file *f) { wu_print_hour_line(f, &march, 1523, 87); }),
		  "2024-03-05-14,1523,87\n");
	EXPECT_EQ(printed([&](out_file *f) { wu_print_day_line(f, &first, 0, 18446744073709551615ull); }),
		  "2009-01-01,0,18446744073709551615\n");
	EXPECT_EQ(printed([&](out_file *f) { wu_print_hour_line(f, &before, 1, 1); }), "");
	EXPECT_EQ(printed([&](out_file *f) { wu_print_month_line(f, &first, &march, 120044, 6310); }),
		  "2009-01-01,2024-03-05,120044,6310\n");
	EXPECT_EQ(printed([&](out_file *f) { wu_print_month_line(f, &march, &before, 1, 1); }), "");
	EXPECT_EQ(printed([&](out_file *f) { wu_print_month_line(f, &before, &march, 1, 1); }), "");
}

struct month_case {
	const char *line;
	const char *reprinted;
};

// Parsed and printed again, as the monthly rollover copies a history.
const month_case month_cases[] = {
	{"2024-02-01,2024-02-29,10,19\n", "2024-02-01,2024-02-29,10,19\n"},
	{"2024-02-01,2024-02-29,5000000000,4294967295", "2024-02-01,2024-02-29,4294967295,4294967295\n"},
	{"2024-02-01,2024-02-29,-5,x", "2024-02-01,2024-02-29,4294967291,0\n"},
	{"2024-02-01,2024-02-29", "2024-02-01,2024-02-29,0,0\n"},
	{"2024-02-31,2024-02-31,1,2", "2024-02-31,2024-02-31,1,2\n"},
	{"2024-02-01,29 Feb,1,2", ""},
	{"not a date,2024-02-29,1,2", ""},
	{"2008-12-01,2008-12-31,1,2", ""},
	{"", ""},
};

TEST_F(Lines, MonthLinesReadBackAsTheyWereWrittenWithin32Bits)
{
	for (const month_case &c : month_cases) {
		struct tm start, end;
		uint64_t first = 0, second = 0;
		wu_parse_month_line(c.line, &start, &end, &first, &second);
		EXPECT_EQ(printed([&](out_file *f) { wu_print_month_line(f, &start, &end, first, second); }),
			  c.reprinted)
			<< c.line;
	}
}

// A date that does not parse is all zeros, whatever strptime filled in
// before it gave up; a good date before it stays.
TEST_F(Lines, ADateThatDoesNotParseIsAllZerosAndTheDateBeforeItStays)
{
	struct {
		const char *line;
		int start_mday;
	} cases[] = {{"2024-02-01,2024-13-45,1,2", 1}, {"2024-13-45,2024-02-01,1,2", 0}};
	for (const auto &c : cases) {
		struct tm start, end;
		memset(&start, 0x55, sizeof start);
		memset(&end, 0x55, sizeof end);
		uint64_t first = 7, second = 7;
		wu_parse_month_line(c.line, &start, &end, &first, &second);
		EXPECT_EQ(start.tm_mday, c.start_mday) << c.line;
		EXPECT_EQ(end.tm_year, 0) << c.line;
		EXPECT_EQ(end.tm_mday, 0) << c.line;
		EXPECT_EQ(first, 7u) << "amounts are read only after both dates";
	}
}

} // namespace
